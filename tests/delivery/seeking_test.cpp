// Seeking by proportion: times to packets, stop positions to stream limits,
// the formats and the rate, and the restart of a running worker.
#include <gtest/gtest.h>

#include <thread>

#include "control/settings_store.h"
#include "platform/com/com_ptr.h"
#include "platform/win32/messages.h"
#include "tests/delivery/filter_probe.h"
#include "tests/support/capture_pin.h"
#include "tests/support/scoped_registry.h"
#include "tests/support/ts_writer.h"

namespace {

using tsw::Bytes;

constexpr REFERENCE_TIME kSecond = 10000000;

// Packets of one PID numbered in their payload, no tables, no headers.
tsw::TsFile Numbered(std::uint32_t count) {
  tsw::TsFile file;
  for (std::uint32_t i = 0; i < count; ++i) {
    const Bytes index = {static_cast<std::uint8_t>(i >> 16), static_cast<std::uint8_t>(i >> 8),
                         static_cast<std::uint8_t>(i)};
    file.Add(tsw::MakePacket(0x100, false, index));
  }
  return file;
}

std::uint32_t NumberOf(const std::vector<std::uint8_t>& packet) {
  return static_cast<std::uint32_t>(packet[4] << 16 | packet[5] << 8 | packet[6]);
}

class SeekingTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(WriteSettingDword("PrefDemux", 0)); }
  template <typename File>
  void Load(const File& file, REFERENCE_TIME duration) {
    ASSERT_EQ(m_Filter.Load(file), S_OK);
    m_Filter->OutputPin()->SetSeekDuration(duration);
    ASSERT_EQ(m_Filter->OutputPin()->NonDelegatingQueryInterface(IID_IMediaSeeking, m_Seeking.PutVoid()), S_OK);
  }
  HRESULT SeekTo(REFERENCE_TIME start) {
    return m_Seeking->SetPositions(&start, AM_SEEKING_AbsolutePositioning, nullptr, 0);
  }
  std::uint32_t Current() { return m_Filter->OutputPin()->Engine().CurrentPacket; }

  tsw::ScopedRegistry m_Registry;
  CMessageBoxRecorder m_Messages;
  FilterHolder m_Filter;
  ComPtr<IMediaSeeking> m_Seeking;
};

TEST_F(SeekingTest, TimeToPacketByProportionInWholeMilliseconds) {
  // A sparse file of a million packets; its content does not matter here.
  tsw::TempDir dir;
  const auto path = dir.File("big.ts");
  tsw::TsFile().Write(path);
  std::filesystem::resize_file(path, 1000000ULL * 188);
  Load(path, 100 * kSecond);

  ASSERT_EQ(SeekTo(25 * kSecond), S_OK);
  EXPECT_EQ(Current(), 250000u);
  EXPECT_EQ(m_Filter->OutputPin()->Engine().DeliveryGate, 250001u);
  EXPECT_TRUE(m_Filter->OutputPin()->Engine().ResyncAfterSeek);
  // Less than a millisecond apart: the same packet.
  ASSERT_EQ(SeekTo(25 * kSecond + 9999), S_OK);
  EXPECT_EQ(Current(), 250000u);
  ASSERT_EQ(SeekTo(25 * kSecond + 10000), S_OK);
  EXPECT_EQ(Current(), 250010u);
  ASSERT_EQ(SeekTo(0), S_OK);
  EXPECT_EQ(Current(), 0u);
  EXPECT_EQ(m_Filter->OutputPin()->Engine().DeliveryGate, 1u);
  // Relative moves add to the last start.
  LONGLONG step = 10 * kSecond;
  ASSERT_EQ(m_Seeking->SetPositions(&step, AM_SEEKING_RelativePositioning, nullptr, 0), S_OK);
  EXPECT_EQ(Current(), 100000u);
}

TEST_F(SeekingTest, StopBecomesAStreamLimitAndZeroLiftsIt) {
  Load(Numbered(20000), 20 * kSecond);
  LONGLONG stop = 5 * kSecond;
  ASSERT_EQ(m_Seeking->SetPositions(nullptr, 0, &stop, AM_SEEKING_AbsolutePositioning), S_OK);
  EXPECT_EQ(m_Filter.Query(L"MAXPACKET"), "5000");
  LONGLONG stopOut = 0;
  ASSERT_EQ(m_Seeking->GetStopPosition(&stopOut), S_OK);
  EXPECT_EQ(stopOut, 5 * kSecond);
  // Incremental counts from the start; relative from the last stop.
  LONGLONG start = 2 * kSecond, more = 3 * kSecond;
  ASSERT_EQ(m_Seeking->SetPositions(&start, AM_SEEKING_AbsolutePositioning, &more,
                                    AM_SEEKING_IncrementalPositioning),
            S_OK);
  EXPECT_EQ(m_Filter.Query(L"MAXPACKET"), "5000");
  ASSERT_EQ(m_Seeking->SetPositions(nullptr, 0, &more, AM_SEEKING_RelativePositioning), S_OK);
  EXPECT_EQ(m_Filter.Query(L"MAXPACKET"), "8000");
  stop = 0;
  ASSERT_EQ(m_Seeking->SetPositions(nullptr, 0, &stop, AM_SEEKING_AbsolutePositioning), S_OK);
  EXPECT_EQ(m_Filter.Query(L"MAXPACKET"), "20000") << "a stop of 0 lifts the limit";
}

TEST_F(SeekingTest, FlagsAreCheckedBeforeAnythingIsStored) {
  Load(Numbered(1000), 10 * kSecond);
  LONGLONG value = 5 * kSecond;
  EXPECT_EQ(m_Seeking->SetPositions(nullptr, AM_SEEKING_AbsolutePositioning, nullptr, 0), E_POINTER);
  EXPECT_EQ(m_Seeking->SetPositions(nullptr, 0, nullptr, AM_SEEKING_AbsolutePositioning), E_POINTER);
  EXPECT_EQ(m_Seeking->SetPositions(&value, AM_SEEKING_IncrementalPositioning, nullptr, 0), E_INVALIDARG);
  EXPECT_EQ(m_Seeking->SetPositions(nullptr, 0, &value, AM_SEEKING_AbsolutePositioning | AM_SEEKING_ReturnTime),
            E_INVALIDARG);
  // Higher bits of the start flags pass.
  EXPECT_EQ(m_Seeking->SetPositions(&value, AM_SEEKING_AbsolutePositioning | AM_SEEKING_SeekToKeyFrame, nullptr, 0),
            S_OK);
  LONGLONG current = -1, stop = -1;
  ASSERT_EQ(m_Seeking->GetPositions(&current, &stop), S_OK);
  EXPECT_EQ(current, 5 * kSecond);
  EXPECT_EQ(stop, 10 * kSecond) << "the refused stops stored nothing";
}

TEST_F(SeekingTest, ByteFormatIsTakenButNotAnsweredAndRateBelowOneIsRefused) {
  Load(Numbered(1000), 10 * kSecond);
  GUID format{};
  EXPECT_EQ(m_Seeking->IsFormatSupported(&TIME_FORMAT_BYTE), S_OK);
  EXPECT_EQ(m_Seeking->IsFormatSupported(&TIME_FORMAT_FRAME), S_FALSE);
  EXPECT_EQ(m_Seeking->SetTimeFormat(&TIME_FORMAT_FRAME), E_INVALIDARG);
  ASSERT_EQ(m_Seeking->SetTimeFormat(&TIME_FORMAT_BYTE), S_OK);
  ASSERT_EQ(m_Seeking->GetTimeFormat(&format), S_OK);
  EXPECT_EQ(format, TIME_FORMAT_MEDIA_TIME) << "the format answered stays media time";
  LONGLONG duration = 0, position = 0;
  ASSERT_EQ(m_Seeking->GetDuration(&duration), S_OK);
  EXPECT_EQ(duration, 188000) << "bytes";
  EXPECT_EQ(m_Filter.Query(L"MEDIALEN"), "00:00:00.018") << "the byte count read as a time";
  ASSERT_EQ(SeekTo(5 * kSecond), S_OK);
  ASSERT_EQ(m_Seeking->GetCurrentPosition(&position), S_OK);
  EXPECT_EQ(position, 500 * 188);
  ASSERT_EQ(m_Seeking->SetTimeFormat(&TIME_FORMAT_MEDIA_TIME), S_OK);
  // FastSeeking: whole 100 ns steps per packet from the stream size.
  ASSERT_EQ(m_Seeking->GetCurrentPosition(&position), S_OK);
  EXPECT_EQ(position, (10 * kSecond * 188 / 188000) * 500);

  EXPECT_EQ(m_Seeking->SetRate(0.5), E_FAIL);
  double rate = 0;
  ASSERT_EQ(m_Seeking->GetRate(&rate), S_OK);
  EXPECT_DOUBLE_EQ(rate, 0.5) << "kept all the same";
  EXPECT_EQ(m_Seeking->SetRate(2.0), S_OK);
  LONGLONG earliest = -1, latest = -1;
  ASSERT_EQ(m_Seeking->GetAvailable(&earliest, &latest), S_OK);
  EXPECT_EQ(latest, 10 * kSecond) << "stops stay times";
}

TEST_F(SeekingTest, PositionFromThePtsWhenFastSeekingIsOff) {
  ASSERT_TRUE(WriteSettingDword("FastSeeking", 0));
  // The setting is read when the filter joins a graph, or leaves one.
  ASSERT_EQ(m_Filter->JoinFilterGraph(nullptr, nullptr), S_OK);
  Load(Numbered(1000), 10 * kSecond);
  m_Filter->OutputPin()->Engine().PtsDelta = 90 * 1234;
  LONGLONG position = 0;
  ASSERT_EQ(m_Seeking->GetCurrentPosition(&position), S_OK);
  EXPECT_EQ(position, 1234LL * 10000);
}

TEST_F(SeekingTest, ZeroDurationAndZeroSizeHaveAnAnswer) {
  Load(Numbered(1000), 0);
  ASSERT_EQ(SeekTo(5 * kSecond), S_OK);
  EXPECT_EQ(Current(), 0u) << "no duration: every time is the start";
  FilterHolder other;
  ASSERT_EQ(other.Load(tsw::TsFile()), S_OK);
  ComPtr<IMediaSeeking> seeking;
  ASSERT_EQ(other->OutputPin()->NonDelegatingQueryInterface(IID_IMediaSeeking, seeking.PutVoid()), S_OK);
  LONGLONG position = -1;
  ASSERT_EQ(seeking->GetCurrentPosition(&position), S_OK);
  EXPECT_EQ(position, 0);
}

TEST_F(SeekingTest, SeekWhileDeliveringRestartsBehindAFlushWithADiscontinuity) {
  Load(Numbered(20000), 20 * kSecond);
  tsw::CapturePin peer;
  ASSERT_EQ(m_Filter->OutputPin()->Connect(&peer, nullptr), S_OK);
  peer.SetDelayMicroseconds(50);
  ASSERT_EQ(m_Filter->Pause(), S_OK);
  ASSERT_TRUE(peer.WaitFor(100, 5000));
  // No header anywhere: the gate runs to GateBase + 5000 = 5000 from 0,
  // so a seek to packet 10000 goes out at once.
  ASSERT_EQ(SeekTo(10 * kSecond), S_OK);
  EXPECT_EQ(peer.Flushes(), 1);
  peer.SetDelayMicroseconds(0);
  ASSERT_TRUE(peer.WaitForEndOfStream(10000));
  // The worker replies to run before it sends the new segment.
  EXPECT_EQ(peer.NewSegments(), 2);
  EXPECT_EQ(peer.LastSegmentStart(), 10 * kSecond);
  // The seek lands between two packets of the running worker: before it is
  // stopped it may fill a packet or two from the new position, the first
  // with the discontinuity, into the flushing peer, which drops them. So
  // delivery resumes at packet 10000 or just behind it, and a discontinuity
  // that arrives marks packet 10000.
  const auto samples = peer.Samples();
  const auto resumed =
      std::find_if(samples.begin(), samples.end(), [](const auto& s) { return NumberOf(s.bytes) >= 10000; });
  ASSERT_NE(resumed, samples.end());
  EXPECT_LE(NumberOf(resumed->bytes), 10004u);
  for (const auto& sample : samples) {
    if (sample.discontinuity) {
      EXPECT_EQ(NumberOf(sample.bytes), 10000u);
    }
  }
  EXPECT_EQ(NumberOf(samples.back().bytes), 19999u);
  // Past the end: the stream ends at once.
  ASSERT_EQ(SeekTo(30 * kSecond), S_OK);
  ASSERT_TRUE(peer.WaitForEndOfStream(5000, 2));
  EXPECT_EQ(m_Filter->Stop(), S_OK);
  EXPECT_EQ(m_Filter->OutputPin()->Disconnect(), S_OK);
}

TEST_F(SeekingTest, ThousandSeeksAndStopChangesWhileDeliveringIntoASlowPeer) {
  Load(Numbered(30000), 30 * kSecond);
  tsw::CapturePin peer;
  ASSERT_EQ(m_Filter->OutputPin()->Connect(&peer, nullptr), S_OK);
  peer.SetDelayMicroseconds(20);
  ASSERT_EQ(m_Filter->Pause(), S_OK);
  ASSERT_EQ(m_Filter->Run(0), S_OK);
  const auto began = std::chrono::steady_clock::now();
  // Start and stop, start alone, stop alone, while the worker delivers.
  for (int i = 0; i < 1000; ++i) {
    LONGLONG start = (i * 7919LL % 28) * kSecond, stop = start + 2 * kSecond;
    LONGLONG* starts = i % 3 == 2 ? nullptr : &start;
    LONGLONG* stops = i % 3 == 1 ? nullptr : &stop;
    m_Seeking->SetPositions(starts, starts ? AM_SEEKING_AbsolutePositioning : 0, stops,
                            stops ? AM_SEEKING_AbsolutePositioning : 0);
  }
  // The last word: play the final two seconds to the end.
  const int ends = peer.EndOfStreams();
  LONGLONG start = 28 * kSecond, stop = 0;
  ASSERT_EQ(m_Seeking->SetPositions(&start, AM_SEEKING_AbsolutePositioning, &stop, AM_SEEKING_AbsolutePositioning),
            S_OK);
  peer.SetDelayMicroseconds(0);
  bool ended = false;
  for (int wait = 0; wait < 2000 && !ended; ++wait) {
    const auto samples = peer.Samples();
    ended = peer.EndOfStreams() > ends && !samples.empty() && NumberOf(samples.back().bytes) == 29999u;
    if (!ended) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(ended) << "the end of the stream still comes, after the last packet";
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(60));
  EXPECT_EQ(m_Filter->Stop(), S_OK);
  EXPECT_EQ(m_Filter->OutputPin()->Disconnect(), S_OK);
}

}  // namespace
