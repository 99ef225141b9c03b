#include <gtest/gtest.h>

#include <string>

#include "limits/HTTPStatusMapping.hpp"
#include "support/DecodingCase.hpp"
#include "support/LimitsPrinting.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

// The cases are in tests/data/limits/http-statuses.tsv.
TEST(HTTPStatusMappingTest, EachStatusOfAUsageEndpointHasItsMeaning) {
  for (const auto& row : testing::dataRows("limits/http-statuses.tsv")) {
    EXPECT_EQ(HTTPStatusMapping::limitsStatus(std::stoi(row.at(0))),
              testing::statusNamed(row.at(1)))
        << row[0];
  }
}

}  // namespace
}  // namespace brimlog
