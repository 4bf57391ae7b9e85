#include "control/text_query.h"

#include <cstdio>
#include <cwchar>
#include <cwctype>

#include "platform/win32/codepage.h"
#include "platform/com/com_memory.h"

namespace {

// The answer buffer: 40 characters and the terminator, zero-filled.
class CAnswer {
 public:
  template <typename... Args>
  void Format(const char* format, Args... args) {
    // Cut at 40 characters; snprintf never writes past the buffer.
    std::snprintf(m_Text, sizeof m_Text, format, args...);
  }
  void Set(const std::string& text) { Format("%s", text.c_str()); }
  std::string Text() const { return m_Text; }

 private:
  char m_Text[kMaxAnswerLength + 1] = {};
};

bool Whole(const wchar_t* keyword, const wchar_t* name) { return std::wcscmp(keyword, name) == 0; }

bool Prefix(const wchar_t* keyword, const wchar_t* name, std::size_t length) {
  return std::wcsncmp(keyword, name, length) == 0;
}

// The number behind `literal` (for instance "GETPID(") as a scan with
// "%d" would find it: leading white space, a sign, decimal digits. 0 when the
// literal does not match or no digit follows. Values beyond 32 bits wrap
// modulo 2^32, as a 32-bit conversion would store them.
std::int32_t ScanNumber(const wchar_t* input, const wchar_t* literal) {
  const std::size_t length = std::wcslen(literal);
  if (std::wcsncmp(input, literal, length) != 0) return 0;
  const wchar_t* p = input + length;
  while (*p != L'\0' && std::iswspace(static_cast<wint_t>(*p))) ++p;
  bool negative = false;
  if (*p == L'+' || *p == L'-') {
    negative = *p == L'-';
    ++p;
  }
  if (*p < L'0' || *p > L'9') return 0;
  std::uint32_t value = 0;
  for (; *p >= L'0' && *p <= L'9'; ++p) {
    value = value * 10u + static_cast<std::uint32_t>(*p - L'0');
  }
  if (negative) value = 0u - value;
  return static_cast<std::int32_t>(value);
}

void FormatTime(CAnswer& answer, std::int64_t ms) {
  answer.Format("%02d:%02d:%02d.%03d", static_cast<int>(ms / 3600000),
                static_cast<int>((ms % 3600000) / 60000), static_cast<int>((ms % 60000) / 1000),
                static_cast<int>(ms % 1000));
}

// Rows of the census answer only for 0 to count - 1.
const PidStat* CensusRow(CTextQueryFacts& facts, std::int32_t n) {
  const CPidCensus& census = facts.Census();
  if (n < 0 || n >= census.Count()) return nullptr;
  return &census.Row(static_cast<std::uint16_t>(n));
}

}  // namespace

const char* AudioFormatName(std::uint32_t streamType) {
  switch (streamType) {
    case 3:
      return "11172-3 Audio";
    case 4:
      return "13818-3 Audio";
    case 6:
    case 128:
    case 129:
    case 249:
      return "13818-1 priv AC3";
    case 248:
      return "14496 3 priv AAC";
    default:
      return "";
  }
}

std::string AnswerTextQuery(const wchar_t* keyword, CTextQueryFacts& facts) {
  CAnswer answer;
  const wchar_t* k = keyword;

  if (Whole(k, L"VIDEOSIZE")) {
    answer.Format("%d x %d", facts.VideoWidth(), facts.VideoHeight());
  } else if (Whole(k, L"FRAMERATE")) {
    answer.Format("%2.2f", facts.FrameRate());
  } else if (Whole(k, L"ASPECTRATIO")) {
    answer.Format("%d:%d", facts.AspectX(), facts.AspectY());
  } else if (Whole(k, L"AUDIOPID")) {
    const int pid = facts.SelectedAudioPid();
    answer.Format("0x%04x (%d)", pid, pid);
  } else if (Whole(k, L"AUDIOFORMAT")) {
    answer.Format("%s", AudioFormatName(facts.SelectedAudioStreamType()));
  } else if (Whole(k, L"AUDIOTYPE")) {
    answer.Format("%02x", facts.SelectedAudioStreamType());
  } else if (Whole(k, L"VIDEOPTS")) {
    if (facts.HasPin()) FormatTime(answer, static_cast<std::int64_t>(facts.LastPts() / 90));
  } else if (Whole(k, L"NUMPIDS")) {
    answer.Format("%d", facts.Census().Count());
  } else if (Whole(k, L"NUMPACKETS")) {
    answer.Format("%ld", static_cast<long>(static_cast<std::int32_t>(facts.Census().TotalPackets())));
  } else if (Whole(k, L"PMTPID")) {
    WORD pid = 0;
    if (FAILED(facts.SelectedPmtPid(&pid))) pid = 0;
    answer.Format("%d", pid);
  } else if (Prefix(k, L"GETPID", 6)) {
    if (const PidStat* row = CensusRow(facts, ScanNumber(k, L"GETPID("))) {
      answer.Format("0x%04x (%d)", row->pid, row->pid);
    }
  } else if (Prefix(k, L"GETPACKETS", 10)) {
    if (const PidStat* row = CensusRow(facts, ScanNumber(k, L"GETPACKETS("))) {
      answer.Format("%d", static_cast<std::int32_t>(row->count));
    }
  } else if (Prefix(k, L"GETTYPE", 7)) {
    if (const PidStat* row = CensusRow(facts, ScanNumber(k, L"GETTYPE("))) {
      answer.Format("%d", row->kind);
    }
  } else if (Prefix(k, L"GETNAME", 7)) {
    const std::int32_t number = ScanNumber(k, L"GETNAME(");
    const std::string name = facts.ProgramName(number);
    if (!name.empty()) {
      answer.Set(name);
    } else if (facts.NoPmt()) {
      answer.Format("Program/Service %d", number);
    } else {
      answer.Format("Program %d", number);
    }
  } else if (Prefix(k, L"CURPACKET", 9)) {
    if (facts.HasPin()) {
      answer.Format("%ld", static_cast<long>(static_cast<std::int32_t>(facts.CurrentPacket())));
    }
  } else if (Prefix(k, L"MAXPACKET", 9)) {
    const auto packets = static_cast<std::uint32_t>(facts.StreamSize() / 188);
    answer.Format("%ld", static_cast<long>(static_cast<std::int32_t>(packets)));
  } else if (Prefix(k, L"PREFDEMUX", 9)) {
    if (ScanNumber(k, L"PREFDEMUX(") == 0) {
      facts.SetPrefDemux(0);
      answer.Format("%s", "Any Push Demux");
    }
  } else if (Prefix(k, L"NOTIFYWND", 9)) {
    facts.SetNotifyWindow(static_cast<std::uint32_t>(ScanNumber(k, L"NOTIFYWND(")));
    answer.Format("%s", "Notification on");
  } else if (Prefix(k, L"H264.NUMPARAMS", 14)) {
    if (facts.HasPin()) answer.Format("%d", facts.H264LogCount());
  } else if (Prefix(k, L"H264.GETPARAM", 13)) {
    const std::int32_t line = ScanNumber(k, L"H264.GETPARAM(");
    // Lines past the log's 20 have no answer.
    if (facts.HasPin() && line >= 0 && line < kH264LogLines) answer.Set(facts.H264LogLine(line));
  } else if (Prefix(k, L"MEDIALEN", 8)) {
    if (facts.HasPin()) FormatTime(answer, facts.Duration() / 10000);
  }
  return answer.Text();
}

HRESULT QueryTextAnswer(LPCWSTR keyword, LPWSTR* text, CTextQueryFacts& facts, CCritSec& filterLock) {
  if (keyword == nullptr || text == nullptr) return E_INVALIDARG;
  CAutoLock lock(&filterLock);
  *text = nullptr;
  const std::string answer = AnswerTextQuery(keyword, facts);
  if (answer.empty()) return S_OK;

  const int chars = static_cast<int>(answer.size()) + 1;
  auto* wide = static_cast<LPWSTR>(CoTaskMemAlloc(static_cast<SIZE_T>(chars) * sizeof(WCHAR)));
  if (wide == nullptr) return E_OUTOFMEMORY;
  // Bad bytes in a name become replacement characters, never more characters
  // than bytes, so the buffer is always large enough.
  MultiByteToWideChar(GetACP(), MB_PRECOMPOSED, answer.c_str(), -1, wide, chars);
  *text = wide;
  return S_OK;
}
