#include "store/ShareMarks.hpp"

#include <chrono>

namespace brimlog {

void ShareMarks::mark(SQLiteDatabase& db, ShareKind kind, std::span<const int64_t> days) {
  if (days.empty()) return;
  const int64_t stamp = std::chrono::duration_cast<std::chrono::microseconds>(
                            std::chrono::system_clock::now().time_since_epoch())
                            .count();
  // A clock set back must not give a day a mark it had before: the mark only ever grows.
  const PreparedStatement upsert = db.prepared(
      "INSERT INTO share_marks(kind, day, mark) VALUES(?1, ?2, ?3) "
      "ON CONFLICT(kind, day) DO UPDATE SET mark = MAX(excluded.mark, mark + 1)");
  const std::string_view name = nameOf(kind);
  int64_t last = INT64_MIN;
  for (const int64_t day : days) {
    if (day == last) continue;
    db.run(upsert, {name, day, stamp});
    last = day;
  }
}

std::vector<ShareMark> ShareMarks::all(SQLiteDatabase& db) {
  std::vector<ShareMark> marks;
  db.query("SELECT kind, day, mark FROM share_marks ORDER BY kind, day", {}, [&](const Row& row) {
    const ShareKind kind = row.text(0) == "limits" ? ShareKind::limits : ShareKind::usage;
    marks.push_back({kind, row.integer(1), row.integer(2)});
  });
  return marks;
}

}  // namespace brimlog
