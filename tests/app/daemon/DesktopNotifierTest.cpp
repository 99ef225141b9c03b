#include <gtest/gtest.h>

#include "daemon/DesktopNotifier.hpp"
#include "support/RunningProgram.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

using testing::RunningProgram;

class DesktopNotifierTest : public testing::TempDirTest {};

TEST_F(DesktopNotifierTest, DeliversEachAlertOnceToTheNotificationService) {
  // Where no bus listens there is no notifier, and the reason names the address.
  std::string why;
  const std::string nowhere = "unix:path=" + (dir() / "no-bus").string();
  EXPECT_FALSE(DesktopNotifier::connect(nowhere, &why));
  EXPECT_NE(why.find(nowhere), std::string::npos) << why;

  RunningProgram bus{{"dbus-daemon", "--session", "--nofork", "--print-address=1"}};
  if (!bus.started()) GTEST_SKIP() << "dbus-daemon not found: install the dbus package";
  const std::optional<std::string> address = bus.line();
  ASSERT_TRUE(address) << "dbus-daemon printed no address";

  std::optional<DesktopNotifier> notifier = DesktopNotifier::connect(*address, &why);
  ASSERT_TRUE(notifier) << why;
  const LimitAlert first{ProviderID::claude, "session", LimitAlert::Kind::reached80,
                         "Claude Code: Session at 82.0%", "18.0% left, resets in 2h 14m"};
  const LimitAlert second{ProviderID::codex, "weekly", LimitAlert::Kind::reset,
                          "Codex: Weekly has reset", "100.0% left"};
  // Nobody serves notifications yet: the call fails and says so.
  EXPECT_FALSE(notifier->notify(first));
  EXPECT_NE(notifier->lastError().find(*address), std::string::npos) << notifier->lastError();

  RunningProgram listener{{BRIMLOG_NOTIFICATION_LISTENER, *address}};
  ASSERT_EQ(listener.line(), "ready");
  EXPECT_TRUE(notifier->notify(first)) << notifier->lastError();
  EXPECT_TRUE(notifier->notify(second)) << notifier->lastError();
  EXPECT_EQ(listener.line(), first.summary + "\t" + first.body);
  EXPECT_EQ(listener.line(), second.summary + "\t" + second.body);
  // Each call is answered after its line is written, so a repeat would already be there.
  EXPECT_EQ(listener.line(std::chrono::milliseconds(100)), std::nullopt);
}

}  // namespace
}  // namespace brimlog
