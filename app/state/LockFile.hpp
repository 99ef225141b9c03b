#pragma once

#include <filesystem>
#include <string_view>

#include "platform/FileDescriptor.hpp"

namespace brimlog {

/// The files that the sync and daemon locks are taken on: `<database><suffix>`, beside the
/// database, made readable by the user alone. They are how Brimlog keeps passes apart, not
/// something a user asks for; so a lock file that cannot be made is told as what it means, a
/// database folder that cannot be written, with what to do about it.
struct LockFile {
  static std::filesystem::path pathFor(const std::filesystem::path& database,
                                       std::string_view suffix);

  /// The lock file opened for reading and writing (created when missing), close-on-exec. Throws
  /// CommandError naming the database's folder and the system's reason when it cannot be.
  static FileDescriptor open(const std::filesystem::path& database, std::string_view suffix);
};

}  // namespace brimlog
