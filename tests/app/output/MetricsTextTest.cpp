// The exposition text against tests/expected/metrics.txt, and what Prometheus' own checker makes
// of it.

#include <gtest/gtest.h>

#include <cstdlib>

#include "output/MetricsText.hpp"
#include "support/ExpectedFile.hpp"
#include "support/RunningProgram.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

// Two tools, a model whose name needs every escape, one without a price, limits with and
// without a reset and a forecast, and a pass that skipped a file.
MetricsFigures sample() {
  MetricsFigures figures;
  figures.startTime = *parseISO8601("2026-11-20T08:00:00Z");
  figures.usage = {
      {ProviderID::claude, "claude-sonnet-4-5", {1000, 20000, 300, 40, 2000, 0}, 0.1234},
      {ProviderID::codex, "gpt-5-codex", {500, 0, 0, 0, 700, 120}, 0.0075},
      {ProviderID::codex, "odd \"model\"\\ name\nline two", {1, 2, 3, 4, 5, 6}, std::nullopt},
  };
  figures.limits = {
      {ProviderID::claude, "five_hour", 0.42, *parseISO8601("2026-11-20T13:00:00Z"),
       *parseISO8601("2026-11-20T12:30:00Z")},
      {ProviderID::claude, "seven_day", 0.9, *parseISO8601("2026-11-25T00:00:00Z"), std::nullopt},
      {ProviderID::codex, "weekly", 0, std::nullopt, std::nullopt},
  };
  figures.passSeconds = 0.25;
  figures.passSkippedFiles = 1;
  figures.passes = 12;
  figures.lastPass = *parseISO8601("2026-11-20T09:15:30Z");
  return figures;
}

TEST(MetricsTextTest, RendersEveryFamilyWithEscapedLabels) {
  EXPECT_TRUE(testing::matchesExpectedFile("metrics.txt", MetricsText::render(sample())));
}

// Quotes, backslashes and line ends are the expected file's; tabs and other text stay, and an
// escape already in a name is escaped again.
TEST(MetricsTextTest, EscapesWhatTheFormatAsksAndNothingElse) {
  EXPECT_EQ(MetricsText::escapeLabel("a\tb \xC3\xA9"), "a\tb \xC3\xA9");
  EXPECT_EQ(MetricsText::escapeLabel("\\n"), "\\\\n");
}

// Before the first pass: every family declared, no figures of a pass, the daemon up.
TEST(MetricsTextTest, AStartedDaemonWithoutAPassIsUpWithNoPassFigures) {
  const std::string text = MetricsText::render(MetricsFigures{});
  EXPECT_NE(text.find("# TYPE brimlog_pass_duration_seconds gauge\n"), std::string::npos);
  EXPECT_EQ(text.find("\nbrimlog_pass_duration_seconds "), std::string::npos);
  EXPECT_NE(text.find("\nbrimlog_up 1\n"), std::string::npos);
}

class PromtoolTest : public testing::TempDirTest {};

TEST_F(PromtoolTest, PrometheusChecksTheTextAsValid) {
  if (std::system("command -v promtool >/dev/null 2>&1") != 0) {
    GTEST_SKIP() << "promtool is not installed (Debian's prometheus package; "
                    "scripts/install-deps installs it)";
  }
  for (const MetricsFigures& figures : {sample(), MetricsFigures{}}) {
    const std::filesystem::path file = write("metrics.txt", MetricsText::render(figures));
    const testing::RunningProgram::Result checked = testing::RunningProgram::run(
        {"/bin/sh", "-c",
         "exec promtool check metrics < " + testing::shellQuoted(file.string()) + " 2>&1"});
    EXPECT_EQ(checked.exitStatus, 0) << checked.output;
  }
}

}  // namespace
}  // namespace brimlog
