#include "store/DayQuarters.hpp"

#include <bit>
#include <cstring>

namespace brimlog {
namespace {

constexpr size_t kRecordBytes = 2 + 7 * 8;

void put(std::string& out, uint64_t value) {
  for (int i = 0; i < 8; ++i) out.push_back(static_cast<char>((value >> (8 * i)) & 0xff));
}

uint64_t take(const char* in) {
  uint64_t value = 0;
  for (int i = 0; i < 8; ++i) value |= uint64_t{static_cast<unsigned char>(in[i])} << (8 * i);
  return value;
}

}  // namespace

void DayQuarters::add(uint8_t quarter, const TokenCounts& tokens,
                      std::optional<double> reportedUSD) {
  Usage& usage = quarters[quarter];
  usage.tokens += tokens;
  if (reportedUSD) usage.reportedUSD = usage.reportedUSD.value_or(0) + *reportedUSD;
}

std::string DayQuarters::encode() const {
  std::string out;
  out.reserve(quarters.size() * kRecordBytes);
  for (const auto& [quarter, usage] : quarters) {
    out.push_back(static_cast<char>(quarter));
    out.push_back(usage.reportedUSD ? 1 : 0);
    const TokenCounts& t = usage.tokens;
    for (const int64_t count :
         {t.uncachedInput, t.cacheRead, t.cacheWrite5m, t.cacheWrite1h, t.output, t.reasoning}) {
      put(out, static_cast<uint64_t>(count));
    }
    put(out, std::bit_cast<uint64_t>(usage.reportedUSD.value_or(0)));
  }
  return out;
}

DayQuarters DayQuarters::decode(std::string_view blob) {
  DayQuarters day;
  for (size_t at = 0; at + kRecordBytes <= blob.size(); at += kRecordBytes) {
    const char* record = blob.data() + at;
    const auto quarter = static_cast<uint8_t>(record[0]);
    if (quarter >= 96) break;
    int64_t counts[6];
    for (int i = 0; i < 6; ++i) counts[i] = static_cast<int64_t>(take(record + 2 + 8 * i));
    Usage& usage = day.quarters[quarter];
    usage.tokens = {counts[0], counts[1], counts[2], counts[3], counts[4], counts[5]};
    if (record[1]) usage.reportedUSD = std::bit_cast<double>(take(record + 2 + 48));
  }
  return day;
}

void ActiveQuarters::merge(std::string_view blob) {
  for (size_t i = 0; i < bits.size() && i < blob.size(); ++i) {
    bits[i] |= static_cast<uint8_t>(blob[i]);
  }
}

}  // namespace brimlog
