#include "filters/sinks/stream_file_writer.h"

#include <cwchar>
#include <new>

#include "host/text_convert.h"
#include "platform/com/com_memory.h"
#include "platform/win32/codepage.h"
#include "platform/win32/files.h"

namespace {

HRESULT LastErrorResult() {
  const DWORD error = GetLastError();
  return error != ERROR_SUCCESS ? HRESULT_FROM_WIN32(error) : E_FAIL;
}

}  // namespace

CUnknown* CStreamFileWriter::CreateInstance(IUnknown* outer, HRESULT* result) {
  if (outer != nullptr) {
    if (result != nullptr) *result = CLASS_E_NOAGGREGATION;
    return nullptr;
  }
  auto* writer = new (std::nothrow) CStreamFileWriter();
  if (result != nullptr) *result = writer != nullptr ? S_OK : E_OUTOFMEMORY;
  return writer;
}

CStreamFileWriter::~CStreamFileWriter() {
  if (m_File != INVALID_HANDLE_VALUE) CloseHandle(m_File);
}

STDMETHODIMP CStreamFileWriter::NonDelegatingQueryInterface(REFIID riid, void** ppv) {
  if (ppv == nullptr) return E_POINTER;
  if (riid == IID_IFileSinkFilter) return GetInterface(static_cast<IFileSinkFilter*>(this), ppv);
  return CSinkFilter::NonDelegatingQueryInterface(riid, ppv);
}

STDMETHODIMP CStreamFileWriter::SetFileName(LPCWSTR fileName, const AM_MEDIA_TYPE* type) {
  if (fileName == nullptr) return E_POINTER;
  std::lock_guard<std::mutex> guard(m_ReceiveLock);
  m_FileName = fileName;
  m_FileType = AM_MEDIA_TYPE{};
  if (type != nullptr) {
    m_FileType.majortype = type->majortype;
    m_FileType.subtype = type->subtype;
  }
  return S_OK;
}

STDMETHODIMP CStreamFileWriter::GetCurFile(LPWSTR* fileName, AM_MEDIA_TYPE* type) {
  if (fileName == nullptr) return E_POINTER;
  *fileName = nullptr;
  std::lock_guard<std::mutex> guard(m_ReceiveLock);
  if (type != nullptr) *type = m_FileType;
  if (m_FileName.empty()) return E_FAIL;
  const std::size_t bytes = (m_FileName.size() + 1) * sizeof(WCHAR);
  auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
  if (copy == nullptr) return E_OUTOFMEMORY;
  std::wmemcpy(copy, m_FileName.c_str(), m_FileName.size() + 1);
  *fileName = copy;
  return S_OK;
}

HRESULT CStreamFileWriter::OnStartStreaming() {
  if (m_FileName.empty()) return E_FAIL;
  m_File = CreateFileA(NarrowText(m_FileName).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                       FILE_ATTRIBUTE_NORMAL, nullptr);
  if (m_File == INVALID_HANDLE_VALUE) return LastErrorResult();
  const HRESULT hr = m_Behind.Start(m_File);
  if (FAILED(hr)) OnStopStreaming();
  return hr;
}

// What was taken goes to the file before it closes; a failure found only now
// has no one left to tell.
void CStreamFileWriter::OnStopStreaming() {
  m_Behind.Stop();
  if (m_File != INVALID_HANDLE_VALUE) CloseHandle(m_File);
  m_File = INVALID_HANDLE_VALUE;
}

// The disk is written behind the sample, so a failed write is answered to a
// later sample, or at the end of the stream at the latest.
HRESULT CStreamFileWriter::OnWrite(const BYTE* data, LONG length) {
  return m_Behind.Append(data, static_cast<std::size_t>(length));
}

// The completion says the file holds the whole stream.
HRESULT CStreamFileWriter::OnEndOfStream() { return m_Behind.Finish(); }
