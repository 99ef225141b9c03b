#include <gtest/gtest.h>

#include "platform/AsciiCase.hpp"

namespace brimlog {
namespace {

// The neighbours of the letter ranges and the bytes of UTF-8 sequences stay as they are.
TEST(AsciiCaseTest, ChangesOnlyAsciiLetters) {
  struct Row {
    const char* text;
    const char* lowercased;
    const char* capitalized;
  };
  const Row rows[] = {
      {"Opus 4.1", "opus 4.1", "Opus 4.1"},
      {"@AZ[`az{", "@az[`az{", "@AZ[`az{"},
      {"`max", "`max", "`max"},
      {"ÉCLAIR", "Éclair", "ÉCLAIR"},
      {"élite", "élite", "élite"},
      {"", "", ""},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(asciiLowercased(row.text), row.lowercased) << row.text;
    EXPECT_EQ(asciiCapitalized(row.text), row.capitalized) << row.text;
  }
}

}  // namespace
}  // namespace brimlog
