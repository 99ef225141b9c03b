#include <gtest/gtest.h>

#include <string>

#include "limits/RefreshPolicy.hpp"
#include "support/DecodingCase.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

// The cases are in tests/data/limits/refresh-delays.tsv.
TEST(RefreshPolicyTest, BacksOffOnlyWhileTheServiceIsUnreachableOrLimiting) {
  for (const auto& row : testing::dataRows("limits/refresh-delays.tsv")) {
    EXPECT_EQ(RefreshPolicy::nextDelay(testing::statusNamed(row.at(0)), std::stod(row.at(1))),
              std::stod(row.at(2)))
        << row[0] << " after " << row[1];
  }
}

// The cases are in tests/data/limits/refresh-on-open.tsv.
TEST(RefreshPolicyTest, OpeningRefreshesStaleDataButNotTooSoonAfterAnAttempt) {
  const Date now = dateFromUnixSeconds(1'750'000'000);
  const auto ago = [&](const std::string& seconds) -> std::optional<Date> {
    if (seconds == "never") return std::nullopt;
    return now - Seconds{std::stod(seconds)};
  };
  for (const auto& row : testing::dataRows("limits/refresh-on-open.tsv")) {
    EXPECT_EQ(RefreshPolicy::shouldRefreshOnOpen(ago(row.at(0)), ago(row.at(1)), now),
              row.at(2) == "yes")
        << row.at(3);
  }
}

}  // namespace
}  // namespace brimlog
