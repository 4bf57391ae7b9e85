// Builds what a player builds to open a file: a graph and the source filter
// in it with the file loaded, with a clear message when something fails. The
// filter is found as a player finds it, through the graph's AddSourceFilter
// when the file's type is registered to it; otherwise it is made from the
// module beside the tool (or the one BRINDLET_MODULE names).
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
  // How the filter was reached: the file type, BRINDLET_MODULE, or the
  // module beside the tool, with the module's path.
  const std::string& OpenedThrough() const { return m_OpenedThrough; }

 private:
  void OpenByType(const std::string& file, const std::string& module, std::ostream& err);
  static void ReportLoadFailure(const std::string& file, unsigned long error, std::ostream& err);
  void TakeInterfaces();

  std::string m_OpenedThrough;
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
// The platform's filter modules beside the tool, registered for this process.
void RegisterPlatformFiltersBesideTool();

// Text for a Win32 error code of the file calls.
std::string DescribeWin32Error(unsigned long error);
