// Clients of a playing filter: text queries, getters, positions, seeks, stream
// selection and state changes from threads of their own while the worker
// delivers into the platform's demultiplexer. Every test runs under a
// deadline, so a lock-order fault fails instead of hanging; CI runs them
// again under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/com/com_ptr.h"
#include "platform/win32/messages.h"
#include "tests/delivery/filter_probe.h"
#include "tests/delivery/player_graph.h"
#include "tests/support/deadline.h"
#include "tests/support/scoped_registry.h"

namespace {

using namespace std::chrono_literals;

constexpr REFERENCE_TIME kSecond = 10000000;

std::filesystem::path BundledSample() {
  return std::filesystem::path(BRINDLET_SOURCE_DIR) / "samples" / "mpeg2-mp2-ac3.ts";
}

// How long the clients hammer the filter: a few seconds in CI, longer by
// BRINDLET_STRESS_SECONDS when hunting.
std::chrono::milliseconds StressTime() {
  const char* text = std::getenv("BRINDLET_STRESS_SECONDS");
  const double seconds = text != nullptr ? std::atof(text) : 3.0;
  return std::chrono::milliseconds(static_cast<long long>((seconds > 0 ? seconds : 3.0) * 1000));
}

// Every keyword of the query language, with numbers inside and outside
// the rows, and the two that change run-time fields.
const std::vector<std::wstring>& Keywords() {
  static const std::vector<std::wstring> keywords = {
      L"VIDEOSIZE", L"FRAMERATE",     L"ASPECTRATIO",   L"AUDIOPID",          L"AUDIOFORMAT",
      L"AUDIOTYPE", L"VIDEOPTS",      L"NUMPIDS",       L"NUMPACKETS",        L"PMTPID",
      L"GETPID(0)", L"GETPID(5)",     L"GETPACKETS(1)", L"GETTYPE(2)",        L"GETTYPE(99)",
      L"GETNAME(1)", L"GETNAME(7)",   L"CURPACKET",     L"MAXPACKET",         L"PREFDEMUX(0)",
      L"NOTIFYWND(0)", L"H264.NUMPARAMS", L"H264.GETPARAM(0)", L"H264.GETPARAM(25)", L"MEDIALEN"};
  return keywords;
}

// One round of every query and every getter of ITsStreamInfo, as a page's
// timer would ask them.
void AskEverything(ITsStreamInfo* info) {
  for (const std::wstring& keyword : Keywords()) {
    LPWSTR text = nullptr;
    EXPECT_EQ(info->QueryText(keyword.c_str(), &text), S_OK);
    CoTaskMemFree(text);
  }
  WORD id = 0;
  BYTE version = 0;
  DWORD programs = 0;
  info->GetTransportStreamId(&id);
  info->GetPatVersion(&version);
  info->GetProgramCount(&programs);
  for (LONG index = 0; index < static_cast<LONG>(programs); ++index) {
    WORD number = 0;
    WORD pid = 0;
    WORD streams = 0;
    info->GetProgramNumber(index, &number);
    info->GetPmtPidByIndex(index, &pid);
    info->GetPmtPid(number, &pid);
    info->GetPmtVersion(number, &version);
    info->GetStreamCount(number, &streams);
    for (DWORD stream = 0; stream < streams; ++stream) {
      BYTE type = 0;
      info->GetStreamType(number, stream, &type);
      info->GetStreamPid(number, stream, &pid);
    }
  }
}

// The menu of audio tracks, and now and then a choice from it: the track
// that plays again (its PID map is set anew) or the other kind (the filter
// asks, and the recorder says No).
void UseStreamSelect(IAMStreamSelect* select, int round) {
  DWORD count = 0;
  select->Count(&count);
  for (LONG index = 0; index < static_cast<LONG>(count); ++index) {
    DWORD flags = 0;
    LPWSTR name = nullptr;
    AM_MEDIA_TYPE* type = nullptr;
    if (select->Info(index, &type, &flags, nullptr, nullptr, &name, nullptr, nullptr) == S_OK) {
      CoTaskMemFree(name);
      if (type != nullptr) {
        CoTaskMemFree(type->pbFormat);
        CoTaskMemFree(type);
      }
    }
  }
  if (round % 16 == 0 && count > 0) select->Enable(round % 32 == 0 ? 0 : static_cast<LONG>(count) - 1, 1);
}

class PlayingClientsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(m_Filter.Load(BundledSample()), S_OK);
    m_Filter->NonDelegatingQueryInterface(IID_IBaseFilter, m_Source.PutVoid());
    ASSERT_EQ(m_Graph.Build(m_Source.Get(), m_Filter->OutputPin()), "");
    m_Filter->NonDelegatingQueryInterface(IID_ITsStreamInfo, m_Info.PutVoid());
    m_Filter->NonDelegatingQueryInterface(IID_IAMStreamSelect, m_Select.PutVoid());
    m_Filter->NonDelegatingQueryInterface(IID_IMediaSeeking, m_PinSeeking.PutVoid());
    ASSERT_TRUE(m_Info && m_Select && m_PinSeeking);
    ASSERT_EQ(m_PinSeeking->GetDuration(&m_Duration), S_OK);
    ASSERT_GT(m_Duration, kSecond);
  }
  void TearDown() override { m_Graph.TearDown(); }

  tsw::ScopedRegistry m_Registry;
  CMessageBoxRecorder m_Messages{IDNO};
  FilterHolder m_Filter;
  ComPtr<IBaseFilter> m_Source;
  CPlayerGraph m_Graph;
  ComPtr<ITsStreamInfo> m_Info;
  ComPtr<IAMStreamSelect> m_Select;
  ComPtr<IMediaSeeking> m_PinSeeking;
  LONGLONG m_Duration = 0;
};

TEST_F(PlayingClientsTest, QueriesPositionsSeeksAndRestartsTogetherEndOnTime) {
  const std::chrono::milliseconds stressTime = StressTime();
  const tsw::Deadline deadline(stressTime + 60s, "a client of the playing filter");
  std::atomic<bool> done{false};
  std::atomic<long> queries[2] = {0, 0};
  std::atomic<long> positions{0};
  std::atomic<long> seeks{0};
  std::atomic<long> restarts{0};
  std::atomic<LONGLONG> rendered{0};  // the renderers count again from each run

  ASSERT_EQ(m_Graph.Control()->Run(), S_OK);
  std::vector<std::thread> clients;
  for (int t = 0; t < 2; ++t) {
    clients.emplace_back([&, t] {
      for (int round = 0; !done; ++round) {
        AskEverything(m_Info.Get());
        // One of the two also plays the pages' stream menu.
        if (t == 1) UseStreamSelect(m_Select.Get(), round);
        ++queries[t];
      }
    });
  }
  clients.emplace_back([&] {
    IMediaSeeking* graphSeeking = m_Graph.Seeking();
    for (int round = 0; !done; ++round) {
      LONGLONG current = 0;
      LONGLONG stop = 0;
      EXPECT_EQ(m_PinSeeking->GetPositions(&current, &stop), S_OK);
      EXPECT_EQ(m_PinSeeking->GetCurrentPosition(&current), S_OK);
      EXPECT_EQ(graphSeeking->GetCurrentPosition(&current), S_OK);
      EXPECT_EQ(graphSeeking->GetPositions(&current, nullptr), S_OK);
      m_PinSeeking->GetDuration(&current);
      // The byte format changes what the duration, the position and
      // "MEDIALEN" answer, and takes no lock.
      if (round % 64 == 0) m_PinSeeking->SetTimeFormat(round % 128 == 0 ? &TIME_FORMAT_BYTE : &TIME_FORMAT_MEDIA_TIME);
      ++positions;
    }
    m_PinSeeking->SetTimeFormat(&TIME_FORMAT_MEDIA_TIME);
  });
  clients.emplace_back([&] {
    std::mt19937 random(11);
    std::uniform_int_distribution<LONGLONG> anywhere(0, m_Duration - 1);
    IMediaSeeking* seeking = m_Graph.Seeking();
    IMediaControl* control = m_Graph.Control();
    for (int round = 1; !done; ++round) {
      LONGLONG start = anywhere(random);
      LONGLONG stop = round % 8 == 0 ? start + 2 * kSecond : 0;
      EXPECT_EQ(seeking->SetPositions(&start, AM_SEEKING_AbsolutePositioning, &stop,
                                      round % 4 == 0 ? AM_SEEKING_AbsolutePositioning : 0),
                S_OK);
      ++seeks;
      if (round % 25 == 0) {
        EXPECT_EQ(control->Stop(), S_OK);
        rendered += m_Graph.SamplesRendered();
        EXPECT_EQ(control->Run(), S_OK);
        ++restarts;
      }
      std::this_thread::sleep_for(1ms);
    }
  });

  std::this_thread::sleep_for(stressTime);
  done = true;
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(m_Graph.Control()->Stop(), S_OK);
  rendered += m_Graph.SamplesRendered();

  EXPECT_GT(queries[0] + queries[1], 0);
  EXPECT_GT(positions, 0);
  EXPECT_GT(seeks, 0);
  EXPECT_GT(restarts, 0);
  EXPECT_GT(rendered, 0) << "the worker delivered while the clients asked";
}

// A seek on a client thread while the host stops the graph: the seek's
// restart and the stop's end of the worker must not cross, whichever comes
// first.
TEST_F(PlayingClientsTest, SeekRacingStopEndsOnTime) {
  constexpr int kRounds = 300;
  const tsw::Deadline deadline(120s, "a seek racing Stop");
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_EQ(m_Graph.Control()->Run(), S_OK);
    std::atomic<bool> go{false};
    std::thread seeker([&] {
      while (!go) std::this_thread::yield();
      LONGLONG start = (round % 20) * kSecond;
      m_PinSeeking->SetPositions(&start, AM_SEEKING_AbsolutePositioning, nullptr, 0);
    });
    // Half the rounds let delivery get going first.
    if (round % 2 == 1) std::this_thread::sleep_for(200us);
    go = true;
    EXPECT_EQ(m_Graph.Control()->Stop(), S_OK);
    seeker.join();
  }
  // The filter still plays to the end after all that.
  LONGLONG start = 0;
  LONGLONG stop = 0;
  ASSERT_EQ(m_PinSeeking->SetPositions(&start, AM_SEEKING_AbsolutePositioning, &stop, AM_SEEKING_AbsolutePositioning),
            S_OK);
  ASSERT_EQ(m_Graph.Control()->Run(), S_OK);
  LONG code = 0;
  EXPECT_EQ(m_Graph.Events()->WaitForCompletion(30000, &code), S_OK);
  EXPECT_EQ(code, EC_COMPLETE);
}

}  // namespace
