#include <utility>

#include "Tests/tin/ServicesMachine.h"

namespace tinmac::services {

/// The sink's functions, which get the TextSink as their context.
struct Saying {
  template <class Value>
  static void number(void* context, Value value) {
    static_cast<TextSink*>(context)->say(std::to_string(value));
  }
  static void text(void* context, const char* bytes, std::size_t length) {
    static_cast<TextSink*>(context)->say("'" + std::string(bytes, length) + "'");
  }
  static void data(void* context, const std::uint8_t* bytes, std::size_t length) {
    std::string words = "data";
    for (std::size_t index = 0; index < length; ++index) {
      words += " " + std::to_string(bytes[index]);
    }
    static_cast<TextSink*>(context)->say(words);
  }
  static void key(void* context, const char* bytes, std::size_t length) {
    static_cast<TextSink*>(context)->say(std::string(bytes, length) + ":");
  }
  static void beginError(void* context, const char* domain, std::size_t length, std::int64_t code) {
    static_cast<TextSink*>(context)->say("error " + std::string(domain, length) + " " +
                                         std::to_string(code) + " <");
  }
};

TextSink::TextSink() {
  telling.context = this;
  telling.absent = [](void* context) { static_cast<TextSink*>(context)->say("absent"); };
  telling.boolean = [](void* context, std::uint32_t value) {
    static_cast<TextSink*>(context)->say(value != 0 ? "true" : "false");
  };
  telling.integer = Saying::number<std::int64_t>;
  telling.real = Saying::number<double>;
  telling.text = Saying::text;
  telling.data = Saying::data;
  telling.date = Saying::number<double>;
  telling.beginArray = [](void* context) { static_cast<TextSink*>(context)->say("["); };
  telling.beginDictionary = [](void* context) { static_cast<TextSink*>(context)->say("{"); };
  telling.key = Saying::key;
  telling.beginError = Saying::beginError;
  telling.end = [](void* context) { static_cast<TextSink*>(context)->say("end"); };
}

std::string TextSink::take() { return std::exchange(said, {}); }

void TextSink::say(const std::string& text) { said += said.empty() ? text : " " + text; }

}  // namespace tinmac::services
