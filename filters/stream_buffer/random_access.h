// What the recorder reads in the bytes it records: whether a packet is a
// point where a player may start (the muxer marks it in the transport
// stream), and where the first start code lies.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "filters/stream_buffer/elementary_types.h"

// Offset of the first 00 00 01 in `bytes`, or bytes.size() when there is none.
std::size_t FindStartCode(std::span<const std::uint8_t> bytes, std::size_t from = 0);

// Audio: every packet. MPEG-2 video: a sequence or GOP header, or an I
// picture, before the first picture of another type. H.264: an IDR slice or
// a sequence parameter set before the first other slice (broadcasters send
// open GOPs whose I pictures are no IDR, with the parameter sets in front).
bool IsRandomAccess(ElementaryKind kind, std::span<const std::uint8_t> bytes);
