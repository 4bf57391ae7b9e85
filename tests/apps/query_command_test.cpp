#include "apps/brindlet/query_command.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/process.h"
#include "tests/support/ts_writer.h"

namespace {

tsw::TsFile Small() {
  tsw::TsFile file;
  for (int i = 0; i < 1000; ++i) file.Add(tsw::MakePacket(i % 4 ? 0x100 : 0x11, false, {}));
  return file;
}

TEST(QueryCommand, PrintsOneLinePerKeywordWithEmptyLinesForNoAnswer) {
  tsw::TempDir dir;
  const auto path = dir.File("q.ts");
  Small().Write(path);
  std::ostringstream out, err;
  const int status = RunQuery({path.string(), {"NUMPIDS", "BOGUS", "GETPID(1)", "MAXPACKET"}}, out, err);
  EXPECT_EQ(status, kExitOk);
  EXPECT_EQ(out.str(), "2\n\n0x0011 (17)\n1000\n");
  EXPECT_EQ(err.str(), "");
}

// The installed tool, stderr folded into stdout: usage errors are status 2,
// a file that cannot be opened one line and status 1, whichever command.
TEST(BrindletTool, ExitStatuses) {
  tsw::TempDir dir;
  const std::string path = dir.File("q.ts").string();
  const std::string missing = dir.File("nope.ts").string();
  Small().Write(path);
  struct Case {
    std::string arguments;
    int status;
    std::string out;  // the whole output; unchecked if empty
  };
  const Case cases[] = {
      {"query " + path + " NUMPACKETS", 0, "1000\n"},
      {"query " + missing + " NUMPIDS", 1, "brindlet: cannot open " + missing + ": no such file\n"},
      {"info " + missing + " --json", 1, "brindlet: cannot open " + missing + ": no such file\n"},
      {"query", 2, ""},
      {"query " + path, 2, ""},  // no keyword
      {"info a.ts b.ts", 2, ""},
      {"info --yaml", 2, ""},
      {"play " + path, 2, "brindlet: play needs one of --out DIR or --raw OUT\n"},
      {"play " + path + " --out d --raw f.ts", 2, ""},
      {"play " + path + " --raw f.ts --audio 1", 2, ""},  // --audio needs --out
      {"play " + path + " --out d --audio -1", 2, ""},
      {"frobnicate", 2, ""},
      {"", 2, ""},
      {"--help", 0, ""},
  };
  for (const Case& c : cases) {
    const tsw::CommandResult run = tsw::Shell(std::string(BRINDLET_CLI) + " " + c.arguments + " 2>&1");
    EXPECT_EQ(run.status, c.status) << c.arguments << "\n" << run.out;
    EXPECT_TRUE(c.out.empty() || run.out == c.out) << c.arguments << "\n" << run.out;
  }
}

}  // namespace
