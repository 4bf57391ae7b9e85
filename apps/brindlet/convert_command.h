// `brindlet convert FILE [--yes|--no]`: plays FILE through the filter, the
// platform's demultiplexer and the stream buffer sink, which the filter is
// handed before the graph starts, so that playing makes a recording beside
// FILE (its name cut at the last point); then reports the recording.
#pragma once

#include <optional>
#include <ostream>
#include <string>

#include "apps/brindlet/status_line.h"

struct ConvertOptions {
  std::string file;
  // The answer when the recording's name is taken already (the filter would
  // delete that file): unset asks on a terminal, else No.
  std::optional<bool> answer;
};

int RunConvert(const ConvertOptions& options, std::ostream& out, std::ostream& err, ProgressMode progress);
