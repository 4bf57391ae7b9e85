#include "apps/props/props_session.h"

#include <QCoreApplication>
#include <QDir>
#include <QPixmap>
#include <QTabWidget>
#include <QThread>

#include "apps/brindlet/graph_run.h"
#include "apps/brindlet/source_session.h"
#include "control/brindlet_ids.h"
#include "platform/com/com_memory.h"
#include "platform/com/objbase.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/graph/stream_sinks.h"
#include "platform/qt/qt_window_host.h"
#include "platform/win32/codepage.h"
#include "platform/window/olectl.h"

namespace {

// The renderers hold each sample this long while the stream runs ahead of
// the wall clock, and this long while it lags: both are slower than a
// stream's own rate and faster than it respectively, for every kind of
// sample the demultiplexer gives (25 video frames and up to 42 audio frames
// a second), so the position swings around the clock by little.
constexpr DWORD kAheadDelayMicroseconds = 60000;
constexpr DWORD kBehindDelayMicroseconds = 4000;
constexpr int kPaceIntervalMs = 20;
// The pages' timers tick once a second; a picture taken after this shows
// what they last put there.
constexpr int kScreenshotSettleMs = 1200;
constexpr int kScreenshotSliceMs = 50;

}  // namespace

CPropsSession::CPropsSession(const std::string& file, std::ostream& err) {
  if (!file.empty()) {
    m_Session = std::make_unique<CSourceSession>(file, err);
    if (m_Session->Ok()) m_Filter = ComPtr<IBaseFilter>(m_Session->Filter());
    return;
  }
  // A player shows the pages of a filter it has made but not yet given a
  // file: made through the module like any other.
  const std::string module = RegisterModuleForProcess();
  const HRESULT hr =
      CoCreateInstance(CLSID_BrindletSource, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, m_Filter.PutVoid());
  if (FAILED(hr)) {
    err << "brindlet-props: cannot create the source filter (" << Hex(hr) << "): "
        << (module.empty() ? std::string("Brindlet.ax is not beside the program") : PlatformLastLoadError()) << "\n";
    m_Filter.Reset();
  }
}

CPropsSession::~CPropsSession() {
  Stop();
  m_Renderers.clear();
  m_Delays.clear();
  m_Demux.Reset();
  m_Filter.Reset();
  m_Session.reset();
}

std::string CPropsSession::Query(const std::string& keyword) const {
  ComPtr<ITsStreamInfo> info;
  if (!m_Filter) return {};
  // PutVoid stores the pointer at the end of the statement.
  m_Filter->QueryInterface(IID_ITsStreamInfo, info.PutVoid());
  if (!info) return {};
  LPWSTR text = nullptr;
  if (FAILED(info->QueryText(AnsiToWide(keyword).c_str(), &text)) || text == nullptr) return {};
  std::string answer = WideToAnsi(text);
  CoTaskMemFree(text);
  return answer;
}

bool CPropsSession::Play(std::ostream& err, double startSeconds, bool realTime) {
  if (!m_Session || !Ok()) {
    err << "brindlet-props: --play needs a file\n";
    return false;
  }
  IFilterGraph* graph = m_Session->Graph();
  HRESULT hr = CoCreateInstance(CLSID_MPEG2Demultiplexer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                m_Demux.PutVoid());
  if (SUCCEEDED(hr)) hr = graph->AddFilter(m_Demux.Get(), L"MPEG-2 Demultiplexer");
  const ComPtr<IPin> output = FirstPin(m_Filter.Get(), PINDIR_OUTPUT);
  const ComPtr<IPin> input = SUCCEEDED(hr) ? FirstPin(m_Demux.Get(), PINDIR_INPUT) : ComPtr<IPin>();
  // The filter wires the demultiplexer's output pins in this connection.
  if (SUCCEEDED(hr)) hr = output && input ? graph->ConnectDirect(output.Get(), input.Get(), nullptr) : E_FAIL;
  if (FAILED(hr)) {
    err << "brindlet-props: cannot connect the filter to the MPEG-2 demultiplexer: " << DescribeResult(hr) << "\n";
    return false;
  }
  for (const ComPtr<IPin>& pin : OutputPins(m_Demux.Get())) {
    ComPtr<IBaseFilter> renderer;
    ComPtr<IStreamSinkControl> delay;
    hr = CoCreateInstance(CLSID_NullRenderer, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, renderer.PutVoid());
    if (SUCCEEDED(hr)) hr = renderer->QueryInterface(IID_IStreamSinkControl, delay.PutVoid());
    if (SUCCEEDED(hr)) hr = graph->AddFilter(renderer.Get(), AnsiToWide("Renderer " + PinName(pin.Get())).c_str());
    const ComPtr<IPin> rendererInput = SUCCEEDED(hr) ? FirstPin(renderer.Get(), PINDIR_INPUT) : ComPtr<IPin>();
    if (SUCCEEDED(hr)) hr = rendererInput ? graph->ConnectDirect(pin.Get(), rendererInput.Get(), nullptr) : E_FAIL;
    if (FAILED(hr)) {
      err << "brindlet-props: cannot render the demultiplexer's pin " << PinName(pin.Get()) << ": "
          << DescribeResult(hr) << "\n";
      return false;
    }
    m_Renderers.push_back(std::move(renderer));
    m_Delays.push_back(std::move(delay));
  }
  graph->QueryInterface(IID_IMediaControl, m_Control.PutVoid());
  graph->QueryInterface(IID_IMediaSeeking, m_Seeking.PutVoid());
  if (!m_Control) {
    err << "brindlet-props: the filter graph cannot be run\n";
    return false;
  }
  if (startSeconds > 0 && m_Seeking) {
    m_StartUnits = ToUnits(startSeconds);
    hr = m_Seeking->SetPositions(&m_StartUnits, AM_SEEKING_AbsolutePositioning, nullptr, 0);
    if (FAILED(hr)) {
      err << "brindlet-props: cannot start at " << startSeconds << " s: " << DescribeResult(hr) << "\n";
      return false;
    }
  }
  m_Delay = realTime ? kAheadDelayMicroseconds : 0;
  for (const auto& delay : m_Delays) delay->SetSampleDelay(m_Delay);
  hr = m_Control->Run();
  if (FAILED(hr)) {
    err << "brindlet-props: cannot start playing: " << DescribeResult(hr) << "\n";
    m_Control->Stop();
    return false;
  }
  m_Running = true;
  if (realTime && m_Seeking) {
    m_Clock.start();
    QObject::connect(&m_PaceTimer, &QTimer::timeout, [this] { Pace(); });
    m_PaceTimer.start(kPaceIntervalMs);
  }
  return true;
}

void CPropsSession::Pace() {
  LONGLONG position = 0;
  if (!m_Running || FAILED(m_Seeking->GetCurrentPosition(&position))) return;
  const LONGLONG clock = m_StartUnits + m_Clock.elapsed() * 10000;
  const DWORD wanted = position > clock ? kAheadDelayMicroseconds : kBehindDelayMicroseconds;
  if (wanted == m_Delay) return;
  m_Delay = wanted;
  for (const auto& delay : m_Delays) delay->SetSampleDelay(wanted);
}

void CPropsSession::Stop() {
  m_PaceTimer.stop();
  if (m_Running && m_Control) m_Control->Stop();
  m_Running = false;
}

HRESULT CPropsSession::ShowPages(std::ostream& err) {
  ComPtr<ISpecifyPropertyPages> specify;
  CAUUID pages{};
  HRESULT hr = m_Filter->QueryInterface(IID_ISpecifyPropertyPages, specify.PutVoid());
  if (SUCCEEDED(hr)) hr = specify ? specify->GetPages(&pages) : E_NOINTERFACE;
  if (FAILED(hr)) {
    err << "brindlet-props: the filter offers no property pages (" << Hex(hr) << ")\n";
    return hr;
  }
  IUnknown* object = m_Filter.Get();
  hr = OleCreatePropertyFrame(nullptr, 0, 0, kSheetCaption, 1, &object, pages.cElems, pages.pElems, 0, 0, nullptr);
  CoTaskMemFree(pages.pElems);
  if (FAILED(hr)) err << "brindlet-props: the property sheet cannot be shown (" << Hex(hr) << ")\n";
  return hr;
}

std::string ScreenshotName(int number, const std::string& title) {
  std::string name = std::to_string(number) + "-";
  for (const char c : title) {
    const bool kept = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-';
    name += kept ? c : '-';
  }
  return name + ".png";
}

bool SaveScreenshots(CQtPropertySheet& sheet, const std::string& dir, std::ostream& err) {
  if (!QDir().mkpath(QString::fromStdString(dir))) {
    err << "brindlet-props: cannot make the folder " << dir << "\n";
    return false;
  }
  for (int i = 0; i < sheet.PageCount(); ++i) {
    sheet.ShowTab(i);
    for (int waited = 0; waited < kScreenshotSettleMs; waited += kScreenshotSliceMs) {
      sheet.Refresh();
      QCoreApplication::processEvents();
      QThread::msleep(kScreenshotSliceMs);
    }
    sheet.Refresh();
    QCoreApplication::processEvents();
    const std::string path = dir + "/" + ScreenshotName(i + 1, sheet.Tabs()->tabText(i).toStdString());
    if (!sheet.grab().save(QString::fromStdString(path), "PNG")) {
      err << "brindlet-props: cannot write " << path << "\n";
      return false;
    }
  }
  return true;
}

int RunProps(const PropsOptions& options, std::ostream& err) {
  if (options.play && options.file.empty()) {
    err << "brindlet-props: --play needs a FILE\n";
    return kPropsExitUsage;
  }
  CQtWindowHost host;
  CPropsSession session(options.file, err);
  if (!session.Ok()) return kPropsExitFailure;
  if (options.play && !session.Play(err)) return kPropsExitFailure;
  bool saved = true;
  if (!options.screenshotDir.empty()) {
    host.SetSheetShown([&](CQtPropertySheet& sheet) {
      saved = SaveScreenshots(sheet, options.screenshotDir, err);
      sheet.reject();
    });
  }
  const HRESULT hr = session.ShowPages(err);
  session.Stop();
  return SUCCEEDED(hr) && saved ? kPropsExitOk : kPropsExitFailure;
}
