#include "VirtualMac/Viewer/ViewerPage.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "VirtualMac/Viewer/ViewerFiles.h"

namespace virtualmac {

namespace {

std::vector<std::string> matchesIn(const std::string& text, const char* pattern) {
  const std::regex expression(pattern);
  std::vector<std::string> found;
  for (std::sregex_iterator each(text.begin(), text.end(), expression), end; each != end; ++each)
    found.push_back((*each)[1]);
  return found;
}

/// The page without the insides of its scripts and styles.
std::string markupOf(const std::string& page) {
  std::string markup;
  std::size_t at = 0;
  for (const char* element : {"script", "style"}) {
    const std::string& text = markup.empty() ? page : markup;
    std::string rest;
    const std::string open = std::string("<") + element;
    const std::string close = std::string("</") + element + ">";
    at = 0;
    for (std::size_t next = text.find(open); next != std::string::npos;
         next = text.find(open, at)) {
      const std::size_t inside = text.find('>', next) + 1;
      rest += text.substr(at, inside - at);
      at = text.find(close, inside);
    }
    markup = rest + text.substr(at);
  }
  return markup;
}

nlohmann::json modulesOf(const std::string& page) {
  const std::size_t map = page.find("<script type=\"importmap\"");
  if (map == std::string::npos) return {};
  const std::size_t begin = page.find('>', map) + 1;
  const std::string text = page.substr(begin, page.find("</script>", begin) - begin);
  return nlohmann::json::parse(text).at("imports");
}

std::string decoded(const std::string& base64) {
  static const std::string digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string bytes;
  unsigned bits = 0;
  int count = 0;
  for (const char digit : base64.substr(0, base64.find('='))) {
    bits = bits << 6U | static_cast<unsigned>(digits.find(digit));
    count += 6;
    if (count < 8) continue;
    count -= 8;
    bytes += static_cast<char>(bits >> static_cast<unsigned>(count) & 0xffU);
  }
  return bytes;
}

}  // namespace

TEST(ViewerPageTest, EveryPlaceIsMarkedOnce) {
  const std::string page(viewerFile("index.html"));
  for (const char* mark : {"<!-- styles -->", "<!-- scripts -->", "<!-- trace -->"}) {
    EXPECT_NE(page.find(mark), std::string::npos) << mark;
    EXPECT_EQ(page.find(mark), page.rfind(mark)) << mark;
  }
}

TEST(ViewerPageTest, TheLivePageNamesTheStylesAndLibrariesAndNothingElse) {
  std::set<std::string> files;
  for (const ViewerFile& file : viewerFiles()) {
    if (file.name.ends_with(".css") || file.name.starts_with("lib/")) files.emplace(file.name);
  }
  const auto named = matchesIn(livePage("abc"), "(?:src|href)=\"/viewer/([^\"]+)\"");
  EXPECT_EQ(std::set<std::string>(named.begin(), named.end()), files);
  EXPECT_GE(files.size(), 2U);
}

TEST(ViewerPageTest, BothPagesHoldTheSameModules) {
  EXPECT_EQ(modulesOf(livePage("abc")), modulesOf(recordedPage("{}")));
}

TEST(ViewerPageTest, ThePageOfARunLoadsNothing) {
  const std::string markup = markupOf(recordedPage("{}"));
  for (const std::string& address : matchesIn(markup, "(?:src|href)=\"([^\"]*)\""))
    EXPECT_TRUE(address.starts_with("data:") || address.starts_with("#")) << address;
  EXPECT_NE(markup.find("content=\"default-src 'none'; script-src 'nonce-viewer';"),
            std::string::npos);
}

TEST(ViewerPageTest, ThePageOfARunHoldsEveryFile) {
  const std::string page = recordedPage("{}");
  const nlohmann::json modules = modulesOf(page);
  const std::string form = "data:text/javascript;charset=utf-8;base64,";
  std::size_t count = 0;
  for (const ViewerFile& file : viewerFiles()) {
    if (file.name == "index.html") continue;
    if (file.name.starts_with("lib/") || file.name.ends_with(".css")) {
      EXPECT_NE(page.find(file.content), std::string::npos) << file.name;
      continue;
    }
    const std::string name = std::string(file.name.substr(0, file.name.rfind('.')));
    const std::string address = modules.value("viewer/" + name, std::string());
    ASSERT_TRUE(address.starts_with(form)) << name;
    EXPECT_EQ(decoded(address.substr(form.size())), file.content) << name;
    ++count;
  }
  EXPECT_EQ(modules.size(), count);
  EXPECT_GE(count, 1U);
}

// Else a library's text would end its element early.
TEST(ViewerPageTest, NoFileThatStandsInAPageEndsItsElement) {
  for (const ViewerFile& file : viewerFiles()) {
    const std::string content(file.content);
    EXPECT_FALSE(content.empty()) << file.name;
    EXPECT_EQ(content.find("</script"), std::string::npos) << file.name;
    EXPECT_EQ(content.find("</style"), std::string::npos) << file.name;
  }
}

TEST(ViewerPageTest, OnlyThePagesOwnScriptsMayRun) {
  const std::string policy = livePolicy("abc");
  EXPECT_NE(policy.find("default-src 'none'"), std::string::npos);
  EXPECT_NE(policy.find("script-src 'self' 'nonce-abc';"), std::string::npos);
  EXPECT_NE(policy.find("frame-ancestors 'none'"), std::string::npos);
  EXPECT_EQ(policy.find("unsafe"), std::string::npos);
  for (const std::string& attributes : matchesIn(livePage("abc"), "<script([^>]*)>")) {
    EXPECT_TRUE(attributes.contains("nonce=\"abc\"") || attributes.contains("src=\"/viewer/"))
        << attributes;
  }
}

}  // namespace virtualmac
