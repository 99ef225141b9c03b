#include "server/WidgetServer.hpp"

#include <fmt/format.h>
#include <httplib.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "platform/AsciiCase.hpp"
#include "server/GatedServer.hpp"
#include "server/WidgetPage.hpp"
#include "timeline/BrimlogWidgets.hpp"
#include "timeline/ProviderChoice.hpp"
#include "timeline/RefreshIntent.hpp"

namespace brimlog {

namespace {

// Pages may run their own inline script and style and call back to this server; nothing else.
constexpr const char* kContentSecurityPolicy =
    "default-src 'none'; script-src 'unsafe-inline'; style-src 'unsafe-inline'; "
    "img-src data:; connect-src 'self'; base-uri 'none'; form-action 'none'";

void answer(httplib::Response& response, int status, const std::string& body,
            const char* type = "text/plain; charset=utf-8") {
  response.status = status;
  response.set_header("Cache-Control", "no-store");
  response.set_header("X-Content-Type-Options", "nosniff");
  response.set_header("Content-Security-Policy", kContentSecurityPolicy);
  response.set_content(body, type);
}

}  // namespace

struct WidgetServer::State {
  std::optional<std::filesystem::path> stateFolder;
  std::function<Date()> clock;
  GatedServer server;
  int port = 0;

  // One widget of `description` for `choice`: its timeline, or its gallery entry in preview.
  std::string widget(const WidgetDescription& description, ProviderChoice choice, bool preview,
                     Date now) const {
    const Timeline timeline =
        BrimlogWidgets::timeline(description, stateFolder, choice, preview, now);
    return WidgetPage::widget(description, timeline, choice.providerID(), now);
  }

  // The address of a widget's page on its own, what a desktop's launcher or panel opens.
  static std::string bareAddress(const WidgetDescription& description, ProviderChoice choice) {
    return description.configurable
               ? fmt::format("/widgets/{}?provider={}&bare=1", description.kind, choice.rawValue())
               : fmt::format("/widgets/{}?bare=1", description.kind);
  }

  void gallery(const httplib::Request& request, httplib::Response& response) const {
    const bool preview = request.get_param_value("preview") == "1";
    const Date now = clock();
    std::vector<WidgetPage::Item> items;
    for (const WidgetDescription& description : BrimlogWidgets::widgets()) {
      if (description.configurable) {
        for (ProviderChoice choice : ProviderChoice::allCases) {
          items.push_back({description, widget(description, choice, preview, now),
                           bareAddress(description, choice)});
        }
      } else {
        items.push_back({description, widget(description, ProviderChoice::claude, preview, now),
                         bareAddress(description, ProviderChoice::claude)});
      }
    }
    answer(response, 200, WidgetPage::page("Brimlog widgets", WidgetPage::gallery(items)),
           "text/html; charset=utf-8");
  }

  void page(const httplib::Request& request, httplib::Response& response) const {
    const std::string kind = request.matches[1];
    const std::optional<WidgetDescription> description = BrimlogWidgets::widget(kind);
    if (!description) {
      answer(response, 404,
             fmt::format("No widget of kind \"{}\"; the kinds are {}.\n", kind, kindList()));
      return;
    }
    ProviderChoice choice = ProviderChoice::claude;
    if (request.has_param("provider")) {
      const std::string raw = request.get_param_value("provider");
      const std::optional<ProviderChoice> chosen = ProviderChoice::fromRawValue(raw);
      if (!chosen) {
        answer(response, 400,
               fmt::format("Unknown provider \"{}\": choose {}.\n", raw,
                           ProviderID::readableChoices()));
        return;
      }
      choice = *chosen;
    }
    const bool preview = request.get_param_value("preview") == "1";
    // `?bare` alone asks for it as well as `?bare=1`.
    const bool bare = request.has_param("bare") && request.get_param_value("bare") != "0";
    const std::string body = widget(*description, choice, preview, clock());
    answer(response, 200,
           WidgetPage::page(WidgetPage::title(*description, choice.providerID()), body,
                            bare ? WidgetPage::Frame::bare : WidgetPage::Frame::padded),
           "text/html; charset=utf-8");
  }

  void refresh(const httplib::Request&, httplib::Response& response) const {
    if (RefreshIntent{}.perform(stateFolder)) {
      answer(response, 204, "");
    } else {
      answer(response, 503, fmt::format("Not refreshed: {}.\n", RefreshIntent::nobodyListening));
    }
  }

  // Runs before any route and before a body is read; false when it has answered instead.
  bool admitted(const httplib::Request& request, httplib::Response& response) const {
    // A page of another site can reach this server through a name of its own that resolves to
    // 127.0.0.1 (DNS rebinding) and would then read the pages as its own: only the server's own
    // names are answered.
    const std::array<std::string, 3> names{fmt::format("127.0.0.1:{}", port),
                                           fmt::format("localhost:{}", port),
                                           fmt::format("[::1]:{}", port)};
    // Names are compared as browsers send them, in lower case; a Host may come in any case.
    const auto own = [&](std::string_view scheme, const std::string& text) {
      const std::string lowered = asciiLowercased(text);
      return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
        return lowered == fmt::format("{}{}", scheme, name);
      });
    };
    if (request.get_header_value_count("Host") != 1 || !own("", request.get_header_value("Host"))) {
      answer(
          response, 421,
          fmt::format("Not answered: this server is 127.0.0.1:{} on this computer only.\n", port));
      return false;
    }
    // Only this server's own pages may press the refresh button: a browser names the page's
    // origin on every POST, and a page of another site must not make the host fetch on its
    // behalf.
    const std::string origin = request.get_header_value("Origin");
    if (request.method == "POST" && (!(origin.empty() || own("http://", origin)) ||
                                     request.get_header_value("Sec-Fetch-Site") == "cross-site")) {
      answer(response, 403, "Refused: the refresh button belongs to this server's own pages.\n");
      return false;
    }
    return true;
  }

  static std::string kindList() {
    std::string list;
    for (const WidgetDescription& description : BrimlogWidgets::widgets()) {
      if (!list.empty()) list += ", ";
      list += description.kind;
    }
    return list;
  }
};

WidgetServer::WidgetServer(std::optional<std::filesystem::path> stateFolder,
                           std::function<Date()> clock, RequestGate::Limits limits)
    : state_(new State{std::move(stateFolder), std::move(clock), GatedServer{limits}, 0}) {
  State& state = *state_;
  state.server.set_pre_routing_handler(
      [&state](const httplib::Request& request, httplib::Response& response) {
        return state.admitted(request, response) ? httplib::Server::HandlerResponse::Unhandled
                                                 : httplib::Server::HandlerResponse::Handled;
      });
  state.server.Get("/", [&state](const httplib::Request& request, httplib::Response& response) {
    state.gallery(request, response);
  });
  state.server.Get(R"(/widgets/([^/]+))",
                   [&state](const httplib::Request& request, httplib::Response& response) {
                     state.page(request, response);
                   });
  state.server.Post("/intents/refresh",
                    [&state](const httplib::Request& request, httplib::Response& response) {
                      state.refresh(request, response);
                    });
  state.server.set_error_handler([](const httplib::Request&, httplib::Response& response) {
    if (response.body.empty()) {
      answer(response, response.status,
             fmt::format("Nothing here ({}): the widgets are at /.\n", response.status));
    }
  });
}

WidgetServer::~WidgetServer() { stop(); }

int WidgetServer::bind(int port) {
  const int bound = state_->server.bind("127.0.0.1", port);
  if (bound < 0) {
    throw WidgetServerError(
        fmt::format("cannot listen on 127.0.0.1:{}: {}; choose another port with --port, or stop "
                    "the program that has it (another brimlog-widgets serve?)",
                    port, errno ? std::strerror(errno) : "the port is taken"));
  }
  state_->port = bound;
  return bound;
}

void WidgetServer::listen() { state_->server.serve(); }

void WidgetServer::stop() { state_->server.stop(); }

}  // namespace brimlog
