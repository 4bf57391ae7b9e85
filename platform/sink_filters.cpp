#include "platform/sink_filters.h"

#include <string>

#include "platform/win32/codepage.h"
#include "platform/win32/files.h"
#include "platform/graph/graph_plumbing.h"
#include "platform/sink_filter_base.h"
#include "platform/write_behind.h"

namespace platform_internal {

namespace {

class CNullRenderer final : public CSinkFilter {
 public:
  CNullRenderer() : CSinkFilter(CLSID_NullRenderer) {}
};

class CStreamFileWriter final : public CSinkFilter, public IFileSinkFilter {
 public:
  CStreamFileWriter() : CSinkFilter(CLSID_StreamFileWriter) {}

  STDMETHODIMP QueryInterface(REFIID riid, void** ppv) override {
    return CSinkFilter::QueryInterface(riid, ppv);
  }
  STDMETHODIMP_(ULONG) AddRef() override { return CSinkFilter::AddRef(); }
  STDMETHODIMP_(ULONG) Release() override { return CSinkFilter::Release(); }

  // Takes effect at the next pause out of stopped; the type is kept only to
  // be given back.
  STDMETHODIMP SetFileName(LPCWSTR fileName, const AM_MEDIA_TYPE* type) override {
    if (fileName == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(m_Lock);
    m_FileName = fileName;
    m_FileType = AM_MEDIA_TYPE{};
    if (type != nullptr) {
      m_FileType.majortype = type->majortype;
      m_FileType.subtype = type->subtype;
    }
    return S_OK;
  }

  // E_FAIL, with a null name, before a name was set.
  STDMETHODIMP GetCurFile(LPWSTR* fileName, AM_MEDIA_TYPE* type) override {
    if (fileName == nullptr) return E_POINTER;
    *fileName = nullptr;
    std::lock_guard<std::mutex> guard(m_Lock);
    if (type != nullptr) *type = m_FileType;
    if (m_FileName.empty()) return E_FAIL;
    return CopyWideString(m_FileName, fileName);
  }

 protected:
  ~CStreamFileWriter() override {
    if (m_File != INVALID_HANDLE_VALUE) CloseHandle(m_File);
  }

  HRESULT QueryMoreInterfaces(REFIID riid, void** ppv) override {
    if (riid != IID_IFileSinkFilter) return CSinkFilter::QueryMoreInterfaces(riid, ppv);
    *ppv = static_cast<IFileSinkFilter*>(this);
    AddRef();
    return S_OK;
  }

  HRESULT OnStartStreaming() override {
    if (m_FileName.empty()) return E_FAIL;
    m_File = CreateFileA(WideToAnsi(m_FileName).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                         CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (m_File == INVALID_HANDLE_VALUE) return LastErrorResult();
    const HRESULT hr = m_Behind.Start(m_File);
    if (FAILED(hr)) OnStopStreaming();
    return hr;
  }

  // What was taken goes to the file before it closes; a failure found only
  // now has no one left to tell.
  void OnStopStreaming() override {
    m_Behind.Stop();
    if (m_File != INVALID_HANDLE_VALUE) CloseHandle(m_File);
    m_File = INVALID_HANDLE_VALUE;
  }

  // The disk is written behind the sample, so a failed write is answered to
  // a later sample, or at the end of the stream at the latest.
  HRESULT OnWrite(const BYTE* data, LONG length) override {
    return m_Behind.Append(data, static_cast<std::size_t>(length));
  }

  // The completion says the file holds the whole stream.
  HRESULT OnEndOfStream() override { return m_Behind.Finish(); }

 private:
  static HRESULT LastErrorResult() {
    const DWORD error = GetLastError();
    return error != ERROR_SUCCESS ? HRESULT_FROM_WIN32(error) : E_FAIL;
  }

  std::wstring m_FileName;               // guarded by m_Lock
  AM_MEDIA_TYPE m_FileType{};            // guarded by m_Lock; no format block
  HANDLE m_File = INVALID_HANDLE_VALUE;  // guarded by m_Lock; open from pause to stop
  CWriteBehind m_Behind;                 // guarded by m_Lock as its one producer
};

template <class Sink>
HRESULT CreateSink(IUnknown* outer, REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  *ppv = nullptr;
  if (outer != nullptr) return CLASS_E_NOAGGREGATION;
  ComPtr<IBaseFilter> sink(new Sink);
  return sink->QueryInterface(riid, ppv);
}

}  // namespace

HRESULT CreateNullRenderer(IUnknown* outer, REFIID riid, void** ppv) {
  return CreateSink<CNullRenderer>(outer, riid, ppv);
}

HRESULT CreateStreamFileWriter(IUnknown* outer, REFIID riid, void** ppv) {
  return CreateSink<CStreamFileWriter>(outer, riid, ppv);
}

}  // namespace platform_internal
