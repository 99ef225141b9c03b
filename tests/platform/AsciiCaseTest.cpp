#include <gtest/gtest.h>

#include <tuple>

#include "platform/AsciiCase.hpp"

namespace brimlog {
namespace {

// The neighbours of the letter ranges and the bytes of UTF-8 sequences stay as they are.
TEST(AsciiCaseTest, ChangesOnlyAsciiLetters) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"Opus 4.1", "opus 4.1", "Opus 4.1"},
      {"@AZ[`az{", "@az[`az{", "@AZ[`az{"},
      {"`max", "`max", "`max"},
      {"ÉCLAIR", "Éclair", "ÉCLAIR"},
      {"élite", "élite", "élite"},
      {"", "", ""},
  };
  for (const auto& [text, lowercased, capitalized] : rows) {
    EXPECT_EQ(asciiLowercased(text), lowercased) << text;
    EXPECT_EQ(asciiCapitalized(text), capitalized) << text;
  }
}

}  // namespace
}  // namespace brimlog
