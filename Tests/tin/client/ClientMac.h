#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Tests/process/Mac.h"

namespace processtests {

/// A virtual Mac whose helper is the Mac's own program, for clients that are one as well. When the
/// test is over, the books of every one of these processes are read: none may have broken a rule or
/// left an object behind.
class ClientMac : public testing::Test {
 public:
  ~ClientMac() override;
  ClientMac(const ClientMac&) = delete;
  ClientMac& operator=(const ClientMac&) = delete;

 protected:
  ClientMac();

  /// Waits until the helper is ready.
  void SetUp() override;
  void TearDown() override;

  /// The machine's kind; the default is that of other tests. Called in a fixture's constructor.
  void chooseProfile(const std::string& name) { options.profile = name; }
  [[nodiscard]] Mac& mac() { return *machine; }
  /// Runs the sample client to its end. It is killed after `timeoutSeconds`.
  [[nodiscard]] Result client(const std::vector<std::string>& words,
                              const std::string& identity = "app",
                              double timeoutSeconds = 100) const;
  /// The same in the background.
  [[nodiscard]] std::future<Result> clientBeside(const std::vector<std::string>& words);
  /// The client says nothing but what it was asked for, and succeeds.
  void succeed(const std::vector<std::string>& words) const;
  /// The client fails, and tells this and nothing else.
  void fail(const std::vector<std::string>& words, const std::string& told,
            const std::string& identity = "app") const;
  /// The helper's end cuts so many waits short that this many objects of the class stay, which is
  /// more than usual: these books do not go to the tester.
  void helperMayLeave(const std::string& className, std::int64_t count) {
    allowed[className] = count;
    shelf.clear();
  }
  /// The process of the client that connected last.
  [[nodiscard]] pid_t lastClient() const;

 private:
  void readBooks() const;
  [[nodiscard]] bool wasHelper(pid_t process) const;

  MacOptions options{.up = false};
  std::string shelf;  ///< Where the tester wants all books; empty: nowhere.
  std::string books;
  /// Objects that a helper may leave, since its end unwinds nothing.
  std::map<std::string, std::int64_t> allowed{
      {"dispatch_source", 2}, {"dispatch_group", 1}, {"IOPMAssertion", 2}};
  std::vector<std::string> helperStarts;
  std::unique_ptr<Mac> machine;
};

}  // namespace processtests
