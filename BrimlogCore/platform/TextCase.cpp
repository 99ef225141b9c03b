#include "platform/TextCase.hpp"

#include <cstdint>

namespace brimlog {
namespace {

// One decoded character: its code point and how many bytes it took, or nothing usable.
struct Decoded {
  char32_t codePoint = 0;
  size_t length = 1;
  bool valid = false;
};

Decoded decodeAt(std::string_view text, size_t pos) {
  const auto lead = static_cast<unsigned char>(text[pos]);
  if (lead < 0x80) return {lead, 1, true};
  size_t length = 0;
  char32_t codePoint = 0;
  if ((lead & 0xE0) == 0xC0) {
    length = 2;
    codePoint = lead & 0x1F;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3;
    codePoint = lead & 0x0F;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4;
    codePoint = lead & 0x07;
  } else {
    return {};
  }
  if (pos + length > text.size()) return {};
  for (size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[pos + i]);
    if ((next & 0xC0) != 0x80) return {};
    codePoint = (codePoint << 6) | (next & 0x3F);
  }
  static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (codePoint < kSmallest[length] || codePoint > 0x10FFFF ||
      (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
    return {};
  }
  return {codePoint, length, true};
}

void appendUTF8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out.push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (c >> 6)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (c >> 12)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (c >> 18)));
    out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

// Whether `c` lies in a block where capital and small letters alternate; the callers say on
// which parity the capitals sit.
bool inAlternatingRange(char32_t c, char32_t first, char32_t last) {
  return c >= first && c <= last;
}

// The default lower-case mapping of one character, appended to `out`.
void appendLower(std::string& out, char32_t c) {
  char32_t lower = c;
  if ((c >= U'A' && c <= U'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7) ||
      (c >= 0x391 && c <= 0x3AB && c != 0x3A2) || (c >= 0x410 && c <= 0x42F)) {
    lower = c + 0x20;
  } else if (c == 0x130) {
    // Capital I with dot above keeps its dot as a combining mark.
    appendUTF8(out, U'i');
    appendUTF8(out, 0x307);
    return;
  } else if ((inAlternatingRange(c, 0x100, 0x12F) || inAlternatingRange(c, 0x132, 0x137) ||
              inAlternatingRange(c, 0x14A, 0x177) || inAlternatingRange(c, 0x460, 0x481) ||
              inAlternatingRange(c, 0x48A, 0x4BF) || inAlternatingRange(c, 0x4D0, 0x4FF)) &&
             c % 2 == 0) {
    lower = c + 1;
  } else if ((inAlternatingRange(c, 0x139, 0x148) || inAlternatingRange(c, 0x179, 0x17E) ||
              inAlternatingRange(c, 0x4C1, 0x4CE)) &&
             c % 2 == 1) {
    lower = c + 1;
  } else if (c == 0x178) {
    lower = 0xFF;
  } else if (c == 0x386) {
    lower = 0x3AC;
  } else if (c >= 0x388 && c <= 0x38A) {
    lower = c + 0x25;
  } else if (c == 0x38C) {
    lower = 0x3CC;
  } else if (c == 0x38E || c == 0x38F) {
    lower = c + 0x3F;
  } else if (c >= 0x400 && c <= 0x40F) {
    lower = c + 0x50;
  } else if (c == 0x4C0) {
    lower = 0x4CF;
  }
  appendUTF8(out, lower);
}

// The default upper-case mapping of one character, appended to `out`.
void appendUpper(std::string& out, char32_t c) {
  char32_t upper = c;
  if ((c >= U'a' && c <= U'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7) ||
      (c >= 0x3B1 && c <= 0x3CB && c != 0x3C2) || (c >= 0x430 && c <= 0x44F)) {
    upper = c - 0x20;
  } else if (c == 0xDF) {
    // Sharp s has no single capital: it becomes two letters.
    appendUTF8(out, U'S');
    appendUTF8(out, U'S');
    return;
  } else if (c == 0x149) {
    appendUTF8(out, 0x2BC);
    appendUTF8(out, U'N');
    return;
  } else if ((inAlternatingRange(c, 0x100, 0x12F) || inAlternatingRange(c, 0x132, 0x137) ||
              inAlternatingRange(c, 0x14A, 0x177) || inAlternatingRange(c, 0x460, 0x481) ||
              inAlternatingRange(c, 0x48A, 0x4BF) || inAlternatingRange(c, 0x4D0, 0x4FF)) &&
             c % 2 == 1) {
    upper = c - 1;
  } else if ((inAlternatingRange(c, 0x139, 0x148) || inAlternatingRange(c, 0x179, 0x17E) ||
              inAlternatingRange(c, 0x4C1, 0x4CE)) &&
             c % 2 == 0) {
    upper = c - 1;
  } else if (c == 0xFF) {
    upper = 0x178;
  } else if (c == 0xB5) {
    upper = 0x39C;
  } else if (c == 0x131) {
    upper = U'I';
  } else if (c == 0x17F) {
    upper = U'S';
  } else if (c == 0x3C2) {
    upper = 0x3A3;
  } else if (c == 0x3AC) {
    upper = 0x386;
  } else if (c >= 0x3AD && c <= 0x3AF) {
    upper = c - 0x25;
  } else if (c == 0x3CC) {
    upper = 0x38C;
  } else if (c == 0x3CD || c == 0x3CE) {
    upper = c - 0x3F;
  } else if (c >= 0x450 && c <= 0x45F) {
    upper = c - 0x50;
  } else if (c == 0x4CF) {
    upper = 0x4C0;
  }
  appendUTF8(out, upper);
}

}  // namespace

std::string lowercased(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  size_t pos = 0;
  while (pos < text.size()) {
    const Decoded decoded = decodeAt(text, pos);
    if (decoded.valid) {
      appendLower(out, decoded.codePoint);
    } else {
      out.push_back(text[pos]);
    }
    pos += decoded.length;
  }
  return out;
}

std::string uppercasedFirst(std::string_view text) {
  if (text.empty()) return {};
  const Decoded first = decodeAt(text, 0);
  std::string out;
  out.reserve(text.size() + 1);
  if (first.valid) {
    appendUpper(out, first.codePoint);
  } else {
    out.push_back(text[0]);
  }
  out.append(text.substr(first.length));
  return out;
}

}  // namespace brimlog
