// Runs shell commands from tests: the tool itself, ffmpeg, ffprobe.
#pragma once

#include <string>

namespace tsw {

struct CommandResult {
  int status;  // exit status, -1 if the command did not exit normally
  std::string out;
};

// Runs `command` with /bin/sh and gathers its standard output.
CommandResult Shell(const std::string& command);
bool OnPath(const std::string& tool);

}  // namespace tsw
