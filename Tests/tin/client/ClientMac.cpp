#include "Tests/tin/client/ClientMac.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace processtests {

using nlohmann::json;

namespace {

constexpr const char* booksVariable = "TIN_MAC_BOOKS";

std::string variable(const char* name) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody else changes the environment
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

void setVariable(const char* name, const std::string& value) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody reads the environment meanwhile
  ::setenv(name, value.c_str(), 1);
}

std::string freshFolder() {
  std::string path = "/tmp/korvel-books-XXXXXX";
  if (::mkdtemp(path.data()) == nullptr) throw std::runtime_error("no folder for the books");
  return path;
}

}  // namespace

ClientMac::ClientMac() : shelf(variable(booksVariable)), books(freshFolder()) {}

ClientMac::~ClientMac() {
  std::error_code ignored;
  std::filesystem::remove_all(books, ignored);
}

void ClientMac::SetUp() {
  ASSERT_TRUE(std::filesystem::exists(TIN_CLIENT))
      << "the Mac's own programs are not built; script/tin-mac builds them and runs this test";
  setVariable("KORVEL_TEST_TIN", "1");
  setVariable(booksVariable, books);
  machine = std::make_unique<Mac>(options);
  machine->bringUp();
  ASSERT_EQ(mac().journalCount("HelperImpl boot", 1), 1U);
}

void ClientMac::TearDown() {
  if (machine == nullptr) return;
  for (const JournalLine& line : machine->journal())
    if (line.kind == "proc" && line.text.ends_with(" started")) helperStarts.push_back(line.text);
  machine.reset();
  readBooks();
}

Result ClientMac::client(const std::vector<std::string>& words, const std::string& identity,
                         double timeoutSeconds) const {
  std::vector<std::string> all{"--root", machine->root(), "launch", "--as", identity,
                               "--",     TIN_CLIENT};
  all.insert(all.end(), words.begin(), words.end());
  return run("virtual-mac", all, timeoutSeconds);
}

std::future<Result> ClientMac::clientBeside(const std::vector<std::string>& words) {
  return std::async(std::launch::async, [this, words] { return client(words); });
}

void ClientMac::succeed(const std::vector<std::string>& words) const {
  const Result result = client(words);
  EXPECT_EQ(result.status, 0) << words.front();
  EXPECT_EQ(result.out, "") << words.front();
  EXPECT_EQ(result.err, "") << words.front();
}

void ClientMac::fail(const std::vector<std::string>& words, const std::string& told,
                     const std::string& identity) const {
  const Result result = client(words, identity);
  EXPECT_EQ(result.status, 1) << words.front();
  EXPECT_EQ(result.out, "") << words.front();
  EXPECT_EQ(result.err, told + "\n") << words.front();
}

pid_t ClientMac::lastClient() const {
  pid_t last = 0;
  for (const JournalLine& line : machine->journal()) {
    if (line.kind == "app" && line.text.ends_with(" connected"))
      last = std::stoi(line.text.substr(std::string("client ").size()));
  }
  return last;
}

bool ClientMac::wasHelper(pid_t process) const {
  return std::ranges::find(helperStarts, "helper " + std::to_string(process) + " started") !=
         helperStarts.end();
}

void ClientMac::readBooks() const {
  for (const auto& file : std::filesystem::directory_iterator(books)) {
    const json book = json::parse(readFile(file.path().string()));
    if (!shelf.empty()) {
      std::filesystem::copy(file, shelf, std::filesystem::copy_options::overwrite_existing);
    }
    SCOPED_TRACE(book.dump());
    const bool helper = wasHelper(book.at("pid").get<pid_t>());
    EXPECT_FALSE(book.contains("trap"));
    EXPECT_EQ(book.at("reason"), "exit");
    EXPECT_EQ(book.at("notes"), json::array());
    for (const auto& [name, count] : book.at("aboveMark").items()) {
      const auto known = allowed.find(name);
      const bool mayStay = helper && known != allowed.end();
      EXPECT_LE(count.get<std::int64_t>(), mayStay ? known->second : 0) << name;
    }
  }
}

}  // namespace processtests
