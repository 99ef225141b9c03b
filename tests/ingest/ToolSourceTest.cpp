#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "ingest/ToolSource.hpp"

namespace brimlog {
namespace {

// Every tool the user is shown is read, each once and in the same order, and nothing is read
// that would not be shown: the two tables name the same tools.
TEST(ToolSourceTest, ReadsExactlyTheToolsTheModelShows) {
  std::vector<ProviderID> read;
  for (const ToolSource& tool : ToolSource::all()) read.push_back(tool.provider);
  EXPECT_TRUE(std::ranges::equal(read, ProviderID::readableCases));
}

}  // namespace
}  // namespace brimlog
