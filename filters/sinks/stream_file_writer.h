// The stream file writer: appends the bytes of every sample to a file, which
// it creates at the pause out of stopped and closes at the stop, writing
// behind the samples on a thread of its own.
#pragma once

#include <string>

#include "filters/sinks/sink_filter.h"
#include "filters/sinks/write_behind.h"
#include "platform/win32/files.h"

class CStreamFileWriter final : public CSinkFilter, public IFileSinkFilter {
 public:
  // The factory function of the module's class table.
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);
  ~CStreamFileWriter() override;

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // Takes effect at the next pause out of stopped; the type is kept only to
  // be given back.
  STDMETHODIMP SetFileName(LPCWSTR fileName, const AM_MEDIA_TYPE* type) override;
  // E_FAIL, with a null name, before a name was set.
  STDMETHODIMP GetCurFile(LPWSTR* fileName, AM_MEDIA_TYPE* type) override;

 protected:
  HRESULT OnStartStreaming() override;
  void OnStopStreaming() override;
  HRESULT OnWrite(const BYTE* data, LONG length) override;
  HRESULT OnEndOfStream() override;

 private:
  CStreamFileWriter() : CSinkFilter("Stream File Writer", CLSID_StreamFileWriter) {}

  std::wstring m_FileName;               // m_ReceiveLock
  AM_MEDIA_TYPE m_FileType{};            // m_ReceiveLock; no format block
  HANDLE m_File = INVALID_HANDLE_VALUE;  // m_ReceiveLock; open from pause to stop
  CWriteBehind m_Behind;                 // m_ReceiveLock, as its one producer
};
