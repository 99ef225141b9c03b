// brimlog-widgets: draws Brimlog's three widgets from the snapshot the host writes, as pages of a
// small web server on 127.0.0.1, and runs the widgets' refresh intent.

#include <fmt/format.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <thread>

#include "display/SnapshotStore.hpp"
#include "platform/AppVersion.hpp"
#include "platform/CommandLineMistake.hpp"
#include "platform/StateFolder.hpp"
#include "server/WidgetPage.hpp"
#include "server/WidgetServer.hpp"
#include "timeline/BrimlogWidgets.hpp"
#include "timeline/ProviderChoice.hpp"
#include "timeline/RefreshIntent.hpp"

namespace {

using namespace brimlog;

std::optional<std::string> environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::optional<std::string>(value) : std::nullopt;
}

// The folder the host writes the snapshot into, found by the same rule as the host does.
std::optional<std::filesystem::path> stateFolder(const std::string& given) {
  return StateFolder::locate({.sharedDir = given,
                              .xdgStateHome = environment("XDG_STATE_HOME"),
                              .home = environment("HOME")});
}

int serve(int port, const std::string& shared) {
  // Ctrl-C and SIGTERM end the server from a thread of their own, so that it stops cleanly.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  const std::optional<std::filesystem::path> folder = stateFolder(shared);
  WidgetServer server{folder};
  const int bound = server.bind(port);
  fmt::print("Widgets at http://127.0.0.1:{}/ (Ctrl-C stops)\n", bound);
  if (!folder) {
    fmt::print(stderr,
               "brimlog-widgets: no state folder (set HOME or XDG_STATE_HOME, or give "
               "--shared-dir): the widgets show their empty state\n");
  } else if (!std::filesystem::exists(SnapshotStore{folder}.file())) {
    fmt::print(stderr, "brimlog-widgets: no snapshot in {} yet; `brimlog` writes one\n",
               folder->string());
  }
  std::fflush(stdout);
  std::thread stopper{[&] {
    int received = 0;
    sigwait(&stopSignals, &received);
    server.stop();
  }};
  server.listen();
  // The server can also end on its own (a failed accept); wake the stopper then.
  ::kill(::getpid(), SIGTERM);
  stopper.join();
  return 0;
}

int render(const WidgetDescription& description, ProviderChoice choice, bool preview, Date now,
           const std::string& shared) {
  const Timeline timeline =
      BrimlogWidgets::timeline(description, stateFolder(shared), choice, preview, now);
  fmt::print("{}",
             WidgetPage::page(description.displayName,
                              WidgetPage::widget(description, timeline, choice.providerID(), now)));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  using Mistake = CommandLineMistake;
  CLI::App app{
      "Draws Brimlog's widgets (small, medium, large) from the snapshot that `brimlog` writes, as "
      "pages of a web server on 127.0.0.1 that any browser can show.",
      "brimlog-widgets"};
  app.set_version_flag("--version", std::string(appVersion()));
  app.require_subcommand(0, 1);
  std::string shared;
  const char* sharedHelp =
      "The state folder that brimlog writes snapshot.json into: brimlog's --shared-dir, or the "
      "folder of its --db (default: $XDG_STATE_HOME/brimlog, else ~/.local/state/brimlog)";

  // Values are taken as text and checked once the whole line is known (see CommandLineMistake).
  std::string portText;
  CLI::App* serveCommand = app.add_subcommand("serve", "Serve the widgets until Ctrl-C");
  CLI::Option* portOption =
      serveCommand
          ->add_option("--port", portText, "The port on 127.0.0.1 (default 8717; 0: any free one)")
          ->type_name("N");
  serveCommand->add_option("--shared-dir", shared, sharedHelp)->type_name("DIR");

  std::string kind, provider = "claude", nowText;
  bool preview = false;
  CLI::App* renderCommand =
      app.add_subcommand("render", "Print the page of one widget's current entry");
  CLI::Option* kindOption = renderCommand->add_option(
      "--kind", kind, "app.brimlog.small, app.brimlog.medium or app.brimlog.large (required)");
  renderCommand->add_option(
      "--provider", provider,
      "What the small widget shows: " + ProviderID::readableChoices() + " (default claude)");
  renderCommand->add_flag("--preview", preview,
                          "The gallery's entry: your data, or the sample when there is none");
  CLI::Option* nowOption =
      renderCommand->add_option("--now", nowText, "An ISO 8601 instant taken as now")
          ->type_name("TIME");
  renderCommand->add_option("--shared-dir", shared, sharedHelp)->type_name("DIR");

  CLI::App* refreshCommand =
      app.add_subcommand("refresh",
                         "Ask the running Brimlog daemon to fetch fresh data, as the widgets' "
                         "refresh button does; fails when none is running");
  refreshCommand->add_option("--shared-dir", shared, sharedHelp)->type_name("DIR");

  int port = 8717;
  std::optional<WidgetDescription> description;
  std::optional<ProviderChoice> choice;
  Date now = currentDate();
  const auto understand = [&] {
    if (app.get_subcommands().empty()) {
      throw Mistake(Mistake::Kind::unparsable,
                    "a command is needed; choose serve, render or refresh (see brimlog-widgets "
                    "--help)");
    }
    if (portOption->count() > 0) {
      port = static_cast<int>(Mistake::wholeNumber("--port", portText, 0, 65535, "a port number"));
    }
    if (!renderCommand->parsed()) return;
    std::vector<std::string> kinds, tools;
    for (const WidgetDescription& each : BrimlogWidgets::widgets()) kinds.emplace_back(each.kind);
    for (ProviderChoice each : ProviderChoice::allCases) tools.emplace_back(each.rawValue());
    if (kindOption->count() == 0) {
      throw Mistake(Mistake::Kind::unparsable,
                    "render needs --kind; give " + Mistake::sentence(kinds));
    }
    description = BrimlogWidgets::widget(Mistake::choice("--kind", kind, kinds, "a widget"));
    choice = ProviderChoice::fromRawValue(
        Mistake::choice("--provider", provider, tools, "a tool Brimlog reads"));
    if (nowOption->count() > 0) {
      const std::optional<Date> parsed = parseISO8601(nowText);
      if (!parsed) {
        throw Mistake::wrongValue("--now", nowText, "an ISO 8601 instant",
                                  "write it as 2026-11-20T12:00:00Z");
      }
      now = *parsed;
    }
  };
  if (const std::optional<int> status = Mistake::parse(app, argc, argv, understand)) {
    return *status;
  }
  try {
    if (serveCommand->parsed()) return serve(port, shared);
    if (renderCommand->parsed()) return render(*description, *choice, preview, now, shared);
    if (!RefreshIntent{}.perform(stateFolder(shared))) {
      fmt::print(stderr, "brimlog-widgets: {}\n", RefreshIntent::nobodyListening);
      return 1;
    }
    fmt::print(
        "Asked the Brimlog daemon to refresh; the widgets show the new data once it is "
        "written.\n");
    return 0;
  } catch (const std::exception& error) {
    fmt::print(stderr, "brimlog-widgets: {}\n", error.what());
  }
  return 1;
}
