#include "daemon/DesktopNotifier.hpp"

#include <dlfcn.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace brimlog {
namespace {

constexpr uint64_t kTimeoutMicroseconds =
    static_cast<uint64_t>(DesktopNotifier::timeoutSeconds * 1'000'000);

// libsystemd, and the half dozen libraries it brings, are loaded on the first connection rather
// than when the program starts: only the daemon ever notifies, and loading them would double
// the start-up of the short commands (`brimlog line` most of all).
struct SystemdLibrary {
  decltype(&::sd_bus_new) bus_new = nullptr;
  decltype(&::sd_bus_open_user) open_user = nullptr;
  decltype(&::sd_bus_set_address) set_address = nullptr;
  decltype(&::sd_bus_set_bus_client) set_bus_client = nullptr;
  decltype(&::sd_bus_start) start = nullptr;
  decltype(&::sd_bus_set_method_call_timeout) set_method_call_timeout = nullptr;
  decltype(&::sd_bus_is_ready) is_ready = nullptr;
  decltype(&::sd_bus_process) process = nullptr;
  decltype(&::sd_bus_wait) wait = nullptr;
  decltype(&::sd_bus_close_unref) close_unref = nullptr;
  decltype(&::sd_bus_message_new_method_call) message_new_method_call = nullptr;
  decltype(&::sd_bus_message_append) message_append = nullptr;
  decltype(&::sd_bus_message_unref) message_unref = nullptr;
  decltype(&::sd_bus_call) call = nullptr;
  decltype(&::sd_bus_error_free) error_free = nullptr;
  /// Why the library could not be loaded; empty when it was.
  std::string failure;
};

const SystemdLibrary& systemd() {
  static const SystemdLibrary library = [] {
    SystemdLibrary library;
    void* handle = ::dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
      const char* reason = ::dlerror();
      library.failure = std::string("Cannot load libsystemd: ") + (reason ? reason : "not found");
      return library;
    }
    auto load = [&](auto& function, const char* name) {
      function =
          reinterpret_cast<std::remove_reference_t<decltype(function)>>(::dlsym(handle, name));
      if (!function && library.failure.empty())
        library.failure = std::string("libsystemd lacks ") + name;
    };
    load(library.bus_new, "sd_bus_new");
    load(library.open_user, "sd_bus_open_user");
    load(library.set_address, "sd_bus_set_address");
    load(library.set_bus_client, "sd_bus_set_bus_client");
    load(library.start, "sd_bus_start");
    load(library.set_method_call_timeout, "sd_bus_set_method_call_timeout");
    load(library.is_ready, "sd_bus_is_ready");
    load(library.process, "sd_bus_process");
    load(library.wait, "sd_bus_wait");
    load(library.close_unref, "sd_bus_close_unref");
    load(library.message_new_method_call, "sd_bus_message_new_method_call");
    load(library.message_append, "sd_bus_message_append");
    load(library.message_unref, "sd_bus_message_unref");
    load(library.call, "sd_bus_call");
    load(library.error_free, "sd_bus_error_free");
    return library;
  }();
  return library;
}

struct MessageRelease {
  void operator()(sd_bus_message* message) const { systemd().message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageRelease>;

// An error a bus call may fill in, freed on every path.
struct BusError {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  BusError() = default;
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;
  ~BusError() { systemd().error_free(&error); }
};

// Runs the connection's start-up (authentication and the bus's greeting) until the bus takes
// calls, or until the deadline; a negative errno when it failed.
int awaitReady(sd_bus* bus) {
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::microseconds(kTimeoutMicroseconds);
  int r = 0;
  while ((r = systemd().is_ready(bus)) == 0) {
    r = systemd().process(bus, nullptr);
    if (r < 0) return r;
    if (r > 0) continue;
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) return -ETIMEDOUT;
    r = systemd().wait(bus, static_cast<uint64_t>(left.count()));
    if (r < 0) return r;
  }
  return r;
}

}  // namespace

void DesktopNotifier::BusRelease::operator()(sd_bus* bus) const {
  // No flush: with a hung peer it could wait for good.
  systemd().close_unref(bus);
}

std::optional<DesktopNotifier> DesktopNotifier::connect(std::optional<std::string> busAddress,
                                                        std::string* failure) {
  std::string where = busAddress ? "the bus at " + *busAddress : std::string("the session bus");
  auto fail = [&](int r) -> std::optional<DesktopNotifier> {
    if (failure) *failure = "Cannot connect to " + where + ": " + std::strerror(-r);
    return std::nullopt;
  };
  const SystemdLibrary& library = systemd();
  if (!library.failure.empty()) {
    if (failure) *failure = "Cannot connect to " + where + ": " + library.failure;
    return std::nullopt;
  }
  sd_bus* raw = nullptr;
  int r = busAddress ? library.bus_new(&raw) : library.open_user(&raw);
  Bus bus{raw};
  if (r < 0) return fail(r);
  if (busAddress) {
    if ((r = library.set_address(raw, busAddress->c_str())) < 0 ||
        (r = library.set_bus_client(raw, 1)) < 0 || (r = library.start(raw)) < 0) {
      return fail(r);
    }
  }
  if ((r = library.set_method_call_timeout(raw, kTimeoutMicroseconds)) < 0 ||
      (r = awaitReady(raw)) < 0) {
    return fail(r);
  }
  return DesktopNotifier(std::move(bus), std::move(where));
}

bool DesktopNotifier::notify(const std::string& summary, const std::string& body) {
  sd_bus_message* raw = nullptr;
  int r = systemd().message_new_method_call(bus_.get(), &raw, "org.freedesktop.Notifications",
                                            "/org/freedesktop/Notifications",
                                            "org.freedesktop.Notifications", "Notify");
  const Message call{raw};
  // Application name, id to replace (none), icon, summary, body, actions (none), hints (none),
  // and how long to show it (the server's choice).
  if (r >= 0) {
    r = systemd().message_append(raw, "susssasa{sv}i", "Brimlog", 0u, "", summary.c_str(),
                                 body.c_str(), 0u, 0u, -1);
  }
  BusError error;
  sd_bus_message* rawReply = nullptr;
  if (r >= 0) r = systemd().call(bus_.get(), raw, kTimeoutMicroseconds, &error.error, &rawReply);
  const Message reply{rawReply};
  if (r >= 0) return true;
  lastError_ = "Cannot show a notification through org.freedesktop.Notifications on " + address_ +
               ": " + (error.error.message ? error.error.message : std::strerror(-r));
  return false;
}

}  // namespace brimlog
