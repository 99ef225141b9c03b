#include "ingest/UsageIngestor.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <future>
#include <memory>
#include <system_error>
#include <thread>
#include <unordered_map>

#include "ingest/BoundedQueue.hpp"
#include "ingest/ClaudeLogReader.hpp"
#include "ingest/CodexLogReader.hpp"
#include "ingest/GrokLogReader.hpp"

namespace brimlog {
namespace {

// Joins the workers on every path out of a pass, stopping them first if the pass failed.
class WorkerPool {
 public:
  explicit WorkerPool(BoundedQueue<ReadOutput>& queue) : queue_(queue) {}
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;
  ~WorkerPool() {
    queue_.stop();
    for (std::thread& thread : threads_) thread.join();
  }

  template <typename Body>
  void start(unsigned count, Body body) {
    queue_.addProducers(count);
    for (unsigned i = 0; i < count; ++i) {
      threads_.emplace_back([this, body] {
        body();
        queue_.producerDone();
      });
    }
  }

 private:
  BoundedQueue<ReadOutput>& queue_;
  std::vector<std::thread> threads_;
};

// Runs one job on a worker; a file that cannot be read is reported, not fatal.
void process(const LogReader& reader, const ReadJob& job, Date now, const ReadSink& sink) {
  std::string reason;
  try {
    reader.read(job, now, sink);
    return;
  } catch (const std::system_error& error) {  // filesystem_error included: its own reason
    reason = error.code().message();
  } catch (const std::exception& error) {
    reason = error.what();
  }
  ReadOutput output;
  output.skipped = SkippedFile{job.path, std::move(reason)};
  output.fileDone = true;
  sink(std::move(output));
}

// Gathers outputs into batches and commits each batch with the cursors that produced it.
class Committer {
 public:
  Committer(IngestSink& sink, const IngestOptions& options, IngestResult& result,
            IngestProgress& progress)
      : sink_(sink), options_(options), result_(result), progress_(progress) {}

  void take(ReadOutput output) {
    if (output.skipped) result_.skipped.push_back(std::move(*output.skipped));
    if (output.limits &&
        (!result_.codexLimits || output.limits->fetchedAt > result_.codexLimits->fetchedAt)) {
      result_.codexLimits = std::move(output.limits);
    }
    std::move(output.events.begin(), output.events.end(), std::back_inserter(events_));
    if (output.cursor) {
      // Later chunks of one file supersede its earlier cursors within a batch.
      auto [slot, added] = cursorIndex_.try_emplace(output.cursor->path, cursors_.size());
      if (added) {
        cursors_.push_back(std::move(*output.cursor));
      } else {
        cursors_[slot->second] = std::move(*output.cursor);
      }
    }
    result_.bytesRead += output.bytes;
    result_.linesRead += output.lines;
    progress_.bytesRead += output.bytes;
    if (output.fileRead) ++result_.filesRead;
    if (output.fileDone) ++progress_.filesDone;
    if (events_.size() >= options_.batchEvents || cursors_.size() >= options_.batchFiles) {
      commit();
    } else if (options_.progress) {
      options_.progress(progress_);
    }
  }

  void commit() {
    if (events_.empty() && cursors_.empty()) return;
    const PerProvider<int64_t> added = sink_.commit(events_, cursors_);
    for (ProviderID provider : ProviderID::allCases) {
      result_.newEvents[provider] += added[provider];
      progress_.newEvents += added[provider];
    }
    ++progress_.commits;
    events_.clear();
    cursors_.clear();
    cursorIndex_.clear();
    if (options_.progress) options_.progress(progress_);
  }

 private:
  IngestSink& sink_;
  const IngestOptions& options_;
  IngestResult& result_;
  IngestProgress& progress_;
  std::vector<UsageEvent> events_;
  std::vector<FileCursor> cursors_;
  std::unordered_map<std::string, size_t> cursorIndex_;
};

}  // namespace

int64_t IngestResult::totalNewEvents() const {
  int64_t total = 0;
  for (int64_t count : newEvents) total += count;
  return total;
}

Json IngestResult::toJson() const {
  Json events = Json::object();
  for (ProviderID provider : ProviderID::allCases) {
    events[std::string(provider.rawValue())] = newEvents[provider];
  }
  Json skippedJson = Json::array();
  for (const SkippedFile& file : skipped) {
    skippedJson.push_back({{"path", file.path}, {"reason", file.reason}});
  }
  return {{"filesScanned", filesScanned},    {"filesRead", filesRead}, {"linesRead", linesRead},
          {"bytesRead", bytesRead},          {"newEvents", events},    {"skipped", skippedJson},
          {"elapsedSeconds", elapsedSeconds}};
}

UsageIngestor::UsageIngestor(IngestSink& sink, std::vector<LogFolder> folders,
                             IngestOptions options)
    : sink_(sink), folders_(std::move(folders)), options_(std::move(options)) {}

IngestResult UsageIngestor::run(Date now) {
  const auto started = std::chrono::steady_clock::now();
  IngestResult result;

  PerProvider<std::unique_ptr<LogReader>> readers;
  readers[ProviderID::claude] =
      std::make_unique<ClaudeLogReader>(options_.chunkBytes, options_.pendingGrace);
  readers[ProviderID::codex] = std::make_unique<CodexLogReader>(options_.chunkBytes);
  readers[ProviderID::grok] = std::make_unique<GrokLogReader>();

  // One query for every cursor, made while the folders are walked, and the walk's stat of each
  // file: an unchanged home costs no reads, and its two halves overlap.
  std::future<std::map<std::string, FileCursor>> storedCursors =
      std::async(std::launch::async, [this] { return sink_.storedCursors(); });
  std::vector<FoundFile> files;
  for (const LogFolder& folder : folders_) {
    if (readers[folder.provider]) TreeWalker::walk(folder, files);
  }
  result.filesScanned = files.size();
  std::map<std::string, FileCursor> cursors = storedCursors.get();

  std::vector<ReadJob> jobs;
  int64_t bytesTotal = 0;
  for (const FoundFile& file : files) {
    std::optional<FileCursor> cursor;
    if (auto found = cursors.find(file.path); found != cursors.end()) {
      cursor = std::move(found->second);
    }
    if (auto job = readers[file.provider]->plan(file, std::move(cursor), now)) {
      bytesTotal += job->expectedBytes;
      jobs.push_back(std::move(*job));
    }
  }
  // Largest first, so the workers finish together rather than one of them ending on a big file.
  std::stable_sort(jobs.begin(), jobs.end(), [](const ReadJob& a, const ReadJob& b) {
    return a.expectedBytes > b.expectedBytes;
  });

  IngestProgress progress{0, jobs.size(), 0, bytesTotal, 0};
  if (options_.progress) options_.progress(progress);

  const unsigned hardware = std::max(1U, std::thread::hardware_concurrency());
  const unsigned workers = static_cast<unsigned>(std::min<size_t>(
      options_.workers ? options_.workers : hardware, std::max<size_t>(1, jobs.size())));
  BoundedQueue<ReadOutput> queue{std::max<size_t>(8, 4 * workers)};
  std::atomic<size_t> nextJob{0};
  {
    WorkerPool pool{queue};
    pool.start(workers, [&] {
      const ReadSink sink = [&queue](ReadOutput output) { return queue.push(std::move(output)); };
      for (size_t i = nextJob++; i < jobs.size() && !queue.stopped(); i = nextJob++) {
        process(*readers[jobs[i].provider], jobs[i], now, sink);
      }
    });
    Committer committer{sink_, options_, result, progress};
    while (std::optional<ReadOutput> output = queue.pop()) committer.take(std::move(*output));
    committer.commit();
  }

  if (result.codexLimits) {
    result.codexLimitsStored = sink_.keepIfNewer(ProviderID::codex, *result.codexLimits);
  }
  result.elapsedSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  return result;
}

}  // namespace brimlog
