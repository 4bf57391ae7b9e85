#include "apps/brindlet/query_command.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>
#include <sstream>

#include "tests/support/process.h"
#include "tests/support/ts_writer.h"

namespace {

// Runs the installed tool with stderr folded into stdout.
tsw::CommandResult RunTool(const std::string& arguments) {
  return tsw::Shell(std::string(BRINDLET_CLI) + " " + arguments + " 2>&1");
}

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

TEST(QueryCommand, MissingFileIsOneLineOnStderrAndStatusOne) {
  tsw::TempDir dir;
  std::ostringstream out, err;
  const auto missing = dir.File("nope.ts").string();
  EXPECT_EQ(RunQuery({missing, {"NUMPIDS"}}, out, err), kExitFailure);
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(err.str(), "brindlet: cannot open " + missing + ": no such file\n");
}

TEST(BrindletTool, ExitStatuses) {
  tsw::TempDir dir;
  const auto path = dir.File("q.ts");
  Small().Write(path);
  const tsw::CommandResult ok = RunTool("query " + path.string() + " NUMPACKETS");
  EXPECT_EQ(ok.status, 0);
  EXPECT_EQ(ok.out, "1000\n");
  EXPECT_EQ(RunTool("query " + dir.File("x.ts").string() + " NUMPIDS").status, 1);
  EXPECT_EQ(RunTool("query").status, 2);
  EXPECT_EQ(RunTool("query " + path.string()).status, 2) << "no keyword";
  EXPECT_EQ(RunTool("frobnicate").status, 2);
  EXPECT_EQ(RunTool("").status, 2);
  EXPECT_EQ(RunTool("--help").status, 0);
}

}  // namespace
