#pragma once

#include <string_view>

namespace brimlog::option {

// The names of the options that both the full parser and the status line's quick path read.
inline constexpr std::string_view home = "--home";
inline constexpr std::string_view database = "--db";
inline constexpr std::string_view zone = "--tz";
inline constexpr std::string_view now = "--now";
inline constexpr std::string_view sharedDir = "--shared-dir";
inline constexpr std::string_view format = "--format";
inline constexpr std::string_view provider = "--provider";

}  // namespace brimlog::option
