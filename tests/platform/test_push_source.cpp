#include "tests/platform/test_push_source.h"

#include <algorithm>
#include <cwchar>

#include "host/media_sample.h"
#include "platform/graph/graph_plumbing.h"

ComPtr<IMediaSample> MakeSample(std::span<const BYTE> bytes) {
  ComPtr<IMediaSample> sample(new CMediaSample(static_cast<LONG>(bytes.size())));
  BYTE* data = nullptr;
  sample->GetPointer(&data);
  std::copy(bytes.begin(), bytes.end(), data);
  return sample;
}

ComPtr<IMediaSample> MakeTestSample(int n) {
  BYTE bytes[188];
  for (int i = 0; i < 188; ++i) bytes[i] = TestSampleByte(n, i);
  ComPtr<IMediaSample> sample = MakeSample(bytes);
  sample->SetDiscontinuity(n == 0 ? TRUE : FALSE);
  return sample;
}

// Written by the host thread while stopped only, read by the worker.
class CTestSource::COutputPin final : public IPin {
 public:
  explicit COutputPin(CTestSource* filter) : m_Filter(filter) {}
  ComPtr<IPin> peer;
  ComPtr<IMemInputPin> input;

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    *ppv = riid == IID_IUnknown || riid == IID_IPin ? this : nullptr;
    if (*ppv == nullptr) return E_NOINTERFACE;
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return m_Filter->AddRef(); }
  STDMETHODIMP_(ULONG) Release() override { return m_Filter->Release(); }

  // Every peer of the tests has IMemInputPin.
  STDMETHODIMP Connect(IPin* receivePin, const AM_MEDIA_TYPE* type) override {
    if (peer) return VFW_E_ALREADY_CONNECTED;
    const AM_MEDIA_TYPE transport = TypeOf(MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_TRANSPORT);
    const HRESULT hr = receivePin->ReceiveConnection(this, type != nullptr ? type : &transport);
    if (FAILED(hr)) return hr;
    receivePin->QueryInterface(IID_IMemInputPin, input.PutVoid());
    peer = receivePin;
    return S_OK;
  }
  STDMETHODIMP ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) override {
    return VFW_E_INVALID_DIRECTION;
  }
  STDMETHODIMP Disconnect() override {
    if (!peer) return S_FALSE;
    peer = nullptr;
    input = nullptr;
    return S_OK;
  }
  STDMETHODIMP ConnectedTo(IPin** pin) override {
    *pin = ComPtr<IPin>(peer).Detach();
    return *pin != nullptr ? S_OK : VFW_E_NOT_CONNECTED;
  }
  STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
  STDMETHODIMP QueryPinInfo(PIN_INFO* info) override {
    info->pFilter = m_Filter;
    m_Filter->AddRef();
    info->dir = PINDIR_OUTPUT;
    std::wcscpy(info->achName, L"Out");
    return S_OK;
  }
  STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) override {
    *direction = PINDIR_OUTPUT;
    return S_OK;
  }
  STDMETHODIMP QueryId(LPWSTR*) override { return E_NOTIMPL; }
  STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE*) override { return S_OK; }
  STDMETHODIMP EnumMediaTypes(IEnumMediaTypes**) override { return E_NOTIMPL; }
  STDMETHODIMP QueryInternalConnections(IPin**, ULONG*) override { return E_NOTIMPL; }
  STDMETHODIMP EndOfStream() override { return E_UNEXPECTED; }
  STDMETHODIMP BeginFlush() override { return E_UNEXPECTED; }
  STDMETHODIMP EndFlush() override { return E_UNEXPECTED; }
  STDMETHODIMP NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override { return S_OK; }

 private:
  CTestSource* const m_Filter;
};

CTestSource::CTestSource(TestSourceOptions options)
    : m_Options(options), m_Pin(new COutputPin(this)) {}

CTestSource::~CTestSource() {
  if (m_Worker.joinable()) m_Worker.join();
  delete m_Pin;
}

IPin* CTestSource::OutputPin() { return m_Pin; }

ComPtr<IReferenceClock> CTestSource::Clock() {
  std::lock_guard<std::mutex> guard(m_Lock);
  return m_Clock;
}

void CTestSource::WaitUntilBlocked() {
  std::unique_lock<std::mutex> lock(m_Lock);
  m_Changed.wait(lock, [this] { return m_Blocked; });
}

void CTestSource::Unblock() {
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Unblocked = true;
  }
  m_Changed.notify_all();
}

STDMETHODIMP CTestSource::QueryInterface(REFIID riid, void** ppv) {
  if (riid == IID_IUnknown || riid == IID_IPersist || riid == IID_IMediaFilter ||
      riid == IID_IBaseFilter) {
    *ppv = static_cast<IBaseFilter*>(this);
  } else if (riid == IID_IReferenceClock && m_Options.offerClock) {
    *ppv = static_cast<IReferenceClock*>(this);
  } else {
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

STDMETHODIMP_(ULONG) CTestSource::Release() {
  const ULONG count = --m_RefCount;
  if (count == 0) delete this;
  return count;
}

FILTER_STATE CTestSource::PeerState() {
  FILTER_STATE state = State_Stopped;
  PIN_INFO info{};
  if (m_Pin->peer && SUCCEEDED(m_Pin->peer->QueryPinInfo(&info))) {
    info.pFilter->GetState(0, &state);
    info.pFilter->Release();
  }
  return state;
}

STDMETHODIMP CTestSource::Pause() {
  m_PeerStateAtPause = PeerState();
  std::lock_guard<std::mutex> guard(m_Lock);
  if (m_State == State_Stopped && m_Pin->peer && m_Options.pushes) {
    m_Stopping = false;
    m_Blocked = false;
    m_Unblocked = false;
    m_Sent = 0;
    m_Worker = std::thread([this] { Push(); });
  }
  m_State = State_Paused;
  return S_OK;
}

STDMETHODIMP CTestSource::Run(REFERENCE_TIME) {
  FILTER_STATE state = State_Stopped;
  GetState(0, &state);
  if (state == State_Stopped) Pause();
  std::lock_guard<std::mutex> guard(m_Lock);
  m_State = State_Running;
  return S_OK;
}

STDMETHODIMP CTestSource::Stop() {
  m_PeerStateAtStop = PeerState();
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Stopping = true;
    m_State = State_Stopped;
  }
  m_Changed.notify_all();
  if (m_Worker.joinable()) m_Worker.join();
  return S_OK;
}

void CTestSource::Push() {
  const ComPtr<IPin> peer = m_Pin->peer;
  const ComPtr<IMemInputPin> input = m_Pin->input;
  peer->NewSegment(0, 0, 1.0);
  for (int n = 0;; ++n) {
    {
      std::unique_lock<std::mutex> lock(m_Lock);
      if (n == m_Options.blockAfter) {
        m_Blocked = true;
        m_Changed.notify_all();
        m_Changed.wait(lock, [this] { return m_Stopping || m_Unblocked; });
      }
      if (m_Stopping) return;
    }
    if (n == m_Options.samples) break;
    const ComPtr<IMediaSample> sample = MakeTestSample(n);
    if (input->Receive(sample.Get()) != S_OK) return;  // refused: no end of stream
    ++m_Sent;
  }
  peer->EndOfStream();
}

STDMETHODIMP CTestSource::GetState(DWORD, FILTER_STATE* state) {
  std::lock_guard<std::mutex> guard(m_Lock);
  *state = m_State;
  return S_OK;
}

STDMETHODIMP CTestSource::SetSyncSource(IReferenceClock* clock) {
  bool choose = false;
  {
    std::lock_guard<std::mutex> guard(m_Lock);
    m_Clock = clock;
    if (m_Options.chooseOwnClock && clock != nullptr && !m_ChoseClock &&
        clock != static_cast<IReferenceClock*>(this)) {
      m_ChoseClock = true;
      choose = true;
    }
  }
  if (!choose || m_Graph == nullptr) return S_OK;
  // As a source filter does: the first filter with a clock becomes the graph's clock.
  ComPtr<IEnumFilters> filters;
  m_Graph->EnumFilters(filters.PutAddress());
  ComPtr<IReferenceClock> found;
  IBaseFilter* filter = nullptr;
  while (!found && filters->Next(1, &filter, nullptr) == S_OK) {
    ComPtr<IBaseFilter>::Attach(filter)->QueryInterface(IID_IReferenceClock, found.PutVoid());
  }
  ComPtr<IMediaFilter> graph;
  if (found && SUCCEEDED(m_Graph->QueryInterface(IID_IMediaFilter, graph.PutVoid()))) {
    graph->SetSyncSource(found.Get());
  }
  return S_OK;
}

STDMETHODIMP CTestSource::EnumPins(IEnumPins** pins) {
  auto* created =
      new platform_internal::CEnumSnapshot<IEnumPins, IPin>(IID_IEnumPins, {ComPtr<IPin>(m_Pin)});
  created->AddRef();
  *pins = created;
  return S_OK;
}

void GraphFixture::SetUp() {
  m_Graph = Create<IGraphBuilder>(CLSID_FilterGraph, IID_IGraphBuilder);
  m_Control = QueryAs<IMediaControl>(m_Graph.Get(), IID_IMediaControl);
  m_Event = QueryAs<IMediaEvent>(m_Graph.Get(), IID_IMediaEvent);
}

void GraphFixture::Feed(IBaseFilter* filter, LPCWSTR input) {
  ASSERT_EQ(m_Graph->AddFilter(filter, L"Fed"), S_OK);
  m_Source = ComPtr<CTestSource>(new CTestSource({.pushes = false}));
  ASSERT_EQ(m_Graph->AddFilter(m_Source.Get(), L"Source"), S_OK);
  ASSERT_EQ(filter->FindPin(input, m_In.PutAddress()), S_OK);
  ASSERT_EQ(m_Graph->ConnectDirect(m_Source->OutputPin(), m_In.Get(), nullptr), S_OK);
  m_Memory = QueryAs<IMemInputPin>(m_In.Get(), IID_IMemInputPin);
  m_Event->CancelDefaultHandling(EC_COMPLETE);
}
