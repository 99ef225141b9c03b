#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "HomeGenerator.hpp"
#include "ToolHomeWriters.hpp"
#include "platform/Json.hpp"
#include "support/RunningProgram.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

HomeGenerator::Options smallHome() {
  HomeGenerator::Options options;
  options.totalBytes = 4'000'000;
  options.claudeFiles = 60;
  options.projects = 5;
  options.subagentShare = 0.2;
  options.maxFileBytes = 1'000'000;
  options.codexFiles = 3;
  options.grokFiles = 4;
  options.days = 3;
  options.endDay = 20'513;  // 2026-03-01
  return options;
}

class HomeGeneratorTest : public testing::TempDirTest {
 protected:
  // Runs the brimlog command on the home and database in the test's folder; returns its JSON.
  Json brimlog(std::vector<std::string> arguments) {
    arguments.insert(
        arguments.end(),
        {"--home", (dir() / "home").string(), "--db", (dir() / "usage.db").string(), "--tz", "UTC",
         "--now", "2026-03-03T00:00:00Z", "--json", "--shared-dir", (dir() / "shared").string()});
    arguments.insert(arguments.begin(), BRIMLOG_BINARY);
    const auto result =
        testing::RunningProgram::run(std::move(arguments), std::chrono::seconds(120));
    EXPECT_EQ(result.exitStatus, 0);
    return Json::parse(result.output);
  }
};

TEST_F(HomeGeneratorTest, AFirstSyncCountsEveryReplyOnceWithItsTokens) {
  const HomeGenerator::Stats stats = HomeGenerator{5}.write(dir() / "home", smallHome());
  // The home holds what must not be counted twice: verbatim repeats, repeated Codex totals.
  ASSERT_GT(stats.repeatedLines, 0u);
  ASSERT_GT(stats.codexTokenCounts, static_cast<uint64_t>(stats.codex.replies));
  ASSERT_GT(stats.grok.replies, 0);

  const Json sync = brimlog({"sync", "--offline"}).at("ingest");
  EXPECT_EQ(sync.at("filesRead").get<uint64_t>(), stats.files);
  EXPECT_EQ(sync.at("linesRead").get<uint64_t>(), stats.lines);
  EXPECT_TRUE(sync.at("skipped").empty()) << sync.at("skipped");

  std::map<std::string, TokenCounts> stored;
  const Json report = brimlog({"report", "models", "--no-sync", "--days", "10"});
  for (const Json& row : report.at("models")) {
    stored[row.at("provider").get<std::string>()] += TokenCounts::fromJson(row.at("tokens"));
  }
  for (const auto& [tool, expected] :
       {std::pair{"claude", stats.claude}, std::pair{"codex", stats.codex},
        std::pair{"grok", stats.grok}}) {
    SCOPED_TRACE(tool);
    EXPECT_EQ(sync.at("newEvents").at(tool).get<int64_t>(), expected.replies);
    EXPECT_EQ(stored[tool], expected.tokens);
  }
  EXPECT_EQ(brimlog({"sync", "--offline"}).at("ingest").at("filesRead").get<int>(), 0);
}

// Each newer tool's home, read by a real sync: every reply its writer made counts once, with its
// tokens, through the copies and repeats the tool leaves; a second sync reads nothing.
TEST_F(HomeGeneratorTest, EachToolsHomeIsCountedAsItsWriterSays) {
  const std::pair<std::string_view, uint64_t> rows[] = {
      {"gemini", 3'000'000},
      {"opencode", 600'000},
      {"kilo", 600'000},
      {"qwen", 3'000'000},
  };
  for (const auto& [tool, bytes] : rows) {
    SCOPED_TRACE(tool);
    const auto writer = std::ranges::find(toolHomeWriters(), tool, &ToolHomeWriterEntry::tool);
    ASSERT_NE(writer, toolHomeWriters().end());
    fs::remove_all(dir() / "home");
    fs::remove(dir() / "usage.db");
    const ToolTotals expected = writer->write(dir() / "home", bytes, 9, 20'513);  // to 2026-03-01
    ASSERT_GT(expected.replies, 0);

    const Json sync = brimlog({"sync", "--offline"}).at("ingest");
    EXPECT_TRUE(sync.at("skipped").empty()) << sync.at("skipped");
    EXPECT_EQ(sync.at("newEvents").at(std::string(tool)).get<int64_t>(), expected.replies);
    const Json report = brimlog({"report", "models", "--no-sync", "--days", "40"});
    TokenCounts stored;
    for (const Json& row : report.at("models")) {
      if (row.at("provider").get<std::string>() == tool) {
        stored += TokenCounts::fromJson(row.at("tokens"));
      }
    }
    EXPECT_EQ(stored, expected.tokens);
    EXPECT_EQ(brimlog({"sync", "--offline"}).at("ingest").at("filesRead").get<int>(), 0);
  }
}

TEST_F(HomeGeneratorTest, TheSameSeedGivesTheSameBytes) {
  HomeGenerator::Options options = smallHome();
  options.totalBytes = 300'000;
  options.claudeFiles = 8;
  const auto a = HomeGenerator{3}.write(dir() / "a", options);
  const auto b = HomeGenerator{3}.write(dir() / "b", options);
  const auto c = HomeGenerator{4}.write(dir() / "c", options);
  const auto tree = [](const fs::path& home) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(home)) {
      if (entry.is_regular_file()) {
        files[fs::relative(entry.path(), home).string()] = testing::readFile(entry.path());
      }
    }
    return files;
  };
  EXPECT_EQ(tree(dir() / "a"), tree(dir() / "b"));
  EXPECT_NE(tree(dir() / "a"), tree(dir() / "c"));
  EXPECT_EQ(a.claude.tokens, b.claude.tokens);
  EXPECT_NE(a.claude.tokens, c.claude.tokens);
}

TEST_F(HomeGeneratorTest, PeakRSSReportsTheCommandsMemoryAndStatus) {
  const fs::path report = dir() / "report.txt";
  auto run = [&](const std::string& command) {
    const int status = std::system((std::string(BRIMLOG_PEAK_RSS) + " --report " + report.string() +
                                    " -- " + command + " 2>/dev/null")
                                       .c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  EXPECT_EQ(run("sh -c 'exit 3'"), 3);
  // dd reads 64 MiB of zeros into one buffer, so its resident set passes 64 MiB.
  EXPECT_EQ(run("dd if=/dev/zero of=/dev/null bs=64M count=1"), 0);
  EXPECT_EQ(run("/no/such/command"), 127);

  std::istringstream lines{testing::readFile(report)};
  const std::regex form{
      R"(wall_seconds=\d+\.\d{6} max_rss_kib=(\d+) user_seconds=\d+\.\d{3} sys_seconds=\d+\.\d{3} status=(\d+))"};
  std::smatch match;
  for (const auto& [status, minimumKiB] :
       {std::pair{"3", 0}, std::pair{"0", 64 * 1024}, std::pair{"127", 0}}) {
    std::string line;
    ASSERT_TRUE(std::getline(lines, line));
    ASSERT_TRUE(std::regex_match(line, match, form)) << line;
    EXPECT_EQ(match[2], status);
    EXPECT_GE(std::stol(match[1]), minimumKiB);
  }
}

}  // namespace
}  // namespace brimlog
