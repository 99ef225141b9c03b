#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "model/ProviderLimits.hpp"
#include "support/TempDir.hpp"

namespace brimlog::testing {

/// A JSON data file under tests/data/, its objects' keys kept in the file's order.
inline nlohmann::ordered_json dataFile(const std::filesystem::path& relative) {
  return nlohmann::ordered_json::parse(readFile(dataPath(relative)));
}

/// A provider status by its case name ("rateLimited"), as data files write it.
inline ProviderStatus statusNamed(const std::string& name) {
  return providerStatusFromJson({{name, Json::object()}});
}

/// The text a data file gives for a body or a record: a string as it is (for text that is no
/// JSON), anything else as its JSON text.
inline std::string sentText(const nlohmann::ordered_json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

/// One case of a usage decoding table: a body and the record it decodes to, if any.
struct DecodingCase {
  std::string name;
  std::string body;
  std::optional<ProviderLimits> expected;
};

/// The cases of a decoding table in tests/data/limits/: an array of objects with a "name" and a
/// "body". `"fails": true` marks a body that must not decode; any other decodes to a record of
/// status ok fetched `now`, with the case's "plan", "credits" (in their own JSON form) and
/// "windows", each a live window written [id, label, used fraction, duration or null, reset time
/// in ISO 8601 when there is one].
inline std::vector<DecodingCase> decodingCases(const std::string& file, Date now) {
  std::vector<DecodingCase> cases;
  for (const auto& ordered : dataFile(std::filesystem::path("limits") / file)) {
    const Json row = Json::parse(ordered.dump());
    cases.push_back({row.at("name").get<std::string>(), sentText(ordered.at("body")), {}});
    if (row.value("fails", false)) continue;
    ProviderLimits& limits = cases.back().expected.emplace();
    limits.fetchedAt = now;
    if (row.contains("plan")) limits.plan = row["plan"].get<std::string>();
    if (row.contains("credits")) limits.credits = Credits::fromJson(row["credits"]);
    for (const Json& w : row.at("windows")) {
      std::optional<double> duration;
      if (!w.at(3).is_null()) duration = w[3].get<double>();
      std::optional<Date> resetsAt;
      // In the services' own form, which may carry a fraction of a second.
      if (w.size() > 4) resetsAt = parseISO8601(w[4].get<std::string>());
      limits.windows.emplace_back(w.at(0).get<std::string>(), w.at(1).get<std::string>(),
                                  w.at(2).get<double>(), duration, resetsAt, LimitSource::live());
    }
  }
  return cases;
}

}  // namespace brimlog::testing
