#include "host/media_type.h"

#include <cstring>

#include "platform/com/com_memory.h"

CMediaType::CMediaType() : m_Type{} {}

CMediaType::CMediaType(const AM_MEDIA_TYPE& type) : m_Type{} { Adopt(type); }

CMediaType::CMediaType(const CMediaType& other) : m_Type{} { Adopt(other.m_Type); }

CMediaType& CMediaType::operator=(const CMediaType& other) {
  if (this != &other) Adopt(other.m_Type);
  return *this;
}

void CMediaType::Adopt(const AM_MEDIA_TYPE& type) {
  m_Type = type;
  m_Type.pUnk = nullptr;  // no format object is ever shared here
  if (type.pbFormat != nullptr && type.cbFormat > 0) {
    m_Format.assign(type.pbFormat, type.pbFormat + type.cbFormat);
  } else {
    m_Format.clear();
  }
  m_Type.cbFormat = static_cast<ULONG>(m_Format.size());
  m_Type.pbFormat = m_Format.empty() ? nullptr : m_Format.data();
}

void CMediaType::SetFormat(REFGUID formatType, const BYTE* block, ULONG length) {
  m_Type.formattype = formatType;
  if (block != nullptr && length > 0) {
    m_Format.assign(block, block + length);
  } else {
    m_Format.clear();
  }
  m_Type.cbFormat = static_cast<ULONG>(m_Format.size());
  m_Type.pbFormat = m_Format.empty() ? nullptr : m_Format.data();
}

HRESULT CMediaType::CopyTo(AM_MEDIA_TYPE* out) const {
  if (out == nullptr) return E_POINTER;
  *out = m_Type;
  out->pbFormat = nullptr;
  out->cbFormat = 0;
  if (!m_Format.empty()) {
    auto* block = static_cast<BYTE*>(CoTaskMemAlloc(m_Format.size()));
    if (block == nullptr) return E_OUTOFMEMORY;
    std::memcpy(block, m_Format.data(), m_Format.size());
    out->pbFormat = block;
    out->cbFormat = static_cast<ULONG>(m_Format.size());
  }
  return S_OK;
}

void FreeMediaType(AM_MEDIA_TYPE& type) {
  CoTaskMemFree(type.pbFormat);
  type.pbFormat = nullptr;
  type.cbFormat = 0;
  if (type.pUnk != nullptr) {
    type.pUnk->Release();
    type.pUnk = nullptr;
  }
}
