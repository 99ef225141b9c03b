#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "HomeGenerator.hpp"
#include "ingest/ClaudeLogParser.hpp"
#include "ingest/CodexLogParser.hpp"
#include "ingest/ProviderLocations.hpp"
#include "ingest/UsageIngestor.hpp"
#include "platform/Json.hpp"
#include "store/UsageStore.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

constexpr int64_t kEndDay = 20'513;  // 2026-03-01
constexpr int64_t kDayMillis = 86'400'000;

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

TEST_F(HomeGeneratorTest, WritesTheToolsLayoutWithHeavyTailedSessionsInTheWindow) {
  const fs::path home = dir() / "home";
  const HomeGenerator::Options options = smallHome();
  const HomeGenerator::Stats stats = HomeGenerator{11}.write(home, options);

  EXPECT_EQ(stats.claudeFiles, options.claudeFiles);
  EXPECT_EQ(stats.codexFiles, options.codexFiles);
  EXPECT_EQ(stats.grokFiles, options.grokFiles);
  EXPECT_EQ(stats.files, stats.claudeFiles + stats.codexFiles + stats.grokFiles);
  EXPECT_GT(stats.subagentFiles, 5u);
  EXPECT_GT(stats.resumedFiles, 3u);
  EXPECT_NEAR(static_cast<double>(stats.bytes), static_cast<double>(options.totalBytes),
              0.05 * static_cast<double>(options.totalBytes));
  // Most files are small, a few are large.
  EXPECT_GT(stats.largestFileBytes, 20 * stats.medianFileBytes);
  EXPECT_LE(stats.largestFileBytes, options.maxFileBytes + 200'000);

  const std::regex session{
      R"(\.claude/projects/-Users-dev-code-[a-z0-9-]+/([0-9a-f-]{36})\.jsonl)"};
  const std::regex subagent{
      R"(\.claude/projects/(-Users-dev-code-[a-z0-9-]+)/([0-9a-f-]{36})/subagents/agent-a[0-9a-f]{6}\.jsonl)"};
  const std::regex codex{
      R"(\.codex/(sessions/\d{4}/\d\d/\d\d|archived_sessions)/rollout-\d{4}-\d\d-\d\dT\d\d-\d\d-\d\d-[0-9a-f-]{36}\.jsonl)"};
  const std::regex grok{R"(\.grok/sessions/[0-9a-f-]{36}\.json)"};
  const auto files = tree(home);
  uint64_t bytes = 0, claude = 0, subagents = 0, codexFiles = 0, grokFiles = 0;
  std::set<std::string> projects;
  std::set<std::string> keys;
  std::map<std::string, int> filesPerKey;
  std::vector<std::string> copiedKeys;
  uint64_t events = 0, codexCounts = 0;
  for (const auto& [path, contents] : files) {
    bytes += contents.size();
    ASSERT_TRUE(contents.ends_with('\n')) << path;
    std::smatch match;
    if (std::regex_match(path, match, session) || std::regex_match(path, match, subagent)) {
      ++claude;
      const bool isSubagent = match.size() == 3;
      std::string sessionId = match[match.size() - 1].str();
      if (isSubagent) {
        ++subagents;
        EXPECT_TRUE(files.count(".claude/projects/" + match[1].str() + "/" + sessionId + ".jsonl"))
            << "no parent session for " << path;
      }
      projects.insert(path.substr(0, path.find('/', 17)));
      std::set<std::string> keysHere;
      for (const std::string& line : lines(home / path)) {
        const Json json = Json::parse(line);  // every line is JSON
        const auto event = ClaudeLogParser::event(line);
        if (json.contains("sessionId") && json.at("sessionId") != sessionId) {
          // Only the replies copied into a resumed session carry another session's id.
          ASSERT_TRUE(event) << path << ": " << line.substr(0, 200);
          copiedKeys.push_back(event->dedupKey);
        } else if (json.contains("isSidechain")) {
          EXPECT_EQ(json.at("isSidechain"), isSubagent) << path;
        }
        if (!event) continue;
        ++events;
        keys.insert(event->dedupKey);
        if (keysHere.insert(event->dedupKey).second) ++filesPerKey[event->dedupKey];
        const double millis = unixSeconds(event->timestamp) * 1000;
        EXPECT_GE(millis, static_cast<double>((kEndDay - options.days + 1) * kDayMillis)) << path;
        EXPECT_LT(millis, static_cast<double>((kEndDay + 1) * kDayMillis)) << path;
      }
    } else if (std::regex_match(path, codex)) {
      ++codexFiles;
      CodexLogParser parser;
      CodexLineDetails details;
      int64_t total = 0;
      for (const std::string& line : lines(home / path)) {
        EXPECT_TRUE(Json::accept(line)) << path;
        const std::string padded = line + std::string(LineBatch::kPadding, ' ');
        parser.consume(PaddedLine{std::string_view(padded.data(), line.size())}, details);
        if (!details.tokenCount) continue;
        ++codexCounts;
        // The session's running total never goes down: each call's count is new, or repeated.
        EXPECT_GE(details.tokenCount->total, total) << path;
        total = details.tokenCount->total;
      }
    } else if (std::regex_match(path, grok)) {
      ++grokFiles;
      EXPECT_EQ(Json::parse(contents).at("turns").size() > 0, true) << path;
    } else {
      ADD_FAILURE() << "unexpected file " << path;
    }
  }
  EXPECT_EQ(bytes, stats.bytes);
  EXPECT_EQ(claude, stats.claudeFiles);
  EXPECT_EQ(subagents, stats.subagentFiles);
  EXPECT_EQ(codexFiles, stats.codexFiles);
  EXPECT_EQ(grokFiles, stats.grokFiles);
  EXPECT_EQ(projects.size(), stats.projects);
  EXPECT_EQ(events, stats.assistantLines);
  EXPECT_EQ(keys.size(), stats.replies);
  EXPECT_EQ(codexCounts, stats.codexTokenCounts);
  EXPECT_GT(stats.repeatedLines, 0u);
  // Resumed sessions repeat replies of another file, which must not count twice.
  EXPECT_EQ(copiedKeys.size(), stats.copiedLines);
  for (const std::string& key : copiedKeys) EXPECT_EQ(filesPerKey[key], 2) << key;
  EXPECT_GE(stats.firstMillis, (kEndDay - options.days + 1) * kDayMillis);
  EXPECT_GE(stats.lastMillis, stats.firstMillis);
  EXPECT_LT(stats.lastMillis, (kEndDay + 1) * kDayMillis);
}

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

TEST(HomeGeneratorDayTest, DayNumbersAreDaysSince1970) {
  EXPECT_EQ(HomeGenerator::dayNumber("1970-01-01"), 0);
  EXPECT_EQ(HomeGenerator::dayNumber("2026-03-01"), kEndDay);
  EXPECT_EQ(HomeGenerator::dayNumber("2024-02-29"), 19'782);
  for (const char* bad :
       {"2026-02-29", "2026-13-01", "2026-1-01", "2026/03/01", "20260301", "2026-03-01Z", ""}) {
    EXPECT_EQ(HomeGenerator::dayNumber(bad), std::nullopt) << bad;
  }
  EXPECT_GT(HomeGenerator::today(), kEndDay - 1000);
}

// The wrapper the sync benchmark measures `brimlog` with.
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
