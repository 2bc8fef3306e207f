#include "support/tag_files.h"

#include "support/foundation.h"
#include "support/tiff_files.h"

#include <stdexcept>
#include <vector>

namespace tiffgate::testing {

void write_tiff(const std::string& path, const std::function<void(TIFF*)>& tags, std::uint32_t width,
                std::uint32_t length, std::uint16_t bits, std::uint16_t samples, std::uint32_t rowsPerStrip,
                std::uint32_t tileSize) {
  TiffHandle out(path, "w");
  set_basic_tags(out, width, length, bits, samples, rowsPerStrip, tileSize);
  tags(out);
  write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
}

void patch_first_ifd_short(const std::string& path, std::uint16_t tag, std::uint16_t value) {
  std::vector<unsigned char> bytes = file_bytes(path);
  const std::size_t entry = first_ifd_entry(bytes, tag);
  if (bytes.at(entry + 2) != TIFF_SHORT || bytes.at(entry + 3) != 0) throw std::runtime_error("the entry is not SHORT");
  bytes[entry + 8] = static_cast<unsigned char>(value & 0xff);
  bytes[entry + 9] = static_cast<unsigned char>(value >> 8);
  write_file_bytes(path, bytes);
}

}  // namespace tiffgate::testing
