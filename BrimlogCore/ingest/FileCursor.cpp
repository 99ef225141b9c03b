#include "ingest/FileCursor.hpp"

namespace brimlog {

Json FileCursor::toJson() const {
  return {{"path", path}, {"inode", inode}, {"offset", offset}, {"context", context}};
}

FileCursor FileCursor::fromJson(const Json& json) {
  FileCursor cursor;
  cursor.path = json::string(json::require(json, "path"), "path");
  cursor.inode = json::unsignedInteger(json::require(json, "inode"), "inode");
  cursor.offset = json::integer(json::require(json, "offset"), "offset");
  for (const auto& [key, value] : json::object(json::require(json, "context"), "context").items()) {
    cursor.context.emplace(key, json::string(value, key));
  }
  return cursor;
}

}  // namespace brimlog
