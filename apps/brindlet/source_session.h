// Builds what a player builds to open a file: a graph, the source filter made
// through CoCreateInstance and added to it, then the file loaded, with a clear
// message when something fails.
#pragma once

#include <ostream>
#include <string>

#include "control/scan_report.h"
#include "control/ts_stream_info.h"
#include "platform/com/com_ptr.h"
#include "platform/graph/strmif.h"

class CSourceSession {
 public:
  // Opens `file`; on failure writes one line to `err` and Ok() is false.
  CSourceSession(const std::string& file, std::ostream& err);
  ~CSourceSession();
  CSourceSession(const CSourceSession&) = delete;
  CSourceSession& operator=(const CSourceSession&) = delete;
  bool Ok() const { return m_Info.Get() != nullptr; }
  ITsStreamInfo* Info() const { return m_Info.Get(); }
  // The tools' own report; null if the filter does not answer it.
  ITsScanReport* Report() const { return m_Report.Get(); }
  IFilterGraph* Graph() const { return m_Graph.Get(); }
  IBaseFilter* Filter() const { return m_Filter.Get(); }
  // One query answer as UTF-8, empty for none.
  std::string Query(const std::string& keyword) const;

 private:
  ComPtr<IFilterGraph> m_Graph;
  ComPtr<IBaseFilter> m_Filter;
  ComPtr<ITsStreamInfo> m_Info;
  ComPtr<ITsScanReport> m_Report;
};

// Makes the module beside the tool (or the one BRINDLET_MODULE names) the
// filter's server for this process, so that no registration is needed, and
// the platform's filter modules beside the tool the servers of theirs.
// Returns the path used, empty if none was found.
std::string RegisterModuleForProcess();

// Text for a Win32 error code of the file calls.
std::string DescribeWin32Error(unsigned long error);
