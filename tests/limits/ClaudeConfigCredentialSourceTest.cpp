#include <gtest/gtest.h>

#include "limits/ClaudeConfigCredentialSource.hpp"
#include "support/StubCredentialSource.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using Kind = CredentialError::Kind;
using Paths = std::vector<std::filesystem::path>;
using testing::errorOf;
const std::string kService(claudeKeychainService);

class ClaudeConfigCredentialSourceTest : public testing::TempDirTest {
 protected:
  std::string secretIn(const Paths& folders) {
    return ClaudeConfigCredentialSource(folders).keychainSecret(kService);
  }
  std::optional<Kind> errorIn(const Paths& folders, const std::string& service = kService) {
    return errorOf([&] { ClaudeConfigCredentialSource(folders).keychainSecret(service); });
  }
};

TEST_F(ClaudeConfigCredentialSourceTest, TheFirstFolderWithTheFileGivesTheRecordAsItIs) {
  const std::string record = "{\"claudeAiOauth\":{\"accessToken\":\"t\"}}\n";
  write("second/.credentials.json", record);
  write("third/.credentials.json", "third");
  const Paths folders = {dir() / "first", dir() / "second", dir() / "third"};
  EXPECT_EQ(secretIn(folders), record);
  EXPECT_EQ(secretIn({dir() / "third", dir() / "second"}), "third");
  EXPECT_EQ(errorIn(folders, "Codex Auth"), Kind::notFound);  // nothing else is kept
  EXPECT_EQ(errorIn(folders, ""), Kind::notFound);

  // A file that exists but cannot be read, or is not text, ends the search.
  std::filesystem::create_directories(dir() / "first/.credentials.json");
  EXPECT_EQ(errorIn(folders), Kind::denied);
  std::filesystem::remove(dir() / "first/.credentials.json");
  write("first/.credentials.json", "{\"t\":\"\xc3\x28\"}");
  EXPECT_EQ(errorIn(folders), Kind::malformed);

  EXPECT_EQ(errorIn({dir() / "none", dir() / "second/.credentials.json"}), Kind::notFound);
  EXPECT_EQ(errorIn({}), Kind::notFound);
}

}  // namespace
}  // namespace brimlog
