// Opening a file: Load and its scan passes, and the packet engine's view of
// the filter (file reads, tables, census, video header, end of stream).
#include <cstdio>
#include <cwchar>
#include <new>

#include "analysis/psi_section.h"
#include "control/settings_store.h"
#include "delivery/media_types.h"
#include "delivery/ts_source_filter.h"
#include "platform/win32/codepage.h"
#include "platform/com/com_memory.h"
#include "platform/win32/messages.h"

namespace {

constexpr UINT kEndOfStreamMessage = 0x8001;
constexpr WPARAM kEndOfStreamWParam = 0xAAAA;
constexpr LPARAM kEndOfStreamLParam = 0x5555;

}  // namespace

// ---- Opening the file ----------------------------------------------------

STDMETHODIMP CTsSourceFilter::Load(LPCWSTR fileName, const AM_MEDIA_TYPE* type) {
  if (fileName == nullptr) return E_POINTER;

  // The code page's own measure sizes the name: UTF-8 needs up to four bytes
  // a character where a double-byte code page needs two.
  const int ansiBytes = WideCharToMultiByte(GetACP(), 0, fileName, -1, nullptr, 0, nullptr, nullptr);
  std::unique_ptr<char[]> ansi(new (std::nothrow) char[ansiBytes > 0 ? ansiBytes : 1]());
  if (!ansi) return E_OUTOFMEMORY;
  if (ansiBytes > 0) {
    WideCharToMultiByte(GetACP(), 0, fileName, -1, ansi.get(), ansiBytes, nullptr, nullptr);
  }

  CAutoLock lock(&m_FilterLock);
  // A filter opens one file: a second Load once the pin exists is refused.
  if (m_OutputPin) return E_UNEXPECTED;

  CMediaType mediaType;
  if (type != nullptr) {
    mediaType = CMediaType(*type);
  } else {
    mediaType.SetMajorType(MEDIATYPE_Stream);
    mediaType.SetSubtype(GUID_NULL);
  }

  if (!m_File.Open(ansi.get())) return E_FAIL;
  m_StreamSizeAnswer.store(0, std::memory_order_release);

  std::snprintf(m_AnsiName, sizeof m_AnsiName, "%s", ansi.get());
  const std::uint64_t streamSize = GetStreamSize();
  const std::size_t wideLength = std::wcslen(fileName);
  m_WideName.reset(new (std::nothrow) wchar_t[wideLength + 1]);
  if (m_WideName) std::wmemcpy(m_WideName.get(), fileName, wideLength + 1);

  m_CurrentType = mediaType;

  m_DeliveryBuffer.reset(new (std::nothrow) std::uint8_t[kBlockPackets * kPacketSize]());
  m_ScanBuffer.reset(new (std::nothrow) std::uint8_t[kScanBlockPackets * kPacketSize]());
  if (!m_DeliveryBuffer || !m_ScanBuffer) return E_OUTOFMEMORY;

  // First estimate, whole seconds only; the product of seconds and 1000 is
  // kept in 32 bits, as signed.
  const std::uint64_t seconds = streamSize / kEstimateBytesPerSecond;
  const auto milliseconds = static_cast<std::int32_t>(static_cast<std::uint32_t>(seconds * 1000));
  m_Duration = static_cast<REFERENCE_TIME>(milliseconds) * 10000;

  DWORD prefDemux = 0;
  if (ReadSettingDword("PrefDemux", &prefDemux)) m_PrefDemux = prefDemux;

  HRESULT pinResult = S_OK;
  m_OutputPin.reset(new (std::nothrow) CTsOutputPin(&pinResult, this, *this, m_Duration));
  if (!m_OutputPin) return E_OUTOFMEMORY;
  m_File.AttachPacketBlock(&m_OutputPin->Engine().PacketBlock);
  {
    CAutoLock pinLock(&m_OutputPin->PinLock());
    m_OutputPin->Engine().PacketBlock = {m_DeliveryBuffer.get(), kBlockPackets * kPacketSize};
  }

  RunScan(streamSize);
  return pinResult;
}

void CTsSourceFilter::RunPass(std::uint32_t calls) {
  // Every pass makes all its calls: at the end of the stream they answer
  // S_FALSE and nothing moves.
  for (std::uint32_t i = 0; i < calls; ++i) m_OutputPin->FillBuffer(nullptr);
}

void CTsSourceFilter::RunScan(std::uint64_t streamSize) {
  const std::span<std::uint8_t> scan(m_ScanBuffer.get(), kScanBlockPackets * kPacketSize);

  ReadPackets(scan, 0, kScanBlockPackets, nullptr);
  m_ScanPhase = 1;
  RunPass(kScanBlockPackets);

  m_Census.Sort();
  m_ScanPhase = 2;
  m_OutputPin->OnThreadDestroy();
  RunPass(kScanBlockPackets);

  if (!m_Tracks.ready) {
    DWORD ignoreCrc = 0;
    ReadSettingDword("IgnoreCRC", &ignoreCrc);
    m_IgnoreCRC = ignoreCrc != 0 ? 1 : 0;
    if (m_IgnoreCRC) {
      // Only PMT sections refused for their CRC can add anything now: the
      // pairs seen before stay seen.
      m_PmtParser.SetIgnoreCrc(1);
      RunPass(kScanBlockPackets);
    }
    if (!m_Tracks.ready) CensusFallback(m_Census, m_AC3 != 0, m_Tracks);
  }
  m_ScanPhase = 0;

  if (m_DetLength) MeasureDuration(streamSize);

  m_OutputPin->OnThreadDestroy();
  ReadPackets({m_DeliveryBuffer.get(), kBlockPackets * kPacketSize}, 0, kBlockPackets, nullptr);
}

void CTsSourceFilter::MeasureDuration(std::uint64_t streamSize) {
  CPacketEngine& engine = m_OutputPin->Engine();
  if (engine.FirstPts == 0) RunPass(kScanBlockPackets);

  // The tail block starts on a multiple of 20000 packets and only its first
  // half is looked at, so its last packet seen lies 10001 to 30000 packets
  // before the end: the duration falls short by that stretch.
  const auto packets = static_cast<std::uint32_t>(streamSize / kPacketSize);
  ReadPackets({m_ScanBuffer.get(), kScanBlockPackets * kPacketSize}, packets - kTailBlockPackets,
              kTailBlockPackets, nullptr);
  engine.PtsDelta = 0;
  RunPass(kBlockPackets);

  std::uint64_t delta = engine.PtsDelta;
  if (delta == 0) return;
  const std::uint64_t first = engine.FirstPts;
  const std::uint64_t last = engine.LastPts;
  // The 33-bit clock wrapped inside the file.
  if (first > last) delta = last - first + 0x1FFFFFFFFull;
  engine.PtsDelta = delta;
  m_Duration = static_cast<REFERENCE_TIME>(delta * 10000 / 90);
  m_OutputPin->SetSeekDuration(m_Duration);
}

STDMETHODIMP CTsSourceFilter::GetCurFile(LPWSTR* fileName, AM_MEDIA_TYPE* type) {
  if (fileName == nullptr) return E_POINTER;
  CAutoLock lock(&m_FilterLock);
  *fileName = nullptr;
  if (!m_WideName) Load(kDefaultFileName, nullptr);
  if (m_WideName) {
    const std::size_t length = std::wcslen(m_WideName.get());
    auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc((length + 1) * sizeof(WCHAR)));
    if (copy != nullptr) {
      std::wmemcpy(copy, m_WideName.get(), length + 1);
      *fileName = copy;
    }
  }
  if (type != nullptr) m_CurrentType.CopyTo(type);
  return S_OK;
}

// ---- The engine's view of the filter ------------------------------------

std::uint64_t CTsSourceFilter::GetStreamSize() {
  const std::uint64_t kept = m_StreamSizeAnswer.load(std::memory_order_acquire);
  if (kept != 0) return kept - 1;
  CAutoLock lock(&m_FilterLock);
  const std::uint64_t size = m_File.GetStreamSize();
  m_StreamSizeAnswer.store(size + 1, std::memory_order_release);
  return size;
}

HRESULT CTsSourceFilter::ReadPackets(std::span<std::uint8_t> buffer, std::uint32_t first,
                                     std::uint32_t count, std::uint32_t* firstOut) {
  CAutoLock lock(&m_FilterLock);
  const HRESULT hr = m_File.ReadPackets(buffer, first, count, firstOut);
  m_StreamSizeAnswer.store(0, std::memory_order_release);  // the read asks the file again
  return hr;
}

bool CTsSourceFilter::VideoHeaderKnown() { return m_Video.aspectX != 0; }

int CTsSourceFilter::AnalyseVideoHeader(PacketSpan target) {
  // Runs under the pin lock only; the fields it writes are atomic.
  CVideoBlockPatcher blocks;
  return ::AnalyseVideoHeader(target, m_Tracks.videoStreamType, m_Video,
                              m_OutputPin->ParameterLog(), blocks);
}

void CTsSourceFilter::TablesStep(PacketSpan target) {
  // Every packet is taken as one section that starts right behind a
  // pointer_field of 0; the section's own fields and CRC weed out the rest.
  const std::span<const std::uint8_t> section = target.subspan(kSectionOffsetInPacket);
  const SectionHeader header = ReadSectionHeader(section);
  const std::size_t total = header.section_length + 3;
  try {
    if (header.table_id == 0 && PassesCommonSectionTest(header) &&
        m_PatParser.Log().section_count == 0) {
      m_PatParser.OfferSection(section, total);
      return;
    }
    if (header.table_id == 2 && PassesCommonSectionTest(header) &&
        m_PatParser.Log().section_count > 0) {
      if (m_PmtParser.OfferSection(section, total) == 0) return;
      const std::uint16_t program = m_PmtParser.LastProgramNumber();
      CAutoLock lock(&m_FilterLock);
      if (SelectTracks(m_Programs, m_Census, program, m_Tracks) == S_OK) {
        m_SelectedProgram = program;
        m_OutputPin->Engine().FirstPts = 0;
      }
      return;
    }
    if (GetPid(target) == kSdtPid) ServiceNameStep(target);
  } catch (...) {
    // A reader that fails gives up this packet; the scan goes on.
  }
}

void CTsSourceFilter::ServiceNameStep(PacketSpan packet) {
  CSectionAssembler& assembler = m_OutputPin->SectionAssembler();
  if (assembler.WantsPacket(packet)) {
    assembler.AppendPacket(packet);
    return;
  }
  const std::span<const std::uint8_t> section = assembler.FinishSection(packet);
  try {
    m_SdtParser.OfferSection(section, ReadSectionHeader(section).section_length + 3);
  } catch (...) {
  }
  assembler.ReleaseSection();
}

const ProgramEntry* CTsSourceFilter::FindProgram(std::uint32_t programNumber) const {
  int index = 0;
  return m_Programs.FindIndex(programNumber, &index) ? &m_Programs.Entry(index) : nullptr;
}

void CTsSourceFilter::CensusAdd(std::uint16_t pid, std::uint8_t kind) {
  CAutoLock lock(&m_FilterLock);
  m_Census.Add(pid, kind);
}

void CTsSourceFilter::EndOfStream() {
  // On the worker with the pin lock held: until the user answers, nothing
  // is delivered and a seek or Stop waits.
  if (m_Conversion.HoldsSink()) MessageBoxA(nullptr, kConversionDoneText, kMessageCaption, MB_OK);
  const std::uint32_t window = m_NotifyWindow;
  if (window != 0) {
    PostMessageA(reinterpret_cast<HWND>(static_cast<std::uintptr_t>(window)), kEndOfStreamMessage,
                 kEndOfStreamWParam, kEndOfStreamLParam);
  }
}
