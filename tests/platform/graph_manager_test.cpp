#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "platform/graph/control.h"
#include "platform/com/objbase.h"
#include "platform/graph/stream_sinks.h"
#include "platform/graph/strmif.h"
#include "tests/platform/test_push_source.h"

namespace {

using std::chrono::steady_clock;

class GraphTest : public GraphFixture {
 protected:
  ComPtr<CTestSource> AddSource(TestSourceOptions options, LPCWSTR name = L"Source") {
    ComPtr<CTestSource> source(new CTestSource(options));
    EXPECT_TRUE(SUCCEEDED(m_Graph->AddFilter(source.Get(), name)));
    return source;
  }

  // A null renderer, fed by `source` when one is given.
  ComPtr<IBaseFilter> AddSink(CTestSource* source = nullptr, LPCWSTR name = L"Sink") {
    ComPtr<IBaseFilter> sink = Create(CLSID_NullRenderer);
    EXPECT_TRUE(SUCCEEDED(m_Graph->AddFilter(sink.Get(), name)));
    if (source != nullptr) {
      EXPECT_EQ(m_Graph->ConnectDirect(source->OutputPin(), InputPinOf(sink.Get()).Get(), nullptr),
                S_OK);
    }
    return sink;
  }
};

TEST_F(GraphTest, EnumFiltersGivesReferencesThatComeBack) {
  ComPtr<CTestSource> source = AddSource({});
  const ComPtr<IBaseFilter> sink = AddSink(source.Get());
  const ULONG held = source->References();
  {
    ComPtr<IEnumFilters> filters;
    ASSERT_EQ(m_Graph->EnumFilters(filters.PutAddress()), S_OK);
    std::vector<ComPtr<IBaseFilter>> seen;
    IBaseFilter* filter = nullptr;
    ULONG fetched = 0;
    while (filters->Next(1, &filter, &fetched) == S_OK) {
      EXPECT_EQ(fetched, 1u);
      seen.push_back(ComPtr<IBaseFilter>::Attach(filter));
    }
    EXPECT_EQ(fetched, 0u);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].Get(), static_cast<IBaseFilter*>(source.Get()));
    EXPECT_EQ(seen[1].Get(), sink.Get());
    EXPECT_GT(source->References(), held);
  }
  EXPECT_EQ(source->References(), held);

  ASSERT_EQ(m_Graph->RemoveFilter(source.Get()), S_OK);
  EXPECT_EQ(m_Graph->RemoveFilter(source.Get()), VFW_E_NOT_FOUND);
  ComPtr<IPin> peer;
  EXPECT_EQ(InputPinOf(sink.Get())->ConnectedTo(peer.PutAddress()), VFW_E_NOT_CONNECTED);
  EXPECT_EQ(source->References(), 1u);
}

TEST_F(GraphTest, ReleasingTheGraphStopsAndLetsGo) {
  ComPtr<CTestSource> source = AddSource({.samples = 5, .blockAfter = 2});
  const ComPtr<IBaseFilter> sink = AddSink(source.Get());
  ASSERT_EQ(m_Control->Run(), S_OK);
  source->WaitUntilBlocked();
  m_Control = nullptr;
  m_Event = nullptr;
  m_Graph = nullptr;
  FILTER_STATE state = State_Running;
  EXPECT_EQ(source->GetState(0, &state), S_OK);
  EXPECT_EQ(state, State_Stopped);
  EXPECT_EQ(source->References(), 1u);
}

// What the source sends arriving whole is the file writer's test; here the
// order of the states, the counts of what came and the one completion.
TEST_F(GraphTest, CompletionWaitsForEveryRendererAndStopForgetsIt) {
  ComPtr<CTestSource> quick = AddSource({.samples = 3}, L"Quick");
  ComPtr<CTestSource> slow = AddSource({.samples = 6, .blockAfter = 3}, L"Slow");
  const ComPtr<IBaseFilter> sinkA = AddSink(quick.Get(), L"A");
  const ComPtr<IBaseFilter> sinkB = AddSink(slow.Get(), L"B");
  const ComPtr<IBaseFilter> unconnected = AddSink(nullptr, L"Idle");

  for (int run = 0; run < 2; ++run) {
    ASSERT_EQ(m_Control->Run(), S_OK);
    EXPECT_EQ(quick->PeerStateAtPause(), State_Paused) << "the renderer pauses first";
    slow->WaitUntilBlocked();
    LONG code = -1;
    EXPECT_EQ(m_Event->WaitForCompletion(100, &code), E_ABORT) << "run " << run;
    EXPECT_EQ(code, 0);
    slow->Unblock();
    EXPECT_EQ(m_Event->WaitForCompletion(5000, &code), S_OK);
    EXPECT_EQ(code, EC_COMPLETE);
    EXPECT_EQ(m_Event->WaitForCompletion(0, &code), E_ABORT) << "one completion per run";
    ASSERT_EQ(m_Control->Stop(), S_OK);
    EXPECT_EQ(quick->PeerStateAtStop(), State_Stopped) << "the renderer stops first";

    LONGLONG samples = 0, total = 0;
    LONG endOfStreams = 0, discontinuities = 0, segments = 0;
    QueryAs<IStreamSinkControl>(sinkA.Get(), IID_IStreamSinkControl)
        ->GetCounts(&samples, &total, &endOfStreams, &discontinuities, &segments);
    EXPECT_EQ(samples, 3);
    EXPECT_EQ(total, 3 * 188);
    EXPECT_EQ(endOfStreams, 1);
    EXPECT_EQ(discontinuities, 1);
    EXPECT_EQ(segments, 1);
  }
  LONG code = 0;
  EXPECT_EQ(m_Event->WaitForCompletion(INFINITE, &code), VFW_E_WRONG_STATE);
}

// An error abort from another thread ends a wait; a stop ends the next one
// and the source blocked in its stream.
TEST_F(GraphTest, ErrorAbortAndStopEndTheWait) {
  ComPtr<CTestSource> source = AddSource({.samples = 10, .blockAfter = 2});
  const ComPtr<IBaseFilter> sink = AddSink(source.Get());
  ASSERT_EQ(m_Control->Run(), S_OK);
  source->WaitUntilBlocked();
  const ComPtr<IMediaEventSink> events =
      QueryAs<IMediaEventSink>(m_Graph.Get(), IID_IMediaEventSink);
  std::thread worker([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    events->Notify(EC_ERRORABORT, E_FAIL, 0);
  });
  LONG code = 0;
  EXPECT_EQ(m_Event->WaitForCompletion(INFINITE, &code), S_OK);
  EXPECT_EQ(code, EC_ERRORABORT);
  worker.join();
  LONG_PTR p1 = 0, p2 = 0;
  EXPECT_EQ(m_Event->GetEvent(&code, &p1, &p2, 0), E_ABORT) << "the wait took the event";

  HRESULT waited = S_OK;
  std::thread waiter([&] { waited = m_Event->WaitForCompletion(INFINITE, &code); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(m_Control->Stop(), S_OK);
  waiter.join();
  EXPECT_EQ(waited, VFW_E_WRONG_STATE);
  EXPECT_EQ(source->Sent(), 2);
}

TEST_F(GraphTest, StopWakesASourceInsideASlowReceive) {
  ComPtr<CTestSource> source = AddSource({.samples = 10});
  const ComPtr<IBaseFilter> sink = AddSink(source.Get());
  QueryAs<IStreamSinkControl>(sink.Get(), IID_IStreamSinkControl)->SetSampleDelay(30'000'000);
  ASSERT_EQ(m_Control->Run(), S_OK);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  const auto start = steady_clock::now();
  EXPECT_EQ(m_Control->Stop(), S_OK);
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ(source->Sent(), 0);
}

TEST_F(GraphTest, ClockIsChosenAtPauseAndGivenToEveryFilter) {
  ComPtr<CTestSource> plain = AddSource({}, L"Plain");
  ComPtr<CTestSource> withClock = AddSource({.offerClock = true}, L"Clock");
  ASSERT_EQ(m_Control->Pause(), S_OK);
  ComPtr<IReferenceClock> clock;
  QueryAs<IMediaFilter>(m_Graph.Get(), IID_IMediaFilter)->GetSyncSource(clock.PutAddress());
  EXPECT_EQ(clock.Get(), static_cast<IReferenceClock*>(withClock.Get()));
  EXPECT_EQ(plain->Clock().Get(), clock.Get());
  EXPECT_EQ(m_Control->Stop(), S_OK);

  // The filter held itself through its clock; leaving the graph ends that,
  // and the graph's clock goes with it.
  clock = nullptr;
  ASSERT_EQ(m_Graph->RemoveFilter(withClock.Get()), S_OK);
  EXPECT_EQ(withClock->References(), 1u);
  EXPECT_FALSE(plain->Clock());
  QueryAs<IMediaFilter>(m_Graph.Get(), IID_IMediaFilter)->GetSyncSource(clock.PutAddress());
  EXPECT_FALSE(clock);
}

TEST_F(GraphTest, AFilterMayChooseTheClockFromInsideSetSyncSource) {
  ComPtr<CTestSource> chooser = AddSource({.chooseOwnClock = true}, L"Chooser");
  const ComPtr<IBaseFilter> sink = AddSink();
  ComPtr<CTestSource> withClock = AddSource({.offerClock = true}, L"Clock");
  const auto system = Create<IReferenceClock>(CLSID_SystemClock, IID_IReferenceClock);
  const ComPtr<IMediaFilter> graph = QueryAs<IMediaFilter>(m_Graph.Get(), IID_IMediaFilter);
  ASSERT_EQ(graph->SetSyncSource(system.Get()), S_OK);

  IReferenceClock* const chosen = withClock.Get();
  ComPtr<IReferenceClock> clock;
  graph->GetSyncSource(clock.PutAddress());
  EXPECT_EQ(clock.Get(), chosen);
  EXPECT_EQ(chooser->Clock().Get(), chosen);
  EXPECT_EQ(withClock->Clock().Get(), chosen);
  sink->GetSyncSource(clock.PutAddress());
  EXPECT_EQ(clock.Get(), chosen) << "the outer SetSyncSource must not hand out the old clock";
}

}  // namespace
