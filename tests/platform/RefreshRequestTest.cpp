#include <gtest/gtest.h>

#include "platform/RefreshRequest.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

class RefreshRequestTest : public testing::TempDirTest {};

// A request is written only while a listener holds the folder, reaches it once, and is removed;
// the folder's other files do not count as one.
TEST_F(RefreshRequestTest, ReachesTheOneListenerOnceAndOnlyWhileItListens) {
  const fs::path request = dir() / RefreshRequest::fileName;
  EXPECT_FALSE(RefreshRequest::post(dir()));
  EXPECT_FALSE(fs::exists(request));

  write(RefreshRequest::fileName, "");  // left by a daemon that stopped
  std::optional<RefreshRequest::Listener> listener = RefreshRequest::listen(dir());
  ASSERT_TRUE(listener);
  EXPECT_FALSE(fs::exists(request));
  EXPECT_FALSE(RefreshRequest::listen(dir())) << "a second listener in the same folder";

  write("snapshot.json", "{}");
  EXPECT_FALSE(listener->take());
  EXPECT_TRUE(RefreshRequest::post(dir()));
  EXPECT_TRUE(RefreshRequest::post(dir()));
  EXPECT_TRUE(listener->take());
  EXPECT_FALSE(fs::exists(request));
  EXPECT_FALSE(listener->take());

  listener.reset();
  EXPECT_FALSE(RefreshRequest::post(dir()));
  EXPECT_TRUE(RefreshRequest::listen(dir()));
}

}  // namespace
}  // namespace brimlog
