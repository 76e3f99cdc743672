#include <charconv>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Probe.h"

namespace {

std::string digits(double value, std::chars_format format) {
  char buffer[400];
  const auto end = std::to_chars(buffer, buffer + sizeof buffer, value, format);
  return {buffer, end.ptr};
}

}  // namespace

PROBE(probeCxxStrings) {
  std::string text = "short";
  text.append(40, 'x').insert(5, " and ").push_back('!');
  EXPECT(text == "short and " + std::string(40, 'x') + "!");
  text.resize(3, 'z');
  EXPECT(text == "sho");
  std::string copy = "something that is longer than the short form";
  copy = text;
  EXPECT(copy == "sho");
  EXPECT(std::to_string(-1) == "-1" && std::to_string(0UL) == "0");
  EXPECT(std::to_string(std::numeric_limits<long long>::min()) == "-9223372036854775808");
  EXPECT(std::to_string(std::numeric_limits<unsigned long>::max()) == "18446744073709551615");
  bool refused = false;
  try {
    text.insert(10, "x");
  } catch (const std::out_of_range& caught) {
    refused = std::string(caught.what()) == "basic_string";
  }
  EXPECT(refused);
}

PROBE(probeCxxNumbers) {
  using enum std::chars_format;
  EXPECT(digits(0, fixed) == "0" && digits(-0.0, fixed) == "-0");
  EXPECT(digits(0.1, fixed) == "0.1" && digits(-63114076800, fixed) == "-63114076800");
  EXPECT(digits(789012345.678901, fixed) == "789012345.678901");
  EXPECT(digits(1.5e-5, fixed) == "0.000015" && digits(100, fixed) == "100");
  EXPECT(digits(1e23, fixed) == "99999999999999991611392");
  EXPECT(digits(5e-324, scientific) == "5e-324" && digits(1e16, scientific) == "1e+16");
  EXPECT(digits(1.7976931348623157e308, scientific) == "1.7976931348623157e+308");
  EXPECT(digits(9007199254740992, scientific) == "9.007199254740992e+15");
  EXPECT(digits(123456, general) == "123456" && digits(1234567, general) == "1.234567e+06");
  EXPECT(digits(0.0001, general) == "0.0001" && digits(0.00001, general) == "1e-05");
  EXPECT(digits(std::numeric_limits<double>::infinity(), fixed) == "inf");
  char small[2];
  EXPECT(std::to_chars(small, small + 2, 0.25, fixed).ec == std::errc::value_too_large);
}

PROBE(probeCxxShared) {
  auto owner = std::make_shared<std::string>("shared");
  std::weak_ptr<std::string> weak = owner;
  EXPECT(weak.use_count() == 1);
  {
    const std::shared_ptr<std::string> second = weak.lock();
    EXPECT(second == owner && weak.use_count() == 2);
  }
  owner.reset();
  EXPECT(weak.lock() == nullptr && weak.expired());
  bool deleted = false;
  std::shared_ptr<int> custom(new int(1), [&](int* value) {
    delete value;
    deleted = true;
  });
  custom.reset();
  EXPECT(deleted);
}

PROBE(probeCxxErrors) {
  EXPECT(std::generic_category().message(ENOENT) == "No such file or directory");
  EXPECT(std::generic_category().message(EAGAIN) == "Resource temporarily unavailable");
  EXPECT(std::generic_category().message(ENOSPC) == "No space left on device");
  EXPECT(std::generic_category().message(99999) == "unspecified generic_category error");
  EXPECT(std::string(std::generic_category().name()) == "generic");
  EXPECT(&std::generic_category() == &std::generic_category());
  const std::error_code code(ENOENT, std::generic_category());
  EXPECT(code == std::errc::no_such_file_or_directory);
  EXPECT(code != std::errc::permission_denied);
}
