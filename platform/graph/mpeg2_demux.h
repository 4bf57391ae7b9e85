// Interfaces of the platform's MPEG-2 demultiplexer: output pins made on
// request, and the PID map of each pin.
#pragma once

#include "platform/graph/strmif.h"

inline constexpr IID IID_IMpeg2Demultiplexer =
    MakeGuid(0x436EEE9C, 0x264F, 0x4242, 0x90, 0xE1, 0x4E, 0x33, 0x0C, 0x10, 0x75, 0x12);
inline constexpr IID IID_IMPEG2PIDMap =
    MakeGuid(0xAFB6C2A1, 0x2C41, 0x11D3, 0x8A, 0x60, 0x00, 0x00, 0xF8, 0x1E, 0x0E, 0x4A);
inline constexpr IID IID_IEnumPIDMap =
    MakeGuid(0xAFB6C2A2, 0x2C41, 0x11D3, 0x8A, 0x60, 0x00, 0x00, 0xF8, 0x1E, 0x0E, 0x4A);
inline constexpr CLSID CLSID_MPEG2Demultiplexer =
    MakeGuid(0xAFB6C280, 0x2C41, 0x11D3, 0x8A, 0x60, 0x00, 0x00, 0xF8, 0x1E, 0x0E, 0x4A);

enum MEDIA_SAMPLE_CONTENT {
  MEDIA_TRANSPORT_PACKET = 0,
  MEDIA_ELEMENTARY_STREAM = 1,
  MEDIA_MPEG2_PSI = 2,
  MEDIA_TRANSPORT_PAYLOAD = 3,
};

struct PID_MAP {
  ULONG ulPID;
  MEDIA_SAMPLE_CONTENT MediaSampleContent;
};

struct IEnumPIDMap : public IUnknown {
  STDMETHOD(Next)(ULONG request, PID_MAP* map, ULONG* received) PURE;
  STDMETHOD(Skip)(ULONG records) PURE;
  STDMETHOD(Reset)() PURE;
  STDMETHOD(Clone)(IEnumPIDMap** copy) PURE;

 protected:
  ~IEnumPIDMap() = default;
};

struct IMPEG2PIDMap : public IUnknown {
  STDMETHOD(MapPID)(ULONG count, ULONG* pids, MEDIA_SAMPLE_CONTENT content) PURE;
  STDMETHOD(UnmapPID)(ULONG count, ULONG* pids) PURE;
  STDMETHOD(EnumPIDMap)(IEnumPIDMap** map) PURE;

 protected:
  ~IMPEG2PIDMap() = default;
};

struct IMpeg2Demultiplexer : public IUnknown {
  STDMETHOD(CreateOutputPin)(AM_MEDIA_TYPE* type, LPWSTR pinName, IPin** pin) PURE;
  STDMETHOD(SetOutputPinMediaType)(LPWSTR pinName, AM_MEDIA_TYPE* type) PURE;
  STDMETHOD(DeleteOutputPin)(LPWSTR pinName) PURE;

 protected:
  ~IMpeg2Demultiplexer() = default;
};
