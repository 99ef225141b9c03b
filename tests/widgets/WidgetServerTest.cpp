// The widget server on a real loopback port, asked as a browser would.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>

#include <thread>

#include "display/SnapshotStore.hpp"
#include "platform/RefreshRequest.hpp"
#include "server/WidgetServer.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using ::testing::HasSubstr;

class WidgetServerTest : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    server_ = std::make_unique<WidgetServer>(dir() / "shared",
                                             [] { return *parseISO8601("2026-10-29T12:10:00Z"); });
    port_ = server_->bind(0);
    thread_ = std::thread{[this] { server_->listen(); }};
  }
  void TearDown() override {
    server_->stop();
    thread_.join();
    TempDirTest::TearDown();
  }
  httplib::Client client() const { return httplib::Client{"127.0.0.1", port_}; }

  std::unique_ptr<WidgetServer> server_;
  int port_ = 0;
  std::thread thread_;
};

TEST_F(WidgetServerTest, AnswersEveryWidgetAndRefusesWhatItCannotShow) {
  SnapshotStore{dir() / "shared"}.write(Snapshot::placeholder());
  httplib::Client http = client();

  const auto gallery = http.Get("/");
  ASSERT_TRUE(gallery);
  EXPECT_EQ(gallery->status, 200);
  size_t widgets = 0;
  for (size_t at = gallery->body.find("class=\"widget "); at != std::string::npos;
       at = gallery->body.find("class=\"widget ", at + 1)) {
    ++widgets;
  }
  EXPECT_EQ(widgets, 5u);  // the small one per tool read here (3), the medium and the large
  EXPECT_THAT(gallery->get_header_value("Content-Security-Policy"),
              HasSubstr("default-src 'none'"));

  // Ten minutes after the sample was made: an entry now and one when it turns stale.
  const auto small = http.Get("/widgets/app.brimlog.small?provider=codex");
  ASSERT_TRUE(small);
  EXPECT_EQ(small->status, 200);
  EXPECT_THAT(small->body, HasSubstr("data-provider=\"codex\""));
  EXPECT_THAT(small->body, HasSubstr("<section class=\"entry\" data-date=\"1793277001\" hidden>"));

  const auto unknownProvider = http.Get("/widgets/app.brimlog.small?provider=gemini");
  ASSERT_TRUE(unknownProvider);
  EXPECT_EQ(unknownProvider->status, 400);
  EXPECT_THAT(unknownProvider->body, HasSubstr("Unknown provider \"gemini\""));

  const auto unknownKind = http.Get("/widgets/app.brimlog.huge");
  ASSERT_TRUE(unknownKind);
  EXPECT_EQ(unknownKind->status, 404);
  EXPECT_THAT(unknownKind->body, HasSubstr("app.brimlog.small, app.brimlog.medium"));

  const auto foreign =
      http.Post("/intents/refresh", {{"Origin", "http://evil.example"}}, "", "text/plain");
  ASSERT_TRUE(foreign);
  EXPECT_EQ(foreign->status, 403);
  // The button reaches a daemon's listener, and says so when there is none.
  const httplib::Headers own = {{"Origin", "http://127.0.0.1:" + std::to_string(port_)}};
  const auto nobody = http.Post("/intents/refresh", own, "", "text/plain");
  ASSERT_TRUE(nobody);
  EXPECT_EQ(nobody->status, 503);
  EXPECT_THAT(nobody->body, HasSubstr("no Brimlog daemon is running"));
  std::optional<RefreshRequest::Listener> daemon = RefreshRequest::listen(dir() / "shared");
  ASSERT_TRUE(daemon);
  const auto asked = http.Post("/intents/refresh", own, "", "text/plain");
  ASSERT_TRUE(asked);
  EXPECT_EQ(asked->status, 204);
  EXPECT_TRUE(daemon->take());
}

}  // namespace
}  // namespace brimlog
