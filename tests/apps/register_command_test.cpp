// `brindlet register` and `unregister` as a user runs them, and a tool with
// no module beside it that finds the filter only through the file type.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "tests/support/process.h"
#include "tests/support/scoped_registry.h"

namespace {

namespace fs = std::filesystem;

const std::string kSample = std::string(BRINDLET_SOURCE_DIR) + "/samples/mpeg2-mp2-ac3.ts";

// The tool without the module that the test program names for itself.
tsw::CommandResult Tool(const std::string& tool, const std::string& arguments) {
  return tsw::Shell("env -u BRINDLET_MODULE " + tool + " " + arguments + " 2>&1");
}

std::map<std::string, std::string> Hives(const fs::path& dir) {
  std::map<std::string, std::string> hives;
  for (const auto& entry : fs::directory_iterator(dir)) {
    std::ifstream in(entry.path(), std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    hives[entry.path().filename().string()] = text.str();
  }
  return hives;
}

TEST(RegisterCommand, ALoneToolFindsTheFilterByItsFileTypeUntilUnregistered) {
  tsw::ScopedRegistry registry;
  tsw::TempDir lonely;
  const fs::path tool = lonely.File("brindlet");
  fs::copy_file(BRINDLET_CLI, tool);

  const tsw::CommandResult before = Tool(tool.string(), "info " + kSample);
  EXPECT_EQ(before.status, 1);
  EXPECT_NE(before.out.find(".ts is not registered"), std::string::npos) << before.out;

  const tsw::CommandResult registered = Tool(BRINDLET_CLI, std::string("register ") + BRINDLET_MODULE_PATH);
  ASSERT_EQ(registered.status, 0) << registered.out;
  EXPECT_EQ(registered.out, "registered " + fs::canonical(BRINDLET_MODULE_PATH).string() + "\n");

  const tsw::CommandResult info = Tool(tool.string(), "info " + kSample);
  EXPECT_EQ(info.status, 0) << info.out;
  EXPECT_NE(info.out.find("through the .ts file type, module " + fs::canonical(BRINDLET_MODULE_PATH).string()),
            std::string::npos)
      << info.out;
  EXPECT_NE(info.out.find("47882 packets"), std::string::npos);

  ASSERT_EQ(Tool(BRINDLET_CLI, std::string("unregister ") + BRINDLET_MODULE_PATH).status, 0);
  const tsw::CommandResult after = Tool(tool.string(), "info " + kSample);
  EXPECT_EQ(after.status, 1);
  EXPECT_EQ(after.out,
            "brindlet: cannot create the source filter (0x80040154): Brindlet.ax is not beside the tool, and .ts is "
            "not registered to it\n");
}

TEST(RegisterCommand, BadModulesGetOneLineAndExitOne) {
  tsw::ScopedRegistry registry;
  tsw::TempDir dir;
  const fs::path notAModule = dir.File("not.ax");
  std::ofstream(notAModule) << "text";
  const struct {
    std::string arguments;
    std::string line;
  } cases[] = {
      {"register " + dir.File("missing.ax").string(), "brindlet: " + dir.File("missing.ax").string() + ": no such module"},
      {"unregister " + notAModule.string(), "brindlet: cannot load " + notAModule.string() + ": "},
  };
  for (const auto& c : cases) {
    const tsw::CommandResult run = Tool(BRINDLET_CLI, c.arguments);
    EXPECT_EQ(run.status, 1) << c.arguments;
    EXPECT_EQ(run.out.rfind(c.line, 0), 0u) << run.out;
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1) << run.out;
  }
}

// Root writes through a read-only folder, so the tool runs as nobody then.
TEST(RegisterCommand, ARegistryThatCannotBeWrittenGivesTheCodeAndLosesNothing) {
  tsw::ScopedRegistry registry;
  ASSERT_EQ(Tool(BRINDLET_CLI, "settings set AC3 0").status, 0);
  ASSERT_EQ(Tool(BRINDLET_CLI, "settings set Extensions .mpg;").status, 0);
  const auto before = Hives(registry.Path());
  fs::permissions(registry.Path(), fs::perms::owner_read | fs::perms::owner_exec | fs::perms::group_read |
                                       fs::perms::group_exec | fs::perms::others_read | fs::perms::others_exec);
  for (const auto& entry : fs::directory_iterator(registry.Path())) {
    fs::permissions(entry.path(), fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read);
  }
  const std::string asUser = geteuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";

  const tsw::CommandResult registered = Tool(asUser + BRINDLET_CLI, std::string("register ") + BRINDLET_MODULE_PATH);
  EXPECT_EQ(registered.status, 1);
  EXPECT_NE(registered.out.find("DllRegisterServer in"), std::string::npos) << registered.out;
  EXPECT_NE(registered.out.find("failed (0x80070005)"), std::string::npos) << registered.out;
  // Nothing was registered, so there is nothing to take away.
  EXPECT_EQ(Tool(asUser + BRINDLET_CLI, std::string("unregister ") + BRINDLET_MODULE_PATH).status, 0);
  EXPECT_EQ(Hives(registry.Path()), before);

  fs::permissions(registry.Path(), fs::perms::owner_all);
}

}  // namespace
