#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "limits/CredentialSource.hpp"
#include "support/StubCredentialSource.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using Kind = CredentialError::Kind;
using testing::errorOf;

class CredentialSourceTest : public testing::TempDirTest {};

TEST_F(CredentialSourceTest, CredentialFilesAreReadWholeAndFailuresMapped) {
  const std::string bytes("{\"t\":1}\n\xff\0", 10);
  EXPECT_EQ(readCredentialFile(write("codex/auth.json", bytes)), bytes);  // bytes as they are
  EXPECT_EQ(readCredentialFile(write("empty.json", "")), "");

  std::string message;
  EXPECT_EQ(errorOf([&] { readCredentialFile(dir() / "missing.json"); }, &message), Kind::notFound);
  EXPECT_NE(message.find("missing.json"), std::string::npos) << message;
  EXPECT_EQ(errorOf([&] { readCredentialFile(dir() / "no-folder/auth.json"); }), Kind::notFound);
  EXPECT_EQ(errorOf([&] { readCredentialFile(dir() / "empty.json/auth.json"); }), Kind::notFound);
  EXPECT_EQ(errorOf([&] { readCredentialFile(dir() / "codex"); }), Kind::denied);
  ASSERT_EQ(::mkfifo((dir() / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(errorOf([&] { readCredentialFile(dir() / "pipe"); }), Kind::denied);  // no hang
  if (::geteuid() != 0) {  // root reads anything
    const auto locked = write("locked.json", "secret");
    ::chmod(locked.c_str(), 0);
    EXPECT_EQ(errorOf([&] { readCredentialFile(locked); }), Kind::denied);
  }
}

}  // namespace
}  // namespace brimlog
