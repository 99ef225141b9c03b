#pragma once

#include <string_view>

namespace brimlog {

/// The project's version ("0.1.0"), as the build set it.
std::string_view appVersion();

}  // namespace brimlog
