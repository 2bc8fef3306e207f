// "readRGBAImage", "readRGBAStrip" and "readRGBATile" against libtiff's own
// TIFFReadRGBA* output for the same file.
#include "support/image_files.h"
#include "support/raw_tiff.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <cstring>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;

/// Empty when the call returned a 4 x width x length uint8 array holding
/// exactly libtiff's raster words.
std::string compare_raster(const embedded::CallResult& r, const std::vector<std::uint32_t>& words,
                           std::size_t width, std::size_t length) {
  if (!r.ok()) return outcome(r);
  if (r.out().class_id() != zvUINT8_CLASS || r.out().dims() != Array::Dims{4, width, length}) return "wrong array";
  return std::memcmp(r.out().data(), words.data(), words.size() * 4) == 0 ? "" : "different pixels";
}

ImageSpec rgb(std::uint32_t rowsPerStrip, std::uint32_t tile = 0) {  // 21 x 13, 8-bit RGB
  ImageSpec s;
  s.width = 21, s.length = 13, s.samples = 3, s.photometric = PHOTOMETRIC_RGB;
  s.rowsPerStrip = rowsPerStrip, s.tileWidth = s.tileLength = tile;
  return s;
}

TEST(read_rgba, image_strip_and_tile_as_libtiff_gives_them) {
  ScratchDir dir;
  write_image(dir.path("strips.tif"), rgb(5));
  ImageSpec tiles = rgb(0, 16);  // RGB + alpha, 40 x 24, LZW
  tiles.width = 40, tiles.length = 24, tiles.samples = 4, tiles.extraSamples = 1, tiles.compression = COMPRESSION_LZW;
  write_image(dir.path("tiles.tif"), tiles);
  ImageSpec jpeg = rgb(16);  // YCbCr 2 x 2, JPEG
  jpeg.width = 48, jpeg.length = 40, jpeg.photometric = PHOTOMETRIC_YCBCR, jpeg.compression = COMPRESSION_JPEG;
  write_image(dir.path("jpeg.tif"), jpeg);
  {
    TiffHandle out(dir.path("palette.tif"), "w");
    set_basic_tags(out, 20, 10, 8, 1, 4);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
    std::vector<std::uint16_t> red(256), green(256), blue(256);
    for (int i = 0; i < 256; ++i) red[i] = i * 257, green[i] = (255 - i) * 257, blue[i] = (i * 7 % 256) * 257;
    TIFFSetField(out, TIFFTAG_COLORMAP, red.data(), green.data(), blue.data());
    write_chunks(out, [](std::uint32_t s, std::size_t i) { return static_cast<std::uint8_t>(s * 40 + i); });
  }

  // "image" is the whole image; a number is a row (strips) or a column and
  // row (tiles) inside the chunk that libtiff reads from its origin.
  struct Read {
    const char* file;
    std::vector<double> at;
    std::uint32_t x0, y0, width, length;
  };
  const Read reads[] = {
      {"strips.tif", {}, 0, 0, 21, 13},       {"tiles.tif", {}, 0, 0, 40, 24},
      {"jpeg.tif", {}, 0, 0, 48, 40},         {"palette.tif", {}, 0, 0, 20, 10},
      {"strips.tif", {5}, 0, 5, 21, 5},       {"strips.tif", {9.9}, 0, 5, 21, 5},
      {"strips.tif", {12}, 0, 10, 21, 5},     {"jpeg.tif", {39}, 0, 32, 48, 16},
      {"tiles.tif", {39, 23}, 32, 16, 16, 16}, {"tiles.tif", {32, 16}, 32, 16, 16, 16},
      {"tiles.tif", {17, 3}, 16, 0, 16, 16},
  };
  for (const Read& read : reads) {
    SCOPED_TRACE(std::string(read.file) + " " + std::to_string(read.at.size()));
    const Array id = open_file(dir.path(read.file));
    TiffHandle ref(dir.path(read.file), "r");
    // Zero-filled: the last strip's rows past the image are zero on both sides.
    std::vector<std::uint32_t> words(std::size_t{read.width} * read.length);
    std::vector<Array> operands{id};
    for (double v : read.at) operands.push_back(num(v));
    const char* command = read.at.empty() ? "readRGBAImage" : read.at.size() == 1 ? "readRGBAStrip" : "readRGBATile";
    if (read.at.empty())
      ASSERT_TRUE(TIFFReadRGBAImage(ref, read.width, read.length, words.data(), 0));
    else if (read.at.size() == 1)
      ASSERT_TRUE(TIFFReadRGBAStrip(ref, read.y0, words.data()));
    else
      ASSERT_TRUE(TIFFReadRGBATile(ref, read.x0, read.y0, words.data()));
    EXPECT_EQ(compare_raster(call(command, operands), words, read.width, read.length), "");
    call("close", {id});
  }
}

TEST(read_rgba, one_strip_taller_than_the_image) {
  ScratchDir dir;
  write_image(dir.path("a.tif"), rgb(100));
  const Array id = open_file(dir.path("a.tif"));
  EXPECT_EQ(call("readRGBAStrip", {id, num(0)}).out().dims(), (Array::Dims{4, 21, 13}));
  call("close", {id});
}

TEST(read_rgba, error_kinds_and_their_arguments) {
  ScratchDir dir;
  write_image(dir.path("strips.tif"), rgb(5));
  write_image(dir.path("tiles.tif"), rgb(0, 16));
  ImageSpec floats = rgb(5);  // libtiff's RGBA interface has no 32-bit samples
  floats.bits = 32, floats.format = SAMPLEFORMAT_IEEEFP;
  write_image(dir.path("float-strips.tif"), floats);
  floats.width = 40, floats.length = 24, floats.rowsPerStrip = 0, floats.tileWidth = floats.tileLength = 16;
  write_image(dir.path("float-tiles.tif"), floats);

  const Array strips = open_file(dir.path("strips.tif")), tiles = open_file(dir.path("tiles.tif"));
  const Array fstrips = open_file(dir.path("float-strips.tif")), ftiles = open_file(dir.path("float-tiles.tif"));
  EXPECT_EQ(outcome(call("readRGBAStrip", {tiles, num(0)})), "strippedOperationOnTiledImage()");
  EXPECT_EQ(outcome(call("readRGBATile", {strips, num(0), num(0)})), "tiledOperationOnStrippedImage()");
  EXPECT_EQ(outcome(call("readRGBAImage", {fstrips})), "imageReadErrorRGBA()");
  // Row 7 lies in the strip starting at row 5: told 1-based, 6.
  EXPECT_EQ(outcome(call("readRGBAStrip", {fstrips, num(7)})), "stripReadErrorRGBA(6)");
  // Pixel (column 35, row 20) lies in the tile at column 32, row 16: row first.
  EXPECT_EQ(outcome(call("readRGBATile", {ftiles, num(35), num(20)})), "tileReadErrorRGBA(17, 33)");
  // Outside the image: refused with the same 1-based origin.
  EXPECT_EQ(outcome(call("readRGBAStrip", {strips, num(100)})), "stripReadErrorRGBA(101)");
  EXPECT_EQ(outcome(call("readRGBATile", {tiles, num(300), num(10)})), "tileReadErrorRGBA(1, 289)");
  EXPECT_EQ(outcome(call("readRGBAStrip", {strips, num(-1)})), "argumentOutOfBounds()");
  EXPECT_EQ(outcome(call("readRGBATile", {tiles, num(0), num(4294967296.0)})), "argumentOutOfBounds()");
  EXPECT_EQ(outcome(call("readRGBAImage", {Array::uint64(0)})), "badFileId()");
  for (const Array* id : {&strips, &tiles, &fstrips, &ftiles}) call("close", {*id});

  // A directory being written with TileLength set but no TileWidth made
  // libtiff's RGBA tile reader divide by zero.
  const Array fresh = open_file(dir.path("fresh.tif"), "w");
  for (auto [tag, value] : {std::pair{256, 32}, {257, 32}, {262, 1}, {323, 16}})
    ASSERT_TRUE(call("setField", {fresh, num(tag), num(value)}).ok());
  EXPECT_EQ(outcome(call("readRGBATile", {fresh, num(0), num(0)})), "tileReadErrorRGBA(1, 1)");
  call("close", {fresh});
}

TEST(read_rgba, rasters_larger_than_memory_are_refused_before_allocating) {
  // Rasters of 4 x 10^12 bytes were allocated: out of memory, and an abort
  // in the sanitizer build.
  ScratchDir dir;
  const std::uint32_t huge = 1000000;  // rasters of 4 x 10^12 bytes
  const std::vector<RawEntry> image = {{256, 4, huge}, {257, 4, huge}, {258, 3, 8}, {259, 3, COMPRESSION_ADOBE_DEFLATE},
                                       {262, 3, PHOTOMETRIC_MINISBLACK}, {277, 3, 1}};
  std::vector<RawEntry> strips = image, tiles = image;
  strips.insert(strips.end(), {{273, 4, 8}, {278, 4, huge}, {279, 4, 16}});
  tiles.insert(tiles.end(), {{322, 4, huge}, {323, 4, huge}, {324, 4, 8}, {325, 4, 16}});
  write_raw_tiff(dir.path("strip.tif"), strips);
  write_raw_tiff(dir.path("tile.tif"), tiles);
  const Array s = open_file(dir.path("strip.tif")), t = open_file(dir.path("tile.tif"));
  EXPECT_EQ(outcome(call("readRGBAImage", {s})), "imageReadErrorRGBA()");
  EXPECT_EQ(outcome(call("readRGBAStrip", {s, num(5)})), "stripReadErrorRGBA(1)");
  EXPECT_EQ(outcome(call("readRGBATile", {t, num(5), num(7)})), "tileReadErrorRGBA(1, 1)");
  call("close", {s});
  call("close", {t});

  // A raster of 4 MB over a strip of 65 GB (65535 samples a pixel, as in a
  // malformed corpus file): libtiff's RGBA reader allocated the strip.
  std::vector<RawEntry> wide = {{256, 4, 1000}, {257, 4, 1000}, {258, 3, 8}, {259, 3, COMPRESSION_ADOBE_DEFLATE},
                                {262, 3, PHOTOMETRIC_MINISBLACK}, {273, 4, 8}, {277, 3, 65535}, {278, 4, 1000},
                                {279, 4, 16}};
  write_raw_tiff(dir.path("wide.tif"), wide);
  const Array w = open_file(dir.path("wide.tif"));
  EXPECT_EQ(outcome(call("readRGBAImage", {w})), "imageReadErrorRGBA()");
  EXPECT_EQ(outcome(call("readRGBAStrip", {w, num(0)})), "stripReadErrorRGBA(1)");
  call("close", {w});
}

}  // namespace
}  // namespace tiffgate::testing
