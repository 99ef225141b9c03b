#include "DesktopNotifier.hpp"

#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>

namespace brimlog {
namespace {

constexpr uint64_t kTimeoutMicroseconds =
    static_cast<uint64_t>(DesktopNotifier::timeoutSeconds * 1'000'000);

struct MessageRelease {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageRelease>;

// An error a bus call may fill in, freed on every path.
struct BusError {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  BusError() = default;
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;
  ~BusError() { sd_bus_error_free(&error); }
};

// Runs the connection's start-up (authentication and the bus's greeting) until the bus takes
// calls, or until the deadline; a negative errno when it failed.
int awaitReady(sd_bus* bus) {
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::microseconds(kTimeoutMicroseconds);
  int r = 0;
  while ((r = sd_bus_is_ready(bus)) == 0) {
    r = sd_bus_process(bus, nullptr);
    if (r < 0) return r;
    if (r > 0) continue;
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return -ETIMEDOUT;
    r = sd_bus_wait(bus, static_cast<uint64_t>(left.count()));
    if (r < 0) return r;
  }
  return r;
}

}  // namespace

void DesktopNotifier::BusRelease::operator()(sd_bus* bus) const {
  // No flush: with a hung peer it could wait for good.
  sd_bus_close_unref(bus);
}

std::optional<DesktopNotifier> DesktopNotifier::connect(std::optional<std::string> busAddress,
                                                        std::string* failure) {
  std::string where = busAddress ? "the bus at " + *busAddress : std::string("the session bus");
  auto fail = [&](int r) -> std::optional<DesktopNotifier> {
    if (failure) *failure = "Cannot connect to " + where + ": " + std::strerror(-r);
    return std::nullopt;
  };
  sd_bus* raw = nullptr;
  int r = busAddress ? sd_bus_new(&raw) : sd_bus_open_user(&raw);
  Bus bus{raw};
  if (r < 0) return fail(r);
  if (busAddress) {
    if ((r = sd_bus_set_address(raw, busAddress->c_str())) < 0 ||
        (r = sd_bus_set_bus_client(raw, 1)) < 0 || (r = sd_bus_start(raw)) < 0) {
      return fail(r);
    }
  }
  if ((r = sd_bus_set_method_call_timeout(raw, kTimeoutMicroseconds)) < 0 ||
      (r = awaitReady(raw)) < 0) {
    return fail(r);
  }
  return DesktopNotifier(std::move(bus), std::move(where));
}

bool DesktopNotifier::notify(const LimitAlert& alert) {
  sd_bus_message* raw = nullptr;
  int r = sd_bus_message_new_method_call(bus_.get(), &raw, "org.freedesktop.Notifications",
                                         "/org/freedesktop/Notifications",
                                         "org.freedesktop.Notifications", "Notify");
  const Message call{raw};
  // Application name, id to replace (none), icon, summary, body, actions (none), hints (none),
  // and how long to show it (the server's choice).
  if (r >= 0) {
    r = sd_bus_message_append(raw, "susssasa{sv}i", "Brimlog", 0u, "", alert.summary.c_str(),
                              alert.body.c_str(), 0u, 0u, -1);
  }
  BusError error;
  sd_bus_message* rawReply = nullptr;
  if (r >= 0) r = sd_bus_call(bus_.get(), raw, kTimeoutMicroseconds, &error.error, &rawReply);
  const Message reply{rawReply};
  if (r >= 0) return true;
  lastError_ = "Cannot show a notification through org.freedesktop.Notifications on " + address_ +
               ": " + (error.error.message ? error.error.message : std::strerror(-r));
  return false;
}

}  // namespace brimlog
