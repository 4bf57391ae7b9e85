// `brindlet play FILE --raw OUT`: runs the filter in a graph to the end of the
// stream, with the platform's stream file writer behind its pin, and reports
// what was delivered and how fast.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

struct PlayOptions {
  std::string file;
  // What the pin delivers, as it leaves the pin, goes to this one file. No
  // demultiplexer: the setting PrefDemux decides whether the pin takes a
  // plain writer (0) and what it sends (3: the video elementary stream).
  std::string raw;
  // Positions in seconds, set through the graph's IMediaSeeking before the
  // graph runs; the rate goes with them.
  std::optional<double> start;
  std::optional<double> stop;
  std::optional<double> rate;
  // (T, S): once the position reported reaches T seconds, seek to S, while
  // the worker delivers.
  std::vector<std::pair<double, double>> seekAt;
};

// "T:S" in seconds; false for anything else.
bool ParseSeekAt(const std::string& text, std::pair<double, double>* seek);

// `showProgress`: a line on `err`, redrawn in place, while the graph runs;
// meant for a terminal only. The summary goes to `out`.
int RunPlay(const PlayOptions& options, std::ostream& out, std::ostream& err, bool showProgress);
