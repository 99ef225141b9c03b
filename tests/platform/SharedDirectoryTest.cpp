#include <gtest/gtest.h>

#include "platform/SharedDirectory.hpp"

namespace brimlog {
namespace {

TEST(SharedDirectoryTest, UnderAnAbsoluteDataHomeElseAnAbsoluteHomeElseNowhere) {
  const auto folder = [](std::optional<std::string> xdgDataHome, std::optional<std::string> home) {
    return SharedDirectory::forGroup("G", xdgDataHome, home).value_or("").string();
  };
  const std::string local = "/home/ada/.local/share/brimlog/containers/G";
  EXPECT_EQ(folder("/data", "/home/ada"), "/data/brimlog/containers/G");
  EXPECT_EQ(folder("data", "/home/ada"), local);
  EXPECT_EQ(folder("", "/home/ada"), local);
  EXPECT_EQ(folder(std::nullopt, "/home/ada"), local);
  EXPECT_EQ(folder(std::nullopt, "home/ada") + folder(std::nullopt, std::nullopt), "");
  for (const char* group : {"", ".", "..", "a/b"}) {
    EXPECT_FALSE(SharedDirectory::forGroup(group, "/data", "/home/ada")) << group;
  }
}

}  // namespace
}  // namespace brimlog
