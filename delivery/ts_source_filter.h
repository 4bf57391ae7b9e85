// CTsSourceFilter: the one COM object that holds an opened transport stream
// file, the findings of its scan and the output pin.
//
// Lock order: state lock, then filter lock, for wiring; pin lock, then filter
// lock, for delivery and seeking. Load holds the filter lock and takes the
// pin lock and the state lock inside it, which is safe because no worker
// exists during Load and the host loads, connects and sets clocks from one
// thread at a time. The filter lock guards every field below unless a
// comment says otherwise. No client operation ever waits for the pin lock
// or the state lock, so a client can hold the filter lock while the worker
// waits for it, never the other way round.
//
// What each operation a client may call during playback takes, on every
// path (the pin's own operations are listed in ts_output_pin.h):
//
//   QueryText               filter lock for the whole call after the
//                           argument test. Inside it: GetPmtPid ("PMTPID")
//                           and GetStreamSize ("MAXPACKET", "MEDIALEN" in
//                           byte format) take the filter lock again; the
//                           H.264 log takes its own lock, which nests
//                           nothing; every pin value ("VIDEOPTS",
//                           "CURPACKET", "MEDIALEN") and the run-time
//                           PrefDemux and notify window are atomics, read
//                           or written with no lock.
//   ITsStreamInfo 1 to 10   filter lock, nothing inside.
//   ITsScanReport getters   filter lock, nothing inside.
//   IAMStreamSelect Count   no lock (the track count is fixed by Load).
//   IAMStreamSelect Info    filter lock; task memory inside.
//   IAMStreamSelect Enable  no lock for its tests and for the message box;
//                           the filter lock for a switch, inside which the
//                           demultiplexer's PID maps take its own locks,
//                           which never call back here.
//   GetPages                filter lock; task memory inside.
//
// The host's operations: JoinFilterGraph takes the state lock in the base,
// then the filter lock; SetSyncSource and Load take the filter lock, then
// the state lock; QueryVendorInfo and GetCurFile the filter lock; Pause and
// Stop the state lock, then the pin's worker sequence (host/source.h). With
// a stream buffer sink, Pause and Stop first run the conversion's steps with
// no lock held (Pause copies the file name under the filter lock), and
// SetSinkFilter takes no lock.
#pragma once

#include <atomic>
#include <memory>

#include "analysis/audio_track.h"
#include "analysis/pat_parser.h"
#include "analysis/pmt_parser.h"
#include "analysis/program_table.h"
#include "analysis/sdt_parser.h"
#include "analysis/track_selection.h"
#include "analysis/video_header.h"
#include "analysis/packet_engine.h"
#include "analysis/packet_file.h"
#include "analysis/pid_census.h"
#include "control/brindlet_ids.h"
#include "control/conversion_sink.h"
#include "control/scan_report.h"
#include "control/text_query.h"
#include "control/ts_stream_info.h"
#include "conversion/recording_conversion.h"
#include "delivery/ts_output_pin.h"
#include "host/critical_section.h"
#include "host/media_type.h"
#include "host/source.h"
#include "platform/graph/strmif.h"


// Divisor of the first duration estimate: bytes per second of a typical
// broadcast stream.
inline constexpr std::uint64_t kEstimateBytesPerSecond = 2401587;
inline constexpr wchar_t kDefaultFileName[] = L"default.ts";

inline constexpr CLSID CLSID_NvidiaHdtvDemux =
    {0x735823C1, 0xACC4, 0x11D3, {0x85, 0xAC, 0x00, 0x60, 0x08, 0x37, 0x6F, 0xB8}};
inline constexpr char kVendorInfo[] = "1.2.0.0";

class CTsSourceFilter : public CSource,
                        public IFileSourceFilter,
                        public IAMFilterMiscFlags,
                        public IAMStreamSelect,
                        public ISpecifyPropertyPages,
                        public ITsStreamInfo,
                        public ITsScanReport,
                        public ITsConversionSink,
                        private CPacketEngineHost,
                        private CTextQueryFacts {
 public:
  // The factory function of the class table. `result` may be null.
  static CUnknown* CreateInstance(IUnknown* outer, HRESULT* result);

  CTsSourceFilter(IUnknown* outer, HRESULT* result);
  ~CTsSourceFilter() override;

  DECLARE_IUNKNOWN
  STDMETHODIMP NonDelegatingQueryInterface(REFIID riid, void** ppv) override;

  // IBaseFilter, where the filter adds to the base
  STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;
  STDMETHODIMP QueryVendorInfo(LPWSTR* vendorInfo) override;
  STDMETHODIMP SetSyncSource(IReferenceClock* clock) override;
  STDMETHODIMP Stop() override;
  STDMETHODIMP Pause() override;

  // IAMFilterMiscFlags
  STDMETHODIMP_(ULONG) GetMiscFlags() override;

  // IAMStreamSelect
  STDMETHODIMP Count(DWORD* streams) override;
  STDMETHODIMP Info(LONG index, AM_MEDIA_TYPE** type, DWORD* flags, LCID* lcid, DWORD* group, LPWSTR* name,
                    IUnknown** object, IUnknown** unknown) override;
  STDMETHODIMP Enable(LONG index, DWORD flags) override;

  // ISpecifyPropertyPages
  STDMETHODIMP GetPages(CAUUID* pages) override;

  // IFileSourceFilter
  STDMETHODIMP Load(LPCWSTR fileName, const AM_MEDIA_TYPE* type) override;
  STDMETHODIMP GetCurFile(LPWSTR* fileName, AM_MEDIA_TYPE* type) override;

  // ITsStreamInfo
  STDMETHODIMP GetTransportStreamId(WORD* id) override;
  STDMETHODIMP GetPatVersion(BYTE* version) override;
  STDMETHODIMP GetProgramCount(DWORD* count) override;
  STDMETHODIMP GetProgramNumber(LONG index, WORD* number) override;
  STDMETHODIMP GetPmtPidByIndex(LONG index, WORD* pid) override;
  STDMETHODIMP GetPmtPid(WORD programNumber, WORD* pid) override;
  STDMETHODIMP GetPmtVersion(WORD programNumber, BYTE* version) override;
  STDMETHODIMP GetStreamCount(WORD programNumber, WORD* count) override;
  STDMETHODIMP GetStreamType(WORD programNumber, DWORD streamIndex, BYTE* type) override;
  STDMETHODIMP GetStreamPid(WORD programNumber, DWORD streamIndex, WORD* pid) override;
  STDMETHODIMP QueryText(LPCWSTR keyword, LPWSTR* text) override;

  // ITsScanReport
  STDMETHODIMP GetVideo(WORD* pid, WORD* streamType) override;
  STDMETHODIMP GetAudioTrackCount(WORD* count, WORD* selected) override;
  STDMETHODIMP GetAudioTrack(WORD index, WORD* pid, WORD* kind, WORD* streamType, LPSTR language,
                             DWORD size) override;
  STDMETHODIMP GetStreamLanguage(WORD programNumber, DWORD streamIndex, LPSTR language,
                                 DWORD size) override;
  STDMETHODIMP GetScanFlags(DWORD* ready, DWORD* noPmt, WORD* selectedProgram) override;
  STDMETHODIMP GetDuration(LONGLONG* duration) override;

  // ITsConversionSink
  STDMETHODIMP SetSinkFilter(IUnknown* sink) override;

  // The pin that Load made; null before.
  CTsOutputPin* OutputPin() const { return m_OutputPin.get(); }
  CCritSec& FilterLock() { return m_FilterLock; }

  // For the pin and the seeking object.
  std::uint32_t PrefDemuxValue() const { return m_PrefDemux; }
  bool FastSeekingOn() const { return m_FastSeeking != 0; }
  std::uint64_t FileSizeBytes();
  std::uint64_t StreamBytes() { return GetStreamSize(); }
  void SetStreamLimit(std::uint64_t bytes);
  bool HoldsDemux();
  // Makes the demultiplexer's pins and maps the chosen PIDs; keeps the
  // reference to `peer` once the pins stand.
  HRESULT WireDemux(IBaseFilter* peer);
  // Maps the video PID and `track`'s PID on the demultiplexer's pins.
  HRESULT MapPids(const AudioTrack* track, std::uint16_t videoPid);
  void ReleaseDemux();
  HRESULT RegisterFilterInRot();
  void RevokeFilterFromRot();

  // Internal operations of the object.
  HRESULT AddFilterByClass(REFCLSID clsid, IBaseFilter** filterOut, LPCWSTR name);
  HRESULT RegisterInRot(IUnknown* object, DWORD* cookieOut, bool isGraph);
  void RevokeFromRot(DWORD cookie);

 private:
  friend class CTsSourceFilterProbe;  // tests look at the findings directly

  void ChooseClock();
  void RunScan(std::uint64_t streamSize);
  void RunPass(std::uint32_t calls);
  void MeasureDuration(std::uint64_t streamSize);
  void ServiceNameStep(PacketSpan packet);
  const ProgramEntry* FindProgram(std::uint32_t programNumber) const;

  // CPacketEngineHost
  std::uint64_t GetStreamSize() override;
  HRESULT ReadPackets(std::span<std::uint8_t> buffer, std::uint32_t first, std::uint32_t count,
                      std::uint32_t* firstOut) override;
  int ScanPhase() override { return m_ScanPhase; }
  std::uint32_t PrefDemux() override { return m_PrefDemux; }
  std::uint16_t VideoPid() override { return m_Tracks.videoPid; }
  bool VideoHeaderKnown() override;
  int AnalyseVideoHeader(PacketSpan target) override;
  void TablesStep(PacketSpan target) override;
  void CensusAdd(std::uint16_t pid, std::uint8_t kind) override;
  void EndOfStream() override;

  // CTextQueryFacts
  std::uint16_t VideoWidth() override { return m_Video.width; }
  std::uint16_t VideoHeight() override { return m_Video.height; }
  std::uint16_t AspectX() override { return m_Video.aspectX; }
  std::uint16_t AspectY() override { return m_Video.aspectY; }
  double FrameRate() override { return m_Video.frameRate; }
  std::uint16_t SelectedAudioPid() override;
  std::uint32_t SelectedAudioStreamType() override;
  const CPidCensus& Census() override { return m_Census; }
  HRESULT SelectedPmtPid(WORD* pid) override;
  std::string ProgramName(std::int32_t programNumber) override;
  bool NoPmt() override { return m_Tracks.noPmt != 0; }
  bool HasPin() override { return m_OutputPin != nullptr; }
  std::uint64_t LastPts() override;
  std::uint32_t CurrentPacket() override;
  int H264LogCount() override;
  std::string H264LogLine(int index) override;
  std::int64_t Duration() override;
  std::uint64_t StreamSize() override { return GetStreamSize(); }
  void SetPrefDemux(std::uint32_t value) override { m_PrefDemux = value; }
  void SetNotifyWindow(std::uint32_t handle) override { m_NotifyWindow = handle; }

  CCritSec m_FilterLock;

  std::unique_ptr<wchar_t[]> m_WideName;
  char m_AnsiName[MAX_PATH] = {};
  CMediaType m_CurrentType;
  CPacketFile m_File;
  // Delivery asks for the stream size at every packet, and the answer moves
  // only where a read or a stream limit may move it. The last answer is kept
  // here plus one (0: ask the file), cleared under the filter lock at those
  // places, so delivery takes the filter lock once a block, not once a packet.
  std::atomic<std::uint64_t> m_StreamSizeAnswer{0};
  std::unique_ptr<std::uint8_t[]> m_DeliveryBuffer;
  std::unique_ptr<std::uint8_t[]> m_ScanBuffer;
  REFERENCE_TIME m_Duration = 0;

  int m_ScanPhase = 0;  // not 0 only inside Load
  CPidCensus m_Census;
  CProgramTable m_Programs;
  CPatParser m_PatParser{m_Programs};
  CPmtParser m_PmtParser{m_Programs};
  CSdtParser m_SdtParser{m_Programs};
  TrackSelection m_Tracks;  // video PID, audio tracks, ready and no-PMT flags
  std::uint16_t m_SelectedProgram = 0;

  VideoFormat m_Video;  // written by the engine's thread without the filter lock

  // Settings copies, as the constructor leaves them before a graph is joined.
  std::atomic<int> m_AC3{0};  // flipped by a client's stream switch, without the filter lock
  int m_Audio2 = 0;
  int m_AutoSelect = 1;
  int m_PCRClock = 0;
  int m_DetLength = 1;
  int m_IgnoreCRC = 0;
  std::atomic<int> m_FastSeeking{1};              // read by position queries
  std::atomic<std::uint32_t> m_PrefDemux{1};      // read by the worker on every packet
  std::atomic<std::uint32_t> m_NotifyWindow{0};   // set by queries, read by the worker

  IBaseFilter* m_DemuxFilter = nullptr;  // referenced
  DWORD m_GraphRotCookie = 0;
  DWORD m_FilterRotCookie = 0;
  int m_MiscFlagsAsked = 0;

  // SinkFilter and Recorder: host thread only, released by the destructor.
  CRecordingConversion m_Conversion;

  std::unique_ptr<CTsOutputPin> m_OutputPin;
};
