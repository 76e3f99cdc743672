#pragma once

#include <optional>
#include <string>
#include <vector>

namespace processtests {

/// One line of a machine's journal.
struct JournalLine {
  double time = 0;  ///< Virtual seconds.
  std::string kind;
  std::string text;
};

/// A socket that gives lines.
class LineSocket {
 public:
  explicit LineSocket(const std::string& path);
  ~LineSocket();
  LineSocket(const LineSocket&) = delete;
  LineSocket& operator=(const LineSocket&) = delete;
  void send(const std::string& line);
  /// False: the other side does not read.
  bool sendNow(const std::string& line);
  /// None: nothing came in time, or the other side is gone.
  std::optional<std::string> receive(double timeoutSeconds);

 private:
  int socket;
  std::string input;
};

/// Follows a machine's journal from the moment it is made.
class JournalFollower {
 public:
  explicit JournalFollower(const std::string& controlPath);
  /// Reads on until a line that contains `text`; what was read before is not looked at again. None:
  /// it did not come in time.
  std::optional<JournalLine> waitFor(const std::string& text, double timeoutSeconds = 20);
  /// Reads for so long, and gives all that came.
  std::vector<JournalLine> collect(double seconds);

 private:
  std::optional<JournalLine> next(double timeoutSeconds);
  LineSocket socket;
};

JournalLine parseJournalLine(const std::string& line);

}  // namespace processtests
