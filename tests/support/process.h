// Runs shell commands from tests: the tool itself, ffmpeg, ffprobe.
#pragma once

#include <cstdint>
#include <string>

namespace tsw {

struct CommandResult {
  int status;  // exit status, -1 if the command did not exit normally
  std::string out;
};

// Runs `command` with /bin/sh and gathers its standard output.
CommandResult Shell(const std::string& command);
bool OnPath(const std::string& tool);
// As Shell, with the child's largest file at `maxFileBytes` (RLIMIT_FSIZE)
// and SIGXFSZ ignored: a write past it fails with EFBIG, as on a full disk.
CommandResult ShellWithFileLimit(const std::string& command, std::uint64_t maxFileBytes);

}  // namespace tsw
