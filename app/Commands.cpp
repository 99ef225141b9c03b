#include "Commands.hpp"

#include <fmt/format.h>

#include <memory>

#include "ProgressBar.hpp"
#include "TextTable.hpp"
#include "ingest/ProviderLocations.hpp"
#include "ingest/UsageIngestor.hpp"
#include "store/PriceTable.hpp"
#include "store/UsageStore.hpp"
#include "store/UsageSummary.hpp"

namespace brimlog {
namespace {

std::unique_ptr<UsageStore> openStore(const HostSettings& settings) {
  settings.prepareDatabaseDirectory();
  try {
    return std::make_unique<UsageStore>(settings.database);
  } catch (const UsageStoreError& error) {
    throw CommandError("Cannot open the database " + settings.database.string() + ": " +
                       error.message());
  }
}

IngestResult ingest(UsageStore& store, const HostSettings& settings) {
  ProgressBar bar;
  IngestOptions options;
  options.progress = [&bar](const IngestProgress& progress) { bar.update(progress); };
  UsageIngestor ingestor{store, ProviderLocations{settings.home}, settings.calendar, options};
  IngestResult result = ingestor.run(settings.now);
  bar.finish();
  for (const SkippedFile& file : result.skipped) {
    fmt::print(stderr, "brimlog: skipped {}: {}\n", file.path, file.reason);
  }
  return result;
}

std::string plural(int64_t count, const char* one, const char* many) {
  return formatCount(count) + " " + (count == 1 ? one : many);
}

}  // namespace

Commands::Commands(HostSettings settings, std::FILE* out)
    : out_(out), settings_(std::move(settings)) {}

int Commands::sync(const SyncOptions& options) {
  std::unique_ptr<UsageStore> store = openStore(settings_);
  const IngestResult result = ingest(*store, settings_);
  if (options.json) {
    Json json = {{"ingest", result.toJson()}};
    fmt::print(out_, "{}\n", json.dump(2));
    return 0;
  }
  fmt::print(out_, "Read {} from {} in {:.2f} s\n",
             plural(result.totalNewEvents(), "new reply", "new replies"),
             plural(static_cast<int64_t>(result.filesRead), "file", "files"),
             result.elapsedSeconds);
  return 0;
}

int Commands::report(const ReportOptions& options) {
  std::unique_ptr<UsageStore> store = openStore(settings_);
  if (!options.noSync) ingest(*store, settings_);
  const UsageSummary summary =
      store->summary(options.days, settings_.now, settings_.calendar, PriceTable::bundled());
  if (options.json) {
    fmt::print(out_, "{}\n", summary.toJson(DateForm::iso8601).dump(2));
  } else {
    fmt::print(out_, "{}", ReportFormatter::render(summary, options.view, settings_.calendar));
  }
  return 0;
}

}  // namespace brimlog
