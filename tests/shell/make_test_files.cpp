// make_test_files DIR: writes the TIFF files the shell's script tests read,
// with libtiff directly, and DIR/values: NAME=VALUE lines (facts learnt
// from libtiff, such as a SubIFD's offset) that the tests substitute for
// @NAME@ in their scripts and expected output.

#include <tiffio.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace {

[[noreturn]] void die(const std::string& what) {
  std::fprintf(stderr, "make_test_files: %s\n", what.c_str());
  std::exit(1);
}

void check(int ok, const char* what) {
  if (!ok) die(what);
}

/// Opens path for writing; dies when libtiff cannot.
TIFF* create(const std::string& path) {
  TIFF* tif = TIFFOpen(path.c_str(), "w");
  if (tif == nullptr) die("cannot write " + path);
  return tif;
}

/// The tags every directory here has; RowsPerStrip when rows is not 0.
void set_image(TIFF* tif, std::uint32_t width, std::uint32_t length, std::uint16_t bits, std::uint16_t samples,
               std::uint16_t photometric, std::uint16_t compression, std::uint32_t rows = 0) {
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, width);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, length);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, bits);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, samples);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, photometric);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
  if (rows) TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rows);
}

/// Writes the strips of the current directory (rows_per_strip rows each, the
/// last one shorter) with bytes from fill(strip, byte).
template <class Fill>
void write_strips(TIFF* tif, std::uint32_t length, std::uint32_t rows_per_strip, Fill fill) {
  const tmsize_t row_bytes = TIFFScanlineSize(tif);
  const std::uint32_t strips = TIFFNumberOfStrips(tif);
  const std::uint32_t per_plane = (length + rows_per_strip - 1) / rows_per_strip;
  for (std::uint32_t s = 0; s < strips; ++s) {
    const std::uint32_t rows = std::min(rows_per_strip, length - (s % per_plane) * rows_per_strip);
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(row_bytes) * rows);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = fill(s, i);
    check(TIFFWriteEncodedStrip(tif, s, bytes.data(), static_cast<tmsize_t>(bytes.size())) >= 0, "strip write");
  }
}

/// strips.tif: an 8-bit RGB directory with text tags and one SubIFD, then a
/// 16-bit grey + alpha directory with separate planes.
std::uint64_t write_strips_file(const std::string& path) {
  TIFF* tif = create(path);
  set_image(tif, 20, 10, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_LZW, 4);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_IMAGEDESCRIPTION, "two directories");
  TIFFSetField(tif, TIFFTAG_SOFTWARE, "make_test_files");
  TIFFSetField(tif, TIFFTAG_ARTIST, "O'Brien");
  toff_t placeholder = 0;
  // libtiff writes the next directory as this one's SubIFD.
  TIFFSetField(tif, TIFFTAG_SUBIFD, 1, &placeholder);
  write_strips(tif, 10, 4, [](std::uint32_t s, std::size_t i) { return static_cast<std::uint8_t>(s * 60 + i); });
  check(TIFFWriteDirectory(tif), "directory 1");

  TIFFSetField(tif, TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE);
  set_image(tif, 10, 5, 8, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE, 5);
  write_strips(tif, 5, 5, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
  check(TIFFWriteDirectory(tif), "the SubIFD");

  const std::uint16_t extra = EXTRASAMPLE_UNASSALPHA;
  set_image(tif, 8, 6, 16, 2, PHOTOMETRIC_MINISBLACK, COMPRESSION_PACKBITS, 3);
  TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
  write_strips(tif, 6, 3, [](std::uint32_t s, std::size_t i) { return static_cast<std::uint8_t>(s + i); });
  check(TIFFWriteDirectory(tif), "directory 2");
  TIFFClose(tif);

  tif = TIFFOpen(path.c_str(), "r");
  std::uint16_t count = 0;
  toff_t* offsets = nullptr;
  check(tif && TIFFGetField(tif, TIFFTAG_SUBIFD, &count, &offsets) && count == 1, "reading the SubIFD offset back");
  const std::uint64_t offset = offsets[0];
  TIFFClose(tif);
  return offset;
}

/// tiled.tif: 40x24 32-bit floating point grey in 16x16 tiles (3 x 2).
void write_tiled_file(const std::string& path) {
  TIFF* tif = create(path);
  set_image(tif, 40, 24, 32, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_ADOBE_DEFLATE);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_IEEEFP);
  TIFFSetField(tif, TIFFTAG_TILEWIDTH, 16);
  TIFFSetField(tif, TIFFTAG_TILELENGTH, 16);
  TIFFSetField(tif, TIFFTAG_DATETIME, "2024:01:02 03:04:05");
  std::vector<float> tile(16 * 16);
  for (std::uint32_t t = 0; t < TIFFNumberOfTiles(tif); ++t) {
    for (std::size_t i = 0; i < tile.size(); ++i) tile[i] = static_cast<float>(t) + static_cast<float>(i) / 256;
    check(TIFFWriteEncodedTile(tif, t, tile.data(), TIFFTileSize(tif)) >= 0, "tile write");
  }
  check(TIFFWriteDirectory(tif), "tiled directory");
  TIFFClose(tif);
}

/// bilevel.tif: 13x3 1-bit MinIsWhite, CCITT Group 4.
void write_bilevel_file(const std::string& path) {
  TIFF* tif = create(path);
  set_image(tif, 13, 3, 1, 1, PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4, 3);
  write_strips(tif, 3, 3, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i % 2 ? 0xF0 : 0x0F); });
  check(TIFFWriteDirectory(tif), "bilevel directory");
  TIFFClose(tif);
}

// A private tag that only this writer knows: a reader without it warns.
const TIFFFieldInfo kPrivateTag[] = {{65000, 1, 1, TIFF_LONG, FIELD_CUSTOM, 1, 0, const_cast<char*>("TestPrivateTag")}};
TIFFExtendProc previous_extender = nullptr;

void add_private_tag(TIFF* tif) {
  TIFFMergeFieldInfo(tif, kPrivateTag, 1);
  if (previous_extender) previous_extender(tif);
}

/// private.tif: a 4x2 8-bit grey image carrying tag 65000.
void write_private_tag_file(const std::string& path) {
  previous_extender = TIFFSetTagExtender(add_private_tag);
  TIFF* tif = create(path);
  set_image(tif, 4, 2, 8, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_NONE);
  TIFFSetField(tif, 65000, std::uint32_t{42});
  write_strips(tif, 2, 2, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
  check(TIFFWriteDirectory(tif), "private tag directory");
  TIFFClose(tif);
  TIFFSetTagExtender(previous_extender);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) die("usage: make_test_files DIR");
  const std::string dir = argv[1];
  const std::uint64_t subifd = write_strips_file(dir + "/strips.tif");
  write_tiled_file(dir + "/tiled.tif");
  write_bilevel_file(dir + "/bilevel.tif");
  write_private_tag_file(dir + "/private.tif");
  std::ofstream(dir + "/notatiff.tif") << "This is not a TIFF file.\n";
  const std::string version = TIFFGetVersion();
  std::ofstream values(dir + "/values");
  values << "SUBIFD=" << subifd << '\n' << "LIBTIFF_VERSION=" << version.substr(0, version.find('\n')) << '\n';
  return values ? 0 : 1;
}
