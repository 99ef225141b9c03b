#include <gtest/gtest.h>

#include "ingest/ToolLocations.hpp"
#include "support/TempDir.hpp"

namespace brimlog {
namespace {

namespace fs = std::filesystem;

class QwenSourceTest : public testing::TempDirTest {
 protected:
  fs::path home() const { return dir() / "home"; }
};

// Where the chats are looked for: the runtime base the variable or the user's settings name, and
// the tool's own folder, where chats written before a move stay.
TEST_F(QwenSourceTest, TheVariableOrTheSettingMovesTheChats) {
  struct Row {
    const char* name;
    const char* variable;            // nullptr: not set; "{dir}" stands for the test's folder
    const char* settings;            // nullptr: no settings file
    std::vector<std::string> bases;  // under the test's folder
  };
  const Row rows[] = {
      {"nothing set", nullptr, nullptr, {"home/.qwen"}},
      {"the variable", "{dir}/run", nullptr, {"run", "home/.qwen"}},
      {"the variable before the setting",
       "{dir}/run",
       R"({"advanced":{"runtimeOutputDir":"{dir}/set"}})",
       {"run", "home/.qwen"}},
      {"the setting",
       nullptr,
       R"({"advanced":{"runtimeOutputDir":"{dir}/set"}})",
       {"set", "home/.qwen"}},
      {"a setting under the home",
       nullptr,
       R"({"advanced":{"runtimeOutputDir":"~/out/"}})",
       {"home/out", "home/.qwen"}},
      {"settings with comments",
       nullptr,
       "// moved\n{\"advanced\": {/* a // quiet */ \"runtimeOutputDir\": \"{dir}/set\"}}",
       {"set", "home/.qwen"}},
      {"a relative setting is each project's own",
       nullptr,
       R"({"advanced":{"runtimeOutputDir":".qwen"}})",
       {"home/.qwen"}},
      {"a relative variable gives way to the setting",
       "run",
       R"({"advanced":{"runtimeOutputDir":"{dir}/set"}})",
       {"set", "home/.qwen"}},
      {"the tool's own folder named again",
       nullptr,
       R"({"advanced":{"runtimeOutputDir":"~/.qwen/"}})",
       {"home/.qwen"}},
      {"settings that are not JSON",
       nullptr,
       R"({"advanced":{"runtimeOutputDir":)",
       {"home/.qwen"}},
      {"a setting that is not text",
       nullptr,
       R"({"advanced":{"runtimeOutputDir":3}})",
       {"home/.qwen"}},
  };
  const auto withDir = [&](std::string text) {
    for (size_t at; (at = text.find("{dir}")) != std::string::npos;) {
      text.replace(at, 5, dir().string());
    }
    return text;
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    fs::remove_all(home());
    if (row.settings) write("home/.qwen/settings.json", withDir(row.settings));
    ToolVariables variables;
    if (row.variable) variables["QWEN_RUNTIME_DIR"] = withDir(row.variable);
    const ToolPlaces places = ToolLocations::resolve(home(), variables).places(ProviderID::qwen);

    std::vector<fs::path> roots, expected, marks;
    for (const LogFolder& folder : places.logFolders) roots.push_back(folder.root);
    for (const std::string& base : row.bases) {
      expected.push_back(dir() / base / "projects");
      expected.push_back(dir() / base / "tmp");
      marks.push_back(dir() / base);
    }
    EXPECT_EQ(roots, expected);
    EXPECT_EQ(places.marks, marks);
    EXPECT_EQ(places.homes, std::vector<fs::path>{home() / ".qwen"});
  }
}

TEST_F(QwenSourceTest, InstalledWhenARuntimeBaseExists) {
  const ToolVariables moved = {{"QWEN_RUNTIME_DIR", (dir() / "run").string()}};
  EXPECT_FALSE(ToolLocations::resolve(home(), {}).isPresent(ProviderID::qwen));
  EXPECT_FALSE(ToolLocations::resolve(home(), moved).isPresent(ProviderID::qwen));
  fs::create_directories(dir() / "run");
  EXPECT_TRUE(ToolLocations::resolve(home(), moved).isPresent(ProviderID::qwen));
  EXPECT_FALSE(ToolLocations::resolve(home(), {}).isPresent(ProviderID::qwen));
  fs::create_directories(home() / ".qwen");
  EXPECT_TRUE(ToolLocations::resolve(home(), {}).isPresent(ProviderID::qwen));
}

}  // namespace
}  // namespace brimlog
