#include "output/CsvWriter.hpp"

namespace brimlog {

std::string CsvWriter::field(std::string_view text) {
  if (text.find_first_of(",\"\r\n") == std::string_view::npos) return std::string(text);
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + '"';
}

std::string CsvWriter::record(const std::vector<std::string>& fields) {
  std::string out;
  for (size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) out += ',';
    out += field(fields[i]);
  }
  return out + '\n';
}

}  // namespace brimlog
