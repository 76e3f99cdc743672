#include "VirtualMac/Viewer/ViewerPage.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <tuple>
#include <vector>

#include "VirtualMac/Viewer/ViewerFiles.h"

namespace virtualmac {

namespace {

/// In a recorded page, whose scripts are known, this keeps out those that its data might hold.
constexpr std::string_view recordedNonce = "viewer";

/// Libraries come first, and what all other styles build upon.
std::vector<ViewerFile> filesThatEnd(std::string_view ending) {
  std::vector<ViewerFile> files;
  for (const ViewerFile& file : viewerFiles()) {
    if (file.name.ends_with(ending)) files.push_back(file);
  }
  const auto rank = [](const ViewerFile& file) {
    return std::tuple(!file.name.starts_with("lib/"), file.name != "viewer.css", file.name);
  };
  std::ranges::sort(files, std::less(), rank);
  return files;
}

bool isModule(const ViewerFile& file) { return !file.name.starts_with("lib/"); }

std::string_view moduleName(const ViewerFile& file) {
  return file.name.substr(0, file.name.rfind('.'));
}

std::string base64(std::string_view bytes) {
  static constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  constexpr std::size_t group = 3;
  std::string text;
  for (std::size_t at = 0; at < bytes.size(); at += group) {
    std::uint32_t bits = 0;
    for (std::size_t index = at; index < at + group; ++index) {
      const char byte = index < bytes.size() ? bytes[index] : '\0';
      bits = bits << 8U | static_cast<unsigned char>(byte);
    }
    const std::size_t told = std::min(bytes.size() - at, group) + 1;
    for (std::size_t digit = 0; digit <= group; ++digit)
      text += digit < told ? digits[bits >> (18U - 6U * digit) & 63U] : '=';
  }
  return text;
}

/// Modules call each other `viewer/NAME`; this gives each of them to the browser, which would need
/// longer to ask for them one by one. They may run because the module that begins has the nonce.
std::string importMap(std::string_view nonce) {
  std::string text =
      "<script type=\"importmap\" nonce=\"" + std::string(nonce) + "\">\n{\"imports\": {";
  std::string_view joint = "\n";
  for (const ViewerFile& file : filesThatEnd(".js")) {
    if (!isModule(file)) continue;
    text.append(joint).append("\"viewer/").append(moduleName(file)).append("\": \"");
    text.append("data:text/javascript;charset=utf-8;base64,").append(base64(file.content)) += '"';
    joint = ",\n";
  }
  return text + "\n}}\n</script>\n";
}

std::string startOf(std::string_view nonce) {
  return "<script type=\"module\" nonce=\"" + std::string(nonce) +
         "\">import \"viewer/app\";</script>\n";
}

/// Without it a browser asks for one.
constexpr std::string_view icon = "<link rel=\"icon\" href=\"data:,\">\n";

/// index.html with its marked places filled.
std::string filled(const std::string& styles, const std::string& trace,
                   const std::string& scripts) {
  std::string page(viewerFile("index.html"));
  const std::pair<std::string_view, const std::string*> places[] = {
      {"<!-- styles -->", &styles}, {"<!-- trace -->", &trace}, {"<!-- scripts -->", &scripts}};
  for (const auto& [mark, text] : places) {
    const std::size_t at = page.find(mark);
    if (at != std::string::npos) page.replace(at, mark.size(), *text);
  }
  return page;
}

}  // namespace

std::string_view viewerFile(std::string_view name) {
  const auto found = std::ranges::find(viewerFiles(), name, &ViewerFile::name);
  return found == viewerFiles().end() ? std::string_view() : found->content;
}

std::string livePage(const std::string& nonce) {
  std::string styles(icon);
  for (const ViewerFile& file : filesThatEnd(".css"))
    styles.append("<link rel=\"stylesheet\" href=\"/viewer/").append(file.name).append("\">\n");
  std::string scripts;
  for (const ViewerFile& file : filesThatEnd(".js")) {
    if (isModule(file)) continue;
    scripts.append("<script src=\"/viewer/").append(file.name).append("\"></script>\n");
  }
  return filled(styles, "", scripts + importMap(nonce) + startOf(nonce));
}

std::string livePolicy(const std::string& nonce) {
  return "default-src 'none'; script-src 'self' 'nonce-" + nonce +
         "'; style-src 'self'; img-src data:; connect-src 'self'; base-uri 'none'; "
         "form-action 'none'; frame-ancestors 'none'";
}

std::string recordedPage(const std::string& trace) {
  const std::string nonce(recordedNonce);
  std::string styles =
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
      "script-src 'nonce-" +
      nonce +
      "'; style-src 'unsafe-inline'; img-src data:; base-uri 'none'; "
      "form-action 'none'\">\n" +
      std::string(icon);
  for (const ViewerFile& file : filesThatEnd(".css"))
    styles.append("<style>\n").append(file.content).append("</style>\n");
  std::string scripts;
  for (const ViewerFile& file : filesThatEnd(".js")) {
    if (isModule(file)) continue;
    scripts.append("<script nonce=\"" + nonce + "\">").append(file.content).append("</script>\n");
  }
  const std::string data =
      "<script type=\"application/json\" id=\"trace\">" + trace + "</script>\n";
  return filled(styles, data, scripts + importMap(nonce) + startOf(nonce));
}

}  // namespace virtualmac
