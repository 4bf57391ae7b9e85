#include "windows/check/screen_shot.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

// A PNG with stored (uncompressed) deflate blocks: no library needed, and any
// viewer opens it.
class CPngWriter {
 public:
  static bool Save(const std::wstring& path, int width, int height, const std::vector<BYTE>& rgbRows) {
    std::vector<BYTE> header;
    Put32(header, static_cast<DWORD>(width));
    Put32(header, static_cast<DWORD>(height));
    header.insert(header.end(), {8, 2, 0, 0, 0});  // 8 bits, RGB, no interlace

    // zlib stream: header, stored blocks of at most 65535 bytes, Adler-32.
    std::vector<BYTE> data = {0x78, 0x01};
    size_t at = 0;
    do {
      const size_t length = std::min<size_t>(rgbRows.size() - at, 65535);
      const bool last = at + length == rgbRows.size();
      data.push_back(last ? 1 : 0);
      data.push_back(static_cast<BYTE>(length));
      data.push_back(static_cast<BYTE>(length >> 8));
      data.push_back(static_cast<BYTE>(~length));
      data.push_back(static_cast<BYTE>(~length >> 8));
      data.insert(data.end(), rgbRows.begin() + static_cast<ptrdiff_t>(at),
                  rgbRows.begin() + static_cast<ptrdiff_t>(at + length));
      at += length;
    } while (at < rgbRows.size());
    DWORD a = 1;
    DWORD b = 0;
    for (const BYTE byte : rgbRows) {
      a = (a + byte) % 65521;
      b = (b + a) % 65521;
    }
    Put32(data, (b << 16) | a);

    std::vector<BYTE> file = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    Chunk(file, "IHDR", header);
    Chunk(file, "IDAT", data);
    Chunk(file, "IEND", {});
    FILE* out = _wfopen(path.c_str(), L"wb");
    if (out == nullptr) return false;
    const bool written = std::fwrite(file.data(), file.size(), 1, out) == 1;
    return std::fclose(out) == 0 && written;
  }

 private:
  static void Put32(std::vector<BYTE>& out, DWORD value) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<BYTE>(value >> shift));
  }
  static void Chunk(std::vector<BYTE>& file, const char* type, const std::vector<BYTE>& body) {
    Put32(file, static_cast<DWORD>(body.size()));
    const size_t start = file.size();
    file.insert(file.end(), type, type + 4);
    file.insert(file.end(), body.begin(), body.end());
    DWORD crc = 0xFFFFFFFF;
    for (size_t i = start; i < file.size(); ++i) {
      crc ^= file[i];
      for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320 & (0 - (crc & 1)));
    }
    Put32(file, ~crc);
  }
};

bool SaveBitmap(HBITMAP bitmap, int width, int height, const std::wstring& path) {
  BITMAPINFOHEADER header{};
  header.biSize = sizeof header;
  header.biWidth = width;
  header.biHeight = -height;  // top-down, as PNG keeps its rows
  header.biPlanes = 1;
  header.biBitCount = 24;
  header.biCompression = BI_RGB;
  const size_t stride = (static_cast<size_t>(width) * 3 + 3) & ~size_t{3};
  std::vector<BYTE> pixels(stride * static_cast<size_t>(height));
  HDC screen = GetDC(nullptr);
  const int rows = GetDIBits(screen, bitmap, 0, static_cast<UINT>(height), pixels.data(),
                             reinterpret_cast<BITMAPINFO*>(&header), DIB_RGB_COLORS);
  ReleaseDC(nullptr, screen);
  if (rows != height) return false;

  // Each PNG row: filter type 0, then RGB (the bitmap's rows are BGR).
  std::vector<BYTE> rgbRows;
  rgbRows.reserve((static_cast<size_t>(width) * 3 + 1) * static_cast<size_t>(height));
  for (int y = 0; y < height; ++y) {
    const BYTE* row = pixels.data() + stride * static_cast<size_t>(y);
    rgbRows.push_back(0);
    for (int x = 0; x < width; ++x) rgbRows.insert(rgbRows.end(), {row[3 * x + 2], row[3 * x + 1], row[3 * x]});
  }
  return CPngWriter::Save(path, width, height, rgbRows);
}

}  // namespace

bool CaptureWindow(HWND window, const std::wstring& path) {
  // The client area: without a window manager nobody draws the caption.
  RECT rect{};
  POINT origin{0, 0};
  if (!GetClientRect(window, &rect) || !ClientToScreen(window, &origin)) return false;
  OffsetRect(&rect, origin.x, origin.y);
  const int width = rect.right - rect.left;
  const int height = rect.bottom - rect.top;
  if (width <= 0 || height <= 0) return false;
  HDC screen = GetDC(nullptr);
  HDC memory = CreateCompatibleDC(screen);
  HBITMAP bitmap = CreateCompatibleBitmap(screen, width, height);
  HGDIOBJ old = SelectObject(memory, bitmap);
  const bool copied = BitBlt(memory, 0, 0, width, height, screen, rect.left, rect.top, SRCCOPY) != FALSE;
  SelectObject(memory, old);
  DeleteDC(memory);
  ReleaseDC(nullptr, screen);
  const bool saved = copied && SaveBitmap(bitmap, width, height, path);
  DeleteObject(bitmap);
  return saved;
}

