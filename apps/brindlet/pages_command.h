// `brindlet pages FILE [--json] [--apply] [--wait SECONDS]`: the filter's
// property pages as a player's properties dialog would show them, printed
// control by control.
#pragma once

#include <ostream>
#include <string>

#include "apps/brindlet/query_command.h"

struct PagesOptions {
  std::string file;
  bool json = false;
  // Store what the Program Info page shows, as a user who touches its
  // extension list and presses Apply.
  bool apply = false;
  double waitSeconds = 0;  // the pages' timers run this long before printing
};

int RunPages(const PagesOptions& options, std::ostream& out, std::ostream& err);
