#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "limits/CodexLimitsProvider.hpp"
#include "limits/CurlHTTPClient.hpp"
#include "store/UsageStore.hpp"
#include "support/LimitsPrinting.hpp"
#include "support/RawDatabase.hpp"
#include "support/ScopedEnvironment.hpp"
#include "support/StubCredentialSource.hpp"
#include "support/StubHTTPServer.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using testing::StubCredentialSource;
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
const std::string kToken =
    jwt(R"({"exp":1750003600,"sub":"user-SECRET","https://api.openai.com/auth":{"x":"y"}})");

std::string authWith(const std::string& tokens) {
  return R"({"OPENAI_API_KEY":null,"tokens":)" + tokens + R"(,"last_refresh":"2025-06-01"})";
}

std::string auth(const std::string& accessToken, const std::string& accountID = "acc-123") {
  return authWith(R"({"id_token":"i","access_token":")" + accessToken +
                  R"(","refresh_token":"r","account_id":")" + accountID + R"("})");
}

const std::string kUsageBody = R"({
  "plan_type": "plus",
  "rate_limit": {
    "allowed": true,
    "primary_window": {"used_percent": 42.5, "limit_window_seconds": 18000, "reset_at": 1750003600.5},
    "secondary_window": {"used_percent": 150, "limit_window_seconds": 604800, "reset_at": 1750500000}
  },
  "credits": {"has_credits": false}
})";

class CodexLimitsProviderTest : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    store = std::make_shared<UsageStore>(dir() / "usage.db");
    writeAuth(auth(kToken));
    server.respond(200, kUsageBody);
  }

  void writeAuth(const std::string& contents) { write("codex/auth.json", contents); }

  CodexLimitsProvider provider(bool withClient = true,
                               std::optional<std::string> url = std::nullopt) {
    return CodexLimitsProvider{
        store, credentials,
        withClient ? std::make_shared<CurlHTTPClient>() : std::shared_ptr<CurlHTTPClient>(),
        dir() / "codex", url.value_or(server.url())};
  }

  // A record as the host stored it `age` seconds before now: one live, one local and one stale
  // window, a plan and credits.
  ProviderLimits storeRecordOfAge(double age, ProviderStatus status = ProviderStatus::ok) {
    const Date fetchedAt = kNow - Seconds{age};
    ProviderLimits record{
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
    store->setLimits(record, ProviderID::codex);
    return record;
  }

  std::shared_ptr<UsageStore> store;
  std::shared_ptr<StubCredentialSource> credentials = std::make_shared<StubCredentialSource>();
  StubHTTPServer server{"/backend-api/wham/usage"};
};

ProviderLimits failure(ProviderStatus status) {
  return ProviderLimits{std::nullopt, {}, std::nullopt, status, kNow};
}

TEST_F(CodexLimitsProviderTest, EveryLiveOutcomeHasItsStatus) {
  struct Row {
    const char* name;
    std::optional<std::string> authFile;  // nothing: no auth.json at all
    int httpStatus;
    std::string body;
    ProviderStatus expected;
    size_t requests;
  };
  const std::vector<Row> rows = {
      {"auth.json missing", std::nullopt, 200, kUsageBody, ProviderStatus::unavailable, 0},
      {"auth.json not JSON", "tokens: " + kToken, 200, kUsageBody, ProviderStatus::unavailable, 0},
      {"auth.json an array", "[]", 200, kUsageBody, ProviderStatus::unavailable, 0},
      {"no tokens", R"({"OPENAI_API_KEY":"sk-1"})", 200, kUsageBody, ProviderStatus::unavailable,
       0},
      {"tokens null", authWith("null"), 200, kUsageBody, ProviderStatus::unavailable, 0},
      {"no access token", authWith(R"({"account_id":"a"})"), 200, kUsageBody,
       ProviderStatus::unavailable, 0},
      {"empty access token", auth(""), 200, kUsageBody, ProviderStatus::unavailable, 0},
      {"access token a number", authWith(R"({"access_token":5})"), 200, kUsageBody,
       ProviderStatus::unavailable, 0},
      {"account id a number", authWith(R"({"access_token":"t","account_id":5})"), 200, kUsageBody,
       ProviderStatus::unavailable, 0},
      {"expired a second ago", auth(jwt(R"({"exp":1749999999})")), 200, kUsageBody,
       ProviderStatus::signInNeeded, 0},
      {"expires exactly now", auth(jwt(R"({"exp":1750000000})")), 200, kUsageBody,
       ProviderStatus::signInNeeded, 0},
      {"expires in a second", auth(jwt(R"({"exp":1750000001})")), 200, kUsageBody,
       ProviderStatus::ok, 1},
      {"token without exp", auth(jwt(R"({"sub":"u"})")), 200, kUsageBody, ProviderStatus::ok, 1},
      {"token not a JWT", auth("opaque"), 200, kUsageBody, ProviderStatus::ok, 1},
      {"200 decodable", auth(kToken), 200, kUsageBody, ProviderStatus::ok, 1},
      {"200 not JSON", auth(kToken), 200, "<html></html>", ProviderStatus::unreachable, 1},
      {"200 plan a number", auth(kToken), 200, R"({"plan_type":1})", ProviderStatus::unreachable,
       1},
      {"200 rate_limit a list", auth(kToken), 200, R"({"rate_limit":[]})",
       ProviderStatus::unreachable, 1},
      {"200 used_percent text", auth(kToken), 200,
       R"({"rate_limit":{"primary_window":{"used_percent":"5"}}})", ProviderStatus::unreachable, 1},
      {"200 reset_at text", auth(kToken), 200,
       R"({"rate_limit":{"secondary_window":{"used_percent":5,"reset_at":"soon"}}})",
       ProviderStatus::unreachable, 1},
      {"200 window without figure, bad length", auth(kToken), 200,
       R"({"rate_limit":{"primary_window":{"limit_window_seconds":"5h"}}})",
       ProviderStatus::unreachable, 1},
      {"201 decodable", auth(kToken), 201, "{}", ProviderStatus::ok, 1},
      {"401", auth(kToken), 401, kUsageBody, ProviderStatus::signInNeeded, 1},
      {"403", auth(kToken), 403, "", ProviderStatus::signInNeeded, 1},
      {"429", auth(kToken), 429, kUsageBody, ProviderStatus::rateLimited, 1},
      {"302", auth(kToken), 302, "", ProviderStatus::unreachable, 1},
      {"500", auth(kToken), 500, kUsageBody, ProviderStatus::unreachable, 1},
  };

  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    std::filesystem::remove(dir() / "codex" / "auth.json");
    if (row.authFile) writeAuth(*row.authFile);
    server.clearRequests();
    server.respond(row.httpStatus, row.body);

    const ProviderLimits limits = provider().fetch(kNow);
    EXPECT_EQ(limits.status, row.expected);
    EXPECT_EQ(limits.fetchedAt, kNow);
    if (row.expected != ProviderStatus::ok) {
      EXPECT_EQ(limits, failure(row.expected));
    }
    EXPECT_EQ(server.requests().size(), row.requests);
  }

  // auth.json that cannot be read, and a missing client.
  std::filesystem::remove(dir() / "codex" / "auth.json");
  std::filesystem::create_directories(dir() / "codex" / "auth.json");
  EXPECT_EQ(provider().fetch(kNow), failure(ProviderStatus::unavailable));
  std::filesystem::remove(dir() / "codex" / "auth.json");
  writeAuth(auth(kToken));
  server.clearRequests();
  EXPECT_EQ(provider(false).fetch(kNow), failure(ProviderStatus::unavailable));
  EXPECT_TRUE(server.requests().empty());

  // Nobody listening.
  EXPECT_EQ(provider(true, testing::closedPortURL("/backend-api/wham/usage")).fetch(kNow),
            failure(ProviderStatus::unreachable));
}

TEST_F(CodexLimitsProviderTest, TheRequestCarriesTheTokenAndTheAccount) {
  const auto headersFor = [this](const std::string& authFile) {
    writeAuth(authFile);
    server.clearRequests();
    EXPECT_EQ(provider().fetch(kNow).status, ProviderStatus::ok);
    const auto requests = server.requests();
    EXPECT_EQ(requests.size(), 1u);
    return requests.empty() ? StubHTTPServer::Request{} : requests[0];
  };

  const auto withAccount = headersFor(auth(kToken, "acc-123"));
  EXPECT_EQ(withAccount.method, "GET");
  EXPECT_EQ(withAccount.path, "/backend-api/wham/usage");
  EXPECT_EQ(withAccount.header("Authorization"), "Bearer " + kToken);
  EXPECT_EQ(withAccount.header("ChatGPT-Account-Id"), "acc-123");
  EXPECT_EQ(withAccount.header("User-Agent"), "Brimlog/0.1.0");

  const auto emptyAccount = headersFor(auth(kToken, ""));
  EXPECT_EQ(emptyAccount.header("ChatGPT-Account-Id"), std::nullopt);
  EXPECT_EQ(emptyAccount.header("Authorization"), "Bearer " + kToken);

  const auto noAccount = headersFor(authWith(R"({"access_token":"plain","account_id":null})"));
  EXPECT_EQ(noAccount.header("ChatGPT-Account-Id"), std::nullopt);
  EXPECT_EQ(noAccount.header("Authorization"), "Bearer plain");
}

TEST_F(CodexLimitsProviderTest, WindowsComeWithTheLengthsTheServiceGives) {
  EXPECT_EQ(provider().fetch(kNow),
            (ProviderLimits{"Plus",
                            {LimitWindow{"session", "Session", 0.425, 18000.0,
                                         dateFromUnixSeconds(1750003600.5), LimitSource::live()},
                             LimitWindow{"weekly", "Weekly", 1.0, 604800.0,
                                         dateFromUnixSeconds(1750500000), LimitSource::live()}},
                            std::nullopt,
                            ProviderStatus::ok,
                            kNow}));

  const auto answerTo = [this](const std::string& body) {
    server.respond(200, body);
    return provider().fetch(kNow);
  };
  EXPECT_EQ(answerTo(R"({"plan_type":"team"})"),
            (ProviderLimits{"Team", {}, std::nullopt, ProviderStatus::ok, kNow}));
  EXPECT_EQ(answerTo(R"({"plan_type":"","rate_limit":null})"),
            (ProviderLimits{std::nullopt, {}, std::nullopt, ProviderStatus::ok, kNow}));

  // A window needs its figure; length and reset time may be missing.
  const auto partial = answerTo(R"({"rate_limit":{
      "primary_window":{"limit_window_seconds":18000,"reset_at":1750003600},
      "secondary_window":{"used_percent":-3,"limit_window_seconds":null}}})");
  EXPECT_EQ(partial.windows,
            (std::vector<LimitWindow>{LimitWindow{"weekly", "Weekly", 0.0, std::nullopt,
                                                  std::nullopt, LimitSource::live()}}));
  const auto oddLength = answerTo(
      R"({"rate_limit":{"primary_window":{"used_percent":10,"limit_window_seconds":3600}}})");
  ASSERT_EQ(oddLength.windows.size(), 1u);
  EXPECT_EQ(oddLength.windows[0].duration, 3600.0);
}

TEST_F(CodexLimitsProviderTest, TheExpiryIsReadFromTheTokenPayload) {
  using P = CodexLimitsProvider;
  EXPECT_EQ(P::tokenExpiry(jwt(R"({"exp":1750000000})")), dateFromUnixSeconds(1750000000));
  EXPECT_EQ(P::tokenExpiry(jwt(R"({"exp":1750000000.75,"iat":1})")),
            dateFromUnixSeconds(1750000000.75));
  // Payload bytes whose base64url form uses "-" and "_", and a token of just two parts.
  const std::string payload = R"({"exp":1700000000,"n":"??>>"})";
  const std::string encoded = base64URL(payload);
  ASSERT_NE(encoded.find_first_of("-_"), std::string::npos);
  EXPECT_EQ(P::tokenExpiry(std::string("h.").append(encoded)), dateFromUnixSeconds(1700000000));
  EXPECT_EQ(P::tokenExpiry(std::string(".").append(encoded).append("..")),
            dateFromUnixSeconds(1700000000));

  EXPECT_EQ(P::tokenExpiry(base64URL(R"({"exp":1})")), std::nullopt);  // one part
  EXPECT_EQ(P::tokenExpiry(""), std::nullopt);
  EXPECT_EQ(P::tokenExpiry("a..c"), std::nullopt);      // empty payload
  EXPECT_EQ(P::tokenExpiry("a.!!!!.c"), std::nullopt);  // not base64
  EXPECT_EQ(P::tokenExpiry(std::string("a.").append(base64URL("not json")).append(".c")),
            std::nullopt);
  EXPECT_EQ(P::tokenExpiry(jwt("[1750000000]")), std::nullopt);
  EXPECT_EQ(P::tokenExpiry(jwt("{}")), std::nullopt);
  EXPECT_EQ(P::tokenExpiry(jwt(R"({"exp":"1750000000"})")), std::nullopt);
  EXPECT_EQ(P::tokenExpiry(jwt(R"({"exp":null})")), std::nullopt);
  EXPECT_EQ(P::tokenExpiry(jwt(R"({"exp":true})")), std::nullopt);
}

TEST_F(CodexLimitsProviderTest, AFreshStoredRecordIsAnsweredWithoutAsking) {
  for (double age : {0.0, 599.0, 600.0, -100.0}) {
    SCOPED_TRACE(age);
    const ProviderLimits stored = storeRecordOfAge(age);
    EXPECT_EQ(provider().fetch(kNow), stored);
  }
  EXPECT_TRUE(server.requests().empty());
  EXPECT_TRUE(credentials->filesRead.empty());

  // One second older and the service is asked; the provider leaves the store alone.
  const ProviderLimits old = storeRecordOfAge(601);
  const ProviderLimits live = provider().fetch(kNow);
  EXPECT_EQ(live.status, ProviderStatus::ok);
  EXPECT_EQ(live.fetchedAt, kNow);
  EXPECT_EQ(live.plan, "Plus");
  ASSERT_EQ(live.windows.size(), 2u);
  EXPECT_EQ(live.windows[0].source, LimitSource::live());
  EXPECT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(credentials->filesRead,
            (std::vector<std::filesystem::path>{dir() / "codex" / "auth.json"}));
  EXPECT_EQ(store->limits(ProviderID::codex), old);
}

TEST_F(CodexLimitsProviderTest, AFailedFetchFallsBackOnTheStoredRecordMarkedStale) {
  const auto staleCopy = [](const ProviderLimits& stored, ProviderStatus status) {
    ProviderLimits expected = stored;
    const Date asOf = stored.fetchedAt;
    expected.windows[0].source = LimitSource::stale(asOf);
    expected.windows[1].source = LimitSource::stale(asOf);  // the local date is replaced
    // the third window was already stale and keeps its own date
    expected.status = status;
    return expected;
  };

  // The service's refusal replaces the stored status.
  ProviderLimits stored = storeRecordOfAge(3600);
  for (auto [httpStatus, status] :
       {std::pair{429, ProviderStatus::rateLimited}, std::pair{401, ProviderStatus::signInNeeded},
        std::pair{500, ProviderStatus::unreachable}}) {
    SCOPED_TRACE(httpStatus);
    server.respond(httpStatus, "");
    EXPECT_EQ(provider().fetch(kNow), staleCopy(stored, status));
  }
  server.respond(200, "garbage");
  EXPECT_EQ(provider().fetch(kNow), staleCopy(stored, ProviderStatus::unreachable));
  EXPECT_EQ(provider(true, testing::closedPortURL("/x")).fetch(kNow),
            staleCopy(stored, ProviderStatus::unreachable));
  writeAuth(auth(jwt(R"({"exp":1})")));
  EXPECT_EQ(provider().fetch(kNow), staleCopy(stored, ProviderStatus::signInNeeded));

  // No usable auth.json: the stored status stands.
  stored = storeRecordOfAge(3600, ProviderStatus::rateLimited);
  std::filesystem::remove(dir() / "codex" / "auth.json");
  EXPECT_EQ(provider().fetch(kNow), staleCopy(stored, ProviderStatus::rateLimited));

  // Without a client the stored record is all there is, however old.
  stored = storeRecordOfAge(86400 * 30);
  EXPECT_EQ(provider(false).fetch(kNow), stored);
}

TEST_F(CodexLimitsProviderTest, WithNothingStoredAFailureIsTheAnswer) {
  server.respond(429, "");
  EXPECT_EQ(provider().fetch(kNow), failure(ProviderStatus::rateLimited));
  EXPECT_EQ(provider(false).fetch(kNow), failure(ProviderStatus::unavailable));

  // A stored row that no longer decodes counts as nothing stored.
  storeRecordOfAge(10);
  {
    testing::RawDatabase raw{dir() / "usage.db"};
    EXPECT_EQ(raw.exec("UPDATE limits SET json = '{\"windows\":' WHERE provider = 'codex'"),
              SQLITE_OK);
  }
  server.clearRequests();
  EXPECT_EQ(provider().fetch(kNow), failure(ProviderStatus::rateLimited));
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(CodexLimitsProviderTest, TheTokenNeverAppearsInWhatTheProviderProduces) {
  // The service echoing the token back must not carry it into the record: only known fields are
  // read.
  const std::string echo = R"({"plan_type":"plus","access_token":")" + kToken +
                           R"(","rate_limit":{"primary_window":{"used_percent":1,"token":")" +
                           kToken + R"("}}})";
  std::vector<ProviderLimits> results;
  for (int status : {200, 401, 429, 500}) {
    server.respond(status, echo);
    results.push_back(provider().fetch(kNow));
  }
  storeRecordOfAge(3600);
  server.respond(200, "not json " + kToken);
  results.push_back(provider().fetch(kNow));
  writeAuth(auth(jwt(R"({"exp":1,"sub":"user-SECRET"})")));
  results.push_back(provider().fetch(kNow));

  for (const ProviderLimits& limits : results) expectNoSecret(limits, {kToken, "SECRET"});
}

TEST(CodexLimitsProviderHomeTest, CodexHomeFollowsTheEnvironment) {
  testing::ScopedEnvironment environment;
  environment.unset("CODEX_HOME");
  EXPECT_EQ(CodexLimitsProvider::defaultCodexHome("/home/u"), "/home/u/.codex");
  environment.set("CODEX_HOME", "");
  EXPECT_EQ(CodexLimitsProvider::defaultCodexHome("/home/u"), "/home/u/.codex");
  environment.set("CODEX_HOME", "/srv/codex-home");
  EXPECT_EQ(CodexLimitsProvider::defaultCodexHome("/home/u"), "/srv/codex-home");
}

}  // namespace
}  // namespace brimlog
