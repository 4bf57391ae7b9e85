#include "apps/brindlet/status_line.h"

#include <cstdio>

std::string CStatusLine::Compose(const std::string& written) const {
  LONGLONG position = 0;
  if (m_Seeking == nullptr || FAILED(m_Seeking->GetCurrentPosition(&position))) position = 0;
  // The filter answers nothing before it has a pin; the line says so.
  std::string pts = m_Session.Query("VIDEOPTS");
  std::string length = m_Session.Query("MEDIALEN");
  if (pts.empty()) pts = "-";
  if (length.empty()) length = "-";
  char head[64];
  std::snprintf(head, sizeof head, "position %.2f s", static_cast<double>(position) / 1e7);
  return std::string(head) + " | VIDEOPTS " + pts + " | MEDIALEN " + length + " | " + written + " written";
}

void CStatusLine::Update(const std::string& written) {
  if (m_Mode == ProgressMode::Off) return;
  const auto now = std::chrono::steady_clock::now();
  if (m_Shown && now - m_Last < kInterval) return;
  m_Shown = true;
  m_Last = now;
  const std::string line = Compose(written);
  if (m_Mode == ProgressMode::Lines) {
    m_Err << line << "\n" << std::flush;
    return;
  }
  // The escape clears what a longer line left.
  m_Err << "\r" << line << "\x1b[K" << std::flush;
  m_Drawn = true;
}

void CStatusLine::Clear() {
  if (!m_Drawn) return;
  m_Err << "\r\x1b[K" << std::flush;
  m_Drawn = false;
}
