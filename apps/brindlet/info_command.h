// `brindlet info [FILE] [--json]`: what the scan found, as aligned text for
// people or as JSON for scripts, read through the filter's interfaces only.
#pragma once

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

inline constexpr char kBundledSample[] = "samples/mpeg2-mp2-ac3.ts";

struct InfoOptions {
  std::string file;  // empty: the bundled sample
  bool json = false;
};

int RunInfo(const InfoOptions& options, std::ostream& out, std::ostream& err);

// The bundled sample as a build tree places it, three folders above the tool
// (build/apps/brindlet/), else below `workDir`. Nothing if neither has it.
std::optional<std::filesystem::path> FindBundledSample(const std::filesystem::path& toolDir,
                                                       const std::filesystem::path& workDir);
