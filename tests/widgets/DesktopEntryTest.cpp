// The example launcher in contrib/, read as a desktop reads it. (That its address is served bare
// is WidgetServerTest's and the browser test's.)

#include <gtest/gtest.h>

#include <regex>

#include "server/WidgetPage.hpp"
#include "support/RunningProgram.hpp"
#include "support/TempDir.hpp"
#include "timeline/BrimlogWidgets.hpp"

namespace brimlog {
namespace {

TEST(DesktopEntryTest, TheExampleIsAValidEntryOpeningABareWidgetInAWindowOfItsSize) {
  const std::string path = BRIMLOG_SOURCE_DIR "/contrib/brimlog-widget.desktop";
  const std::string entry = testing::readFile(path);
  std::smatch exec;
  ASSERT_TRUE(std::regex_search(
      entry, exec,
      std::regex(R"re(\nExec=chromium "--app=http://127\.0\.0\.1:8717/widgets/([^?"]+)\?)re"
                 R"re([^"]*bare=1" --window-size=(\d+),(\d+)\n)re")));
  const std::optional<WidgetDescription> widget = BrimlogWidgets::widget(exec[1].str());
  ASSERT_TRUE(widget) << exec[1];
  EXPECT_EQ(WidgetPage::size(widget->family),
            std::pair(std::stoi(exec[2].str()), std::stoi(exec[3].str())));

  testing::RunningProgram validator{{"desktop-file-validate", path}};
  if (!validator.started()) {
    GTEST_SKIP() << "desktop-file-validate is not installed (Debian's desktop-file-utils)";
  }
  const testing::RunningProgram::Result result = validator.finish();
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(result.output, "");  // not even a hint
}

}  // namespace
}  // namespace brimlog
