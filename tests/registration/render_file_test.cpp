// A player's side of registration: with the modules registered, the graph
// manager opens a .ts file by its extension and renders it by itself,
// through the filters the mapper finds for each media type.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "control/brindlet_ids.h"
#include "platform/com/com_memory.h"
#include "platform/com/com_ptr.h"
#include "platform/com/objbase.h"
#include "platform/graph/control.h"
#include "platform/graph/graph_manager.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/graph/stream_sinks.h"
#include "platform/graph/strmif.h"
#include "platform/win32/codepage.h"
#include "tests/support/scoped_registry.h"

namespace {

using Export = HRESULT (*)();

const std::string kSample = std::string(BRINDLET_SOURCE_DIR) + "/samples/mpeg2-mp2-ac3.ts";

HRESULT CallExport(const char* module, const char* name) {
  const HMODULE handle = LoadLibraryA(module);
  if (handle == nullptr) return E_FAIL;
  const auto call = reinterpret_cast<Export>(GetProcAddress(handle, name));
  return call != nullptr ? call() : E_FAIL;
}

std::vector<ComPtr<IBaseFilter>> FiltersOf(IGraphBuilder* graph) {
  std::vector<ComPtr<IBaseFilter>> filters;
  ComPtr<IEnumFilters> each;
  if (FAILED(graph->EnumFilters(each.PutAddress()))) return filters;
  IBaseFilter* filter = nullptr;
  while (each->Next(1, &filter, nullptr) == S_OK) filters.push_back(ComPtr<IBaseFilter>::Attach(filter));
  return filters;
}

CLSID ClassOf(IBaseFilter* filter) {
  CLSID clsid{};
  filter->GetClassID(&clsid);
  return clsid;
}

class RenderFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* module : {BRINDLET_MODULE_PATH, BRINDLET_MPEG2_DEMUX_MODULE, BRINDLET_SINKS_MODULE}) {
      ASSERT_EQ(CallExport(module, "DllRegisterServer"), S_OK) << module;
    }
    ASSERT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder, m_Graph.PutVoid()),
              S_OK);
  }
  void TearDown() override {
    m_Graph.Reset();
    for (const char* module : {BRINDLET_MODULE_PATH, BRINDLET_MPEG2_DEMUX_MODULE, BRINDLET_SINKS_MODULE}) {
      EXPECT_EQ(CallExport(module, "DllUnregisterServer"), S_OK) << module;
    }
  }

  tsw::ScopedRegistry m_Registry;
  tsw::TempDir m_Output;
  ComPtr<IGraphBuilder> m_Graph;
};

TEST_F(RenderFileTest, BuildsSourceDemultiplexerAndWritersAndPlaysToTheEnd) {
  ASSERT_EQ(m_Graph->RenderFile(AnsiToWide(kSample).c_str(), nullptr), S_OK);

  // The sample has video and two audio tracks: one writer each.
  int sources = 0, demultiplexers = 0, writers = 0;
  std::vector<std::string> outputs;
  for (const ComPtr<IBaseFilter>& filter : FiltersOf(m_Graph.Get())) {
    const CLSID clsid = ClassOf(filter.Get());
    sources += clsid == CLSID_BrindletSource;
    demultiplexers += clsid == CLSID_MPEG2Demultiplexer;
    EXPECT_NE(clsid, CLSID_NullRenderer) << "a merit that says never";
    if (clsid != CLSID_StreamFileWriter) continue;
    ComPtr<IFileSinkFilter> sink;
    ASSERT_EQ(filter->QueryInterface(IID_IFileSinkFilter, sink.PutVoid()), S_OK);
    const std::string name = m_Output.File("stream" + std::to_string(writers++)).string();
    ASSERT_EQ(sink->SetFileName(AnsiToWide(name).c_str(), nullptr), S_OK);
    outputs.push_back(name);
  }
  EXPECT_EQ(sources, 1);
  EXPECT_EQ(demultiplexers, 1);
  EXPECT_GE(writers, 2);

  ComPtr<IMediaControl> control;
  ComPtr<IMediaEvent> events;
  ASSERT_EQ(m_Graph->QueryInterface(IID_IMediaControl, control.PutVoid()), S_OK);
  ASSERT_EQ(m_Graph->QueryInterface(IID_IMediaEvent, events.PutVoid()), S_OK);
  ASSERT_TRUE(SUCCEEDED(control->Run()));
  LONG code = 0;
  ASSERT_EQ(events->WaitForCompletion(20000, &code), S_OK);
  EXPECT_EQ(code, EC_COMPLETE);
  ASSERT_EQ(control->Stop(), S_OK);

  bool video = false;
  for (const std::string& name : outputs) {
    std::ifstream in(name, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_GT(bytes.size(), 1000u) << name;
    // The MPEG-2 video stream opens with its sequence header.
    video |= bytes.size() > 4 && bytes[0] == 0 && bytes[1] == 0 && bytes[2] == 1 && bytes[3] == char(0xB3);
  }
  EXPECT_TRUE(video);
}

TEST_F(RenderFileTest, AFileTypeNobodyRegisteredIsUnknown) {
  tsw::TempDir dir;
  const std::string copy = dir.File("sample.xyz").string();
  std::filesystem::copy_file(kSample, copy);
  IBaseFilter* filter = reinterpret_cast<IBaseFilter*>(0x1);
  EXPECT_EQ(m_Graph->AddSourceFilter(AnsiToWide(copy).c_str(), nullptr, &filter), VFW_E_UNKNOWN_FILE_TYPE);
  EXPECT_EQ(filter, nullptr);
  EXPECT_EQ(m_Graph->RenderFile(AnsiToWide(copy).c_str(), nullptr), VFW_E_UNKNOWN_FILE_TYPE);
  EXPECT_TRUE(FiltersOf(m_Graph.Get()).empty());
}

TEST_F(RenderFileTest, AMissingFileLeavesNoFilterBehind) {
  IBaseFilter* filter = nullptr;
  EXPECT_TRUE(FAILED(m_Graph->AddSourceFilter(L"/nonexistent/file.ts", nullptr, &filter)));
  EXPECT_EQ(filter, nullptr);
  EXPECT_TRUE(FiltersOf(m_Graph.Get()).empty());
}

TEST_F(RenderFileTest, RenderOfAPinWithNoTakerFailsAndTakesItsTrialsOut) {
  // Unregistered, the writers are gone: the demultiplexer's streams have no
  // taker, so the demultiplexer is tried and taken out again.
  ASSERT_EQ(CallExport(BRINDLET_SINKS_MODULE, "DllUnregisterServer"), S_OK);
  ComPtr<IBaseFilter> source;
  ASSERT_EQ(m_Graph->AddSourceFilter(AnsiToWide(kSample).c_str(), L"Source", source.PutAddress()), S_OK);
  ComPtr<IEnumPins> pins;
  ASSERT_EQ(source->EnumPins(pins.PutAddress()), S_OK);
  IPin* out = nullptr;
  ASSERT_EQ(pins->Next(1, &out, nullptr), S_OK);
  const ComPtr<IPin> output = ComPtr<IPin>::Attach(out);
  EXPECT_EQ(m_Graph->Render(output.Get()), VFW_E_CANNOT_RENDER);
  EXPECT_EQ(FiltersOf(m_Graph.Get()).size(), 1u);
  IPin* peer = nullptr;
  EXPECT_EQ(output->ConnectedTo(&peer), VFW_E_NOT_CONNECTED);
}

}  // namespace
