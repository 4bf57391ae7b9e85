// `brindlet play FILE --out DIR | --raw OUT`: runs the filter in a graph to
// the end of the stream, with the platform's demultiplexer and one stream file
// writer per stream behind it (or one writer straight behind its pin), and
// reports what was delivered and how fast.
#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "apps/brindlet/status_line.h"

struct PlayOptions {
  std::string file;
  // The player's graph: the demultiplexer behind the pin, wired by the filter
  // itself, and each of its output pins into a file of this folder, named
  // after the pin. Exactly one of `out` and `raw` is given.
  std::string out;
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
  // With `out`: the audio track to switch to, through the filter's stream
  // selection, as soon as the filter allows it while playing.
  std::optional<long> audio;
  // The answer to the filter's question when the switch needs another media
  // type; unset: ask on a terminal, else No.
  std::optional<bool> answer;
};

// "T:S" in seconds; false for anything else.
bool ParseSeekAt(const std::string& text, std::pair<double, double>* seek);

// `progress`: the status line on `err` while the graph runs (status_line.h).
// The summary goes to `out`.
int RunPlay(const PlayOptions& options, std::ostream& out, std::ostream& err, ProgressMode progress);
