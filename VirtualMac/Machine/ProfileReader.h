#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace virtualmac {

/// Reads one JSON object field by field; a field that is not there leaves its target as it was. The
/// first complaint is kept, in one line that names the origin, the path of the key and what it may
/// hold; afterwards every read does nothing.
class ProfileReader {
 public:
  using Json = nlohmann::ordered_json;
  /// Shared by the readers of one file.
  struct Complaint {
    std::string origin;
    std::optional<std::string> text;
  };

  ProfileReader(const Json& value, std::string place, Complaint& first);

  void read(std::string_view key, bool& target);
  void read(std::string_view key, std::string& target);
  void read(std::string_view key, double& target, double low, double high);
  template <std::integral Number>
  void read(std::string_view key, Number& target, std::int64_t low, std::int64_t high) {
    if (const auto value = whole(key, low, high)) target = static_cast<Number>(*value);
  }
  template <class Choice>
  void readChoice(std::string_view key, Choice& target,
                  std::initializer_list<std::pair<std::string_view, Choice>> choices) {
    std::vector<std::string_view> names;
    for (const auto& choice : choices) names.push_back(choice.first);
    if (const auto index = choiceIndex(key, names)) target = (choices.begin() + *index)->second;
  }

  /// Visits a nested object, if it is there.
  void readObject(std::string_view key, const std::function<void(ProfileReader&)>& visit);
  /// Visits each object of a list, if it is there.
  void readList(std::string_view key, const std::function<void(ProfileReader&)>& visit);
  /// Visits each object of this object, whatever its name.
  void readNamed(const std::function<void(const std::string&, ProfileReader&)>& visit);
  /// The value itself; null: it is missing, or there is a complaint already.
  const Json* field(std::string_view key);
  /// The same, null also after complaining of a value that `fits` refuses.
  template <class Fits>
  const Json* field(std::string_view key, const std::string& expected, const Fits& fits) {
    const Json* value = field(key);
    if (value == nullptr || fits(*value)) return value;
    complain(keyPath(key), expected);
    return nullptr;
  }

  void complain(const std::string& where, const std::string& expected);
  [[nodiscard]] std::string keyPath(std::string_view key) const;
  /// Complains of the first key that no read has asked for.
  void finish();

 private:
  [[nodiscard]] bool failed() const { return complaint.text.has_value(); }
  std::optional<std::int64_t> whole(std::string_view key, std::int64_t low, std::int64_t high);
  std::optional<std::size_t> choiceIndex(std::string_view key,
                                         std::span<const std::string_view> names);

  const Json& object;
  std::string path;
  Complaint& complaint;
  std::vector<std::string> known;
};

}  // namespace virtualmac
