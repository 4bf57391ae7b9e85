#include "platform/graph/stream_sinks.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/com/com_memory.h"
#include "platform/graph/control.h"
#include "platform/win32/files.h"
#include "platform/com/objbase.h"
#include "tests/platform/test_push_source.h"
#include "tests/support/ts_reader.h"
#include "tests/support/ts_writer.h"

namespace {

TEST(SinkInputPin, AcceptsStreamsVideoAndAudioOrAnythingWhenTold) {
  // A major type that is none of the three, as text or subtitles would be.
  constexpr GUID kOtherMajor = MakeGuid(0x73747874, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71);
  const struct {
    GUID major;
    GUID sub;
    BOOL acceptAny;
    HRESULT connection;
  } cases[] = {
      {MEDIATYPE_Stream, MEDIASUBTYPE_MPEG2_TRANSPORT, FALSE, S_OK},
      {MEDIATYPE_Stream, GUID_NULL, FALSE, S_OK},
      {MEDIATYPE_Video, MEDIASUBTYPE_MPEG2_VIDEO, FALSE, S_OK},
      {MEDIATYPE_Audio, MEDIASUBTYPE_DOLBY_AC3, FALSE, S_OK},
      {kOtherMajor, GUID_NULL, FALSE, VFW_E_TYPE_NOT_ACCEPTED},
      {kOtherMajor, GUID_NULL, TRUE, S_OK},
  };
  for (REFCLSID clsid : {CLSID_NullRenderer, CLSID_StreamFileWriter}) {
    for (const auto& c : cases) {
      const ComPtr<IBaseFilter> sink = Create(clsid);
      QueryAs<IStreamSinkControl>(sink.Get(), IID_IStreamSinkControl)
          ->SetAcceptAnyType(c.acceptAny);
      ComPtr<CTestSource> source(new CTestSource({}));
      const ComPtr<IPin> in = InputPinOf(sink.Get());
      const AM_MEDIA_TYPE type = TypeOf(c.major, c.sub);
      EXPECT_EQ(in->QueryAccept(&type), c.connection == S_OK ? S_OK : S_FALSE);
      EXPECT_EQ(source->OutputPin()->Connect(in.Get(), &type), c.connection);
      if (c.connection != S_OK) continue;
      AM_MEDIA_TYPE connected{};
      ASSERT_EQ(in->ConnectionMediaType(&connected), S_OK);
      EXPECT_EQ(connected.majortype, c.major);
      EXPECT_EQ(connected.subtype, c.sub);
      EXPECT_EQ(in->ReceiveConnection(source->OutputPin(), &type), VFW_E_ALREADY_CONNECTED);
      source->OutputPin()->Disconnect();
      EXPECT_EQ(in->Disconnect(), S_OK);
      EXPECT_EQ(in->Disconnect(), S_FALSE);
    }
  }
}

// A sink in a graph of its own, fed by hand through its pin.
class SinkInGraph : public GraphFixture {
 protected:
  void Build(REFCLSID clsid) {
    m_Sink = Create(clsid);
    Feed(m_Sink.Get(), L"In");
    m_Counts = QueryAs<IStreamSinkControl>(m_Sink.Get(), IID_IStreamSinkControl);
  }

  HRESULT Send(int n) { return m_Memory->Receive(MakeTestSample(n).Get()); }

  LONG NextEvent(LONG_PTR* param1 = nullptr) {
    LONG code = 0;
    LONG_PTR p1 = 0, p2 = 0;
    if (FAILED(m_Event->GetEvent(&code, &p1, &p2, 0))) return 0;
    if (param1 != nullptr) *param1 = p1;
    return code;
  }

  ComPtr<IBaseFilter> m_Sink;
  ComPtr<IStreamSinkControl> m_Counts;
};

TEST_F(SinkInGraph, TakesSamplesWhileStreamingAndCompletesOncePerStream) {
  Build(CLSID_NullRenderer);
  EXPECT_EQ(Send(0), VFW_E_WRONG_STATE);
  ASSERT_EQ(m_Control->Pause(), S_OK);
  EXPECT_EQ(Send(0), S_OK);
  EXPECT_EQ(m_In->BeginFlush(), S_OK);
  EXPECT_EQ(Send(1), S_FALSE);
  EXPECT_EQ(m_In->EndOfStream(), S_FALSE);
  EXPECT_EQ(m_In->EndFlush(), S_OK);
  EXPECT_EQ(Send(1), S_OK);
  EXPECT_EQ(m_In->Disconnect(), VFW_E_NOT_STOPPED);

  LONGLONG samples = 0, bytes = 0;
  LONG endOfStreams = -1, discontinuities = 0;
  m_Counts->GetCounts(&samples, &bytes, &endOfStreams, &discontinuities, nullptr);
  EXPECT_EQ(samples, 2);
  EXPECT_EQ(bytes, 2 * 188);
  EXPECT_EQ(endOfStreams, 0);
  EXPECT_EQ(discontinuities, 1);

  // Counts start again at the next pause out of stopped, which Run passes.
  ASSERT_EQ(m_Control->Stop(), S_OK);
  ASSERT_EQ(m_Control->Run(), S_OK);
  m_Counts->GetCounts(&samples, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(samples, 0);

  LONG_PTR sender = 0;
  EXPECT_EQ(m_In->EndOfStream(), S_OK);
  EXPECT_EQ(m_In->EndOfStream(), S_OK);
  EXPECT_EQ(NextEvent(&sender), EC_COMPLETE);
  EXPECT_EQ(sender, S_OK);
  EXPECT_EQ(NextEvent(), 0) << "a second end of stream is no second completion";
  m_In->BeginFlush();
  m_In->EndFlush();
  EXPECT_EQ(m_In->EndOfStream(), S_OK);
  EXPECT_EQ(NextEvent(), EC_COMPLETE) << "after a flush the stream may end again";
  m_Counts->GetCounts(nullptr, nullptr, &endOfStreams, nullptr, nullptr);
  EXPECT_EQ(endOfStreams, 3);
  EXPECT_EQ(m_Control->Stop(), S_OK);
}

class WriterInGraph : public SinkInGraph {
 protected:
  void SetUp() override {
    SinkInGraph::SetUp();
    Build(CLSID_StreamFileWriter);
    m_File = QueryAs<IFileSinkFilter>(m_Sink.Get(), IID_IFileSinkFilter);
  }
  tsw::TempDir m_Dir;
  ComPtr<IFileSinkFilter> m_File;
};

TEST_F(WriterInGraph, FailedWriteAbortsOnceAndRefusesTheRest) {
  if (::access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
  ASSERT_EQ(m_File->SetFileName(L"/dev/full", nullptr), S_OK);
  m_Event->RestoreDefaultHandling(EC_COMPLETE);
  ASSERT_EQ(m_Control->Run(), S_OK);
  const HRESULT full = HRESULT_FROM_WIN32(ERROR_DISK_FULL);
  // The disk is written behind the samples: a small stream learns of the
  // failure at its end, and no completion goes out.
  EXPECT_EQ(Send(0), S_OK);
  EXPECT_EQ(m_In->EndOfStream(), full);
  EXPECT_EQ(Send(1), full);
  EXPECT_EQ(m_In->EndOfStream(), full);
  LONG code = 0;
  ASSERT_EQ(m_Event->WaitForCompletion(1000, &code), S_OK);
  EXPECT_EQ(code, EC_ERRORABORT);
  EXPECT_EQ(NextEvent(), 0) << "reported once";
  LONGLONG samples = -1;
  m_Counts->GetCounts(&samples, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(samples, 1);
  EXPECT_EQ(m_Control->Stop(), S_OK);
}

TEST_F(WriterInGraph, CompletionFindsTheWholeStreamInTheFile) {
  const auto path = m_Dir.File("out.ts");
  ASSERT_EQ(m_File->SetFileName(path.wstring().c_str(), nullptr), S_OK);
  ASSERT_EQ(m_Control->Run(), S_OK);
  tsw::Bytes expected;
  for (int n = 0; n < 40000; ++n) {  // more than the writer lets wait
    ASSERT_EQ(Send(n), S_OK);
    for (int i = 0; i < 188; ++i) expected.push_back(TestSampleByte(n, i));
  }
  ASSERT_EQ(m_In->EndOfStream(), S_OK);
  EXPECT_EQ(NextEvent(), EC_COMPLETE);
  // Read while the writer still holds the file open.
  const tsw::Bytes written = tsw::ReadAll(path);
  EXPECT_EQ(written.size(), expected.size());
  EXPECT_TRUE(written == expected);
  EXPECT_EQ(m_Control->Stop(), S_OK);
}

TEST_F(WriterInGraph, FileThatCannotBeMadeRefusesThePause) {
  ASSERT_EQ(m_File->SetFileName(m_Dir.File("missing/out.es").wstring().c_str(), nullptr), S_OK);
  const HRESULT hr = m_Control->Pause();
  EXPECT_TRUE(hr == HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND) ||
              hr == HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND))
      << std::hex << hr;
}

}  // namespace
