#include "delivery/ts_source_filter.h"

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <new>

#include "control/settings_store.h"
#include "platform/codepage.h"
#include "platform/com_memory.h"
#include "platform/messages.h"

namespace {

constexpr UINT kEndOfStreamMessage = 0x8001;
constexpr WPARAM kEndOfStreamWParam = 0xAAAA;
constexpr LPARAM kEndOfStreamLParam = 0x5555;

}  // namespace

CUnknown* CTsSourceFilter::CreateInstance(IUnknown* outer, HRESULT* result) {
  auto* filter = new (std::nothrow) CTsSourceFilter(outer, result);
  if (filter == nullptr && result != nullptr) *result = E_OUTOFMEMORY;
  return filter;
}

CTsSourceFilter::CTsSourceFilter(IUnknown* outer, HRESULT* result)
    : CUnknown("Brindlet TS Source", outer) {
  m_CurrentType.SetMajorType(GUID_NULL);
  if (result != nullptr) *result = S_OK;
}

CTsSourceFilter::~CTsSourceFilter() {
  m_DeliveryBuffer.reset();
  m_ScanBuffer.reset();
  m_File.Close();
  m_OutputPin.reset();
}

STDMETHODIMP CTsSourceFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IFileSourceFilter) {
    return GetInterface(static_cast<IFileSourceFilter*>(this), ppv);
  }
  if (riid == IID_ITsStreamInfo) return GetInterface(static_cast<ITsStreamInfo*>(this), ppv);
  return CUnknown::NonDelegatingQueryInterface(riid, ppv);
}

// ---- Opening the file ----------------------------------------------------

STDMETHODIMP CTsSourceFilter::Load(LPCWSTR fileName, const AM_MEDIA_TYPE* type) {
  if (fileName == nullptr) return E_POINTER;

  // The code page's own measure sizes the name: UTF-8 needs up to four bytes
  // a character where a double-byte code page needs two.
  const int ansiBytes = WideCharToMultiByte(GetACP(), 0, fileName, -1, nullptr, 0, nullptr, nullptr);
  std::unique_ptr<char[]> ansi(new (std::nothrow) char[ansiBytes > 0 ? ansiBytes : 1]());
  if (!ansi) return E_OUTOFMEMORY;
  if (ansiBytes > 0) {
    WideCharToMultiByte(GetACP(), 0, fileName, -1, ansi.get(), ansiBytes, nullptr, nullptr);
  }

  CAutoLock lock(&m_FilterLock);
  // A filter opens one file: a second Load once the pin exists is refused.
  if (m_OutputPin) return E_UNEXPECTED;

  CMediaType mediaType;
  if (type != nullptr) {
    mediaType = CMediaType(*type);
  } else {
    mediaType.SetMajorType(MEDIATYPE_Stream);
    mediaType.SetSubtype(GUID_NULL);
  }

  if (!m_File.Open(ansi.get())) return E_FAIL;

  std::snprintf(m_AnsiName, sizeof m_AnsiName, "%s", ansi.get());
  const std::uint64_t streamSize = GetStreamSize();
  const std::size_t wideLength = std::wcslen(fileName);
  m_WideName.reset(new (std::nothrow) wchar_t[wideLength + 1]);
  if (m_WideName) std::wmemcpy(m_WideName.get(), fileName, wideLength + 1);

  m_CurrentType = mediaType;

  m_DeliveryBuffer.reset(new (std::nothrow) std::uint8_t[kBlockPackets * kPacketSize]());
  m_ScanBuffer.reset(new (std::nothrow) std::uint8_t[kScanBlockPackets * kPacketSize]());
  if (!m_DeliveryBuffer || !m_ScanBuffer) return E_OUTOFMEMORY;

  // First estimate, whole seconds only; the product of seconds and 1000 is
  // kept in 32 bits, as signed.
  const std::uint64_t seconds = streamSize / kEstimateBytesPerSecond;
  const auto milliseconds = static_cast<std::int32_t>(static_cast<std::uint32_t>(seconds * 1000));
  m_Duration = static_cast<REFERENCE_TIME>(milliseconds) * 10000;

  DWORD prefDemux = 0;
  if (ReadSettingDword("PrefDemux", &prefDemux)) m_PrefDemux = prefDemux;

  HRESULT pinResult = S_OK;
  m_OutputPin.reset(new (std::nothrow) CTsOutputPin(&pinResult, *this, m_PrefDemux, m_Duration));
  if (!m_OutputPin) return E_OUTOFMEMORY;
  m_File.AttachPacketBlock(&m_OutputPin->Engine().PacketBlock);
  {
    CAutoLock pinLock(&m_OutputPin->PinLock());
    m_OutputPin->Engine().PacketBlock = {m_DeliveryBuffer.get(), kBlockPackets * kPacketSize};
  }

  RunScan(streamSize);
  return pinResult;
}

void CTsSourceFilter::RunPass(std::uint32_t calls) {
  // Every pass makes all its calls: at the end of the stream they answer
  // S_FALSE and nothing moves.
  for (std::uint32_t i = 0; i < calls; ++i) m_OutputPin->FillBuffer(nullptr);
}

void CTsSourceFilter::RunScan(std::uint64_t streamSize) {
  const std::span<std::uint8_t> scan(m_ScanBuffer.get(), kScanBlockPackets * kPacketSize);

  ReadPackets(scan, 0, kScanBlockPackets, nullptr);
  m_ScanPhase = 1;
  RunPass(kScanBlockPackets);

  m_Census.Sort();
  m_ScanPhase = 2;
  m_OutputPin->OnThreadDestroy();
  RunPass(kScanBlockPackets);

  if (!m_Ready) {
    DWORD ignoreCrc = 0;
    ReadSettingDword("IgnoreCRC", &ignoreCrc);
    m_IgnoreCRC = ignoreCrc != 0 ? 1 : 0;
    if (m_IgnoreCRC) RunPass(kScanBlockPackets);
  }
  m_ScanPhase = 0;

  if (m_DetLength) MeasureDuration(streamSize);

  m_OutputPin->OnThreadDestroy();
  ReadPackets({m_DeliveryBuffer.get(), kBlockPackets * kPacketSize}, 0, kBlockPackets, nullptr);
}

void CTsSourceFilter::MeasureDuration(std::uint64_t streamSize) {
  CPacketEngine& engine = m_OutputPin->Engine();
  if (engine.FirstPts == 0) RunPass(kScanBlockPackets);

  // The tail block starts on a multiple of 20000 packets and only its first
  // half is looked at, so its last packet seen lies 10001 to 30000 packets
  // before the end: the duration falls short by that stretch.
  const auto packets = static_cast<std::uint32_t>(streamSize / kPacketSize);
  ReadPackets({m_ScanBuffer.get(), kScanBlockPackets * kPacketSize}, packets - kTailBlockPackets,
              kTailBlockPackets, nullptr);
  engine.PtsDelta = 0;
  RunPass(kBlockPackets);

  std::uint64_t delta = engine.PtsDelta;
  if (delta == 0) return;
  const std::uint64_t first = engine.FirstPts;
  const std::uint64_t last = engine.LastPts;
  // The 33-bit clock wrapped inside the file.
  if (first > last) delta = last - first + 0x1FFFFFFFFull;
  engine.PtsDelta = delta;
  m_Duration = static_cast<REFERENCE_TIME>(delta * 10000 / 90);
  m_OutputPin->SetSeekDuration(m_Duration);
}

STDMETHODIMP CTsSourceFilter::GetCurFile(LPWSTR* fileName, AM_MEDIA_TYPE* type) {
  if (fileName == nullptr) return E_POINTER;
  CAutoLock lock(&m_FilterLock);
  *fileName = nullptr;
  if (!m_WideName) Load(kDefaultFileName, nullptr);
  if (m_WideName) {
    const std::size_t length = std::wcslen(m_WideName.get());
    auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc((length + 1) * sizeof(WCHAR)));
    if (copy != nullptr) {
      std::wmemcpy(copy, m_WideName.get(), length + 1);
      *fileName = copy;
    }
  }
  if (type != nullptr) m_CurrentType.CopyTo(type);
  return S_OK;
}

// ---- The engine's view of the filter ------------------------------------

std::uint64_t CTsSourceFilter::GetStreamSize() {
  CAutoLock lock(&m_FilterLock);
  return m_File.GetStreamSize();
}

HRESULT CTsSourceFilter::ReadPackets(std::span<std::uint8_t> buffer, std::uint32_t first,
                                     std::uint32_t count, std::uint32_t* firstOut) {
  CAutoLock lock(&m_FilterLock);
  return m_File.ReadPackets(buffer, first, count, firstOut);
}

bool CTsSourceFilter::VideoHeaderKnown() {
  CAutoLock lock(&m_FilterLock);
  return m_AspectX != 0;
}

int CTsSourceFilter::AnalyseVideoHeader(PacketSpan) { return 0; }

void CTsSourceFilter::TablesStep(PacketSpan) {}

void CTsSourceFilter::CensusAdd(std::uint16_t pid, std::uint8_t kind) {
  CAutoLock lock(&m_FilterLock);
  m_Census.Add(pid, kind);
}

void CTsSourceFilter::EndOfStream() {
  const std::uint32_t window = m_NotifyWindow;
  if (window != 0) {
    PostMessageA(reinterpret_cast<HWND>(static_cast<std::uintptr_t>(window)), kEndOfStreamMessage,
                 kEndOfStreamWParam, kEndOfStreamLParam);
  }
}

// ---- Reports --------------------------------------------------------------

std::uint16_t CTsSourceFilter::SelectedAudioPid() {
  return m_AudioTracks[m_SelectedAudioTrack % kMaxAudioTracks].pid;
}

std::uint32_t CTsSourceFilter::SelectedAudioStreamType() {
  return m_AudioTracks[m_SelectedAudioTrack % kMaxAudioTracks].stream_type;
}

HRESULT CTsSourceFilter::SelectedPmtPid(WORD* pid) { return GetPmtPid(m_SelectedProgram, pid); }

std::string CTsSourceFilter::ProgramName(std::int32_t) { return {}; }

std::uint64_t CTsSourceFilter::LastPts() {
  return m_OutputPin ? m_OutputPin->Engine().LastPts.load() : 0;
}

std::uint32_t CTsSourceFilter::CurrentPacket() {
  return m_OutputPin ? m_OutputPin->Engine().CurrentPacket.load() : 0;
}

std::int64_t CTsSourceFilter::Duration() { return m_OutputPin ? m_OutputPin->Duration() : 0; }

STDMETHODIMP CTsSourceFilter::QueryText(LPCWSTR keyword, LPWSTR* text) {
  return QueryTextAnswer(keyword, text, *this, m_FilterLock);
}

STDMETHODIMP CTsSourceFilter::GetTransportStreamId(WORD*) { return E_NOTIMPL; }
STDMETHODIMP CTsSourceFilter::GetPatVersion(BYTE*) { return E_NOTIMPL; }
STDMETHODIMP CTsSourceFilter::GetProgramCount(DWORD*) { return E_NOTIMPL; }
STDMETHODIMP CTsSourceFilter::GetProgramNumber(LONG, WORD*) { return E_NOTIMPL; }
STDMETHODIMP CTsSourceFilter::GetPmtPidByIndex(LONG, WORD*) { return E_NOTIMPL; }
STDMETHODIMP CTsSourceFilter::GetPmtPid(WORD, WORD*) { return E_NOTIMPL; }
STDMETHODIMP CTsSourceFilter::GetPmtVersion(WORD, BYTE*) { return E_NOTIMPL; }
STDMETHODIMP CTsSourceFilter::GetStreamCount(WORD, WORD*) { return E_NOTIMPL; }
STDMETHODIMP CTsSourceFilter::GetStreamType(WORD, DWORD, BYTE*) { return E_NOTIMPL; }
STDMETHODIMP CTsSourceFilter::GetStreamPid(WORD, DWORD, WORD*) { return E_NOTIMPL; }
