#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace virtualmac {

/// The clients of a journal, under the names that a story gives them: the first is `app`, one of
/// another program has its identity's name, and each further one of a kind has a number. A name is
/// free again when its client has left.
class RecordedClients {
 public:
  struct Client {
    std::int64_t pid = 0;
    std::string name;
    std::string identity;
    bool isOver = false;  ///< Cut off or refused; a story's client keeps its name all the same.
  };

  /// Takes a client in, and returns the phrase that connects it.
  std::string connect(std::int64_t pid, const std::string& identity);
  /// Null: no client of a story has this number.
  [[nodiscard]] Client* find(std::int64_t pid);
  /// The client that came last of those that can ask; null: there is none.
  [[nodiscard]] Client* latest();
  void leave(std::int64_t pid);
  void allLeave() { clients.clear(); }

  /// ` NAME`, and nothing for `app`.
  static std::string named(const Client& client) {
    return client.name == usual ? "" : ' ' + client.name;
  }
  /// ` by NAME`, and nothing for `app`.
  static std::string by(const Client& client) {
    return client.name == usual ? "" : " by " + client.name;
  }

 private:
  static constexpr std::string_view usual = "app";
  std::vector<Client> clients;
};

}  // namespace virtualmac
