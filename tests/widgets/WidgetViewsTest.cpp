// The widgets' view trees, read as trees: which views, texts, timers and opacities they hold.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "server/WidgetPage.hpp"
#include "support/ExpectedFile.hpp"
#include "timeline/BrimlogWidgets.hpp"
#include "views/LevelColor.hpp"
#include "views/Sparkline.hpp"
#include "views/WidgetViews.hpp"
#include "views/WindowViews.hpp"

namespace brimlog {
namespace {

using ::testing::Contains;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ui::View;

const Date kNow = *parseISO8601("2026-10-29T12:00:00Z");

SnapshotEntry entryOf(std::optional<Snapshot> snapshot, ProviderID provider = ProviderID::claude,
                      bool isSample = false, Date date = kNow) {
  return SnapshotEntry{date, std::move(snapshot), provider, isSample};
}

LimitWindow windowResettingIn(double seconds, LimitSource source = LimitSource::live()) {
  return LimitWindow{"session", "Session", 0.4, 18000.0, kNow + Seconds{seconds}, source};
}

const View* withRole(const View& tree, std::string_view role) {
  return tree.find([&](const View& view) { return view.modifiers.role == role; });
}

// A small tile keeps its tool's name and says why it shows no window: no usage, a tool not read
// here, or no live limits (with what it cost); only a missing snapshot asks to open Brimlog (the
// browser test sees every size say so). An old snapshot shows the badge and its age. (When a
// snapshot turns stale is WidgetDisplayTest's.)
TEST(WidgetViewsTest, ASmallTileSaysWhyItShowsNoWindowAndHowOldItIs) {
  const Snapshot& sample = Snapshot::placeholder();  // Grok: unavailable, no windows, $6.80
  Snapshot withoutGrok = sample;
  std::erase_if(withoutGrok.providers,
                [](const Snapshot::Provider& p) { return p.id == ProviderID::grok; });
  const auto texts = [](const Snapshot& snapshot, ProviderID provider) {
    return SmallWidgetView{entryOf(snapshot, provider)}.body().texts();
  };
  EXPECT_THAT(texts(withoutGrok, ProviderID::grok), IsSupersetOf({"Grok", "No usage in 30 days"}));
  EXPECT_THAT(texts(withoutGrok, ProviderID::cursor),
              IsSupersetOf({"Cursor", "Not read on this system"}));
  EXPECT_THAT(texts(sample, ProviderID::grok), IsSupersetOf({"No live limits", "30 days $6.80"}));
  EXPECT_THAT(texts(sample, ProviderID::grok), Not(Contains("Open Brimlog to start")));

  const Date later = sample.generatedAt + Seconds{31 * 60};
  const View stale = SmallWidgetView{entryOf(sample, ProviderID::claude, false, later)}.body();
  EXPECT_NE(withRole(stale, "stale-badge"), nullptr);
  EXPECT_THAT(stale.texts(), Contains("Updated 31 min. ago"));
}

// Every size says what is left in the same words (the large widget's are in its sample, below).
TEST(WidgetViewsTest, TheMediumWidgetSaysWhatIsLeftAsTheSmallOneDoes) {
  const std::vector<std::string> small =
      SmallWidgetView{SnapshotEntry::placeholder()}.body().texts();
  const std::vector<std::string> medium =
      MediumWidgetView{SnapshotEntry::placeholder()}.body().texts();
  EXPECT_EQ(std::ranges::count(small, "left"), 2);   // Claude's two windows
  EXPECT_EQ(std::ranges::count(medium, "left"), 3);  // and Codex's one
}

TEST(WidgetViewsTest, CountdownsRunOnlyInLiveEntriesAndWithinADay) {
  // Why, the reset's distance, whether the entry is live, whether a timer shows, and its text.
  const std::tuple<const char*, double, bool, bool, const char*> rows[] = {
      {"3 hours, live", 3 * 3600, true, true, "3:00:00"},
      {"3 hours, sample", 3 * 3600, false, false, "3h 0m"},
      {"2 days, live", 2 * 86400, true, false, "2d 0h"},
      {"passed", -60, true, false, "now"},
  };
  for (const auto& [why, resetIn, live, timer, text] : rows) {
    const View countdown = ResetCountdown{kNow + Seconds{resetIn}, kNow, live}.body();
    EXPECT_EQ(countdown.kind == View::Kind::timer, timer) << why;
    EXPECT_THAT(countdown.texts(), Contains(text)) << why;
  }
  // A sample entry of a whole widget never holds a timer.
  Snapshot snapshot = Snapshot::placeholder();
  snapshot.providers[0].windows[0] = windowResettingIn(3 * 3600);
  EXPECT_EQ(withRole(MediumWidgetView{entryOf(snapshot, ProviderID::claude, true)}.body(), "timer"),
            nullptr);
  EXPECT_NE(withRole(MediumWidgetView{entryOf(snapshot)}.body(), "timer"), nullptr);
}

TEST(WidgetViewsTest, AWindowKeptFromAnEarlierAnswerIsFadedWithItsTextsUnchanged) {
  const LimitWindow fresh = windowResettingIn(86400 * 2);
  const LimitWindow stale = windowResettingIn(86400 * 2, LimitSource::stale(kNow - Seconds{600}));
  const Color accent = ProviderID(ProviderID::claude).accent();
  for (bool small : {false, true}) {
    const View faded = small ? SmallWindowView{stale, accent, kNow, true, {}}.body()
                             : CompactWindowView{stale, accent, kNow, true, {}}.body();
    const View full = small ? SmallWindowView{fresh, accent, kNow, true, {}}.body()
                            : CompactWindowView{fresh, accent, kNow, true, {}}.body();
    EXPECT_EQ(faded.modifiers.opacity, 0.6);
    EXPECT_EQ(full.modifiers.opacity, 1);
    EXPECT_EQ(faded.texts(), full.texts());
  }
}

TEST(WidgetViewsTest, ASparklineSpansTheHeightFromItsPeakToZero) {
  const double width = 300, height = 60;
  auto ys = [&](const std::vector<double>& values) {
    const View line = Sparkline{values}.body();
    std::vector<double> resolved;
    if (line.shapes.size() != 2) return resolved;
    for (const auto& [x, y] : line.shapes[1].points) resolved.push_back(y.resolve(height));
    EXPECT_EQ(line.shapes[1].points.back().first.resolve(width), width);
    return resolved;
  };
  EXPECT_EQ(ys(std::vector<double>(30, 0.0)), std::vector<double>(30, height - 1));  // peak 0.01
  EXPECT_TRUE(ys({4.2}).empty());  // nothing drawn
  EXPECT_EQ(ys({0, 5, 10, -3}), (std::vector<double>{height - 1, 30, 1, height - 1}));
}

TEST(WidgetViewsTest, ABarAfterItsResetIsFullWithoutAMarker) {
  // The shapes of the bar of a weekly window `used` of `duration` seconds, resetting in `resetIn`.
  const auto bar = [](double used, double duration, double resetIn) {
    const LimitWindow window{"weekly",           "Weekly", used, duration, kNow + Seconds{resetIn},
                             LimitSource::live()};
    const View view = CompactWindowView{window, Color::primaryText(), kNow, true, {}}.body();
    const View* canvas =
        view.find([](const View& node) { return node.kind == View::Kind::canvas; });
    return canvas ? canvas->shapes : std::vector<ui::Shape>{};
  };
  const std::vector<ui::Shape> passed = bar(0.9, 604800, -1);
  ASSERT_EQ(passed.size(), 2u);  // track and fill, no pace marker
  EXPECT_EQ(passed[1].width, (ui::Length{1, 0}));

  // Mid-window the marker sits at the time left, kept inside the bar.
  const std::vector<ui::Shape> half = bar(0.5, 1000, 1);
  ASSERT_EQ(half.size(), 3u);
  EXPECT_EQ(half[2].x.resolve(100), 0);  // 0.1 - 0.75 clamped at the leading edge
}

// In both sizes the bar's fill and the share left take the level's colour (amber from 80% used,
// red from 95%) and are the tool's and the text's below; figures read before the last refresh
// say how old they are; a passed reset says when it was, and the bar is back to normal.
TEST(WidgetViewsTest, AWindowShowsItsLevelTheAgeOfItsFiguresAndAPassedReset) {
  const Color accent = ProviderID(ProviderID::claude).accent();
  // Why, the share used, when the figures were read and the reset (from now), the level, and a
  // text shown once.
  const std::tuple<const char*, double, double, double, LimitLevel, const char*> rows[] = {
      {"79%, read 2 min ago", 0.79, -120, 86400, LimitLevel::normal, "1d 0h"},
      {"80%, read 3 h ago", 0.80, -3 * 3600, 86400, LimitLevel::warning, "as of 3 h ago"},
      {"95%", 0.95, -60, 86400, LimitLevel::critical, "5%"},
      {"95%, reset 20 h ago", 0.95, -60, -20 * 3600, LimitLevel::normal, "reset 20 h ago"},
  };
  for (const auto& [why, used, readIn, resetIn, level, text] : rows) {
    const LimitWindow window{"weekly",           "Weekly", used, 604800.0, kNow + Seconds{resetIn},
                             LimitSource::live()};
    const std::optional<Date> readAt = kNow + Seconds{readIn};
    for (bool small : {false, true}) {
      const View view = small ? SmallWindowView{window, accent, kNow, false, readAt}.body()
                              : CompactWindowView{window, accent, kNow, false, readAt}.body();
      const std::string figure = LimitBarModel{window, kNow}.percentLeftText;
      const View* shown = view.find([&](const View& node) { return node.text == figure; });
      const View* canvas =
          view.find([](const View& node) { return node.kind == View::Kind::canvas; });
      ASSERT_TRUE(shown && canvas) << why;
      EXPECT_EQ(canvas->shapes[1].color, levelColor(level, accent)) << why;
      EXPECT_EQ(shown->modifiers.foreground.value_or(Color::primaryText()),
                levelColor(level, Color::primaryText()))
          << why;
      EXPECT_EQ(std::ranges::count(view.texts(), text), 1) << why << small;
      EXPECT_EQ(std::ranges::count(view.texts(), "as of 2 min ago"), 0) << why;
    }
  }
}

// The sample's large widget, whole, as the server sends it: a lone window (Codex) keeps the width
// of one of two beside a filler, Claude's two charts, the cost line, the sparkline's area closed
// along the bottom.
TEST(WidgetViewsTest, TheSampleLargeWidgetRendersAsExpected) {
  const SnapshotEntry sample = SnapshotEntry::placeholder();
  const Timeline timeline{{sample}, sample.date + Seconds{900}};
  // The forecasts' days and times are the current calendar's: UTC here, whatever the machine's.
  const Calendar before = Calendar::current();
  Calendar::setCurrent(Calendar::utc());
  const std::string html =
      WidgetPage::widget(BrimlogWidgets::largeWidget, timeline, ProviderID::claude, sample.date);
  Calendar::setCurrent(before);
  // One element a line, so that a change reads as a change of lines.
  std::string lines;
  for (size_t i = 0; i < html.size(); ++i) {
    lines.push_back(html[i]);
    if (html[i] == '>' && i + 1 < html.size() && html[i + 1] == '<') lines.push_back('\n');
  }
  EXPECT_TRUE(testing::matchesExpectedFile("widget-large-sample.html", lines + "\n"));
}

}  // namespace
}  // namespace brimlog
