// Runs both real programs with command lines and settings they cannot follow.

#include <fmt/format.h>
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "support/RawDatabase.hpp"
#include "support/RunningProgram.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;
using testing::shellQuoted;

std::string replaced(std::string text, std::string_view name, const std::string& value) {
  for (size_t at; (at = text.find(name)) != std::string::npos;)
    text.replace(at, name.size(), value);
  return text;
}

class ErrorStyleTest : public testing::TempDirTest {};

// Every mistake is told in one line on standard error, the program's name first, then what was
// wrong and what to do, with the exit status the README gives: 2 for a command line that does
// not parse, 1 for a value that is not allowed and for every other failure. In the arguments,
// {dir} is a folder the case may use: it holds `home/`, a file `file`, a read-only folder
// `readonly/`, another program's SQLite file `foreign.db` and an empty file `empty.db`. brimlog is
// given a --home and --db there unless the case gives its own. The cases run as an ordinary user
// (nobody, when the tests run as root), whom permissions stop.
TEST_F(ErrorStyleTest, EveryMistakeIsOneLineWithTheDocumentedStatus) {
  enum Program { brimlog, widgets };
  struct Case {
    const char* name;
    Program program;
    std::vector<std::string> arguments;
    int status;
    const char* line;  // a shell pattern: `*` stands for any run of characters
  };
  // A case to a line.
  // clang-format off
  const std::vector<Case> cases = {
      // brimlog's command line.
      {"unknown option", brimlog, {"--bogus"}, 2, "brimlog: unknown option --bogus; see brimlog --help"},
      {"unknown option before the command", brimlog, {"--bogus", "report"}, 2, "brimlog: unknown option --bogus; see brimlog report --help"},
      {"unknown option before a view's place", brimlog, {"report", "--sincee", "2026-02-01"}, 2, "brimlog: unknown option --sincee; see brimlog report --help"},
      {"unknown option after the view", brimlog, {"report", "daily", "--sincee=2026-02-01"}, 2, "brimlog: unknown option --sincee; see brimlog report --help"},
      {"unknown option with a wrong value", brimlog, {"report", "--days", "x", "--bogus"}, 2, "brimlog: unknown option --bogus; *"},
      {"unknown command", brimlog, {"weekly"}, 2, "brimlog: unknown command weekly; choose sync, status, report, limits, check, daemon, share or line"},
      {"an argument too many", brimlog, {"report", "daily", "extra"}, 2, "brimlog: unexpected argument extra; see brimlog report --help"},
      {"missing value", brimlog, {"report", "--days"}, 2, "brimlog: --days needs a value; see brimlog report --help"},
      {"bare option before a command", brimlog, {"--json", "sync"}, 2, "brimlog: --json before sync is for brimlog without a command; put it after sync"},
      {"bare option unknown to the command", brimlog, {"limits", "--watch"}, 2, "brimlog: unknown option --watch; see brimlog limits --help"},
      {"since with days", brimlog, {"report", "--since", "2026-11-01", "--days", "3"}, 2, "brimlog: --since and --days cannot be used together; give the first day or how many days"},
      {"json with csv", brimlog, {"report", "--json", "--csv"}, 2, "brimlog: --json and --csv cannot be used together; choose one form"},
      {"days out of range", brimlog, {"report", "--days", "0"}, 1, R"(brimlog: --days: "0" is not a number of days; give 1 to 3650)"},
      {"unknown view", brimlog, {"report", "yearly"}, 1, R"(brimlog: report: "yearly" is not a view; choose daily, weekly, *, blocks or machines)"},
      {"machine without the shared ledger", brimlog, {"report", "--machine", "laptop"}, 2, "brimlog: --machine is for the shared ledger; add --from"},
      {"machines view without the shared ledger", brimlog, {"report", "machines"}, 2, "brimlog: the machines view is of the shared ledger; add --from"},
      {"no such day", brimlog, {"report", "--until", "2026-02-30"}, 1, R"(brimlog: --until: "2026-02-30" is not a day; write it as YYYY-MM-DD, such as 2026-11-24)"},
      {"days the wrong way round", brimlog, {"report", "--since", "2026-11-20", "--until", "2026-11-01"}, 1, "brimlog: --until 2026-11-01 comes before --since 2026-11-20; give the first day first"},
      {"since after today", brimlog, {"report", "--since", "2026-11-21", "--now", "2026-11-20T12:00:00Z"}, 1, "brimlog: --since 2026-11-21 comes after today, 2026-11-20; give a day up to it"},
      {"a tool not read here", brimlog, {"report", "--tool", "cursor"}, 1, R"(brimlog: --tool: "cursor" is not a tool Brimlog reads; choose claude, codex, grok, gemini, opencode, kilo or qwen)"},
      {"watch not a number", brimlog, {"status", "--watch", "soon"}, 1, R"(brimlog: --watch: "soon" is not a number of seconds; give 1 to 86400)"},
      {"unknown line format", brimlog, {"line", "--format", "i3"}, 1, R"(brimlog: --format: "i3" is not a line format; choose plain, *waybar or polybar)"},
      // brimlog's settings.
      {"unknown zone", brimlog, {"report", "--tz", "Mars/Olympus_Mons"}, 1, R"(brimlog: --tz: "Mars/Olympus_Mons" is not a time zone; give an IANA name such as Europe/Berlin)"},
      {"bad instant", brimlog, {"report", "--now", "yesterday"}, 1, R"(brimlog: --now: "yesterday" is not an ISO 8601 instant; write it with its zone*)"},
      {"missing home", brimlog, {"report", "--home", "{dir}/nowhere"}, 1, R"(brimlog: --home: "{dir}/nowhere" is not a folder; give the home folder that holds the tools' logs)"},
      {"share without a target", brimlog, {"share", "--no-sync"}, 1, "brimlog: no shared ledger is set; give --to postgresql://USER@HOST/DATABASE, or set `to = postgresql://…` under ?share? in {dir}/brimlog.conf"},
      {"report from the setting without one", brimlog, {"report", "--from", "machines"}, 1, "brimlog: no shared ledger is set; give --from postgresql://*"},
      {"watch without a terminal", brimlog, {"--watch"}, 1, "brimlog: --watch redraws a terminal and standard output is not one; *--json*"},
      // brimlog's database.
      {"database folder not writable", brimlog, {"sync", "--db", "{dir}/readonly/usage.db"}, 1, "brimlog: the database's folder {dir}/readonly cannot be written (Permission denied); make it writable, or choose another database with --db"},
      {"database folder not writable, daemon", brimlog, {"daemon", "--db", "{dir}/readonly/usage.db", "--shared-dir", "{dir}/shared"}, 1, "brimlog: the database's folder {dir}/readonly cannot be written *--db"},
      {"database under a file", brimlog, {"report", "--db", "{dir}/file/data/usage.db"}, 1, "brimlog: cannot create the database's folder {dir}/file/data (Not a directory); choose another database with --db"},
      {"another program's database", brimlog, {"report", "--no-sync", "--db", "{dir}/foreign.db"}, 1, "brimlog: {dir}/foreign.db is not a Brimlog database*"},
      {"an empty database file", brimlog, {"report", "--no-sync", "--db", "{dir}/empty.db"}, 1, "brimlog: {dir}/empty.db holds no usage yet; run `brimlog sync` to read your logs into it"},
      {"check without a database", brimlog, {"check", "--db", "{dir}/none.db"}, 1, "brimlog: no database at {dir}/none.db yet; run `brimlog sync` to make it"},
      // brimlog-widgets.
      {"widgets: no command", widgets, {}, 2, "brimlog-widgets: a command is needed; choose serve, render or refresh (see brimlog-widgets --help)"},
      {"widgets: unknown command", widgets, {"show"}, 2, "brimlog-widgets: unknown command show; choose serve, render or refresh"},
      {"widgets: render without a kind", widgets, {"render"}, 2, "brimlog-widgets: render needs --kind; give app.brimlog.small, app.brimlog.medium or app.brimlog.large"},
      {"widgets: port not a number", widgets, {"serve", "--port", "abc"}, 1, R"(brimlog-widgets: --port: "abc" is not a port number; give 0 to 65535)"},
      {"widgets: unknown kind", widgets, {"render", "--kind", "tiny"}, 1, R"(brimlog-widgets: --kind: "tiny" is not a widget; choose app.brimlog.small, *)"},
      {"widgets: bad instant", widgets, {"render", "--kind", "app.brimlog.large", "--now", "noon"}, 1, R"(brimlog-widgets: --now: "noon" is not an ISO 8601 instant; write it as *)"},
      {"widgets: refresh without a daemon", widgets, {"refresh", "--shared-dir", "{dir}/shared"}, 1, "brimlog-widgets: no Brimlog daemon is running to refresh; start one with `brimlog daemon` or the systemd user unit contrib/brimlog.service"},
  };
  // clang-format on

  const bool root = ::geteuid() == 0;
  const bool setpriv = fs::exists("/usr/bin/setpriv");
  fs::permissions(dir(), fs::perms::all);  // the ordinary user writes here
  fs::create_directories(dir() / "home");
  fs::create_directories(dir() / "readonly");
  fs::permissions(dir() / "readonly", fs::perms::owner_read | fs::perms::owner_exec |
                                          fs::perms::others_read | fs::perms::others_exec);
  write("file", "a file where a folder should be");
  write("empty.db", "");
  ASSERT_EQ(testing::RawDatabase(dir() / "foreign.db").exec("CREATE TABLE notes(text)"), SQLITE_OK);
  fs::permissions(dir() / "foreign.db", fs::perms::all);

  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string command = "exec ";
    if (root && setpriv) command += "/usr/bin/setpriv --reuid=65534 --regid=65534 --clear-groups ";
    command += shellQuoted(c.program == brimlog ? BRIMLOG_BINARY : BRIMLOG_WIDGETS_BINARY);
    for (const auto& [option, path] :
         {std::pair{"--home", "home"}, std::pair{"--db", "data/usage.db"}}) {
      if (c.program == brimlog &&
          std::find(c.arguments.begin(), c.arguments.end(), option) == c.arguments.end()) {
        command += fmt::format(" {} {}", option, shellQuoted((dir() / path).string()));
      }
    }
    for (const std::string& argument : c.arguments) {
      command.append(" ").append(shellQuoted(replaced(argument, "{dir}", dir().string())));
    }
    // Root is not stopped by permissions.
    if (root && !setpriv && command.find("/readonly/") != std::string::npos) continue;
    // Standard error alone; standard output is thrown away, and there is no input.
    command += " 2>&1 >/dev/null </dev/null";
    const testing::RunningProgram::Result run =
        testing::RunningProgram::run({"/bin/sh", "-c", command});
    EXPECT_EQ(run.exitStatus, c.status) << run.output;
    const std::string expected = replaced(c.line, "{dir}", dir().string());
    EXPECT_TRUE(
        std::count(run.output.begin(), run.output.end(), '\n') == 1 && run.output.back() == '\n' &&
        ::fnmatch(expected.c_str(), run.output.substr(0, run.output.size() - 1).c_str(), 0) == 0)
        << "told:     " << run.output << "expected: " << expected;
  }
}

}  // namespace
}  // namespace brimlog
