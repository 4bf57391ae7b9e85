// Playing as a conversion: what the filter asks of a stream buffer sink and
// its recorder at Pause and Stop, and the message at the end of the stream.
// The sink here is a fake that counts; the platform's real one is tested
// with its module, and the whole road by `brindlet convert`.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "conversion/recording_conversion.h"
#include "platform/graph/stream_buffer.h"
#include "platform/win32/messages.h"
#include "tests/delivery/filter_probe.h"
#include "tests/delivery/player_graph.h"
#include "tests/support/scoped_registry.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// Counts of what the filter asked, shared by the sink and its recorders.
struct Calls {
  std::atomic<int> lockProfile{0};
  std::atomic<int> createRecorder{0};
  std::atomic<int> start{0};
  std::atomic<int> stop{0};
  std::atomic<int> status{0};
  std::vector<std::wstring> names;  // host thread only
};

class CountedUnknown {
 public:
  virtual ~CountedUnknown() = default;

 protected:
  ULONG Add() { return ++m_Count; }
  ULONG Drop() {
    const ULONG count = --m_Count;
    if (count == 0) delete this;
    return count;
  }

 private:
  std::atomic<ULONG> m_Count{0};
};

class CFakeRecorder final : public IStreamBufferRecordControl, public CountedUnknown {
 public:
  CFakeRecorder(Calls& calls, bool hasControl, HRESULT stopResult)
      : m_Calls(calls), m_HasControl(hasControl), m_StopResult(stopResult) {}
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (riid == IID_IUnknown || (m_HasControl && riid == IID_IStreamBufferRecordControl)) {
      *ppv = static_cast<IStreamBufferRecordControl*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return Add(); }
  STDMETHODIMP_(ULONG) Release() override { return Drop(); }
  STDMETHODIMP Start(REFERENCE_TIME* start) override {
    EXPECT_EQ(*start, 0);
    ++m_Calls.start;
    return S_OK;
  }
  STDMETHODIMP Stop(REFERENCE_TIME stop) override {
    EXPECT_EQ(stop, 0);
    ++m_Calls.stop;
    return m_StopResult;
  }
  STDMETHODIMP GetRecordingStatus(HRESULT* result, BOOL* started, BOOL* stopped) override {
    ++m_Calls.status;
    *result = S_OK;
    *started = TRUE;
    *stopped = TRUE;
    return S_OK;
  }

 private:
  Calls& m_Calls;
  bool m_HasControl;
  HRESULT m_StopResult;
};

struct SinkBehaviour {
  bool answersSink = true;       // gives IStreamBufferSink
  bool refuseExisting = true;    // CreateRecorder fails while the target exists
  int refuseAlways = 0;          // this many more calls fail whatever the disk holds
  bool recorderHasControl = true;
  HRESULT recorderStop = S_OK;
};

class CFakeSink final : public IStreamBufferSink, public CountedUnknown {
 public:
  CFakeSink(Calls& calls, SinkBehaviour behaviour) : m_Calls(calls), m_Behaviour(behaviour) {}
  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    if (riid == IID_IUnknown || (m_Behaviour.answersSink && riid == IID_IStreamBufferSink)) {
      *ppv = static_cast<IStreamBufferSink*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return Add(); }
  STDMETHODIMP_(ULONG) Release() override { return Drop(); }
  STDMETHODIMP LockProfile(LPCWSTR file) override {
    EXPECT_EQ(file, nullptr);
    ++m_Calls.lockProfile;
    return S_OK;
  }
  STDMETHODIMP CreateRecorder(LPCWSTR name, DWORD type, IUnknown** recorder) override {
    EXPECT_EQ(type, RECORDING_TYPE_CONTENT);
    ++m_Calls.createRecorder;
    m_Calls.names.emplace_back(name);
    std::error_code error;
    if (m_Behaviour.refuseAlways > 0) {
      --m_Behaviour.refuseAlways;
      return E_FAIL;
    }
    if (m_Behaviour.refuseExisting && fs::exists(fs::path(name), error)) return HRESULT_FROM_WIN32(80);
    auto* made = new CFakeRecorder(m_Calls, m_Behaviour.recorderHasControl, m_Behaviour.recorderStop);
    made->AddRef();
    *recorder = static_cast<IStreamBufferRecordControl*>(made);
    return S_OK;
  }
  STDMETHODIMP IsProfileLocked() override { return S_OK; }

 private:
  Calls& m_Calls;
  SinkBehaviour m_Behaviour;
};

double SecondsOf(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

// ---- The recording's name -------------------------------------------------

TEST(RecordingName, IsTheFileNameCutAtItsLastPoint) {
  const struct {
    std::wstring source;
    std::wstring name;
  } cases[] = {
      {L"/videos/show.ts", L"/videos/show"},
      {L"/videos/show.part1.ts", L"/videos/show.part1"},
      {L"C:\\Videos\\show.ts", L"C:\\Videos\\show"},
      {L"show.ts", L"show"},
      // Nothing is recorded where the name would reach outside the file's
      // own name: no point in it, or nothing before the point.
      {L"/videos.d/show", L""},
      {L"show", L""},
      {L".ts", L""},
      {L"/videos/.ts", L""},
      {L"/" + std::wstring(256, L'x') + L".ts", L""},  // 260 characters: no room for the zero
      {L"/" + std::wstring(255, L'x') + L".ts", L"/" + std::wstring(255, L'x')},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CRecordingConversion::RecordingName(c.source), c.name) << c.source.size();
  }
}

// ---- Pause and Stop -------------------------------------------------------

TEST(RecordingConversion, PauseStopPauseStopMakesOneRecorderStartedOnceAndStoppedTwice) {
  Calls calls;
  CRecordingConversion conversion;
  ASSERT_EQ(conversion.SetSinkFilter(new CFakeSink(calls, {})), S_OK);
  int baseStops = 0;
  const auto baseStop = [&] { ++baseStops; return E_FAIL; };  // a failing base Stop is not reported

  conversion.BeforePause(L"/nowhere/show.ts");
  const Clock::time_point first = Clock::now();
  EXPECT_EQ(conversion.Stop(baseStop), S_OK);
  const double firstStop = SecondsOf(Clock::now() - first);
  conversion.BeforePause(L"/nowhere/show.ts");
  EXPECT_EQ(conversion.Stop(baseStop), S_OK);

  EXPECT_EQ(calls.createRecorder, 1);
  EXPECT_EQ(calls.lockProfile, 1);
  EXPECT_EQ(calls.start, 1);
  EXPECT_EQ(calls.stop, 2);
  EXPECT_EQ(calls.status, 2);
  EXPECT_EQ(baseStops, 2);
  EXPECT_EQ(calls.names, std::vector<std::wstring>{L"/nowhere/show"});
  // A second before the base's Stop and a second after the recorder's.
  EXPECT_GE(firstStop, 2.0);
  EXPECT_LT(firstStop, 3.0);
  // A second sink is refused: one recording per filter object.
  const ComPtr<IStreamBufferSink> second(new CFakeSink(calls, {}));
  EXPECT_EQ(conversion.SetSinkFilter(second.Get()), VFW_E_WRONG_STATE);
}

TEST(RecordingConversion, ALeftoverTargetIsDeletedAndTheSecondTrySucceeds) {
  tsw::TempDir dir;
  const fs::path leftover = dir.File("show");
  std::ofstream(leftover) << "an earlier run";
  Calls calls;
  CRecordingConversion conversion;
  ASSERT_EQ(conversion.SetSinkFilter(new CFakeSink(calls, {})), S_OK);
  conversion.BeforePause((dir.File("show.ts")).wstring());
  EXPECT_EQ(calls.createRecorder, 2);
  EXPECT_FALSE(fs::exists(leftover));
  EXPECT_TRUE(conversion.HoldsRecorder());
  EXPECT_EQ(calls.start, 1);
}

TEST(RecordingConversion, WhatGoesWrongLeavesPlayingAsItWas) {
  const struct {
    const char* name;
    SinkBehaviour behaviour;
    int createRecorderAfterTwoPauses;
    bool recorder;
    int starts;
    double minStop, maxStop;  // seconds the first Stop blocks
    HRESULT stopResult;
  } cases[] = {
      {"no IStreamBufferSink", {.answersSink = false}, 0, false, 0, 0.0, 0.5, E_FAIL},
      // Two refusals at each Pause: nothing recorded, no message, and the
      // next Pause tries again.
      {"CreateRecorder fails twice", {.refuseAlways = 4}, 4, false, 0, 0.0, 0.5, E_FAIL},
      {"recorder without a control", {.recorderHasControl = false}, 1, true, 0, 1.0, 1.9, S_OK},
      {"recorder's Stop fails", {.recorderStop = E_UNEXPECTED}, 1, true, 1, 2.0, 3.0, E_UNEXPECTED},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CMessageBoxRecorder messages;
    Calls calls;
    CRecordingConversion conversion;
    ASSERT_EQ(conversion.SetSinkFilter(new CFakeSink(calls, c.behaviour)), S_OK);
    conversion.BeforePause(L"/nowhere/show.ts");
    if (!c.recorder) conversion.BeforePause(L"/nowhere/show.ts");
    EXPECT_EQ(calls.createRecorder, c.createRecorderAfterTwoPauses);
    EXPECT_EQ(conversion.HoldsRecorder(), c.recorder);
    EXPECT_EQ(calls.start, c.starts);
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(conversion.Stop([] { return E_FAIL; }), c.stopResult);
    const double seconds = SecondsOf(Clock::now() - begin);
    EXPECT_GE(seconds, c.minStop);
    EXPECT_LT(seconds, c.maxStop);
    EXPECT_EQ(messages.Count(), 0u);
  }
}

// ---- Through the filter, playing ------------------------------------------

std::filesystem::path BundledSample() { return fs::path(BRINDLET_SOURCE_DIR) / "samples" / "mpeg2-mp2-ac3.ts"; }

TEST(ConversionInGraph, TheEndOfTheStreamSaysConversionDoneAndStopEndsTheRecording) {
  tsw::ScopedRegistry registry;
  tsw::TempDir dir;
  const fs::path source = dir.File("two.points.ts");
  fs::copy_file(BundledSample(), source);
  CMessageBoxRecorder messages;
  Calls calls;
  FilterHolder filter;
  ASSERT_EQ(filter.Load(source), S_OK);
  ComPtr<ITsConversionSink> conversion;
  filter->NonDelegatingQueryInterface(IID_ITsConversionSink, conversion.PutVoid());
  ASSERT_TRUE(conversion);
  ASSERT_EQ(conversion->SetSinkFilter(new CFakeSink(calls, {})), S_OK);

  ComPtr<IBaseFilter> base;
  filter->NonDelegatingQueryInterface(IID_IBaseFilter, base.PutVoid());
  CPlayerGraph graph;
  ASSERT_EQ(graph.Build(base.Get(), filter->OutputPin()), "");
  ASSERT_TRUE(SUCCEEDED(graph.Control()->Run()));
  EXPECT_EQ(calls.start, 1) << "started at the Pause before the run";
  LONG code = 0;
  ASSERT_EQ(graph.Events()->WaitForCompletion(30000, &code), S_OK);
  ASSERT_EQ(graph.Control()->Stop(), S_OK);

  EXPECT_EQ(calls.names, std::vector<std::wstring>{dir.File("two.points").wstring()});
  EXPECT_EQ(calls.stop, 1);
  const auto shown = messages.Calls();
  ASSERT_EQ(shown.size(), 1u);
  EXPECT_EQ(shown[0].text, "Conversion done.");
  EXPECT_EQ(shown[0].caption, "Brindlet");
  EXPECT_EQ(shown[0].type, MB_OK);
  graph.TearDown();
}

}  // namespace
