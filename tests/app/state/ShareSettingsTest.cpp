// The config file's reader, and where HostSettings finds the file.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "state/HostSettings.hpp"
#include "state/ShareSettings.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::HasSubstr;

class ShareSettingsTest : public testing::TempDirTest {};

TEST_F(ShareSettingsTest, ReadsTheShareSectionAndNamesTheLineOfEveryMistake) {
  struct Row {
    const char* name;
    const char* text;
    std::optional<ShareSettings> settings;  // absent: a mistake, told as `mistake`
    const char* mistake = "";
  };
  // clang-format off
  const std::vector<Row> rows = {
      {"every key, spaced and not, CRLF lines", "[share]\r\nto = postgresql://ana@db/team\r\nmachine=laptop\n  user =  ana  \n",
       ShareSettings{"postgresql://ana@db/team", "laptop", "ana"}},
      {"comments and blank lines", "# mine\n\n; also a comment\n[ share ]\n# to = old\nto = host=db dbname=team\n",
       ShareSettings{"host=db dbname=team", std::nullopt, std::nullopt}},
      {"an empty file", "", ShareSettings{}},
      {"a later value wins", "[share]\nuser = a\nuser = b", ShareSettings{std::nullopt, std::nullopt, "b"}},
      {"unknown key", "[share]\nto = x\n\nmachin = y\n", std::nullopt,
       "line 4: unknown key machin in [share]; choose to, machine or user"},
      {"unknown section", "# c\n[sync]\n", std::nullopt, "line 2: unknown section [sync]; the only one is [share]"},
      {"a key before any section", "to = x\n", std::nullopt, "line 1: a setting outside a section; put it under [share]"},
      {"no equals sign", "[share]\nto postgresql://db\n", std::nullopt, "line 2: write a setting as key = value"},
      {"an empty value", "[share]\nuser =\n", std::nullopt, "line 2: user has no value"},
      {"an unclosed section", "[share\n", std::nullopt, "line 1: a section's name ends with ]"},
  };
  // clang-format on
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::string mistake;
    const std::optional<ShareSettings> read = ShareSettings::parse(row.text, mistake);
    ASSERT_EQ(read.has_value(), row.settings.has_value()) << mistake;
    EXPECT_EQ(mistake, row.mistake);
    if (!read) continue;
    EXPECT_EQ(read->to, row.settings->to);
    EXPECT_EQ(read->machine, row.settings->machine);
    EXPECT_EQ(read->user, row.settings->user);
  }
}

// BRIMLOG_CONFIG names the file, else XDG_CONFIG_HOME or ~/.config; a missing file is no
// settings, the machine then being the host's; a file with a mistake stops the command, naming it.
TEST_F(ShareSettingsTest, HostSettingsReadTheFileTheEnvironmentNames) {
  std::map<std::string, std::string> variables = {{"HOME", dir().string()}, {"TZ", "UTC"}};
  const auto resolve = [&](bool readsConfig = true) {
    CommandLine given;
    given.readsConfig = readsConfig;
    return HostSettings::resolve(given, [&](const char* name) -> std::optional<std::string> {
      const auto found = variables.find(name);
      if (found == variables.end()) return std::nullopt;
      return found->second;
    });
  };
  const HostSettings none = resolve();
  EXPECT_EQ(none.configFile, dir() / ".config/brimlog/brimlog.conf");
  EXPECT_FALSE(none.share.to);
  EXPECT_EQ(none.share.machine, HostSettings::hostName());
  EXPECT_THAT([&] { none.share.target("--to", none.configFile); },
              ::testing::ThrowsMessage<CommandError>(
                  HasSubstr("give --to postgresql://USER@HOST/DATABASE, or set `to = ")));

  write("xdg/brimlog/brimlog.conf", "[share]\nto = postgresql://db/team\nmachine = box\n");
  variables["XDG_CONFIG_HOME"] = (dir() / "xdg").string();
  const HostSettings xdg = resolve();
  EXPECT_EQ(xdg.share.to, "postgresql://db/team");
  EXPECT_EQ(xdg.share.machine, "box");
  // The command line's options stand above the file's.
  const ShareSettings given{std::nullopt, "laptop", "ana"};
  const ShareSettings both = xdg.share.overriddenBy(given);
  EXPECT_EQ(both.to, "postgresql://db/team");
  EXPECT_EQ(both.machine, "laptop");
  EXPECT_EQ(both.user, "ana");

  variables["BRIMLOG_CONFIG"] = write("other.conf", "[share]\nuser: ana\n").string();
  EXPECT_THAT([&] { resolve(); }, ::testing::ThrowsMessage<CommandError>(
                                      "the config file " + (dir() / "other.conf").string() +
                                      ", line 2: write a setting as key = value"));
  // The status line reads no config file, so a mistake in it never blanks a bar.
  EXPECT_FALSE(resolve(false).share.to);
}

}  // namespace
}  // namespace brimlog
