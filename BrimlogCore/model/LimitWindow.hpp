#pragma once

#include <optional>
#include <string>

#include "platform/Date.hpp"
#include "platform/Json.hpp"

namespace brimlog {

/// Where the figures of a limit window come from.
///
/// JSON: an object with exactly one key, the case name, holding the payload:
/// {"live":{}}, {"local":{"asOf":d}}, {"stale":{"asOf":d}}.
class LimitSource {
 public:
  enum class Kind { live, local, stale };

  /// Fetched just now from the provider's service.
  static LimitSource live() { return LimitSource{Kind::live, Date{}}; }
  /// Read from the tool's own files; `asOf` is the time of the local record.
  static LimitSource local(Date asOf) { return LimitSource{Kind::local, asOf}; }
  /// Kept from an earlier record that could not be renewed; `asOf` is when it was obtained.
  static LimitSource stale(Date asOf) { return LimitSource{Kind::stale, asOf}; }

  Kind kind() const { return kind_; }
  /// The payload of `local` and `stale`; nothing for `live`.
  std::optional<Date> asOf() const;
  bool isStale() const { return kind_ == Kind::stale; }

  bool operator==(const LimitSource& other) const;

  Json toJson(DateForm form) const;
  static LimitSource fromJson(const Json& json, DateForm form);

 private:
  LimitSource(Kind kind, Date asOf) : kind_(kind), asOf_(asOf) {}

  Kind kind_;
  Date asOf_;
};

/// One rate-limit window of a provider: a five-hour session, a week, a model's week.
///
///     LimitWindow w{"session", "Session", 1.7, 18000.0, std::nullopt, LimitSource::live()};
///     w.usedFraction;  // 1.0: the constructor clamps to 0...1 (NaN gives 0)
///
/// Decoding keeps a stored `usedFraction` as it is.
struct LimitWindow {
  LimitWindow(std::string id, std::string label, double usedFraction,
              std::optional<double> duration, std::optional<Date> resetsAt, LimitSource source);

  /// Stable id within the provider: "session", "weekly", "weekly." + model.
  std::string id;
  std::string label;
  /// Share of the quota already used, 0 to 1.
  double usedFraction;
  /// Length of the window in seconds (18000 for five hours), when known.
  std::optional<double> duration;
  std::optional<Date> resetsAt;
  LimitSource source;

  /// Whether the window has reset by `now`: `resetsAt` is known and not after `now`.
  bool isReset(Date now) const;

  /// The share that counts at `now`: 0 once the window has reset, else `usedFraction`.
  double effectiveUsedFraction(Date now) const;

  bool operator==(const LimitWindow&) const = default;

  Json toJson(DateForm form) const;
  static LimitWindow fromJson(const Json& json, DateForm form);
};

}  // namespace brimlog
