// "readEncodedStrip" and "readEncodedTile" on files written with libtiff
// directly, checked against the pattern written and against libtiff's own
// decode of the same chunk.
#include "gateway/libtiff_messages.h"
#include "support/image_files.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
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
    // name, class, width, length, bits, samples, format, planar, photometric, compression, rows per strip, tile, extra, h, v
    {"uint8 grey, short last strip", zvUINT8_CLASS, 21, 13, 8, 1, U, C, GREY, COMPRESSION_NONE, 5, 0, 0, 1, 1},
    {"int8 grey, PackBits", zvINT8_CLASS, 19, 7, 8, 1, I, C, GREY, COMPRESSION_PACKBITS, 3, 0, 0, 1, 1},
    {"void 8-bit reads as unsigned", zvUINT8_CLASS, 9, 4, 8, 1, SAMPLEFORMAT_VOID, C, GREY, COMPRESSION_LZW, 4, 0, 0, 1, 1},
    {"uint16 RGB contiguous, LZW", zvUINT16_CLASS, 17, 11, 16, 3, U, C, RGB, COMPRESSION_LZW, 4, 0, 0, 1, 1},
    {"int16 RGB separate, Deflate", zvINT16_CLASS, 17, 11, 16, 3, I, S, RGB, COMPRESSION_ADOBE_DEFLATE, 4, 0, 0, 1, 1},
    {"uint32 grey + alpha, partial tiles", zvUINT32_CLASS, 40, 24, 32, 2, U, C, GREY, COMPRESSION_NONE, 0, 16, 1, 1, 1},
    {"int32 RGB separate tiles, LZW", zvINT32_CLASS, 33, 20, 32, 3, I, S, RGB, COMPRESSION_LZW, 0, 16, 0, 1, 1},
    {"single RGBA tiles, Deflate", zvSINGLE_CLASS, 40, 24, 32, 4, F, C, RGB, COMPRESSION_ADOBE_DEFLATE, 0, 16, 1, 1, 1},
    {"double grey, PackBits", zvDOUBLE_CLASS, 13, 9, 64, 1, F, C, GREY, COMPRESSION_PACKBITS, 4, 0, 0, 1, 1},
    {"double RGB separate", zvDOUBLE_CLASS, 7, 5, 64, 3, F, S, RGB, COMPRESSION_NONE, 2, 0, 0, 1, 1},
    {"1-bit 130 wide", zvLOGICAL_CLASS, 130, 5, 1, 1, U, C, GREY, COMPRESSION_NONE, 2, 0, 0, 1, 1},
    {"1-bit CCITT G4", zvLOGICAL_CLASS, 130, 9, 1, 1, U, C, PHOTOMETRIC_MINISWHITE, COMPRESSION_CCITTFAX4, 4, 0, 0, 1, 1},
    {"1-bit grey + alpha", zvLOGICAL_CLASS, 21, 5, 1, 2, U, C, GREY, COMPRESSION_NONE, 2, 0, 1, 1, 1},
    {"1-bit partial tiles, LZW", zvLOGICAL_CLASS, 21, 19, 1, 1, U, C, GREY, COMPRESSION_LZW, 0, 16, 0, 1, 1},
    {"YCbCr 2x2 odd edges", zvUINT8_CLASS, 15, 9, 8, 3, U, C, YCC, COMPRESSION_NONE, 4, 0, 0, 2, 2},
    {"YCbCr 2x1 odd edges, LZW", zvUINT8_CLASS, 15, 5, 8, 3, U, C, YCC, COMPRESSION_LZW, 3, 0, 0, 2, 1},
    {"YCbCr 2x2 partial tiles", zvUINT8_CLASS, 31, 17, 8, 3, U, C, YCC, COMPRESSION_NONE, 0, 16, 0, 2, 2},
    {"YCbCr 2x2 JPEG, raw colour mode", zvUINT8_CLASS, 48, 40, 8, 3, U, C, YCC, COMPRESSION_JPEG, 16, 0, 0, 2, 2},
    {"JPEG grey", zvUINT8_CLASS, 40, 24, 8, 1, U, C, GREY, COMPRESSION_JPEG, 16, 0, 0, 1, 1},
    {"JPEG RGB tiles", zvUINT8_CLASS, 40, 40, 8, 3, U, C, RGB, COMPRESSION_JPEG, 0, 16, 0, 1, 1},
};

std::uint32_t chunk_count(TIFF* tif) { return TIFFIsTiled(tif) ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif); }
const char* read_command(TIFF* tif) { return TIFFIsTiled(tif) ? "readEncodedTile" : "readEncodedStrip"; }

TEST(read_encoded, every_layout_matches_the_pattern_and_libtiff) {
  ScratchDir dir;
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    const ImageSpec spec = spec_of(c);
    const std::string path = dir.path(std::string(c.name) + ".tif");
    write_image(path, spec);
    const Array id = open_file(path);
    TiffHandle ref(path, "r");
    for (std::uint32_t i = 0; i < chunk_count(ref); ++i) {
      const auto r = call(read_command(ref), {id, num(i)});
      ASSERT_EQ(outcome(r), "ok") << "chunk " << i;
      for (std::size_t k = 0; k < (c.photometric == YCC ? 3 : 1); ++k) EXPECT_EQ(r.out(k).class_id(), c.cls);
      if (c.compression != COMPRESSION_JPEG) {
        EXPECT_EQ(compare_outputs(r, pattern_chunk(spec, ref, i)), "") << "chunk " << i;
      }
      EXPECT_EQ(compare_outputs(r, libtiff_chunk(ref, i)), "") << "chunk " << i;
      EXPECT_TRUE(r.warnings.empty()) << r.warnings.front().message;
    }
    call("close", {id});
  }
}

TEST(read_encoded, edges_cut_to_the_image) {
  ScratchDir dir;
  auto dims_of = [&](const Case& c, double chunk, std::size_t output = 0) {
    const std::string path = dir.path(std::string(c.name) + ".tif");
    write_image(path, spec_of(c));
    const Array id = open_file(path);
    const auto r = call(c.tile ? "readEncodedTile" : "readEncodedStrip", {id, num(chunk)});
    call("close", {id});
    return r.ok() ? r.out(output).dims() : Array::Dims{};
  };
  using D = Array::Dims;
  // 13 rows in strips of 5: the last strip has 3.
  EXPECT_EQ(dims_of(kCases[0], 1), (D{5, 21}));
  EXPECT_EQ(dims_of(kCases[0], 2), (D{3, 21}));
  // Separate planes of 11 rows in strips of 4: each plane's third strip has 3.
  EXPECT_EQ(dims_of(kCases[4], 3), (D{4, 17}));
  EXPECT_EQ(dims_of(kCases[4], 5), (D{3, 17}));
  EXPECT_EQ(dims_of(kCases[4], 8), (D{3, 17}));
  // 40 x 24 in 16 x 16 tiles, 3 across: right 8 columns, bottom 8 rows.
  EXPECT_EQ(dims_of(kCases[5], 0), (D{16, 16, 2}));
  EXPECT_EQ(dims_of(kCases[5], 2), (D{16, 8, 2}));
  EXPECT_EQ(dims_of(kCases[5], 4), (D{8, 16, 2}));
  EXPECT_EQ(dims_of(kCases[5], 5), (D{8, 8, 2}));
  // Separate tiles, 33 x 20: 3 across, 2 down, so tile 11 is the last of plane 1.
  EXPECT_EQ(dims_of(kCases[6], 11), (D{4, 1}));
  // YCbCr 2 x 2 in 16 x 16 tiles of a 31 x 17 image: chroma rounded up.
  EXPECT_EQ(dims_of(kCases[16], 0, 0), (D{16, 16}));
  EXPECT_EQ(dims_of(kCases[16], 0, 1), (D{8, 8}));
  EXPECT_EQ(dims_of(kCases[16], 1, 0), (D{16, 15}));
  EXPECT_EQ(dims_of(kCases[16], 1, 2), (D{8, 8}));
  EXPECT_EQ(dims_of(kCases[16], 3, 0), (D{1, 15}));
  EXPECT_EQ(dims_of(kCases[16], 3, 1), (D{1, 8}));
}

TEST(read_encoded, one_bit_rows_start_on_a_byte) {
  // Row 0 of the 130-wide pattern has pixel 127 set and 126 and 128 clear;
  // row 1 has 128 set and 127 and 129 clear. A row that did not start on a
  // byte would shift them.
  ScratchDir dir;
  write_image(dir.path("bits.tif"), spec_of(kCases[10]));
  const Array id = open_file(dir.path("bits.tif"));
  const auto r = call("readEncodedStrip", {id, num(0)});
  ASSERT_EQ(outcome(r), "ok");
  const Array& bits = r.out();
  ASSERT_EQ(bits.dims(), (Array::Dims{2, 130}));
  auto at = [&](std::size_t row, std::size_t column) { return bits.at<bool>(row + 2 * column); };
  EXPECT_FALSE(at(0, 126));
  EXPECT_TRUE(at(0, 127));
  EXPECT_FALSE(at(0, 128));
  EXPECT_FALSE(at(1, 127));
  EXPECT_TRUE(at(1, 128));
  EXPECT_FALSE(at(1, 129));
  call("close", {id});
}

/// Writes a small stripped or tiled file with libtiff, after `extra` has set
/// whatever tags make it special.
template <class Extra>
std::string special_file(const ScratchDir& dir, const std::string& name, std::uint16_t bits, std::uint16_t format,
                         std::uint32_t tile, Extra extra) {
  const std::string path = dir.path(name);
  TiffHandle out(path, "w");
  set_basic_tags(out, 32, 20, bits, 1, 8, tile);
  TIFFSetField(out, TIFFTAG_SAMPLEFORMAT, format);
  extra(out.tif);
  write_chunks(out, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
  return path;
}
std::string special_file(const ScratchDir& dir, const std::string& name, std::uint16_t bits, std::uint16_t format,
                         std::uint32_t tile = 0) {
  return special_file(dir, name, bits, format, tile, [](TIFF*) {});
}

TEST(read_encoded, error_kinds_and_their_arguments) {
  ScratchDir dir;
  auto read = [&](const std::string& path, const char* command, double chunk) {
    const Array id = open_file(path);
    const std::string result = outcome(call(command, {id, num(chunk)}));
    call("close", {id});
    return result;
  };
  const std::string strips = special_file(dir, "strips.tif", 8, U);  // 20 rows in strips of 8: 3
  const std::string tiles = special_file(dir, "tiles.tif", 8, U, 16);  // 2 x 2 tiles
  EXPECT_EQ(read(strips, "readEncodedTile", 0), "tiledOperationOnStrippedImage()");
  EXPECT_EQ(read(tiles, "readEncodedStrip", 0), "strippedOperationOnTiledImage()");
  EXPECT_EQ(read(strips, "readEncodedStrip", 3), "badStripNumber(3)");
  EXPECT_EQ(read(strips, "readEncodedStrip", 4e9), "badStripNumber(3)");
  EXPECT_EQ(read(tiles, "readEncodedTile", 4), "badTileNumber(4)");

  const std::string deep = special_file(dir, "deep.tif", 8, U, 0, [](TIFF* t) { TIFFSetField(t, TIFFTAG_IMAGEDEPTH, 2); });
  EXPECT_EQ(read(deep, "readEncodedStrip", 2), "ok");
  EXPECT_EQ(read(deep, "readEncodedStrip", 3), "imageDepthStrippedLayoutMismatch(2)");
  EXPECT_EQ(read(deep, "readEncodedStrip", 1e6), "imageDepthStrippedLayoutMismatch(2)");

  EXPECT_EQ(read(special_file(dir, "c.tif", 32, SAMPLEFORMAT_COMPLEXINT), "readEncodedStrip", 0), "complexSampleFormat()");
  EXPECT_EQ(read(special_file(dir, "f8.tif", 8, F), "readEncodedStrip", 0),
            "badSampleFormatBitsPerSampleCombination(3, 8)");
  EXPECT_EQ(read(special_file(dir, "f16.tif", 16, F), "readEncodedStrip", 0),
            "badSampleFormatBitsPerSampleCombination(3, 16)");
  EXPECT_EQ(read(special_file(dir, "u64.tif", 64, U), "readEncodedStrip", 0), "sampleFormatMustBeIeeeFpFor64Bits()");
  EXPECT_EQ(read(special_file(dir, "i64.tif", 64, I), "readEncodedStrip", 0), "sampleFormatMustBeIeeeFpFor64Bits()");
  EXPECT_EQ(read(special_file(dir, "b4.tif", 4, U), "readEncodedStrip", 0), "unhandledBitsPerSample(4)");
  EXPECT_EQ(read(special_file(dir, "b12.tif", 12, U, 16), "readEncodedTile", 0), "unhandledBitsPerSample(12)");
  // Strips check the number first, tiles the class first.
  EXPECT_EQ(read(special_file(dir, "u64s.tif", 64, U), "readEncodedStrip", 9), "badStripNumber(3)");
  EXPECT_EQ(read(special_file(dir, "u64t.tif", 64, U, 16), "readEncodedTile", 9), "sampleFormatMustBeIeeeFpFor64Bits()");

  // YCbCr in separate planes, or with a fourth sample.
  ImageSpec ycc = spec_of(kCases[14]);
  ycc.planar = S;
  write_image(dir.path("ycc-planar.tif"), ycc);
  EXPECT_EQ(read(dir.path("ycc-planar.tif"), "readEncodedStrip", 0), "unsupportedYCbCrConfiguration()");
  {
    // libtiff refuses to open a file like this, so the directory is one being written.
    const Array id = open_file(dir.path("ycc4.tif"), "w");
    set_basic_tags(handle_of(id), 16, 8, 8, 4, 8);
    TIFFSetField(handle_of(id), TIFFTAG_PHOTOMETRIC, YCC);
    TIFFSetField(handle_of(id), TIFFTAG_YCBCRSUBSAMPLING, 1, 1);
    EXPECT_EQ(outcome(call("readEncodedStrip", {id, num(0)})), "unsupportedYCbCrConfiguration()");
    call("close", {id});
  }

  // JPEG YCbCr once libtiff has been asked to convert to RGB.
  write_image(dir.path("jpeg.tif"), spec_of(kCases[17]));
  const Array jpeg = open_file(dir.path("jpeg.tif"));
  EXPECT_EQ(outcome(call("readEncodedStrip", {jpeg, num(0)})), "ok");
  TIFFSetField(handle_of(jpeg), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  EXPECT_EQ(outcome(call("readEncodedStrip", {jpeg, num(0)})), "readWithJpegColorModeRGB()");
  call("close", {jpeg});

  // A directory being written that has no ImageLength yet.
  const Array fresh = open_file(dir.path("fresh.tif"), "w");
  EXPECT_EQ(outcome(call("readEncodedStrip", {fresh, num(0)})), "tagRetrievalFailed('ImageLength')");
  call("close", {fresh});
}

TEST(read_encoded, log_luminance_needs_its_data_format) {
  // LogL with the SGILog codec: libtiff's data format is unknown (-1) until
  // someone sets it; once set to float, the strip reads as single.
  ScratchDir dir;
  const std::string path = dir.path("logl.tif");
  const std::vector<float> values = {0.5f, 1.0f, 2.0f, 4.0f, 8.0f, 16.0f};
  {
    TiffHandle out(path, "w");
    TIFFSetField(out, TIFFTAG_IMAGEWIDTH, 3);
    TIFFSetField(out, TIFFTAG_IMAGELENGTH, 2);
    TIFFSetField(out, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGL);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_SGILOG);
    TIFFSetField(out, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT);
    TIFFSetField(out, TIFFTAG_ROWSPERSTRIP, 2);
    ASSERT_GT(TIFFWriteEncodedStrip(out, 0, const_cast<float*>(values.data()), 24), 0);
  }
  const Array id = open_file(path);
  EXPECT_EQ(outcome(call("readEncodedStrip", {id, num(0)})), "luvCodecNotSet()");
  TIFFSetField(handle_of(id), TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT);
  const auto r = call("readEncodedStrip", {id, num(0)});
  ASSERT_EQ(outcome(r), "ok");
  ASSERT_EQ(r.out().class_id(), zvSINGLE_CLASS);
  ASSERT_EQ(r.out().dims(), (Array::Dims{2, 3}));
  for (std::size_t row = 0; row < 2; ++row)
    for (std::size_t col = 0; col < 3; ++col)
      EXPECT_NEAR(r.out().at<float>(row + 2 * col), values[row * 3 + col], values[row * 3 + col] * 0.01);
  call("close", {id});
}

TEST(read_encoded, bad_chunk_numbers_and_operands) {
  ScratchDir dir;
  write_image(dir.path("a.tif"), spec_of(kCases[0]));  // 3 strips
  const Array id = open_file(dir.path("a.tif"));
  TiffHandle ref(dir.path("a.tif"), "r");
  EXPECT_EQ(outcome(call("readEncodedStrip", {id, num(-1)})), "argumentOutOfBounds()");
  EXPECT_EQ(outcome(call("readEncodedStrip", {id, num(4294967296.0)})), "argumentOutOfBounds()");
  EXPECT_EQ(outcome(call("readEncodedStrip", {id, num(4294967295.0)})), "badStripNumber(3)");
  EXPECT_EQ(outcome(call("readEncodedTile", {id, num(-1)})), "tiledOperationOnStrippedImage()");
  EXPECT_EQ(outcome(call("readEncodedStrip", {id})), "wrongNumberOfInputs()");
  EXPECT_EQ(outcome(call("readEncodedStrip", {Array::uint64(0), num(0)})), "badFileId()");
  EXPECT_EQ(outcome(call("readEncodedStrip", {str("x"), num(0)})), "badFileId()");
  // NaN converts to 0, fractions truncate, and any numeric class will do.
  EXPECT_EQ(compare_outputs(call("readEncodedStrip", {id, num(std::nan(""))}), libtiff_chunk(ref, 0)), "");
  EXPECT_EQ(compare_outputs(call("readEncodedStrip", {id, num(1.99)}), libtiff_chunk(ref, 1)), "");
  EXPECT_EQ(compare_outputs(call("readEncodedStrip", {id, Array::of<std::uint8_t>(zvUINT8_CLASS, {1, 1}, {2})}),
                            libtiff_chunk(ref, 2)),
            "");
  call("close", {id});

  // The tile read ignores a third operand of any class.
  write_image(dir.path("t.tif"), spec_of(kCases[5]));
  const Array tiled = open_file(dir.path("t.tif"));
  EXPECT_EQ(outcome(call("readEncodedTile", {tiled, num(1), Array::cell({})})), "ok");
  EXPECT_EQ(outcome(call("readEncodedTile", {tiled, num(1), num(1), num(1)})), "wrongNumberOfInputs()");
  call("close", {tiled});
}

/// Overwrites `count` bytes at `offset` of a file.
void scribble(const std::string& path, std::uint64_t offset, std::size_t count) {
  std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
  f.seekp(static_cast<std::streamoff>(offset));
  for (std::size_t i = 0; i < count; ++i) f.put(static_cast<char>(0xA5 ^ i));
}

bool all_zero(const Array& a) {
  const auto* bytes = static_cast<const unsigned char*>(a.data());
  return std::all_of(bytes, bytes + a.byte_size(), [](unsigned char b) { return b == 0; });
}

/// Points the last StripOffsets entry of a little-endian classic TIFF at
/// `offset`: libtiff writes the directory after the data, so cutting the
/// file would lose the directory instead.
void move_last_strip(const std::string& path, std::uint32_t offset) {
  std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
  auto read = [&](std::uint64_t at, std::size_t size) {
    std::uint32_t value = 0;
    f.seekg(static_cast<std::streamoff>(at));
    f.read(reinterpret_cast<char*>(&value), static_cast<std::streamsize>(size));
    return value;
  };
  const std::uint32_t ifd = read(4, 4);
  for (std::uint32_t e = 0, entries = read(ifd, 2); e < entries; ++e) {
    const std::uint64_t entry = ifd + 2 + 12 * e;
    if (read(entry, 2) != TIFFTAG_STRIPOFFSETS) continue;
    ASSERT_EQ(read(entry + 2, 2), std::uint32_t{TIFF_LONG});
    f.seekp(static_cast<std::streamoff>(read(entry + 8, 4) + 4 * (read(entry + 4, 4) - 1)));
    f.write(reinterpret_cast<const char*>(&offset), 4);
    return;
  }
  FAIL() << "no StripOffsets in " << path;
}

TEST(read_encoded, corrupt_and_truncated_chunks_still_convert) {
  ScratchDir dir;
  ImageSpec spec = spec_of(kCases[5]);  // 6 tiles
  spec.compression = COMPRESSION_ADOBE_DEFLATE;
  const std::string path = dir.path("corrupt.tif");
  write_image(path, spec);
  std::uint64_t offset = 0, length = 0;
  {
    TiffHandle in(path, "r");
    offset = TIFFGetStrileOffset(in, 1);
    length = TIFFGetStrileByteCount(in, 1);
  }
  scribble(path, offset, static_cast<std::size_t>(length));

  // The damaged tile comes back as converted from the zero-filled buffer,
  // with libtiff's complaint as a warning; its neighbours are intact.
  const Array id = open_file(path);
  TiffHandle ref(path, "r");
  const auto bad = call("readEncodedTile", {id, num(1)});
  ASSERT_EQ(outcome(bad), "ok");
  EXPECT_EQ(bad.out().dims(), (Array::Dims{16, 16, 2}));
  EXPECT_EQ(compare_outputs(bad, libtiff_chunk(ref, 1)), "");
  EXPECT_TRUE(all_zero(bad.out()));
  ASSERT_FALSE(bad.warnings.empty());
  EXPECT_EQ(bad.warnings.front().identifier, kLibtiffErrorId);
  EXPECT_EQ(compare_outputs(call("readEncodedTile", {id, num(2)}), pattern_chunk(spec, ref, 2)), "");
  call("close", {id});

  // A last strip whose data runs past the end of the file: no crash, and the
  // strip is what libtiff's own read leaves in a zero-filled buffer.
  const std::string cut = dir.path("cut.tif");
  write_image(cut, spec_of(kCases[3]));
  move_last_strip(cut, static_cast<std::uint32_t>(std::filesystem::file_size(cut) - 40));
  const Array cutId = open_file(cut);
  TiffHandle cutRef(cut, "r");
  for (std::uint32_t i = 0; i < 3; ++i) {
    const auto r = call("readEncodedStrip", {cutId, num(i)});
    ASSERT_EQ(outcome(r), "ok");
    EXPECT_EQ(compare_outputs(r, libtiff_chunk(cutRef, i)), "") << i;
    EXPECT_EQ(all_zero(r.out()), i == 2) << i;
    EXPECT_EQ(r.warnings.size(), i == 2 ? 1u : 0u) << i;
  }
  call("close", {cutId});
}

}  // namespace
}  // namespace tiffgate::testing
