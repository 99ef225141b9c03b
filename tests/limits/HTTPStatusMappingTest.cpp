#include <gtest/gtest.h>

#include "limits/HTTPStatusMapping.hpp"
#include "support/LimitsPrinting.hpp"

namespace brimlog {
namespace {

TEST(HTTPStatusMappingTest, EachStatusOfAUsageEndpointHasItsMeaning) {
  struct Row {
    int httpStatus;
    ProviderStatus status;
  };
  const Row rows[] = {{199, ProviderStatus::unreachable},  {200, ProviderStatus::ok},
                      {299, ProviderStatus::ok},           {300, ProviderStatus::unreachable},
                      {302, ProviderStatus::unreachable},  {400, ProviderStatus::unreachable},
                      {401, ProviderStatus::signInNeeded}, {402, ProviderStatus::unreachable},
                      {403, ProviderStatus::signInNeeded}, {404, ProviderStatus::unreachable},
                      {428, ProviderStatus::unreachable},  {429, ProviderStatus::rateLimited},
                      {500, ProviderStatus::unreachable},  {0, ProviderStatus::unreachable}};
  for (const Row& row : rows) {
    EXPECT_EQ(HTTPStatusMapping::limitsStatus(row.httpStatus), row.status) << row.httpStatus;
  }
}

}  // namespace
}  // namespace brimlog
