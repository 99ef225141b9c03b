#include "share/PgConnection.hpp"

#include <libpq-fe.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <utility>

namespace brimlog {

namespace {

// COPY data goes to the server in pieces of this size: large enough that the calls cost nothing,
// small enough that libpq's buffer never holds a whole ledger.
constexpr size_t kCopyChunk = 1 << 20;

struct ResultFree {
  void operator()(PGresult* result) const { PQclear(result); }
};
using ResultHandle = std::unique_ptr<PGresult, ResultFree>;

struct ConnectionFinish {
  void operator()(PGconn* conn) const { PQfinish(conn); }
};

std::string trimmed(std::string_view text) {
  const auto space = [](char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; };
  while (!text.empty() && space(text.back())) text.remove_suffix(1);
  while (!text.empty() && space(text.front())) text.remove_prefix(1);
  return std::string(text);
}

// A statement as a message names it: on one line, its start only.
std::string shortened(std::string_view sql) {
  std::string line;
  for (const char c : sql) {
    const bool space = c == ' ' || c == '\n' || c == '\r' || c == '\t';
    if (space && (line.empty() || line.back() == ' ')) continue;
    line += space ? ' ' : c;
  }
  constexpr size_t kShown = 60;
  if (line.size() > kShown) line = line.substr(0, kShown) + "...";
  return trimmed(line);
}

bool succeeded(const PGresult* result) {
  const ExecStatusType status = PQresultStatus(result);
  return status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
}

// Replaces each value of a `password` keyword in libpq's `key = value` form: a value is quoted
// with single quotes or runs to the next space, with backslash escapes in both.
std::string redactedKeywords(const std::string& target) {
  std::string out;
  size_t i = 0;
  const auto space = [&](size_t at) {
    return at < target.size() &&
           (target[at] == ' ' || target[at] == '\t' || target[at] == '\n' || target[at] == '\r');
  };
  while (i < target.size()) {
    const size_t keyStart = i;
    while (i < target.size() && target[i] != '=' && !space(i)) ++i;
    const std::string key = target.substr(keyStart, i - keyStart);
    while (space(i)) ++i;
    if (i >= target.size() || target[i] != '=') {
      out.append(target, keyStart, i - keyStart);
      continue;
    }
    ++i;
    while (space(i)) ++i;
    const size_t valueStart = i;
    if (i < target.size() && target[i] == '\'') {
      for (++i; i < target.size() && target[i] != '\''; ++i) {
        if (target[i] == '\\') ++i;
      }
      i = std::min(i + 1, target.size());
    } else {
      for (; i < target.size() && !space(i); ++i) {
        if (target[i] == '\\') ++i;
      }
      i = std::min(i, target.size());
    }
    out.append(target, keyStart, valueStart - keyStart);
    out += key == "password" ? std::string("***") : target.substr(valueStart, i - valueStart);
    const size_t gapStart = i;
    while (space(i)) ++i;
    out.append(target, gapStart, i - gapStart);
  }
  return out;
}

// Replaces the password of a URI's user part and of a `password=` query parameter.
std::string redactedUri(const std::string& target, size_t schemeEnd) {
  std::string out = target;
  // The user part ends at an '@'; the last one before the query is taken, so that a password
  // holding a stray '/' or '@' (which libpq would not read as one) is hidden whole as well.
  const size_t userEnd = out.rfind('@', out.find('?', schemeEnd));
  if (userEnd != std::string::npos && userEnd >= schemeEnd) {
    const size_t colon = out.find(':', schemeEnd);
    if (colon < userEnd && colon + 1 < userEnd) out.replace(colon + 1, userEnd - colon - 1, "***");
  }
  const size_t query = out.find('?', schemeEnd);
  if (query == std::string::npos) return out;
  for (size_t at = query + 1; at < out.size();) {
    const size_t end = std::min(out.find('&', at), out.size());
    if (out.compare(at, 9, "password=") == 0 && at + 9 < end) {
      out.replace(at + 9, end - at - 9, "***");
      at += 9 + 3 + 1;
    } else {
      at = end + 1;
    }
  }
  return out;
}

}  // namespace

PgResult::PgResult(PGresult* result) : result_(result) {}

PgResult::~PgResult() { PQclear(result_); }

PgResult::PgResult(PgResult&& other) noexcept : result_(std::exchange(other.result_, nullptr)) {}

PgResult& PgResult::operator=(PgResult&& other) noexcept {
  if (this != &other) {
    PQclear(result_);
    result_ = std::exchange(other.result_, nullptr);
  }
  return *this;
}

int PgResult::rows() const { return result_ ? PQntuples(result_) : 0; }

bool PgResult::isNull(int row, int column) const { return PQgetisnull(result_, row, column) != 0; }

std::string_view PgResult::text(int row, int column) const {
  return {PQgetvalue(result_, row, column), static_cast<size_t>(PQgetlength(result_, row, column))};
}

int64_t PgResult::integer(int row, int column) const {
  const std::string_view value = text(row, column);
  int64_t number = 0;
  std::from_chars(value.data(), value.data() + value.size(), number);
  return number;
}

double PgResult::real(int row, int column) const {
  if (isNull(row, column)) return 0;
  // PostgreSQL's text form of a number is C's ("1.5e-05", "NaN", "Infinity").
  return std::strtod(PQgetvalue(result_, row, column), nullptr);
}

PgConnection::PgConnection(const std::string& target) : name_(redacted(target)) {
  std::unique_ptr<PGconn, ConnectionFinish> conn{PQconnectdb(target.c_str())};
  if (!conn) throw SharedLedgerError(name_ + ": connecting: out of memory");
  if (PQstatus(conn.get()) != CONNECTION_OK) {
    throw SharedLedgerError(name_ + ": connecting: " + trimmed(PQerrorMessage(conn.get())));
  }
  conn_ = conn.release();
  try {
    // The server's notices ("relation already exists, skipping") are no news to a person.
    exec("SET client_min_messages = warning");
  } catch (...) {
    PQfinish(std::exchange(conn_, nullptr));
    throw;
  }
}

PgConnection::~PgConnection() { PQfinish(conn_); }

void PgConnection::exec(std::string_view sql) {
  const ResultHandle result{PQexec(conn_, std::string(sql).c_str())};
  if (!result || !succeeded(result.get())) {
    const char* message = result ? PQresultErrorMessage(result.get()) : "";
    throw SharedLedgerError(name_ + ": running \"" + shortened(sql) +
                            "\": " + trimmed(*message ? message : PQerrorMessage(conn_)));
  }
}

PgResult PgConnection::query(std::string_view sql,
                             const std::vector<std::optional<std::string>>& params) {
  std::vector<const char*> values;
  values.reserve(params.size());
  for (const auto& param : params) values.push_back(param ? param->c_str() : nullptr);
  PGresult* raw = PQexecParams(conn_, std::string(sql).c_str(), static_cast<int>(values.size()),
                               nullptr, values.data(), nullptr, nullptr, 0);
  PgResult result{raw};
  if (!raw || !succeeded(raw)) {
    const char* message = raw ? PQresultErrorMessage(raw) : "";
    throw SharedLedgerError(name_ + ": running \"" + shortened(sql) +
                            "\": " + trimmed(*message ? message : PQerrorMessage(conn_)));
  }
  return result;
}

void PgConnection::copyIn(std::string_view copySql, std::string_view data) {
  const std::string doing = name_ + ": running \"" + shortened(copySql) + "\": ";
  {
    const ResultHandle started{PQexec(conn_, std::string(copySql).c_str())};
    if (!started || PQresultStatus(started.get()) != PGRES_COPY_IN) {
      const char* message = started ? PQresultErrorMessage(started.get()) : "";
      throw SharedLedgerError(doing + trimmed(*message ? message : PQerrorMessage(conn_)));
    }
  }
  std::string failure;
  for (size_t at = 0; at < data.size(); at += kCopyChunk) {
    const size_t size = std::min(kCopyChunk, data.size() - at);
    if (PQputCopyData(conn_, data.data() + at, static_cast<int>(size)) != 1) {
      failure = trimmed(PQerrorMessage(conn_));
      break;
    }
  }
  // On a failed send the server is told to give the COPY up, so the connection stays usable.
  if (PQputCopyEnd(conn_, failure.empty() ? nullptr : "sending the rows failed") != 1 &&
      failure.empty()) {
    failure = trimmed(PQerrorMessage(conn_));
  }
  // Every result is read, so the next statement finds the connection idle.
  while (const ResultHandle result{PQgetResult(conn_)}) {
    if (!succeeded(result.get()) && failure.empty()) {
      failure = trimmed(PQresultErrorMessage(result.get()));
    }
  }
  if (!failure.empty()) throw SharedLedgerError(doing + failure);
}

std::string PgConnection::redacted(const std::string& target) {
  for (const std::string_view scheme : {"postgresql://", "postgres://"}) {
    if (target.compare(0, scheme.size(), scheme) == 0) return redactedUri(target, scheme.size());
  }
  return redactedKeywords(target);
}

}  // namespace brimlog
