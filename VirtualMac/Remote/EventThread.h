#pragma once

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>
#include <thread>

namespace virtualmac {

/// The thread of a process for what comes by itself: news of its machine, alarms, new clients.
/// Work on it must not take long, and must wait for none of these.
class EventThread {
 public:
  EventThread();
  ~EventThread() { stop(); }
  EventThread(const EventThread&) = delete;
  EventThread& operator=(const EventThread&) = delete;

  [[nodiscard]] asio::io_context& context() { return loop; }
  /// Nothing runs on it any more when this returns. Not on that thread.
  void stop();

 private:
  asio::io_context loop{1};
  asio::executor_work_guard<asio::io_context::executor_type> guard{loop.get_executor()};
  std::thread thread;
};

}  // namespace virtualmac
