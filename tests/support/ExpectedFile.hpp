#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace brimlog::testing {

/// Whether `actual` is exactly the text of the file `name` in tests/expected/. A mismatch is
/// explained by a line diff ("-" only expected, "+" only actual). When the environment has
/// BRIMLOG_REGENERATE_EXPECTED=1 the file is rewritten with `actual` instead, the result is a
/// success, and a line on standard error says which file was written.
///
///     EXPECT_TRUE(matchesExpectedFile("report-daily.txt", text));
::testing::AssertionResult matchesExpectedFile(std::string_view name, std::string_view actual);

/// Whether two texts are the same, a mismatch explained by the same line diff.
::testing::AssertionResult sameLines(const std::string& expected, const std::string& actual);

}  // namespace brimlog::testing
