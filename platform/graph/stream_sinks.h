// The platform's two sinks: a null renderer that takes samples and drops
// them, and a stream file writer that appends every sample's bytes to a file.
// Both count what they receive, end the graph's playback through
// EC_COMPLETE, and are made with CoCreateInstance from the module Sinks.ax.
// This header is what a program needs of them: class ids and interfaces.
//
// Each is a renderer (IAMFilterMiscFlags) with one input pin "In" (IPin,
// IMemInputPin) that accepts MEDIATYPE_Stream, MEDIATYPE_Video and
// MEDIATYPE_Audio of any subtype (what a demultiplexer gives), or any type
// once SetAcceptAnyType is on. The pin has no allocator of its own, so the
// upstream pin brings one. Samples are taken while paused or running: these
// sinks render nothing in time, so they do not wait for Run. Counts start
// again at each pause out of stopped and stay readable after Stop.
//
// The writer takes its file through IFileSinkFilter; it creates (or
// truncates) the file at the pause out of stopped and closes it at Stop,
// once what it took is written. It writes behind the samples, on a thread
// of its own, so a failed write is answered to a later sample or to the end
// of the stream at the latest, and reported once as EC_ERRORABORT with the
// error; the samples after it get the same answer until the next stop, and
// no EC_COMPLETE follows. The end of the stream waits until the file holds
// every byte taken.
#pragma once

#include "platform/com/guid.h"
#include "platform/graph/strmif.h"
#include "platform/com/unknwn.h"

inline constexpr CLSID CLSID_NullRenderer =
    {0xD4B0C261, 0xC86F, 0x44D5, {0xA0, 0xDD, 0x91, 0xBC, 0x41, 0xF3, 0xA3, 0x5D}};
inline constexpr CLSID CLSID_StreamFileWriter =
    {0xABBB9805, 0x986B, 0x48F0, {0x8C, 0x40, 0x24, 0x3F, 0x05, 0x45, 0x7D, 0x04}};
inline constexpr IID IID_IStreamSinkControl =
    {0x06B4113B, 0xEAF7, 0x4229, {0xBB, 0xC6, 0x89, 0xF4, 0x9E, 0xFA, 0x83, 0xD6}};

// Settings and counts of a sink; any thread may call.
struct IStreamSinkControl : public IUnknown {
  // For connections made from now on.
  STDMETHOD(SetAcceptAnyType)(BOOL acceptAny) PURE;
  // Samples taken and their bytes (GetActualDataLength), end-of-stream
  // calls, samples marked as discontinuities, and new segments. Any pointer
  // may be null.
  STDMETHOD(GetCounts)(LONGLONG* samples, LONGLONG* bytes, LONG* endOfStreams,
                       LONG* discontinuities, LONG* newSegments) PURE;
  // S_FALSE, with zeros, before the first NewSegment.
  STDMETHOD(GetLastNewSegment)(REFERENCE_TIME* start, REFERENCE_TIME* stop, double* rate) PURE;
  // Each sample is held this long before it is taken, to play a slow
  // consumer; a stop or a flush cuts the wait short. 0 turns it off.
  STDMETHOD(SetSampleDelay)(DWORD microseconds) PURE;

 protected:
  ~IStreamSinkControl() = default;
};

