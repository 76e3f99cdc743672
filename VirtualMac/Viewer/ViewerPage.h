#pragma once

#include <string>
#include <string_view>

namespace virtualmac {

/// The content of a viewer's file; empty: there is no such file.
std::string_view viewerFile(std::string_view name);

/// The page of a machine that runs, which loads styles and libraries from `/viewer/NAME`. The
/// modules stand in it; what begins them has this nonce, and nothing else in the page may run.
std::string livePage(const std::string& nonce);
/// The Content-Security-Policy of that page: it names all that the page may load and run.
std::string livePolicy(const std::string& nonce);

/// The page with everything in it, and `trace`, which is JSON without any `<`. It loads nothing.
std::string recordedPage(const std::string& trace);

}  // namespace virtualmac
