#include "delivery/ts_source_filter.h"

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <new>

#include "analysis/psi_section.h"
#include "control/settings_store.h"
#include "delivery/media_types.h"
#include "platform/codepage.h"
#include "platform/com_memory.h"
#include "platform/messages.h"
#include "platform/objbase.h"
#include "platform/mpeg2_demux.h"
#include "platform/rot.h"
#include <unistd.h>

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
    : CSource("Brindlet TS Source", outer, CLSID_BrindletSource) {
  m_CurrentType.SetMajorType(GUID_NULL);
  if (result != nullptr) *result = S_OK;
}

CTsSourceFilter::~CTsSourceFilter() {
  RevokeFromRot(m_FilterRotCookie);
  ReleaseDemux();
  m_DeliveryBuffer.reset();
  m_ScanBuffer.reset();
  m_File.Close();
  // The pin takes itself out of the pin array as it goes.
  m_OutputPin.reset();
}

STDMETHODIMP CTsSourceFilter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IFileSourceFilter) return GetInterface(static_cast<IFileSourceFilter*>(this), ppv);
  if (riid == IID_IMediaSeeking && m_OutputPin) return m_OutputPin->NonDelegatingQueryInterface(riid, ppv);
  // Answered so that hosts that look for it find a seekable source; nothing
  // of that interface stands behind it.
  if (riid == IID_IAMExtendedSeeking) return GetInterface(NonDelegatingUnknown(), ppv);
  if (riid == IID_IAMStreamSelect) return GetInterface(static_cast<IAMStreamSelect*>(this), ppv);
  if (riid == IID_IAMFilterMiscFlags) return GetInterface(static_cast<IAMFilterMiscFlags*>(this), ppv);
  if (riid == IID_ISpecifyPropertyPages) return GetInterface(static_cast<ISpecifyPropertyPages*>(this), ppv);
  if (riid == IID_ITsStreamInfo) return GetInterface(static_cast<ITsStreamInfo*>(this), ppv);
  if (riid == IID_ITsScanReport) return GetInterface(static_cast<ITsScanReport*>(this), ppv);
  return CSource::NonDelegatingQueryInterface(riid, ppv);
}

// ---- The graph ---------------------------------------------------------------

STDMETHODIMP CTsSourceFilter::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
  const HRESULT result = CSource::JoinFilterGraph(graph, name);
  if (FAILED(result)) return result;
  CAutoLock lock(&m_FilterLock);
  const JoinSettings s = ReadJoinSettings(m_PrefDemux);
  m_AC3 = AsFlag(s.ac3);
  m_Audio2 = AsFlag(s.audio2);
  m_AutoSelect = AsFlag(s.autoSelect);
  m_PCRClock = AsFlag(s.pcrClock);
  m_DetLength = AsFlag(s.detLength);
  m_IgnoreCRC = AsFlag(s.ignoreCrc);
  m_FastSeeking = AsFlag(s.fastSeeking);
  m_PrefDemux = s.prefDemux;
  if (m_PrefDemux == 2) AddFilterByClass(CLSID_NvidiaHdtvDemux, &m_DemuxFilter, L"NVIDIA HDTV Demux");
  if (s.allowGraphEdit != 0) {
    if (graph != nullptr) {
      RegisterInRot(graph, &m_GraphRotCookie, true);
    } else {
      RevokeFromRot(m_GraphRotCookie);
      m_GraphRotCookie = 0;
    }
  }
  return result;
}

STDMETHODIMP CTsSourceFilter::QueryVendorInfo(LPWSTR* vendorInfo) {
  if (vendorInfo == nullptr) return E_POINTER;
  CAutoLock lock(&m_FilterLock);
  const std::wstring text = AnsiToWide(kVendorInfo);
  auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(WCHAR)));
  if (copy == nullptr) return E_OUTOFMEMORY;
  std::wmemcpy(copy, text.c_str(), text.size() + 1);
  *vendorInfo = copy;
  RevokeFromRot(m_GraphRotCookie);
  m_GraphRotCookie = 0;
  m_PCRClock = 0;
  return S_OK;
}

STDMETHODIMP_(ULONG) CTsSourceFilter::GetMiscFlags() {
  m_MiscFlagsAsked = 1;
  return AM_FILTER_MISC_FLAGS_IS_SOURCE;
}

STDMETHODIMP CTsSourceFilter::SetSyncSource(IReferenceClock* clock) {
  CAutoLock lock(&m_FilterLock);
  const HRESULT result = CSource::SetSyncSource(clock);
  if (m_MiscFlagsAsked && clock != nullptr && m_PCRClock == 0) {
    // Cleared first: the SetSyncSource that the choice sends back here only
    // stores its clock.
    m_MiscFlagsAsked = 0;
    ChooseClock();
  }
  return result;
}

void CTsSourceFilter::ChooseClock() {
  IFilterGraph* graph = Graph();
  if (graph == nullptr) return;
  IEnumFilters* filters = nullptr;
  if (FAILED(graph->EnumFilters(&filters)) || filters == nullptr) return;
  IReferenceClock* found = nullptr;
  IBaseFilter* filter = nullptr;
  while (found == nullptr && filters->Next(1, &filter, nullptr) == S_OK) {
    if (filter != m_DemuxFilter) filter->QueryInterface(IID_IReferenceClock, reinterpret_cast<void**>(&found));
    filter->Release();
  }
  filters->Release();
  if (found == nullptr) return;
  IMediaFilter* graphFilter = nullptr;
  if (SUCCEEDED(graph->QueryInterface(IID_IMediaFilter, reinterpret_cast<void**>(&graphFilter)))) {
    graphFilter->SetSyncSource(found);
    graphFilter->Release();
  }
  found->Release();
}

STDMETHODIMP CTsSourceFilter::Stop() { return CSource::Stop(); }

STDMETHODIMP CTsSourceFilter::Pause() { return CSource::Pause(); }

HRESULT CTsSourceFilter::AddFilterByClass(REFCLSID clsid, IBaseFilter** filterOut, LPCWSTR name) {
  CAutoLock lock(&m_FilterLock);
  IFilterGraph* graph = Graph();
  if (graph == nullptr || filterOut == nullptr) return S_OK;
  HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                reinterpret_cast<void**>(filterOut));
  if (FAILED(hr)) return hr;
  return graph->AddFilter(*filterOut, name);
}

HRESULT CTsSourceFilter::RegisterInRot(IUnknown* object, DWORD* cookieOut, bool isGraph) {
  CAutoLock lock(&m_FilterLock);
  IRunningObjectTable* table = nullptr;
  if (FAILED(GetRunningObjectTable(0, &table)) || table == nullptr) return E_FAIL;
  char pid[16] = {};
  std::snprintf(pid, sizeof pid, "%08x", static_cast<unsigned>(getpid()));
  char address[24] = {};
  std::snprintf(address, sizeof address, "%08x", static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(object)));
  std::string item = isGraph ? std::string("FilterGraph ") + address + " pid " + pid
                             : std::string("Brindlet:") + m_AnsiName + " pid " + pid;
  // Item names hold 256 characters; a long path loses its tail.
  if (item.size() > 256) item.resize(256);
  IMoniker* moniker = nullptr;
  HRESULT hr = CreateItemMoniker(L"!", AnsiToWide(item).c_str(), &moniker);
  if (SUCCEEDED(hr)) {
    hr = table->Register(0, object, moniker, cookieOut);
    moniker->Release();
  }
  table->Release();
  return hr;
}

void CTsSourceFilter::RevokeFromRot(DWORD cookie) {
  CAutoLock lock(&m_FilterLock);
  if (cookie == 0) return;
  IRunningObjectTable* table = nullptr;
  if (FAILED(GetRunningObjectTable(0, &table)) || table == nullptr) return;
  table->Revoke(cookie);
  table->Release();
}

HRESULT CTsSourceFilter::RegisterFilterInRot() {
  CAutoLock lock(&m_FilterLock);
  ITsStreamInfo* info = nullptr;
  const HRESULT hr = QueryInterface(IID_ITsStreamInfo, reinterpret_cast<void**>(&info));
  if (FAILED(hr)) return hr;
  RegisterInRot(info, &m_FilterRotCookie, false);
  info->Release();
  return hr;
}

void CTsSourceFilter::RevokeFilterFromRot() {
  CAutoLock lock(&m_FilterLock);
  RevokeFromRot(m_FilterRotCookie);
  m_FilterRotCookie = 0;
}

bool CTsSourceFilter::HoldsDemux() {
  CAutoLock lock(&m_FilterLock);
  return m_DemuxFilter != nullptr;
}

void CTsSourceFilter::ReleaseDemux() {
  CAutoLock lock(&m_FilterLock);
  if (m_DemuxFilter != nullptr) m_DemuxFilter->Release();
  m_DemuxFilter = nullptr;
}

std::uint64_t CTsSourceFilter::FileSizeBytes() {
  CAutoLock lock(&m_FilterLock);
  return m_File.FileSize();
}

void CTsSourceFilter::SetStreamLimit(std::uint64_t bytes) {
  CAutoLock lock(&m_FilterLock);
  m_File.SetStreamLimit(bytes);
  m_StreamSizeAnswer.store(0, std::memory_order_release);
}

// ---- Pages, filled in by later work --------------------------------------

STDMETHODIMP CTsSourceFilter::GetPages(CAUUID* pages) {
  if (pages == nullptr) return E_POINTER;
  pages->cElems = 0;
  pages->pElems = nullptr;
  return S_OK;
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
  m_StreamSizeAnswer.store(0, std::memory_order_release);

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
  m_OutputPin.reset(new (std::nothrow) CTsOutputPin(&pinResult, this, *this, m_Duration));
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

  if (!m_Tracks.ready) {
    DWORD ignoreCrc = 0;
    ReadSettingDword("IgnoreCRC", &ignoreCrc);
    m_IgnoreCRC = ignoreCrc != 0 ? 1 : 0;
    if (m_IgnoreCRC) {
      // Only PMT sections refused for their CRC can add anything now: the
      // pairs seen before stay seen.
      m_PmtParser.SetIgnoreCrc(1);
      RunPass(kScanBlockPackets);
    }
    if (!m_Tracks.ready) CensusFallback(m_Census, m_AC3 != 0, m_Tracks);
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
  const std::uint64_t kept = m_StreamSizeAnswer.load(std::memory_order_acquire);
  if (kept != 0) return kept - 1;
  CAutoLock lock(&m_FilterLock);
  const std::uint64_t size = m_File.GetStreamSize();
  m_StreamSizeAnswer.store(size + 1, std::memory_order_release);
  return size;
}

HRESULT CTsSourceFilter::ReadPackets(std::span<std::uint8_t> buffer, std::uint32_t first,
                                     std::uint32_t count, std::uint32_t* firstOut) {
  CAutoLock lock(&m_FilterLock);
  const HRESULT hr = m_File.ReadPackets(buffer, first, count, firstOut);
  m_StreamSizeAnswer.store(0, std::memory_order_release);  // the read asks the file again
  return hr;
}

bool CTsSourceFilter::VideoHeaderKnown() { return m_Video.aspectX != 0; }

int CTsSourceFilter::AnalyseVideoHeader(PacketSpan target) {
  // Runs under the pin lock only; the fields it writes are atomic.
  CVideoBlockPatcher blocks;
  return ::AnalyseVideoHeader(target, m_Tracks.videoStreamType, m_Video,
                              m_OutputPin->ParameterLog(), blocks);
}

void CTsSourceFilter::TablesStep(PacketSpan target) {
  // Every packet is taken as one section that starts right behind a
  // pointer_field of 0; the section's own fields and CRC weed out the rest.
  const std::span<const std::uint8_t> section = target.subspan(kSectionOffsetInPacket);
  const SectionHeader header = ReadSectionHeader(section);
  const std::size_t total = header.section_length + 3;
  try {
    if (header.table_id == 0 && PassesCommonSectionTest(header) &&
        m_PatParser.Log().section_count == 0) {
      m_PatParser.OfferSection(section, total);
      return;
    }
    if (header.table_id == 2 && PassesCommonSectionTest(header) &&
        m_PatParser.Log().section_count > 0) {
      if (m_PmtParser.OfferSection(section, total) == 0) return;
      const std::uint16_t program = m_PmtParser.LastProgramNumber();
      CAutoLock lock(&m_FilterLock);
      if (SelectTracks(m_Programs, m_Census, program, m_Tracks) == S_OK) {
        m_SelectedProgram = program;
        m_OutputPin->Engine().FirstPts = 0;
      }
      return;
    }
    if (GetPid(target) == kSdtPid) ServiceNameStep(target);
  } catch (...) {
    // A reader that fails gives up this packet; the scan goes on.
  }
}

void CTsSourceFilter::ServiceNameStep(PacketSpan packet) {
  CSectionAssembler& assembler = m_OutputPin->SectionAssembler();
  if (assembler.WantsPacket(packet)) {
    assembler.AppendPacket(packet);
    return;
  }
  const std::span<const std::uint8_t> section = assembler.FinishSection(packet);
  try {
    m_SdtParser.OfferSection(section, ReadSectionHeader(section).section_length + 3);
  } catch (...) {
  }
  assembler.ReleaseSection();
}

const ProgramEntry* CTsSourceFilter::FindProgram(std::uint32_t programNumber) const {
  int index = 0;
  return m_Programs.FindIndex(programNumber, &index) ? &m_Programs.Entry(index) : nullptr;
}

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
  return m_Tracks.tracks[m_Tracks.selectedTrack % kMaxAudioTracks].pid;
}

std::uint32_t CTsSourceFilter::SelectedAudioStreamType() {
  return m_Tracks.tracks[m_Tracks.selectedTrack % kMaxAudioTracks].stream_type;
}

HRESULT CTsSourceFilter::SelectedPmtPid(WORD* pid) { return GetPmtPid(m_SelectedProgram, pid); }

std::string CTsSourceFilter::ProgramName(std::int32_t programNumber) {
  // Numbers are compared over the entry's full width.
  const ProgramEntry* entry = FindProgram(static_cast<std::uint32_t>(programNumber));
  return entry != nullptr ? std::string(entry->name, strnlen(entry->name, sizeof entry->name)) : "";
}

std::uint64_t CTsSourceFilter::LastPts() {
  return m_OutputPin ? m_OutputPin->Engine().LastPts.load() : 0;
}

std::uint32_t CTsSourceFilter::CurrentPacket() {
  return m_OutputPin ? m_OutputPin->Engine().CurrentPacket.load() : 0;
}

int CTsSourceFilter::H264LogCount() { return m_OutputPin ? m_OutputPin->ParameterLog().Count() : 0; }

std::string CTsSourceFilter::H264LogLine(int index) {
  return m_OutputPin ? m_OutputPin->ParameterLog().Line(index) : std::string();
}

std::int64_t CTsSourceFilter::Duration() { return m_OutputPin ? m_OutputPin->DurationForQueries() : 0; }

STDMETHODIMP CTsSourceFilter::QueryText(LPCWSTR keyword, LPWSTR* text) {
  return QueryTextAnswer(keyword, text, *this, m_FilterLock);
}

// ---- ITsStreamInfo -------------------------------------------------------
// Each holds the filter lock from before its argument test, so that a page
// sees table entries whole. Indexes at or beyond the count get E_INVALIDARG.

STDMETHODIMP CTsSourceFilter::GetTransportStreamId(WORD* id) {
  CAutoLock lock(&m_FilterLock);
  if (id == nullptr) return E_INVALIDARG;
  *id = static_cast<WORD>(m_PatParser.Log().transport_stream_id);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetPatVersion(BYTE* version) {
  CAutoLock lock(&m_FilterLock);
  if (version == nullptr) return E_INVALIDARG;
  *version = static_cast<BYTE>(m_PatParser.Log().version);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetProgramCount(DWORD* count) {
  CAutoLock lock(&m_FilterLock);
  if (count == nullptr) return E_INVALIDARG;
  *count = m_Tracks.noPmt ? 1u : static_cast<DWORD>(m_Programs.Count());
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetProgramNumber(LONG index, WORD* number) {
  CAutoLock lock(&m_FilterLock);
  if (number == nullptr) return E_INVALIDARG;
  if (m_Tracks.noPmt) {
    *number = 1;
    return S_OK;
  }
  if (index < 0 || index >= m_Programs.Count()) return E_INVALIDARG;
  *number = static_cast<WORD>(m_Programs.Entry(index).program_number);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetPmtPidByIndex(LONG index, WORD* pid) {
  CAutoLock lock(&m_FilterLock);
  if (pid == nullptr) return E_INVALIDARG;
  if (index < 0 || index >= m_Programs.Count()) return E_INVALIDARG;
  *pid = static_cast<WORD>(m_Programs.Entry(index).pmt_pid);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetPmtPid(WORD programNumber, WORD* pid) {
  CAutoLock lock(&m_FilterLock);
  if (pid == nullptr) return E_INVALIDARG;
  const ProgramEntry* entry = FindProgram(programNumber);
  if (entry == nullptr) return E_INVALIDARG;
  *pid = static_cast<WORD>(entry->pmt_pid);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetPmtVersion(WORD programNumber, BYTE* version) {
  CAutoLock lock(&m_FilterLock);
  if (version == nullptr) return E_INVALIDARG;
  const ProgramEntry* entry = FindProgram(programNumber);
  if (entry == nullptr) return E_INVALIDARG;
  *version = static_cast<BYTE>(entry->pmt.version_number);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetStreamCount(WORD programNumber, WORD* count) {
  CAutoLock lock(&m_FilterLock);
  if (count == nullptr) return E_INVALIDARG;
  if (const ProgramEntry* entry = FindProgram(programNumber)) {
    *count = static_cast<WORD>(entry->stream_count);
    return S_OK;
  }
  if (!m_Tracks.noPmt) return E_INVALIDARG;
  *count = 2;  // the implied program: video and audio
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetStreamType(WORD programNumber, DWORD streamIndex, BYTE* type) {
  CAutoLock lock(&m_FilterLock);
  if (type == nullptr) return E_INVALIDARG;
  if (const ProgramEntry* entry = FindProgram(programNumber)) {
    if (streamIndex >= entry->stream_count) return E_INVALIDARG;
    *type = static_cast<BYTE>(entry->pmt.streams[streamIndex].stream_type);
    return S_OK;
  }
  if (!m_Tracks.noPmt) return E_INVALIDARG;
  if (streamIndex == 0) *type = static_cast<BYTE>(m_Tracks.videoStreamType);
  if (streamIndex == 1) *type = static_cast<BYTE>(m_Tracks.tracks[0].stream_type);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetStreamPid(WORD programNumber, DWORD streamIndex, WORD* pid) {
  CAutoLock lock(&m_FilterLock);
  if (pid == nullptr) return E_INVALIDARG;
  if (const ProgramEntry* entry = FindProgram(programNumber)) {
    if (streamIndex >= entry->stream_count) return E_INVALIDARG;
    *pid = static_cast<WORD>(entry->pmt.streams[streamIndex].pid);
    return S_OK;
  }
  if (!m_Tracks.noPmt) return E_INVALIDARG;
  if (streamIndex == 0) *pid = m_Tracks.videoPid;
  if (streamIndex == 1) *pid = m_Tracks.audioPid;
  return S_OK;
}

// ---- ITsScanReport ---------------------------------------------------------

namespace {
void CopyOut(LPSTR out, DWORD size, const char* text, std::size_t length) {
  if (out == nullptr || size == 0) return;
  const std::size_t n = strnlen(text, length < size - 1 ? length : size - 1);
  std::memcpy(out, text, n);
  out[n] = '\0';
}
}  // namespace

STDMETHODIMP CTsSourceFilter::GetVideo(WORD* pid, WORD* streamType) {
  CAutoLock lock(&m_FilterLock);
  if (pid == nullptr || streamType == nullptr) return E_POINTER;
  *pid = m_Tracks.videoPid;
  *streamType = m_Tracks.videoStreamType;
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetAudioTrackCount(WORD* count, WORD* selected) {
  CAutoLock lock(&m_FilterLock);
  if (count == nullptr || selected == nullptr) return E_POINTER;
  *count = m_Tracks.trackCount;
  *selected = m_Tracks.selectedTrack;
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetAudioTrack(WORD index, WORD* pid, WORD* kind, WORD* streamType,
                                            LPSTR language, DWORD size) {
  CAutoLock lock(&m_FilterLock);
  if (pid == nullptr || kind == nullptr || streamType == nullptr) return E_POINTER;
  if (index >= m_Tracks.trackCount || index >= kMaxAudioTracks) return E_INVALIDARG;
  const AudioTrack& track = m_Tracks.tracks[index];
  *pid = track.pid;
  *kind = track.kind;
  *streamType = track.stream_type;
  CopyOut(language, size, track.language, sizeof track.language);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetStreamLanguage(WORD programNumber, DWORD streamIndex, LPSTR language,
                                                DWORD size) {
  CAutoLock lock(&m_FilterLock);
  if (language == nullptr || size == 0) return E_POINTER;
  const ProgramEntry* entry = FindProgram(programNumber);
  if (entry == nullptr || streamIndex >= entry->stream_count) return E_INVALIDARG;
  const StreamEntry& stream = entry->pmt.streams[streamIndex];
  CopyOut(language, size, stream.language, sizeof stream.language);
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetScanFlags(DWORD* ready, DWORD* noPmt, WORD* selectedProgram) {
  CAutoLock lock(&m_FilterLock);
  if (ready == nullptr || noPmt == nullptr || selectedProgram == nullptr) return E_POINTER;
  *ready = static_cast<DWORD>(m_Tracks.ready);
  *noPmt = static_cast<DWORD>(m_Tracks.noPmt);
  *selectedProgram = m_SelectedProgram;
  return S_OK;
}

STDMETHODIMP CTsSourceFilter::GetDuration(LONGLONG* duration) {
  CAutoLock lock(&m_FilterLock);
  if (duration == nullptr) return E_POINTER;
  *duration = m_Duration;
  return S_OK;
}
