#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <thread>

#include "VirtualMac/Server/ClientProcess.h"
#include "VirtualMac/Server/RootDirectory.h"

namespace virtualmac {

/// The applications that a page has started: a `korvel-app session` each, by the names that the
/// page gave them. They live on one thread, and end with this object.
class PageClients {
 public:
  /// `program` is `korvel-app`'s path.
  PageClients(RootDirectory home, std::string program);
  ~PageClients();
  PageClients(const PageClients&) = delete;
  PageClients& operator=(const PageClients&) = delete;

  /// {"clients": [{"name": "app", "identity": "app", "connected": true}]}
  nlohmann::json list();
  /// {"do": "connect", "client": NAME, "identity": IDENTITY}, {"do": "disconnect", "client": NAME},
  /// {"do": "kill", ...}, {"do": "send", "client": NAME, "request": "set-limit 80"}. Waits for the
  /// answer, which is the session's, or {"ok": false, "error": ...}.
  nlohmann::json perform(const nlohmann::json& wish);

 private:
  using Answer = std::function<void(const nlohmann::json&)>;
  struct Client {
    std::string identity;
    std::unique_ptr<ClientProcess> process;
    std::map<std::uint64_t, Answer> waiting;  ///< By ticket: who waits for what it says.
  };

  nlohmann::json await(const std::function<void(const Answer&)>& work);
  void connect(const std::string& name, const std::string& identity, const Answer& answer);
  void send(const std::string& name, const std::string& request, const Answer& answer);
  void end(const std::string& name, bool byKill, const Answer& answer);
  void answered(const std::string& name, std::uint64_t ticket, const nlohmann::json& said);
  [[nodiscard]] nlohmann::json unknown(const std::string& name) const;

  RootDirectory root;
  std::string program;
  asio::io_context context;
  asio::executor_work_guard<asio::io_context::executor_type> staying;
  std::map<std::string, Client> clients;
  std::uint64_t lastTicket = 0;
  std::thread thread;
};

}  // namespace virtualmac
