#include <gtest/gtest.h>
#include <stdlib.h>

#include "limits/ClaudeConfigCredentialSource.hpp"
#include "support/ScopedEnvironment.hpp"
#include "support/StubCredentialSource.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using Kind = CredentialError::Kind;
const std::string kService = "Claude Code-credentials";
const std::string kRecord = R"({"claudeAiOauth":{"accessToken":"sk-ant-oat01-x"}})"
                            "\n";

using testing::errorOf;

using testing::ScopedEnvironment;

class ClaudeConfigCredentialSourceTest : public testing::TempDirTest {};

TEST_F(ClaudeConfigCredentialSourceTest, ReadsTheRecordFromTheConfigurationFolder) {
  write("home/.claude/.credentials.json", kRecord);
  write("custom/.credentials.json", "custom record");
  const auto home = dir() / "home";

  const ClaudeConfigCredentialSource byDefault(home, std::nullopt);
  EXPECT_EQ(byDefault.credentialsFile(), home / ".claude" / ".credentials.json");
  EXPECT_EQ(byDefault.keychainSecret(kService), kRecord);  // the text as it is
  EXPECT_EQ(ClaudeConfigCredentialSource(home, "").keychainSecret(kService), kRecord);

  const ClaudeConfigCredentialSource custom(home, dir() / "custom");
  EXPECT_EQ(custom.keychainSecret(kService), "custom record");
  EXPECT_EQ(errorOf([&] { custom.keychainSecret("Codex Auth"); }), Kind::notFound);
  EXPECT_EQ(errorOf([&] { custom.keychainSecret(""); }), Kind::notFound);
}

TEST_F(ClaudeConfigCredentialSourceTest, TheEnvironmentChoosesTheFolder) {
  const auto home = dir() / "home";
  {
    const ScopedEnvironment set("CLAUDE_CONFIG_DIR", (dir() / "custom").string());
    EXPECT_EQ(ClaudeConfigCredentialSource::fromEnvironment(home).credentialsFile(),
              dir() / "custom" / ".credentials.json");
  }
  for (const auto& value : {std::optional<std::string>(), std::optional<std::string>("")}) {
    const ScopedEnvironment unset("CLAUDE_CONFIG_DIR", value);
    EXPECT_EQ(ClaudeConfigCredentialSource::fromEnvironment(home).credentialsFile(),
              home / ".claude" / ".credentials.json");
  }
}

TEST_F(ClaudeConfigCredentialSourceTest, MapsReadFailuresLikeTheKeychain) {
  const auto home = dir() / "home";
  const ClaudeConfigCredentialSource source(home, std::nullopt);
  EXPECT_EQ(errorOf([&] { source.keychainSecret(kService); }), Kind::notFound);  // no folder

  std::filesystem::create_directories(home / ".claude" / ".credentials.json");
  EXPECT_EQ(errorOf([&] { source.keychainSecret(kService); }), Kind::denied);
  std::filesystem::remove(home / ".claude" / ".credentials.json");
  EXPECT_EQ(errorOf([&] { source.keychainSecret(kService); }), Kind::notFound);  // no file

  write("home/.claude/.credentials.json", "{\"t\":\"\xc3\x28\"}");
  EXPECT_EQ(errorOf([&] { source.keychainSecret(kService); }), Kind::malformed);

  EXPECT_EQ(source.file(write("auth.json", "{}")), "{}");
  EXPECT_EQ(errorOf([&] { source.file(dir() / "missing.json"); }), Kind::notFound);
  EXPECT_EQ(errorOf([&] { source.file(dir()); }), Kind::denied);
}

}  // namespace
}  // namespace brimlog
