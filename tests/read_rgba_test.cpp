// "readRGBAImage", "readRGBAStrip" and "readRGBATile" against libtiff's own
// TIFFReadRGBA* output for the same file.
#include "support/image_files.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <cstring>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;

/// Empty when the call returned a 4 x width x length uint8 array holding
/// exactly these raster words.
std::string compare_raster(const embedded::CallResult& r, const std::vector<std::uint32_t>& words,
                           std::size_t width, std::size_t length) {
  if (!r.ok()) return outcome(r);
  if (r.out().class_id() != zvUINT8_CLASS) return "not uint8";
  if (r.out().dims() != Array::Dims{4, width, length}) return "wrong dims";
  return std::memcmp(r.out().data(), words.data(), words.size() * 4) == 0 ? "" : "different pixels";
}

ImageSpec rgb_strips() {  // 21 x 13 in strips of 5
  ImageSpec s;
  s.width = 21, s.length = 13, s.samples = 3, s.photometric = PHOTOMETRIC_RGB, s.rowsPerStrip = 5;
  return s;
}

TEST(read_rgba, image_strip_and_tile_as_libtiff_gives_them) {
  ScratchDir dir;
  const std::string strips = dir.path("strips.tif");
  write_image(strips, rgb_strips());
  ImageSpec tiles;  // RGB + alpha, 40 x 24 in 16 x 16 tiles, LZW
  tiles.width = 40, tiles.length = 24, tiles.samples = 4, tiles.extraSamples = 1, tiles.tileWidth = tiles.tileLength = 16;
  tiles.photometric = PHOTOMETRIC_RGB, tiles.compression = COMPRESSION_LZW;
  write_image(dir.path("tiles.tif"), tiles);
  ImageSpec jpeg;  // YCbCr 2 x 2, JPEG
  jpeg.width = 48, jpeg.length = 40, jpeg.samples = 3, jpeg.photometric = PHOTOMETRIC_YCBCR;
  jpeg.compression = COMPRESSION_JPEG, jpeg.rowsPerStrip = 16;
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

  for (const char* name : {"strips.tif", "tiles.tif", "jpeg.tif", "palette.tif"}) {
    SCOPED_TRACE(name);
    const Array id = open_file(dir.path(name));
    TiffHandle ref(dir.path(name), "r");
    std::uint32_t w = 0, l = 0;
    TIFFGetField(ref, TIFFTAG_IMAGEWIDTH, &w);
    TIFFGetField(ref, TIFFTAG_IMAGELENGTH, &l);
    std::vector<std::uint32_t> image(std::size_t{w} * l);
    ASSERT_TRUE(TIFFReadRGBAImage(ref, w, l, image.data(), 0));
    EXPECT_EQ(compare_raster(call("readRGBAImage", {id}), image, w, l), "");
    call("close", {id});
  }

  // Any row of a strip reads that strip; the short last strip still has
  // RowsPerStrip rows of raster, those past the image zero.
  const Array id = open_file(strips);
  TiffHandle ref(strips, "r");
  std::vector<std::uint32_t> strip(21 * 5);
  ASSERT_TRUE(TIFFReadRGBAStrip(ref, 5, strip.data()));
  for (double row : {5.0, 7.0, 9.9}) EXPECT_EQ(compare_raster(call("readRGBAStrip", {id, num(row)}), strip, 21, 5), "");
  std::vector<std::uint32_t> last(21 * 5);
  ASSERT_TRUE(TIFFReadRGBAStrip(ref, 10, last.data()));
  EXPECT_EQ(compare_raster(call("readRGBAStrip", {id, num(12)}), last, 21, 5), "");
  call("close", {id});

  // Any pixel of a tile reads that tile, edge tiles included.
  const Array tid = open_file(dir.path("tiles.tif"));
  TiffHandle tref(dir.path("tiles.tif"), "r");
  std::vector<std::uint32_t> tile(16 * 16);
  ASSERT_TRUE(TIFFReadRGBATile(tref, 32, 16, tile.data()));
  EXPECT_EQ(compare_raster(call("readRGBATile", {tid, num(39), num(23)}), tile, 16, 16), "");
  EXPECT_EQ(compare_raster(call("readRGBATile", {tid, num(32), num(16)}), tile, 16, 16), "");
  call("close", {tid});

  // The JPEG strips through the RGBA interface.
  const Array jid = open_file(dir.path("jpeg.tif"));
  TiffHandle jref(dir.path("jpeg.tif"), "r");
  std::vector<std::uint32_t> jstrip(48 * 16);
  ASSERT_TRUE(TIFFReadRGBAStrip(jref, 32, jstrip.data()));
  EXPECT_EQ(compare_raster(call("readRGBAStrip", {jid, num(39)}), jstrip, 48, 16), "");
  call("close", {jid});
}

TEST(read_rgba, one_strip_taller_than_the_image) {
  ScratchDir dir;
  ImageSpec s = rgb_strips();
  s.rowsPerStrip = 100;
  write_image(dir.path("a.tif"), s);
  const Array id = open_file(dir.path("a.tif"));
  EXPECT_EQ(call("readRGBAStrip", {id, num(0)}).out().dims(), (Array::Dims{4, 21, 13}));
  call("close", {id});
}

TEST(read_rgba, error_kinds_and_their_arguments) {
  ScratchDir dir;
  write_image(dir.path("strips.tif"), rgb_strips());
  ImageSpec floats;  // libtiff's RGBA interface has no 32-bit samples
  floats.width = 40, floats.length = 24, floats.bits = 32, floats.format = SAMPLEFORMAT_IEEEFP;
  floats.tileWidth = floats.tileLength = 16;
  write_image(dir.path("float-tiles.tif"), floats);
  floats.tileWidth = floats.tileLength = 0, floats.rowsPerStrip = 5;
  write_image(dir.path("float-strips.tif"), floats);

  const Array strips = open_file(dir.path("strips.tif"));
  const Array ftiles = open_file(dir.path("float-tiles.tif"));
  const Array fstrips = open_file(dir.path("float-strips.tif"));
  EXPECT_EQ(outcome(call("readRGBAStrip", {ftiles, num(0)})), "strippedOperationOnTiledImage()");
  EXPECT_EQ(outcome(call("readRGBATile", {strips, num(0), num(0)})), "tiledOperationOnStrippedImage()");
  EXPECT_EQ(outcome(call("readRGBAImage", {fstrips})), "imageReadErrorRGBA()");
  // Row 7 lies in the strip starting at row 5: told 1-based, 6.
  EXPECT_EQ(outcome(call("readRGBAStrip", {fstrips, num(7)})), "stripReadErrorRGBA(6)");
  // Pixel (column 35, row 20) lies in the tile at column 32, row 16: row first.
  EXPECT_EQ(outcome(call("readRGBATile", {ftiles, num(35), num(20)})), "tileReadErrorRGBA(17, 33)");
  // Outside the image: refused, with the same 1-based origin.
  EXPECT_EQ(outcome(call("readRGBAStrip", {strips, num(100)})), "stripReadErrorRGBA(101)");
  ImageSpec rgbTiles = rgb_strips();
  rgbTiles.rowsPerStrip = 0, rgbTiles.tileWidth = rgbTiles.tileLength = 16;
  write_image(dir.path("rgb-tiles.tif"), rgbTiles);
  const Array tiles = open_file(dir.path("rgb-tiles.tif"));
  EXPECT_EQ(outcome(call("readRGBATile", {tiles, num(20), num(12)})), "ok");
  EXPECT_EQ(outcome(call("readRGBATile", {tiles, num(300), num(10)})), "tileReadErrorRGBA(1, 289)");
  EXPECT_EQ(outcome(call("readRGBAStrip", {strips, num(-1)})), "argumentOutOfBounds()");
  EXPECT_EQ(outcome(call("readRGBATile", {tiles, num(0), num(4294967296.0)})), "argumentOutOfBounds()");
  EXPECT_EQ(outcome(call("readRGBAImage", {Array::uint64(0)})), "badFileId()");
  for (const Array* id : {&strips, &ftiles, &fstrips, &tiles}) call("close", {*id});
}

}  // namespace
}  // namespace tiffgate::testing
