// Opens the input as a file with the filter's Load, the whole scan included,
// then asks what a client would ask and hands out a few samples. The file
// is exactly the input, so a finding can be opened as it is elsewhere.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "control/settings_store.h"
#include "delivery/ts_source_filter.h"
#include "host/media_sample.h"
#include "platform/com/com_memory.h"
#include "platform/win32/messages.h"

namespace {

// Packets handed out after Load: enough to cross a PES start or two.
constexpr int kDeliveredSamples = 64;

int g_File = -1;
std::wstring g_Path;
CMessageBoxRecorder* g_Messages = nullptr;  // keeps "not a transport stream" quiet
std::filesystem::path g_Registry;
int g_Control = -1;  // the settings the registry holds now

// Settings go to a registry folder of this run, never the user's.
void UsePrivateRegistry() {
  const std::filesystem::path base =
      std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : std::filesystem::temp_directory_path();
  std::string pattern = (base / "brindlet-fuzz-registry-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    std::perror("fuzz_load: registry folder");
    std::abort();
  }
  g_Registry = pattern;
  setenv("BRINDLET_REGISTRY_DIR", pattern.c_str(), 1);
  std::atexit([] {
    std::error_code ignored;
    std::filesystem::remove_all(g_Registry, ignored);
  });
}

// Writes only on a change: every write replaces the hive file.
void ApplySettings(std::uint8_t control) {
  if (g_Control == control) return;
  g_Control = control;
  WriteSettingDword("IgnoreCRC", control & 1u);
  WriteSettingDword("PrefDemux", (control & 2u) != 0 ? 3u : 1u);
}

// An anonymous file in memory, reached by its /proc path: nothing is left
// behind when a run is stopped.
void OpenScratchFile() {
  g_File = memfd_create("brindlet-fuzz-load", MFD_CLOEXEC);
  if (g_File >= 0) {
    g_Path = L"/proc/self/fd/" + std::to_wstring(g_File);
    return;
  }
  const std::string path = "/dev/shm/brindlet-fuzz-load-" + std::to_string(getpid()) + ".ts";
  g_File = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (g_File < 0) {
    std::perror("fuzz_load: scratch file");
    std::abort();
  }
  unlink(path.c_str());  // the descriptor keeps it; the /proc path reaches it
  g_Path = L"/proc/self/fd/" + std::to_wstring(g_File);
}

void WriteScratchFile(const std::uint8_t* data, std::size_t size) {
  if (ftruncate(g_File, 0) != 0) std::abort();
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = pwrite(g_File, data + done, size - done, static_cast<off_t>(done));
    if (n <= 0) std::abort();
    done += static_cast<std::size_t>(n);
  }
}

void Query(CTsSourceFilter& filter, const std::wstring& keyword) {
  LPWSTR text = nullptr;
  if (filter.QueryText(keyword.c_str(), &text) == S_OK && text != nullptr) CoTaskMemFree(text);
}

void AskEverything(CTsSourceFilter& filter) {
  DWORD ready = 0;
  DWORD noPmt = 0;
  WORD selected = 0;
  filter.GetScanFlags(&ready, &noPmt, &selected);
  for (const wchar_t* keyword :
       {L"VIDEOSIZE", L"FRAMERATE", L"ASPECTRATIO", L"AUDIOPID", L"AUDIOFORMAT", L"AUDIOTYPE",
        L"VIDEOPTS", L"NUMPIDS", L"NUMPACKETS", L"PMTPID", L"GETPID(0)", L"GETPACKETS(1)",
        L"GETTYPE(0)", L"CURPACKET", L"MAXPACKET", L"MEDIALEN"}) {
    Query(filter, keyword);
  }
  Query(filter, L"GETNAME(" + std::to_wstring(selected) + L")");

  char language[32];
  DWORD programs = 0;
  filter.GetProgramCount(&programs);
  for (LONG i = 0; i < static_cast<LONG>(programs); ++i) {
    WORD number = 0;
    WORD pid = 0;
    if (filter.GetProgramNumber(i, &number) != S_OK) continue;
    filter.GetPmtPidByIndex(i, &pid);
    Query(filter, L"GETNAME(" + std::to_wstring(number) + L")");
    WORD streams = 0;
    if (filter.GetStreamCount(number, &streams) != S_OK) continue;
    for (DWORD s = 0; s < streams; ++s) {
      BYTE type = 0;
      filter.GetStreamType(number, s, &type);
      filter.GetStreamPid(number, s, &pid);
      filter.GetStreamLanguage(number, s, language, sizeof language);
    }
  }
  WORD tracks = 0;
  filter.GetAudioTrackCount(&tracks, &selected);
  for (WORD t = 0; t < tracks; ++t) {
    WORD pid = 0;
    WORD kind = 0;
    WORD type = 0;
    filter.GetAudioTrack(t, &pid, &kind, &type, language, sizeof language);
  }
}

void Deliver(CTsSourceFilter& filter) {
  CTsOutputPin* pin = filter.OutputPin();
  if (pin == nullptr) return;
  auto* sample = new CMediaSample(static_cast<LONG>(kPacketSize));
  sample->AddRef();
  for (int i = 0; i < kDeliveredSamples; ++i) {
    if (pin->FillBuffer(sample) != S_OK) break;
  }
  sample->Release();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  OpenScratchFile();
  UsePrivateRegistry();
  g_Messages = new CMessageBoxRecorder();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  WriteScratchFile(data, size);
  g_Messages->Clear();

  // Whole packets take the defaults. A partial packet at the end, which the
  // scan never reads, chooses the CRC retry pass and the output mode.
  ApplySettings(size % kPacketSize != 0 ? static_cast<std::uint8_t>(data[size - 1] & 3u) : 0);

  HRESULT hr = E_FAIL;
  auto* filter = static_cast<CTsSourceFilter*>(CTsSourceFilter::CreateInstance(nullptr, &hr));
  if (filter == nullptr) std::abort();
  filter->NonDelegatingUnknown()->AddRef();
  if (SUCCEEDED(filter->Load(g_Path.c_str(), nullptr))) {
    AskEverything(*filter);
    Deliver(*filter);
  }
  filter->NonDelegatingUnknown()->Release();
  return 0;
}
