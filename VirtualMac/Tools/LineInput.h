#pragma once

#include <optional>
#include <string>

namespace virtualmac {

/// Reads lines from a descriptor that is waited for beside another one.
class LineInput {
 public:
  explicit LineInput(int descriptor) : handle(descriptor) {}
  /// The next line that has come whole, without its end; at the input's end, what is left.
  std::optional<std::string> take();
  /// Waits until there is more to read here, or at `other` when it is none of -1, or so long; below
  /// 0: for ever. Reads what there is.
  void wait(int other, double seconds);
  /// True: nothing will come any more.
  [[nodiscard]] bool isOver() const { return over && text.empty(); }

 private:
  int handle;
  std::string text;
  bool over = false;
};

}  // namespace virtualmac
