#include "analysis/video_header.h"

#include "analysis/pes_fields.h"

namespace {

constexpr std::uint16_t kH264StreamType = 27;

bool HasHighProfileFields(std::uint8_t profile) {
  return profile == 100 || profile == 110 || profile == 122 || profile == 144 || profile == 145;
}

// The elementary data behind the PES header, or kBeyondPacket.
std::size_t FindElementaryData(PacketSpan packet) {
  std::size_t p = 4;
  if (packet[4] != 0) {
    p += static_cast<std::size_t>(packet[4]) + 1;
    if (p >= kPacketSize || packet[p] != 0) return kBeyondPacket;
  }
  if (!FitsInPacket(p, 7) || packet[p + 1] != 0 || packet[p + 2] != 1) return kBeyondPacket;
  std::size_t q = p + 6;
  if ((packet[q] & 0xC0) == 0x80) {
    if (!FitsInPacket(q, 3)) return kBeyondPacket;
    q += static_cast<std::size_t>(packet[q + 2]) + 3;
  }
  // One more leading zero byte before a sequence header code.
  if (FitsInPacket(q, 5) && packet[q + 4] == kSequenceHeaderCode) ++q;
  return q;
}

int Mpeg2Header(PacketSpan packet, std::size_t q, VideoFormat& format, CVideoFormatTarget& blocks) {
  const std::uint16_t width = static_cast<std::uint16_t>(packet[q + 4] << 4 | packet[q + 5] >> 4);
  const std::uint16_t height = static_cast<std::uint16_t>((packet[q + 5] & 0x0F) << 8 | packet[q + 6]);
  format.width = width;
  format.height = height;
  blocks.SetMpeg2Size(width, height);

  const int aspectCode = packet[q + 7] >> 4;
  static constexpr std::uint16_t kAspects[][2] = {{4, 3}, {16, 9}, {20, 9}};
  if (aspectCode >= 2 && aspectCode <= 4) {
    format.aspectX = kAspects[aspectCode - 2][0];
    format.aspectY = kAspects[aspectCode - 2][1];
    blocks.SetMpeg2Aspect(kAspects[aspectCode - 2][0], kAspects[aspectCode - 2][1]);
  }
  static constexpr double kRates[] = {23.976, 24.0, 25.0, 29.97, 30.0, 50.0, 59.94, 60.0};
  const int rateCode = packet[q + 7] & 0x0F;
  if (rateCode >= 1 && rateCode <= 8) format.frameRate = kRates[rateCode - 1];

  blocks.SetMpeg2SequenceStart(std::span<const std::uint8_t, 12>(packet.data() + q, 12));
  return 1;
}

int H264Header(PacketSpan packet, std::size_t q, VideoFormat& format, CParameterLog& log,
               CVideoFormatTarget& blocks) {
  const std::uint8_t profile = packet[q + 11];
  format.h264Profile = profile;
  log.LogValue(profile, "profile_idc");
  format.h264Level = packet[q + 13];
  log.LogValue(packet[q + 13], "level_idc");

  // The bytes behind the packet's end read as 0.
  const auto byteAt = [&](std::size_t i) -> std::uint32_t { return i < kPacketSize ? packet[i] : 0; };
  const std::uint32_t first = byteAt(q + 14) << 24 | byteAt(q + 15) << 16 | byteAt(q + 16) << 8 | byteAt(q + 17);
  const std::size_t sourceAt = q + 18 < kPacketSize ? q + 18 : kPacketSize;
  CBitReader bits(first, packet.subspan(sourceAt), &log);

  bits.ReadUe("seq_parameter_set_id");
  if (HasHighProfileFields(profile)) {
    if (bits.ReadUe("chroma_format_idc") == 3) bits.ReadBits(1, "residual_colour_transform_flag");
    bits.ReadUe("bit_depth_luma_minus8");
    bits.ReadUe("bit_depth_chroma_minus8");
    if (profile == 145) bits.ReadBits(1, "mode_extension_flag");
    bits.ReadBits(1, "qpprime_y_zero_transform_bypass_flag");
    bits.ReadBits(1, "seq_scaling_matrix_present_flag");
  }
  bits.ReadUe("log2_max_frame_num_minus4");
  bits.ReadUe("pic_order_cnt_type");
  bits.ReadUe("log2_max_pic_order_cnt_lsb_minus4");
  bits.ReadUe("num_ref_frames");
  bits.RefillBits();
  bits.ReadBits(1, "gaps_in_frame_num_value_allowed_flag");
  bits.RefillBits();
  const auto width = static_cast<std::uint16_t>((bits.ReadUe("pic_width_in_mbs_minus1") + 1) * 16);
  format.width = width;
  bits.RefillBits();
  auto height = static_cast<std::uint16_t>((bits.ReadUe("pic_height_in_map_units_minus1") + 1) * 32);
  format.height = height;
  if (bits.ReadBits(1, "frame_mbs_only_flag") == 1) {
    height = static_cast<std::uint16_t>(height / 2);
    format.height = height;
  } else {
    bits.ReadBits(1, "mb_adaptive_frame_field_flag");
  }
  bits.ReadBits(1, "direct_8x8_inference_flag");
  bits.ReadBits(1, "frame_cropping_flag");
  if (bits.ReadBits(1, "vui_parameters_present_flag") == 1) {
    bits.RefillBits();
    if (bits.ReadBits(1, "aspect_ratio_info_present_flag") == 1) bits.ReadBits(8, "aspect_ratio_idc");
  }

  blocks.SetH264Size(width, height);
  // The walk reads no timing or sample aspect: the stream is taken for 25
  // frames a second at 16:9.
  format.frameRate = 25.0;
  format.aspectX = 16;
  format.aspectY = 9;
  return 1;
}

}  // namespace

int AnalyseVideoHeader(PacketSpan packet, std::uint16_t videoStreamType, VideoFormat& format,
                       CParameterLog& log, CVideoFormatTarget& blocks) {
  std::size_t q = FindElementaryData(packet);
  if (q >= kPacketSize) return 0;

  if (FitsInPacket(q, 12) && packet[q + 3] == kSequenceHeaderCode && format.h264Profile == 0) {
    return Mpeg2Header(packet, q, format, blocks);
  }

  if (videoStreamType == kH264StreamType) {
    while (q < kPacketSize && !(FitsInPacket(q, 3) && packet[q] == 0 && packet[q + 1] == 0 && packet[q + 2] == 0)) {
      ++q;
    }
  }
  // The delimiter and the profile and level bytes of the parameter set that
  // follows it must lie inside the packet.
  if (!FitsInPacket(q, 14) || packet[q + 4] != 9 || packet[q + 5] != 0x10) return 0;
  return H264Header(packet, q, format, log, blocks);
}
