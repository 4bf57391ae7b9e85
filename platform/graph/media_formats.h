// Format block structures of the media platform, with their published
// layouts: the MPEG-2 video info and the MPEG-1 wave format.
#pragma once

#include <cstddef>

#include "platform/win32/win_types.h"

struct BITMAPINFOHEADER {
  DWORD biSize;
  LONG biWidth;
  LONG biHeight;
  WORD biPlanes;
  WORD biBitCount;
  DWORD biCompression;
  DWORD biSizeImage;
  LONG biXPelsPerMeter;
  LONG biYPelsPerMeter;
  DWORD biClrUsed;
  DWORD biClrImportant;
};

struct VIDEOINFOHEADER2 {
  RECT rcSource;
  RECT rcTarget;
  DWORD dwBitRate;
  DWORD dwBitErrorRate;
  REFERENCE_TIME AvgTimePerFrame;
  DWORD dwInterlaceFlags;
  DWORD dwCopyProtectFlags;
  DWORD dwPictAspectRatioX;
  DWORD dwPictAspectRatioY;
  union {
    DWORD dwControlFlags;
    DWORD dwReserved1;
  };
  DWORD dwReserved2;
  BITMAPINFOHEADER bmiHeader;
};

struct MPEG2VIDEOINFO {
  VIDEOINFOHEADER2 hdr;
  DWORD dwStartTimeCode;
  DWORD cbSequenceHeader;
  DWORD dwProfile;
  DWORD dwLevel;
  DWORD dwFlags;
  DWORD dwSequenceHeader[1];  // cbSequenceHeader bytes start here
};

#pragma pack(push, 1)
struct WAVEFORMATEX {
  WORD wFormatTag;
  WORD nChannels;
  DWORD nSamplesPerSec;
  DWORD nAvgBytesPerSec;
  WORD nBlockAlign;
  WORD wBitsPerSample;
  WORD cbSize;
};

struct MPEG1WAVEFORMAT {
  WAVEFORMATEX wfx;
  WORD fwHeadLayer;
  DWORD dwHeadBitrate;
  WORD fwHeadMode;
  WORD fwHeadModeExt;
  WORD wHeadEmphasis;
  WORD fwHeadFlags;
  DWORD dwPTSLow;
  DWORD dwPTSHigh;
};
#pragma pack(pop)

// Size of a MPEG2VIDEOINFO whose sequence header holds `bytes` bytes.
constexpr std::size_t SizeOfMpeg2VideoInfo(std::size_t bytes) {
  return offsetof(MPEG2VIDEOINFO, dwSequenceHeader) + bytes;
}

static_assert(sizeof(BITMAPINFOHEADER) == 40);
static_assert(sizeof(VIDEOINFOHEADER2) == 112);
static_assert(offsetof(MPEG2VIDEOINFO, dwSequenceHeader) == 132);
static_assert(sizeof(WAVEFORMATEX) == 18);
static_assert(sizeof(MPEG1WAVEFORMAT) == 40);
