#include "ingest/opencode/OpenCodeDatabaseScan.hpp"

#include <exception>
#include <future>
#include <limits>
#include <thread>
#include <unordered_map>

#include "ingest/opencode/OpenCodeDatabase.hpp"
#include "ingest/opencode/OpenCodeMessageParser.hpp"

namespace brimlog {
namespace {

constexpr int64_t kFirst = std::numeric_limits<int64_t>::min();
constexpr int64_t kLast = std::numeric_limits<int64_t>::max();

// Events handed to the pass at a time, so that their commits go on while the rest is read and a
// first read of years of history does not hold every reply in memory. They are committed without
// a cursor: a pass stopped after them reads the database again, and the store counts each reply
// once.
constexpr size_t kEventsPerOutput = 1'000;

using StepsByMessage = std::unordered_map<std::string, OpenCodeMessageParser::Steps>;

void addSteps(OpenCodeDatabase& database, int64_t first, int64_t last, StepsByMessage& steps) {
  database.partsInRows(first, last, [&](std::string_view message, std::string_view part) {
    if (auto step = OpenCodeMessageParser::step(part)) steps[std::string(message)] += *step;
  });
}

// Turns the messages of one range into events, handing them over as they gather. `steps` holds
// every part's steps on a first read; otherwise each message's parts are looked up.
class MessageRange {
 public:
  MessageRange(const ReadJob& job, const ReadSink& sink, std::atomic<bool>& stopped)
      : job_(job), sink_(sink), stopped_(stopped) {}

  void read(OpenCodeDatabase& database, int64_t since, int64_t partsAfter, int64_t first,
            int64_t last, const StepsByMessage* steps) {
    database.messagesUpdatedSince(
        since, partsAfter, first, last, [&](const OpenCodeDatabase::Message& m) {
          if (stopped_) return;
          mark = std::max(mark, m.timeUpdated);
          ++output.lines;
          if (!parser_.message(m.data)) return;
          const std::string id(m.id);
          if (steps) {
            if (const auto found = steps->find(id); found != steps->end()) {
              parser_.addSteps(found->second);
            }
          } else {
            database.parts(id, [&](std::string_view part) { parser_.part(part); });
          }
          // Older messages name no working folder: the session's folder stands for it.
          std::string_view project = parser_.workingFolder();
          if (project.empty()) {
            auto [found, added] = directories_.try_emplace(std::string(m.sessionID));
            if (added) found->second = database.sessionDirectory(m.sessionID);
            project = found->second;
          }
          if (auto event = parser_.event(job_.provider, m.sessionID, project)) {
            output.events.push_back(std::move(*event));
          }
          if (output.events.size() >= kEventsPerOutput && !sink_(std::exchange(output, {}))) {
            stopped_ = true;
          }
        });
  }

  ReadOutput output;
  int64_t mark = kFirst;

 private:
  const ReadJob& job_;
  const ReadSink& sink_;
  std::atomic<bool>& stopped_;
  OpenCodeMessageParser parser_;
  std::unordered_map<std::string, std::string> directories_;  // by session
};

}  // namespace

bool OpenCodeDatabaseScan::run(int64_t since, ReadOutput& rest, int64_t& mark, int64_t& lastPart) {
  OpenCodeDatabase database{job_.path};
  bool read = true;
  database.read([&] {
    if (!database.holdsMessages()) return;
    const int64_t partsAfter = lastPart;
    lastPart = std::max(lastPart, database.lastRow("part"));
    if (since == kFirst) {
      read = wholeRead(database, rest, mark);
      return;
    }
    MessageRange range{job_, sink_, stopped_};
    range.read(database, since, partsAfter, kFirst, kLast, nullptr);
    rest = std::move(range.output);
    mark = std::max(mark, range.mark);
  });
  return read && !stopped_;
}

bool OpenCodeDatabaseScan::wholeRead(OpenCodeDatabase& database, ReadOutput& rest, int64_t& mark) {
  const int64_t partHalf = database.lastRow("part") / 2;
  const int64_t messageHalf = database.lastRow("message") / 2;
  StepsByMessage steps;
  std::promise<StepsByMessage> upperSteps;  // from the helper
  std::future<StepsByMessage> upperStepsDone = upperSteps.get_future();
  std::promise<void> merged;  // to the helper: `steps` holds every part's
  std::shared_future<void> mergedDone = merged.get_future().share();
  MessageRange lower{job_, sink_, stopped_}, upper{job_, sink_, stopped_};
  std::exception_ptr failure;

  std::thread helper{[&] {
    try {
      OpenCodeDatabase second{job_.path};
      second.read([&] {
        StepsByMessage found;
        addSteps(second, partHalf + 1, kLast, found);
        upperSteps.set_value(std::move(found));
        mergedDone.get();
        upper.read(second, kFirst, kLast, messageHalf + 1, kLast, &steps);
      });
    } catch (...) {
      failure = std::current_exception();
      try {
        upperSteps.set_exception(failure);
      } catch (const std::future_error&) {  // already set: the failure came later
      }
    }
  }};
  try {
    addSteps(database, kFirst, partHalf, steps);
    for (const auto& [message, sums] : upperStepsDone.get()) steps[message] += sums;
    merged.set_value();
    lower.read(database, kFirst, kLast, kFirst, messageHalf, &steps);
  } catch (...) {
    stopped_ = true;
    try {
      merged.set_exception(std::current_exception());
    } catch (const std::future_error&) {  // already set: the helper is reading its messages
    }
    helper.join();
    throw;
  }
  helper.join();
  if (failure) std::rethrow_exception(failure);

  mark = std::max({mark, lower.mark, upper.mark});
  if (!upper.output.events.empty() && !stopped_ && !sink_(std::move(upper.output))) {
    stopped_ = true;
  }
  rest = std::move(lower.output);
  return !stopped_;
}

}  // namespace brimlog
