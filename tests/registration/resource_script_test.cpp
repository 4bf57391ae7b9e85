// The resource compiler that turns the module's resource script into its
// string table: what it takes, and one clear line for what it cannot.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/process.h"
#include "tests/support/ts_writer.h"

namespace {

struct Compiled {
  int status;
  std::string messages;
  std::string source;
};

Compiled Compile(const std::string& script) {
  tsw::TempDir dir;
  std::ofstream(dir.File("m.rc"), std::ios::binary) << script;
  const tsw::CommandResult run = tsw::Shell(std::string(BRINDLET_RC_COMPILE) + " " + dir.File("m.rc").string() +
                                            " " + dir.File("m.cpp").string() + " 2>&1");
  std::ifstream in(dir.File("m.cpp"), std::ios::binary);
  std::ostringstream source;
  source << in.rdbuf();
  return {run.status, run.out, source.str()};
}

TEST(ResourceCompiler, TakesStringTablesAndPassesOverTheRest) {
  const Compiled c = Compile(
      "#include <winver.h>\n"
      "// a comment with \"quotes\"\n"
      "1 VERSIONINFO\n FILEVERSION 1,2,3,4\nBEGIN\n BLOCK \"StringFileInfo\"\n BEGIN\n  VALUE \"A\", \"B\"\n END\nEND\n"
      "/* STRINGTABLE BEGIN 1 \"hidden in a comment\" END */\n"
      "STRINGTABLE DISCARDABLE\n{\n  0x6A, \"Say \"\"hi\"\"\\tnow\"\n  101 \"back\\\\slash\"\n}\n");
  ASSERT_EQ(c.status, 0) << c.messages;
  EXPECT_NE(c.source.find("{101, \"back\\\\slash\"}"), std::string::npos) << c.source;
  EXPECT_NE(c.source.find("{106, \"Say \\\"hi\\\"\\011now\"}"), std::string::npos) << c.source;
  EXPECT_EQ(c.source.find("hidden in a comment"), std::string::npos);
  EXPECT_NE(c.source.find("kStrings, 2}"), std::string::npos);
}

TEST(ResourceCompiler, ABrokenScriptGetsItsLineAndNoOutput) {
  const struct {
    const char* script;
    const char* message;
  } cases[] = {
      {"STRINGTABLE\nBEGIN\n  name \"x\"\nEND\n", "m.rc:3: a string id must be a number of 16 bits, not 'name'"},
      {"STRINGTABLE\nBEGIN\n  70000 \"x\"\nEND\n", "m.rc:3: a string id must be a number of 16 bits, not '70000'"},
      {"STRINGTABLE\nBEGIN\n  1 \"x\"\n  1 \"y\"\nEND\n", "m.rc:4: string 1 twice"},
      {"STRINGTABLE\nBEGIN\n  1 \"open\nEND\n", "m.rc:3: unterminated string"},
      {"STRINGTABLE\nBEGIN\n  1 \"x\"\n", "m.rc:1: STRINGTABLE without END"},
      {"STRINGTABLE\nBEGIN\n  1\nEND\n", "m.rc:4: string 1 has no text"},
      {"END\n", "m.rc:1: END without BEGIN"},
  };
  for (const auto& c : cases) {
    const Compiled compiled = Compile(c.script);
    EXPECT_EQ(compiled.status, 1) << c.script;
    EXPECT_NE(compiled.messages.find(c.message), std::string::npos) << compiled.messages;
    EXPECT_TRUE(compiled.source.empty()) << c.script;
  }
}

}  // namespace
