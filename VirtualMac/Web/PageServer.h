#pragma once

#include <httplib.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "VirtualMac/Server/RootDirectory.h"
#include "VirtualMac/Web/Descriptor.h"
#include "VirtualMac/Web/JournalFeed.h"
#include "VirtualMac/Web/PageClients.h"
#include "VirtualMac/Web/PageRules.h"

namespace virtualmac {

/// A machine's page: its files, its journal as a stream, and the doors to the machine and to
/// applications. Each connection has a thread, and each of its waits an end (Bounds.h). All that
/// the page does to the machine goes through the machine's door, like the commands of a person, so
/// the machine waits for nothing here.
class PageServer final : public httplib::Server {
 public:
  PageServer(PageRules pageRules, RootDirectory home, JournalFeed& followed,
             const std::string& appProgram);

  /// Serves whoever connects to the listening socket, until the machine is gone; then lets the
  /// streams come to their end, but waits no longer than a moment.
  void serve(Descriptor listening);

 private:
  using Request = httplib::Request;
  using Response = httplib::Response;

  void accept();
  void converse(Descriptor accepted);
  void count(std::size_t& counter, bool more);
  HandlerResponse refuse(const Request& request, Response& response) const;
  void servePage(Response& response) const;
  void serveFile(const std::string& name, Response& response) const;
  void serveJournal(const Request& request, Response& response);
  bool writeJournal(std::uint64_t& from, httplib::DataSink& sink);
  void serveStatus(Response& response) const;
  void serveVocabulary(Response& response) const;
  void command(const Request& request, Response& response) const;
  void serveClients(const Request& request, Response& response);

  PageRules rules;
  RootDirectory root;
  JournalFeed& feed;
  PageClients clients;
  std::atomic<std::size_t> streams = 0;
  std::mutex lock;
  std::condition_variable idle;
  std::size_t connections = 0;
  std::size_t busy = 0;  ///< Connections with a request that is being answered.
};

}  // namespace virtualmac
