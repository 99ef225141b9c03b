#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "HomeGenerator.hpp"
#include "ingest/ProviderLocations.hpp"
#include "ingest/UsageIngestor.hpp"
#include "store/UsageStore.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

constexpr int64_t kEndDay = 20'513;  // 2026-03-01

HomeGenerator::Options smallHome() {
  HomeGenerator::Options options;
  options.totalBytes = 6'000'000;
  options.claudeFiles = 120;
  options.projects = 8;
  options.days = 30;
  options.endDay = kEndDay;
  options.subagentShare = 0.2;
  options.resumedShare = 0.25;
  options.maxFileBytes = 2'000'000;
  options.codexFiles = 2;  // each about 60 model calls long
  options.codexMinFileBytes = 250'000;
  options.codexMaxFileBytes = 250'000;
  options.grokFiles = 3;
  return options;
}

std::vector<std::string> lines(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> result;
  for (std::string line; std::getline(in, line);) result.push_back(line);
  return result;
}

// Every regular file under `dir`, by path relative to it, with its contents.
std::map<std::string, std::string> tree(const fs::path& dir) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::recursive_directory_iterator(dir)) {
    if (entry.is_regular_file()) {
      files[fs::relative(entry.path(), dir).string()] = testing::readFile(entry.path());
    }
  }
  return files;
}

class HomeGeneratorTest : public testing::TempDirTest {};

TEST_F(HomeGeneratorTest, SyncCountsEveryReplyOnceAndFindsNothingNewTheSecondTime) {
  const fs::path home = dir() / "home";
  const HomeGenerator::Stats stats = HomeGenerator{5}.write(home, smallHome());

  UsageStore store{dir() / "usage.db"};
  // A day after the window, so every transcript's last reply is old enough to count.
  const Date now = dateFromUnixSeconds(static_cast<double>(kEndDay + 2) * 86'400);
  UsageIngestor ingestor{store, ProviderLocations{home}, Calendar::utc()};
  const IngestResult cold = ingestor.run(now);
  EXPECT_TRUE(cold.skipped.empty());
  EXPECT_EQ(cold.filesScanned, stats.files);
  EXPECT_EQ(cold.filesRead, stats.files);
  // The reader counts a line's bytes without its line feed; a Grok document counts whole.
  EXPECT_EQ(cold.bytesRead, static_cast<int64_t>(stats.bytes - (stats.lines - stats.grokFiles)));
  EXPECT_EQ(cold.linesRead, static_cast<int64_t>(stats.lines));
  EXPECT_EQ(cold.newEventsOf(ProviderID::claude), static_cast<int64_t>(stats.replies));
  EXPECT_GT(stats.codexCalls, stats.codexFiles);
  EXPECT_GT(stats.codexTokenCounts, stats.codexCalls);  // some are written twice
  EXPECT_GT(stats.grokModelUsages, 0u);
  EXPECT_EQ(cold.newEventsOf(ProviderID::codex), static_cast<int64_t>(stats.codexCalls));
  EXPECT_EQ(cold.newEventsOf(ProviderID::grok), static_cast<int64_t>(stats.grokModelUsages));

  const IngestResult warm = ingestor.run(now);
  EXPECT_EQ(warm.filesScanned, stats.files);
  EXPECT_EQ(warm.filesRead, 0u);
  EXPECT_EQ(warm.totalNewEvents(), 0);
}

TEST_F(HomeGeneratorTest, TheSameSeedGivesTheSameHome) {
  HomeGenerator::Options options = smallHome();
  options.totalBytes = 1'500'000;
  options.claudeFiles = 40;
  const auto a = HomeGenerator{3}.write(dir() / "a", options);
  const auto b = HomeGenerator{3}.write(dir() / "b", options);
  const auto c = HomeGenerator{4}.write(dir() / "c", options);
  EXPECT_EQ(tree(dir() / "a"), tree(dir() / "b"));
  EXPECT_EQ(a.bytes, b.bytes);
  EXPECT_NE(tree(dir() / "a"), tree(dir() / "c"));
  EXPECT_NE(a.bytes, c.bytes);

  options.claudeFiles = 0;
  EXPECT_THROW(HomeGenerator{1}.write(dir() / "d", options), std::invalid_argument);
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

  const auto written = lines(report);
  ASSERT_EQ(written.size(), 3u);
  const std::regex form{
      R"(wall_seconds=\d+\.\d{6} max_rss_kib=(\d+) user_seconds=\d+\.\d{3} sys_seconds=\d+\.\d{3} status=(\d+))"};
  std::smatch match;
  ASSERT_TRUE(std::regex_match(written[0], match, form)) << written[0];
  EXPECT_EQ(match[2], "3");
  ASSERT_TRUE(std::regex_match(written[1], match, form)) << written[1];
  EXPECT_GE(std::stol(match[1]), 64 * 1024);
  EXPECT_EQ(match[2], "0");
  ASSERT_TRUE(std::regex_match(written[2], match, form)) << written[2];
  EXPECT_EQ(match[2], "127");
}

}  // namespace
}  // namespace brimlog
