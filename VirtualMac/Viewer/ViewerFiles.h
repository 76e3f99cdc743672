#pragma once

#include <span>
#include <string_view>

namespace virtualmac {

/// A file of the viewer. Its name is its path in this folder: "app.js", "lib/uPlot.min.css".
struct ViewerFile {
  std::string_view name;
  std::string_view content;
};

/// Every file of the viewer. They are compiled in, so that no program needs a path to find one.
std::span<const ViewerFile> viewerFiles();

}  // namespace virtualmac
