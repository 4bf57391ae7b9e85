#include "apps/brindlet/pages_command.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "apps/brindlet/query_command.h"
#include "tests/support/json_reader.h"
#include "tests/support/process.h"
#include "tests/support/ts_writer.h"

namespace {

const std::string kSample = std::string(BRINDLET_SOURCE_DIR) + "/samples/mpeg2-mp2-ac3.ts";

Json PagesJson(const std::string& file) {
  std::ostringstream out, err;
  EXPECT_EQ(RunPages({file, true, false, 0}, out, err), kExitOk) << err.str();
  const std::optional<Json> json = JsonReader::Read(out.str());
  EXPECT_TRUE(json.has_value()) << out.str();
  return json.value_or(Json{});
}

const Json* Control(const Json& page, long long id) {
  for (const Json& control : page["controls"].items) {
    if (control["id"].Int() == id) return &control;
  }
  return nullptr;
}

std::vector<std::string> QueryAll(const std::string& file, const std::vector<std::string>& keywords) {
  std::ostringstream out, err;
  EXPECT_EQ(RunQuery({file, keywords}, out, err), kExitOk);
  std::vector<std::string> lines;
  std::istringstream in(out.str());
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

TEST(PagesCommand, TheSamplesFourPagesAsTheirDialogsShowThem) {
  const Json json = PagesJson(kSample);
  const auto& pages = json["pages"].items;
  ASSERT_EQ(pages.size(), 4u);
  const std::vector<std::pair<std::string, long long>> titles = {
      {"Program Info", 230}, {"PID Info", 218}, {"Programs", 230}, {"About", 158}};
  for (std::size_t i = 0; i < titles.size(); ++i) {
    EXPECT_EQ(pages[i]["title"].text, titles[i].first);
    EXPECT_EQ(pages[i]["size"][0].Int(), 236);
    EXPECT_EQ(pages[i]["size"][1].Int(), titles[i].second);
  }
  EXPECT_EQ(pages[0]["clsid"].text, "{C4A9A5B7-3610-4A93-A640-DCE87E33D688}");
  const Json* ac3 = Control(pages[0], 1011);
  ASSERT_NE(ac3, nullptr);
  EXPECT_EQ((*ac3)["kind"].text, "check");
  EXPECT_EQ((*ac3)["label"].text, "Prefer AC3 Audio Track");
  const Json* demux = Control(pages[0], 1023);
  ASSERT_NE(demux, nullptr);
  EXPECT_TRUE((*demux)["hidden"].boolean);
  EXPECT_EQ((*demux)["items"].items.size(), 4u);
  const Json* programs = Control(pages[0], 1007);
  ASSERT_NE(programs, nullptr);
  EXPECT_EQ((*programs)["items"][0].text, "Brindlet Sample");
  EXPECT_EQ((*programs)["selected"].Int(), 0);
  const Json* version = Control(pages[0], 1008);
  ASSERT_NE(version, nullptr);
  EXPECT_EQ((*version)["label"].text, "Version");
  EXPECT_EQ((*version)["group"].text, "PAT");
  const Json* help = Control(pages[1], 1026);
  ASSERT_NE(help, nullptr);
  EXPECT_EQ((*help)["kind"].text, "link");
  EXPECT_EQ((*help)["tooltip"].text, "Help");
}

// The PID Info table against the filter's own answers, on the bundled sample
// and on the real captures when they are there.
TEST(PagesCommand, PidRowsAgreeWithTheQueries) {
  std::vector<std::string> files = {kSample};
  const std::filesystem::path shared = BRINDLET_SHARED_SAMPLES;
  if (std::filesystem::is_directory(shared)) {
    for (const auto& entry : std::filesystem::directory_iterator(shared)) {
      if (entry.path().extension() == ".ts") files.push_back(entry.path().string());
    }
  }
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    const Json json = PagesJson(file);
    ASSERT_GE(json["pages"].items.size(), 4u);
    const Json& pidPage = json["pages"][json["pages"].items.size() == 5 ? 2 : 1];
    ASSERT_EQ(pidPage["title"].text, "PID Info");
    const Json* table = Control(pidPage, 1021);
    ASSERT_NE(table, nullptr);
    const auto& rows = (*table)["rows"].items;
    std::vector<std::string> keywords = {"NUMPIDS"};
    for (std::size_t i = 0; i < rows.size(); ++i) {
      keywords.push_back("GETPID(" + std::to_string(i) + ")");
      keywords.push_back("GETPACKETS(" + std::to_string(i) + ")");
    }
    const std::vector<std::string> answers = QueryAll(file, keywords);
    ASSERT_EQ(answers.size(), keywords.size());
    EXPECT_EQ(std::to_string(rows.size()), answers[0]);
    for (std::size_t i = 0; i < rows.size(); ++i) {
      EXPECT_EQ(rows[i][0].text, answers[1 + 2 * i]);
      EXPECT_EQ(rows[i][1].text, answers[2 + 2 * i]);
    }
  }
}

// The text form of the sample is the README's example, which its own test
// runs; here only what goes wrong.
TEST(PagesCommand, BadInputFailsInOneLine) {
  const tsw::CommandResult missing = tsw::Shell(std::string(BRINDLET_CLI) + " pages /nowhere/x.ts 2>&1");
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "brindlet: cannot open /nowhere/x.ts: no such file\n");
  EXPECT_EQ(tsw::Shell(std::string(BRINDLET_CLI) + " pages " + kSample + " --wait -1 2>&1").status, 2);
}

// --apply in a registry of its own: a first Apply enters ".ts" and ".tp".
TEST(PagesCommand, ApplyStoresTheSettingsAndRegistersTheShownExtensions) {
  tsw::TempDir dir;
  const std::string env = "BRINDLET_REGISTRY_DIR=" + dir.File("registry").string() + " ";
  const std::string tool = env + BRINDLET_CLI;
  ASSERT_EQ(tsw::Shell(tool + " pages " + kSample + " --apply > /dev/null").status, 0);
  EXPECT_EQ(tsw::Shell(tool + " settings get RegisteredExtensions").out, ".ts;.tp;\n");
  EXPECT_EQ(tsw::Shell(tool + " settings get AC3").out, "1\n");
  const std::string registry = tsw::Shell("cat " + dir.File("registry").string() + "/*").out;
  EXPECT_NE(registry.find(".tp"), std::string::npos);
  // The filter itself was never registered: its file types lead nowhere, and
  // the tool still opens files through the module beside it.
  EXPECT_EQ(tsw::Shell(tool + " query " + kSample + " NUMPIDS").out, "6\n");
}

}  // namespace
