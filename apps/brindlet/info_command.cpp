#include "apps/brindlet/info_command.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <system_error>
#include <utility>
#include <vector>

#include "apps/brindlet/query_command.h"
#include "apps/brindlet/json_writer.h"
#include "apps/brindlet/source_session.h"
#include "platform/win32/codepage.h"

namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kPacketBytes = 188;

// Larger than any language field the filter keeps, so nothing is cut here.
constexpr DWORD kLanguageBuffer = 64;

struct StreamFacts {
  WORD pid = 0;
  BYTE type = 0;
  std::string language;
};

struct ProgramFacts {
  WORD number = 0;
  std::optional<WORD> pmtPid;  // none for the program the census implies
  std::optional<BYTE> pmtVersion;
  std::string name;
  std::vector<StreamFacts> streams;
};

struct TrackFacts {
  WORD pid = 0;
  WORD kind = 0;
  WORD type = 0;
  std::string language;
};

struct CensusFacts {
  WORD pid = 0;
  std::uint32_t packets = 0;
  BYTE kind = 0;
};

struct InfoReport {
  std::string file;
  std::string openedThrough;
  WORD transportStreamId = 0;
  BYTE patVersion = 0;
  std::vector<ProgramFacts> programs;
  WORD selectedProgram = 0;
  bool ready = false;
  bool noPmt = false;
  WORD videoPid = 0;
  WORD videoType = 0;
  std::vector<TrackFacts> tracks;
  WORD selectedTrack = 0;
  std::uint32_t censusPackets = 0;
  std::vector<CensusFacts> census;
  // The filter counts packets in 32 bits (MAXPACKET); the file's own size
  // tells the true count, which wraps in the filter's from 2^32 packets on.
  std::uint32_t filterPackets = 0;
  std::optional<std::uint64_t> fileBytes;
  std::uint64_t filePackets = 0;
  std::string mediaLength;
  LONGLONG duration = 0;
};

bool FilterCountWraps(const InfoReport& r) { return r.filePackets > std::numeric_limits<std::uint32_t>::max(); }

// ---- Reading the filter ----------------------------------------------------

// The answers print 32-bit counters with "%d" or "%ld"; whatever sign they
// come with, the low 32 bits are the count.
std::uint32_t ParseCount(std::string_view text) {
  std::int64_t value = 0;
  std::from_chars(text.data(), text.data() + text.size(), value);
  return static_cast<std::uint32_t>(value);
}

// "0x0100 (256)": the decimal number between the brackets.
WORD ParsePid(std::string_view text) {
  const std::size_t open = text.find('(');
  return open == std::string_view::npos ? WORD{0}
                                        : static_cast<WORD>(ParseCount(text.substr(open + 1)));
}

std::string Indexed(const char* keyword, long long n) {
  return std::string(keyword) + "(" + std::to_string(n) + ")";
}

void ReadPrograms(const CSourceSession& session, InfoReport& report) {
  ITsStreamInfo* info = session.Info();
  ITsScanReport* scan = session.Report();
  info->GetTransportStreamId(&report.transportStreamId);
  info->GetPatVersion(&report.patVersion);
  DWORD count = 0;
  if (FAILED(info->GetProgramCount(&count))) count = 0;
  for (DWORD i = 0; i < count; ++i) {
    ProgramFacts program;
    if (FAILED(info->GetProgramNumber(static_cast<LONG>(i), &program.number))) continue;
    WORD pmtPid = 0;
    if (SUCCEEDED(info->GetPmtPid(program.number, &pmtPid))) program.pmtPid = pmtPid;
    BYTE pmtVersion = 0;
    if (SUCCEEDED(info->GetPmtVersion(program.number, &pmtVersion))) {
      program.pmtVersion = pmtVersion;
    }
    program.name = session.Query(Indexed("GETNAME", program.number));
    WORD streams = 0;
    if (FAILED(info->GetStreamCount(program.number, &streams))) streams = 0;
    for (DWORD k = 0; k < streams; ++k) {
      StreamFacts stream;
      info->GetStreamType(program.number, k, &stream.type);
      info->GetStreamPid(program.number, k, &stream.pid);
      char language[kLanguageBuffer] = {};
      if (SUCCEEDED(scan->GetStreamLanguage(program.number, k, language, sizeof language))) {
        stream.language = language;
      }
      program.streams.push_back(std::move(stream));
    }
    report.programs.push_back(std::move(program));
  }
}

void ReadChoice(const CSourceSession& session, InfoReport& report) {
  ITsScanReport* scan = session.Report();
  DWORD ready = 0;
  DWORD noPmt = 0;
  scan->GetScanFlags(&ready, &noPmt, &report.selectedProgram);
  report.ready = ready != 0;
  report.noPmt = noPmt != 0;
  scan->GetVideo(&report.videoPid, &report.videoType);
  WORD tracks = 0;
  if (FAILED(scan->GetAudioTrackCount(&tracks, &report.selectedTrack))) tracks = 0;
  for (WORD t = 0; t < tracks; ++t) {
    TrackFacts track;
    char language[kLanguageBuffer] = {};
    if (FAILED(scan->GetAudioTrack(t, &track.pid, &track.kind, &track.type, language,
                                   sizeof language))) {
      continue;
    }
    track.language = language;
    report.tracks.push_back(std::move(track));
  }
  scan->GetDuration(&report.duration);
}

void ReadCensus(const CSourceSession& session, InfoReport& report) {
  const std::uint32_t rows = ParseCount(session.Query("NUMPIDS"));
  for (std::uint32_t i = 0; i < rows; ++i) {
    const std::string pid = session.Query(Indexed("GETPID", i));
    if (pid.empty()) continue;
    report.census.push_back({ParsePid(pid), ParseCount(session.Query(Indexed("GETPACKETS", i))),
                             static_cast<BYTE>(ParseCount(session.Query(Indexed("GETTYPE", i))))});
  }
  report.censusPackets = ParseCount(session.Query("NUMPACKETS"));
  report.filterPackets = ParseCount(session.Query("MAXPACKET"));
  std::error_code error;
  const std::uintmax_t bytes = fs::file_size(report.file, error);
  if (!error) report.fileBytes = bytes;
  report.filePackets = report.fileBytes ? *report.fileBytes / kPacketBytes : report.filterPackets;
  report.mediaLength = session.Query("MEDIALEN");
}

// ---- Words for people --------------------------------------------------------

std::string_view StreamTypeName(unsigned type) {
  switch (type) {
    case 0x01: return "MPEG-1 video";
    case 0x02: return "MPEG-2 video";
    case 0x03: return "MPEG-1 audio";
    case 0x04: return "MPEG-2 audio";
    case 0x05: return "private sections";
    case 0x06: return "private PES data";
    case 0x0F: return "AAC";
    case 0x10: return "MPEG-4 video";
    case 0x11: return "AAC (LATM)";
    case 0x1B: return "H.264";
    case 0x24: return "H.265";
    case 0x81: return "AC-3";
    case 0x87: return "E-AC-3";
    default: return {};
  }
}

// The census's kind byte: a PES stream_id, or one of its own marks for
// H.264, AAC and AC-3.
std::string_view CensusKindName(unsigned kind) {
  if (kind == 27) return "H.264";
  if (kind == 248) return "AAC";
  if (kind == 249) return "AC-3";
  if (kind == 0xBC) return "program stream map";
  if (kind == 0xBD) return "private stream 1";
  if (kind == 0xBE) return "padding";
  if (kind == 0xBF) return "private stream 2";
  if (kind >= 0xC0 && kind <= 0xDF) return "MPEG audio";
  if (kind >= 0xE0 && kind <= 0xEF) return "MPEG video";
  return {};
}

std::string_view FixedPidName(unsigned pid) {
  switch (pid) {
    case 0x0000: return "PAT";
    case 0x0001: return "CAT";
    case 0x0010: return "NIT";
    case 0x0011: return "SDT";
    case 0x0012: return "EIT";
    case 0x0013: return "RST";
    case 0x0014: return "TDT/TOT";
    case 0x1FFF: return "null packets";
    default: return {};
  }
}

std::string PidText(unsigned pid) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%04x (%u)", pid, pid);
  return text;
}

std::string StreamTypeText(unsigned type) {
  char text[8];
  std::snprintf(text, sizeof text, "0x%02x", type);
  const std::string_view name = StreamTypeName(type);
  return name.empty() ? std::string(text) : std::string(text) + " " + std::string(name);
}

// After the census fallback the filter's "stream types" are kind bytes.
std::string KindText(unsigned kind) {
  const std::string_view name = CensusKindName(kind);
  return "kind " + std::to_string(kind) + (name.empty() ? "" : " " + std::string(name));
}

std::string_view TrackKindName(unsigned kind) {
  switch (kind) {
    case 1: return "MPEG";
    case 2: return "AC-3";
    case 3: return "AAC";
    default: return {};
  }
}

std::string_view TrackKindKey(unsigned kind) {
  switch (kind) {
    case 1: return "mpeg";
    case 2: return "ac3";
    case 3: return "aac";
    default: return "unknown";
  }
}

// Names and language codes are bytes from the file: control characters
// (C0, DEL, C1) are shown as escapes so that they cannot drive the terminal.
std::string Printable(std::string_view text) {
  std::string out;
  for (const wchar_t c : AnsiToWide(text)) {
    if (c < 0x20 || c == 0x7F || (c >= 0x80 && c < 0xA0)) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02x", static_cast<unsigned>(c));
      out += escape;
    } else {
      out += WideToAnsi(std::wstring_view(&c, 1));
    }
  }
  return out;
}

// Code points of valid UTF-8, which is near enough to columns for names.
std::size_t DisplayWidth(std::string_view text) {
  std::size_t width = 0;
  for (const char c : text) width += (static_cast<unsigned char>(c) & 0xC0) != 0x80 ? 1 : 0;
  return width;
}

// Rows of cells in columns two blanks apart, trailing blanks cut.
class CTextTable {
 public:
  explicit CTextTable(std::string indent, std::vector<bool> rightAligned = {})
      : m_Indent(std::move(indent)), m_Right(std::move(rightAligned)) {}

  void Row(std::vector<std::string> cells) { m_Rows.push_back(std::move(cells)); }

  void Print(std::ostream& out) const {
    std::vector<std::size_t> widths;
    for (const auto& row : m_Rows) {
      if (widths.size() < row.size()) widths.resize(row.size());
      for (std::size_t c = 0; c < row.size(); ++c) {
        widths[c] = std::max(widths[c], DisplayWidth(row[c]));
      }
    }
    for (const auto& row : m_Rows) {
      std::string line = m_Indent;
      for (std::size_t c = 0; c < row.size(); ++c) {
        const std::string padding(widths[c] - DisplayWidth(row[c]), ' ');
        const bool right = c < m_Right.size() && m_Right[c];
        line += right ? padding + row[c] : row[c] + padding;
        if (c + 1 < row.size()) line += "  ";
      }
      line.erase(line.find_last_not_of(' ') + 1);
      out << line << "\n";
    }
  }

 private:
  std::string m_Indent;
  std::vector<bool> m_Right;
  std::vector<std::vector<std::string>> m_Rows;
};

std::string TrackChoice(const InfoReport& r) {
  std::string text = r.noPmt ? "the PID census (no usable PMT)"
                     : r.selectedProgram != 0
                         ? "program " + std::to_string(r.selectedProgram) + ", from its PMT"
                         : "none";
  return r.ready ? text : text + ", not ready";
}

std::string CensusDescription(const InfoReport& r, const CensusFacts& row) {
  for (const ProgramFacts& program : r.programs) {
    if (program.pmtPid == row.pid) return "PMT of program " + std::to_string(program.number);
  }
  const std::string_view kind = CensusKindName(row.kind);
  return std::string(!kind.empty() ? kind : row.kind == 0 ? FixedPidName(row.pid) : "");
}

void WriteText(const InfoReport& r, std::ostream& out) {
  CTextTable head("");
  head.Row({"File", Printable(r.file)});
  head.Row({"Filter", "through " + Printable(r.openedThrough)});
  head.Row({"Transport stream", "id " + std::to_string(r.transportStreamId) + ", PAT version " +
                                    std::to_string(r.patVersion)});
  head.Row({"Size", std::to_string(r.filePackets) + " packets of 188 bytes" +
                        (FilterCountWraps(r) ? "; the filter's 32-bit count reads " + std::to_string(r.filterPackets)
                                             : "")});
  head.Row({"Duration", (r.mediaLength.empty() ? "unknown" : r.mediaLength) + " (" +
                            std::to_string(r.duration) + " x 100 ns)"});
  head.Print(out);

  for (const ProgramFacts& program : r.programs) {
    out << "\nProgram " << program.number << ": " << Printable(program.name) << "\n";
    const bool implied = !program.pmtPid.has_value();
    if (implied) {
      out << "  no PMT: video and audio as the PID census chose them\n";
    } else {
      out << "  PMT PID " << PidText(*program.pmtPid);
      if (program.pmtVersion) out << ", version " << unsigned{*program.pmtVersion};
      out << "\n";
    }
    if (program.streams.empty()) {
      out << "  no streams\n";
      continue;
    }
    CTextTable streams("    ");
    streams.Row({"PID", "Type", "Language"});
    for (const StreamFacts& s : program.streams) {
      streams.Row({PidText(s.pid), implied ? KindText(s.type) : StreamTypeText(s.type),
                   Printable(s.language)});
    }
    streams.Print(out);
  }

  out << "\n";
  CTextTable choice("");
  choice.Row({"Tracks chosen by", TrackChoice(r)});
  choice.Row({"Video", r.videoPid == 0
                           ? "none"
                           : PidText(r.videoPid) + "  " +
                                 (r.noPmt ? KindText(r.videoType) : StreamTypeText(r.videoType))});
  choice.Row({"Audio tracks", r.tracks.empty() ? "none"
                                               : std::to_string(r.tracks.size()) +
                                                     ", the one marked * is selected"});
  choice.Print(out);
  if (!r.tracks.empty()) {
    CTextTable tracks("  ");
    tracks.Row({"", "PID", "Kind", "Type", "Language"});
    for (std::size_t t = 0; t < r.tracks.size(); ++t) {
      const TrackFacts& track = r.tracks[t];
      const std::string_view kind = TrackKindName(track.kind);
      tracks.Row({t == r.selectedTrack ? "*" : "", PidText(track.pid),
                  kind.empty() ? "kind " + std::to_string(track.kind) : std::string(kind),
                  r.noPmt ? KindText(track.type) : StreamTypeText(track.type),
                  Printable(track.language)});
    }
    tracks.Print(out);
  }

  out << "\nPID census: " << r.census.size() << " PIDs, " << r.censusPackets << " packets\n";
  if (r.census.empty()) return;
  CTextTable census("  ", {false, true, true, false});
  census.Row({"PID", "Packets", "Kind", "Carries"});
  for (const CensusFacts& row : r.census) {
    census.Row({PidText(row.pid), std::to_string(row.packets), std::to_string(row.kind),
                CensusDescription(r, row)});
  }
  census.Print(out);
}

// ---- JSON --------------------------------------------------------------------

void WriteJson(const InfoReport& r, std::ostream& out) {
  CJsonWriter w(out);
  w.BeginObject();
  w.Key("file").String(r.file);
  w.Key("transport_stream_id").Number(r.transportStreamId);
  w.Key("pat_version").Number(r.patVersion);
  w.Key("programs").BeginArray();
  for (const ProgramFacts& program : r.programs) {
    w.BeginObject();
    w.Key("number").Number(program.number);
    w.Key("pmt_pid").NumberOrNull(program.pmtPid);
    w.Key("pmt_version").NumberOrNull(program.pmtVersion);
    w.Key("name").String(program.name);
    w.Key("streams").BeginArray();
    for (const StreamFacts& s : program.streams) {
      w.BeginObject(true);
      w.Key("pid").Number(s.pid);
      w.Key("stream_type").Number(s.type);
      w.Key("language").String(s.language);
      w.EndObject();
    }
    w.EndArray();
    w.EndObject();
  }
  w.EndArray();
  // Program number 0 names the network in a PAT, never a program to play.
  w.Key("selected_program")
      .NumberOrNull(r.selectedProgram != 0 ? std::optional(r.selectedProgram) : std::nullopt);
  w.Key("ready").Bool(r.ready);
  w.Key("no_pmt").Bool(r.noPmt);
  w.Key("video");
  if (r.videoPid == 0) {
    w.Null();
  } else {
    w.BeginObject(true);
    w.Key("pid").Number(r.videoPid);
    w.Key("stream_type").Number(r.videoType);
    w.EndObject();
  }
  w.Key("audio_tracks").BeginArray();
  for (std::size_t t = 0; t < r.tracks.size(); ++t) {
    const TrackFacts& track = r.tracks[t];
    w.BeginObject(true);
    w.Key("pid").Number(track.pid);
    w.Key("kind").String(TrackKindKey(track.kind));
    w.Key("stream_type").Number(track.type);
    w.Key("language").String(track.language);
    w.Key("selected").Bool(t == r.selectedTrack);
    w.EndObject();
  }
  w.EndArray();
  w.Key("census").BeginObject();
  w.Key("packets").Number(r.censusPackets);
  w.Key("rows").BeginArray();
  for (const CensusFacts& row : r.census) {
    w.BeginObject(true);
    w.Key("pid").Number(row.pid);
    w.Key("packets").Number(row.packets);
    w.Key("kind").Number(row.kind);
    w.EndObject();
  }
  w.EndArray();
  w.EndObject();
  w.Key("file_bytes").NumberOrNull(r.fileBytes);
  w.Key("file_packets").Number(static_cast<std::int64_t>(r.filePackets));
  w.Key("filter_packets").Number(r.filterPackets);
  w.Key("filter_packets_wrapped").Bool(FilterCountWraps(r));
  w.Key("filter_through").String(r.openedThrough);
  w.Key("duration_100ns").Number(r.duration);
  w.Key("duration_text").String(r.mediaLength);
  w.EndObject();
  out << "\n";
}

// What the user will read as the sample's name: relative to the working
// directory when it lies below it.
fs::path Shown(const fs::path& path, const fs::path& workDir) {
  if (workDir.empty()) return path;
  const fs::path relative = path.lexically_relative(workDir);
  return relative.empty() || *relative.begin() == ".." ? path : relative;
}

}  // namespace

std::optional<fs::path> FindBundledSample(const fs::path& toolDir, const fs::path& workDir) {
  for (const fs::path& base : {toolDir.empty() ? fs::path() : toolDir / "../../..", workDir}) {
    if (base.empty()) continue;
    const fs::path candidate = (base / kBundledSample).lexically_normal();
    std::error_code error;
    if (fs::is_regular_file(candidate, error)) return Shown(candidate, workDir);
  }
  return std::nullopt;
}

int RunInfo(const InfoOptions& options, std::ostream& out, std::ostream& err) {
  std::string file = options.file;
  if (file.empty()) {
    std::error_code error;
    fs::path tool = fs::read_symlink("/proc/self/exe", error);
    if (error) tool.clear();
    fs::path workDir = fs::current_path(error);
    if (error) workDir.clear();
    const std::optional<fs::path> sample = FindBundledSample(tool.parent_path(), workDir);
    if (!sample) {
      err << "brindlet: cannot find the bundled sample " << kBundledSample
          << " beside the tool or in the current directory; name a FILE\n";
      return kExitFailure;
    }
    file = sample->string();
  }

  CSourceSession session(file, err);
  if (!session.Ok()) return kExitFailure;
  if (session.Report() == nullptr) {
    err << "brindlet: the filter has no scan report interface\n";
    return kExitFailure;
  }
  InfoReport report;
  report.file = file;
  report.openedThrough = session.OpenedThrough();
  ReadPrograms(session, report);
  ReadChoice(session, report);
  ReadCensus(session, report);
  if (options.json) {
    WriteJson(report, out);
  } else {
    WriteText(report, out);
  }
  return kExitOk;
}
