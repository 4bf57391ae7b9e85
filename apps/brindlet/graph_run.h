// What the commands that run a graph share: result texts, pin walks, the
// wait for the end of the stream, and the console's answer to the filter's
// message boxes.
#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "platform/com/com_ptr.h"
#include "platform/graph/control.h"
#include "platform/graph/strmif.h"
#include "platform/win32/messages.h"

// Long enough to cost nothing, short enough for a status line ten times a
// second.
inline constexpr LONG kWaitSliceMs = 100;
// While a seek waits for its moment, the position is looked at this often.
inline constexpr LONG kSeekSliceMs = 1;
inline constexpr double kUnitsPerSecond = 1e7;  // REFERENCE_TIME

// Subtypes of the filter's own media types, by their well-known values; the
// tool reaches the filter only through the module, so it keeps its own copy.
inline constexpr GUID kSubtypeAvc1 = MakeGuid(0x31435641, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71);
inline constexpr GUID kSubtypeMpeg1AudioPayload =
    MakeGuid(0x00000050, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71);
inline constexpr GUID kSubtypeAac = MakeGuid(0xAACE71A1, 0x8259, 0x4250, 0x85, 0x83, 0x49, 0x61, 0x3A, 0xF3, 0x1C, 0x93);

std::string Hex(HRESULT hr);
// Win32 errors (as the writer reports them) in words, anything else by code.
std::string DescribeResult(HRESULT hr);
// A filter's pins of one direction, in its order; with `freeOnly`, those
// that nothing is connected to.
std::vector<ComPtr<IPin>> PinsOf(IBaseFilter* filter, PIN_DIRECTION wanted, bool freeOnly);
ComPtr<IPin> FirstPin(IBaseFilter* filter, PIN_DIRECTION wanted, bool freeOnly = false);
std::vector<ComPtr<IPin>> OutputPins(IBaseFilter* filter);
std::string PinName(IPin* pin);
// "PID 0x0100", or "no PID" for a pin that the filter left unmapped.
std::string MappedPids(IPin* pin);
LONGLONG ToUnits(double seconds);
// Frees what a ConnectionMediaType gave.
void FreeMediaType(AM_MEDIA_TYPE* type);

struct GraphControls {
  ComPtr<IMediaControl> control;
  ComPtr<IMediaEvent> events;
  ComPtr<IMediaSeeking> seeking;  // may stay empty
};

bool GetControls(IFilterGraph* graph, GraphControls* controls, std::ostream& err);

// Runs the graph to the end of the stream, with the seeks of --seek-at.
// `onSlice` runs after each wait that ended without an event; `quick` asks
// for short waits while something waits for its moment. Gives the failure,
// empty for a clean end.
std::string RunToEnd(IMediaEvent* events, IMediaSeeking* seeking, std::vector<std::pair<double, double>> seeks,
                     const std::function<bool()>& quick, const std::function<void()>& onSlice,
                     std::ostream& err);

// The filter's message boxes as the command line shows them: one line on
// stderr; a question answered by --yes/--no, by the user on a terminal,
// else No. Installed for the run and taken out again at its end.
class CConsoleQuestion {
 public:
  CConsoleQuestion(std::optional<bool> answer, std::ostream& err, std::function<void()> beforePrint);
  ~CConsoleQuestion();
  CConsoleQuestion(const CConsoleQuestion&) = delete;
  CConsoleQuestion& operator=(const CConsoleQuestion&) = delete;

  int Shown() const { return m_Shown; }
  bool AnsweredYes() const { return m_Yes; }

 private:
  int Show(const char* text, const char* caption, UINT type);

  std::optional<bool> m_Answer;
  std::ostream& m_Err;
  std::function<void()> m_BeforePrint;
  MessageBoxHandler m_Previous;
  int m_Shown = 0;
  bool m_Yes = false;
};

// The filter's message boxes while it opens a file: it shows one for each
// scan pass that finds no transport stream. Held, each text once, so that a
// run that then delivers nothing can give them in its one line, and one
// that goes on can print them once. Answered as no one being there would.
class CHeldNotices {
 public:
  CHeldNotices();
  ~CHeldNotices() { Stop(); }
  CHeldNotices(const CHeldNotices&) = delete;
  CHeldNotices& operator=(const CHeldNotices&) = delete;

  // Puts the previous handler back; what was held stays.
  void Stop();
  // " (the filter said: TEXT)", or "" when it said nothing; what is taken
  // is not printed again.
  std::string Take();
  // "Caption: text", a line each, for what was not taken.
  void Print(std::ostream& err) const;

 private:
  std::vector<std::pair<std::string, std::string>> m_Held;  // caption, text
  MessageBoxHandler m_Previous;
  bool m_Installed = false;
};
