// brimlog_notification_listener ADDRESS: stands in for the desktop's notification service on the
// D-Bus bus at ADDRESS. Owns org.freedesktop.Notifications, prints "ready" once it does, then one
// line "summary<TAB>body" per Notify call, answered with an increasing id. Ends at the end of its
// standard input, or with status 1 when the bus goes away.
#include <poll.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

namespace {

int notify(sd_bus_message* call, void*, sd_bus_error*) {
  static uint32_t lastId = 0;
  const char *application, *icon, *summary, *body;
  uint32_t replaces = 0;
  const int r = sd_bus_message_read(call, "susss", &application, &replaces, &icon, &summary, &body);
  if (r < 0) return r;
  std::printf("%s\t%s\n", summary, body);
  std::fflush(stdout);
  return sd_bus_reply_method_return(call, "u", ++lastId);
}

const sd_bus_vtable kNotifications[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Notify", "susssasa{sv}i", "u", notify, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s ADDRESS\n", argv[0]);
    return 2;
  }
  sd_bus* bus = nullptr;
  int r = sd_bus_new(&bus);
  const std::unique_ptr<sd_bus, sd_bus* (*)(sd_bus*)> owner{bus, sd_bus_close_unref};
  if (r >= 0) r = sd_bus_set_address(bus, argv[1]);
  if (r >= 0) r = sd_bus_set_bus_client(bus, 1);
  if (r >= 0) r = sd_bus_start(bus);
  if (r >= 0) {
    r = sd_bus_add_object_vtable(bus, nullptr, "/org/freedesktop/Notifications",
                                 "org.freedesktop.Notifications", kNotifications, nullptr);
  }
  if (r >= 0) r = sd_bus_request_name(bus, "org.freedesktop.Notifications", 0);
  if (r < 0) {
    std::fprintf(stderr, "brimlog_notification_listener %s: %s\n", argv[1], std::strerror(-r));
    return 1;
  }
  std::printf("ready\n");
  std::fflush(stdout);
  while ((r = sd_bus_process(bus, nullptr)) >= 0) {
    if (r > 0) continue;
    pollfd fds[] = {{sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0},
                    {STDIN_FILENO, POLLIN, 0}};
    char byte;
    if (poll(fds, 2, -1) > 0 && fds[1].revents != 0 && read(STDIN_FILENO, &byte, 1) <= 0) break;
  }
  return r < 0 ? 1 : 0;
}
