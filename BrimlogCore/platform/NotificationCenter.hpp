#pragma once

#include <filesystem>
#include <string_view>

namespace brimlog {

/// Posts named notifications that other processes of the same user can observe. This stand-in
/// keeps the interface alone until the real centre arrives: posting does nothing yet.
class NotificationCenter {
 public:
  explicit NotificationCenter(std::filesystem::path /*root*/) {}

  void post(std::string_view /*name*/) const noexcept {}
};

}  // namespace brimlog
