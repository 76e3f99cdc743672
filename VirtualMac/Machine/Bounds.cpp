#include "VirtualMac/Machine/Bounds.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace virtualmac {

namespace {

using nlohmann::json;

/// Looks at the parser's events and keeps nothing but a depth, so that no input is too deep for it.
class Examiner final : public nlohmann::json_sax<json> {
 public:
  [[nodiscard]] const std::optional<std::string>& defect() const { return found; }

  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t&) override { return true; }
  bool binary(binary_t&) override { return true; }
  bool start_object(std::size_t) override { return open(); }
  bool start_array(std::size_t) override { return open(); }
  bool key(string_t&) override { return true; }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }
  bool parse_error(std::size_t position, const std::string& token,
                   const nlohmann::detail::exception& error) override {
    constexpr int numberOutOfRange = 406;
    const std::string place = " at byte " + std::to_string(position);
    found = error.id == numberOutOfRange ? "a number out of range" + place + ": " + token
                                         : "not JSON" + place;
    return false;
  }

 private:
  bool open() {
    if (++depth <= bounds::deepestJSON) return true;
    found = "nested more than " + std::to_string(bounds::deepestJSON) + " deep";
    return false;
  }
  bool close() {
    --depth;
    return true;
  }

  std::size_t depth = 0;
  std::optional<std::string> found;
};

}  // namespace

std::optional<std::string> jsonDefect(std::string_view text) {
  Examiner examiner;
  json::sax_parse(text, &examiner);
  // The parser takes a zero byte for the end of the text, whatever follows.
  const std::size_t zero = text.find('\0');
  if (!examiner.defect() && zero != std::string_view::npos)
    return "not JSON at byte " + std::to_string(zero + 1);
  return examiner.defect();
}

std::expected<std::string, std::string> readTextFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string text(bounds::longestText + 1, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file.is_open() || file.bad()) return std::unexpected(path + ": cannot be read");
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.size() <= bounds::longestText) return text;
  return std::unexpected(path + ": larger than " + std::to_string(bounds::longestText) + " bytes");
}

}  // namespace virtualmac
