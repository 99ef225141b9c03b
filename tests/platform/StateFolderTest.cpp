#include <gtest/gtest.h>

#include <tuple>

#include "platform/StateFolder.hpp"

namespace brimlog {
namespace {

TEST(StateFolderTest, GivenFolderElseTheDatabasesElseXdgStateHomeElseHome) {
  const std::string here = std::filesystem::current_path().string();
  // Each row: its name, what is given, and the folder found ("" for none).
  const std::tuple<const char*, StateFolder::Given, std::string> rows[] = {
      {"given", {"/srv/w", "/tmp/t/usage.db", "/state", "/home/ada"}, "/srv/w"},
      {"given relative", {"w/../x", {}, {}, "/home/ada"}, here + "/x"},
      {"given empty", {"", {}, {}, "/home/ada"}, "/home/ada/.local/state/brimlog"},
      {"own database", {{}, "/tmp/t/usage.db", "/state", "/home/ada"}, "/tmp/t"},
      {"relative database", {{}, "usage.db", {}, {}}, here},
      {"xdg", {{}, {}, "/state", "/home/ada"}, "/state/brimlog"},
      {"relative xdg", {{}, {}, "state", "/home/ada"}, "/home/ada/.local/state/brimlog"},
      {"relative home", {{}, {}, "", "home/ada"}, ""},
      {"nothing", {}, ""},
  };
  for (const auto& [name, given, folder] : rows) {
    EXPECT_EQ(StateFolder::locate(given).value_or("").string(), folder) << name;
  }
}

}  // namespace
}  // namespace brimlog
