#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "limits/CodexLimitsProvider.hpp"
#include "limits/CurlHTTPClient.hpp"
#include "support/DecodingCase.hpp"
#include "support/LimitsPrinting.hpp"
#include "support/StubCredentialSource.hpp"
#include "support/StubHTTPServer.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using testing::StubHTTPServer;

const Date kNow = dateFromUnixSeconds(1'750'000'000);

// Unpadded base64url, the form of a JSON Web Token's parts.
std::string base64URL(std::string_view bytes) {
  static constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string out;
  // Six bits at a time, most significant first; the last group is filled up with zero bits.
  unsigned buffer = 0, bits = 0;
  for (const unsigned char byte : bytes) {
    buffer = (buffer << 8) | byte;
    for (bits += 8; bits >= 6; bits -= 6) out += kAlphabet[(buffer >> (bits - 6)) & 63];
  }
  if (bits > 0) out += kAlphabet[(buffer << (6 - bits)) & 63];
  return out;
}

// A token whose payload is `claims`; the signature is never checked.
std::string jwt(const std::string& claims) {
  return "eyJhbGciOiJSUzI1NiJ9." + base64URL(claims) + ".c2lnbmF0dXJlLVNFQ1JFVA";
}

// A token that is valid for another hour, with a marker that must never leak.
const std::string kToken = jwt(R"({"exp":1750003600,"sub":"user-SECRET"})");

std::string auth(const std::string& accessToken, const std::string& accountID = "acc-123") {
  return R"({"OPENAI_API_KEY":null,"tokens":{"id_token":"i","access_token":")" + accessToken +
         R"(","refresh_token":"r","account_id":")" + accountID +
         R"("},"last_refresh":"2025-06-01"})";
}

ProviderLimits answer(ProviderStatus status, std::optional<std::string> plan = std::nullopt,
                      std::vector<LimitWindow> windows = {}) {
  return ProviderLimits{std::move(plan), std::move(windows), std::nullopt, status, kNow};
}

// The bodies are in tests/data/limits/codex-usage.json; the first is what the service answers in
// the provider tests below.
TEST(CodexUsageDecodingTest, ResponsesGiveThePlanAndTheWindowsWithTheirOwnLengths) {
  for (const auto& [name, body, expected] : testing::decodingCases("codex-usage.json", kNow)) {
    EXPECT_EQ(CodexLimitsProvider::decodeUsage(body, kNow), expected) << name;
  }
}

TEST(CodexUsageDecodingTest, TheExpiryIsReadFromTheTokenPayload) {
  // Payload bytes whose base64url form uses "-" and "_"; two parts are enough.
  const std::string encoded = base64URL(R"({"exp":1700000000,"n":"??>>"})");
  ASSERT_NE(encoded.find_first_of("-_"), std::string::npos);
  EXPECT_EQ(CodexLimitsProvider::tokenExpiry("h." + encoded), dateFromUnixSeconds(1700000000));
  EXPECT_EQ(CodexLimitsProvider::tokenExpiry("." + encoded + ".."),
            dateFromUnixSeconds(1700000000));
  EXPECT_EQ(CodexLimitsProvider::tokenExpiry(jwt(R"({"exp":1750000000.75,"iat":1})")),
            dateFromUnixSeconds(1750000000.75));
  // One part, an empty payload, not base64, not JSON, not an object, no expiry, no number.
  for (const std::string& token :
       {base64URL(R"({"exp":1})"), std::string(), std::string("a..c"), std::string("a.!!!!.c"),
        "a." + base64URL("not json") + ".c", jwt("[1750000000]"), jwt(R"({"sub":"u"})"),
        jwt(R"({"exp":"1750000000"})"), jwt(R"({"exp":true})")}) {
    EXPECT_EQ(CodexLimitsProvider::tokenExpiry(token), std::nullopt) << token;
  }
}

class CodexLimitsProviderTest : public testing::TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    writeAuth(auth(kToken));
    server.respond(200, usage.body);
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
        dir() / "codex/auth.json", url.empty() ? server.url() : url};
  }

  // A record kept `age` seconds before now, with a plan, a window and credits.
  ProviderLimits storedOfAge(double age, ProviderStatus status = ProviderStatus::ok) {
    stored =
        ProviderLimits{"Pro",
                       {{"session", "Session", 0.25, 18000, std::nullopt, LimitSource::live()}},
                       Credits{"Credits", 4.5, std::nullopt, std::nullopt, false},
                       status,
                       kNow - Seconds{age}};
    return *stored;
  }

  const testing::DecodingCase usage = testing::decodingCases("codex-usage.json", kNow).at(0);
  std::optional<ProviderLimits> stored;
  bool storeFails = false;
  std::shared_ptr<testing::StubCredentialSource> credentials =
      std::make_shared<testing::StubCredentialSource>();
  StubHTTPServer server{"/backend-api/wham/usage"};
};

TEST_F(CodexLimitsProviderTest, EveryAuthFileHasItsOutcomeAndItsRequest) {
  const auto unavailable = ProviderStatus::unavailable, ok = ProviderStatus::ok,
             signInNeeded = ProviderStatus::signInNeeded;
  const std::tuple<const char*, std::optional<std::string>, ProviderStatus> rows[] = {
      {"auth.json missing", std::nullopt, unavailable},
      {"not JSON", "tokens: " + kToken, unavailable},
      {"an array", "[]", unavailable},
      {"no tokens", R"({"OPENAI_API_KEY":"sk-1"})", unavailable},
      {"empty access token", auth(""), unavailable},
      {"account id a number", R"({"tokens":{"access_token":"t","account_id":5}})", unavailable},
      {"expires exactly now", auth(jwt(R"({"exp":1750000000})")), signInNeeded},
      {"expires in a second", auth(jwt(R"({"exp":1750000001})")), ok},
      {"token without an expiry", auth("opaque"), ok}};
  for (const auto& [name, authFile, status] : rows) {
    std::filesystem::remove(dir() / "codex/auth.json");
    if (authFile) writeAuth(*authFile);
    server.clearRequests();
    EXPECT_EQ(provider().fetch(kNow), status == ok ? *usage.expected : answer(status)) << name;
    EXPECT_EQ(server.requests().size(), status == ok ? 1u : 0u) << name;
  }

  // The request carries the token, and the account when there is one.
  const std::tuple<std::string, std::string, std::optional<std::string>> sent[] = {
      {auth(kToken, "acc-123"), kToken, "acc-123"},
      {auth(kToken, ""), kToken, std::nullopt},  // not even empty, as a hand-read request shows
      {R"({"tokens":{"access_token":"plain","account_id":null}})", "plain", std::nullopt}};
  for (const auto& [authFile, token, account] : sent) {
    writeAuth(authFile);
    StubHTTPServer raw{StubHTTPServer::raw};
    raw.answerOnce("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\n{}");
    EXPECT_EQ(provider(true, raw.url()).fetch(kNow), answer(ProviderStatus::ok));
    const auto requests = raw.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "GET");  // the path is the URL's, or the answer would be 404
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer " + token);
    EXPECT_EQ(requests[0].header("ChatGPT-Account-Id"), account);
    EXPECT_EQ(requests[0].header("User-Agent"), "Brimlog/0.1.0");
  }

  // An auth.json that cannot be read.
  std::filesystem::remove(dir() / "codex/auth.json");
  std::filesystem::create_directories(dir() / "codex/auth.json");
  EXPECT_EQ(provider().fetch(kNow), answer(unavailable));
}

TEST_F(CodexLimitsProviderTest, AStoredRecordIsAnsweredFreshOrStaleAfterAFailedFetch) {
  for (double age : {0.0, 599.0, 600.0, -100.0}) {
    EXPECT_EQ(provider().fetch(kNow), storedOfAge(age)) << age;
  }
  EXPECT_TRUE(server.requests().empty());
  EXPECT_TRUE(credentials->filesRead.empty());

  // One second older and the service is asked.
  storedOfAge(601);
  EXPECT_EQ(provider().fetch(kNow), usage.expected);
  EXPECT_EQ(server.requests().size(), 1u);
  EXPECT_EQ(credentials->filesRead, std::vector{dir() / "codex/auth.json"});

  // A failed fetch falls back on the stored record, marked stale.
  const auto staleWith = [](ProviderLimits kept, ProviderStatus status) {
    kept = kept.markedStale();
    kept.status = status;
    return kept;
  };
  const ProviderLimits kept = storedOfAge(3600);
  server.respond(429, "");
  EXPECT_EQ(provider().fetch(kNow), staleWith(kept, ProviderStatus::rateLimited));
  server.respond(200, "not json " + kToken);  // and not copied into the record
  EXPECT_EQ(provider().fetch(kNow), staleWith(kept, ProviderStatus::unreachable));
  EXPECT_EQ(provider(true, testing::closedPortURL()).fetch(kNow),
            staleWith(kept, ProviderStatus::unreachable));
  writeAuth(auth(jwt(R"({"exp":1})")));
  EXPECT_EQ(provider().fetch(kNow), staleWith(kept, ProviderStatus::signInNeeded));

  // No usable auth.json: the stored status stands.
  std::filesystem::remove(dir() / "codex/auth.json");
  const ProviderLimits limited = storedOfAge(3600, ProviderStatus::rateLimited);
  EXPECT_EQ(provider().fetch(kNow), staleWith(limited, ProviderStatus::rateLimited));

  // Without a client the stored record is all there is, however old.
  EXPECT_EQ(provider(false).fetch(kNow), storedOfAge(86400 * 30));

  // With nothing stored, the failure is the answer.
  stored.reset();
  writeAuth(auth(kToken));
  server.respond(429, "");
  EXPECT_EQ(provider().fetch(kNow), answer(ProviderStatus::rateLimited));
  EXPECT_EQ(provider(false).fetch(kNow), answer(ProviderStatus::unavailable));

  // A reader that fails counts as nothing stored, however fresh the record behind it.
  storedOfAge(10);
  storeFails = true;
  server.clearRequests();
  EXPECT_EQ(provider().fetch(kNow), answer(ProviderStatus::rateLimited));
  EXPECT_EQ(server.requests().size(), 1u);
}

}  // namespace
}  // namespace brimlog
