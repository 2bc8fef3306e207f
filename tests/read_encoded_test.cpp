// The read commands on files written with libtiff directly: the kinds
// "readEncodedStrip" and "readEncodedTile" refuse with, "readRGBAImage",
// "readRGBAStrip" and "readRGBATile" against libtiff's TIFFReadRGBA*
// output, and "computeStrip" and "computeTile" against answers worked out
// by hand. Every layout's chunks are read in image_round_trip_test.cpp and
// corpus_conformance_test.cpp.
#include "core/libtiff_messages.h"
#include "support/calls.h"
#include "support/image_files.h"
#include "support/raw_tiff.h"
#include "support/tiff_files.h"
#include "support/write_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;

constexpr std::uint16_t U = SAMPLEFORMAT_UINT, I = SAMPLEFORMAT_INT, F = SAMPLEFORMAT_IEEEFP;
constexpr std::uint16_t C = PLANARCONFIG_CONTIG, S = PLANARCONFIG_SEPARATE;
constexpr std::uint16_t GREY = PHOTOMETRIC_MINISBLACK, RGB = PHOTOMETRIC_RGB, YCC = PHOTOMETRIC_YCBCR;

/// 8-bit YCbCr 2 x 2 in strips.
ImageSpec ycbcr_spec(std::uint32_t width, std::uint32_t length, std::uint16_t compression, std::uint32_t rowsPerStrip) {
  ImageSpec s;
  s.width = width, s.length = length, s.samples = 3, s.photometric = YCC, s.compression = compression;
  s.rowsPerStrip = rowsPerStrip;
  return s;
}

/// A 32 x 20 single-sample file written with libtiff: 3 strips of 8 rows, or
/// 2 x 2 tiles of 16.
std::string plain_file(const ScratchDir& dir, const std::string& name, std::uint16_t bits, std::uint16_t format,
                       std::uint32_t tile = 0, std::uint32_t depth = 1) {
  TiffHandle out(dir.path(name), "w");
  set_basic_tags(out, 32, 20, bits, 1, 8, tile);
  TIFFSetField(out, TIFFTAG_SAMPLEFORMAT, format);
  if (depth > 1) TIFFSetField(out, TIFFTAG_IMAGEDEPTH, depth);
  write_chunks(out, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
  return dir.path(name);
}

std::string read_once(const std::string& path, double chunk, const char* command = "readEncodedStrip") {
  return outcome(call_on_file(path, command, {num(chunk)}));
}

// Beside the one row of each kind in every_kind_test.cpp: the other bounds,
// and which check comes first.
TEST(read_encoded, error_kinds_and_their_arguments) {
  ScratchDir dir;
  const std::string strips = plain_file(dir, "strips.tif", 8, U), tiles = plain_file(dir, "tiles.tif", 8, U, 16);
  EXPECT_EQ(read_once(strips, 3), "badStripNumber(3)");
  EXPECT_EQ(read_once(strips, 4e9), "badStripNumber(3)");
  EXPECT_EQ(read_once(tiles, 4, "readEncodedTile"), "badTileNumber(4)");
  const std::string deep = plain_file(dir, "deep.tif", 8, U, 0, 2);
  EXPECT_EQ(read_once(deep, 2), "ok");
  EXPECT_EQ(read_once(deep, 3), "imageDepthStrippedLayoutMismatch(2)");
  EXPECT_EQ(read_once(deep, 1e6), "imageDepthStrippedLayoutMismatch(2)");

  EXPECT_EQ(read_once(plain_file(dir, "f8.tif", 8, F), 0), "badSampleFormatBitsPerSampleCombination(3, 8)");
  EXPECT_EQ(read_once(plain_file(dir, "f16.tif", 16, F), 0), "badSampleFormatBitsPerSampleCombination(3, 16)");
  EXPECT_EQ(read_once(plain_file(dir, "u64.tif", 64, U), 0), "sampleFormatMustBeIeeeFpFor64Bits()");
  EXPECT_EQ(read_once(plain_file(dir, "i64.tif", 64, I), 0), "sampleFormatMustBeIeeeFpFor64Bits()");
  EXPECT_EQ(read_once(plain_file(dir, "b4.tif", 4, U), 0), "unhandledBitsPerSample(4)");
  EXPECT_EQ(read_once(plain_file(dir, "b12.tif", 12, U, 16), 0, "readEncodedTile"), "unhandledBitsPerSample(12)");
  // Strips check the number first, tiles the class first.
  EXPECT_EQ(read_once(plain_file(dir, "u64s.tif", 64, U), 9), "badStripNumber(3)");
  EXPECT_EQ(read_once(plain_file(dir, "u64t.tif", 64, U, 16), 9, "readEncodedTile"),
            "sampleFormatMustBeIeeeFpFor64Bits()");

  // A fourth YCbCr sample: libtiff opens no such file, so the directory is one being written.
  const ModuleFile ycc4(dir.path("ycc4.tif"), "w");
  EXPECT_EQ(outcome(call("readEncodedStrip", {ycc4, num(0)})), "tagRetrievalFailed('ImageLength')");
  set_basic_tags(handle_of(ycc4), 16, 8, 8, 4, 8);
  TIFFSetField(handle_of(ycc4), TIFFTAG_PHOTOMETRIC, YCC);
  TIFFSetField(handle_of(ycc4), TIFFTAG_YCBCRSUBSAMPLING, 1, 1);
  EXPECT_EQ(outcome(call("readEncodedStrip", {ycc4, num(0)})), "unsupportedYCbCrConfiguration()");

  // JPEG YCbCr once libtiff has been told to convert to RGB.
  write_image(dir.path("jpeg.tif"), ycbcr_spec(47, 40, COMPRESSION_JPEG, 16));
  const ModuleFile jpeg(dir.path("jpeg.tif"), "r");
  EXPECT_EQ(outcome(call("readEncodedStrip", {jpeg, num(0)})), "ok");
  TIFFSetField(handle_of(jpeg), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  EXPECT_EQ(outcome(call("readEncodedStrip", {jpeg, num(0)})), "readWithJpegColorModeRGB()");
}

TEST(read_encoded, chunks_larger_than_memory_are_refused_before_allocating) {
  // A malformed file's strip of 171 GB was allocated: out of memory, and an
  // abort in the sanitizer build.
  ScratchDir dir;
  write_huge_images(dir.path("strip.tif"), dir.path("tile.tif"));
  for (const char* name : {"strip.tif", "tile.tif"}) {
    SCOPED_TRACE(name);
    const auto r = call_on_file(dir.path(name), name[0] == 's' ? "readEncodedStrip" : "readEncodedTile", {num(0)});
    ASSERT_EQ(r.error_id(), "Quarn:imagesci:Tiff:tooManyBytes");
    // Chunk 0 would take its buffer and its array, more than there is.
    const auto& args = r.error->arguments;
    EXPECT_EQ(boost::get<std::int64_t>(args[0]), 0);
    EXPECT_GE(boost::get<std::int64_t>(args[2]), 2000000000000);
    EXPECT_LT(boost::get<std::int64_t>(args[1]), boost::get<std::int64_t>(args[2]));
  }
}

// The whole-image entry's operands, and samples of widths only it reads
// (files written with libtiff, each chunk's byte i being i): 24 bits signed,
// 40 unsigned, 48 signed, as stored, sign included; values worked out by hand
// from the bytes.
TEST(read_image, operands_and_widths_the_commands_refuse) {
  ScratchDir dir;
  const ModuleFile f(plain_file(dir, "strips.tif", 8, U), "r");  // 32 x 20
  const struct {
    std::vector<Array> operands;
    const char* expected;
  } calls[] = {{{str("x")}, "argumentOutOfBounds()"},
               {{num(-1)}, "argumentOutOfBounds()"},
               {{num(1.5)}, "argumentOutOfBounds()"},
               {{num(4097)}, "argumentOutOfBounds()"},
               {{num(1), Array::row({1, 2, 3})}, "argumentOutOfBounds()"},
               {{num(1), str("abcd")}, "argumentOutOfBounds()"},
               {{num(1), Array::row({0, 1, 1, 1})}, "argumentOutOfBounds()"},
               {{num(1), Array::row({2, 1, 1, 1})}, "argumentOutOfBounds()"},
               {{num(1), Array::row({1, 1, 2, 1})}, "argumentOutOfBounds()"},
               {{num(1), Array::row({1, 21, 1, 1})}, "argumentOutOfBounds()"},
               {{num(1), Array::row({1, 20, 1, 33})}, "argumentOutOfBounds()"},
               {{num(4096), Array::row({20, 20, 32, 32})}, "ok"},
               {{num(0), Array()}, "ok"}};
  for (const auto& c : calls) {
    std::vector<Array> operands = {f.id()};
    operands.insert(operands.end(), c.operands.begin(), c.operands.end());
    EXPECT_EQ(outcome(call("__readImage__", operands)), c.expected);
  }
  const struct {
    std::uint16_t bits, format;
    zvClassID cls;
    std::size_t row, column;
    double value;
  } widths[] = {{24, I, zvINT32_CLASS, 0, 0, 131328},           {24, I, zvINT32_CLASS, 1, 10, -8355970},
                {40, U, zvUINT64_CLASS, 0, 0, 17230332160.0},   {48, I, zvINT64_CLASS, 0, 0, 5514788471040.0},
                {48, I, zvINT64_CLASS, 0, 21, -136878435041410.0}};
  for (const auto& w : widths) {
    const ModuleFile g(plain_file(dir, "w" + std::to_string(w.bits) + ".tif", w.bits, w.format), "r");
    const embedded::CallResult r = call("__readImage__", {g.id()});
    ASSERT_EQ(outcome(r), "ok") << w.bits;
    EXPECT_EQ(r.out().class_id(), w.cls);
    EXPECT_EQ(r.out().number(w.row + w.column * 20), w.value) << w.bits;
  }
  const ModuleFile f8(plain_file(dir, "f8.tif", 8, F), "r");
  EXPECT_EQ(outcome(call("__readImage__", {f8.id()})), "badSampleFormatBitsPerSampleCombination(3, 8)");
}

// --- RGBA reads ---------------------------------------------------------------

/// Empty when the call returned a 4 x width x length uint8 array holding
/// exactly libtiff's raster words.
std::string compare_raster(const embedded::CallResult& r, const std::vector<std::uint32_t>& words,
                           std::size_t width, std::size_t length) {
  if (!r.ok()) return outcome(r);
  if (r.out().class_id() != zvUINT8_CLASS || r.out().dims() != Array::Dims{4, width, length}) return "wrong array";
  return std::memcmp(r.out().data(), words.data(), words.size() * 4) == 0 ? "" : "different pixels";
}

ImageSpec rgb_spec(std::uint32_t rowsPerStrip, std::uint32_t tile = 0) {  // 21 x 13, 8-bit RGB
  ImageSpec s;
  s.width = 21, s.length = 13, s.samples = 3, s.photometric = PHOTOMETRIC_RGB;
  s.rowsPerStrip = rowsPerStrip, s.tileWidth = s.tileLength = tile;
  return s;
}

TEST(read_rgba, image_strip_and_tile_as_libtiff_gives_them) {
  ScratchDir dir;
  write_image(dir.path("strips.tif"), rgb_spec(5));
  ImageSpec tiles = rgb_spec(0, 16);  // RGB + alpha, 40 x 24, LZW
  tiles.width = 40, tiles.length = 24, tiles.samples = 4, tiles.extraSamples = 1, tiles.compression = COMPRESSION_LZW;
  write_image(dir.path("tiles.tif"), tiles);
  ImageSpec jpeg = rgb_spec(16);  // YCbCr 2 x 2, JPEG
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
    const ModuleFile id(dir.path(read.file), "r");
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
  }
}

TEST(read_rgba, one_strip_taller_than_the_image) {
  ScratchDir dir;
  write_image(dir.path("a.tif"), rgb_spec(100));
  const ModuleFile id(dir.path("a.tif"), "r");
  EXPECT_EQ(call("readRGBAStrip", {id, num(0)}).out().dims(), (Array::Dims{4, 21, 13}));
}

TEST(read_rgba, error_kinds_and_their_arguments) {
  ScratchDir dir;
  write_image(dir.path("strips.tif"), rgb_spec(5));
  write_image(dir.path("tiles.tif"), rgb_spec(0, 16));
  ImageSpec floats = rgb_spec(5);  // libtiff's RGBA interface has no 32-bit samples
  floats.bits = 32, floats.format = SAMPLEFORMAT_IEEEFP;
  write_image(dir.path("float-strips.tif"), floats);
  floats.width = 40, floats.length = 24, floats.rowsPerStrip = 0, floats.tileWidth = floats.tileLength = 16;
  write_image(dir.path("float-tiles.tif"), floats);

  const ModuleFile strips(dir.path("strips.tif"), "r"), tiles(dir.path("tiles.tif"), "r");
  const ModuleFile fstrips(dir.path("float-strips.tif"), "r"), ftiles(dir.path("float-tiles.tif"), "r");
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

  // A directory being written with TileLength set but no TileWidth made
  // libtiff's RGBA tile reader divide by zero.
  const ModuleFile fresh(dir.path("fresh.tif"), "w");
  for (auto [tag, value] : {std::pair{256, 32}, {257, 32}, {262, 1}, {323, 16}})
    ASSERT_TRUE(call("setField", {fresh, num(tag), num(value)}).ok());
  EXPECT_EQ(outcome(call("readRGBATile", {fresh, num(0), num(0)})), "tileReadErrorRGBA(1, 1)");
}

TEST(read_rgba, rasters_larger_than_memory_are_refused_before_allocating) {
  // Rasters of 4 x 10^12 bytes were allocated: out of memory, and an abort
  // in the sanitizer build.
  ScratchDir dir;
  write_huge_images(dir.path("strip.tif"), dir.path("tile.tif"));
  const ModuleFile s(dir.path("strip.tif"), "r"), t(dir.path("tile.tif"), "r");
  EXPECT_EQ(outcome(call("readRGBAImage", {s})), "imageReadErrorRGBA()");
  EXPECT_EQ(outcome(call("readRGBAStrip", {s, num(5)})), "stripReadErrorRGBA(1)");
  EXPECT_EQ(outcome(call("readRGBATile", {t, num(5), num(7)})), "tileReadErrorRGBA(1, 1)");

  // A raster of 4 MB over a strip of 65 GB (65535 samples a pixel, as in a
  // malformed corpus file): libtiff's RGBA reader allocated the strip.
  std::vector<RawEntry> wide = {{256, 4, 1000}, {257, 4, 1000}, {258, 3, 8}, {259, 3, COMPRESSION_ADOBE_DEFLATE},
                                {262, 3, PHOTOMETRIC_MINISBLACK}, {273, 4, 8}, {277, 3, 65535}, {278, 4, 1000},
                                {279, 4, 16}};
  write_raw_tiff(dir.path("wide.tif"), wide);
  const ModuleFile w(dir.path("wide.tif"), "r");
  EXPECT_EQ(outcome(call("readRGBAImage", {w})), "imageReadErrorRGBA()");
  EXPECT_EQ(outcome(call("readRGBAStrip", {w, num(0)})), "stripReadErrorRGBA(1)");
}

// --- chunk numbers -----------------------------------------------------------

/// The answer as text ("3"), or the error as outcome() gives it.
std::string answer(const char* command, std::vector<Array> operands) {
  const auto r = call(command, std::move(operands));
  if (!r.ok()) return outcome(r);
  if (r.out().class_id() != zvDOUBLE_CLASS || r.out().numel() != 1) return "not a double scalar";
  return std::to_string(r.out().number());
}
std::string n(double v) { return std::to_string(v); }

std::string written(const ScratchDir& dir, const std::string& name, std::uint32_t width, std::uint32_t length,
                    std::uint16_t planar, std::uint32_t rowsPerStrip, std::uint32_t tile) {
  ImageSpec s;
  s.width = width, s.length = length, s.samples = 3, s.photometric = PHOTOMETRIC_RGB, s.planar = planar;
  s.rowsPerStrip = rowsPerStrip, s.tileWidth = s.tileLength = tile;
  write_image(dir.path(name), s);
  return dir.path(name);
}

TEST(compute_chunk, strips) {
  ScratchDir dir;
  // 32 rows in strips of 16 (2 strips); separate: 11 rows in strips of 4, 3 a plane.
  const ModuleFile contig(written(dir, "c.tif", 21, 32, PLANARCONFIG_CONTIG, 16, 0), "r");
  const ModuleFile planes(written(dir, "s.tif", 17, 11, PLANARCONFIG_SEPARATE, 4, 0), "r");
  EXPECT_EQ(answer("computeStrip", {contig, num(0)}), n(1));
  EXPECT_EQ(answer("computeStrip", {contig, num(15.9)}), n(1));
  EXPECT_EQ(answer("computeStrip", {contig, num(31)}), n(2));
  // Past the image: the last row, so the last strip (not strip 3).
  EXPECT_EQ(answer("computeStrip", {contig, num(32)}), n(2));
  EXPECT_EQ(answer("computeStrip", {contig, num(4294967295.0)}), n(2));
  EXPECT_EQ(answer("computeStrip", {contig, num(0), num(0)}), "sampleParameterNotAllowedInChunkyCase()");
  EXPECT_EQ(answer("computeStrip", {contig, num(-1)}), "argumentOutOfBounds()");
  EXPECT_EQ(answer("computeStrip", {contig, num(4294967296.0)}), "argumentOutOfBounds()");

  EXPECT_EQ(answer("computeStrip", {planes, num(0)}), "sampleParameterRequired()");
  EXPECT_EQ(answer("computeStrip", {planes, num(0), num(0)}), n(1));
  EXPECT_EQ(answer("computeStrip", {planes, num(0), num(1)}), n(4));
  EXPECT_EQ(answer("computeStrip", {planes, num(999), num(2)}), n(9));
  EXPECT_EQ(answer("computeStrip", {planes, num(0), num(65536)}), "argumentOutOfBounds()");
  // A sample past the last is held to SamplesPerPixel, which libtiff refuses
  // with its own error (answering index 0) that arrives as a warning.
  const auto r = call("computeStrip", {planes, num(4), num(7)});
  ASSERT_EQ(outcome(r), "ok");
  EXPECT_EQ(r.out().number(), 1);
  ASSERT_EQ(r.warnings.size(), 1u);
  EXPECT_EQ(r.warnings[0].identifier, kLibtiffErrorId);
}

TEST(compute_chunk, tiles) {
  ScratchDir dir;
  // 48 x 32 in 16 x 16 tiles: 3 across, 2 down, 6 a plane.
  const ModuleFile contig(written(dir, "c.tif", 48, 32, PLANARCONFIG_CONTIG, 0, 16), "r");
  const ModuleFile planes(written(dir, "s.tif", 48, 32, PLANARCONFIG_SEPARATE, 0, 16), "r");
  auto at = [](double row, double column) { return Array::row({row, column}); };
  EXPECT_EQ(answer("computeTile", {contig, at(0, 0)}), n(1));
  EXPECT_EQ(answer("computeTile", {contig, at(17, 33)}), n(6));
  EXPECT_EQ(answer("computeTile", {contig, at(0, 47)}), n(3));
  // The column is held to ImageWidth itself, one past the last pixel, which
  // libtiff counts as a fourth tile column; likewise the row.
  EXPECT_EQ(answer("computeTile", {contig, at(0, 1000)}), n(4));
  EXPECT_EQ(answer("computeTile", {contig, at(1000, 0)}), n(7));
  EXPECT_EQ(answer("computeTile", {contig, at(0, 0), num(1)}), "sampleParameterNotAllowedInChunkyCase()");
  EXPECT_EQ(answer("computeTile", {contig, at(-1, 0)}), "argumentOutOfBounds()");
  EXPECT_EQ(answer("computeTile", {contig, Array::scalar(0)}), "argumentOutOfBounds()");

  EXPECT_EQ(answer("computeTile", {planes, at(0, 0)}), "sampleParameterRequired()");
  EXPECT_EQ(answer("computeTile", {planes, at(17, 33), num(2)}), n(18));
  EXPECT_EQ(answer("computeTile", {planes, at(0, 0), num(1.5)}), n(7));
}

}  // namespace
}  // namespace tiffgate::testing
