#include "ingest/UsageIngestor.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <exception>
#include <future>
#include <limits>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <variant>

#include "ingest/ClaudeLogParser.hpp"
#include "ingest/CodexLogParser.hpp"
#include "ingest/GrokUsageParser.hpp"
#include "ingest/JSONLTail.hpp"
#include "platform/FileDescriptor.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

// Context keys this driver keeps beside the parsers' own.
constexpr const char* kProviderKey = "provider";
constexpr const char* kPendingKey = "pending";            // Claude: the reply that may still grow
constexpr const char* kTotalKey = "total";                // Codex: last cumulative token total
constexpr const char* kUsageRecordsKey = "usageRecords";  // Codex: the file has usage records
constexpr const char* kLastTurnKey = "lastTurn";          // Grok: turns counted so far
constexpr const char* kSizeKey = "size";                  // Grok: size at the last read
constexpr const char* kMtimeKey = "mtime";                // Grok: modification time (ns)

std::optional<int64_t> integerEntry(const std::map<std::string, std::string>& context,
                                    const std::string& key) {
  auto found = context.find(key);
  if (found == context.end()) return std::nullopt;
  int64_t value = 0;
  const std::string& text = found->second;
  auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// The pending reply travels in the cursor as a small JSON object of its own; nothing else reads
// it, and one that no longer decodes is dropped like any other damaged context.
std::string encodePending(const UsageEvent& event) {
  Json json = {{"model", event.model},
               {"session", event.sessionID},
               {"key", event.dedupKey},
               {"time", unixSeconds(event.timestamp)},
               {"tokens", event.tokens.toJson()}};
  if (event.reportedCostUSD) json["cost"] = *event.reportedCostUSD;
  return json.dump();
}

std::optional<UsageEvent> decodePending(const std::string& text) {
  try {
    const Json json = Json::parse(text);
    UsageEvent event;
    event.provider = ProviderID::claude;
    event.model = json.at("model").get<std::string>();
    event.sessionID = json.at("session").get<std::string>();
    event.dedupKey = json.at("key").get<std::string>();
    event.timestamp = dateFromUnixSeconds(json.at("time").get<double>());
    event.tokens = TokenCounts::fromJson(json.at("tokens"));
    if (json.contains("cost")) event.reportedCostUSD = json.at("cost").get<double>();
    return event;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

int64_t mtimeNanoseconds(const struct stat& status) {
  return static_cast<int64_t>(status.st_mtim.tv_sec) * 1'000'000'000 + status.st_mtim.tv_nsec;
}

enum class JobKind { readLines, readDocument, flushPending };

struct Job {
  std::string path;  // a plain string: a pass holds thousands and compares them with cursors
  ProviderID provider = ProviderID::claude;
  JobKind kind = JobKind::readLines;
  std::optional<FileCursor> cursor;
  int64_t expectedBytes = 0;
};

// What a worker hands the writer: the events of one file or chunk and the cursor to store with
// them.
struct Output {
  std::vector<UsageEvent> events;
  std::optional<FileCursor> cursor;
  std::optional<ProviderLimits> codexLimits;
  std::optional<SkippedFile> skipped;
  int64_t bytes = 0;
  int64_t lines = 0;
  bool fileDone = false;
  bool fileRead = false;
};

// A bounded hand-over from the workers to the writer, so parsing cannot run arbitrarily far
// ahead of SQLite and memory stays flat on a cold pass.
class OutputQueue {
 public:
  explicit OutputQueue(size_t capacity) : capacity_(capacity) {}

  // False when the pass was stopped; the output is then dropped.
  bool push(Output output) {
    std::unique_lock lock{mutex_};
    notFull_.wait(lock, [&] { return stopped_ || items_.size() < capacity_; });
    if (stopped_) return false;
    items_.push_back(std::move(output));
    notEmpty_.notify_one();
    return true;
  }

  // Nothing once every producer has finished and the queue is drained.
  std::optional<Output> pop() {
    std::unique_lock lock{mutex_};
    notEmpty_.wait(lock, [&] { return !items_.empty() || producers_ == 0; });
    if (items_.empty()) return std::nullopt;
    Output output = std::move(items_.front());
    items_.pop_front();
    notFull_.notify_one();
    return output;
  }

  void addProducers(size_t count) {
    std::lock_guard lock{mutex_};
    producers_ += count;
  }

  void producerDone() {
    std::lock_guard lock{mutex_};
    --producers_;
    notEmpty_.notify_all();
  }

  void stop() {
    std::lock_guard lock{mutex_};
    stopped_ = true;
    notFull_.notify_all();
  }

  bool stopped() {
    std::lock_guard lock{mutex_};
    return stopped_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable notFull_;
  std::condition_variable notEmpty_;
  std::deque<Output> items_;
  size_t capacity_;
  size_t producers_ = 0;
  bool stopped_ = false;
};

// Turns one file into outputs. Runs on a worker thread; owns nothing shared.
class FileReader {
 public:
  FileReader(const IngestOptions& options, Date now, OutputQueue& queue)
      : options_(options), now_(now), queue_(queue) {}

  void process(const Job& job) {
    try {
      switch (job.kind) {
        case JobKind::flushPending:
          flushPending(job);
          break;
        case JobKind::readDocument:
          readGrok(job);
          break;
        case JobKind::readLines:
          if (job.provider == ProviderID::codex) {
            readCodex(job);
          } else {
            readClaude(job);
          }
          break;
      }
    } catch (const fs::filesystem_error& error) {
      skip(job, error.code().message());
    } catch (const std::system_error& error) {
      skip(job, error.code().message());
    } catch (const std::exception& error) {
      skip(job, error.what());
    }
  }

 private:
  void skip(const Job& job, std::string reason) {
    Output output;
    output.skipped = SkippedFile{job.path, std::move(reason)};
    output.fileDone = true;
    queue_.push(std::move(output));
  }

  bool isOld(const UsageEvent& event) const {
    return unixSeconds(event.timestamp) < unixSeconds(now_) - options_.pendingGrace;
  }

  void flushPending(const Job& job) {
    FileCursor cursor = *job.cursor;
    Output output;
    if (auto pending = decodePending(cursor.context[kPendingKey])) {
      output.events.push_back(std::move(*pending));
    }
    cursor.context.erase(kPendingKey);
    output.cursor = std::move(cursor);
    output.fileDone = true;
    queue_.push(std::move(output));
  }

  void readClaude(const Job& job) {
    std::optional<FileCursor> cursor = job.cursor;
    std::optional<UsageEvent> pending;
    if (cursor) {
      auto found = cursor->context.find(kPendingKey);
      if (found != cursor->context.end()) pending = decodePending(found->second);
    }
    for (bool atEOF = false; !atEOF;) {
      JSONLTail::Result read = JSONLTail::read(job.path, cursor, options_.chunkBytes);
      if (read.reset) pending.reset();  // the reply belonged to the file that is gone
      Output output;
      for (PaddedLine line : read.lines) {
        std::optional<UsageEvent> event = ClaudeLogParser::event(line);
        if (!event) continue;
        if (pending && pending->dedupKey != event->dedupKey) {
          output.events.push_back(std::move(*pending));
        }
        pending = std::move(event);
      }
      atEOF = read.atEOF;
      if (atEOF && pending && isOld(*pending)) {
        output.events.push_back(std::move(*pending));
        pending.reset();
      }
      read.cursor.context[kProviderKey] = "claude";
      if (pending) {
        read.cursor.context[kPendingKey] = encodePending(*pending);
      } else {
        read.cursor.context.erase(kPendingKey);
      }
      output.bytes = static_cast<int64_t>(read.lines.byteCount());
      output.lines = static_cast<int64_t>(read.lines.size());
      output.fileDone = atEOF;
      output.fileRead = atEOF;
      cursor = read.cursor;
      output.cursor = std::move(read.cursor);
      if (!queue_.push(std::move(output))) return;
    }
  }

  // A Codex file is handed over whole, at its end: whether its token_count events count depends
  // on whether any usage-record line appears in it, later lines included.
  void readCodex(const Job& job) {
    std::optional<FileCursor> cursor = job.cursor;
    CodexLogParser parser{cursor ? cursor->context : std::map<std::string, std::string>{}};
    int64_t total = cursor ? integerEntry(cursor->context, kTotalKey).value_or(0) : 0;
    bool hasUsageRecords = cursor && cursor->context.count(kUsageRecordsKey) > 0;
    // The session the running total belongs to, as of the last line read.
    std::string session = parser.context().count("session") ? parser.context().at("session") : "";

    Output output;
    std::vector<UsageEvent> recordEvents;
    std::vector<UsageEvent> countEvents;
    CodexLineDetails details;
    for (bool atEOF = false; !atEOF;) {
      JSONLTail::Result read = JSONLTail::read(job.path, cursor, options_.chunkBytes);
      if (read.reset) {
        parser = CodexLogParser{};
        session.clear();
        total = 0;
        hasUsageRecords = false;
      }
      for (PaddedLine line : read.lines) {
        std::optional<CodexLine> result = parser.consume(line, details);
        if (details.usageRecord) hasUsageRecords = true;
        if (result) {
          if (auto* event = std::get_if<UsageEvent>(&*result)) {
            recordEvents.push_back(std::move(*event));
          } else if (auto* limits = std::get_if<ProviderLimits>(&*result)) {
            if (!output.codexLimits || limits->fetchedAt > output.codexLimits->fetchedAt) {
              output.codexLimits = std::move(*limits);
            }
          }
        }
        const auto& context = parser.context();
        const auto found = context.find("session");
        const std::string_view current =
            found == context.end() ? std::string_view{} : std::string_view{found->second};
        if (current != session) {  // a new session counts from zero again
          session = current;
          total = 0;
        }
        if (details.tokenCount && details.tokenCount->total > total) {
          total = details.tokenCount->total;
          if (details.tokenCount->timestamp) {
            const auto model = context.find("model");
            UsageEvent event;
            event.provider = ProviderID::codex;
            event.model = model == context.end() ? "unknown" : model->second;
            event.sessionID = session;
            event.dedupKey = session + "#" + std::to_string(total);
            event.timestamp = *details.tokenCount->timestamp;
            event.tokens = details.tokenCount->last;
            countEvents.push_back(std::move(event));
          }
        }
      }
      output.bytes += static_cast<int64_t>(read.lines.byteCount());
      output.lines += static_cast<int64_t>(read.lines.size());
      atEOF = read.atEOF;
      cursor = std::move(read.cursor);
    }
    output.events = hasUsageRecords ? std::move(recordEvents) : std::move(countEvents);
    cursor->context = parser.context();
    cursor->context[kProviderKey] = "codex";
    cursor->context[kTotalKey] = std::to_string(total);
    if (hasUsageRecords) cursor->context[kUsageRecordsKey] = "1";
    output.cursor = std::move(cursor);
    output.fileDone = true;
    output.fileRead = true;
    queue_.push(std::move(output));
  }

  void readGrok(const Job& job) {
    const FileDescriptor fd{::open(job.path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (!fd) throw fs::filesystem_error("Cannot open session document", job.path, lastError());
    struct stat status {};
    if (::fstat(fd.get(), &status) != 0) {
      throw fs::filesystem_error("Cannot examine session document", job.path, lastError());
    }
    std::string document;
    document.resize(static_cast<size_t>(status.st_size));
    size_t have = 0;
    while (have < document.size()) {
      const ssize_t n = ::pread(fd.get(), document.data() + have, document.size() - have,
                                static_cast<off_t>(have));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) throw fs::filesystem_error("Cannot read session document", job.path, lastError());
      if (n == 0) break;
      have += static_cast<size_t>(n);
    }
    document.resize(have);

    const auto inode = static_cast<uint64_t>(status.st_ino);
    int64_t afterTurn = std::numeric_limits<int64_t>::min();
    if (job.cursor && job.cursor->inode == inode) {
      afterTurn = integerEntry(job.cursor->context, kLastTurnKey).value_or(afterTurn);
    }
    GrokUsageParser::Result parsed = GrokUsageParser::events(document, afterTurn);

    Output output;
    output.events = std::move(parsed.events);
    output.cursor = FileCursor{job.path,
                               inode,
                               static_cast<int64_t>(have),
                               {{kProviderKey, "grok"},
                                {kLastTurnKey, std::to_string(parsed.lastTurn)},
                                {kSizeKey, std::to_string(status.st_size)},
                                {kMtimeKey, std::to_string(mtimeNanoseconds(status))}}};
    output.bytes = static_cast<int64_t>(have);
    output.lines = 1;
    output.fileDone = true;
    output.fileRead = true;
    queue_.push(std::move(output));
  }

  static std::error_code lastError() { return {errno, std::generic_category()}; }

  const IngestOptions& options_;
  Date now_;
  OutputQueue& queue_;
};

struct Tree {
  fs::path root;
  ProviderID provider;
  std::string_view extension;
};

struct FoundFile {
  std::string path;
  ProviderID provider;
  struct stat status;
};

// Finds the log files of one tool, with directory handles and one fstatat per entry (no path is
// resolved twice, and the stat doubles as the file's size and inode for the cursor check).
// Symbolic links inside the tree are not followed, so a link cannot pull another tree's files,
// or the same file twice, into the pass. Folders that cannot be opened are left out, as a
// folder the user cannot read holds nothing of theirs.
class TreeWalker {
 public:
  TreeWalker(const Tree& tree, std::vector<FoundFile>& files) : tree_(tree), files_(files) {}

  void walk() {
    const FileDescriptor root{::open(tree_.root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!root) return;  // no folder: the tool is not installed
    const std::string rootPath = tree_.root.string();
    std::vector<std::string> subfolders = list(root.get(), rootPath);

    // A warm pass is mostly this walk, and mostly system calls: two threads share the top
    // folders (Claude's projects), each with its own results, joined in a fixed order.
    std::vector<FoundFile> second;
    std::atomic<size_t> next{0};
    auto share = [&](TreeWalker& walker) {
      for (size_t i = next++; i < subfolders.size(); i = next++) {
        walker.descend(root.get(), rootPath, subfolders[i]);
      }
    };
    if (subfolders.size() > 1) {
      std::thread helper{[&] {
        TreeWalker other{tree_, second};
        share(other);
      }};
      share(*this);
      helper.join();
    } else {
      share(*this);
    }
    std::move(second.begin(), second.end(), std::back_inserter(files_));
  }

 private:
  static std::string childPath(const std::string& dir, std::string_view name) {
    std::string path;
    path.reserve(dir.size() + 1 + name.size());
    path.append(dir);
    if (path.empty() || path.back() != '/') path.push_back('/');
    path.append(name);
    return path;
  }

  void walk(int dirFD, const std::string& dirPath) {
    for (const std::string& name : list(dirFD, dirPath)) descend(dirFD, dirPath, name);
  }

  void descend(int dirFD, const std::string& dirPath, const std::string& name) {
    const FileDescriptor sub{
        ::openat(dirFD, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)};
    if (sub) walk(sub.get(), childPath(dirPath, name));
  }

  // Records the folder's files and returns its subfolders.
  std::vector<std::string> list(int dirFD, const std::string& dirPath) {
    std::vector<std::string> subfolders;
    // The listing is read with getdents64 into one buffer: no DIR stream, whose set-up costs
    // three more system calls per folder, and folders are most of what a warm pass visits.
    for (;;) {
      const ssize_t filled = ::getdents64(dirFD, buffer_.data(), buffer_.size());
      if (filled <= 0) break;  // the end, or a folder that cannot be listed: take what we have
      for (ssize_t at = 0; at < filled;) {
        const auto* entry = reinterpret_cast<const dirent64*>(buffer_.data() + at);
        at += entry->d_reclen;
        visit(dirFD, dirPath, *entry, subfolders);
      }
    }
    return subfolders;
  }

  void visit(int dirFD, const std::string& dirPath, const dirent64& entry,
             std::vector<std::string>& subfolders) {
    const std::string_view name = entry.d_name;
    if (name == "." || name == "..") return;
    // Most file systems tell an entry's type in the listing; others need a stat to know.
    const bool typed = entry.d_type != DT_UNKNOWN;
    if (typed && entry.d_type == DT_DIR) {
      subfolders.emplace_back(name);
      return;
    }
    if (typed && entry.d_type != DT_REG) return;  // links, sockets and the like
    // ".jsonl" alone is a hidden file, not a session.
    const bool named = name.size() > tree_.extension.size() && name.ends_with(tree_.extension);
    if (typed && !named) return;
    struct stat status {};
    if (::fstatat(dirFD, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
    if (S_ISDIR(status.st_mode)) {
      subfolders.emplace_back(name);
    } else if (S_ISREG(status.st_mode) && named) {
      files_.push_back({childPath(dirPath, name), tree_.provider, status});
    }
  }

  const Tree& tree_;
  std::vector<FoundFile>& files_;
  std::vector<char> buffer_ = std::vector<char>(32 << 10);
};

// Joins the workers on every path out of a pass, stopping them first if the pass failed.
class WorkerPool {
 public:
  explicit WorkerPool(OutputQueue& queue) : queue_(queue) {}
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
  OutputQueue& queue_;
  std::vector<std::thread> threads_;
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
    events[std::string(provider.rawValue())] = newEvents[provider.index()];
  }
  Json skippedJson = Json::array();
  for (const SkippedFile& file : skipped) {
    skippedJson.push_back({{"path", file.path}, {"reason", file.reason}});
  }
  return {{"filesScanned", filesScanned},    {"filesRead", filesRead}, {"linesRead", linesRead},
          {"bytesRead", bytesRead},          {"newEvents", events},    {"skipped", skippedJson},
          {"elapsedSeconds", elapsedSeconds}};
}

UsageIngestor::UsageIngestor(UsageStore& store, ProviderLocations locations, Calendar calendar,
                             IngestOptions options)
    : store_(store),
      locations_(std::move(locations)),
      calendar_(calendar),
      options_(std::move(options)) {}

IngestResult UsageIngestor::run(Date now) {
  const auto started = std::chrono::steady_clock::now();
  IngestResult result;

  std::vector<Tree> trees{{locations_.claudeProjects(), ProviderID::claude, ".jsonl"}};
  for (const fs::path& dir : locations_.codexSessions()) {
    trees.push_back({dir, ProviderID::codex, ".jsonl"});
  }
  trees.push_back({locations_.grokSessions(), ProviderID::grok, ".json"});
  // One query for every cursor, made while the folders are walked, and the walk's stat of each
  // file: an unchanged home costs no reads, and its two halves overlap.
  std::future<std::map<std::string, FileCursor>> storedCursors =
      std::async(std::launch::async, [this] { return store_.allCursors(); });
  std::vector<FoundFile> files;
  for (const Tree& tree : trees) TreeWalker{tree, files}.walk();
  result.filesScanned = files.size();
  std::map<std::string, FileCursor> cursors = storedCursors.get();
  std::vector<Job> jobs;
  int64_t bytesTotal = 0;
  for (auto& [path, provider, status] : files) {
    Job job{path, provider,
            provider == ProviderID::grok ? JobKind::readDocument : JobKind::readLines, std::nullopt,
            status.st_size};
    if (auto found = cursors.find(path); found != cursors.end()) {
      job.cursor = std::move(found->second);
    }
    const FileCursor* cursor = job.cursor ? &*job.cursor : nullptr;
    const bool sameFile = cursor && cursor->inode == static_cast<uint64_t>(status.st_ino);
    if (provider == ProviderID::grok) {
      if (sameFile && integerEntry(cursor->context, kSizeKey) == status.st_size &&
          integerEntry(cursor->context, kMtimeKey) == mtimeNanoseconds(status)) {
        continue;
      }
    } else if (sameFile && cursor->offset == status.st_size) {
      // Nothing new. A Claude reply left waiting is counted once it is old enough.
      if (provider != ProviderID::claude || !cursor->context.count(kPendingKey)) continue;
      const std::optional<UsageEvent> pending = decodePending(cursor->context.at(kPendingKey));
      if (pending && unixSeconds(pending->timestamp) >= unixSeconds(now) - options_.pendingGrace) {
        continue;
      }
      job.kind = JobKind::flushPending;
      job.expectedBytes = 0;
    } else if (sameFile && cursor->offset < status.st_size) {
      job.expectedBytes = status.st_size - cursor->offset;
    }
    bytesTotal += job.expectedBytes;
    jobs.push_back(std::move(job));
  }
  // Largest first, so the workers finish together rather than one of them ending on a big file.
  std::stable_sort(jobs.begin(), jobs.end(),
                   [](const Job& a, const Job& b) { return a.expectedBytes > b.expectedBytes; });

  IngestProgress progress{0, jobs.size(), 0, bytesTotal, 0};
  if (options_.progress) options_.progress(progress);

  const unsigned hardware = std::max(1U, std::thread::hardware_concurrency());
  const unsigned workers = static_cast<unsigned>(std::min<size_t>(
      options_.workers ? options_.workers : hardware, std::max<size_t>(1, jobs.size())));
  OutputQueue queue{std::max<size_t>(8, 4 * workers)};
  std::atomic<size_t> nextJob{0};
  {
    WorkerPool pool{queue};
    pool.start(workers, [&] {
      FileReader reader{options_, now, queue};
      for (size_t i = nextJob++; i < jobs.size() && !queue.stopped(); i = nextJob++) {
        reader.process(jobs[i]);
      }
    });

    std::vector<UsageEvent> events;
    std::vector<FileCursor> batchCursors;
    std::unordered_map<std::string, size_t> cursorIndex;
    auto commit = [&] {
      if (events.empty() && batchCursors.empty()) return;
      progress.newEvents += store_.ingest(events, calendar_, batchCursors, &result.newEvents);
      ++progress.commits;
      events.clear();
      batchCursors.clear();
      cursorIndex.clear();
      if (options_.progress) options_.progress(progress);
    };

    while (std::optional<Output> output = queue.pop()) {
      if (output->skipped) result.skipped.push_back(std::move(*output->skipped));
      if (output->codexLimits &&
          (!result.codexLimits || output->codexLimits->fetchedAt > result.codexLimits->fetchedAt)) {
        result.codexLimits = std::move(output->codexLimits);
      }
      std::move(output->events.begin(), output->events.end(), std::back_inserter(events));
      if (output->cursor) {
        // Later chunks of one file supersede its earlier cursors within a batch.
        auto [slot, added] = cursorIndex.try_emplace(output->cursor->path, batchCursors.size());
        if (added) {
          batchCursors.push_back(std::move(*output->cursor));
        } else {
          batchCursors[slot->second] = std::move(*output->cursor);
        }
      }
      result.bytesRead += output->bytes;
      result.linesRead += output->lines;
      progress.bytesRead += output->bytes;
      if (output->fileRead) ++result.filesRead;
      if (output->fileDone) ++progress.filesDone;
      if (events.size() >= options_.batchEvents || batchCursors.size() >= options_.batchFiles) {
        commit();
      } else if (options_.progress) {
        options_.progress(progress);
      }
    }
    commit();
  }

  if (result.codexLimits) {
    std::optional<ProviderLimits> stored;
    try {
      stored = store_.limits(ProviderID::codex);
    } catch (const JsonDecodeError&) {
      // A damaged record is replaced by what the logs say.
    }
    if (!stored || stored->fetchedAt < result.codexLimits->fetchedAt) {
      store_.setLimits(*result.codexLimits, ProviderID::codex);
      result.codexLimitsStored = true;
    }
  }

  result.elapsedSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  return result;
}

}  // namespace brimlog
