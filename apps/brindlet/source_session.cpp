#include "apps/brindlet/source_session.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "control/brindlet_ids.h"
#include "platform/graph/stream_sinks.h"
#include "platform/com/objbase.h"
#include "platform/graph/mpeg2_demux.h"
#include "platform/graph/stream_buffer.h"
#include "platform/win32/codepage.h"
#include "platform/com/com_memory.h"
#include "platform/win32/files.h"
#include "platform/win32/registry.h"

std::string DescribeWin32Error(unsigned long error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
      return "no such file";
    case ERROR_PATH_NOT_FOUND:
      return "no such directory";
    case ERROR_ACCESS_DENIED:
      return "access denied (or it is a directory)";
    case ERROR_FILENAME_EXCED_RANGE:
      return "name too long";
    case ERROR_TOO_MANY_OPEN_FILES:
      return "too many open files";
    default:
      return "error " + std::to_string(error);
  }
}

namespace {

// The platform's own filters ship as modules of their own; a build puts them
// beside the tool, where a missing one is simply not registered.
void RegisterPlatformFiltersIn(const std::filesystem::path& dir) {
  const struct {
    const CLSID* clsid;
    const char* module;
  } kFilters[] = {
      {&CLSID_MPEG2Demultiplexer, "Mpeg2Demux.ax"},
      {&CLSID_NullRenderer, "Sinks.ax"},
      {&CLSID_StreamFileWriter, "Sinks.ax"},
      {&CLSID_StreamBufferSink, "StreamBuffer.ax"},
  };
  for (const auto& filter : kFilters) {
    std::error_code error;
    const std::filesystem::path path = dir / filter.module;
    if (std::filesystem::is_regular_file(path, error)) PlatformRegisterInprocServer(*filter.clsid, path.c_str());
  }
}

}  // namespace

void RegisterPlatformFiltersBesideTool() {
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error) RegisterPlatformFiltersIn(self.parent_path());
}

std::string RegisterModuleForProcess() {
  std::filesystem::path module;
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  RegisterPlatformFiltersBesideTool();
  if (const char* named = std::getenv("BRINDLET_MODULE"); named != nullptr && *named != '\0') {
    module = named;
  } else if (!error) {
    module = self.parent_path() / "Brindlet.ax";
  }
  if (module.empty() || !std::filesystem::is_regular_file(module, error)) return {};
  // The pages are classes of the same module.
  for (const CLSID* clsid : {&CLSID_BrindletSource, &CLSID_ProgramInfoPage, &CLSID_H264AnalyzerPage, &CLSID_PidInfoPage,
                             &CLSID_ProgramsPage, &CLSID_AboutPage}) {
    PlatformRegisterInprocServer(*clsid, module.c_str());
  }
  return module.string();
}

namespace {

std::string ExtensionOf(const std::string& file) {
  const std::filesystem::path path(file);
  return path.has_extension() ? path.extension().string() : std::string();
}

// The default value of a key under HKEY_CLASSES_ROOT, empty if none.
std::string ClassesRootText(const std::string& key, const char* value) {
  HKEY handle = nullptr;
  if (RegOpenKeyExA(HKEY_CLASSES_ROOT, key.c_str(), 0, KEY_QUERY_VALUE, &handle) != ERROR_SUCCESS) return {};
  char text[1024];
  DWORD size = sizeof text;
  DWORD type = REG_NONE;
  const LONG error = RegQueryValueExA(handle, value, nullptr, &type, reinterpret_cast<BYTE*>(text), &size);
  RegCloseKey(handle);
  if (error != ERROR_SUCCESS || type != REG_SZ) return {};
  return std::string(text, strnlen(text, size));
}

// The registered source filter of the file's type, when it is this filter
// and the filter's class names its module. A page's Apply can enter the file
// types of a filter that was never registered itself; such a type leads
// nowhere, and the module beside the tool serves instead.
bool TypeLeadsToBrindlet(const std::string& extension) {
  if (extension.empty()) return false;
  CLSID clsid{};
  const std::string text = ClassesRootText("Media Type\\Extensions\\" + extension, "Source Filter");
  return GuidFromString(text.c_str(), &clsid) && clsid == CLSID_BrindletSource &&
         !ClassesRootText("CLSID\\" + GuidToString(CLSID_BrindletSource) + "\\InprocServer32", nullptr).empty();
}

}  // namespace

namespace {

// What stands at `file` when it is no plain file; "" for a plain file or
// nothing (which the filter's open then reports).
std::string NotAFile(const std::string& file) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(file, error);
  switch (error ? std::filesystem::file_type::not_found : status.type()) {
    case std::filesystem::file_type::directory: return "a directory";
    case std::filesystem::file_type::fifo: return "a FIFO";
    case std::filesystem::file_type::socket: return "a socket";
    case std::filesystem::file_type::character: return "a character device";
    case std::filesystem::file_type::block: return "a block device";
    default: return {};
  }
}

}  // namespace

CSourceSession::CSourceSession(const std::string& file, std::ostream& err) {
  // The filter reads a file's start and then its end, and takes its size
  // for the length of the stream: a FIFO would hold the open until a writer
  // came, and a device reads as a file of 0 bytes.
  if (const std::string kind = NotAFile(file); !kind.empty()) {
    err << "brindlet: cannot open " << file << ": " << kind << ", not a file\n";
    return;
  }
  // A module named in the environment wins; then the file type, as a player
  // opens a file; then the module beside the tool.
  const char* named = std::getenv("BRINDLET_MODULE");
  const std::string extension = ExtensionOf(file);
  const bool byType = (named == nullptr || *named == '\0') && TypeLeadsToBrindlet(extension);
  std::string module;
  if (byType) {
    RegisterPlatformFiltersBesideTool();
    module = ClassesRootText("CLSID\\" + GuidToString(CLSID_BrindletSource) + "\\InprocServer32", nullptr);
    m_OpenedThrough = "the " + extension + " file type, module " + module;
  } else {
    module = RegisterModuleForProcess();
    m_OpenedThrough = (named != nullptr && *named != '\0' ? "BRINDLET_MODULE, " : "the module beside the tool, ") + module;
  }
  HRESULT hr = CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterGraph,
                                m_Graph.PutVoid());
  if (FAILED(hr)) {
    err << "brindlet: cannot create a filter graph (0x" << std::hex << static_cast<unsigned>(hr) << std::dec
        << ")\n";
    return;
  }
  if (byType) {
    OpenByType(file, module, err);
    return;
  }
  hr = CoCreateInstance(CLSID_BrindletSource, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, m_Filter.PutVoid());
  if (FAILED(hr)) {
    const std::string why = PlatformLastLoadError();
    err << "brindlet: cannot create the source filter (0x" << std::hex << static_cast<unsigned>(hr) << std::dec
        << "): "
        << (module.empty() ? "Brindlet.ax is not beside the tool, and " + (extension.empty() ? std::string("the file has no extension") : extension + " is not registered to it") : why)
        << "\n";
    return;
  }
  hr = m_Graph->AddFilter(m_Filter.Get(), L"Brindlet");
  if (FAILED(hr)) {
    err << "brindlet: the graph refused the source filter (0x" << std::hex << static_cast<unsigned>(hr)
        << std::dec << ")\n";
    return;
  }

  ComPtr<IFileSourceFilter> source;
  hr = m_Filter->QueryInterface(IID_IFileSourceFilter, source.PutVoid());
  if (FAILED(hr)) {
    err << "brindlet: the filter has no file source interface\n";
    return;
  }
  SetLastError(ERROR_SUCCESS);
  hr = source->Load(AnsiToWide(file).c_str(), nullptr);
  if (FAILED(hr)) {
    ReportLoadFailure(file, GetLastError(), err);
    return;
  }
  TakeInterfaces();
}

void CSourceSession::OpenByType(const std::string& file, const std::string& module, std::ostream& err) {
  ComPtr<IGraphBuilder> builder;
  m_Graph->QueryInterface(IID_IGraphBuilder, builder.PutVoid());
  if (!builder) {
    err << "brindlet: the graph cannot add a source by file type\n";
    return;
  }
  SetLastError(ERROR_SUCCESS);
  const HRESULT hr = builder->AddSourceFilter(AnsiToWide(file).c_str(), L"Brindlet", m_Filter.PutAddress());
  if (SUCCEEDED(hr)) {
    TakeInterfaces();
    return;
  }
  const DWORD error = GetLastError();
  if (hr == HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND) || hr == HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND) ||
      hr == REGDB_E_CLASSNOTREG) {
    err << "brindlet: cannot create the source filter registered for " << ExtensionOf(file) << " (0x" << std::hex
        << static_cast<unsigned>(hr) << std::dec << "): " << (module.empty() ? "no module path" : PlatformLastLoadError())
        << "\n";
    return;
  }
  ReportLoadFailure(file, error, err);
}

void CSourceSession::ReportLoadFailure(const std::string& file, unsigned long error, std::ostream& err) {
  err << "brindlet: cannot open " << file << ": "
      << (error != ERROR_SUCCESS ? DescribeWin32Error(error) : "load failed") << "\n";
}

void CSourceSession::TakeInterfaces() {
  m_Filter->QueryInterface(IID_ITsStreamInfo, m_Info.PutVoid());
  m_Filter->QueryInterface(IID_ITsScanReport, m_Report.PutVoid());
}

CSourceSession::~CSourceSession() {
  m_Info.Reset();
  m_Report.Reset();
  // The graph holds the filter; taking it out ends the filter's stay.
  if (m_Graph && m_Filter) m_Graph->RemoveFilter(m_Filter.Get());
  m_Filter.Reset();
  m_Graph.Reset();
}

std::string CSourceSession::Query(const std::string& keyword) const {
  if (!Ok()) return {};
  LPWSTR text = nullptr;
  if (FAILED(m_Info->QueryText(AnsiToWide(keyword).c_str(), &text)) || text == nullptr) return {};
  std::string answer = WideToAnsi(text);
  CoTaskMemFree(text);
  return answer;
}
