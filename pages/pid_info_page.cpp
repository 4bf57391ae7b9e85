#include "pages/pid_info_page.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>

#include "platform/window/commctrl.h"

namespace {

constexpr int kDialog = 107;
constexpr int kTitle = 103;
constexpr int kList = 1021;
constexpr int kShortPids = 1022;
constexpr int kShortPackets = 1023;
constexpr int kShortPacketSize = 1024;
constexpr int kShortStreamSize = 1025;
constexpr int kRunLength = 1027;
constexpr int kFullPackets = 1028;
constexpr int kFullPacketSize = 1029;
constexpr int kFullStreamSize = 1030;

constexpr PageListColumn kColumns[] = {{"PID", 80}, {"Packets", 60}, {"Percent", 60}, {"Description", 160}};

// What the census found in a PID's first PES header, by the stream id byte.
const char* KindDescription(int kind) {
  struct Range {
    int first;
    int last;
    const char* text;
  };
  static constexpr Range kKinds[] = {
      {27, 27, "ITU-T Rec. H.264"},
      {188, 188, "program stream map"},
      {189, 189, "private stream 1"},
      {190, 190, "padding stream"},
      {191, 191, "private stream 2"},
      {192, 223, "ISO/IEC 13818-3 audio"},
      {224, 239, "ISO/IEC 13818-2 video"},
      {240, 240, "ECM"},
      {241, 241, "EMM"},
      {242, 242, "DSMCC stream"},
      {243, 243, "ISO/IEC_13522_stream"},
      {244, 244, "ITU-T Rec. H.222.1 type A"},
      {245, 245, "ITU-T Rec. H.222.1 type B"},
      {246, 246, "ITU-T Rec. H.222.1 type C"},
      {247, 247, "ITU-T Rec. H.222.1 type D"},
      {248, 248, "ITU-T Rec. H.222.1 type E"},
      {249, 249, "private stream 1 - AC3"},
  };
  for (const Range& range : kKinds) {
    if (kind >= range.first && kind <= range.last) return range.text;
  }
  return nullptr;
}

const char* LowPidName(long pid) {
  if (pid == 0) return "PAT";
  if (pid == 1) return "CAT";
  if (pid <= 15) return "reserved";
  static constexpr const char* kNames[] = {"NIT", "SDT", "EIT", "RST", "TDT/TOT"};
  return kNames[pid - 16];
}

const char* HighPidName(long pid) {
  switch (pid) {
    case 8176: return "EIT-0";
    case 8177: return "EIT-1";
    case 8178: return "EIT-2";
    case 8179: return "EIT-3";
    case 8187: return "MGT/TVCT";
    case 8191: return "NULL PID";
    default: return nullptr;
  }
}

// A kind the census saw beats the fixed names of the low PIDs, which are
// only a guess from the number; the high PIDs and the PMT are known for sure.
const char* PidDescription(long pid, int kind, long pmtPid) {
  const char* kindText = KindDescription(kind);
  const bool isPmt = pmtPid != 0 && pid == pmtPid;
  if (pid >= 0 && pid <= 20 && kindText == nullptr && !isPmt) return LowPidName(pid);
  if (const char* high = HighPidName(pid)) return high;
  if (isPmt) return "PMT";
  return kindText != nullptr ? kindText : "private";
}

// A count as the filter's 32-bit answers give it; an empty answer is 0.
LONG ParseCount(const std::string& text) {
  return static_cast<LONG>(static_cast<ULONG>(std::strtoll(text.c_str(), nullptr, 10)));
}

// "0x0100 (256)": the decimal number in brackets is the PID.
long PidOfAnswer(const std::string& text) {
  const std::size_t open = text.find('(');
  return open == std::string::npos ? 0 : std::strtol(text.c_str() + open + 1, nullptr, 10);
}

void SetNumber(HWND window, int id, long long value) {
  char text[32];
  std::snprintf(text, sizeof text, "%lld", value);
  SetDlgItemTextA(window, id, text);
}

}  // namespace

CUnknown* CPidInfoPage::CreateInstance(IUnknown* outer, HRESULT* result) {
  auto* page = new (std::nothrow) CPidInfoPage(outer);
  if (result != nullptr) *result = page != nullptr ? S_OK : E_OUTOFMEMORY;
  return page;
}

CPidInfoPage::CPidInfoPage(IUnknown* outer)
    : CStreamInfoPage("PID Info Page", outer, kDialog, kTitle, "/html/pid_page.htm") {}

INT_PTR CPidInfoPage::OnReceiveMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  if (message == WM_INITDIALOG) {
    Open(window);
    return TRUE;
  }
  if (OnSharedMessage(message, wParam)) return TRUE;
  return CBasePropertyPage::OnReceiveMessage(window, message, wParam, lParam);
}

void CPidInfoPage::Open(HWND window) {
  OpenHelpLink(window);
  const HWND list = GetDlgItem(window, kList);
  if (!InsertListColumns(list, kColumns, static_cast<int>(std::size(kColumns))) || m_pInfo == nullptr) return;

  const LONG pids = ParseCount(QueryPageText(m_pInfo, "NUMPIDS"));
  SetNumber(window, kShortPids, pids);
  const LONG packets = ParseCount(QueryPageText(m_pInfo, "NUMPACKETS"));
  SetNumber(window, kShortPackets, packets);
  SetDlgItemTextA(window, kShortPacketSize, "188");
  // Sizes are worked out in 64 bits: the answers are 32-bit counts, but
  // their products need not be.
  SetNumber(window, kShortStreamSize, static_cast<long long>(packets) * 188);
  const long pmtPid = ParseCount(QueryPageText(m_pInfo, "PMTPID"));
  SetDlgItemQuery(window, kRunLength, m_pInfo, "MEDIALEN");
  const LONG filePackets = ParseCount(QueryPageText(m_pInfo, "MAXPACKET"));
  SetNumber(window, kFullPackets, filePackets);
  SetDlgItemTextA(window, kFullPacketSize, "188");
  char kilobytes[32];
  std::snprintf(kilobytes, sizeof kilobytes, "%lld KB", static_cast<long long>(filePackets) * 47 / 256);
  SetDlgItemTextA(window, kFullStreamSize, kilobytes);
  if (pids < 1) return;

  // One reciprocal for all rows, so every row is rounded alike.
  const double perPacket = packets != 0 ? 1.0 / packets : std::numeric_limits<double>::infinity();
  for (LONG row = 0; row < pids; ++row) {
    char keyword[32];
    std::snprintf(keyword, sizeof keyword, "GETPID(%d)", static_cast<int>(row));
    const std::string pidText = QueryPageText(m_pInfo, keyword);
    InsertListRow(list, row, pidText.c_str());

    std::snprintf(keyword, sizeof keyword, "GETPACKETS(%d)", static_cast<int>(row));
    const std::string countText = QueryPageText(m_pInfo, keyword);
    SetListCell(list, row, 1, countText.c_str());
    const LONG count = ParseCount(countText);
    char percent[64];
    std::snprintf(percent, sizeof percent, "%2.2f", count * 100.0 * perPacket);
    SetListCell(list, row, 2, percent);

    std::snprintf(keyword, sizeof keyword, "GETTYPE(%d)", static_cast<int>(row));
    const int kind = static_cast<int>(ParseCount(QueryPageText(m_pInfo, keyword)) & 0xFF);
    SetListCell(list, row, 3, PidDescription(PidOfAnswer(pidText), kind, pmtPid));
  }
}
