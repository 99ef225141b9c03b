#pragma once

#include <stdlib.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace brimlog::testing {

/// Sets and unsets environment variables for a scope: every variable it touched gets its value
/// from before the guard's first change back (or is unset again) when the guard is destroyed.
///
///     ScopedEnvironment environment;
///     environment.set("TZ", "Asia/Tokyo");
///     environment.unset("CODEX_HOME");
///     ...  // both as they were after the scope
///
/// The process environment is shared by every thread: use it where no other thread reads it.
class ScopedEnvironment {
 public:
  ScopedEnvironment() = default;
  /// A guard that starts with one variable set to `value`, or unset when `value` is nothing.
  ScopedEnvironment(const std::string& name, const std::optional<std::string>& value) {
    value ? set(name, *value) : unset(name);
  }

  ~ScopedEnvironment() {
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
      it->second ? ::setenv(it->first.c_str(), it->second->c_str(), 1)
                 : ::unsetenv(it->first.c_str());
    }
  }

  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  void set(const std::string& name, const std::string& value) {
    save(name);
    ::setenv(name.c_str(), value.c_str(), 1);
  }

  void unset(const std::string& name) {
    save(name);
    ::unsetenv(name.c_str());
  }

 private:
  // Keeps the value before the first change only: that is the one to put back.
  void save(const std::string& name) {
    for (const auto& [saved, value] : saved_) {
      if (saved == name) return;
    }
    const char* old = ::getenv(name.c_str());
    saved_.emplace_back(name, old ? std::optional<std::string>(old) : std::nullopt);
  }

  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

}  // namespace brimlog::testing
