// `brindlet play FILE --raw OUT`: runs the filter in a graph to the end of the
// stream, with the platform's stream file writer behind its pin, and reports
// what was delivered and how fast.
#pragma once

#include <ostream>
#include <string>

struct PlayOptions {
  std::string file;
  // What the pin delivers, as it leaves the pin, goes to this one file. No
  // demultiplexer: the setting PrefDemux decides whether the pin takes a
  // plain writer (0) and what it sends (3: the video elementary stream).
  std::string raw;
};

// `showProgress`: a line on `err`, redrawn in place, while the graph runs;
// meant for a terminal only. The summary goes to `out`.
int RunPlay(const PlayOptions& options, std::ostream& out, std::ostream& err, bool showProgress);
