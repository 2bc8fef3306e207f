#include "support/foundation.h"
#include "support/tiff_files.h"

#include <fcntl.h>   // open
#include <unistd.h>  // dup2, close

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace tiffgate::testing {

std::vector<unsigned char> file_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void write_file_with_private_tag(const std::string& path, int count, int tagged) {
  static const TIFFFieldInfo kPrivate[] = {
      {65000, -1, -1, TIFF_ASCII, FIELD_CUSTOM, 1, 0, const_cast<char*>("PrivateText")}};
  TiffHandle out(path, "w");
  for (int d = 0; d < count; ++d) {
    set_basic_tags(out, 8, 2);
    if (d == tagged) {
      // Known to this writing handle only; a reader sees an unknown tag.
      TIFFMergeFieldInfo(out, kPrivate, 1);
      if (!TIFFSetField(out, 65000, "private")) throw std::runtime_error("cannot set tag 65000");
    }
    write_chunks(out, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
    if (!TIFFWriteDirectory(out)) throw std::runtime_error("TIFFWriteDirectory failed");
  }
}

void write_file_bytes(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

std::size_t first_ifd_entry(const std::vector<unsigned char>& b, std::uint16_t tag) {
  const auto u16 = [&](std::size_t at) { return static_cast<std::uint32_t>(b.at(at) | b.at(at + 1) << 8); };
  const auto u32 = [&](std::size_t at) { return u16(at) | u16(at + 2) << 16; };
  if (b.size() < 8 || b[0] != 'I' || b[1] != 'I' || u16(2) != 42)
    throw std::runtime_error("not a classic little-endian TIFF");
  const std::size_t ifd = u32(4);
  for (std::size_t e = 0; e < u16(ifd); ++e)
    if (u16(ifd + 2 + 12 * e) == tag) return ifd + 2 + 12 * e;
  throw std::runtime_error("no entry " + std::to_string(tag) + " in the first directory");
}

void patch_first_subifd(const std::string& path, std::uint32_t offset) {
  std::vector<unsigned char> b = file_bytes(path);
  const std::size_t entry = first_ifd_entry(b, TIFFTAG_SUBIFD);
  if (b.at(entry + 4) != 1 || b.at(entry + 5) || b.at(entry + 6) || b.at(entry + 7))
    throw std::runtime_error("expected one SubIFD");
  for (int k = 0; k < 4; ++k) b.at(entry + 8 + k) = static_cast<unsigned char>(offset >> (8 * k));
  write_file_bytes(path, b);
}

void make_writes_fail(TIFF* tif, const std::string& path) {
  const int read_only = ::open(path.c_str(), O_RDONLY);
  if (read_only < 0 || ::dup2(read_only, TIFFFileno(tif)) < 0) throw std::runtime_error("dup2 failed");
  ::close(read_only);
}

}  // namespace tiffgate::testing
