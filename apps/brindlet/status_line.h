// A player's status line on stderr while the graph runs: the position from
// the graph's IMediaSeeking, the filter's own "VIDEOPTS" and "MEDIALEN",
// asked through ITsStreamInfo while the worker delivers, and what has been
// written. On a terminal it is one line redrawn in place; otherwise (with
// --progress) one line per update, newline-ended, at most ten a second.
#pragma once

#include <chrono>
#include <ostream>
#include <string>

#include "apps/brindlet/source_session.h"
#include "platform/graph/strmif.h"

enum class ProgressMode { Off, Terminal, Lines };

class CStatusLine {
 public:
  static constexpr std::chrono::milliseconds kInterval{100};

  // `seeking` may be null: the position then reads 0.
  CStatusLine(ProgressMode mode, std::ostream& err, const CSourceSession& session, IMediaSeeking* seeking)
      : m_Mode(mode), m_Err(err), m_Session(session), m_Seeking(seeking) {}

  // Shows the line with `written` (such as "120 packets, 22560 bytes"), unless
  // one was shown less than kInterval ago.
  void Update(const std::string& written);
  // Takes a redrawn line off the terminal, before other output and at the
  // end; printed lines stay.
  void Clear();
  // The line itself, as Update would show it now.
  std::string Compose(const std::string& written) const;

 private:
  ProgressMode m_Mode;
  std::ostream& m_Err;
  const CSourceSession& m_Session;
  IMediaSeeking* m_Seeking;
  bool m_Drawn = false;  // a redrawn line stands on the terminal
  std::chrono::steady_clock::time_point m_Last{};
  bool m_Shown = false;
};
