// The worker of a push source: its command table, delivery to a peer, and
// stopping while it waits.
#include "host/source.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "host/allocator.h"
#include "tests/support/capture_pin.h"
#include "tests/support/deadline.h"

namespace {

constexpr CLSID kTestClsid = MakeGuid(0x7E57A001, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10);

class CTestSource final : public CSource {
 public:
  CTestSource() : CSource("test source", nullptr, kTestClsid) {}
};

// Hands out `total` samples whose first byte is the sample's number, then
// ends the stream, or fails with `m_Failure` at sample `m_FailAt`.
class CCountingStream final : public CSourceStream {
 public:
  CCountingStream(HRESULT* result, CTestSource* filter, int total)
      : CSourceStream("counting stream", result, filter, L"Out"), m_Total(total) {}

  HRESULT GetMediaType(CMediaType* type) override {
    *type = CMediaType();
    type->SetMajorType(MEDIATYPE_Stream);
    type->SetSubtype(MEDIASUBTYPE_MPEG2_TRANSPORT);
    return S_OK;
  }
  using CSourceStream::GetMediaType;
  HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* properties) override {
    properties->cBuffers = 2;
    properties->cbBuffer = 188;
    ALLOCATOR_PROPERTIES actual{};
    return allocator->SetProperties(properties, &actual);
  }
  HRESULT FillBuffer(IMediaSample* sample) override {
    const int n = m_Next++;
    if (n == m_FailAt) return m_Failure;
    if (n >= m_Total) return S_FALSE;
    BYTE* data = nullptr;
    sample->GetPointer(&data);
    data[0] = static_cast<BYTE>(n);
    return S_OK;
  }
  HRESULT OnThreadCreate() override { ++m_Created; return S_OK; }
  HRESULT OnThreadDestroy() override { ++m_Destroyed; return S_OK; }
  HRESULT OnThreadStartPlay() override { ++m_Started; return S_OK; }

  std::atomic<int> m_Next{0}, m_Created{0}, m_Destroyed{0}, m_Started{0};
  int m_FailAt = -1;  // set before the worker starts
  HRESULT m_Failure = S_OK;

 private:
  int m_Total;
};

class SourceStreamTest : public ::testing::Test {
 protected:
  void Make(int total) {
    filter = new CTestSource();
    filter->NonDelegatingUnknown()->AddRef();
    HRESULT hr = E_FAIL;
    stream = new CCountingStream(&hr, filter, total);
    ASSERT_EQ(hr, S_OK);
    filter->JoinFilterGraph(&graph, L"source");
  }
  void Connect() { ASSERT_EQ(stream->Connect(&peer, nullptr), S_OK); }
  void TearDown() override {
    if (filter == nullptr) return;
    filter->Stop();
    filter->JoinFilterGraph(nullptr, nullptr);
    stream->Disconnect();
    peer.Disconnect();
    delete stream;
    filter->NonDelegatingUnknown()->Release();
  }

  tsw::EventRecorder graph;
  tsw::CapturePin peer;
  CTestSource* filter = nullptr;
  CCountingStream* stream = nullptr;
};

TEST_F(SourceStreamTest, DeliversEverySampleThenOneEndOfStreamOnceConnected) {
  Make(500);
  EXPECT_EQ(filter->Pause(), S_OK);
  EXPECT_EQ(filter->Run(0), S_OK);
  EXPECT_FALSE(stream->ThreadExists());
  EXPECT_EQ(stream->m_Next, 0) << "nothing was filled";
  EXPECT_EQ(filter->Stop(), S_OK);

  Connect();
  ASSERT_EQ(filter->Pause(), S_OK);
  ASSERT_TRUE(peer.WaitForEndOfStream(5000));
  const auto samples = peer.Samples();
  ASSERT_EQ(samples.size(), 500u);
  for (std::size_t i = 0; i < samples.size(); ++i) ASSERT_EQ(samples[i].bytes[0], static_cast<std::uint8_t>(i));
  EXPECT_EQ(stream->m_Started, 1);
  EXPECT_EQ(filter->Run(0), S_OK) << "running reaches no worker";
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(peer.EndOfStreams(), 1);
  EXPECT_EQ(filter->Stop(), S_OK);
  EXPECT_FALSE(stream->ThreadExists());
  EXPECT_EQ(stream->m_Destroyed, 1);
  EXPECT_TRUE(graph.Events().empty());
}

TEST_F(SourceStreamTest, FillFailureEndsTheStreamAndTellsTheGraph) {
  Make(100);
  stream->m_FailAt = 10;
  stream->m_Failure = E_OUTOFMEMORY;
  Connect();
  ASSERT_EQ(filter->Pause(), S_OK);
  ASSERT_TRUE(peer.WaitForEndOfStream(5000));
  EXPECT_EQ(peer.SampleCount(), 10u);
  filter->Stop();
  const auto events = graph.Events();
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].code, EC_ERRORABORT);
  EXPECT_EQ(events[0].param1, E_OUTOFMEMORY);
}

TEST_F(SourceStreamTest, RefusedSampleLeavesTheWorkerIdleWithoutEndOfStream) {
  Make(100);
  peer.SetReceiveResult(S_FALSE);
  Connect();
  ASSERT_EQ(filter->Pause(), S_OK);
  ASSERT_TRUE(peer.WaitFor(1, 5000));
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(peer.SampleCount(), 1u) << "the worker went idle";
  EXPECT_EQ(peer.EndOfStreams(), 0);
  // A new command sends it on.
  peer.SetReceiveResult(S_OK);
  EXPECT_EQ(stream->RunWorker(), S_OK);
  ASSERT_TRUE(peer.WaitForEndOfStream(5000));
  EXPECT_EQ(peer.SampleCount(), 100u);
}

TEST_F(SourceStreamTest, StopWhileTheWorkerWaitsForABufferWakesIt) {
  Make(1000);
  peer.SetHoldSamples(true);  // both buffers stay downstream
  Connect();
  ASSERT_EQ(filter->Pause(), S_OK);
  ASSERT_TRUE(peer.WaitFor(2, 5000));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(peer.SampleCount(), 2u);
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(filter->Stop(), S_OK);
  EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
  EXPECT_FALSE(stream->ThreadExists());
  peer.ReleaseHeldSamples();
}

TEST_F(SourceStreamTest, CommandTable) {
  Make(1000000);
  Connect();
  // Waiting for init: anything else is refused.
  ASSERT_TRUE(stream->Create());
  EXPECT_EQ(static_cast<HRESULT>(stream->CallWorker(CCountingStream::CMD_PAUSE)), E_UNEXPECTED);
  EXPECT_EQ(stream->Init(), S_OK);
  EXPECT_EQ(stream->m_Created, 1);
  // Idle.
  EXPECT_EQ(stream->StopWorker(), S_OK);
  EXPECT_EQ(static_cast<HRESULT>(stream->CallWorker(9)), E_NOTIMPL);
  EXPECT_EQ(stream->m_Next, 0);
  // Delivering: pause and run change nothing, others are refused.
  peer.SetDelayMicroseconds(200);
  EXPECT_EQ(stream->PauseWorker(), S_OK);
  EXPECT_EQ(stream->RunWorker(), S_OK);
  EXPECT_EQ(static_cast<HRESULT>(stream->CallWorker(9)), E_UNEXPECTED);
  EXPECT_EQ(stream->m_Started, 1);
  // Stop waits for the idle loop's reply; exit ends the thread.
  EXPECT_EQ(stream->StopWorker(), S_OK);
  const int filled = stream->m_Next;
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_EQ(stream->m_Next, filled) << "idle: nothing more is filled";
  EXPECT_EQ(stream->Exit(), S_OK);
  stream->Close();
  EXPECT_EQ(stream->m_Destroyed, 1);
}

// A sender that meets a worker which has ended, as a seek on a client thread
// may meet one that the host's Stop is ending, is answered at once; Stop
// still joins the thread.
TEST_F(SourceStreamTest, CommandsToAnEndedWorkerFailAtOnceAndStopStillJoinsIt) {
  const tsw::Deadline deadline(std::chrono::seconds(20), "a command to an ended worker");
  Make(1000000);
  Connect();
  peer.SetDelayMicroseconds(50);
  ASSERT_EQ(filter->Pause(), S_OK);
  ASSERT_TRUE(peer.WaitFor(10, 5000));
  EXPECT_EQ(stream->StopWorker(), S_OK);
  EXPECT_EQ(stream->Exit(), S_OK);
  EXPECT_TRUE(stream->ThreadExists()) << "ended, not yet joined";
  EXPECT_EQ(stream->RunWorker(), E_FAIL);
  stream->RestartWorker();
  EXPECT_EQ(filter->Stop(), S_OK);
  EXPECT_FALSE(stream->ThreadExists());
  EXPECT_EQ(stream->m_Destroyed, 1);
}

// An allocator of `buffers` packets with one reference, committed or not.
CMemAllocator* NewAllocator(LONG buffers, bool commit) {
  CMemAllocator* allocator = CMemAllocator::Create();
  allocator->NonDelegatingAddRef();
  ALLOCATOR_PROPERTIES request{buffers, 188, 1, 0}, actual{};
  EXPECT_EQ(allocator->SetProperties(&request, &actual), S_OK);
  if (commit) {
    EXPECT_EQ(allocator->Commit(), S_OK);
  }
  return allocator;
}

TEST(CMemAllocator, RequestsWaitForAFreeBufferAndFailOnceDecommitted) {
  CMemAllocator* allocator = NewAllocator(1, false);
  ALLOCATOR_PROPERTIES request{1, 188, 1, 0}, actual{};
  IMediaSample* sample = nullptr;
  EXPECT_EQ(allocator->GetBuffer(&sample, nullptr, nullptr, 0), VFW_E_NOT_COMMITTED);
  ASSERT_EQ(allocator->Commit(), S_OK);
  ASSERT_EQ(allocator->GetBuffer(&sample, nullptr, nullptr, 0), S_OK);
  EXPECT_EQ(allocator->SetProperties(&request, &actual), VFW_E_ALREADY_COMMITTED);
  HRESULT waited = S_OK;
  std::thread waiter([&] {
    IMediaSample* second = nullptr;
    waited = allocator->GetBuffer(&second, nullptr, nullptr, 0);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  allocator->Decommit();
  waiter.join();
  EXPECT_EQ(waited, VFW_E_NOT_COMMITTED);
  sample->Release();
  EXPECT_EQ(allocator->Outstanding(), 0);
  allocator->NonDelegatingRelease();
}

// Takers and givers on two threads, with fewer buffers than they could
// hold: no sample is lost or handed out twice, and none is out at the end.
TEST(CMemAllocator, TwoThreadsTakingAndGivingBackLoseNoSample) {
  CMemAllocator* allocator = NewAllocator(3, true);
  std::atomic<int> twice{0};
  auto work = [&](BYTE mark) {
    for (int i = 0; i < 20000; ++i) {
      IMediaSample* first = nullptr;
      IMediaSample* second = nullptr;
      if (allocator->GetBuffer(&first, nullptr, nullptr, 0) != S_OK) return;
      if (i % 3 == 0 && allocator->GetBuffer(&second, nullptr, nullptr, 0) != S_OK) return;
      BYTE* data = nullptr;
      first->GetPointer(&data);
      data[0] = mark;
      std::this_thread::yield();
      if (data[0] != mark) ++twice;
      if (second != nullptr) second->Release();
      first->Release();
    }
  };
  std::thread a(work, BYTE{1});
  std::thread b(work, BYTE{2});
  a.join();
  b.join();
  EXPECT_EQ(twice, 0);
  EXPECT_EQ(allocator->Outstanding(), 0);
  allocator->Decommit();
  allocator->NonDelegatingRelease();
}

// A sample out keeps its allocator: the last reference may go first.
TEST(CMemAllocator, SampleOutlivesTheLastReferenceToItsAllocator) {
  CMemAllocator* allocator = NewAllocator(2, true);
  IMediaSample* sample = nullptr;
  ASSERT_EQ(allocator->GetBuffer(&sample, nullptr, nullptr, 0), S_OK);
  allocator->Decommit();
  allocator->NonDelegatingRelease();
  BYTE* data = nullptr;
  ASSERT_EQ(sample->GetPointer(&data), S_OK);
  data[187] = 0x47;  // still there
  sample->Release();  // the allocator goes with it
}

}  // namespace
