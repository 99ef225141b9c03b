// The widget server on a real loopback port, asked as a browser would.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <memory>
#include <thread>

#include "display/SnapshotStore.hpp"
#include "server/WidgetServer.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::HasSubstr;

class WidgetServerTest : public testing::TempDirTest {};

TEST_F(WidgetServerTest, AnswersEveryWidgetAndRefusesWhatItCannotShow) {
  SnapshotStore{dir() / "shared"}.write(Snapshot::placeholder());
  WidgetServer server{dir() / "shared", [] { return *parseISO8601("2026-10-29T12:10:00Z"); }};
  httplib::Client http{"127.0.0.1", server.bind(0)};
  std::jthread listening{[&] { server.listen(); }};
  // Stopped before the thread is joined, however the test ends.
  const std::shared_ptr<void> stop{nullptr, [&](void*) { server.stop(); }};

  const auto gallery = http.Get("/");
  ASSERT_TRUE(gallery);
  size_t widgets = 0;
  for (size_t at = gallery->body.find("class=\"widget "); at != std::string::npos;
       at = gallery->body.find("class=\"widget ", at + 1)) {
    ++widgets;
  }
  EXPECT_EQ(widgets, 5u);  // the small one per tool read here (3), the medium and the large
  EXPECT_THAT(gallery->get_header_value("Content-Security-Policy"),
              HasSubstr("default-src 'none'"));

  // Ten minutes after the sample was made: an entry now and one when it turns stale. (That the
  // page shows the tool asked for is the browser test's.)
  const auto small = http.Get("/widgets/app.brimlog.small?provider=codex");
  ASSERT_TRUE(small);
  EXPECT_THAT(small->body, HasSubstr("<section class=\"entry\" data-date=\"1793277001\" hidden>"));

  const auto unknownProvider = http.Get("/widgets/app.brimlog.small?provider=gemini");
  ASSERT_TRUE(unknownProvider);
  EXPECT_THAT(unknownProvider->body, HasSubstr("Unknown provider \"gemini\""));

  const auto unknownKind = http.Get("/widgets/app.brimlog.huge");
  ASSERT_TRUE(unknownKind);
  EXPECT_EQ(unknownKind->status, 404);
  EXPECT_THAT(unknownKind->body, HasSubstr("app.brimlog.small, app.brimlog.medium"));
}

}  // namespace
}  // namespace brimlog
