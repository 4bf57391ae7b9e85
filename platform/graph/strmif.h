// Media graph interfaces that the source filter implements or calls, with the
// platform's IIDs and method order.
#pragma once

#include "platform/com/guid.h"
#include "platform/com/unknwn.h"
#include "platform/win32/win_types.h"

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
inline constexpr GUID MEDIASUBTYPE_MPEG1AudioPayload =
    MakeGuid(0x00000050, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71);
inline constexpr GUID MEDIASUBTYPE_AVC1 =
    MakeGuid(0x31435641, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71);
inline constexpr GUID MEDIASUBTYPE_AAC_AUDIO =
    MakeGuid(0xAACE71A1, 0x8259, 0x4250, 0x85, 0x83, 0x49, 0x61, 0x3A, 0xF3, 0x1C, 0x93);
inline constexpr GUID MEDIATYPE_Video =
    MakeGuid(0x73646976, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71);
inline constexpr GUID MEDIATYPE_Audio =
    MakeGuid(0x73647561, 0x0000, 0x0010, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71);
inline constexpr GUID FORMAT_MPEG2Video =
    MakeGuid(0xE06D80E3, 0xDB46, 0x11CF, 0xB4, 0xD1, 0x00, 0x80, 0x5F, 0x6C, 0xBB, 0xEA);
inline constexpr GUID FORMAT_WaveFormatEx =
    MakeGuid(0x05589F81, 0xC356, 0x11CE, 0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A);
inline constexpr GUID FORMAT_VideoInfo =
    MakeGuid(0x05589F80, 0xC356, 0x11CE, 0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A);
inline constexpr GUID FORMAT_VideoInfo2 =
    MakeGuid(0xF72A76A0, 0xEB0A, 0x11D0, 0xAC, 0xE4, 0x00, 0x00, 0xC0, 0xCC, 0x16, 0xBA);

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

// ---- Graph interfaces -------------------------------------------------------

struct IBaseFilter;
struct IEnumMediaTypes;
struct IEnumPins;
struct IFilterGraph;
struct IMemAllocator;
struct IReferenceClock;

enum PIN_DIRECTION { PINDIR_INPUT = 0, PINDIR_OUTPUT = 1 };
enum FILTER_STATE { State_Stopped = 0, State_Paused = 1, State_Running = 2 };

struct PIN_INFO {
  IBaseFilter* pFilter;
  PIN_DIRECTION dir;
  WCHAR achName[128];
};

struct FILTER_INFO {
  WCHAR achName[128];
  IFilterGraph* pGraph;
};

struct ALLOCATOR_PROPERTIES {
  LONG cBuffers;
  LONG cbBuffer;
  LONG cbAlign;
  LONG cbPrefix;
};

enum QualityMessageType { Famine = 0, Flood = 1 };
struct Quality {
  QualityMessageType Type;
  LONG Proportion;
  REFERENCE_TIME Late;
  REFERENCE_TIME TimeStamp;
};

using HEVENT = std::uintptr_t;
using HSEMAPHORE = std::uintptr_t;

inline constexpr IID IID_IPin = MakeGuid(0x56A86891, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IEnumPins = MakeGuid(0x56A86892, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IEnumFilters = MakeGuid(0x56A86893, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IReferenceClock = MakeGuid(0x56A86897, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IMediaFilter = MakeGuid(0x56A86899, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IMemAllocator = MakeGuid(0x56A8689C, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IMemInputPin = MakeGuid(0x56A8689D, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IFilterGraph = MakeGuid(0x56A8689F, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IMediaEventSink = MakeGuid(0x56A868A2, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IQualityControl = MakeGuid(0x56A868A5, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IGraphBuilder = MakeGuid(0x56A868A9, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IMediaControl = MakeGuid(0x56A868B1, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IMediaEvent = MakeGuid(0x56A868B6, 0x0AD4, 0x11CE, 0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr IID IID_IEnumMediaTypes = MakeGuid(0x89C31040, 0x846B, 0x11CE, 0x97, 0xD3, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A);
inline constexpr IID IID_IPersist = MakeGuid(0x0000010C, 0x0000, 0x0000, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46);
inline constexpr IID IID_IAMovieSetup = MakeGuid(0xA3D8CEC0, 0x7E5A, 0x11CF, 0xBB, 0xC5, 0x00, 0x80, 0x5F, 0x6C, 0xEF, 0x20);
inline constexpr IID IID_IAMFilterMiscFlags = MakeGuid(0x2DD74950, 0xA890, 0x11D1, 0xAB, 0xE8, 0x00, 0xA0, 0xC9, 0x05, 0xF3, 0x75);
inline constexpr IID IID_IAMStreamSelect = MakeGuid(0xC1960960, 0x17F5, 0x11D1, 0xAB, 0xE1, 0x00, 0xA0, 0xC9, 0x05, 0xF3, 0x75);
inline constexpr IID IID_ISpecifyPropertyPages = MakeGuid(0xB196B28B, 0xBAB4, 0x101A, 0xB6, 0x9C, 0x00, 0xAA, 0x00, 0x34, 0x1D, 0x07);
inline constexpr IID IID_IAMExtendedSeeking = MakeGuid(0xFA2AA8F9, 0x8B62, 0x11D0, 0xA5, 0x20, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00);

inline constexpr GUID TIME_FORMAT_NONE = GUID_NULL;
inline constexpr GUID TIME_FORMAT_FRAME = MakeGuid(0x7B785570, 0x8C82, 0x11CF, 0xBC, 0x0C, 0x00, 0xAA, 0x00, 0xAC, 0x74, 0xF6);
inline constexpr GUID TIME_FORMAT_BYTE = MakeGuid(0x7B785571, 0x8C82, 0x11CF, 0xBC, 0x0C, 0x00, 0xAA, 0x00, 0xAC, 0x74, 0xF6);
inline constexpr GUID TIME_FORMAT_SAMPLE = MakeGuid(0x7B785572, 0x8C82, 0x11CF, 0xBC, 0x0C, 0x00, 0xAA, 0x00, 0xAC, 0x74, 0xF6);
inline constexpr GUID TIME_FORMAT_FIELD = MakeGuid(0x7B785573, 0x8C82, 0x11CF, 0xBC, 0x0C, 0x00, 0xAA, 0x00, 0xAC, 0x74, 0xF6);
inline constexpr GUID TIME_FORMAT_MEDIA_TIME = MakeGuid(0x7B785574, 0x8C82, 0x11CF, 0xBC, 0x0C, 0x00, 0xAA, 0x00, 0xAC, 0x74, 0xF6);

inline constexpr CLSID CLSID_FilterGraph = MakeGuid(0xE436EBB3, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);
inline constexpr CLSID CLSID_SystemClock = MakeGuid(0xE436EBB1, 0x524F, 0x11CE, 0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70);

struct IPin : public IUnknown {
  STDMETHOD(Connect)(IPin* receivePin, const AM_MEDIA_TYPE* type) PURE;
  STDMETHOD(ReceiveConnection)(IPin* connector, const AM_MEDIA_TYPE* type) PURE;
  STDMETHOD(Disconnect)() PURE;
  STDMETHOD(ConnectedTo)(IPin** pin) PURE;
  STDMETHOD(ConnectionMediaType)(AM_MEDIA_TYPE* type) PURE;
  STDMETHOD(QueryPinInfo)(PIN_INFO* info) PURE;
  STDMETHOD(QueryDirection)(PIN_DIRECTION* direction) PURE;
  STDMETHOD(QueryId)(LPWSTR* id) PURE;
  STDMETHOD(QueryAccept)(const AM_MEDIA_TYPE* type) PURE;
  STDMETHOD(EnumMediaTypes)(IEnumMediaTypes** types) PURE;
  STDMETHOD(QueryInternalConnections)(IPin** pins, ULONG* count) PURE;
  STDMETHOD(EndOfStream)() PURE;
  STDMETHOD(BeginFlush)() PURE;
  STDMETHOD(EndFlush)() PURE;
  STDMETHOD(NewSegment)(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) PURE;

 protected:
  ~IPin() = default;
};

struct IEnumPins : public IUnknown {
  STDMETHOD(Next)(ULONG count, IPin** pins, ULONG* fetched) PURE;
  STDMETHOD(Skip)(ULONG count) PURE;
  STDMETHOD(Reset)() PURE;
  STDMETHOD(Clone)(IEnumPins** copy) PURE;

 protected:
  ~IEnumPins() = default;
};

struct IEnumMediaTypes : public IUnknown {
  STDMETHOD(Next)(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) PURE;
  STDMETHOD(Skip)(ULONG count) PURE;
  STDMETHOD(Reset)() PURE;
  STDMETHOD(Clone)(IEnumMediaTypes** copy) PURE;

 protected:
  ~IEnumMediaTypes() = default;
};

struct IPersist : public IUnknown {
  STDMETHOD(GetClassID)(CLSID* clsid) PURE;

 protected:
  ~IPersist() = default;
};

struct IReferenceClock : public IUnknown {
  STDMETHOD(GetTime)(REFERENCE_TIME* time) PURE;
  STDMETHOD(AdviseTime)(REFERENCE_TIME baseTime, REFERENCE_TIME streamTime, HEVENT event, DWORD_PTR* cookie) PURE;
  STDMETHOD(AdvisePeriodic)(REFERENCE_TIME start, REFERENCE_TIME period, HSEMAPHORE semaphore, DWORD_PTR* cookie) PURE;
  STDMETHOD(Unadvise)(DWORD_PTR cookie) PURE;

 protected:
  ~IReferenceClock() = default;
};

struct IMediaFilter : public IPersist {
  STDMETHOD(Stop)() PURE;
  STDMETHOD(Pause)() PURE;
  STDMETHOD(Run)(REFERENCE_TIME start) PURE;
  STDMETHOD(GetState)(DWORD timeoutMs, FILTER_STATE* state) PURE;
  STDMETHOD(SetSyncSource)(IReferenceClock* clock) PURE;
  STDMETHOD(GetSyncSource)(IReferenceClock** clock) PURE;

 protected:
  ~IMediaFilter() = default;
};

struct IBaseFilter : public IMediaFilter {
  STDMETHOD(EnumPins)(IEnumPins** pins) PURE;
  STDMETHOD(FindPin)(LPCWSTR id, IPin** pin) PURE;
  STDMETHOD(QueryFilterInfo)(FILTER_INFO* info) PURE;
  STDMETHOD(JoinFilterGraph)(IFilterGraph* graph, LPCWSTR name) PURE;
  STDMETHOD(QueryVendorInfo)(LPWSTR* vendorInfo) PURE;

 protected:
  ~IBaseFilter() = default;
};

struct IEnumFilters : public IUnknown {
  STDMETHOD(Next)(ULONG count, IBaseFilter** filters, ULONG* fetched) PURE;
  STDMETHOD(Skip)(ULONG count) PURE;
  STDMETHOD(Reset)() PURE;
  STDMETHOD(Clone)(IEnumFilters** copy) PURE;

 protected:
  ~IEnumFilters() = default;
};

struct IFilterGraph : public IUnknown {
  STDMETHOD(AddFilter)(IBaseFilter* filter, LPCWSTR name) PURE;
  STDMETHOD(RemoveFilter)(IBaseFilter* filter) PURE;
  STDMETHOD(EnumFilters)(IEnumFilters** filters) PURE;
  STDMETHOD(FindFilterByName)(LPCWSTR name, IBaseFilter** filter) PURE;
  STDMETHOD(ConnectDirect)(IPin* output, IPin* input, const AM_MEDIA_TYPE* type) PURE;
  STDMETHOD(Reconnect)(IPin* pin) PURE;
  STDMETHOD(Disconnect)(IPin* pin) PURE;
  STDMETHOD(SetDefaultSyncSource)() PURE;

 protected:
  ~IFilterGraph() = default;
};

struct IMemAllocator : public IUnknown {
  STDMETHOD(SetProperties)(ALLOCATOR_PROPERTIES* request, ALLOCATOR_PROPERTIES* actual) PURE;
  STDMETHOD(GetProperties)(ALLOCATOR_PROPERTIES* properties) PURE;
  STDMETHOD(Commit)() PURE;
  STDMETHOD(Decommit)() PURE;
  STDMETHOD(GetBuffer)(IMediaSample** sample, REFERENCE_TIME* start, REFERENCE_TIME* end, DWORD flags) PURE;
  STDMETHOD(ReleaseBuffer)(IMediaSample* sample) PURE;

 protected:
  ~IMemAllocator() = default;
};

struct IMemInputPin : public IUnknown {
  STDMETHOD(GetAllocator)(IMemAllocator** allocator) PURE;
  STDMETHOD(NotifyAllocator)(IMemAllocator* allocator, BOOL readOnly) PURE;
  STDMETHOD(GetAllocatorRequirements)(ALLOCATOR_PROPERTIES* properties) PURE;
  STDMETHOD(Receive)(IMediaSample* sample) PURE;
  STDMETHOD(ReceiveMultiple)(IMediaSample** samples, LONG count, LONG* processed) PURE;
  STDMETHOD(ReceiveCanBlock)() PURE;

 protected:
  ~IMemInputPin() = default;
};

struct IMediaSeeking : public IUnknown {
  STDMETHOD(GetCapabilities)(DWORD* capabilities) PURE;
  STDMETHOD(CheckCapabilities)(DWORD* capabilities) PURE;
  STDMETHOD(IsFormatSupported)(const GUID* format) PURE;
  STDMETHOD(QueryPreferredFormat)(GUID* format) PURE;
  STDMETHOD(GetTimeFormat)(GUID* format) PURE;
  STDMETHOD(IsUsingTimeFormat)(const GUID* format) PURE;
  STDMETHOD(SetTimeFormat)(const GUID* format) PURE;
  STDMETHOD(GetDuration)(LONGLONG* duration) PURE;
  STDMETHOD(GetStopPosition)(LONGLONG* stop) PURE;
  STDMETHOD(GetCurrentPosition)(LONGLONG* current) PURE;
  STDMETHOD(ConvertTimeFormat)(LONGLONG* target, const GUID* targetFormat, LONGLONG source,
                               const GUID* sourceFormat) PURE;
  STDMETHOD(SetPositions)(LONGLONG* current, DWORD currentFlags, LONGLONG* stop, DWORD stopFlags) PURE;
  STDMETHOD(GetPositions)(LONGLONG* current, LONGLONG* stop) PURE;
  STDMETHOD(GetAvailable)(LONGLONG* earliest, LONGLONG* latest) PURE;
  STDMETHOD(SetRate)(double rate) PURE;
  STDMETHOD(GetRate)(double* rate) PURE;
  STDMETHOD(GetPreroll)(LONGLONG* preroll) PURE;

 protected:
  ~IMediaSeeking() = default;
};

// Seeking capabilities and positioning flags.
inline constexpr DWORD AM_SEEKING_CanSeekAbsolute = 0x1;
inline constexpr DWORD AM_SEEKING_CanSeekForwards = 0x2;
inline constexpr DWORD AM_SEEKING_CanSeekBackwards = 0x4;
inline constexpr DWORD AM_SEEKING_CanGetCurrentPos = 0x8;
inline constexpr DWORD AM_SEEKING_CanGetStopPos = 0x10;
inline constexpr DWORD AM_SEEKING_CanGetDuration = 0x20;
inline constexpr DWORD AM_SEEKING_CanPlayBackwards = 0x40;
inline constexpr DWORD AM_SEEKING_CanDoSegments = 0x80;
inline constexpr DWORD AM_SEEKING_Source = 0x100;
inline constexpr DWORD AM_SEEKING_NoPositioning = 0x0;
inline constexpr DWORD AM_SEEKING_AbsolutePositioning = 0x1;
inline constexpr DWORD AM_SEEKING_RelativePositioning = 0x2;
inline constexpr DWORD AM_SEEKING_IncrementalPositioning = 0x3;
inline constexpr DWORD AM_SEEKING_PositioningBitsMask = 0x3;
inline constexpr DWORD AM_SEEKING_SeekToKeyFrame = 0x4;
inline constexpr DWORD AM_SEEKING_ReturnTime = 0x8;
inline constexpr DWORD AM_SEEKING_Segment = 0x10;
inline constexpr DWORD AM_SEEKING_NoFlush = 0x20;

struct IQualityControl : public IUnknown {
  STDMETHOD(Notify)(IBaseFilter* self, Quality quality) PURE;
  STDMETHOD(SetSink)(IQualityControl* sink) PURE;

 protected:
  ~IQualityControl() = default;
};

struct IMediaEventSink : public IUnknown {
  STDMETHOD(Notify)(LONG eventCode, LONG_PTR param1, LONG_PTR param2) PURE;

 protected:
  ~IMediaEventSink() = default;
};

// Event codes.
inline constexpr LONG EC_COMPLETE = 0x01;
inline constexpr LONG EC_USERABORT = 0x02;
inline constexpr LONG EC_ERRORABORT = 0x03;

struct IAMovieSetup : public IUnknown {
  STDMETHOD(Register)() PURE;
  STDMETHOD(Unregister)() PURE;

 protected:
  ~IAMovieSetup() = default;
};

struct IAMFilterMiscFlags : public IUnknown {
  STDMETHOD_(ULONG, GetMiscFlags)() PURE;

 protected:
  ~IAMFilterMiscFlags() = default;
};
inline constexpr ULONG AM_FILTER_MISC_FLAGS_IS_RENDERER = 0x1;
inline constexpr ULONG AM_FILTER_MISC_FLAGS_IS_SOURCE = 0x2;

using LCID = DWORD;
struct IAMStreamSelect : public IUnknown {
  STDMETHOD(Count)(DWORD* streams) PURE;
  STDMETHOD(Info)(LONG index, AM_MEDIA_TYPE** type, DWORD* flags, LCID* lcid, DWORD* group, LPWSTR* name,
                  IUnknown** object, IUnknown** unknown) PURE;
  STDMETHOD(Enable)(LONG index, DWORD flags) PURE;

 protected:
  ~IAMStreamSelect() = default;
};
inline constexpr DWORD AMSTREAMSELECTINFO_ENABLED = 0x1;
inline constexpr DWORD AMSTREAMSELECTINFO_EXCLUSIVE = 0x2;
inline constexpr DWORD AMSTREAMSELECTENABLE_ENABLE = 0x1;
inline constexpr DWORD AMSTREAMSELECTENABLE_ENABLEALL = 0x2;

struct CAUUID {
  ULONG cElems;
  GUID* pElems;
};
struct ISpecifyPropertyPages : public IUnknown {
  STDMETHOD(GetPages)(CAUUID* pages) PURE;

 protected:
  ~ISpecifyPropertyPages() = default;
};

// Result codes of the media graph.
inline constexpr HRESULT VFW_S_NO_MORE_ITEMS = MakeHResult(0x00040103u);
inline constexpr HRESULT VFW_E_INVALIDMEDIATYPE = MakeHResult(0x80040200u);
inline constexpr HRESULT VFW_E_NEED_OWNER = MakeHResult(0x80040203u);
inline constexpr HRESULT VFW_E_ALREADY_CONNECTED = MakeHResult(0x80040204u);
inline constexpr HRESULT VFW_E_NO_ACCEPTABLE_TYPES = MakeHResult(0x80040207u);
inline constexpr HRESULT VFW_E_INVALID_DIRECTION = MakeHResult(0x80040208u);
inline constexpr HRESULT VFW_E_NOT_CONNECTED = MakeHResult(0x80040209u);
inline constexpr HRESULT VFW_E_NO_ALLOCATOR = MakeHResult(0x8004020Au);
inline constexpr HRESULT VFW_E_RUNTIME_ERROR = MakeHResult(0x8004020Bu);
inline constexpr HRESULT VFW_E_ALREADY_COMMITTED = MakeHResult(0x8004020Fu);
inline constexpr HRESULT VFW_E_BUFFERS_OUTSTANDING = MakeHResult(0x80040210u);
inline constexpr HRESULT VFW_E_NOT_COMMITTED = MakeHResult(0x80040211u);
inline constexpr HRESULT VFW_E_SIZENOTSET = MakeHResult(0x80040212u);
inline constexpr HRESULT VFW_E_NO_CLOCK = MakeHResult(0x80040213u);
inline constexpr HRESULT VFW_E_WRONG_STATE = MakeHResult(0x80040227u);
inline constexpr HRESULT VFW_E_TYPE_NOT_ACCEPTED = MakeHResult(0x8004022Au);
inline constexpr HRESULT VFW_E_NOT_STOPPED = MakeHResult(0x80040224u);
inline constexpr HRESULT VFW_E_DUPLICATE_NAME = MakeHResult(0x8004022Du);
inline constexpr HRESULT VFW_E_TIMEOUT = MakeHResult(0x8004022Eu);
inline constexpr HRESULT VFW_E_NOT_FOUND = MakeHResult(0x80040216u);
inline constexpr HRESULT VFW_S_STATE_INTERMEDIATE = MakeHResult(0x00040237u);

inline constexpr HRESULT VFW_E_SAMPLE_TIME_NOT_SET = MakeHResult(0x80040249u);
inline constexpr HRESULT VFW_E_MEDIA_TIME_NOT_SET = MakeHResult(0x80040251u);
inline constexpr HRESULT VFW_E_BUFFER_OVERFLOW = MakeHResult(0x8004020Du);

// ---- Graph building and file sinks ------------------------------------------

inline constexpr IID IID_IFileSinkFilter =
    MakeGuid(0xA2104830, 0x7C70, 0x11CF, 0x8B, 0xCE, 0x00, 0xAA, 0x00, 0xA3, 0xF1, 0xA6);

// Filter names are at most this many characters, the zero included.
inline constexpr std::size_t MAX_FILTER_NAME = 128;
inline constexpr std::size_t MAX_PIN_NAME = 128;

inline constexpr HRESULT VFW_S_DUPLICATE_NAME = MakeHResult(0x0004022Du);
inline constexpr HRESULT VFW_E_NOT_IN_GRAPH = MakeHResult(0x8004025Fu);
inline constexpr HRESULT VFW_E_CANNOT_CONNECT = MakeHResult(0x80040217u);
inline constexpr HRESULT VFW_E_CANNOT_RENDER = MakeHResult(0x80040218u);
inline constexpr HRESULT VFW_E_UNKNOWN_FILE_TYPE = MakeHResult(0x80040240u);
inline constexpr HRESULT VFW_S_PARTIAL_RENDER = MakeHResult(0x00040242u);

struct IGraphBuilder : public IFilterGraph {
  STDMETHOD(Connect)(IPin* output, IPin* input) PURE;
  STDMETHOD(Render)(IPin* output) PURE;
  STDMETHOD(RenderFile)(LPCWSTR file, LPCWSTR playList) PURE;
  STDMETHOD(AddSourceFilter)(LPCWSTR fileName, LPCWSTR filterName, IBaseFilter** filter) PURE;
  STDMETHOD(SetLogFile)(DWORD_PTR file) PURE;
  STDMETHOD(Abort)() PURE;
  STDMETHOD(ShouldOperationContinue)() PURE;

 protected:
  ~IGraphBuilder() = default;
};

struct IFileSinkFilter : public IUnknown {
  STDMETHOD(SetFileName)(LPCWSTR fileName, const AM_MEDIA_TYPE* type) PURE;
  STDMETHOD(GetCurFile)(LPWSTR* fileName, AM_MEDIA_TYPE* type) PURE;

 protected:
  ~IFileSinkFilter() = default;
};
