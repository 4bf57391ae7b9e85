// Creates the source filter and opens a file with it, as a player would, with
// a clear message when the file cannot be opened.
#pragma once

#include <ostream>
#include <string>

#include "control/scan_report.h"
#include "control/ts_stream_info.h"
#include "platform/com_ptr.h"
#include "platform/strmif.h"

class CSourceSession {
 public:
  // Opens `file`; on failure writes one line to `err` and Ok() is false.
  CSourceSession(const std::string& file, std::ostream& err);
  bool Ok() const { return m_Info.Get() != nullptr; }
  ITsStreamInfo* Info() const { return m_Info.Get(); }
  // The tools' own report; null if the filter does not answer it.
  ITsScanReport* Report() const { return m_Report.Get(); }
  // One query answer as UTF-8, empty for none.
  std::string Query(const std::string& keyword) const;

 private:
  ComPtr<IUnknown> m_Filter;
  ComPtr<ITsStreamInfo> m_Info;
  ComPtr<ITsScanReport> m_Report;
};

// Text for a Win32 error code of the file calls.
std::string DescribeWin32Error(unsigned long error);
