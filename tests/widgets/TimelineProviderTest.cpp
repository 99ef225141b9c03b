#include <fmt/format.h>
#include <gtest/gtest.h>

#include "display/SnapshotStore.hpp"
#include "support/TempDir.hpp"
#include "timeline/ProviderChoiceTimelineProvider.hpp"
#include "timeline/SnapshotTimelineProvider.hpp"

namespace brimlog {
namespace {

// The sample is built at 2026-10-29T12:00:00Z; the requests come an hour later.
const Date kNow = Snapshot::placeholder().generatedAt + Seconds{3600};

std::string timeOfDay(Date date) { return formatISO8601(date).substr(11, 8); }

// "date snapshot provider", the snapshot told by the time it was built.
std::string text(const SnapshotEntry& entry) {
  return fmt::format("{} {} {}{}", timeOfDay(entry.date),
                     entry.snapshot ? timeOfDay(entry.snapshot->generatedAt) : "none",
                     entry.provider.rawValue(), entry.isSample ? " sample" : "");
}

std::string text(const Timeline& timeline) {
  std::string result;
  for (const SnapshotEntry& entry : timeline.entries) result += text(entry) + ", ";
  return result + "reload " + timeOfDay(timeline.reloadAt);
}

class TimelineProviderTest : public testing::TempDirTest {
 protected:
  // The sample's providers built `age` seconds ago, Claude's session resetting in 120 s and
  // every other reset more than a day away.
  void publish(double age) const {
    Snapshot snapshot = Snapshot::placeholder();
    snapshot.generatedAt = kNow - Seconds{age};
    snapshot.providers[0].windows[0].resetsAt = kNow + Seconds{120};
    SnapshotStore{dir() / "group"}.write(snapshot);
  }

  int clockReads = 0;
  const std::function<Date()> clock = [this] { return ++clockReads, kNow; };
};

TEST_F(TimelineProviderTest, EntriesAtNowAndAtTheStaleMomentReloadingAtTheShownResets) {
  const SnapshotTimelineProvider all{dir() / "group", clock};
  const ProviderChoiceTimelineProvider one{dir() / "group", clock};
  // No file, or no state folder at all: one empty entry, reloaded in 15 minutes.
  EXPECT_EQ(text(all.timeline()), "13:00:00 none claude, reload 13:15:00");
  EXPECT_EQ(text(SnapshotTimelineProvider(std::nullopt, clock).timeline()), text(all.timeline()));
  EXPECT_EQ(text(one.timeline(ProviderChoice::codex)), "13:00:00 none codex, reload 13:15:00");

  // Ten minutes old: a second entry where it turns stale. Claude's reset in two minutes brings
  // the reload forward for the widgets that show Claude, not for one set to Codex.
  publish(600);
  EXPECT_EQ(text(all.timeline()),
            "13:00:00 12:50:00 claude, 13:20:01 12:50:00 claude, reload 13:02:00");
  EXPECT_EQ(text(one.timeline(ProviderChoice::codex)),
            "13:00:00 12:50:00 codex, 13:20:01 12:50:00 codex, reload 13:15:00");
  EXPECT_EQ(timeOfDay(one.timeline(ProviderChoice::claude).reloadAt), "13:02:00");

  // Forty minutes old, read anew: already stale, one entry.
  publish(2400);
  EXPECT_EQ(text(all.timeline()), "13:00:00 12:20:00 claude, reload 13:02:00");
  EXPECT_EQ(text(one.timeline(ProviderChoice::claude)), text(all.timeline()));
  EXPECT_EQ(clockReads, 10);  // once per request, so each uses one reading throughout
}

TEST_F(TimelineProviderTest, TheSampleStandsInForMissingDataOnlyInTheGallery) {
  const SnapshotTimelineProvider all{dir() / "group", clock};
  const ProviderChoiceTimelineProvider one{dir() / "group", clock};
  // The placeholder is Claude's sample at its own date, whatever the widget shows.
  const SnapshotEntry sample{Snapshot::placeholder().generatedAt, Snapshot::placeholder(),
                             ProviderID::claude, true};
  EXPECT_EQ(all.placeholder(), sample);
  EXPECT_EQ(one.placeholder(), sample);

  // Without a file the gallery gets the sample for the configured provider; a widget on the
  // desktop gets no snapshot, dated now.
  EXPECT_EQ(all.snapshotEntry(true), sample);
  EXPECT_EQ(text(one.snapshotEntry(ProviderChoice::grok, true)), "12:00:00 12:00:00 grok sample");
  EXPECT_EQ(text(all.snapshotEntry(false)), "13:00:00 none claude");

  // With a file both show the user's data, dated now.
  publish(60);
  EXPECT_EQ(text(all.snapshotEntry(true)), "13:00:00 12:59:00 claude");
  EXPECT_EQ(text(one.snapshotEntry(ProviderChoice::grok, true)), "13:00:00 12:59:00 grok");
  EXPECT_EQ(text(one.snapshotEntry(ProviderChoice::grok, false)), "13:00:00 12:59:00 grok");
  EXPECT_EQ(clockReads, 6);  // once per snapshot request, never for a placeholder
}

}  // namespace
}  // namespace brimlog
