#include <gtest/gtest.h>

#include "ingest/DataRow.hpp"
#include "ingest/qwen/QwenLogParser.hpp"
#include "ingest/qwen/QwenLogReader.hpp"

namespace brimlog {
namespace {

using testing::DataRow;
using testing::PaddedCopy;

// An assistant record of a model call with its usage metadata spliced in.
std::string call(const std::string& usage) {
  return R"({"uuid":"u1","parentUuid":"u0","sessionId":"s1","timestamp":"2026-04-11T08:00:06.400Z",)"
         R"("type":"assistant","cwd":"/home/me/proj","version":"0.14.5","model":"qwen3-coder-plus",)"
         R"("message":{"role":"model","parts":[{"text":"done"}]},"usageMetadata":)" +
         usage + "}";
}

TEST(QwenLogParserTest, AModelCallBecomesAnEvent) {
  const auto event = QwenLogParser::event(
      call(R"({"promptTokenCount":14520,"candidatesTokenCount":96,"cachedContentTokenCount":12288,)"
           R"("thoughtsTokenCount":0,"totalTokenCount":14616})"));
  EXPECT_EQ(event,
            (UsageEvent{ProviderID::qwen, "qwen3-coder-plus", "s1", "qwen:u1",
                        dateFromUnixSeconds(1775894406.4), TokenCounts{2232, 12288, 0, 0, 96, 0},
                        std::nullopt, "/home/me/proj"}));
}

// Which usage fields count as what, for each way a provider reports reasoning, cache and
// tool-use prompts.
TEST(QwenLogParserTest, UsageMetadataBecomesTokenCounts) {
  for (const DataRow& row : testing::namedRows("ingest/qwen-usage.tsv")) {
    SCOPED_TRACE(row.name);
    const auto event = QwenLogParser::event(call(row.fields.at(0)));
    ASSERT_TRUE(event);
    EXPECT_EQ(event->tokens, (TokenCounts{row.integer(1), row.integer(2), row.integer(3),
                                          row.integer(4), row.integer(5), row.integer(6)}));
  }
}

// What each record gives: the records that must add nothing, branch copies, the fallbacks of
// model, session and folder, broken lines. Records read from a file take a quick look at their
// type first; the outcome must be the one the full parse of the same bytes gives.
TEST(QwenLogParserTest, EachRecordGivesWhatTheFullParseGives) {
  for (const DataRow& row : testing::namedRows("ingest/qwen-lines.tsv")) {
    SCOPED_TRACE(row.name);
    const std::string& line = row.fields.at(1);
    const auto full = QwenLogParser::event(std::string_view(line));
    EXPECT_EQ(full
                  ? full->dedupKey + "|" + full->model + "|" + full->sessionID + "|" + full->project
                  : "-",
              row.fields.at(0));
    EXPECT_EQ(QwenLogParser::event(PaddedCopy(line)), full);
  }
}

TEST(QwenLogReaderTest, SidecarsBesideASessionAreNotItsLog) {
  const std::pair<const char*, bool> rows[] = {
      {"/h/.qwen/projects/-h/chats/9b1f0c3e-55aa-4d0e-b7f2-0c1d2e3f4a5b.jsonl", true},
      {"9b1f0c3e-55aa-4d0e-b7f2-0c1d2e3f4a5b.jsonl", true},
      {"/h/.qwen/projects/-h/chats/9b1f0c3e-55aa-4d0e-b7f2-0c1d2e3f4a5b.ledger.jsonl", false},
  };
  for (const auto& [path, isLog] : rows)
    EXPECT_EQ(QwenLogReader::isSessionLog(path), isLog) << path;
}

}  // namespace
}  // namespace brimlog
