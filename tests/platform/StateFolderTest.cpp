#include <gtest/gtest.h>

#include "platform/StateFolder.hpp"

namespace brimlog {
namespace {

TEST(StateFolderTest, GivenFolderElseTheDatabasesElseXdgStateHomeElseHome) {
  const std::string here = std::filesystem::current_path().string();
  struct Row {
    const char* name;
    StateFolder::Given given;
    std::string folder;  // empty: none
  };
  const Row rows[] = {
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
  for (const Row& row : rows) {
    EXPECT_EQ(StateFolder::locate(row.given).value_or("").string(), row.folder) << row.name;
  }
}

}  // namespace
}  // namespace brimlog
