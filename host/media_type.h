// An AM_MEDIA_TYPE that owns its format block, with value semantics.
#pragma once

#include <vector>

#include "platform/graph/strmif.h"

class CMediaType {
 public:
  CMediaType();
  explicit CMediaType(const AM_MEDIA_TYPE& type);
  CMediaType(const CMediaType& other);
  CMediaType& operator=(const CMediaType& other);
  ~CMediaType() = default;

  const AM_MEDIA_TYPE& Type() const { return m_Type; }
  void SetMajorType(REFGUID major) { m_Type.majortype = major; }
  void SetSubtype(REFGUID sub) { m_Type.subtype = sub; }
  void SetFixedSizeSamples(bool fixed) { m_Type.bFixedSizeSamples = fixed ? TRUE : FALSE; }
  void SetSampleSize(ULONG size) { m_Type.lSampleSize = size; }
  void SetFormat(REFGUID formatType, const BYTE* block, ULONG length);
  // Copies into a caller's structure; the format block is allocated with
  // CoTaskMemAlloc for the caller to free (FreeMediaType).
  HRESULT CopyTo(AM_MEDIA_TYPE* out) const;

 private:
  void Adopt(const AM_MEDIA_TYPE& type);
  AM_MEDIA_TYPE m_Type;
  std::vector<BYTE> m_Format;
};

// Frees the format block of a type filled by CopyTo.
void FreeMediaType(AM_MEDIA_TYPE& type);
