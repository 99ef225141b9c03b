#pragma once

#include <gtest/gtest.h>

#include <ostream>

#include "model/ProviderLimits.hpp"

// Lets test failures show limits records as their JSON (dates as ISO 8601 text) instead of bytes.
namespace brimlog {

template <typename Encode>
void printJson(std::ostream* out, const Encode& encode) {
  try {
    *out << json::dump(encode());
  } catch (const std::exception& error) {
    *out << "<not encodable: " << error.what() << ">";
  }
}

inline void PrintTo(const LimitWindow& window, std::ostream* out) {
  printJson(out, [&] { return window.toJson(DateForm::iso8601); });
}

inline void PrintTo(const ProviderLimits& limits, std::ostream* out) {
  printJson(out, [&] { return limits.toJson(DateForm::iso8601); });
}

inline void PrintTo(ProviderStatus status, std::ostream* out) { *out << caseName(status); }

}  // namespace brimlog
