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
  EXPECT_EQ(path[0], bin / "resources");
  EXPECT_EQ(path[1], dir() / "prefix" / "share" / "brimlog");

  EXPECT_FALSE(Resources::find("prices.json", path));
  write("prefix/share/brimlog/prices.json", "{}");
  EXPECT_EQ(Resources::find("prices.json", path), path[1] / "prices.json");
  write("prefix/bin/resources/prices.json", "{}");
  EXPECT_EQ(Resources::find("prices.json", path), path[0] / "prices.json");
}

}  // namespace
}  // namespace brimlog
