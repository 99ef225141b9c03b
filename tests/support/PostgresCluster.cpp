#include "support/PostgresCluster.hpp"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "share/PgConnection.hpp"
#include "support/RunningProgram.hpp"
#include "support/TempDir.hpp"

namespace brimlog::testing {

namespace {

namespace fs = std::filesystem;

struct Programs {
  fs::path initdb, pgCtl;
};

// initdb and pg_ctl from the newest of Debian's versioned folders (not on PATH), else PATH.
std::optional<Programs> findPrograms() {
  std::vector<fs::path> folders;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator("/usr/lib/postgresql", error)) {
    folders.push_back(entry.path() / "bin");
  }
  std::sort(folders.begin(), folders.end(), [](const fs::path& a, const fs::path& b) {
    return std::strtod(a.parent_path().filename().c_str(), nullptr) >
           std::strtod(b.parent_path().filename().c_str(), nullptr);
  });
  std::istringstream path{std::getenv("PATH") ? std::getenv("PATH") : ""};
  for (std::string folder; std::getline(path, folder, ':');) folders.emplace_back(folder);
  for (const fs::path& folder : folders) {
    if (::access((folder / "initdb").c_str(), X_OK) == 0 &&
        ::access((folder / "pg_ctl").c_str(), X_OK) == 0) {
      return Programs{folder / "initdb", folder / "pg_ctl"};
    }
  }
  return std::nullopt;
}

// The user the server runs as when the tests run as root: PostgreSQL refuses root.
const passwd* serverUser() {
  if (::geteuid() != 0) return nullptr;
  if (const passwd* user = ::getpwnam("postgres")) return user;
  return ::getpwnam("nobody");
}

// Runs `command` in `folder` as the server's user, its output appended to commands.log there.
int runLogged(const fs::path& folder, const std::vector<std::string>& command) {
  std::vector<std::string> arguments;
  if (const passwd* user = serverUser()) arguments = {"runuser", "-u", user->pw_name, "--"};
  arguments.insert(arguments.end(),
                   {"sh", "-c", R"(cd "$0" && exec "$@" >>commands.log 2>&1)", folder.string()});
  arguments.insert(arguments.end(), command.begin(), command.end());
  return RunningProgram::run(arguments, std::chrono::seconds(30)).exitStatus;
}

std::string tail(const fs::path& path, size_t lines) {
  std::error_code error;
  if (!fs::exists(path, error)) return "";
  const std::string text = readFile(path);
  size_t from = text.size();
  for (size_t seen = 0; from > 0 && seen <= lines;) {
    if (text[--from] == '\n') ++seen;
  }
  return path.filename().string() + ":\n" + text.substr(from == 0 ? 0 : from + 1);
}

int freePort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  int port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
    port = ntohs(address.sin_port);
  }
  ::close(fd);
  return port;
}

std::string randomPassword() {
  std::random_device source;
  std::string password;
  for (int i = 0; i < 24; ++i) password += "0123456789abcdefghijklmnopqrstuvwxyz"[source() % 36];
  return password;
}

// Hands a file or folder to the server's user when the tests run as root.
void handOver(const fs::path& path) {
  const passwd* user = serverUser();
  if (user && ::chown(path.c_str(), user->pw_uid, user->pw_gid) != 0) {
    throw std::runtime_error("cannot hand " + path.string() + " to " + user->pw_name);
  }
}

fs::path newFolder(const std::string& prefix) {
  std::string pattern = (fs::temp_directory_path() / (prefix + "-XXXXXX")).string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  handOver(pattern);
  return pattern;
}

}  // namespace

std::optional<std::string> PostgresCluster::unavailable() {
  if (findPrograms()) return std::nullopt;
  return "needs PostgreSQL's initdb and pg_ctl; scripts/install-deps installs them";
}

PostgresCluster::PostgresCluster() : folder_(newFolder("brimlog-pg")) {
  try {
    const std::optional<Programs> programs = findPrograms();
    if (!programs) throw std::runtime_error(*unavailable());
    password_ = randomPassword();
    std::ofstream{folder_ / "password"} << password_ << '\n';
    handOver(folder_ / "password");
    if (runLogged(folder_, {programs->initdb, "-D", "data", "-U", "brimlog", "--pwfile=password",
                            "--auth=scram-sha-256", "-E", "UTF8", "--locale=C", "--no-sync",
                            "--wal-segsize=1"}) != 0) {
      throw std::runtime_error("initdb failed\n" + tail(folder_ / "commands.log", 20));
    }
    pgCtl_ = programs->pgCtl;
    start();
  } catch (const std::exception& error) {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
    throw std::runtime_error("PostgreSQL test cluster in " + folder_.string() + ": " +
                             error.what());
  }
}

void PostgresCluster::start() {
  // A port found free may be taken before the server binds it: then another is tried.
  for (int attempt = 0; attempt < 3; ++attempt) {
    port_ = freePort();
    const std::string options =
        "-k " + shellQuoted(folder_.string()) + " -h 127.0.0.1 -p " + std::to_string(port_) + " -F";
    if (runLogged(folder_, {pgCtl_, "-D", "data", "-l", "server.log", "-w", "-t", "20", "-s", "-o",
                            options, "start"}) == 0) {
      running_ = true;
      return;
    }
    if (readFile(folder_ / "server.log").find("could not bind") == std::string::npos) break;
  }
  // A server too slow to answer in time may still be starting: it must not outlive its folder.
  runLogged(folder_, {pgCtl_, "-D", "data", "-m", "immediate", "-s", "stop"});
  throw std::runtime_error("pg_ctl start failed\n" + tail(folder_ / "commands.log", 10) + "\n" +
                           tail(folder_ / "server.log", 20));
}

PostgresCluster::~PostgresCluster() {
  if (running_) {
    runLogged(folder_, {pgCtl_, "-D", "data", "-m", "immediate", "-s", "stop"});
  }
  if (::testing::Test::HasFailure()) {
    std::cerr << "Kept the PostgreSQL test cluster's folder: " << folder_ << '\n';
    return;
  }
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

std::string PostgresCluster::urlOf(const std::string& database) const {
  return "postgresql://brimlog:" + password_ + "@127.0.0.1:" + std::to_string(port_) + "/" +
         database;
}

std::string PostgresCluster::createDatabase(const std::string& name) const {
  std::string quoted = "\"";
  for (const char c : name) quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
  PgConnection{url()}.exec("CREATE DATABASE " + quoted + "\"");
  return urlOf(name);
}

}  // namespace brimlog::testing
