// Media graph interfaces that the source filter implements or calls, with the
// platform's IIDs and method order.
#pragma once

#include "platform/guid.h"
#include "platform/unknwn.h"
#include "platform/win_types.h"

struct AM_MEDIA_TYPE {
  GUID majortype;
  GUID subtype;
  BOOL bFixedSizeSamples;
  BOOL bTemporalCompression;
  ULONG lSampleSize;
  GUID formattype;
  IUnknown* pUnk;
  ULONG cbFormat;
  BYTE* pbFormat;
};

inline constexpr IID IID_IMediaSample =
    MakeGuid(0x56A8689A, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IFileSourceFilter =
    MakeGuid(0x56A868A6, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IMediaSeeking =
    MakeGuid(0x36B73880, 0xC2C8, 0x11CF, 0x8B, 0x46, 0x00, 0x80, 0x5F, 0x6C, 0xEF, 0x60);
inline constexpr IID IID_IBaseFilter =
    MakeGuid(0x56A86895, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);

inline constexpr GUID MEDIATYPE_Stream =
    MakeGuid(0xE436EB83, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr GUID MEDIASUBTYPE_MPEG2_TRANSPORT =
    MakeGuid(0xE06D8023, 0xDB46, 0x11CF, 0xB4, 0xD1, 0x00, 0x80, 0x5F, 0x6C, 0xBB, 0xEA);
inline constexpr GUID MEDIASUBTYPE_MPEG2_VIDEO =
    MakeGuid(0xE06D8026, 0xDB46, 0x11CF, 0xB4, 0xD1, 0x00, 0x80, 0x5F, 0x6C, 0xBB, 0xEA);
inline constexpr GUID MEDIASUBTYPE_DOLBY_AC3 =
    MakeGuid(0xE06D802C, 0xDB46, 0x11CF, 0xB4, 0xD1, 0x00, 0x80, 0x5F, 0x6C, 0xBB, 0xEA);
inline constexpr GUID MEDIATYPE_Video =
    MakeGuid(0x73646976, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71);
inline constexpr GUID MEDIATYPE_Audio =
    MakeGuid(0x73647561, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71);
inline constexpr GUID FORMAT_MPEG2Video =
    MakeGuid(0xE06D80E3, 0xDB46, 0x11CF, 0xB4, 0xD1, 0x00, 0x80, 0x5F, 0x6C, 0xBB, 0xEA);
inline constexpr GUID FORMAT_WaveFormatEx =
    MakeGuid(0x05589F81, 0xC356, 0x11CE, 0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A);

struct IMediaSample : public IUnknown {
  STDMETHOD(GetPointer)(BYTE** buffer) PURE;
  STDMETHOD_(LONG, GetSize)() PURE;
  STDMETHOD(GetTime)(REFERENCE_TIME* start, REFERENCE_TIME* end) PURE;
  STDMETHOD(SetTime)(REFERENCE_TIME* start, REFERENCE_TIME* end) PURE;
  STDMETHOD(IsSyncPoint)() PURE;
  STDMETHOD(SetSyncPoint)(BOOL isSyncPoint) PURE;
  STDMETHOD(IsPreroll)() PURE;
  STDMETHOD(SetPreroll)(BOOL isPreroll) PURE;
  STDMETHOD_(LONG, GetActualDataLength)() PURE;
  STDMETHOD(SetActualDataLength)(LONG length) PURE;
  STDMETHOD(GetMediaType)(AM_MEDIA_TYPE** type) PURE;
  STDMETHOD(SetMediaType)(AM_MEDIA_TYPE* type) PURE;
  STDMETHOD(IsDiscontinuity)() PURE;
  STDMETHOD(SetDiscontinuity)(BOOL isDiscontinuity) PURE;
  STDMETHOD(GetMediaTime)(LONGLONG* start, LONGLONG* end) PURE;
  STDMETHOD(SetMediaTime)(LONGLONG* start, LONGLONG* end) PURE;

 protected:
  ~IMediaSample() = default;
};

struct IFileSourceFilter : public IUnknown {
  STDMETHOD(Load)(LPCWSTR fileName, const AM_MEDIA_TYPE* type) PURE;
  STDMETHOD(GetCurFile)(LPWSTR* fileName, AM_MEDIA_TYPE* type) PURE;

 protected:
  ~IFileSourceFilter() = default;
};

inline constexpr HRESULT VFW_E_SAMPLE_TIME_NOT_SET = MakeHResult(0x80040249u);
inline constexpr HRESULT VFW_E_MEDIA_TIME_NOT_SET = MakeHResult(0x80040251u);
inline constexpr HRESULT VFW_E_BUFFER_OVERFLOW = MakeHResult(0x8004020Du);
