#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <ostream>
#include <string>
#include <string_view>

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

inline void PrintTo(const Credits& credits, std::ostream* out) {
  printJson(out, [&] { return credits.toJson(); });
}

inline void PrintTo(ProviderStatus status, std::ostream* out) { *out << caseName(status); }

/// Fails the test when any of `secrets` appears in the record's JSON, in either date form.
inline void expectNoSecret(const ProviderLimits& limits,
                           std::initializer_list<std::string_view> secrets) {
  for (DateForm form : {DateForm::referenceSeconds, DateForm::iso8601}) {
    const std::string text = json::dump(limits.toJson(form));
    for (std::string_view secret : secrets) {
      EXPECT_EQ(text.find(secret), std::string::npos) << text;
    }
  }
}

}  // namespace brimlog
