#include "apps/brindlet/info_command.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <optional>
#include <regex>
#include <sstream>

#include "apps/brindlet/query_command.h"
#include "platform/win32/codepage.h"
#include "tests/support/json_reader.h"
#include "tests/support/process.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

// The value on one line, keys in order and no blanks, to compare whole parts
// of a document at once. Numbers print as integers, the only ones written.
std::string Compact(const Json& v) {
  std::string out;
  switch (v.kind) {
    case Json::kNull: return "null";
    case Json::kBool: return v.boolean ? "true" : "false";
    case Json::kNumber: return std::to_string(v.Int());
    case Json::kString: return '"' + v.text + '"';
    case Json::kArray:
      for (const Json& item : v.items) out += (out.empty() ? "" : ",") + Compact(item);
      return "[" + out + "]";
    case Json::kObject:
      for (const auto& [key, value] : v.members) out += (out.empty() ? "\"" : ",\"") + key + "\":" + Compact(value);
      return "{" + out + "}";
  }
  return out;
}

// ---- Files -------------------------------------------------------------------

// `count` packets of one elementary stream, each a PES start with `lead`
// bytes behind the header (an AC-3 sync word, say).
void AddStream(tsw::TsFile& file, std::uint16_t pid, std::uint8_t streamId, std::size_t count, Bytes lead = {}) {
  for (std::size_t i = 0; i < count; ++i) {
    Bytes pes = tsw::PesHeader(streamId, 90000 + 3600 * i);
    pes.insert(pes.end(), lead.begin(), lead.end());
    file.AddPes(pid, pes);
  }
}

// What `info` prints for `path`, which it must read without complaint.
std::string Info(const std::filesystem::path& path, bool json) {
  std::ostringstream out, err;
  EXPECT_EQ(RunInfo({path.string(), json}, out, err), kExitOk) << err.str();
  return out.str();
}

Json InfoJson(const std::filesystem::path& path) {
  const std::string text = Info(path, true);
  const std::optional<Json> json = JsonReader::Read(text);
  EXPECT_TRUE(json.has_value()) << text;
  return json.value_or(Json{});
}

void ExpectTextLines(const std::filesystem::path& path, std::initializer_list<const char*> lines) {
  const std::string text = Info(path, false);
  for (const char* line : lines) EXPECT_NE(text.find(line), std::string::npos) << line << "\nin:\n" << text;
}

class InfoCommandTest : public ::testing::Test {
 protected:
  std::filesystem::path Write(const tsw::TsFile& file) {
    const auto path = m_Dir.File("in.ts");
    file.Write(path);
    return path;
  }
  tsw::TempDir m_Dir;
};

// Two programs, the second named in the SDT and the first not; program 10's
// PMT comes last, so its tracks are the ones chosen.
TEST_F(InfoCommandTest, ProgramsStreamsLanguagesAndNamesInBothForms) {
  tsw::TsFile file;
  file.AddSection(0, tsw::PatSection(0x0ABC, 3, {{10, 0x1000}, {20, 0x1001}}));
  file.AddSection(0x1001,
                  tsw::PmtSection(20, 1, 0x200, {{0x1B, 0x200, {}}, {0x04, 0x201, tsw::LanguageDescriptor("deu")}}));
  file.AddSection(0x1000, tsw::PmtSection(10, 5, 0x100,
                                          {{0x02, 0x100, {}},
                                           {0x03, 0x101, tsw::LanguageDescriptor("eng")},
                                           {0x81, 0x102, tsw::LanguageDescriptor("fra")}}));
  file.AddSection(0x11, tsw::SdtSection(0x0ABC, 0, {{20, tsw::ServiceDescriptor("", "Brindlet Two")}}));
  AddStream(file, 0x100, 0xE0, 40);
  AddStream(file, 0x101, 0xC0, 12);
  AddStream(file, 0x102, 0xBD, 11, {0x0B, 0x77});
  AddStream(file, 0x200, 0xE0, 8, tsw::H264Delimiter());
  AddStream(file, 0x201, 0xC0, 5);
  const auto path = Write(file);

  const Json j = InfoJson(path);
  EXPECT_EQ(Compact(j["programs"]),
            R"([{"name":"Program 10","number":10,"pmt_pid":4096,"pmt_version":5,"streams":[)"
            R"({"language":"","pid":256,"stream_type":2},{"language":"eng","pid":257,"stream_type":3},)"
            R"({"language":"fra","pid":258,"stream_type":129}]},{"name":"Brindlet Two","number":20,"pmt_pid":4097,)"
            R"("pmt_version":1,"streams":[{"language":"","pid":512,"stream_type":27},)"
            R"({"language":"deu","pid":513,"stream_type":4}]}])")
      << "program 10's made-up label as it comes";
  EXPECT_EQ(Compact(j["audio_tracks"]),
            R"([{"kind":"mpeg","language":"eng","pid":257,"selected":true,"stream_type":3},)"
            R"({"kind":"ac3","language":"fra","pid":258,"selected":false,"stream_type":129}])");
  // The census in its own order, biggest first; among the rows of a count
  // the order is not kept, so the rows are compared by PID.
  Json rows = j["census"]["rows"];
  ASSERT_FALSE(rows.items.empty());
  EXPECT_EQ(Compact(rows[0]), R"({"kind":224,"packets":40,"pid":256})");
  std::sort(rows.items.begin(), rows.items.end(),
            [](const Json& a, const Json& b) { return a["pid"].Int() < b["pid"].Int(); });
  EXPECT_EQ(Compact(rows),
            R"([{"kind":0,"packets":1,"pid":0},{"kind":0,"packets":1,"pid":17},{"kind":224,"packets":40,"pid":256},)"
            R"({"kind":192,"packets":12,"pid":257},{"kind":249,"packets":11,"pid":258},)"
            R"({"kind":27,"packets":8,"pid":512},{"kind":192,"packets":5,"pid":513},)"
            R"({"kind":0,"packets":1,"pid":4096},{"kind":0,"packets":1,"pid":4097}])");
  EXPECT_EQ(j["census"]["packets"].Int(), 80);
  EXPECT_EQ(j["file"].text, path.string());
  EXPECT_EQ(j["file_packets"].Int(), static_cast<long long>(file.PacketCount()));
  EXPECT_EQ(j["filter_packets"].Int(), static_cast<long long>(file.PacketCount()));
  EXPECT_EQ(j["file_bytes"].Int(), static_cast<long long>(file.PacketCount() * 188));
  EXPECT_EQ(j["duration_100ns"].kind, Json::kNumber);
  EXPECT_EQ(j["duration_text"].kind, Json::kString);
  EXPECT_EQ(j["filter_through"].text, std::string("BRINDLET_MODULE, ") + BRINDLET_MODULE_PATH);
  // The rest whole: with the keys read above, the documented key set.
  Json rest = j;
  for (const char* key :
       {"programs", "audio_tracks", "census", "file", "file_packets", "filter_packets", "file_bytes", "duration_100ns",
        "duration_text", "filter_through"}) {
    rest.members.erase(key);
  }
  EXPECT_EQ(Compact(rest), R"({"filter_packets_wrapped":false,"no_pmt":false,"pat_version":3,"ready":true,"selected_program":10,)"
                           R"("transport_stream_id":2748,"video":{"pid":256,"stream_type":2}})");

  // The same facts as text: the layout, and the names the text gives them.
  ExpectTextLines(path, {"Transport stream  id 2748, PAT version 3\n",
                         "\nProgram 10: Program 10\n  PMT PID 0x1000 (4096), version 5\n",
                         "    0x0102 (258)  0x81 AC-3          fra\n", "    0x0200 (512)  0x1b H.264\n",
                         "Tracks chosen by  program 10, from its PMT\n",
                         "Video             0x0100 (256)  0x02 MPEG-2 video\n",
                         "  *  0x0101 (257)  MPEG  0x03 MPEG-1 audio  eng\n",
                         "     0x0102 (258)  AC-3  0x81 AC-3          fra\n",
                         "  0x1000 (4096)        1     0  PMT of program 10\n"});
}

TEST_F(InfoCommandTest, WithoutPmtTheCensusDecidesAndTheImpliedProgramIsShownSo) {
  tsw::TsFile file;
  AddStream(file, 0x44, 0xE0, 30);
  AddStream(file, 0x45, 0xC0, 10);
  const auto path = Write(file);

  const Json j = InfoJson(path);
  EXPECT_EQ(Compact(j["programs"]), R"([{"name":"Program/Service 1","number":1,"pmt_pid":null,"pmt_version":null,)"
                                    R"("streams":[{"language":"","pid":68,"stream_type":224},)"
                                    R"({"language":"","pid":69,"stream_type":192}]}])")
      << "census kinds for stream types, and no languages without a PMT";
  EXPECT_TRUE(j["no_pmt"].boolean);
  EXPECT_EQ(j["selected_program"].kind, Json::kNull);
  EXPECT_EQ(j["audio_tracks"][0]["language"].text, "eng");

  ExpectTextLines(path, {"Tracks chosen by  the PID census (no usable PMT)\n",
                         "  no PMT: video and audio as the PID census chose them\n",
                         "    0x0044 (68)  kind 224 MPEG video\n", "Video             0x0044 (68)  kind 224 MPEG video\n"});
}

// Names and language codes are bytes from the file: JSON must stay valid
// and the terminal must not receive them raw.
TEST_F(InfoCommandTest, HostileNameAndLanguageStayValidJsonAndInertText) {
  const std::string name = "Q\"\\ \x01\x1b[2J\n\xff\xc3!";
  tsw::TsFile file;
  file.AddSection(0, tsw::PatSection(1, 0, {{7, 0x300}}));
  file.AddSection(0x300, tsw::PmtSection(7, 0, 0x301,
                                         {{0x02, 0x301, {}}, {0x03, 0x302, tsw::LanguageDescriptor("\"\x07\xfe")}}));
  file.AddSection(0x11, tsw::SdtSection(1, 0, {{7, tsw::ServiceDescriptor("", name)}}));
  AddStream(file, 0x301, 0xE0, 6);
  AddStream(file, 0x302, 0xC0, 3);
  const auto path = Write(file);

  const Json j = InfoJson(path);
  EXPECT_EQ(j["programs"][0]["name"].text, "Q\"\\ \x01\x1b[2J\n\uFFFD\uFFFD!");
  EXPECT_EQ(j["programs"][0]["streams"][1]["language"].text, "\"\x07\uFFFD");

  const std::string text = Info(path, false);
  for (const char c : text) EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << static_cast<int>(c);
  EXPECT_NE(text.find("Program 7: Q\"\\ \\x01\\x1b[2J\\x0a\uFFFD\uFFFD!\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\"\\x07\uFFFD"), std::string::npos) << text;
}

TEST(BrindletInfoTool, DefaultFileFromTheTreeOrTheWorkingDirectory) {
  const std::string cli = BRINDLET_CLI;
  tsw::TempDir dir;
  // A build tree inside the checkout finds the sample from anywhere; one
  // elsewhere needs the checkout as its working directory.
  const bool inTree = std::filesystem::exists(std::filesystem::path(cli).parent_path() / "../../.." / kBundledSample);
  const std::string from = inTree ? dir.Path().string() : BRINDLET_SOURCE_DIR;
  const tsw::CommandResult sample = tsw::Shell("cd " + from + " && " + cli + " info 2>&1");
  EXPECT_EQ(sample.status, 0);
  EXPECT_NE(sample.out.find("Program 1: Brindlet Sample\n"), std::string::npos) << sample.out;

  // A tool away from any tree, run where there is no sample either.
  std::filesystem::copy_file(cli, dir.File("brindlet"));
  const tsw::CommandResult none = tsw::Shell("cd " + dir.Path().string() + " && ./brindlet info 2>&1");
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, std::string("brindlet: cannot find the bundled sample ") + kBundledSample +
                          " beside the tool or in the current directory; name a FILE\n");
}

// ---- The outside check ---------------------------------------------------------

// Two programs with their names, MP2 and AC-3 tracks with their languages,
// as ffmpeg writes them. Skipped where ffmpeg or ffprobe is missing.
TEST(FfprobeComparison, ProgramsStreamsNamesAndLanguagesAgree) {
  if (!tsw::OnPath("ffmpeg") || !tsw::OnPath("ffprobe")) GTEST_SKIP() << "ffmpeg or ffprobe not on PATH";
  tsw::TempDir dir;
  const auto path = dir.File("two-programs.ts");
  const tsw::CommandResult made = tsw::Shell(
      "ffmpeg -v error -nostdin -y -f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i sine -f lavfi -i sine=330"
      " -f lavfi -i smptebars=size=320x240:rate=25 -f lavfi -i sine=550 -t 2 -map 0:v -map 1:a -map 2:a -map 3:v"
      " -map 4:a -c:v mpeg2video -c:a:0 mp2 -c:a:1 ac3 -c:a:2 mp2 -metadata:s:a:0 language=eng"
      " -metadata:s:a:1 language=fra -metadata:s:a:2 language=deu"
      " -program 'program_num=10:title=Brindlet One:st=0:st=1:st=2' -program 'program_num=20:title=Brindlet Two:st=3:st=4'"
      " -metadata:p:0 service_provider=Brindlet -metadata:p:1 service_provider=Brindlet -f mpegts " +
      path.string() + " 2>&1");
  ASSERT_EQ(made.status, 0) << made.out;
  const tsw::CommandResult probe = tsw::Shell("ffprobe -v error -show_programs -show_streams -of json " + path.string());
  ASSERT_EQ(probe.status, 0) << probe.out;
  const std::optional<Json> theirs = JsonReader::Read(probe.out);
  ASSERT_TRUE(theirs.has_value()) << probe.out;
  const Json ours = InfoJson(path);

  std::map<long long, const Json*> byNumber;
  for (const Json& program : (*theirs)["programs"].items) byNumber[program["program_num"].Int()] = &program;
  ASSERT_EQ(ours["programs"].items.size(), byNumber.size());
  for (const Json& program : ours["programs"].items) {
    const long long number = program["number"].Int();
    SCOPED_TRACE("program " + std::to_string(number));
    ASSERT_TRUE(byNumber.count(number));
    const Json& probed = *byNumber[number];
    EXPECT_EQ(program["pmt_pid"].Int(), probed["pmt_pid"].Int());
    EXPECT_EQ(program["name"].text, probed["tags"]["service_name"].text);
    ASSERT_EQ(program["streams"].items.size(), probed["streams"].items.size());
    for (std::size_t s = 0; s < program["streams"].items.size(); ++s) {
      const Json& mine = program["streams"][s];
      const Json& other = probed["streams"][s];
      EXPECT_EQ(mine["pid"].Int(), std::stoll(other["id"].text, nullptr, 16));
      // What ffprobe calls the codecs of the stream types in its file.
      const std::map<long long, std::string> codecs = {{0x02, "mpeg2video"}, {0x03, "mp2"}, {0x04, "mp2"}, {0x81, "ac3"}};
      EXPECT_EQ(codecs.count(mine["stream_type"].Int()) ? codecs.at(mine["stream_type"].Int()) : "?",
                other["codec_name"].text);
      // ffprobe's tag is the stream type, unless a registration descriptor
      // ("AC-3") stands in its place.
      const long long tag = std::stoll(other["codec_tag"].text, nullptr, 16);
      EXPECT_TRUE(tag >= 0x100 || mine["stream_type"].Int() == tag) << tag;
      const bool tagged = other.Has("tags") && other["tags"].Has("language");
      EXPECT_EQ(mine["language"].text, tagged ? other["tags"]["language"].text : "");
    }
  }
}

}  // namespace
