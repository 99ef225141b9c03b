#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "limits/ClaudeConfigCredentialSource.hpp"
#include "limits/CurlHTTPClient.hpp"
#include "state/HostSettings.hpp"
#include "store/UsageStore.hpp"
#include "support/StubHTTPServer.hpp"
#include "support/TempDir.hpp"
#include "sync/LimitsFetcher.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

TEST(LimitsFetcherTest, TokensTravelOnlyEncryptedOrToThisMachine) {
  for (const char* url : {"https://api.anthropic.com/api/oauth/usage", "http://127.0.0.1:8080/u",
                          "http://[::1]:9000/u", "http://localhost/u", "http://localhost"}) {
    EXPECT_TRUE(LimitsEndpoints::isAcceptable(url)) << url;
  }
  for (const char* url : {"http://usage.example.com/u", "http://localhost.example.com/u",
                          "http://127.0.0.1.example.com/u", "http://evil@example.com/",
                          "ftp://127.0.0.1/u", "https://", "", "HTTP://127.0.0.2/"}) {
    EXPECT_FALSE(LimitsEndpoints::isAcceptable(url)) << url;
  }
  HostSettings settings;
  EXPECT_EQ(LimitsEndpoints::from(settings).claude, "https://api.anthropic.com/api/oauth/usage");
  settings.claudeUsageURL = "http://127.0.0.1:1/x";
  EXPECT_EQ(LimitsEndpoints::from(settings).claude, "http://127.0.0.1:1/x");
  settings.claudeUsageURL = "http://example.com/x";
  // Refused before any sign-in is read, naming the setting.
  EXPECT_THAT([&] { LimitsEndpoints::from(settings); },
              ::testing::ThrowsMessage<CommandError>(
                  ::testing::HasSubstr("BRIMLOG_CLAUDE_USAGE_URL=http://example.com/x: must be")));
}

class LimitsFetcherRunTest : public testing::TempDirTest {};

TEST_F(LimitsFetcherRunTest, FetchesOnlyPresentToolsWhenDueAndBacksOffWhileUnreachable) {
  fs::create_directories(dir() / "home/.claude/projects");
  fs::create_directories(dir() / "home/.grok/sessions");
  write("home/.claude/.credentials.json",
        R"({"claudeAiOauth":{"accessToken":"t","expiresAt":4102444800000}})");
  auto store = std::make_shared<UsageStore>(dir() / "usage.db");
  auto credentials =
      std::make_shared<ClaudeConfigCredentialSource>(std::vector<fs::path>{dir() / "home/.claude"});
  testing::StubHTTPServer server{"/api/oauth/usage"};
  server.respond(500, "");
  LimitsFetcher fetcher{store, ToolLocations::resolve(dir() / "home", {}), credentials,
                        std::make_shared<CurlHTTPClient>(),
                        LimitsEndpoints{server.url(), "http://127.0.0.1:1/unused"}};

  RefreshState state;
  const Date now = *parseISO8601("2026-11-20T12:00:00Z");
  std::vector<FetchOutcome> first = fetcher.run(now, state, false);
  // Claude alone: no Codex data here, and Grok, present, has no limits to ask for.
  ASSERT_EQ(first.size(), 1u);
  EXPECT_EQ(first[0].provider, ProviderID::claude);
  EXPECT_EQ(first[0].limits->status, ProviderStatus::unreachable);
  EXPECT_EQ(state[ProviderID::claude].lastAttempt, now);
  EXPECT_FALSE(state[ProviderID::claude].lastFetch);
  EXPECT_EQ(state[ProviderID::claude].delay, 600);  // backing off
  EXPECT_FALSE(store->limits(ProviderID::grok));

  // Too soon for another attempt; forced, it goes out and the back-off grows.
  std::vector<FetchOutcome> soon = fetcher.run(now + Seconds{100}, state, false);
  EXPECT_FALSE(soon[0].fetched);
  EXPECT_FALSE(soon[0].limits);
  fetcher.run(now + Seconds{200}, state, true);
  EXPECT_EQ(state[ProviderID::claude].delay, 1200);
  EXPECT_EQ(server.requests().size(), 2u);

  // The state survives a save and a load; a damaged file is an empty state.
  const fs::path path = RefreshState::pathIn(dir());
  state.save(path);
  EXPECT_EQ(RefreshState::load(path), state);
  write("refresh.json", "{not json");
  EXPECT_EQ(RefreshState::load(path), RefreshState{});
}

}  // namespace
}  // namespace brimlog
