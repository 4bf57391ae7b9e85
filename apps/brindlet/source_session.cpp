#include "apps/brindlet/source_session.h"

#include "delivery/ts_source_filter.h"
#include "platform/codepage.h"
#include "platform/com_memory.h"
#include "platform/files.h"

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

CSourceSession::CSourceSession(const std::string& file, std::ostream& err) {
  HRESULT hr = S_OK;
  CUnknown* object = CTsSourceFilter::CreateInstance(nullptr, &hr);
  if (object == nullptr || FAILED(hr)) {
    err << "brindlet: cannot create the source filter (0x" << std::hex << static_cast<unsigned>(hr)
        << std::dec << ")\n";
    return;
  }
  m_Filter = ComPtr<IUnknown>(object->NonDelegatingUnknown());

  ComPtr<IFileSourceFilter> source;
  hr = m_Filter->QueryInterface(IID_IFileSourceFilter, reinterpret_cast<void**>(source.PutAddress()));
  if (FAILED(hr)) {
    err << "brindlet: the filter has no file source interface\n";
    return;
  }
  SetLastError(ERROR_SUCCESS);
  hr = source->Load(AnsiToWide(file).c_str(), nullptr);
  if (FAILED(hr)) {
    const DWORD error = GetLastError();
    err << "brindlet: cannot open " << file << ": "
        << (error != ERROR_SUCCESS ? DescribeWin32Error(error) : "load failed") << "\n";
    return;
  }
  m_Filter->QueryInterface(IID_ITsStreamInfo, reinterpret_cast<void**>(m_Info.PutAddress()));
  m_Filter->QueryInterface(IID_ITsScanReport, m_Report.PutVoid());
}

std::string CSourceSession::Query(const std::string& keyword) const {
  if (!Ok()) return {};
  LPWSTR text = nullptr;
  if (FAILED(m_Info->QueryText(AnsiToWide(keyword).c_str(), &text)) || text == nullptr) return {};
  std::string answer = WideToAnsi(text);
  CoTaskMemFree(text);
  return answer;
}
