#include "VirtualMac/Web/PageRules.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include "VirtualMac/Machine/Bounds.h"

namespace virtualmac {

namespace {

struct Place {
  std::string_view path;
  std::string_view methods;
};
constexpr std::array places{
    Place{"/", "GET"},
    Place{"/api/journal", "GET"},
    Place{"/api/status", "GET"},
    Place{"/api/vocabulary", "GET"},
    Place{"/api/machine", "POST"},
    Place{"/api/clients", "GET, POST"},
};
constexpr Place viewerPlace{"/viewer/", "GET"};

const Place* placeOf(std::string_view path) {
  if (path.starts_with(viewerPlace.path)) return &viewerPlace;
  const auto* const found = std::ranges::find(places, path, &Place::path);
  return found == places.end() ? nullptr : found;
}

/// Empty: the header is not there, or more than once.
std::string onlyHeader(const httplib::Request& request, const std::string& name) {
  return request.get_header_value_count(name) == 1 ? request.get_header_value(name) : "";
}

std::optional<PageRefusal> refusalOfSender(const httplib::Request& request, int port) {
  const std::string number = ":" + std::to_string(port);
  const std::string host = onlyHeader(request, "Host");
  const auto isHere = [&](std::string_view name) {
    return name == "127.0.0.1" + number || name == "localhost" + number;
  };
  if (!isHere(host))
    return PageRefusal{403, "the host \"" + host + "\" is none of this page: 127.0.0.1" + number +
                                ", localhost" + number};
  if (!request.has_header("Origin")) return std::nullopt;
  const std::string origin = onlyHeader(request, "Origin");
  constexpr std::string_view scheme = "http://";
  if (origin.starts_with(scheme) && isHere(std::string_view(origin).substr(scheme.size())))
    return std::nullopt;
  return PageRefusal{403, "the origin \"" + origin + "\" is another page"};
}

/// A body must say how long it is, so that no more is read than is allowed.
std::optional<PageRefusal> refusalOfBody(const httplib::Request& request) {
  if (request.has_header("Transfer-Encoding") || request.has_header("Content-Encoding"))
    return PageRefusal{400, "a body comes as it is, neither encoded nor in chunks"};
  const std::string length = onlyHeader(request, "Content-Length");
  if (length.empty() && request.method != "POST") return std::nullopt;
  if (length.empty() || length.find_first_not_of("0123456789") != std::string::npos)
    return PageRefusal{400, "Content-Length is needed once, as a number"};
  constexpr std::size_t mostDigits = 9;
  if (length.size() > mostDigits || std::stoul(length) > bounds::longestRequest)
    return PageRefusal{413,
                       "a body has more than " + std::to_string(bounds::longestRequest) + " bytes"};
  return std::nullopt;
}

}  // namespace

bool isSameSecret(const std::string& given, const std::string& secret) {
  if (given.size() != secret.size()) return false;
  unsigned different = 0;
  for (std::size_t index = 0; index < secret.size(); ++index)
    different |= static_cast<unsigned char>(given[index] ^ secret[index]);
  return different == 0;
}

std::optional<PageRefusal> refusalOf(const httplib::Request& request, const PageRules& rules) {
  if (auto refused = refusalOfSender(request, rules.port)) return refused;
  if (request.path.starts_with("/api/") &&
      !isSameSecret(onlyHeader(request, "X-Virtual-Mac-Token"), rules.token))
    return PageRefusal{401,
                       "the token is missing or wrong; open the link that virtual-mac up "
                       "--web printed, or that virtual-mac status names"};
  const Place* place = placeOf(request.path);
  if (place == nullptr) return PageRefusal{404, "there is no " + request.path};
  const std::string methods = std::string(place->methods) + ",";
  if (!(" " + methods).contains(" " + request.method + ","))
    return PageRefusal{405,
                       request.method + " is not for " + request.path +
                           " (allowed: " + std::string(place->methods) + ")",
                       std::string(place->methods)};
  return refusalOfBody(request);
}

}  // namespace virtualmac
