// The README's examples, run with the built tool and compared with what the
// README shows, so the two cannot drift apart. An example is a fenced block
// marked `console`: lines that start with "$ " are commands, the lines after
// each its output (stdout and stderr together).
//
// Each block runs in a fresh folder of its own with a registry of its own,
// where `samples` and `build` lead to the checkout's and the build's, so the
// commands run as written. Before comparing, both sides are normalised:
// - timings ("0.01 s", "5589985 packets/s") become "#.## s" and "# packets/s";
// - a path to the tool's folder (".../apps/brindlet/") becomes "<tool>/";
// - in the output, the checkout's and the block folder's own paths go, so
//   what lies below them reads relative, as in the README;
// - a README line "..." stands for any number of lines.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/ts_writer.h"

namespace {

namespace fs = std::filesystem;

struct Example {
  int line = 0;  // of the command in the README
  std::string command;
  std::vector<std::string> output;
};

std::vector<std::vector<Example>> ConsoleBlocks(const fs::path& readme) {
  std::ifstream in(readme);
  std::vector<std::vector<Example>> blocks;
  bool inside = false;
  int number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    if (!inside && line == "```console") {
      inside = true;
      blocks.emplace_back();
    } else if (inside && line == "```") {
      inside = false;
    } else if (inside && line.starts_with("$ ")) {
      blocks.back().push_back({number, line.substr(2), {}});
    } else if (inside && !blocks.back().empty()) {
      blocks.back().back().output.push_back(line);
    }
  }
  return blocks;
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; !from.empty() && (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string Normal(std::string line) {
  static const std::regex kSeconds(R"(\b\d+\.\d\d s\b)");
  static const std::regex kRate(R"(\b\d+ packets/s\b)");
  static const std::regex kTool(R"([^\s,]*/apps/brindlet/)");
  line = std::regex_replace(line, kSeconds, "#.## s");
  line = std::regex_replace(line, kRate, "# packets/s");
  return std::regex_replace(line, kTool, "<tool>/");
}

// The README's lines against the output's, with "..." for any run of lines.
bool Matches(const std::vector<std::string>& expected, std::size_t e, const std::vector<std::string>& actual,
             std::size_t a) {
  if (e == expected.size()) return a == actual.size();
  if (expected[e] == "...") {
    for (std::size_t skip = a; skip <= actual.size(); ++skip) {
      if (Matches(expected, e + 1, actual, skip)) return true;
    }
    return false;
  }
  return a < actual.size() && Normal(expected[e]) == actual[a] && Matches(expected, e + 1, actual, a + 1);
}

TEST(ReadmeExamples, AreTheToolsOwnOutput) {
  const fs::path source = BRINDLET_SOURCE_DIR;
  const fs::path build = fs::path(BRINDLET_CLI).parent_path().parent_path().parent_path();
  const std::vector<std::vector<Example>> blocks = ConsoleBlocks(source / "README.md");
  ASSERT_GE(blocks.size(), 5u) << "the README's examples are fenced as console blocks";
  for (const std::vector<Example>& block : blocks) {
    tsw::TempDir dir;
    const fs::path work = dir.Path();
    fs::create_directory_symlink(source / "samples", work / "samples");
    fs::create_directory_symlink(build, work / "build");
    // The module is found beside the tool, as a user's tool finds it.
    const std::string environment = "cd '" + work.string() + "' && unset BRINDLET_MODULE && BRINDLET_REGISTRY_DIR='" +
                                    (work / ".registry").string() + "' PATH='" + (build / "apps/brindlet").string() +
                                    ":'\"$PATH\" && export BRINDLET_REGISTRY_DIR PATH && ";
    for (const Example& example : block) {
      SCOPED_TRACE("README.md:" + std::to_string(example.line) + ": " + example.command);
      const tsw::CommandResult run = tsw::Shell(environment + "{ " + example.command + " ; } 2>&1 </dev/null");
      std::vector<std::string> actual;
      std::istringstream lines(Replace(Replace(run.out, work.string() + "/", ""), source.string() + "/", ""));
      for (std::string line; std::getline(lines, line);) actual.push_back(Normal(line));
      EXPECT_TRUE(Matches(example.output, 0, actual, 0))
          << "the README shows:\n" << ::testing::PrintToString(example.output) << "\nthe tool prints:\n"
          << ::testing::PrintToString(actual);
    }
  }
}

}  // namespace
