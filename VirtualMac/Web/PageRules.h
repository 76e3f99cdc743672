#pragma once

#include <httplib.h>

#include <optional>
#include <string>

namespace virtualmac {

/// The facts that a request is held against.
struct PageRules {
  int port = 0;
  std::string token;
};

/// A request that is not answered, with its HTTP status and the reason for a person.
struct PageRefusal {
  int status = 0;
  std::string reason;
  std::string allowed = {};  ///< With 405: the methods.
};

/// Judges a request by its line and headers, before anything else of it is read. None: it may be
/// answered. Its host must be this computer and the page's port, so that no foreign name can be
/// made to stand for it; a browser that sends it for a page must name this page as the origin; and
/// whatever is asked below `/api/` needs the token.
std::optional<PageRefusal> refusalOf(const httplib::Request& request, const PageRules& rules);

/// Takes the same time for every wrong text of one length, so that nobody can guess a token
/// character by character.
bool isSameSecret(const std::string& given, const std::string& secret);

}  // namespace virtualmac
