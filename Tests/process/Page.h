#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Tests/process/Mac.h"

namespace processtests {

/// The answer of a page to one request.
struct PageAnswer {
  int status = 0;
  std::string head;
  std::string body;

  /// Empty: there is no such header.
  [[nodiscard]] std::string header(const std::string& name) const;
  /// Discarded when the body is no JSON.
  [[nodiscard]] nlohmann::json json() const { return nlohmann::json::parse(body, nullptr, false); }
};

/// One connection to a page, which can also misbehave.
class PageVisit {
 public:
  /// `receiveBuffer`: the system keeps about so many bytes for it; 0: as usual.
  explicit PageVisit(int port, int receiveBuffer = 0);
  ~PageVisit();
  /// Whether somebody listens there.
  static bool reaches(const char* address, int port);
  PageVisit(const PageVisit&) = delete;
  PageVisit& operator=(const PageVisit&) = delete;

  /// False: the page has ended the connection.
  bool send(const std::string& bytes);
  /// The next answer as a whole. Status 0: none came in time, or the connection ended.
  PageAnswer answer(double timeoutSeconds = 20);
  /// The head of an answer that goes on and on.
  PageAnswer begin(double timeoutSeconds = 20);
  /// Reads such an answer until it has this text, from where the last one was found. False: it did
  /// not come in time.
  bool waitFor(const std::string& text, double timeoutSeconds = 20);
  /// Reads such an answer to its end, in order. False: it did not end so, or not in time.
  bool comesToItsEnd(double timeoutSeconds = 20);
  /// The page closes the connection within the time.
  bool isCutOff(double timeoutSeconds = 20);
  /// The page drops the connection within the time, whatever is unread.
  [[nodiscard]] bool isReset(double timeoutSeconds) const;
  /// All that has come of such an answer.
  [[nodiscard]] const std::string& stream() const { return content; }

 private:
  bool unpack();

  int socket;
  std::string input;
  std::string content;
  std::size_t searched = 0;
  bool ended = false;  ///< The last chunk has come.
};

/// The page of a machine that was brought up with `--web`.
class Page {
 public:
  explicit Page(const Mac& mac);

  [[nodiscard]] int port() const { return number; }
  [[nodiscard]] const std::string& token() const { return secret; }
  [[nodiscard]] std::string host() const { return "127.0.0.1:" + std::to_string(number); }
  /// The bytes of a request with the token.
  [[nodiscard]] std::string request(const std::string& method, const std::string& path,
                                    const std::string& body = {}) const;
  /// The bytes of a request with these lines as its headers.
  static std::string plain(const std::string& method, const std::string& path,
                           const std::string& headers, const std::string& body = {});

  [[nodiscard]] PageAnswer get(const std::string& path) const;
  [[nodiscard]] PageAnswer post(const std::string& path, const nlohmann::json& body) const;
  [[nodiscard]] PageAnswer send(const std::string& bytes) const;
  /// The answer's JSON.
  [[nodiscard]] nlohmann::json machine(const std::string& command,
                                       const std::vector<std::string>& arguments = {}) const;
  [[nodiscard]] nlohmann::json clients(const nlohmann::json& wish) const;

 private:
  int number;
  std::string secret;
};

/// A machine with a page on a free port.
inline MacOptions withPage(double speed = 1) { return {.speed = speed, .more = {"--web=0"}}; }

}  // namespace processtests
