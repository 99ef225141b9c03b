#include "ingest/gemini/GeminiLogReader.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "ingest/JSONLTail.hpp"
#include "ingest/LogJson.hpp"
#include "ingest/LogResume.hpp"
#include "ingest/gemini/GeminiLogParser.hpp"
#include "platform/FileDescriptor.hpp"
#include "platform/WholeFile.hpp"

namespace brimlog {
namespace {

// An older session document holds its whole conversation; past this it is not one, and is
// skipped with its reason.
constexpr size_t kDocumentLimit = size_t{256} << 20;
// A session's first line is its metadata: an id, times, perhaps a few folders and a summary.
constexpr size_t kHeadLimit = size_t{256} << 10;
// The project markers are a path each.
constexpr size_t kMarkerLimit = size_t{1} << 20;

bool isDocument(std::string_view path) { return path.ends_with(".json"); }

// A small file's text without the white space around it; empty when it cannot be read.
std::string marker(const std::filesystem::path& path) {
  try {
    std::string text = WholeFile::read(path, kMarkerLimit).bytes;
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
  } catch (const std::filesystem::filesystem_error&) {
    return {};
  }
}

// projects.json: {"projects": {"<working folder>": "<project folder name>"}}, inverted.
std::map<std::string, std::string> registry(const std::filesystem::path& path) {
  std::map<std::string, std::string> folders;
  std::string text;
  try {
    text = WholeFile::read(path, WholeFile::kSmallFileLimit).bytes;
  } catch (const std::filesystem::filesystem_error&) {
    return folders;
  }
  const auto root = logjson::parseObject(text);
  if (!root) return folders;
  const auto projects = logjson::objectField(*root, "projects");
  if (!projects) return folders;
  for (const auto [folder, slug] : *projects) {
    std::string_view name;
    if (slug.get_string().get(name) == simdjson::SUCCESS) {
      folders.emplace(std::string(name), std::string(folder));
    }
  }
  return folders;
}

// The session a JSON-lines file belongs to, from its first line; nothing when that line cannot
// be read or names none.
std::optional<GeminiSession> headSession(const std::string& path) {
  const FileDescriptor fd{::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
  if (!fd) return std::nullopt;
  // The parser reads ahead past a line's end: the buffer keeps its padding beyond the bytes.
  std::string head(kHeadLimit + LineBatch::kPadding, ' ');
  size_t have = 0;
  while (have < kHeadLimit) {
    const ssize_t n =
        ::pread(fd.get(), head.data() + have, kHeadLimit - have, static_cast<off_t>(have));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    have += static_cast<size_t>(n);
  }
  const void* end = std::memchr(head.data(), '\n', have);
  if (end == nullptr) return std::nullopt;
  GeminiSession session;
  std::vector<UsageEvent> none;
  GeminiLogParser::consume(
      PaddedLine{{head.data(), static_cast<size_t>(static_cast<const char*>(end) - head.data())}},
      session, "", none);
  if (session.id.empty()) return std::nullopt;
  return session;
}

}  // namespace

std::optional<ReadJob> GeminiLogReader::plan(const FoundFile& file,
                                             std::optional<FileCursor> cursor, Date now) const {
  if (!isDocument(file.path)) return LogReader::plan(file, std::move(cursor), now);
  return planRewritten(file, std::move(cursor));
}

void GeminiLogReader::read(const ReadJob& job, Date, const ReadSink& sink) const {
  const std::string project = projectOf(job.path);
  if (isDocument(job.path)) {
    readDocument(job, project, sink);
  } else {
    readLines(job, project, sink);
  }
}

std::string GeminiLogReader::projectOf(const std::string& path) const {
  // Sessions lie in <gemini home>/tmp/<project folder>/chats/..., the home wherever the tool's
  // variable put it.
  constexpr std::string_view kTemp = "/.gemini/tmp/";
  const size_t at = path.rfind(kTemp);
  if (at == std::string::npos) return {};
  const size_t nameStart = at + kTemp.size();
  const size_t nameEnd = path.find('/', nameStart);
  if (nameEnd == std::string::npos) return {};
  const std::string folder = path.substr(0, nameEnd);
  const std::string name = path.substr(nameStart, nameEnd - nameStart);
  const std::string home = path.substr(0, at) + "/.gemini/";

  const std::lock_guard lock{mutex_};
  if (const auto known = projects_.find(folder); known != projects_.end()) return known->second;
  // The marker the tool writes in each project folder it owns; the registry of folder names for
  // a project folder made before the markers; a folder named by the hash of its path (the first
  // layout, copied to a named folder on upgrade) is in neither.
  std::string project = marker(std::filesystem::path(folder) / ".project_root");
  if (project.empty()) {
    auto registered = registries_.find(home);
    if (registered == registries_.end()) {
      registered = registries_.emplace(home, registry(home + "projects.json")).first;
    }
    if (const auto found = registered->second.find(name); found != registered->second.end()) {
      project = found->second;
    }
  }
  projects_.emplace(folder, project);
  return project;
}

void GeminiLogReader::readLines(const ReadJob& job, const std::string& project,
                                const ReadSink& sink) const {
  // A cursor whose bytes were rewritten is dropped with its context, as for a new file.
  std::optional<FileCursor> cursor = LogResume::verified(job.path, job.cursor, job.inode, job.size);
  // A read from the middle learns the session from the file's first line, where the tool
  // writes it when it makes the file: read again only for a file that changed, rather than kept
  // in every cursor and loaded by every pass. A file whose first line cannot be read is read
  // from its start; the store counts none of its replies twice.
  GeminiSession session;
  if (cursor && cursor->offset > 0) {
    if (std::optional<GeminiSession> head = headSession(job.path)) {
      session = std::move(*head);
    } else {
      cursor.reset();
    }
  }
  LogResume::readFrom(
      job, std::move(cursor), chunkBytes_, sink,
      [&](const JSONLTail::Result& read, ReadOutput& output) {
        if (read.reset) session = {};  // another file now: its own metadata line comes first
        std::vector<UsageEvent> events;
        for (PaddedLine line : read.lines) {
          events.clear();
          GeminiLogParser::consume(line, session, project, events);
          for (UsageEvent& event : events) {
            // The same reply written again in a row (with its counts, then with its tool
            // results): one event for the run, the store's own rule applied early.
            if (!output.events.empty() && output.events.back().dedupKey == event.dedupKey) {
              output.events.back().absorb(event);
            } else {
              output.events.push_back(std::move(event));
            }
          }
        }
      });
}

void GeminiLogReader::readDocument(const ReadJob& job, const std::string& project,
                                   const ReadSink& sink) const {
  const WholeFile document = WholeFile::read(job.path, kDocumentLimit);
  std::optional<std::vector<UsageEvent>> events =
      GeminiLogParser::document(document.bytes, project);

  const auto size = static_cast<int64_t>(document.bytes.size());
  ReadOutput output;
  output.cursor = FileCursor{job.path,
                             static_cast<uint64_t>(document.status.st_ino),
                             size,
                             {{FileCursor::providerKey, std::string(job.provider.rawValue())}}};
  // A document caught half rewritten is read again on the next pass, whether or not it changes
  // again: its size and time are remembered only once it has been read whole.
  if (events) {
    output.events = std::move(*events);
    recordRewritten(*output.cursor, document.status);
  }
  output.bytes = size;
  output.lines = 1;
  output.fileDone = true;
  output.fileRead = true;
  sink(std::move(output));
}

}  // namespace brimlog
