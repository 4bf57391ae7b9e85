// The only reader of the transport stream file: it finds the packet
// alignment, reads blocks of whole packets into a caller's buffer and tells
// the length of the stream.
#pragma once

#include <cstdint>
#include <span>

#include "platform/win32/win_types.h"

class CPacketFile {
 public:
  CPacketFile() = default;
  ~CPacketFile();
  CPacketFile(const CPacketFile&) = delete;
  CPacketFile& operator=(const CPacketFile&) = delete;

  // Opens for reading, shared with writers. False with GetLastError set.
  bool Open(const char* ansiName);
  void Close();
  bool IsOpen() const;

  // The buffer that a read also points the engine at: the engine always
  // works on the block that was read last.
  void AttachPacketBlock(std::span<std::uint8_t>* slot) { m_PacketBlock = slot; }

  // Stream size in bytes: the stop limit if one is set, else the file size,
  // asked of the platform again after every read.
  std::uint64_t GetStreamSize();
  void SetStreamLimit(std::uint64_t bytes) { m_StreamLimit = bytes; }

  // Reads the aligned block of `count` packets that holds packet `first`.
  // `buffer` must hold count x 188 bytes. `firstOut` gets the index of the
  // block's first packet.
  HRESULT ReadPackets(std::span<std::uint8_t> buffer, std::uint32_t first, std::uint32_t count,
                      std::uint32_t* firstOut);

  std::uint64_t FileSize() const { return m_FileSize; }
  std::uint64_t StreamLimit() const { return m_StreamLimit; }
  std::uint32_t ReadPosition() const { return m_ReadPosition; }
  std::uint32_t SyncOffset() const { return m_SyncOffset; }

 private:
  bool SeekTo(std::uint64_t byteOffset);

  HANDLE m_File = nullptr;
  std::span<std::uint8_t>* m_PacketBlock = nullptr;
  std::uint64_t m_FileSize = 0;
  bool m_FileSizeValid = false;
  std::uint64_t m_StreamLimit = 0;
  std::uint32_t m_ReadPosition = 0;
  std::uint32_t m_SyncOffset = 0;
};

inline constexpr const char* kNotTransportStreamText =
    "Input stream does not appear to be a transport stream";
inline constexpr const char* kMessageCaption = "Brindlet";
