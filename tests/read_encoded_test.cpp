// "readEncodedStrip" and "readEncodedTile" on files written with libtiff
// directly, checked against the pattern written and against libtiff's own
// decode of the same chunk.
#include "gateway/libtiff_messages.h"
#include "support/image_files.h"
#include "support/raw_tiff.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;

constexpr std::uint16_t U = SAMPLEFORMAT_UINT, I = SAMPLEFORMAT_INT, F = SAMPLEFORMAT_IEEEFP;
constexpr std::uint16_t C = PLANARCONFIG_CONTIG, S = PLANARCONFIG_SEPARATE;
constexpr std::uint16_t GREY = PHOTOMETRIC_MINISBLACK, RGB = PHOTOMETRIC_RGB, YCC = PHOTOMETRIC_YCBCR;

struct Case {
  const char* name;
  zvClassID cls;
  std::uint32_t width, length;
  std::uint16_t bits, samples, format, planar, photometric, compression;
  std::uint32_t rowsPerStrip, tile;  // tiled when tile is non-zero
  std::uint16_t extra, h, v;
  std::size_t last[3];  // dimensions of the last chunk (Y for YCbCr), worked out by hand
};

ImageSpec spec_of(const Case& c) {
  ImageSpec s;
  s.width = c.width, s.length = c.length, s.bits = c.bits, s.samples = c.samples, s.format = c.format;
  s.planar = c.planar, s.photometric = c.photometric, s.compression = c.compression;
  s.rowsPerStrip = c.rowsPerStrip, s.tileWidth = s.tileLength = c.tile, s.extraSamples = c.extra;
  s.subsampling[0] = c.h, s.subsampling[1] = c.v;
  return s;
}

const Case kCases[] = {
    // name, class, width, length, bits, samples, format, planar, photometric, compression,
    // rows per strip, tile, extra samples, h, v, last chunk's dimensions
    {"uint8 grey", zvUINT8_CLASS, 21, 13, 8, 1, U, C, GREY, COMPRESSION_NONE, 5, 0, 0, 1, 1, {3, 21}},
    {"int8 grey, PackBits", zvINT8_CLASS, 19, 7, 8, 1, I, C, GREY, COMPRESSION_PACKBITS, 3, 0, 0, 1, 1, {1, 19}},
    {"void 8-bit", zvUINT8_CLASS, 9, 4, 8, 1, SAMPLEFORMAT_VOID, C, GREY, COMPRESSION_LZW, 4, 0, 0, 1, 1, {4, 9}},
    {"uint16 RGB, LZW", zvUINT16_CLASS, 17, 11, 16, 3, U, C, RGB, COMPRESSION_LZW, 4, 0, 0, 1, 1, {3, 17, 3}},
    {"int16 RGB planes, Deflate", zvINT16_CLASS, 17, 11, 16, 3, I, S, RGB, COMPRESSION_ADOBE_DEFLATE, 4, 0, 0, 1, 1,
     {3, 17}},
    {"uint32 grey + alpha tiles", zvUINT32_CLASS, 40, 24, 32, 2, U, C, GREY, COMPRESSION_NONE, 0, 16, 1, 1, 1,
     {8, 8, 2}},
    {"int32 RGB plane tiles, LZW", zvINT32_CLASS, 33, 20, 32, 3, I, S, RGB, COMPRESSION_LZW, 0, 16, 0, 1, 1, {4, 1}},
    {"single RGBA tiles, Deflate", zvSINGLE_CLASS, 40, 24, 32, 4, F, C, RGB, COMPRESSION_ADOBE_DEFLATE, 0, 16, 1, 1,
     1, {8, 8, 4}},
    {"double grey, PackBits", zvDOUBLE_CLASS, 13, 9, 64, 1, F, C, GREY, COMPRESSION_PACKBITS, 4, 0, 0, 1, 1, {1, 13}},
    {"double RGB planes", zvDOUBLE_CLASS, 7, 5, 64, 3, F, S, RGB, COMPRESSION_NONE, 2, 0, 0, 1, 1, {1, 7}},
    {"1-bit 130 wide", zvLOGICAL_CLASS, 130, 5, 1, 1, U, C, GREY, COMPRESSION_NONE, 2, 0, 0, 1, 1, {1, 130}},
    {"1-bit G4", zvLOGICAL_CLASS, 130, 9, 1, 1, U, C, PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4, 4, 0, 0, 1, 1,
     {1, 130}},
    {"1-bit grey + alpha", zvLOGICAL_CLASS, 21, 5, 1, 2, U, C, GREY, COMPRESSION_NONE, 2, 0, 1, 1, 1, {1, 21, 2}},
    {"1-bit tiles, LZW", zvLOGICAL_CLASS, 21, 19, 1, 1, U, C, GREY, COMPRESSION_LZW, 0, 16, 0, 1, 1, {3, 5}},
    {"YCbCr 2x2", zvUINT8_CLASS, 15, 9, 8, 3, U, C, YCC, COMPRESSION_NONE, 4, 0, 0, 2, 2, {1, 15}},
    {"YCbCr 2x1, LZW", zvUINT8_CLASS, 15, 5, 8, 3, U, C, YCC, COMPRESSION_LZW, 3, 0, 0, 2, 1, {2, 15}},
    {"YCbCr 2x2 tiles", zvUINT8_CLASS, 31, 17, 8, 3, U, C, YCC, COMPRESSION_NONE, 0, 16, 0, 2, 2, {1, 15}},
    {"YCbCr 2x2 JPEG", zvUINT8_CLASS, 47, 40, 8, 3, U, C, YCC, COMPRESSION_JPEG, 16, 0, 0, 2, 2, {8, 47}},
    {"YCbCr 2x1 JPEG", zvUINT8_CLASS, 47, 40, 8, 3, U, C, YCC, COMPRESSION_JPEG, 16, 0, 0, 2, 1, {8, 47}},
    {"JPEG grey", zvUINT8_CLASS, 40, 24, 8, 1, U, C, GREY, COMPRESSION_JPEG, 16, 0, 0, 1, 1, {8, 40}},
    {"JPEG RGB tiles", zvUINT8_CLASS, 40, 40, 8, 3, U, C, RGB, COMPRESSION_JPEG, 0, 16, 0, 1, 1, {8, 8, 3}},
};

std::uint32_t chunk_count(TIFF* tif) { return TIFFIsTiled(tif) ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif); }
const char* read_command(TIFF* tif) { return TIFFIsTiled(tif) ? "readEncodedTile" : "readEncodedStrip"; }

TEST(read_encoded, every_layout_matches_the_pattern_and_libtiff) {
  ScratchDir dir;
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    const ImageSpec image_spec = spec_of(c);
    const std::string path = dir.path(std::string(c.name) + ".tif");
    write_image(path, image_spec);
    const Array id = open_file(path);
    TiffHandle ref(path, "r");
    const std::uint32_t count = chunk_count(ref);
    for (std::uint32_t i = 0; i < count; ++i) {
      const auto r = call(read_command(ref), {id, num(i)});
      ASSERT_EQ(outcome(r), "ok") << "chunk " << i;
      for (std::size_t k = 0; k < (c.photometric == YCC ? 3 : 1); ++k) EXPECT_EQ(r.out(k).class_id(), c.cls);
      if (c.compression != COMPRESSION_JPEG) {
        EXPECT_EQ(compare_outputs(r, pattern_chunk(image_spec, ref, i)), "") << "chunk " << i;
      }
      EXPECT_EQ(compare_outputs(r, libtiff_chunk(ref, i)), "") << "chunk " << i;
      EXPECT_TRUE(r.warnings.empty()) << r.warnings.front().message;
      if (i + 1 == count) {
        EXPECT_EQ(r.out().dims(), Array::Dims(c.last, std::find(c.last, c.last + 3, 0)));
      }
    }
    call("close", {id});
  }
}

TEST(read_encoded, one_bit_rows_start_on_a_byte) {
  // Row 0 of the 130-wide pattern has pixel 127 set and 126 and 128 clear;
  // row 1 has 128 set and 127 and 129 clear. A row that did not start on a
  // byte would shift them.
  ScratchDir dir;
  write_image(dir.path("bits.tif"), spec_of(kCases[10]));
  const Array id = open_file(dir.path("bits.tif"));
  const auto r = call("readEncodedStrip", {id, num(0)});
  call("close", {id});
  ASSERT_EQ(outcome(r), "ok");
  ASSERT_EQ(r.out().dims(), (Array::Dims{2, 130}));
  auto at = [&](std::size_t row, std::size_t column) { return r.out().at<bool>(row + 2 * column); };
  EXPECT_FALSE(at(0, 126));
  EXPECT_TRUE(at(0, 127));
  EXPECT_FALSE(at(0, 128));
  EXPECT_FALSE(at(1, 127));
  EXPECT_TRUE(at(1, 128));
  EXPECT_FALSE(at(1, 129));
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
  const Array id = open_file(path);
  const std::string result = outcome(call(command, {id, num(chunk)}));
  call("close", {id});
  return result;
}

TEST(read_encoded, error_kinds_and_their_arguments) {
  ScratchDir dir;
  const std::string strips = plain_file(dir, "strips.tif", 8, U), tiles = plain_file(dir, "tiles.tif", 8, U, 16);
  EXPECT_EQ(read_once(strips, 0, "readEncodedTile"), "tiledOperationOnStrippedImage()");
  EXPECT_EQ(read_once(tiles, 0), "strippedOperationOnTiledImage()");
  EXPECT_EQ(read_once(strips, 3), "badStripNumber(3)");
  EXPECT_EQ(read_once(strips, 4e9), "badStripNumber(3)");
  EXPECT_EQ(read_once(tiles, 4, "readEncodedTile"), "badTileNumber(4)");
  const std::string deep = plain_file(dir, "deep.tif", 8, U, 0, 2);
  EXPECT_EQ(read_once(deep, 2), "ok");
  EXPECT_EQ(read_once(deep, 3), "imageDepthStrippedLayoutMismatch(2)");
  EXPECT_EQ(read_once(deep, 1e6), "imageDepthStrippedLayoutMismatch(2)");

  EXPECT_EQ(read_once(plain_file(dir, "c.tif", 32, SAMPLEFORMAT_COMPLEXINT), 0), "complexSampleFormat()");
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
  // LogL read before anyone set the codec's data format (libtiff's -1).
  EXPECT_EQ(read_once(corpus_dir() + "/imagetiff-pics-off-l16.tif", 0), "luvCodecNotSet()");

  ImageSpec ycc = spec_of(kCases[14]);
  ycc.planar = S;
  write_image(dir.path("ycc-planes.tif"), ycc);
  EXPECT_EQ(read_once(dir.path("ycc-planes.tif"), 0), "unsupportedYCbCrConfiguration()");
  // A fourth YCbCr sample: libtiff opens no such file, so the directory is one being written.
  const Array ycc4 = open_file(dir.path("ycc4.tif"), "w");
  EXPECT_EQ(outcome(call("readEncodedStrip", {ycc4, num(0)})), "tagRetrievalFailed('ImageLength')");
  set_basic_tags(handle_of(ycc4), 16, 8, 8, 4, 8);
  TIFFSetField(handle_of(ycc4), TIFFTAG_PHOTOMETRIC, YCC);
  TIFFSetField(handle_of(ycc4), TIFFTAG_YCBCRSUBSAMPLING, 1, 1);
  EXPECT_EQ(outcome(call("readEncodedStrip", {ycc4, num(0)})), "unsupportedYCbCrConfiguration()");
  call("close", {ycc4});

  // JPEG YCbCr once libtiff has been told to convert to RGB.
  write_image(dir.path("jpeg.tif"), spec_of(kCases[17]));
  const Array jpeg = open_file(dir.path("jpeg.tif"));
  EXPECT_EQ(outcome(call("readEncodedStrip", {jpeg, num(0)})), "ok");
  TIFFSetField(handle_of(jpeg), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  EXPECT_EQ(outcome(call("readEncodedStrip", {jpeg, num(0)})), "readWithJpegColorModeRGB()");
  call("close", {jpeg});
}

TEST(read_encoded, bad_chunk_numbers_and_operands) {
  ScratchDir dir;
  write_image(dir.path("a.tif"), spec_of(kCases[0]));  // 3 strips
  const Array id = open_file(dir.path("a.tif"));
  TiffHandle ref(dir.path("a.tif"), "r");
  EXPECT_EQ(outcome(call("readEncodedStrip", {id, num(-1)})), "argumentOutOfBounds()");
  EXPECT_EQ(outcome(call("readEncodedStrip", {id, num(4294967296.0)})), "argumentOutOfBounds()");
  EXPECT_EQ(outcome(call("readEncodedStrip", {id, num(4294967295.0)})), "badStripNumber(3)");
  EXPECT_EQ(outcome(call("readEncodedStrip", {id})), "wrongNumberOfInputs()");
  EXPECT_EQ(outcome(call("readEncodedStrip", {str("x"), num(0)})), "badFileId()");
  // NaN converts to 0, fractions truncate, and any numeric class will do.
  EXPECT_EQ(compare_outputs(call("readEncodedStrip", {id, num(std::nan(""))}), libtiff_chunk(ref, 0)), "");
  EXPECT_EQ(compare_outputs(call("readEncodedStrip", {id, num(1.99)}), libtiff_chunk(ref, 1)), "");
  const Array two = Array::of<std::uint8_t>(zvUINT8_CLASS, {1, 1}, {2});
  EXPECT_EQ(compare_outputs(call("readEncodedStrip", {id, two}), libtiff_chunk(ref, 2)), "");
  call("close", {id});
  // The tile read ignores a third operand of any class.
  const Array tiled = open_file(plain_file(dir, "t.tif", 8, U, 16));
  EXPECT_EQ(outcome(call("readEncodedTile", {tiled, num(1), Array::cell({})})), "ok");
  call("close", {tiled});
}

bool all_zero(const Array& a) {
  const auto* bytes = static_cast<const unsigned char*>(a.data());
  return std::all_of(bytes, bytes + a.byte_size(), [](unsigned char b) { return b == 0; });
}

TEST(read_encoded, corrupt_and_truncated_chunks_still_convert) {
  ScratchDir dir;
  ImageSpec image_spec = spec_of(kCases[5]);  // 6 tiles
  image_spec.compression = COMPRESSION_ADOBE_DEFLATE;
  const std::string path = dir.path("corrupt.tif");
  write_image(path, image_spec);
  {
    TiffHandle in(path, "r");
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(static_cast<std::streamoff>(TIFFGetStrileOffset(in, 1)));
    for (std::uint64_t i = 0; i < TIFFGetStrileByteCount(in, 1); ++i) f.put(static_cast<char>(0xA5 ^ i));
  }
  // The damaged tile comes back converted from the zero-filled buffer, with
  // libtiff's complaint as a warning; its neighbours are intact.
  const Array id = open_file(path);
  TiffHandle ref(path, "r");
  const auto bad = call("readEncodedTile", {id, num(1)});
  ASSERT_EQ(outcome(bad), "ok");
  EXPECT_EQ(bad.out().dims(), (Array::Dims{16, 16, 2}));
  EXPECT_TRUE(all_zero(bad.out()));
  ASSERT_EQ(bad.warnings.size(), 1u);
  EXPECT_EQ(bad.warnings[0].identifier, kLibtiffErrorId);
  EXPECT_EQ(compare_outputs(call("readEncodedTile", {id, num(2)}), pattern_chunk(image_spec, ref, 2)), "");
  call("close", {id});

  // JPEG YCbCr strips whose data lie past the end of the file: zeros in all
  // three outputs, and libtiff's read error as a warning.
  const Array cut = open_file(corpus_dir() + "/malformed/pillow-crash-0c7e0e8e-truncated.tif");
  const auto r = call("readEncodedStrip", {cut, num(0)});
  ASSERT_EQ(outcome(r), "ok");
  EXPECT_EQ(r.out(0).dims(), (Array::Dims{16, 480}));
  EXPECT_EQ(r.out(2).dims(), (Array::Dims{8, 240}));
  for (std::size_t k = 0; k < 3; ++k) EXPECT_TRUE(all_zero(r.out(k)));
  ASSERT_FALSE(r.warnings.empty());
  EXPECT_EQ(r.warnings.back().identifier, kLibtiffErrorId);
  call("close", {cut});
}

TEST(read_encoded, chunks_larger_than_memory_are_refused_before_allocating) {
  // A malformed file's strip of 171 GB was allocated: out of memory, and an
  // abort in the sanitizer build.
  ScratchDir dir;
  const std::uint32_t huge = 1000000;  // chunks of 10^12 bytes, more than any machine here has
  const std::vector<RawEntry> image = {{256, 4, huge}, {257, 4, huge}, {258, 3, 8}, {259, 3, COMPRESSION_ADOBE_DEFLATE},
                                       {262, 3, PHOTOMETRIC_MINISBLACK}, {277, 3, 1}};
  std::vector<RawEntry> strips = image, tiles = image;
  strips.insert(strips.end(), {{273, 4, 8}, {278, 4, huge}, {279, 4, 16}});
  tiles.insert(tiles.end(), {{322, 4, huge}, {323, 4, huge}, {324, 4, 8}, {325, 4, 16}});
  write_raw_tiff(dir.path("strip.tif"), strips);
  write_raw_tiff(dir.path("tile.tif"), tiles);
  for (const char* name : {"strip.tif", "tile.tif"}) {
    SCOPED_TRACE(name);
    const Array id = open_file(dir.path(name));
    const auto r = call(name[0] == 's' ? "readEncodedStrip" : "readEncodedTile", {id, num(0)});
    ASSERT_EQ(r.error_id(), "Quarn:imagesci:Tiff:tooManyBytes");
    // Chunk 0 would take its buffer and its array, more than there is.
    const auto& args = r.error->arguments;
    EXPECT_EQ(boost::get<std::int64_t>(args[0]), 0);
    EXPECT_GE(boost::get<std::int64_t>(args[2]), 2000000000000);
    EXPECT_LT(boost::get<std::int64_t>(args[1]), boost::get<std::int64_t>(args[2]));
    call("close", {id});
  }
}

}  // namespace
}  // namespace tiffgate::testing
