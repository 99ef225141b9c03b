#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "limits/CodexLimitsProvider.hpp"
#include "limits/CurlHTTPClient.hpp"
#include "support/LimitsPrinting.hpp"
#include "support/ScopedEnvironment.hpp"
#include "support/StubCredentialSource.hpp"
#include "support/StubHTTPServer.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using testing::StubHTTPServer;

const Date kNow = dateFromUnixSeconds(1'750'000'000);

// Unpadded base64url, the form of a JSON Web Token's parts.
std::string base64URL(std::string_view bytes) {
  static constexpr char kAlphabet[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string out;
  uint32_t buffer = 0;
  int bits = 0;
  for (const char c : bytes) {
    buffer = (buffer << 8) | static_cast<unsigned char>(c);
    bits += 8;
    while (bits >= 6) {
      bits -= 6;
      out.push_back(kAlphabet[(buffer >> bits) & 0x3F]);
    }
  }
  if (bits > 0) out.push_back(kAlphabet[(buffer << (6 - bits)) & 0x3F]);
  return out;
}

// A token whose payload is `claims`; the signature is never checked.
std::string jwt(const std::string& claims) {
  return base64URL(R"({"alg":"RS256","typ":"JWT"})") + "." + base64URL(claims) +
         ".c2lnbmF0dXJlLVNFQ1JFVA";
}

// A token that is valid for another hour, with a marker that must never leak.
const std::string kToken = jwt(R"({"exp":1750003600,"sub":"user-SECRET"})");

std::string authWith(const std::string& tokens) {
  return R"({"OPENAI_API_KEY":null,"tokens":)" + tokens + R"(,"last_refresh":"2025-06-01"})";
}

std::string auth(const std::string& accessToken, const std::string& accountID = "acc-123") {
  return authWith(R"({"id_token":"i","access_token":")" + accessToken +
                  R"(","refresh_token":"r","account_id":")" + accountID + R"("})");
}

const std::string kUsageBody = R"({"plan_type": "plus", "rate_limit": {"allowed": true,
  "primary_window": {"used_percent": 42.5, "limit_window_seconds": 18000, "reset_at": 1750003600.5},
  "secondary_window": {"used_percent": 150, "limit_window_seconds": 604800, "reset_at": 1750500000}
}, "credits": {"has_credits": false}})";

LimitWindow live(const char* id, double used, std::optional<double> duration,
                 std::optional<Date> resetsAt = std::nullopt) {
  return LimitWindow{id,       id == std::string("session") ? "Session" : "Weekly",
                     used,     duration,
                     resetsAt, LimitSource::live()};
}

ProviderLimits failure(ProviderStatus status) {
  return ProviderLimits{std::nullopt, {}, std::nullopt, status, kNow};
}

TEST(CodexUsageDecodingTest, ResponsesGiveThePlanAndTheWindowsWithTheirOwnLengths) {
  const auto ok = [](std::optional<std::string> plan, std::vector<LimitWindow> windows) {
    return std::optional<ProviderLimits>(ProviderLimits{std::move(plan), std::move(windows),
                                                        std::nullopt, ProviderStatus::ok, kNow});
  };
  struct Row {
    std::string body;
    std::optional<ProviderLimits> limits;
  };
  const Row rows[] = {
      {kUsageBody, ok("Plus", {live("session", 0.425, 18000, dateFromUnixSeconds(1750003600.5)),
                               live("weekly", 1.0, 604800, dateFromUnixSeconds(1750500000))})},
      {R"({"plan_type":"team"})", ok("Team", {})},
      {R"({"plan_type":"","rate_limit":null})", ok(std::nullopt, {})},
      // A window needs its figure; length and reset time may be missing.
      {R"({"rate_limit":{"primary_window":{"limit_window_seconds":18000,"reset_at":1750003600},
          "secondary_window":{"used_percent":-3,"limit_window_seconds":null}}})",
       ok(std::nullopt, {live("weekly", 0.0, std::nullopt)})},
      {R"({"rate_limit":{"primary_window":{"used_percent":10,"limit_window_seconds":3600}}})",
       ok(std::nullopt, {live("session", 0.1, 3600)})},
      {"<html></html>", std::nullopt},
      {"[]", std::nullopt},
      {R"({"plan_type":1})", std::nullopt},
      {R"({"rate_limit":[]})", std::nullopt},
      {R"({"rate_limit":{"primary_window":{"used_percent":"5"}}})", std::nullopt},
      {R"({"rate_limit":{"secondary_window":{"used_percent":5,"reset_at":"soon"}}})", std::nullopt},
      {R"({"rate_limit":{"primary_window":{"limit_window_seconds":"5h"}}})", std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(CodexLimitsProvider::decodeUsage(row.body, kNow), row.limits) << row.body;
  }
  // A service echoing the token back must not carry it into the record: only known fields count.
  const auto echoed = CodexLimitsProvider::decodeUsage(
      R"({"plan_type":"plus","access_token":")" + kToken +
          R"(","rate_limit":{"primary_window":{"used_percent":1,"token":")" + kToken + R"("}}})",
      kNow);
  ASSERT_TRUE(echoed);
  expectNoSecret(*echoed, {kToken, "SECRET"});
}

TEST(CodexUsageDecodingTest, TheExpiryIsReadFromTheTokenPayload) {
  // Payload bytes whose base64url form uses "-" and "_".
  const std::string encoded = base64URL(R"({"exp":1700000000,"n":"??>>"})");
  ASSERT_NE(encoded.find_first_of("-_"), std::string::npos);
  const std::pair<std::string, std::optional<Date>> rows[] = {
      {jwt(R"({"exp":1750000000})"), dateFromUnixSeconds(1750000000)},
      {jwt(R"({"exp":1750000000.75,"iat":1})"), dateFromUnixSeconds(1750000000.75)},
      {"h." + encoded, dateFromUnixSeconds(1700000000)},  // two parts are enough
      {"." + encoded + "..", dateFromUnixSeconds(1700000000)},
      {base64URL(R"({"exp":1})"), std::nullopt},  // one part
      {"", std::nullopt},
      {"a..c", std::nullopt},      // empty payload
      {"a.!!!!.c", std::nullopt},  // not base64
      {"a." + base64URL("not json") + ".c", std::nullopt},
      {jwt("[1750000000]"), std::nullopt},
      {jwt("{}"), std::nullopt},
      {jwt(R"({"exp":"1750000000"})"), std::nullopt},
      {jwt(R"({"exp":null})"), std::nullopt},
      {jwt(R"({"exp":true})"), std::nullopt},
  };
  for (const auto& [token, expiry] : rows) {
    EXPECT_EQ(CodexLimitsProvider::tokenExpiry(token), expiry) << token;
  }
}

TEST(CodexUsageDecodingTest, CodexHomeIsTheVariablesValueOrTheDefaultButNeverReadHere) {
  const testing::ScopedEnvironment environment("CODEX_HOME", "/from/the/environment");
  EXPECT_EQ(CodexLimitsProvider::codexHomeFor("/home/u", ""), "/home/u/.codex");
  EXPECT_EQ(CodexLimitsProvider::codexHomeFor("/home/u", "/srv/codex"), "/srv/codex");
}

class CodexLimitsProviderTest : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    writeAuth(auth(kToken));
    server.respond(200, kUsageBody);
  }

  void writeAuth(const std::string& contents) { write("codex/auth.json", contents); }

  CodexLimitsProvider provider(bool withClient = true, std::string url = "") {
    return CodexLimitsProvider{
        [this]() -> std::optional<ProviderLimits> {
          if (storeFails) throw std::runtime_error("the store cannot be read");
          return stored;
        },
        credentials,
        withClient ? std::make_shared<CurlHTTPClient>() : std::shared_ptr<CurlHTTPClient>(),
        dir() / "codex", url.empty() ? server.url() : url};
  }

  // A record kept `age` seconds before now: one live, one local and one stale window, a plan and
  // credits.
  ProviderLimits storedOfAge(double age, ProviderStatus status = ProviderStatus::ok) {
    const Date fetchedAt = kNow - Seconds{age};
    stored = ProviderLimits{
        "Pro",
        {LimitWindow{"session", "Session", 0.25, 18000.0, kNow + Seconds{3600},
                     LimitSource::live()},
         LimitWindow{"weekly", "Weekly", 0.5, 604800.0, std::nullopt,
                     LimitSource::local(fetchedAt - Seconds{30})},
         LimitWindow{"weekly.gpt-5", "Weekly · gpt-5", 0.75, std::nullopt, std::nullopt,
                     LimitSource::stale(dateFromUnixSeconds(1'700'000'000))}},
        Credits{"Credits", 4.5, std::nullopt, std::nullopt, false},
        status,
        fetchedAt};
    return *stored;
  }

  std::optional<ProviderLimits> stored;
  bool storeFails = false;
  std::shared_ptr<testing::StubCredentialSource> credentials =
      std::make_shared<testing::StubCredentialSource>();
  StubHTTPServer server{"/backend-api/wham/usage"};
};

TEST_F(CodexLimitsProviderTest, EveryAuthFileHasItsOutcome) {
  struct Row {
    const char* name;
    std::optional<std::string> authFile;  // nothing: no auth.json at all
    ProviderStatus status;
  };
  const auto unavailable = ProviderStatus::unavailable;
  const Row rows[] = {
      {"auth.json missing", std::nullopt, unavailable},
      {"not JSON", "tokens: " + kToken, unavailable},
      {"an array", "[]", unavailable},
      {"no tokens", R"({"OPENAI_API_KEY":"sk-1"})", unavailable},
      {"tokens null", authWith("null"), unavailable},
      {"no access token", authWith(R"({"account_id":"a"})"), unavailable},
      {"empty access token", auth(""), unavailable},
      {"access token a number", authWith(R"({"access_token":5})"), unavailable},
      {"account id a number", authWith(R"({"access_token":"t","account_id":5})"), unavailable},
      {"expired a second ago", auth(jwt(R"({"exp":1749999999})")), ProviderStatus::signInNeeded},
      {"expires exactly now", auth(jwt(R"({"exp":1750000000})")), ProviderStatus::signInNeeded},
      {"expires in a second", auth(jwt(R"({"exp":1750000001})")), ProviderStatus::ok},
      {"token without exp", auth(jwt(R"({"sub":"u"})")), ProviderStatus::ok},
      {"token not a JWT", auth("opaque"), ProviderStatus::ok},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove(dir() / "codex" / "auth.json");
    if (row.authFile) writeAuth(*row.authFile);
    server.clearRequests();
    const ProviderLimits limits = provider().fetch(kNow);
    EXPECT_EQ(limits, row.status == ProviderStatus::ok
                          ? *CodexLimitsProvider::decodeUsage(kUsageBody, kNow)
                          : failure(row.status));
    EXPECT_EQ(server.requests().size(), row.status == ProviderStatus::ok ? 1u : 0u);
  }

  // auth.json that cannot be read, and a missing client.
  std::filesystem::remove(dir() / "codex" / "auth.json");
  std::filesystem::create_directories(dir() / "codex" / "auth.json");
  EXPECT_EQ(provider().fetch(kNow), failure(unavailable));
  std::filesystem::remove(dir() / "codex" / "auth.json");
  writeAuth(auth(kToken));
  server.clearRequests();
  EXPECT_EQ(provider(false).fetch(kNow), failure(unavailable));
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(CodexLimitsProviderTest, TheRequestCarriesTheTokenAndTheAccountWhenThereIsOne) {
  struct Row {
    std::string authFile;
    std::string token;
    std::optional<std::string> account;
  };
  const Row rows[] = {
      {auth(kToken, "acc-123"), kToken, "acc-123"},
      {auth(kToken, ""), kToken, std::nullopt},
      {authWith(R"({"access_token":"plain","account_id":null})"), "plain", std::nullopt},
  };
  for (const Row& row : rows) {
    writeAuth(row.authFile);
    server.clearRequests();
    EXPECT_EQ(provider().fetch(kNow).status, ProviderStatus::ok);
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].path, "/backend-api/wham/usage");
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer " + row.token);
    EXPECT_EQ(requests[0].header("ChatGPT-Account-Id"), row.account);
    EXPECT_EQ(requests[0].header("User-Agent"), "Brimlog/0.1.0");
  }
}

TEST_F(CodexLimitsProviderTest, AFreshStoredRecordIsAnsweredWithoutAsking) {
  for (double age : {0.0, 599.0, 600.0, -100.0}) {
    EXPECT_EQ(provider().fetch(kNow), storedOfAge(age)) << age;
  }
  EXPECT_TRUE(server.requests().empty());
  EXPECT_TRUE(credentials->filesRead.empty());

  // One second older and the service is asked.
  storedOfAge(601);
  EXPECT_EQ(provider().fetch(kNow), *CodexLimitsProvider::decodeUsage(kUsageBody, kNow));
  EXPECT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(credentials->filesRead,
            (std::vector<std::filesystem::path>{dir() / "codex" / "auth.json"}));
}

TEST_F(CodexLimitsProviderTest, AFailedFetchFallsBackOnTheStoredRecordMarkedStale) {
  const auto staleCopy = [](const ProviderLimits& kept, ProviderStatus status) {
    ProviderLimits expected = kept;
    expected.windows[0].source = LimitSource::stale(kept.fetchedAt);
    expected.windows[1].source = LimitSource::stale(kept.fetchedAt);  // the local date goes
    expected.status = status;  // the third window was already stale and keeps its own date
    return expected;
  };
  const ProviderLimits kept = storedOfAge(3600);
  struct Row {
    const char* name;
    int httpStatus;
    std::string body;
    std::string url;
    ProviderStatus status;
  };
  const Row rows[] = {
      {"rate limited", 429, "", "", ProviderStatus::rateLimited},
      {"refused", 401, "", "", ProviderStatus::signInNeeded},
      {"failing", 500, "", "", ProviderStatus::unreachable},
      {"an undecodable body", 200, "not json " + kToken, "", ProviderStatus::unreachable},
      {"nobody listening", 200, kUsageBody, testing::closedPortURL(), ProviderStatus::unreachable},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    server.respond(row.httpStatus, row.body);
    const ProviderLimits limits = provider(true, row.url).fetch(kNow);
    EXPECT_EQ(limits, staleCopy(kept, row.status));
    expectNoSecret(limits, {kToken, "SECRET"});
  }
  writeAuth(auth(jwt(R"({"exp":1})")));
  EXPECT_EQ(provider().fetch(kNow), staleCopy(kept, ProviderStatus::signInNeeded));

  // No usable auth.json: the stored status stands.
  std::filesystem::remove(dir() / "codex" / "auth.json");
  EXPECT_EQ(provider().fetch(kNow),
            staleCopy(storedOfAge(3600, ProviderStatus::rateLimited), ProviderStatus::rateLimited));

  // Without a client the stored record is all there is, however old.
  EXPECT_EQ(provider(false).fetch(kNow), storedOfAge(86400 * 30));
}

TEST_F(CodexLimitsProviderTest, WithNothingStoredAFailureIsTheAnswer) {
  server.respond(429, "");
  EXPECT_EQ(provider().fetch(kNow), failure(ProviderStatus::rateLimited));
  EXPECT_EQ(provider(false).fetch(kNow), failure(ProviderStatus::unavailable));

  // A reader that fails counts as nothing stored, however fresh the record behind it.
  storedOfAge(10);
  storeFails = true;
  server.clearRequests();
  EXPECT_EQ(provider().fetch(kNow), failure(ProviderStatus::rateLimited));
  EXPECT_EQ(server.requests().size(), 1u);
}

}  // namespace
}  // namespace brimlog
