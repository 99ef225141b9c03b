#include <gtest/gtest.h>

#include "platform/Resources.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

class ResourcesTest : public testing::TempDirTest {};

TEST_F(ResourcesTest, BesideTheExecutableWinsOverTheSharedFolder) {
  const auto bin = dir() / "prefix" / "bin";
  std::filesystem::create_directories(bin);
  const auto path = Resources::searchPath(bin);
  ASSERT_GE(path.size(), 3u);
  // Each file is found only where it was written, so the order and the places both show.
  EXPECT_FALSE(Resources::find("prices.json", path));
  write("prefix/share/brimlog/prices.json", "{}");
  EXPECT_EQ(Resources::find("prices.json", path), dir() / "prefix/share/brimlog/prices.json");
  write("prefix/bin/resources/prices.json", "{}");
  EXPECT_EQ(Resources::find("prices.json", path), bin / "resources/prices.json");
}

}  // namespace
}  // namespace brimlog
