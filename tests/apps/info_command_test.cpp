#include "apps/brindlet/info_command.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>

#include "apps/brindlet/query_command.h"
#include "platform/codepage.h"
#include "tests/support/process.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

// ---- A strict little JSON reader, so the tests see what a script sees -----

struct Json {
  enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } kind = kNull;
  bool boolean = false;
  double number = 0;
  std::string text;
  std::vector<Json> items;
  std::map<std::string, Json> members;

  const Json& operator[](const std::string& key) const {
    static const Json missing;
    const auto it = members.find(key);
    EXPECT_NE(it, members.end()) << "no key " << key;
    return it == members.end() ? missing : it->second;
  }
  const Json& operator[](std::size_t i) const { return items.at(i); }
  long long Int() const { return static_cast<long long>(number); }
  bool Has(const std::string& key) const { return members.count(key) != 0; }
};

// Nothing for anything but exactly one JSON document in valid UTF-8.
class JsonReader {
 public:
  static std::optional<Json> Read(std::string_view text) {
    if (WideToAnsi(AnsiToWide(text)) != text) return std::nullopt;
    JsonReader reader{text};
    Json value;
    if (!reader.Value(value) || (reader.Blank(), reader.m_At != text.size())) return std::nullopt;
    return value;
  }

 private:
  explicit JsonReader(std::string_view text) : m_Text(text) {}

  char Peek() const { return m_At < m_Text.size() ? m_Text[m_At] : '\0'; }
  void Blank() {
    while (Peek() == ' ' || Peek() == '\n' || Peek() == '\t' || Peek() == '\r') ++m_At;
  }
  bool Take(std::string_view word) {
    Blank();
    if (m_Text.substr(m_At, word.size()) != word) return false;
    m_At += word.size();
    return true;
  }
  bool Digits() {
    const std::size_t from = m_At;
    while (Peek() >= '0' && Peek() <= '9') ++m_At;
    return m_At > from;
  }
  bool Value(Json& v) {
    if (Take("{")) return Members(v);
    if (Take("[")) return Items(v);
    if (Take("\"")) return v.kind = Json::kString, String(v.text);
    if (Take("true")) return v.kind = Json::kBool, v.boolean = true, true;
    if (Take("false")) return v.kind = Json::kBool, true;
    if (Take("null")) return true;
    // Strict number grammar: strtod alone would take hex, "inf" or a leading '+'.
    v.kind = Json::kNumber;
    const std::size_t start = m_At;
    if (Peek() == '-') ++m_At;
    if (Peek() == '0' ? (++m_At, false) : !Digits()) return false;
    if (Peek() == '.' && (++m_At, !Digits())) return false;
    if ((Peek() | 0x20) == 'e') {
      ++m_At;
      if (Peek() == '+' || Peek() == '-') ++m_At;
      if (!Digits()) return false;
    }
    v.number = std::strtod(std::string(m_Text.substr(start, m_At - start)).c_str(), nullptr);
    return true;
  }
  bool Members(Json& v) {
    v.kind = Json::kObject;
    if (Take("}")) return true;
    do {
      std::string key;
      Json member;
      if (!Take("\"") || !String(key) || !Take(":") || !Value(member)) return false;
      if (!v.members.emplace(key, std::move(member)).second) return false;
    } while (Take(","));
    return Take("}");
  }
  bool Items(Json& v) {
    v.kind = Json::kArray;
    if (Take("]")) return true;
    do {
      if (!Value(v.items.emplace_back())) return false;
    } while (Take(","));
    return Take("]");
  }
  // Behind the opening quote. No test writes characters beyond the BMP, so
  // any surrogate escape is a fault of the writer.
  bool String(std::string& out) {
    while (m_At < m_Text.size()) {
      const char c = m_Text[m_At++];
      if (c == '"') return true;
      if (static_cast<unsigned char>(c) < 0x20) return false;
      if (c != '\\') {
        out += c;
        continue;
      }
      const std::size_t simple = std::string_view("\"\\/bfnrt").find(Peek());
      if (Peek() != '\0' && simple != std::string_view::npos) {
        out += "\"\\/\b\f\n\r\t"[simple];
        ++m_At;
        continue;
      }
      const std::string hex(m_Text.substr(m_At + 1, 4));
      if (Peek() != 'u' || hex.size() != 4 || hex.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
      }
      const unsigned long code = std::stoul(hex, nullptr, 16);
      if (code >= 0xD800 && code < 0xE000) return false;
      out += WideToAnsi(std::wstring(1, static_cast<wchar_t>(code)));
      m_At += 5;
    }
    return false;
  }

  std::string_view m_Text;
  std::size_t m_At = 0;
};

// ---- Files -------------------------------------------------------------------

// An SDT naming one service: type 1, no provider.
Bytes ServiceTable(std::uint16_t tsid, std::uint16_t id, const std::string& name) {
  return tsw::SdtSection(tsid, 0, {{id, tsw::ServiceDescriptor("", name)}});
}

// `count` packets of one elementary stream, each a PES start with `lead`
// bytes behind the header (an AC-3 sync word, say).
void AddStream(tsw::TsFile& file, std::uint16_t pid, std::uint8_t streamId, std::size_t count, Bytes lead = {}) {
  for (std::size_t i = 0; i < count; ++i) {
    Bytes pes = tsw::PesHeader(streamId, 90000 + 3600 * i);
    pes.insert(pes.end(), lead.begin(), lead.end());
    file.AddPes(pid, pes);
  }
}

struct InfoRun {
  int status;
  std::string out;
  std::string err;
};

InfoRun Info(const std::filesystem::path& path, bool json) {
  std::ostringstream out, err;
  const int status = RunInfo({path.string(), json}, out, err);
  return {status, out.str(), err.str()};
}

Json InfoJson(const std::filesystem::path& path) {
  const InfoRun run = Info(path, true);
  EXPECT_EQ(run.status, kExitOk) << run.err;
  const std::optional<Json> json = JsonReader::Read(run.out);
  EXPECT_TRUE(json.has_value()) << run.out;
  return json.value_or(Json{});
}

void ExpectTextLines(const std::filesystem::path& path, std::initializer_list<const char*> lines) {
  const InfoRun text = Info(path, false);
  EXPECT_EQ(text.status, kExitOk);
  for (const char* line : lines) EXPECT_NE(text.out.find(line), std::string::npos) << line << "\nin:\n" << text.out;
}

using tsw::CommandResult;
using tsw::OnPath;
using tsw::Shell;

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
  file.AddSection(0x11, ServiceTable(0x0ABC, 20, "Brindlet Two"));
  AddStream(file, 0x100, 0xE0, 40);
  AddStream(file, 0x101, 0xC0, 12);
  AddStream(file, 0x102, 0xBD, 11, {0x0B, 0x77});
  AddStream(file, 0x200, 0xE0, 8, tsw::H264Delimiter());
  AddStream(file, 0x201, 0xC0, 5);
  const auto path = Write(file);

  const Json j = InfoJson(path);
  EXPECT_EQ(j["file"].text, path.string());
  EXPECT_EQ(j["transport_stream_id"].Int(), 0x0ABC);
  EXPECT_EQ(j["pat_version"].Int(), 3);
  ASSERT_EQ(j["programs"].items.size(), 2u);
  const Json& ten = j["programs"][0];
  EXPECT_EQ(ten["number"].Int(), 10);
  EXPECT_EQ(ten["pmt_pid"].Int(), 0x1000);
  EXPECT_EQ(ten["pmt_version"].Int(), 5);
  EXPECT_EQ(ten["name"].text, "Program 10") << "the made-up label, as it comes";
  ASSERT_EQ(ten["streams"].items.size(), 3u);
  EXPECT_EQ(ten["streams"][2]["pid"].Int(), 0x102);
  EXPECT_EQ(ten["streams"][2]["stream_type"].Int(), 0x81);
  EXPECT_EQ(ten["streams"][2]["language"].text, "fra");
  EXPECT_EQ(ten["streams"][0]["language"].text, "");
  const Json& twenty = j["programs"][1];
  EXPECT_EQ(twenty["name"].text, "Brindlet Two");
  EXPECT_EQ(twenty["streams"][0]["stream_type"].Int(), 0x1B);
  EXPECT_EQ(twenty["streams"][1]["language"].text, "deu");

  EXPECT_EQ(j["selected_program"].Int(), 10);
  EXPECT_TRUE(j["ready"].boolean);
  EXPECT_EQ(j["no_pmt"].kind, Json::kBool);
  EXPECT_FALSE(j["no_pmt"].boolean);
  EXPECT_EQ(j["video"]["pid"].Int(), 0x100);
  ASSERT_EQ(j["audio_tracks"].items.size(), 2u);
  EXPECT_EQ(j["audio_tracks"][0]["kind"].text, "mpeg");
  EXPECT_EQ(j["audio_tracks"][0]["language"].text, "eng");
  EXPECT_TRUE(j["audio_tracks"][0]["selected"].boolean);
  EXPECT_EQ(j["audio_tracks"][1]["kind"].text, "ac3");
  EXPECT_EQ(j["audio_tracks"][1]["stream_type"].Int(), 0x81);
  EXPECT_FALSE(j["audio_tracks"][1]["selected"].boolean);

  // The census in its own order, biggest first, with the kinds it saw.
  const Json& rows = j["census"]["rows"];
  ASSERT_EQ(rows.items.size(), 9u);
  EXPECT_EQ(rows[0]["pid"].Int(), 0x100);
  EXPECT_EQ(rows[0]["packets"].Int(), 40);
  long long sum = 0;
  std::map<long long, long long> kinds;
  for (const Json& row : rows.items) {
    sum += row["packets"].Int();
    kinds[row["pid"].Int()] = row["kind"].Int();
  }
  EXPECT_EQ(sum, j["census"]["packets"].Int());
  EXPECT_EQ(kinds[0x100], 0xE0);
  EXPECT_EQ(kinds[0x102], 249);
  EXPECT_EQ(kinds[0x200], 27);
  EXPECT_EQ(j["file_packets"].Int(), static_cast<long long>(file.PacketCount()));
  EXPECT_EQ(j["duration_100ns"].kind, Json::kNumber);
  EXPECT_EQ(j["duration_text"].kind, Json::kString);
  // The documented key set; scripts rely on it.
  std::vector<std::string> keys;
  for (const auto& [key, value] : j.members) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"audio_tracks", "census", "duration_100ns", "duration_text", "file",
                                            "file_packets", "no_pmt", "pat_version", "programs", "ready",
                                            "selected_program", "transport_stream_id", "video"}));

  ExpectTextLines(path, {"Transport stream  id 2748, PAT version 3\n",
                         "\nProgram 10: Program 10\n  PMT PID 0x1000 (4096), version 5\n",
                         "    0x0101 (257)  0x03 MPEG-1 audio  eng\n", "    0x0102 (258)  0x81 AC-3          fra\n",
                         "\nProgram 20: Brindlet Two\n", "    0x0200 (512)  0x1b H.264\n",
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
  EXPECT_TRUE(j["no_pmt"].boolean);
  ASSERT_EQ(j["programs"].items.size(), 1u);
  const Json& implied = j["programs"][0];
  EXPECT_EQ(implied["number"].Int(), 1);
  EXPECT_EQ(implied["pmt_pid"].kind, Json::kNull);
  EXPECT_EQ(implied["name"].text, "Program/Service 1");
  ASSERT_EQ(implied["streams"].items.size(), 2u);
  EXPECT_EQ(implied["streams"][0]["stream_type"].Int(), 0xE0) << "a census kind";
  EXPECT_EQ(implied["streams"][1]["pid"].Int(), 0x45);
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
  file.AddSection(0x11, ServiceTable(1, 7, name));
  AddStream(file, 0x301, 0xE0, 6);
  AddStream(file, 0x302, 0xC0, 3);
  const auto path = Write(file);

  const Json j = InfoJson(path);
  EXPECT_EQ(j["programs"][0]["name"].text, "Q\"\\ \x01\x1b[2J\n\uFFFD\uFFFD!");
  EXPECT_EQ(j["programs"][0]["streams"][1]["language"].text, "\"\x07\uFFFD");

  const InfoRun text = Info(path, false);
  for (const char c : text.out) EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << static_cast<int>(c);
  EXPECT_NE(text.out.find("Program 7: Q\"\\ \\x01\\x1b[2J\\x0a\uFFFD\uFFFD!\n"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("\"\\x07\uFFFD"), std::string::npos) << text.out;
}

TEST(BrindletInfoTool, DefaultFileFromTheTreeOrTheWorkingDirectory) {
  const std::string cli = BRINDLET_CLI;
  tsw::TempDir dir;
  // A build tree inside the checkout finds the sample from anywhere; one
  // elsewhere needs the checkout as its working directory.
  const bool inTree = std::filesystem::exists(std::filesystem::path(cli).parent_path() / "../../.." / kBundledSample);
  const std::string from = inTree ? dir.Path().string() : BRINDLET_SOURCE_DIR;
  const CommandResult sample = Shell("cd " + from + " && " + cli + " info 2>&1");
  EXPECT_EQ(sample.status, 0);
  EXPECT_NE(sample.out.find("Program 1: Brindlet Sample\n"), std::string::npos) << sample.out;

  // A tool away from any tree, run where there is no sample either.
  std::filesystem::copy_file(cli, dir.File("brindlet"));
  const CommandResult none = Shell("cd " + dir.Path().string() + " && ./brindlet info 2>&1");
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out, std::string("brindlet: cannot find the bundled sample ") + kBundledSample +
                          " beside the tool or in the current directory; name a FILE\n");
}

// ---- The outside check ---------------------------------------------------------

// Two programs with their names, MP2 and AC-3 tracks with their languages,
// as ffmpeg writes them. Skipped where ffmpeg or ffprobe is missing.
TEST(FfprobeComparison, ProgramsStreamsNamesAndLanguagesAgree) {
  if (!OnPath("ffmpeg") || !OnPath("ffprobe")) GTEST_SKIP() << "ffmpeg or ffprobe not on PATH";
  tsw::TempDir dir;
  const auto path = dir.File("two-programs.ts");
  const CommandResult made = Shell(
      "ffmpeg -v error -nostdin -y -f lavfi -i testsrc2=size=320x240:rate=25 -f lavfi -i sine -f lavfi -i sine=330"
      " -f lavfi -i smptebars=size=320x240:rate=25 -f lavfi -i sine=550 -t 2 -map 0:v -map 1:a -map 2:a -map 3:v"
      " -map 4:a -c:v mpeg2video -c:a:0 mp2 -c:a:1 ac3 -c:a:2 mp2 -metadata:s:a:0 language=eng"
      " -metadata:s:a:1 language=fra -metadata:s:a:2 language=deu"
      " -program 'program_num=10:title=Brindlet One:st=0:st=1:st=2' -program 'program_num=20:title=Brindlet Two:st=3:st=4'"
      " -metadata:p:0 service_provider=Brindlet -metadata:p:1 service_provider=Brindlet -f mpegts " +
      path.string() + " 2>&1");
  ASSERT_EQ(made.status, 0) << made.out;
  const CommandResult probe = Shell("ffprobe -v error -show_programs -show_streams -of json " + path.string());
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
