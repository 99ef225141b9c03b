#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace brimlog {

/// Comma-separated values as RFC 4180 has them, with line feeds (not CR LF) ending the records,
/// as the text tools a report is piped into expect. A field is quoted when it holds a comma, a
/// double quote or a line break, its double quotes doubled; every other field is written as it
/// is.
///
///     CsvWriter::record({"day", "note"});            // day,note\n
///     CsvWriter::record({"2026-11-24", "a, \"b\""});  // 2026-11-24,"a, ""b"""\n
struct CsvWriter {
  static std::string field(std::string_view text);
  static std::string record(const std::vector<std::string>& fields);
};

}  // namespace brimlog
