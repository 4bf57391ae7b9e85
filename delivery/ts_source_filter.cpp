// The filter object: its making and unmaking, its interfaces, the graph join,
// the clock choice and the Running Object Table.
#include "delivery/ts_source_filter.h"

#include <cstdio>
#include <cwchar>
#include <new>

#include "control/settings_store.h"
#include "host/text_convert.h"
#include "platform/win32/codepage.h"
#include "platform/com/com_memory.h"
#include "platform/com/objbase.h"
#include "platform/com/rot.h"
#include "platform/win32/files.h"

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
  if (riid == IID_ITsConversionSink) return GetInterface(static_cast<ITsConversionSink*>(this), ppv);
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
  const std::wstring text = WidenText(kVendorInfo);
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

STDMETHODIMP CTsSourceFilter::Stop() {
  return m_Conversion.Stop([this] { return CSource::Stop(); });
}

STDMETHODIMP CTsSourceFilter::Pause() {
  if (m_Conversion.HoldsSink() && !m_Conversion.HoldsRecorder()) {
    std::wstring file;
    {
      CAutoLock lock(&m_FilterLock);
      if (m_WideName) file = m_WideName.get();
    }
    // The recorder starts before the worker exists.
    m_Conversion.BeforePause(file);
  }
  return CSource::Pause();
}

STDMETHODIMP CTsSourceFilter::SetSinkFilter(IUnknown* sink) { return m_Conversion.SetSinkFilter(sink); }

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
  std::snprintf(pid, sizeof pid, "%08x", static_cast<unsigned>(GetCurrentProcessId()));
  char address[24] = {};
  std::snprintf(address, sizeof address, "%08x", static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(object)));
  std::string item = isGraph ? std::string("FilterGraph ") + address + " pid " + pid
                             : std::string("Brindlet:") + m_AnsiName + " pid " + pid;
  // Item names hold 256 characters; a long path loses its tail.
  if (item.size() > 256) item.resize(256);
  IMoniker* moniker = nullptr;
  HRESULT hr = CreateItemMoniker(L"!", WidenText(item).c_str(), &moniker);
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

// ---- Pages ------------------------------------------------------------------

STDMETHODIMP CTsSourceFilter::GetPages(CAUUID* pages) {
  if (pages == nullptr) return E_POINTER;
  CAutoLock lock(&m_FilterLock);
  // The H.264 page only for a stream whose parameters were found.
  CLSID offered[5];
  ULONG count = 0;
  offered[count++] = CLSID_ProgramInfoPage;
  if (m_Video.h264Profile != 0) offered[count++] = CLSID_H264AnalyzerPage;
  offered[count++] = CLSID_PidInfoPage;
  offered[count++] = CLSID_ProgramsPage;
  offered[count++] = CLSID_AboutPage;

  pages->cElems = 0;
  pages->pElems = static_cast<GUID*>(CoTaskMemAlloc(count * sizeof(GUID)));
  if (pages->pElems == nullptr) return E_OUTOFMEMORY;
  for (ULONG i = 0; i < count; ++i) pages->pElems[i] = offered[i];
  pages->cElems = count;
  return S_OK;
}
