#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "HelperRecords.h"

namespace korvel {
namespace {

HelperState anyState(const rc::Gen<double>& seconds) {
  const auto anyText = rc::gen::container<std::vector<char32_t>>(
      rc::gen::oneOf(rc::gen::inRange<char32_t>(0, 0x80), rc::gen::inRange<char32_t>(0x80, 0xD800),
                     rc::gen::inRange<char32_t>(0xE000, 0x110000)));
  const auto utf8 = [](const std::vector<char32_t>& points) {
    std::string text;
    for (const char32_t point : points) {
      const auto tail = [&](unsigned shift) {
        text += static_cast<char>(0x80U | ((point >> shift) & 0x3FU));
      };
      if (point < 0x80) {
        text += static_cast<char>(point);
      } else if (point < 0x800) {
        text += static_cast<char>(0xC0U | (point >> 6U));
        tail(0);
      } else if (point < 0x10000) {
        text += static_cast<char>(0xE0U | (point >> 12U));
        tail(6);
        tail(0);
      } else {
        text += static_cast<char>(0xF0U | (point >> 18U));
        tail(12);
        tail(6);
        tail(0);
      }
    }
    return text;
  };
  HelperState state;
  state.chargeLimit = *rc::gen::arbitrary<std::int64_t>();
  state.sailingBand = *rc::gen::arbitrary<std::int64_t>();
  state.forceDischargeActive = *rc::gen::arbitrary<bool>();
  state.heatPauseActive = *rc::gen::arbitrary<bool>();
  state.lastWriteAt = Date{*seconds};
  state.lastWriteVerified = *rc::gen::arbitrary<bool>();
  if (*rc::gen::arbitrary<bool>()) state.lastDischargeAbortReason = utf8(*anyText);
  if (*rc::gen::arbitrary<bool>()) state.lastDischargeAbortAt = Date{*seconds};
  state.topUpActive = *rc::gen::arbitrary<bool>();
  state.sleepDisabledByKorvel = *rc::gen::arbitrary<bool>();
  if (*rc::gen::arbitrary<bool>()) state.helperVersion = utf8(*anyText);
  return state;
}

RC_GTEST_PROP(StateProperty, EveryRecordComesBackFromItsFile, ()) {
  const auto wholeSeconds =
      rc::gen::map(rc::gen::inRange<std::int64_t>(-63114076800, 252423993600),
                   [](std::int64_t seconds) { return static_cast<double>(seconds); });
  const HelperState state = anyState(wholeSeconds);
  RC_ASSERT(decodeStateFile(encodeFile(state)).value() == state);
}

RC_GTEST_PROP(StateProperty, EveryRecordComesBackFromItsReply, ()) {
  const auto anySeconds = rc::gen::suchThat(rc::gen::arbitrary<double>(),
                                            [](double seconds) { return std::isfinite(seconds); });
  const HelperState state = anyState(anySeconds);
  RC_ASSERT(decodeStateReply(encodeReply(state)).value() == state);
}

/// A well-formed value of up to so many levels, some of which nothing can hold.
std::string anyValue(int levels) {
  const auto scalar = rc::gen::element<std::string>("null", "true", "-0", "80", "1e999", "-1E+999",
                                                    "1e-999", "0.5", "99999999999999999999999",
                                                    R"("")", R"("\ud800")", R"("\udc00\ud800 \"")",
                                                    R"("\u0000")", "\"ä€😀\"", R"("chargeLimit")");
  const int kind = levels == 0 ? 0 : *rc::gen::inRange(0, 3);
  if (kind == 0) return *scalar;
  std::string text;
  for (auto count = *rc::gen::inRange(0, 4); count > 0; --count) {
    if (!text.empty()) text += *rc::gen::element<std::string>(",", " ,\n");
    if (kind == 1) {
      text += *rc::gen::element<std::string>(R"("chargeLimit")", R"("\udfff")", R"("")") + " : ";
    }
    text += anyValue(levels - 1);
  }
  return kind == 1 ? "{" + text + "}" : "[" + text + "]";
}

RC_GTEST_PROP(StateProperty, NoWellFormedValueUnderAnUnknownKeyMatters, ()) {
  HelperState state;
  state.chargeLimit = 60;
  state.lastWriteAt = Date{0};
  const std::string member = R"("later":)" + anyValue(4);
  const std::string whole = encodeFile(state);
  RC_ASSERT(decodeStateFile("{" + member + "," + whole.substr(1)).value() == state);
  RC_ASSERT(decodeStateFile(whole.substr(0, whole.size() - 1) + "," + member + "}").value() ==
            state);
}

}  // namespace
}  // namespace korvel
