#include "Tests/model/Values.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace model {

namespace {

std::string hex(std::uint8_t byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  return {digits[byte >> 4U], digits[byte & 15U]};
}

std::uint32_t wordAt(korvel::SMCBlockView block, std::size_t at) {
  std::uint32_t word = 0;
  for (std::size_t i = 4; i-- > 0;) word = word << 8U | block[at + i];
  return word;
}

std::string real(double value) {
  std::array<char, 64> digits{};
  return {digits.data(), std::to_chars(digits.begin(), digits.end(), value).ptr};
}

constexpr std::size_t sizeAt = 28, typeAt = 32, commandAt = 42, payloadAt = 48;

bool isNamed(std::size_t at) {
  return at < 4 || (at >= sizeAt && at < typeAt + 4) || at == commandAt || at >= payloadAt;
}

}  // namespace

void flatten(Values& values, const korvel::PropertyValue& value, const std::string& path) {
  std::string& here = values[path];
  const std::string below = path.empty() ? "" : path + '/';
  if (value.isAbsent()) {
    values.erase(path);
  } else if (const auto flag = value.boolean()) {
    here = *flag ? "b1" : "b0";
  } else if (const auto number = value.integer()) {
    here = 'i' + std::to_string(*number);
  } else if (const auto fraction = value.real()) {
    here = 'r' + real(*fraction);
  } else if (value.text() != nullptr) {
    here = 's' + *value.text();
  } else if (value.data() != nullptr) {
    here = "x";
    for (const std::uint8_t byte : *value.data()) here += hex(byte);
  } else if (const auto* array = value.array()) {
    here = "a";
    for (std::size_t i = 0; i < array->size(); ++i) {
      flatten(values, (*array)[i], below + std::to_string(i));
    }
  } else if (const auto* dictionary = value.dictionary()) {
    here = "d";
    for (const auto& [key, each] : *dictionary) flatten(values, each, below + key);
  } else {
    here = "?";
  }
}

std::string listText(const korvel::PropertyValue& value) {
  Values values;
  flatten(values, value);
  std::string text = "{";
  for (const auto& [path, each] : values) {
    if (!path.empty()) text += (text == "{" ? "" : ", ") + path + '=' + each;
  }
  return text + '}';
}

std::string blockText(korvel::ConnectionRef connection, korvel::SMCBlockView block) {
  std::string text = std::to_string(connection) + ' ' + std::to_string(block[commandAt]) + ' ';
  for (std::size_t i = 4; i-- > 0;) text += static_cast<char>(block[i]);
  text += ' ' + std::to_string(wordAt(block, sizeAt)) + ' ' +
          std::to_string(wordAt(block, typeAt)) + ' ';
  std::size_t end = block.size();
  while (end > payloadAt && block[end - 1] == 0) --end;
  for (std::size_t at = payloadAt; at < end; ++at) text += hex(block[at]);
  for (std::size_t at = 0; at < block.size(); ++at) {
    if (!isNamed(at) && block[at] != 0) {
      text += " +" + std::to_string(at) + ':' + std::to_string(block[at]);
    }
  }
  return text;
}

void takeBlock(Answer& answer, korvel::SMCBlockView block) {
  constexpr std::size_t resultAt = 40;
  answer.number = block[resultAt];
  answer.values["size"] = std::to_string(wordAt(block, sizeAt));
  answer.values["type"] = std::to_string(wordAt(block, typeAt));
  for (std::size_t at = payloadAt; at < block.size(); ++at) answer.text += hex(block[at]);
}

std::string errorText(const korvel::ErrorObject& error) {
  return error.localizedDescription() + " [" + error.domain + ' ' + std::to_string(error.code) +
         ']';
}

}  // namespace model
