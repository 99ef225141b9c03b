// The two ways of judging a Qwen Code chat record must agree: the quick one, which settles
// most lines on their leading "type" and parses the line where it lies, and the full parse of a
// plain view.
//
// The input's first line (up to its first line feed) is the line. It is laid out as a read lays
// it out: the line, then the rest of the input as the next lines, then the zeroed padding, whose
// last byte is followed by a guard page.

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Finding.hpp"
#include "GuardedBuffer.hpp"
#include "ingest/qwen/QwenLogParser.hpp"

using namespace brimlog;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const std::string_view line = input.substr(0, input.find('\n'));

  static fuzz::GuardedBuffer buffer;
  const char* placed = buffer.place(input, LineBatch::kPadding);
  const auto quick = QwenLogParser::event(PaddedLine{{placed, line.size()}});
  // libFuzzer's copy of the input is an allocation of exactly its size, so the full parse of the
  // whole input is also watched for reads past its end.
  const auto full = QwenLogParser::event(line);

  fuzz::expect(quick == full, [&] {
    return "the padded line gives " + fuzz::describe(quick) + ", the plain line gives " +
           fuzz::describe(full);
  });
  return 0;
}
