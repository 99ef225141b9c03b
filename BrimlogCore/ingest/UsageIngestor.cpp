#include "ingest/UsageIngestor.hpp"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <future>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>

#include "ingest/BoundedQueue.hpp"
#include "ingest/ToolSource.hpp"

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

// One transaction's worth: events and the cursors of the reads that produced them.
struct Batch {
  std::vector<UsageEvent> events;
  std::vector<FileCursor> cursors;
};

// Commits batches on a thread of its own, one at a time, so that reading and gathering the next
// batch go on while the database works. A failed commit is kept and thrown to the caller at its
// next call; the batches after it are not written.
class BatchWriter {
 public:
  explicit BatchWriter(IngestSink& sink) : sink_(sink), thread_([this] { loop(); }) {}
  BatchWriter(const BatchWriter&) = delete;
  BatchWriter& operator=(const BatchWriter&) = delete;
  ~BatchWriter() {
    {
      std::lock_guard lock{mutex_};
      closing_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }

  // Whether a batch handed over now would have to wait for the one before it.
  bool busy() {
    std::lock_guard lock{mutex_};
    return pending_.has_value() || writing_;
  }

  // Hands a batch over, waiting while the one before it is still being written.
  void submit(Batch batch) {
    std::unique_lock lock = idle();
    pending_ = std::move(batch);
    changed_.notify_all();
  }

  // Waits until every batch handed over is written.
  void finish() { idle(); }

  // The new events per provider and the commits made since the last call; a failed commit is
  // thrown here, so the pass stops at once. The batches written meanwhile are freed by the
  // caller: the writer is the pass's busiest thread, and freeing two strings per event is work
  // the gathering thread has time for.
  std::pair<PerProvider<int64_t>, size_t> takeWritten() {
    std::vector<Batch> written;
    std::lock_guard lock{mutex_};
    if (failure_) std::rethrow_exception(failure_);
    written.swap(written_);
    return {std::exchange(added_, {}), std::exchange(commits_, 0)};
  }

 private:
  // The lock, once the writer has nothing left to write; a failed commit is thrown instead.
  std::unique_lock<std::mutex> idle() {
    std::unique_lock lock{mutex_};
    changed_.wait(lock, [&] { return failure_ || (!pending_ && !writing_); });
    if (failure_) std::rethrow_exception(failure_);
    return lock;
  }

  void loop() {
    pthread_setname_np(pthread_self(), "brimlog-writer");  // as `top -H` and profilers show it
    std::unique_lock lock{mutex_};
    for (;;) {
      changed_.wait(lock, [&] { return closing_ || pending_.has_value(); });
      // Closing before `finish`: the pass failed, and what was not written is read again.
      if (closing_ || failure_) return;
      Batch batch = std::move(*pending_);
      pending_.reset();
      writing_ = true;
      lock.unlock();
      PerProvider<int64_t> added;
      std::exception_ptr failure;
      try {
        added = sink_.commit(batch.events, batch.cursors);
      } catch (...) {
        failure = std::current_exception();
      }
      lock.lock();
      written_.push_back(std::move(batch));
      writing_ = false;
      if (failure) {
        failure_ = failure;
      } else {
        for (ProviderID provider : ProviderID::allCases) added_[provider] += added[provider];
        ++commits_;
      }
      changed_.notify_all();
    }
  }

  IngestSink& sink_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::optional<Batch> pending_;
  bool writing_ = false;
  bool closing_ = false;
  std::exception_ptr failure_;
  PerProvider<int64_t> added_;
  size_t commits_ = 0;
  std::vector<Batch> written_;
  std::thread thread_;  // last: it starts once everything it uses is there
};

// Gathers outputs into batches and hands each to the writer with the cursors that produced it.
// A batch goes as soon as it is large enough and the writer is free; while the writer is still
// busy, the batch grows, up to four times its size, so that the workers are never held up by a
// commit.
class Committer {
 public:
  Committer(IngestSink& sink, const IngestOptions& options, IngestResult& result,
            IngestProgress& progress)
      : writer_(sink), options_(options), result_(result), progress_(progress) {}

  void take(ReadOutput output) {
    if (output.skipped) result_.skipped.push_back(std::move(*output.skipped));
    std::move(output.limitChanges.begin(), output.limitChanges.end(),
              std::back_inserter(result_.codexReadings));
    if (output.limits &&
        (!result_.codexLimits || output.limits->fetchedAt > result_.codexLimits->fetchedAt)) {
      result_.codexLimits = std::move(output.limits);
    }
    std::move(output.events.begin(), output.events.end(), std::back_inserter(batch_.events));
    if (output.cursor) {
      // Later chunks of one file supersede its earlier cursors within a batch.
      auto [slot, added] = cursorIndex_.try_emplace(output.cursor->path, batch_.cursors.size());
      if (added) {
        batch_.cursors.push_back(std::move(*output.cursor));
      } else {
        batch_.cursors[slot->second] = std::move(*output.cursor);
      }
    }
    result_.bytesRead += output.bytes;
    result_.linesRead += output.lines;
    progress_.bytesRead += output.bytes;
    if (output.fileRead) ++result_.filesRead;
    if (output.fileDone) ++progress_.filesDone;
    const size_t events = batch_.events.size(), files = batch_.cursors.size();
    const bool full = events >= options_.batchEvents || files >= options_.batchFiles;
    const bool overfull = events >= 4 * options_.batchEvents || files >= 4 * options_.batchFiles;
    if (overfull || (full && !writer_.busy())) submit();
    count();
  }

  // Writes what is left and waits for it.
  void finish() {
    submit();
    writer_.finish();
    count();
  }

 private:
  void submit() {
    if (batch_.events.empty() && batch_.cursors.empty()) return;
    writer_.submit(std::exchange(batch_, {}));
    cursorIndex_.clear();
  }

  void count() {
    const auto [added, commits] = writer_.takeWritten();
    for (ProviderID provider : ProviderID::allCases) {
      result_.newEvents[provider] += added[provider];
      progress_.newEvents += added[provider];
    }
    progress_.commits += commits;
    if (options_.progress) options_.progress(progress_);
  }

  BatchWriter writer_;
  const IngestOptions& options_;
  IngestResult& result_;
  IngestProgress& progress_;
  Batch batch_;
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
  for (ProviderID provider : ProviderID::readableCases) {
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
  for (const ToolSource& tool : ToolSource::all()) readers[tool.provider] = tool.reader(options_);

  // One query for every cursor, made while the folders are walked, and the walk's stat of each
  // file: an unchanged home costs no reads, and its two halves overlap.
  std::future<std::map<std::string, FileCursor>> storedCursors =
      std::async(std::launch::async, [this] { return sink_.storedCursors(); });
  std::vector<FoundFile> files;
  for (const LogFolder& folder : folders_) {
    if (readers[folder.provider]) TreeWalker::walk(folder, files, result.skipped);
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
      pthread_setname_np(pthread_self(), "brimlog-reader");
      const ReadSink sink = [&queue](ReadOutput output) { return queue.push(std::move(output)); };
      for (size_t i = nextJob++; i < jobs.size() && !queue.stopped(); i = nextJob++) {
        process(*readers[jobs[i].provider], jobs[i], now, sink);
      }
    });
    Committer committer{sink_, options_, result, progress};
    while (std::optional<ReadOutput> output = queue.pop()) committer.take(std::move(*output));
    committer.finish();
  }

  if (!result.codexReadings.empty()) sink_.keepReadings(ProviderID::codex, result.codexReadings);
  if (result.codexLimits) {
    result.codexLimitsStored = sink_.keepIfNewer(ProviderID::codex, *result.codexLimits);
  }
  result.elapsedSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  return result;
}

}  // namespace brimlog
