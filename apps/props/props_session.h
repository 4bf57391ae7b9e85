// What brindlet-props does, as a library its tests run in process: the filter
// opened as a player opens it (or made with no file), the graph played as a
// player plays it, and the filter's property sheet shown by the Qt host,
// optionally saved page by page as pictures.
#pragma once

#include <QElapsedTimer>
#include <QTimer>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "platform/com/com_ptr.h"
#include "platform/graph/control.h"
#include "platform/graph/strmif.h"

class CSourceSession;
class CQtPropertySheet;
struct IStreamSinkControl;

inline constexpr int kPropsExitOk = 0;
inline constexpr int kPropsExitFailure = 1;
inline constexpr int kPropsExitUsage = 2;

// The caption a player gives the filter's sheet.
inline constexpr wchar_t kSheetCaption[] = L"Caldrovia Brindlet Properties";

struct PropsOptions {
  std::string file;  // empty: the filter with no file
  bool play = false;
  std::string screenshotDir;
};

class CPropsSession {
 public:
  // Opens `file`, or makes the filter with no file for an empty name; on
  // failure writes one line to `err` and Ok() is false.
  CPropsSession(const std::string& file, std::ostream& err);
  ~CPropsSession();
  CPropsSession(const CPropsSession&) = delete;
  CPropsSession& operator=(const CPropsSession&) = delete;

  bool Ok() const { return m_Filter.Get() != nullptr; }
  IBaseFilter* Filter() const { return m_Filter.Get(); }
  // One query answer as UTF-8, empty for none.
  std::string Query(const std::string& keyword) const;

  // Wires the demultiplexer behind the filter, renders its pins into null
  // renderers and runs the graph from `startSeconds`. With `realTime` the
  // renderers are held back so the stream plays at its own pace, as a
  // player's clock would make it; otherwise it plays as fast as it can.
  bool Play(std::ostream& err, double startSeconds = 0, bool realTime = true);
  bool Playing() const { return m_Running; }
  void Stop();

  // OleCreatePropertyFrame over the filter's pages, as a player calls it;
  // returns when the sheet closes.
  HRESULT ShowPages(std::ostream& err);

 private:
  void Pace();

  std::unique_ptr<CSourceSession> m_Session;  // with a file
  ComPtr<IBaseFilter> m_Filter;
  ComPtr<IBaseFilter> m_Demux;
  std::vector<ComPtr<IBaseFilter>> m_Renderers;
  std::vector<ComPtr<IStreamSinkControl>> m_Delays;
  ComPtr<IMediaControl> m_Control;
  ComPtr<IMediaSeeking> m_Seeking;
  bool m_Running = false;
  LONGLONG m_StartUnits = 0;
  DWORD m_Delay = 0;
  QElapsedTimer m_Clock;
  QTimer m_PaceTimer;
};

// "4-About.png" for the fourth tab titled "About": characters outside
// [A-Za-z0-9.-] become "-".
std::string ScreenshotName(int number, const std::string& title);
// Shows each tab in turn, lets the pages' timers run, and saves the whole
// sheet showing it to `dir`; false with a line on `err` when a picture
// cannot be written.
bool SaveScreenshots(CQtPropertySheet& sheet, const std::string& dir, std::ostream& err);

// The program: parsed options in, exit status out. A QApplication must exist.
int RunProps(const PropsOptions& options, std::ostream& err);
