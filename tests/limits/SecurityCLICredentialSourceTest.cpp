#include <gtest/gtest.h>
#include <sys/stat.h>

#include "limits/SecurityCLICredentialSource.hpp"
#include "support/StubCredentialSource.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using Kind = CredentialError::Kind;
using testing::errorOf;
const std::string kService(claudeKeychainService);

class SecurityCLICredentialSourceTest : public testing::TempDirTest {
 protected:
  // A stand-in for the keychain tool: records its arguments, then runs `body`.
  SecurityCLICredentialSource tool(const std::string& body) {
    const auto path = write("security", "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" +
                                            (dir() / "arguments").string() + "'\n" + body);
    ::chmod(path.c_str(), 0755);
    SecurityCLICredentialSource source;
    source.executableURL = path;
    return source;
  }
};

TEST_F(SecurityCLICredentialSourceTest, ReturnsThePasswordWithoutTrailingLineEnds) {
  const std::pair<std::string, std::string> rows[] = {
      {R"(hunter2\n)", "hunter2"},
      {R"(pass \r\n\n\r\r\n)", "pass "},
      {R"(  lead\ninner \tend\n)", "  lead\ninner \tend"},
      {R"(no line end)", "no line end"},
      {R"(\r\n)", ""},
      {"", ""},
      {R"(sk-ant-oat01-é\n)", "sk-ant-oat01-é"},
  };
  for (const auto& [printed, secret] : rows) {
    EXPECT_EQ(tool("printf '" + printed + "'\n").keychainSecret(kService), secret) << printed;
  }
  EXPECT_EQ(testing::readFile(dir() / "arguments"),
            "find-generic-password\n-s\n" + kService + "\n-w\n");
}

TEST_F(SecurityCLICredentialSourceTest, MapsExitStatusesTimeoutsAndBadOutputToErrors) {
  struct Row {
    std::string body;
    Kind kind;
    double timeout = 10;
  };
  const Row rows[] = {
      {"exit 44\n", Kind::notFound},
      {"exit 1\n", Kind::denied},
      {"exit 51\n", Kind::denied},
      {"kill -TERM $$\n", Kind::denied},
      {"printf '\\377\\376pw\\n'\n", Kind::malformed},
      // Past its deadline (with room for a loaded machine to start the script); then exited in
      // time, but something it started still holds the output open: no reliable answer.
      {"exec sleep 30\n", Kind::denied, 1.0},
      {"printf 'pw\\n'\nsleep 3 &\nexit 0\n", Kind::denied, 0.3},
  };
  for (const Row& row : rows) {
    auto source = tool(row.body);
    source.timeout = row.timeout;
    EXPECT_EQ(errorOf([&] { source.keychainSecret(kService); }), row.kind) << row.body;
  }
  SecurityCLICredentialSource missing;
  missing.executableURL = dir() / "no-such-tool";
  EXPECT_EQ(errorOf([&] { missing.keychainSecret(kService); }), Kind::denied);

  // The message says what was asked for and why, never what the tool printed.
  std::string message;
  errorOf([&] { tool("echo topsecret\nexit 51\n").keychainSecret(kService); }, &message);
  EXPECT_NE(message.find(kService), std::string::npos) << message;
  EXPECT_NE(message.find("51"), std::string::npos) << message;
  EXPECT_EQ(message.find("topsecret"), std::string::npos) << message;
}

TEST_F(SecurityCLICredentialSourceTest, OutputLargerThanAPipeHoldsIsReadWhole) {
  auto source = tool("head -c 1500000 /dev/zero | tr '\\0' 'k'\necho\n");
  source.timeout = 10;  // a stalled tool fails the test in 10 s rather than 30
  const auto secret = source.keychainSecret(kService);
  EXPECT_EQ(secret.size(), 1'500'000u);
  EXPECT_EQ(secret.find_first_not_of('k'), std::string::npos);
}

}  // namespace
}  // namespace brimlog
