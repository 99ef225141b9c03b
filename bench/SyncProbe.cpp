// brimlog_sync_probe: times the phases of an ingestion pass over a home directory, to find where
// a whole `brimlog sync` spends its time. It runs the library's own code in-process, without
// the command's start-up, and varies the pass's options, which the command does not expose.
//
//   brimlog_sync_probe --home DIR [--runs N] [--workers N] [--chunk-bytes N]
//
// Phases (each the median of --runs, the files in the page cache):
//   walk          the directory walk as the pass does it (std::filesystem, symlink_status per
//                 entry), and the same walk with readdir's d_type and fstatat on the folder
//   stat          one stat per file by its full path, as the pass checks its cursors
//   cursors       opening a filled database and loading every cursor (allCursors)
//   warm pass     UsageIngestor::run on that database: nothing new
//   read          JSONLTail::read of every file, chunk by chunk, on 1 and on --workers threads
//   read+parse    the same, every line through its tool's parser
//   store         UsageStore::ingest of the pass's events and cursors into a new database
//   cold pass     UsageIngestor::run into a new database, for 1..--workers workers and for
//                 chunks of 1, 4 and 16 MiB

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "ingest/ClaudeLogParser.hpp"
#include "ingest/CodexLogParser.hpp"
#include "ingest/GrokUsageParser.hpp"
#include "ingest/JSONLTail.hpp"
#include "ingest/ProviderLocations.hpp"
#include "ingest/UsageIngestor.hpp"
#include "platform/Calendar.hpp"
#include "platform/Date.hpp"
#include "store/UsageStore.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

struct LogFile {
  fs::path path;
  ProviderID provider;
};

// Runs `body` `runs` times; the median wall time in seconds.
double median(int runs, const std::function<void()>& body) {
  std::vector<double> times;
  for (int i = 0; i < runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    body();
    times.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  std::sort(times.begin(), times.end());
  return times.size() % 2 ? times[times.size() / 2]
                          : (times[times.size() / 2 - 1] + times[times.size() / 2]) / 2;
}

// The first figure of /proc/loadavg: other work on the machine skews every figure.
std::string loadAverage() {
  std::FILE* file = std::fopen("/proc/loadavg", "r");
  if (file == nullptr) return "unknown";
  char text[16] = {};
  const bool read = std::fscanf(file, "%15s", text) == 1;
  std::fclose(file);
  return read ? text : "unknown";
}

void report(std::string_view phase, double seconds, std::string_view detail = {}) {
  fmt::print("  {:<44} {:>9.2f} ms  {}\n", phase, seconds * 1e3, detail);
}

std::vector<LogFile> walkLikeThePass(const fs::path& home) {
  const ProviderLocations locations{home};
  std::vector<std::tuple<fs::path, ProviderID, std::string_view>> trees{
      {locations.claudeProjects(), ProviderID::claude, ".jsonl"}};
  for (const fs::path& dir : locations.codexSessions()) {
    trees.emplace_back(dir, ProviderID::codex, ".jsonl");
  }
  trees.emplace_back(locations.grokSessions(), ProviderID::grok, ".json");
  std::vector<LogFile> files;
  for (const auto& [root, provider, extension] : trees) {
    std::error_code error;
    if (!fs::is_directory(root, error)) continue;
    fs::recursive_directory_iterator it{root, fs::directory_options::skip_permission_denied, error};
    for (; !error && it != fs::recursive_directory_iterator{}; it.increment(error)) {
      std::error_code typeError;
      const fs::file_status status = it->symlink_status(typeError);
      if (typeError || !fs::is_regular_file(status)) continue;
      if (it->path().extension() != extension) continue;
      files.push_back({it->path(), provider});
    }
  }
  return files;
}

// The same set of files from readdir's d_type, each checked with fstatat relative to its
// folder: no path is resolved from the root again.
size_t walkWithDirectoryHandles(int dirFd, std::string_view extension, int64_t& bytes) {
  DIR* dir = ::fdopendir(dirFd);
  if (dir == nullptr) {
    ::close(dirFd);
    return 0;
  }
  size_t count = 0;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    if (entry->d_type == DT_DIR) {
      const int child = ::openat(::dirfd(dir), entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      if (child >= 0) count += walkWithDirectoryHandles(child, extension, bytes);
    } else if (entry->d_type == DT_REG && name.ends_with(extension)) {
      struct stat status {};
      if (::fstatat(::dirfd(dir), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
        bytes += status.st_size;
        ++count;
      }
    }
  }
  ::closedir(dir);
  return count;
}

// An experiment, not the product's path: the value of the first top-level "type" key of a line,
// scanning the line only up to that key. Claude Code writes `type` before `message` on user
// lines, which hold nearly all the bytes, so those are settled after a few hundred bytes instead
// of a pass over the whole line. Nothing (parse the line in full) when the line does not open as
// an object, a top-level key holds an escape, or the value is not a plain string.
std::optional<std::string_view> typeByPrefixScan(std::string_view line) {
  const char* const begin = line.data();
  const char* const end = begin + line.size();
  // Past the closing quote of the string whose opening quote is just before `p`.
  auto stringEnd = [&](const char* p) -> const char* {
    for (;;) {
      const auto* quote = static_cast<const char*>(std::memchr(p, '"', end - p));
      if (quote == nullptr) return nullptr;
      size_t backslashes = 0;
      for (const char* b = quote; b > p && b[-1] == '\\'; --b) ++backslashes;
      if (backslashes % 2 == 0) return quote + 1;
      p = quote + 1;
    }
  };
  auto skipSpace = [&](const char* p) {
    while (p < end && (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r')) ++p;
    return p;
  };
  const char* p = skipSpace(begin);
  if (p == end || *p != '{') return std::nullopt;
  ++p;
  int depth = 1;
  bool expectKey = true;
  while (p < end) {
    const char c = *p++;
    if (c == '"') {
      const char* const start = p;
      const char* const after = stringEnd(p);
      if (after == nullptr) return std::nullopt;
      p = after;
      if (depth != 1 || !expectKey) continue;
      const std::string_view key(start, static_cast<size_t>(after - 1 - start));
      if (key.find('\\') != std::string_view::npos) return std::nullopt;
      p = skipSpace(p);
      if (p == end || *p != ':') return std::nullopt;
      p = skipSpace(p + 1);
      expectKey = false;
      if (key != "type") continue;
      if (p == end || *p != '"') return std::nullopt;
      const char* const valueEnd = stringEnd(p + 1);
      if (valueEnd == nullptr) return std::nullopt;
      const std::string_view value(p + 1, static_cast<size_t>(valueEnd - 1 - (p + 1)));
      if (value.find('\\') != std::string_view::npos) return std::nullopt;
      return value;
    }
    if (c == '{' || c == '[') {
      ++depth;
    } else if (c == '}' || c == ']') {
      if (--depth == 0) return std::nullopt;
    } else if (c == ',' && depth == 1) {
      expectKey = true;
    }
  }
  return std::nullopt;
}

enum class Parse { none, product, prefixScan };

// Reads every file in chunks of `chunk` bytes on `workers` threads; every line goes through its
// tool's parser unless `parse` is none (with prefixScan, Claude lines whose leading type is not
// "assistant" are skipped first). Collects the events a pass would commit when `events` is given.
void readAll(const std::vector<LogFile>& files, unsigned workers, int64_t chunk, Parse parse,
             std::vector<UsageEvent>* events = nullptr,
             std::vector<FileCursor>* cursors = nullptr) {
  std::atomic<size_t> next{0};
  std::vector<std::vector<UsageEvent>> found(files.size());
  std::vector<std::optional<FileCursor>> ends(files.size());
  auto work = [&] {
    for (size_t i = next++; i < files.size(); i = next++) {
      const LogFile& file = files[i];
      if (file.provider == ProviderID::grok) {
        const JSONLTail::Result whole = JSONLTail::read(file.path, std::nullopt, 1 << 30);
        (void)whole;
        continue;
      }
      std::optional<FileCursor> cursor;
      std::optional<UsageEvent> pending;
      CodexLogParser codex;
      for (bool atEOF = false; !atEOF;) {
        JSONLTail::Result read = JSONLTail::read(file.path, cursor, chunk);
        if (parse != Parse::none) {
          for (PaddedLine line : read.lines) {
            if (file.provider == ProviderID::codex) {
              codex.consume(line);
              continue;
            }
            if (parse == Parse::prefixScan) {
              const auto type = typeByPrefixScan(line.bytes);
              if (type && *type != "assistant") continue;
            }
            std::optional<UsageEvent> event = ClaudeLogParser::event(line);
            if (!event) continue;
            if (pending && pending->dedupKey != event->dedupKey) {
              found[i].push_back(std::move(*pending));
            }
            pending = std::move(event);
          }
        }
        atEOF = read.atEOF;
        cursor = std::move(read.cursor);
      }
      if (pending) found[i].push_back(std::move(*pending));
      ends[i] = std::move(cursor);
    }
  };
  std::vector<std::thread> threads;
  for (unsigned t = 0; t < workers; ++t) threads.emplace_back(work);
  for (std::thread& thread : threads) thread.join();
  if (events != nullptr) {
    for (auto& list : found) std::move(list.begin(), list.end(), std::back_inserter(*events));
  }
  if (cursors != nullptr) {
    for (auto& end : ends) {
      if (end) cursors->push_back(std::move(*end));
    }
  }
}

int probe(const fs::path& home, int runs, unsigned workers, int64_t chunk) {
  // Loading the time zone database happens once per process, on first use.
  const auto loading = std::chrono::steady_clock::now();
  (void)Calendar::current();
  const double zoneTime =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - loading).count();
  const fs::path scratch = fs::temp_directory_path() / fmt::format("brimlog-probe-{}", ::getpid());
  fs::create_directories(scratch);
  const Date now = currentDate();
  int databases = 0;
  auto newDatabase = [&] {
    const fs::path db = scratch / fmt::format("usage-{}.db", databases++);
    return db;
  };
  auto removeDatabase = [](const fs::path& db) {
    for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(db.string() + suffix);
  };

  std::vector<LogFile> files;
  int64_t bytes = 0;
  for (const auto& entry : fs::recursive_directory_iterator(home)) {
    if (entry.is_regular_file()) bytes += static_cast<int64_t>(entry.file_size());
  }
  files = walkLikeThePass(home);  // once untimed, so every timed walk finds the same caches
  const double walkTime = median(runs, [&] { files = walkLikeThePass(home); });
  fmt::print("home {}: {} log files, {} bytes; {} runs each, median; load average {}\n",
             home.string(), files.size(), bytes, runs, loadAverage());
  fmt::print("start-up, once per process:\n");
  report("time zone database (first Calendar::current)", zoneTime);
  fmt::print("warm pass, by phase:\n");
  report("walk (std::filesystem, as the pass)", walkTime);
  size_t handleCount = 0;
  int64_t handleBytes = 0;
  const double handleTime = median(runs, [&] {
    const ProviderLocations locations{home};
    handleCount = 0;
    handleBytes = 0;
    auto tree = [&](const fs::path& root, std::string_view extension) {
      const int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      if (fd >= 0) handleCount += walkWithDirectoryHandles(fd, extension, handleBytes);
    };
    tree(locations.claudeProjects(), ".jsonl");
    for (const fs::path& dir : locations.codexSessions()) tree(dir, ".jsonl");
    tree(locations.grokSessions(), ".json");
  });
  report("walk + stat (readdir d_type, fstatat)", handleTime,
         fmt::format("{} files, {} bytes", handleCount, handleBytes));
  report("stat every file by full path", median(runs, [&] {
           struct stat status {};
           for (const LogFile& file : files) ::stat(file.path.c_str(), &status);
         }));

  // A filled database for the warm phases.
  const fs::path filled = newDatabase();
  {
    UsageStore store{filled};
    IngestOptions options;
    options.workers = workers;
    UsageIngestor{store, ProviderLocations{home}, Calendar::utc(), options}.run(now);
  }
  report("open the database (UsageStore)", median(runs, [&] { UsageStore store{filled}; }));
  {
    UsageStore store{filled};
    size_t count = 0;
    const double seconds = median(runs, [&] { count = store.allCursors().size(); });
    report("allCursors", seconds, fmt::format("{} cursors", count));
    report("whole warm pass (UsageIngestor::run)", median(runs, [&] {
             IngestOptions options;
             options.workers = workers;
             UsageIngestor{store, ProviderLocations{home}, Calendar::utc(), options}.run(now);
           }));
  }

  fmt::print("cold pass, by phase (GB/s = bytes of the home / time):\n");
  auto rate = [&](double seconds) {
    return fmt::format("{:.2f} GB/s", static_cast<double>(bytes) / seconds / 1e9);
  };
  for (unsigned threads : {1U, workers}) {
    const double read = median(runs, [&] { readAll(files, threads, chunk, Parse::none); });
    report(fmt::format("read, {} thread(s)", threads), read, rate(read));
    const double parse = median(runs, [&] { readAll(files, threads, chunk, Parse::product); });
    report(fmt::format("read+parse, {} thread(s)", threads), parse, rate(parse));
    const double scan = median(runs, [&] { readAll(files, threads, chunk, Parse::prefixScan); });
    report(fmt::format("read+parse with a prefix type scan, {} thread(s)", threads), scan,
           rate(scan));
    if (threads == workers) break;
  }
  std::vector<UsageEvent> events;
  std::vector<FileCursor> cursors;
  readAll(files, workers, chunk, Parse::product, &events, &cursors);
  std::vector<UsageEvent> scanned;
  readAll(files, workers, chunk, Parse::prefixScan, &scanned);
  if (scanned != events) {
    fmt::print("  the prefix type scan found {} events where the parser found {}: not the same\n",
               scanned.size(), events.size());
  }
  for (FileCursor& cursor : cursors) cursor.context["provider"] = "claude";
  // The store's share: one transaction as the pass commits it (all of these events fit in one
  // batch), opening and closing the database left out.
  auto storeTime = [&](std::span<const UsageEvent> batch, std::span<const FileCursor> saved) {
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
      const fs::path db = newDatabase();
      {
        UsageStore fresh{db};
        const auto start = std::chrono::steady_clock::now();
        fresh.ingest(batch, Calendar::utc(), saved);
        times.push_back(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
      }
      removeDatabase(db);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
  };
  report("store: ingest the events and cursors", storeTime(events, cursors),
         fmt::format("{} events, {} cursors, one transaction", events.size(), cursors.size()));
  report("store: the events alone", storeTime(events, {}));
  report("store: the cursors alone", storeTime({}, cursors));

  // A cold pass into a new database, and separately the closing of that database, which
  // checkpoints its write-ahead log into the file.
  std::vector<double> closeTimes;
  size_t commits = 0;
  auto coldPass = [&](unsigned threads, int64_t chunkBytes,
                      size_t batchFiles = IngestOptions{}.batchFiles) {
    return median(runs, [&] {
      const fs::path db = newDatabase();
      auto fresh = std::make_unique<UsageStore>(db);
      IngestOptions options;
      options.workers = threads;
      options.chunkBytes = chunkBytes;
      options.batchFiles = batchFiles;
      options.progress = [&](const IngestProgress& progress) { commits = progress.commits; };
      UsageIngestor{*fresh, ProviderLocations{home}, Calendar::utc(), options}.run(now);
      const auto closing = std::chrono::steady_clock::now();
      fresh.reset();
      closeTimes.push_back(
          std::chrono::duration<double>(std::chrono::steady_clock::now() - closing).count());
      removeDatabase(db);
    });
  };
  for (unsigned threads = 1; threads <= workers; ++threads) {
    const double seconds = coldPass(threads, chunk);
    report(fmt::format("whole cold pass, {} worker(s), {} MiB chunks", threads, chunk >> 20),
           seconds, fmt::format("{}, {} commit(s)", rate(seconds), commits));
  }
  std::sort(closeTimes.begin(), closeTimes.end());
  report("  of which: closing the new database", closeTimes[closeTimes.size() / 2],
         "(checkpoint of the write-ahead log)");
  for (int64_t size : {int64_t{1} << 20, int64_t{16} << 20}) {
    if (size == chunk) continue;
    const double seconds = coldPass(workers, size);
    report(fmt::format("whole cold pass, {} worker(s), {} MiB chunks", workers, size >> 20),
           seconds, rate(seconds));
  }
  // Smaller batches commit while the workers still parse, instead of once at the end.
  for (size_t batchFiles : {size_t{250}, size_t{50}}) {
    const double seconds = coldPass(workers, chunk, batchFiles);
    report(fmt::format("whole cold pass, {} worker(s), batches of {} files", workers, batchFiles),
           seconds, fmt::format("{}, {} commit(s)", rate(seconds), commits));
  }
  removeDatabase(filled);
  fs::remove_all(scratch);
  fmt::print("load average at the end: {}\n", loadAverage());
  return 0;
}

}  // namespace
}  // namespace brimlog

int main(int argc, char** argv) {
  std::string home;
  int runs = 5;
  unsigned workers = std::max(1U, std::thread::hardware_concurrency());
  int64_t chunk = 4 << 20;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string_view flag = argv[i];
    const char* value = argv[i + 1];
    if (flag == "--home") {
      home = value;
    } else if (flag == "--runs") {
      runs = std::max(1, std::atoi(value));
    } else if (flag == "--workers") {
      workers = static_cast<unsigned>(std::max(1, std::atoi(value)));
    } else if (flag == "--chunk-bytes") {
      chunk = std::max<int64_t>(1, std::atoll(value));
    } else {
      fmt::print(stderr, "brimlog_sync_probe: unknown option {}\n", flag);
      return 2;
    }
  }
  if (home.empty()) {
    fmt::print(stderr,
               "usage: brimlog_sync_probe --home DIR [--runs N] [--workers N] [--chunk-bytes N]\n");
    return 2;
  }
  try {
    return brimlog::probe(home, runs, workers, chunk);
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimlog_sync_probe: {}\n", error.what());
    return 1;
  }
}
