// Qwen Code as Brimlog finds and reads it: where its chats are, and a home with every trap the
// tool sets (tests/data/ingest/qwen-home.tsv) read by real passes into a real database, whose
// totals and cost must be the bill the test adds up itself, in one pass and across passes killed
// at random while the tool goes on writing.

#include <gtest/gtest.h>

#include "ingest/DataRow.hpp"
#include "ingest/ToolLocations.hpp"
#include "store/PriceTable.hpp"
#include "store/UsageStore.hpp"
#include "store/UsageSummary.hpp"
#include "support/KilledPasses.hpp"
#include "sync/StoreIngestSink.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

class QwenSourceTest : public testing::TempDirTest {
 protected:
  void writeStage(const std::string& stage) {
    for (const std::vector<std::string>& row : testing::dataRows("ingest/qwen-home.tsv")) {
      if (row[0] != stage) continue;
      fs::create_directories((dir() / (row[1] == "move" ? row[3] : row[2])).parent_path());
      if (row[1] == "move") fs::rename(dir() / row[2], dir() / row[3]);
      if (row[1] != "move") append(row[2], row[1] == "add" ? row[3] + '\n' : row[3]);
    }
  }

  IngestResult pass(IngestOptions options = {}) {
    UsageStore store{dir() / "usage.db", {.busyTimeout = 0.2}};
    StoreIngestSink sink{store};
    const ToolLocations tools =
        ToolLocations::resolve(dir() / "home", {{"QWEN_RUNTIME_DIR", (dir() / "run").string()}});
    return UsageIngestor{sink, tools.logFolders(), std::move(options)}.run(now_);
  }

  // The stored totals and cost against the bill: every call once, priced by plain arithmetic.
  void expectTheBill() {
    PriceTable prices;
    TokenCounts tokens;
    double cost = 0;
    for (const std::vector<std::string>& row : testing::dataRows("ingest/qwen-home.tsv")) {
      if (row[0] != "bill") continue;
      const auto n = [&](size_t i) { return std::stod(row[i]); };
      prices.models[row[2]] = {n(7), n(9), n(8), 0, 0, std::nullopt, "", ""};
      tokens +=
          {std::stoll(row[3]), std::stoll(row[4]), 0, 0, std::stoll(row[5]), std::stoll(row[6])};
      cost += (n(3) * n(7) + n(4) * n(8) + n(5) * n(9)) / 1e6;
    }
    const UsageSummary summary =
        UsageStore{dir() / "usage.db"}.summary(30, now_, Calendar::utc(), prices);
    EXPECT_EQ(summary.tokens, tokens);
    EXPECT_NEAR(summary.totalCostUSD, cost, 1e-9);
  }

  const Date now_ = *parseISO8601("2026-11-20T12:00:00Z");
};

TEST_F(QwenSourceTest, EveryCallCountsOnceInOnePassOrAcrossKilledOnes) {
  for (const char* stage : {"1", "2", "3"}) writeStage(stage);
  EXPECT_TRUE(pass().skipped.empty());
  expectTheBill();
  EXPECT_EQ(pass().filesRead, 0u);  // nothing new, and the ledger is never read

  fs::remove_all(dir() / "home"), fs::remove_all(dir() / "run"), fs::remove(dir() / "usage.db");
  for (const char* stage : {"1", "2", "3"}) {
    writeStage(stage);
    testing::killPassesAtRandom([&](IngestOptions o) { pass(std::move(o)); }, *stage, 6, 12);
  }
  pass();
  expectTheBill();
}

// The runtime base the variable or the user's settings name, and the tool's own folder, where
// chats written before a move stay; installed when one exists.
TEST_F(QwenSourceTest, TheVariableOrTheSettingMovesTheChats) {
  fs::create_directories(dir() / "run");
  const auto filled = [&](std::string text) {
    for (size_t at; (at = text.find("{dir}")) != std::string::npos;) text.replace(at, 5, dir());
    return text;
  };
  for (const testing::DataRow& row : testing::namedRows("ingest/qwen-places.tsv")) {
    SCOPED_TRACE(row.name);
    fs::remove_all(dir() / "home");
    if (row.fields[1] != "-") write("home/.qwen/settings.json", filled(row.fields[1]));
    ToolVariables variables;
    if (row.fields[0] != "-") variables["QWEN_RUNTIME_DIR"] = filled(row.fields[0]);
    const ToolLocations tools = ToolLocations::resolve(dir() / "home", variables);
    std::string roots;
    for (const LogFolder& folder : tools.places(ProviderID::qwen).logFolders) {
      roots += fs::relative(folder.root, dir()).string() + " ";
    }
    EXPECT_EQ(roots, row.fields[3]);
    EXPECT_EQ(tools.isPresent(ProviderID::qwen), row.fields[2] == "yes");
  }
}

}  // namespace
}  // namespace brimlog
