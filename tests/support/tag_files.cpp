#include "support/tag_files.h"

#include "support/tiff_files.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

namespace tiffgate::testing {
namespace {

template <class T>
T read_le(const std::vector<unsigned char>& bytes, std::size_t at) {
  if (at + sizeof(T) > bytes.size()) throw std::runtime_error("offset past the end of the file");
  T value = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) value |= static_cast<T>(T{bytes[at + i]} << (8 * i));
  return value;
}

}  // namespace

void write_tiff(const std::string& path, const std::function<void(TIFF*)>& tags, std::uint32_t width,
                std::uint32_t length, std::uint16_t bits, std::uint16_t samples, std::uint32_t rowsPerStrip,
                std::uint32_t tileSize) {
  TiffHandle out(path, "w");
  set_basic_tags(out, width, length, bits, samples, rowsPerStrip, tileSize);
  tags(out);
  write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
}

void patch_first_ifd_short(const std::string& path, std::uint16_t tag, std::uint16_t value) {
  std::vector<unsigned char> bytes;
  {
    std::ifstream in(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  if (bytes.size() < 8 || bytes[0] != 'I' || bytes[1] != 'I' || read_le<std::uint16_t>(bytes, 2) != 42)
    throw std::runtime_error(path + " is not a classic little-endian TIFF file");
  const std::size_t ifd = read_le<std::uint32_t>(bytes, 4);
  const std::size_t entries = read_le<std::uint16_t>(bytes, ifd);
  for (std::size_t e = 0; e < entries; ++e) {
    const std::size_t at = ifd + 2 + 12 * e;
    if (read_le<std::uint16_t>(bytes, at) != tag) continue;
    if (read_le<std::uint16_t>(bytes, at + 2) != 3) throw std::runtime_error("the entry is not SHORT");
    bytes[at + 8] = static_cast<unsigned char>(value & 0xff);
    bytes[at + 9] = static_cast<unsigned char>(value >> 8);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return;
  }
  throw std::runtime_error("no such entry in the first directory");
}

}  // namespace tiffgate::testing
