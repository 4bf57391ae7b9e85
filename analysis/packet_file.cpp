#include "analysis/packet_file.h"

#include "analysis/packet_view.h"
#include "platform/win32/files.h"
#include "platform/win32/messages.h"

CPacketFile::~CPacketFile() { Close(); }

bool CPacketFile::Open(const char* ansiName) {
  Close();
  HANDLE file = CreateFileA(ansiName, FILE_READ_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  m_File = file;
  m_FileSizeValid = false;
  return true;
}

void CPacketFile::Close() {
  if (m_File != nullptr) CloseHandle(m_File);
  m_File = nullptr;
}

bool CPacketFile::IsOpen() const { return m_File != nullptr; }

std::uint64_t CPacketFile::GetStreamSize() {
  if (m_StreamLimit != 0) return m_StreamLimit;
  if (!m_FileSizeValid) {
    DWORD high = 0;
    const DWORD low = m_File != nullptr ? GetFileSize(m_File, &high) : INVALID_FILE_SIZE;
    // A size that cannot be had counts as an empty stream rather than as the
    // failure marker read as a size.
    if (low == INVALID_FILE_SIZE && (m_File == nullptr || GetLastError() != ERROR_SUCCESS)) {
      m_FileSize = 0;
    } else {
      m_FileSize = (static_cast<std::uint64_t>(high) << 32) | low;
    }
    m_FileSizeValid = true;
  }
  return m_FileSize;
}

bool CPacketFile::SeekTo(std::uint64_t byteOffset) {
  LONG high = static_cast<LONG>(byteOffset >> 32);
  SetLastError(ERROR_SUCCESS);
  const DWORD low = SetFilePointer(m_File, static_cast<LONG>(byteOffset & 0xFFFFFFFFu), &high,
                                   FILE_BEGIN);
  return !(low == INVALID_SET_FILE_POINTER && GetLastError() != ERROR_SUCCESS);
}

HRESULT CPacketFile::ReadPackets(std::span<std::uint8_t> buffer, std::uint32_t first,
                                 std::uint32_t count, std::uint32_t* firstOut) {
  const std::uint64_t want = static_cast<std::uint64_t>(count) * kPacketSize;
  if (count == 0 || buffer.size() < want || want > 0xFFFFFFFFu) return E_INVALIDARG;

  m_FileSizeValid = false;
  if (count == kTailBlockPackets) m_SyncOffset = 0;

  // At most two rounds: a sync hunt that moves the offset reads the block
  // once more, and a block read at an offset is never tested again.
  for (;;) {
    if (m_PacketBlock != nullptr) *m_PacketBlock = buffer;

    bool seekOk = true;
    if (first == m_ReadPosition + count) {
      m_ReadPosition = first;
    } else {
      m_ReadPosition = first / count * count;
      seekOk = SeekTo(static_cast<std::uint64_t>(m_ReadPosition) * kPacketSize + m_SyncOffset);
    }

    DWORD got = 0;
    if (!seekOk || !ReadFile(m_File, buffer.data(), static_cast<DWORD>(want), &got, nullptr)) {
      const DWORD error = GetLastError();
      return static_cast<LONG>(error) > 0 ? HRESULT_FROM_WIN32(error) : static_cast<HRESULT>(error);
    }

    if (m_SyncOffset != 0) {
      if (count == kTailBlockPackets) m_SyncOffset = 0;
      break;
    }
    if (buffer[0] == kSyncByte) break;

    // Sync hunt: the first 0x47 wins; no second sync byte is looked for.
    const std::int64_t limit = static_cast<std::int64_t>(got) - static_cast<std::int64_t>(kPacketSize);
    std::int64_t offset = 0;
    while (offset < limit && buffer[static_cast<std::size_t>(offset)] != kSyncByte) ++offset;
    if (offset >= limit) {
      MessageBoxA(nullptr, kNotTransportStreamText, kMessageCaption, MB_OK);
      // With no room to hunt the offset stays 0; reading again would find
      // the same block, so it is taken as it is.
      if (offset == 0) break;
    }
    m_SyncOffset = static_cast<std::uint32_t>(offset);
  }

  if (firstOut != nullptr) *firstOut = m_ReadPosition;
  return S_OK;
}
