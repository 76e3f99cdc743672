#pragma once

#include <concepts>
#include <type_traits>

#include "Platform/Platform.h"

namespace korvel::test {

/// The last of `others` that is an implementation of Part; `usual` when none is.
template <class Part, class... Others>
Part& partOf(Part& usual, Others&... others) {
  Part* found = &usual;
  const auto consider = [&found](auto& other) {
    if constexpr (std::derived_from<std::remove_cvref_t<decltype(other)>, Part>) found = &other;
  };
  (consider(others), ...);
  return *found;
}

/// The same platform with other implementations in some places.
template <class... Others>
Platform with(const Platform& base, Others&... others) {
  return {partOf(base.smc, others...),           partOf(base.registry, others...),
          partOf(base.powerSources, others...),  partOf(base.assertions, others...),
          partOf(base.powerSettings, others...), partOf(base.rootDomain, others...),
          partOf(base.smartCharge, others...),   partOf(base.files, others...),
          partOf(base.dispatch, others...),      partOf(base.clock, others...),
          partOf(base.log, others...),           partOf(base.codeSigning, others...),
          partOf(base.xpc, others...),           partOf(base.process, others...)};
}

}  // namespace korvel::test
