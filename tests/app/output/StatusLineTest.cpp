#include <gtest/gtest.h>

#include "display/SnapshotStore.hpp"
#include "output/StatusLine.hpp"
#include "support/ExpectedFile.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

const Date kNow = *parseISO8601("2026-10-29T12:00:00Z");

LimitWindow window(const char* id, double used, double duration, double resetIn) {
  const std::string label = id == std::string("session") ? "Session" : "Weekly";
  return LimitWindow{id, label, used, duration, kNow + Seconds{resetIn}, LimitSource::live()};
}

Snapshot::Provider provider(ProviderID id, std::vector<LimitWindow> windows,
                            bool approximate = false) {
  const ProviderStatus status = windows.empty() ? ProviderStatus::unavailable : ProviderStatus::ok;
  return {id,   std::nullopt, std::move(windows), std::nullopt, status,
          1000, 2.5,          approximate,        {},           {}};
}

Snapshot snapshot(std::vector<Snapshot::Provider> providers, double today) {
  return Snapshot{kNow, std::move(providers), today, 120.5, std::vector<double>(30, 1.0)};
}

// A provider whose first window is forecast to run out `hours` from now.
Snapshot::Provider runningOut(Snapshot::Provider provider, double hours) {
  provider.forecasts = {
      {provider.windows.front().id, kNow, 0.03, kNow + Seconds{hours * 3600}, {}}};
  return provider;
}

struct Row {
  const char* name;
  std::optional<Snapshot> snapshot;
  double age = 0;  // seconds from the snapshot to now
  std::optional<ProviderID> provider = std::nullopt;
};

// Every format over the same snapshots, each written to a state folder and read back as the
// command reads it; one expected file per format, a row per snapshot.
class StatusLineTest : public testing::TempDirTest {};

TEST_F(StatusLineTest, DrawsEachFormatAsExpected) {
  const Row rows[] = {
      {"no limits", snapshot({provider(ProviderID::grok, {})}, 1.2)},
      {"one window",
       snapshot({provider(ProviderID::claude, {window("session", 0.4, 18000, 11520)})}, 8.85)},
      {"several tools", Snapshot::placeholder()},
      {"several tools, codex asked", Snapshot::placeholder(), 0, ProviderID::codex},
      {"grok asked, absent",
       snapshot({provider(ProviderID::claude, {window("session", 0.4, 18000, 11520)})}, 8.85), 0,
       ProviderID::grok},
      {"nearly used",
       snapshot({provider(ProviderID::claude, {window("weekly", 0.85, 604800, 86400)})}, 40)},
      {"runs out today",
       snapshot(
           {runningOut(provider(ProviderID::claude, {window("weekly", 0.85, 604800, 86400)}), 5)},
           40)},
      {"used-up window",
       snapshot({provider(ProviderID::claude, {window("weekly", 0.3, 604800, 300000)}),
                 provider(ProviderID::codex, {window("session", 1, 18000, 2820)})},
                0.004)},
      {"stale snapshot", Snapshot::placeholder(), 7200},
      {"approximate cost",
       snapshot({provider(ProviderID::claude, {window("session", 0.1, 18000, 600)}),
                 provider(ProviderID::grok, {}, true)},
                3.1)},
      {"no snapshot", std::nullopt},
  };
  const std::optional<ClaudeCodeStatus> input = ClaudeCodeStatus::parse(
      testing::readFile(testing::dataPath("app/claude-code-status.json")), kNow);
  const SnapshotStore store{dir() / "shared"};
  for (const auto& [format, file] : {std::pair{StatusLine::Format::plain, "line-plain.txt"},
                                     {StatusLine::Format::claudeCode, "line-claude-code.txt"},
                                     {StatusLine::Format::tmux, "line-tmux.txt"},
                                     {StatusLine::Format::waybar, "line-waybar.txt"},
                                     {StatusLine::Format::polybar, "line-polybar.txt"}}) {
    std::string table;
    for (const Row& row : rows) {
      std::filesystem::remove(store.file());
      if (row.snapshot) store.write(*row.snapshot);
      const StatusLine line{format, row.provider};
      table +=
          std::string(row.name) + ": " +
          line.render(store.read(),
                      row.snapshot ? row.snapshot->generatedAt + Seconds{row.age} : kNow, input);
    }
    if (format == StatusLine::Format::claudeCode) {
      table += "no colour, no input: " +
               StatusLine{format, std::nullopt, false}.render(Snapshot::placeholder(), kNow);
    }
    EXPECT_TRUE(testing::matchesExpectedFile(file, table)) << file;
  }
}

}  // namespace
}  // namespace brimlog
