// Reading transport streams back in tests, with the standard's own field
// rules rather than the system's short ones.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "tests/support/ts_writer.h"

namespace tsw {

Bytes ReadAll(const std::filesystem::path& path);

std::uint16_t PidOf(const std::uint8_t* packet);
bool UnitStart(const std::uint8_t* packet);

// Indexes of the packets of `pid` whose PES payload opens with an MPEG-2
// sequence header, in file order, among the first `limit` packets.
std::vector<std::size_t> SequenceHeaderPackets(const Bytes& data, std::uint16_t pid, std::size_t limit);

}  // namespace tsw
