// The example launcher in contrib/, read as a desktop reads it: it opens a widget that the server
// serves bare, in a window of that widget's size, and it is a valid desktop entry.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <memory>
#include <regex>
#include <thread>

#include "server/WidgetPage.hpp"
#include "server/WidgetServer.hpp"
#include "support/RunningProgram.hpp"
#include "support/TempDir.hpp"
#include "timeline/BrimlogWidgets.hpp"

namespace brimlog {
namespace {

const std::filesystem::path kEntry =
    std::filesystem::path(BRIMLOG_SOURCE_DIR) / "contrib" / "brimlog-widget.desktop";

TEST(DesktopEntryTest, TheExampleOpensABareWidgetInAWindowOfItsSize) {
  const std::string entry = testing::readFile(kEntry);
  std::smatch exec;
  ASSERT_TRUE(std::regex_search(
      entry, exec,
      std::regex(
          R"re(\nExec=chromium "--app=http://127\.0\.0\.1:8717(/widgets/([^?"]+)\?[^"]*)" )re"
          R"re(--window-size=(\d+),(\d+)\n)re")))
      << entry;
  const std::optional<WidgetDescription> widget = BrimlogWidgets::widget(exec[2].str());
  ASSERT_TRUE(widget) << exec[2];
  EXPECT_EQ(WidgetPage::size(widget->family),
            std::pair(std::stoi(exec[3].str()), std::stoi(exec[4].str())));

  // Its comment gives every widget's address with its size.
  for (const WidgetDescription& each : BrimlogWidgets::widgets()) {
    const auto [width, height] = WidgetPage::size(each.family);
    EXPECT_TRUE(std::regex_search(
        entry, std::regex(fmt::format(R"(# +{}[^\n]* {},{}\n)", each.kind, width, height))))
        << each.kind;
  }

  WidgetServer server{std::nullopt};
  httplib::Client http{"127.0.0.1", server.bind(0)};
  std::jthread listening{[&] { server.listen(); }};
  const std::shared_ptr<void> stop{nullptr, [&](void*) { server.stop(); }};
  const auto page = http.Get(exec[1].str());
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  EXPECT_THAT(page->body, ::testing::HasSubstr("class=\"bare\""));
}

TEST(DesktopEntryTest, TheExampleIsAValidDesktopEntry) {
  testing::RunningProgram validator{{"desktop-file-validate", kEntry.string()}};
  if (!validator.started()) {
    GTEST_SKIP() << "desktop-file-validate is not installed (Debian's desktop-file-utils)";
  }
  const testing::RunningProgram::Result result = validator.finish();
  EXPECT_EQ(result.exitStatus, 0) << result.output;
  EXPECT_EQ(result.output, "");  // not even a hint
}

}  // namespace
}  // namespace brimlog
