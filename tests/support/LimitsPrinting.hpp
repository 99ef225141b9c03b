#pragma once

#include <ostream>

#include "model/ProviderLimits.hpp"

// Lets test failures show limits records as their JSON (dates as ISO 8601 text) instead of bytes.
namespace brimlog {

inline void PrintTo(const LimitWindow& window, std::ostream* out) {
  try {
    *out << json::dump(window.toJson(DateForm::iso8601));
  } catch (const std::exception& error) {
    *out << "<window " << window.id << ": " << error.what() << ">";
  }
}

inline void PrintTo(const ProviderLimits& limits, std::ostream* out) {
  try {
    *out << json::dump(limits.toJson(DateForm::iso8601));
  } catch (const std::exception& error) {
    *out << "<limits: " << error.what() << ">";
  }
}

inline void PrintTo(const Credits& credits, std::ostream* out) {
  try {
    *out << json::dump(credits.toJson());
  } catch (const std::exception& error) {
    *out << "<credits: " << error.what() << ">";
  }
}

inline void PrintTo(ProviderStatus status, std::ostream* out) { *out << caseName(status); }

}  // namespace brimlog
