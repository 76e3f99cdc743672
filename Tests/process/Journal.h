#pragma once

#include <optional>
#include <string>
#include <vector>

#include "VirtualMac/Remote/FrameSocket.h"

namespace processtests {

/// One line of a machine's journal.
struct JournalLine {
  double time = 0;  ///< Virtual seconds.
  std::string kind;
  std::string text;
};

/// A socket for lines of text.
class LineSocket {
 public:
  explicit LineSocket(const std::string& path);
  void send(const std::string& line);
  /// Returns false when the other side does not read.
  bool sendNow(const std::string& line);
  /// Returns none when no line came in time or the other side is gone.
  std::optional<std::string> receive(double timeoutSeconds);

 private:
  virtualmac::FrameSocket socket;
};

/// Follows a machine's journal from its construction on.
class JournalFollower {
 public:
  explicit JournalFollower(const std::string& controlPath);
  /// Reads until a line contains `text`; lines read earlier are not searched again. None: it did
  /// not come in time.
  std::optional<JournalLine> waitFor(const std::string& text, double timeoutSeconds = 20);
  /// Reads for this time and returns every line that came.
  std::vector<JournalLine> collect(double seconds);

 private:
  std::optional<JournalLine> next(double timeoutSeconds);
  LineSocket socket;
};

JournalLine parseJournalLine(const std::string& line);

}  // namespace processtests
