#include "VirtualMac/Web/PageRules.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

namespace {

const PageRules rules{.port = 7613, .token = "0123456789abcdef"};

httplib::Request request(const std::string& method, const std::string& path,
                         const std::vector<std::pair<std::string, std::string>>& headers = {}) {
  httplib::Request made;
  made.method = method;
  made.path = path;
  for (const auto& header : headers) made.headers.insert(header);
  if (!made.has_header("Host")) made.set_header("Host", "127.0.0.1:7613");
  return made;
}

httplib::Request question(const std::string& method, const std::string& path,
                          const std::vector<std::pair<std::string, std::string>>& headers = {}) {
  httplib::Request made = request(method, path, headers);
  made.set_header("X-Virtual-Mac-Token", rules.token);
  return made;
}

/// 0: it may be answered.
int statusOf(const httplib::Request& asked) {
  const auto refused = refusalOf(asked, rules);
  return refused ? refused->status : 0;
}

}  // namespace

TEST(PageRulesTest, ThePageAndItsFilesNeedNoToken) {
  EXPECT_EQ(statusOf(request("GET", "/")), 0);
  EXPECT_EQ(statusOf(request("GET", "/viewer/app.js")), 0);
  EXPECT_EQ(statusOf(request("GET", "/", {{"Host", "localhost:7613"}})), 0);
}

TEST(PageRulesTest, QuestionsNeedTheToken) {
  EXPECT_EQ(statusOf(question("GET", "/api/status")), 0);
  EXPECT_EQ(statusOf(request("GET", "/api/status")), 401);
  for (const char* wrong : {"", "0123456789abcdeF", "0123456789abcde", "0123456789abcdef0"})
    EXPECT_EQ(statusOf(request("GET", "/api/status", {{"X-Virtual-Mac-Token", wrong}})), 401)
        << wrong;
}

// Else a proxy and the page could each read another one.
TEST(PageRulesTest, ATokenThatIsGivenTwiceIsNone) {
  httplib::Request asked = question("GET", "/api/status");
  asked.set_header("X-Virtual-Mac-Token", rules.token);
  EXPECT_EQ(statusOf(asked), 401);
}

// Nobody without the token learns which questions there are.
TEST(PageRulesTest, TheTokenIsAskedForFirst) {
  EXPECT_EQ(statusOf(request("GET", "/api/none")), 401);
  EXPECT_EQ(statusOf(request("DELETE", "/api/status")), 401);
  EXPECT_EQ(statusOf(question("GET", "/api/none")), 404);
}

TEST(PageRulesTest, AForeignHostIsRefused) {
  for (const char* host : {"", "127.0.0.1", "127.0.0.1:7614", "localhost", "[::1]:7613",
                           "evil.example:7613", "127.0.0.1:7613.evil.example", "localhost:76130"})
    EXPECT_EQ(statusOf(question("GET", "/", {{"Host", host}})), 403) << host;
  httplib::Request twice = question("GET", "/");
  twice.set_header("Host", "evil.example:7613");
  EXPECT_EQ(statusOf(twice), 403);
}

TEST(PageRulesTest, AForeignOriginIsRefused) {
  for (const char* origin :
       {"", "null", "http://evil.example", "https://127.0.0.1:7613", "http://127.0.0.1:7614",
        "http://127.0.0.1", "http://127.0.0.1:7613.evil.example", "file://"})
    EXPECT_EQ(statusOf(question("GET", "/api/status", {{"Origin", origin}})), 403) << origin;
  for (const char* origin : {"http://127.0.0.1:7613", "http://localhost:7613"})
    EXPECT_EQ(statusOf(question("GET", "/api/status", {{"Origin", origin}})), 0) << origin;
}

TEST(PageRulesTest, AMethodThatAPlaceDoesNotTakeIsRefusedWithThoseThatItTakes) {
  for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "HEAD", "GE", ""}) {
    const auto refused = refusalOf(question(method, "/api/status"), rules);
    ASSERT_TRUE(refused) << method;
    EXPECT_EQ(refused->status, 405) << method;
    EXPECT_EQ(refused->allowed, "GET");
  }
  EXPECT_EQ(statusOf(question("GET", "/api/clients")), 0);
  EXPECT_EQ(statusOf(question("PUT", "/api/clients")), 405);
}

TEST(PageRulesTest, ABodySaysHowLongItIsAndIsNotTooLong) {
  const auto with = [](const std::string& name, const std::string& value) {
    return statusOf(question("POST", "/api/machine", {{name, value}}));
  };
  EXPECT_EQ(with("Content-Length", "0"), 0);
  EXPECT_EQ(with("Content-Length", std::to_string(bounds::longestRequest)), 0);
  EXPECT_EQ(with("Content-Length", std::to_string(bounds::longestRequest + 1)), 413);
  EXPECT_EQ(with("Content-Length", "99999999999999999999999"), 413);
  for (const char* wrong : {"", "-1", "0x10", "1 2", "1e3"})
    EXPECT_EQ(with("Content-Length", wrong), 400) << wrong;
  EXPECT_EQ(statusOf(question("POST", "/api/machine")), 400);
  EXPECT_EQ(with("Transfer-Encoding", "chunked"), 400);
  EXPECT_EQ(statusOf(question("POST", "/api/machine",
                              {{"Content-Length", "20"}, {"Content-Encoding", "gzip"}})),
            400);
  EXPECT_EQ(statusOf(question("GET", "/api/status",
                              {{"Content-Length", std::to_string(bounds::longestRequest + 1)}})),
            413);
}

TEST(PageRulesTest, SecretsAreComparedWhole) {
  EXPECT_TRUE(isSameSecret("abc", "abc"));
  for (const char* other : {"", "ab", "abcd", "abd", "xbc", "ABC"})
    EXPECT_FALSE(isSameSecret(other, "abc")) << other;
}

}  // namespace virtualmac
