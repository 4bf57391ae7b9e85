// The text query language of ITsStreamInfo: a keyword, perhaps with one
// number in brackets, answered with display text of at most 40 characters.
#pragma once

#include <cstdint>
#include <string>

#include "analysis/pid_census.h"
#include "host/critical_section.h"
#include "platform/win32/win_types.h"

inline constexpr std::size_t kMaxAnswerLength = 40;
inline constexpr int kH264LogLines = 20;

// What the queries read of the filter and its pin. Everything is read under
// the filter lock; pin fields are read without the pin lock.
class CTextQueryFacts {
 public:
  virtual std::uint16_t VideoWidth() = 0;
  virtual std::uint16_t VideoHeight() = 0;
  virtual std::uint16_t AspectX() = 0;
  virtual std::uint16_t AspectY() = 0;
  virtual double FrameRate() = 0;
  virtual std::uint16_t SelectedAudioPid() = 0;
  virtual std::uint32_t SelectedAudioStreamType() = 0;
  virtual const CPidCensus& Census() = 0;
  // GetPmtPid of the selected program.
  virtual HRESULT SelectedPmtPid(WORD* pid) = 0;
  // Name of the program with this number; empty for none.
  virtual std::string ProgramName(std::int32_t programNumber) = 0;
  virtual bool NoPmt() = 0;
  virtual bool HasPin() = 0;
  virtual std::uint64_t LastPts() = 0;
  virtual std::uint32_t CurrentPacket() = 0;
  virtual int H264LogCount() = 0;
  virtual std::string H264LogLine(int index) = 0;
  // The duration as IMediaSeeking::GetDuration gives it, without the pin lock.
  virtual std::int64_t Duration() = 0;
  virtual std::uint64_t StreamSize() = 0;
  virtual void SetPrefDemux(std::uint32_t value) = 0;
  virtual void SetNotifyWindow(std::uint32_t handle) = 0;

 protected:
  ~CTextQueryFacts() = default;
};

// The answer to one keyword, empty for none. Exposed for the tests and for
// tools that want narrow text.
std::string AnswerTextQuery(const wchar_t* keyword, CTextQueryFacts& facts);

// QueryText as the interface does it: argument test, the filter lock, the
// answer as a wide string from CoTaskMemAlloc, or a null string for none.
HRESULT QueryTextAnswer(LPCWSTR keyword, LPWSTR* text, CTextQueryFacts& facts, CCritSec& filterLock);

// Format name of an audio stream type for "AUDIOFORMAT"; empty if unknown.
const char* AudioFormatName(std::uint32_t streamType);
