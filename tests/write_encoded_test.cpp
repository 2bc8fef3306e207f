// "writeEncodedStrip" and "writeEncodedTile": data cut or padded to the
// chunk, the chunk buffer's bytes, chunk numbers, the checks a write runs
// against the directory's tags (the cases beside the one of each kind in
// every_kind_test.cpp, each in a fresh file, with its exact arguments), and
// refused operands; files decoded by libtiff alone. Every layout's round
// trip is in image_round_trip_test.cpp.

#include "support/foundation.h"
#include "support/image_files.h"
#include "support/write_files.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

using namespace tiffgate::testing;
using tiffgate::embedded::Array;

namespace {

ImageSpec image(std::uint32_t width, std::uint32_t length, std::uint16_t bits, std::uint16_t format,
                std::uint16_t samples, std::uint32_t rowsPerStrip, std::uint32_t tile, std::uint16_t compression) {
  ImageSpec t;
  t.width = width, t.length = length, t.bits = bits, t.format = format, t.samples = samples;
  t.rowsPerStrip = rowsPerStrip, t.tileWidth = t.tileLength = tile, t.compression = compression;
  t.photometric = samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
  t.extraSamples = samples == 4 || samples == 2 ? 1 : 0;
  return t;
}

ImageSpec ycbcr_image(std::uint32_t width, std::uint32_t length, std::uint16_t h, std::uint16_t v,
                      std::uint32_t rowsPerStrip, std::uint32_t tile, std::uint16_t compression) {
  ImageSpec t = image(width, length, 8, SAMPLEFORMAT_UINT, 3, rowsPerStrip, tile, compression);
  t.photometric = PHOTOMETRIC_YCBCR, t.subsampling[0] = h, t.subsampling[1] = v;
  return t;
}

using F8 = std::function<std::uint8_t(std::size_t, std::size_t, std::size_t)>;
Array u8(std::vector<std::size_t> dims, F8 value) { return host_array<std::uint8_t>(zvUINT8_CLASS, std::move(dims), value); }
Array u8(std::vector<std::size_t> dims, std::uint8_t fill) { return u8(std::move(dims), [fill](auto, auto, auto) { return fill; }); }
Args ints(std::int64_t a, std::int64_t b) { return {a, b}; }

}  // namespace

TEST(write_encoded, data_cut_with_warnings_or_padded_with_zeros) {
  ScratchDir dir;
  const F8 small = [](auto r, auto c, auto) { return std::uint8_t(1 + r * 5 + c); };
  const F8 big = [](auto r, auto c, auto) { return std::uint8_t(r * 12 + c); };
  {
    ModuleFile file(dir.path("s.tif"));
    set_image_tags(file.tif(), image(10, 16, 8, SAMPLEFORMAT_UINT, 1, 8, 0, COMPRESSION_NONE));
    const auto padded = file.write(false, num(0), {u8({3, 5}, small)});
    EXPECT_TRUE(padded.ok() && padded.warnings.empty()) << outcome(padded);
    const auto cut = file.write(false, num(1), {u8({20, 12}, big)});
    EXPECT_TRUE(cut.ok()) << outcome(cut);
    EXPECT_EQ(warning_outcomes(cut), (std::vector<std::string>{outcome("dataLengthExceedsRowsPerStrip", ints(8, 20)),
                                                            outcome("dataWidthExceedsImageWidth", ints(10, 12))}));
  }
  const auto s0 = decoded_chunk(TiffHandle(dir.path("s.tif"), "r"), 0);
  const auto s1 = decoded_chunk(TiffHandle(dir.path("s.tif"), "r"), 1);
  std::size_t wrong = 0;
  for (std::size_t r = 0; r < 8; ++r)
    for (std::size_t c = 0; c < 10; ++c) {
      wrong += s0[r * 10 + c] != (r < 3 && c < 5 ? small(r, c, 0) : 0);
      wrong += s1[r * 10 + c] != big(r, c, 0);
    }
  EXPECT_EQ(wrong, 0u);

  {
    ModuleFile file(dir.path("t.tif"));
    set_image_tags(file.tif(), image(20, 20, 8, SAMPLEFORMAT_UINT, 1, 0, 16, COMPRESSION_NONE));
    const auto cut = file.write(true, num(0), {u8({17, 18}, big)});
    EXPECT_EQ(warning_outcomes(cut), (std::vector<std::string>{outcome("dataLengthExceedsTileLength", ints(16, 17)),
                                                            outcome("dataWidthExceedsTileWidth", ints(16, 18))}));
  }
  const auto t0 = decoded_chunk(TiffHandle(dir.path("t.tif"), "r"), 0);
  wrong = 0;
  for (std::size_t r = 0; r < 16; ++r)
    for (std::size_t c = 0; c < 16; ++c) wrong += t0[r * 16 + c] != big(r, c, 0);
  EXPECT_EQ(wrong, 0u);

  // 1-bit rows of 10 pixels take 2 bytes; 20 rows cut to 16 are read with
  // a column stride of 16, the established behaviour.
  const auto bit = [](std::size_t i) { return std::uint8_t(i % 3 == 0 || i % 7 == 0); };
  {
    ModuleFile file(dir.path("b.tif"));
    set_image_tags(file.tif(), image(10, 16, 1, SAMPLEFORMAT_UINT, 1, 16, 0, COMPRESSION_NONE));
    const auto cut = file.write(false, num(0), {host_array<std::uint8_t>(zvLOGICAL_CLASS, {20, 10}, [&](auto r, auto c, auto) {
                                  return bit(r + c * 20);
                                })});
    EXPECT_EQ(warning_outcomes(cut), (std::vector<std::string>{outcome("dataLengthExceedsRowsPerStrip", ints(16, 20))}));
  }
  const auto b0 = decoded_chunk(TiffHandle(dir.path("b.tif"), "r"), 0);
  ASSERT_EQ(b0.size(), 32u);
  wrong = 0;
  for (std::size_t r = 0; r < 16; ++r)
    for (std::size_t c = 0; c < 16; ++c)
      wrong += ((b0[r * 2 + c / 8] >> (7 - c % 8)) & 1) != (c < 10 ? bit(r + c * 16) : 0);
  EXPECT_EQ(wrong, 0u);
}

TEST(write_encoded, chunk_numbers_and_write_failures) {
  ScratchDir dir;
  const std::string path = dir.path("n.tif");
  const std::string outOfBounds = "argumentOutOfBounds()";
  {
    ModuleFile file(path);
    set_image_tags(file.tif(), image(8, 10, 8, SAMPLEFORMAT_UINT, 1, 4, 0, COMPRESSION_NONE));  // 3 strips
    const auto write = [&](double n, std::uint8_t fill) { return outcome(file.write(false, num(n), {u8({4, 8}, fill)})); };
    EXPECT_EQ(write(3, 9), outcome("stripNumberTooLarge", {std::int64_t{3}}));
    EXPECT_EQ(write(1e6, 9), outcome("stripNumberTooLarge", {std::int64_t{3}}));
    EXPECT_EQ(write(-1, 9), outOfBounds);
    EXPECT_EQ(write(4294967296.0, 9), outOfBounds);
    EXPECT_EQ(write(INFINITY, 9), outOfBounds);
    EXPECT_EQ(write(2.9, 3), "ok");  // truncated to strip 2
    EXPECT_EQ(write(NAN, 1), "ok");  // the index rule makes NaN strip 0
    EXPECT_EQ(write(1, 2), "ok");
    EXPECT_EQ(outcome(file.write(true, num(0), {u8({4, 8}, 0)})), outcome("tiledOperationOnStrippedImage", {}));
  }
  for (std::uint32_t s = 0; s < 3; ++s) EXPECT_EQ(decoded_chunk(TiffHandle(path, "r"), s)[5], s + 1) << "strip " << s;
  {
    ModuleFile file(path, "r");
    EXPECT_EQ(outcome(file.write(false, num(2), {u8({4, 8}, 0)})), outcome("stripWriteFailure", {std::int64_t{3}}));
  }
  {
    ModuleFile file(dir.path("t.tif"));
    set_image_tags(file.tif(), image(20, 20, 8, SAMPLEFORMAT_UINT, 1, 0, 16, COMPRESSION_NONE));  // 4 tiles
    EXPECT_EQ(outcome(file.write(true, num(4), {u8({16, 16}, 0)})), outcome("tileNumberTooLarge", {std::int64_t{4}}));
    EXPECT_EQ(outcome(file.write(false, num(0), {u8({16, 16}, 0)})), outcome("tiledOperationOnStrippedImage", {}));
  }
  {
    // libtiff cannot size raw YCbCr with a fourth sample: strip 1 cannot be written.
    ModuleFile file(dir.path("y.tif"));
    ImageSpec t = ycbcr_image(16, 16, 2, 2, 16, 0, COMPRESSION_NONE);
    t.samples = 4;
    set_image_tags(file.tif(), t);
    EXPECT_EQ(outcome(file.write(false, num(0), {u8({16, 16}, 0), u8({8, 8}, 0), u8({8, 8}, 0)})),
              outcome("stripWriteFailure", {std::int64_t{1}}));
  }
}

TEST(write_encoded, bad_input) {
  ScratchDir dir;
  ModuleFile file(dir.path("x.tif"));
  set_image_tags(file.tif(), image(8, 4, 8, SAMPLEFORMAT_UINT, 3, 4, 0, COMPRESSION_NONE));
  const Array rgb = u8({4, 8, 3}, 7);
  using tiffgate::embedded::call;
  EXPECT_EQ(call("writeEncodedStrip", {Array::uint64(0), num(0), rgb}).error_id(), tiff_id("badFileId"));
  EXPECT_EQ(call("writeEncodedStrip", {num(0), num(0), rgb}).error_id(), tiff_id("badFileId"));
  EXPECT_EQ(call("writeEncodedStrip", {file.id(), num(0)}).error_id(), "Quarn:imagesci:validate:wrongNumberOfInputs");
  EXPECT_EQ(call("writeEncodedStrip", {file.id(), num(0), rgb, rgb, rgb, rgb}).error_id(),
            "Quarn:imagesci:validate:wrongNumberOfInputs");
  EXPECT_EQ(outcome(file.write(false, num(0), {Array::text("abc")})), outcome("imageDatatypeNot8bit", {std::string("char")}));
  EXPECT_EQ(outcome(file.write(false, num(0), {Array::cell({rgb})})), outcome("imageDatatypeNot8bit", {std::string("cell")}));
  // The whole-image entry cuts no chunk from an empty or 4-D image: the
  // write command's refusal of it, else the kind that says what to give.
  EXPECT_EQ(outcome(call("__writeImage__", {file.id(), u8({0, 8, 3}, 1), num(INFINITY)})), "wrongNumberOfInputImages()");
  EXPECT_EQ(outcome(call("__writeImage__", {file.id(), u8({4, 8, 3, 2}, 1), num(INFINITY)})),
            "badContigImageMultipleSpp()");
  EXPECT_EQ(outcome(file.write(false, num(0), {rgb, rgb})), outcome("wrongNumberOfInputImages", {}));
  EXPECT_EQ(outcome(file.write(false, num(1e300), {rgb})), "argumentOutOfBounds()");
  // Empty data writes a zero strip; two planes for three samples leave the third zero.
  EXPECT_TRUE(file.write(false, num(0), {u8({0, 8, 3}, 1)}).ok());
  EXPECT_TRUE(file.write(false, num(0), {u8({4, 8, 2}, [](auto, auto, auto k) { return std::uint8_t(5 + k); })}).ok());
  file.close();
  const auto strip = decoded_chunk(TiffHandle(dir.path("x.tif"), "r"), 0);
  EXPECT_EQ(std::vector<std::uint8_t>(strip.begin(), strip.begin() + 6), (std::vector<std::uint8_t>{5, 6, 0, 5, 6, 0}));

  // Raw YCbCr of odd shapes: empty chroma planes, a 3-D Y, Y taller than
  // the strip. Nothing may be read outside the arrays (the sanitizer build
  // checks that).
  ModuleFile y(dir.path("y.tif"));
  set_image_tags(y.tif(), ycbcr_image(15, 8, 2, 2, 4, 0, COMPRESSION_NONE));
  EXPECT_TRUE(y.write(false, num(0), {u8({4, 15}, 1), u8({2, 8, 0}, 1), u8({2, 8, 0}, 1)}).ok());
  EXPECT_TRUE(y.write(false, num(1), {u8({4, 15, 2}, 1), u8({2, 8}, 1), u8({2, 8}, 1)}).ok());
  const auto tall = y.write(false, num(1), {u8({5, 15}, 1), u8({3, 8}, 1), u8({3, 8}, 1)});
  EXPECT_EQ(warning_outcomes(tall), (std::vector<std::string>{outcome("dataLengthExceedsRowsPerStrip", ints(4, 5))}));
}

// A large Deflate last strip written with its padding rows came back with
// wrong tail pixels through libtiff 4.5; the padding is no longer encoded.
TEST(write_encoded, large_deflate_last_strip_reads_back) {
  ScratchDir dir;
  const std::string path = dir.path("deflate.tif");
  const ImageSpec image_spec = image(12288, 100, 8, SAMPLEFORMAT_UINT, 1, 64, 0, COMPRESSION_ADOBE_DEFLATE);
  const auto value = [](std::size_t r, std::size_t c, std::size_t) {
    return static_cast<std::uint8_t>((r * 12288 + c) * 13 % 251);
  };
  {
    ModuleFile file(path);
    set_image_tags(file.tif(), image_spec);
    for (std::uint32_t s = 0; s < 2; ++s) {
      const std::size_t first = s * 64;
      const auto rows = host_array<std::uint8_t>(zvUINT8_CLASS, {64, 12288}, [&](std::size_t r, std::size_t c, std::size_t k) {
        return value(first + r, c, k);
      });
      ASSERT_TRUE(file.write(false, Array::scalar(s), {rows}).ok());
    }
    file.close();
  }
  TiffHandle in(path, "r");
  const std::vector<unsigned char> last = decoded_chunk(in, 1);
  ASSERT_GE(last.size(), 36u * 12288);
  std::size_t wrong = 0;
  for (std::size_t r = 0; r < 36; ++r)
    for (std::size_t c = 0; c < 12288; ++c) wrong += last[r * 12288 + c] != value(64 + r, c, 0);
  EXPECT_EQ(wrong, 0u);
}

namespace {

Quarn::MsgArg I(std::int64_t v) { return v; }
Quarn::MsgArg S(const char* v) { return std::string(v); }

Array zeros(zvClassID cls, std::vector<std::size_t> dims) { return Array(cls, std::move(dims)); }
Array u8(std::vector<std::size_t> dims) { return zeros(zvUINT8_CLASS, std::move(dims)); }

void set_colormap(TIFF* tif) {
  std::vector<std::uint16_t> map(256, 0);
  TIFFSetField(tif, TIFFTAG_COLORMAP, map.data(), map.data(), map.data());
}

struct Case {
  const char* what;
  ImageSpec tags;
  std::vector<Array> images;
  const char* kind;  ///< nullptr: the write succeeds
  Args args;
  void (*extra)(TIFF*) = nullptr;  ///< more tags, or instead of `tags` when `tags.width` is 0
};

ImageSpec gray(std::uint16_t bits = 8, std::uint16_t format = SAMPLEFORMAT_UINT) {
  ImageSpec t;
  t.bits = bits;
  t.format = format;
  return t;
}
ImageSpec with(ImageSpec t, void (*change)(ImageSpec&)) {
  change(t);
  return t;
}
ImageSpec rgb(std::uint16_t samples, std::uint16_t extra = 0, std::uint16_t planar = PLANARCONFIG_CONTIG) {
  ImageSpec t;
  t.samples = samples, t.extraSamples = extra, t.planar = planar, t.photometric = PHOTOMETRIC_RGB;
  return t;
}
ImageSpec ycbcr(std::uint16_t planar = PLANARCONFIG_CONTIG) {
  ImageSpec t = rgb(3, 0, planar);
  t.photometric = PHOTOMETRIC_YCBCR, t.subsampling[0] = 2, t.subsampling[1] = 2;
  return t;
}
ImageSpec palette(std::uint16_t bits, std::uint16_t format = SAMPLEFORMAT_UINT, std::uint16_t samples = 1) {
  ImageSpec t = gray(bits, format);
  t.photometric = PHOTOMETRIC_PALETTE, t.samples = samples;
  return t;
}
ImageSpec logluv() {
  ImageSpec t = rgb(3);
  t.photometric = PHOTOMETRIC_LOGLUV, t.compression = COMPRESSION_SGILOG, t.bits = 32;
  t.format = SAMPLEFORMAT_IEEEFP;
  return t;
}
ImageSpec jpeg(ImageSpec t) {
  t.compression = COMPRESSION_JPEG;
  return t;
}

}  // namespace

TEST(write_config, more_cases_of_the_rules) {
  const Array y15 = u8({15, 15});
  const std::vector<Case> cases = {
      {"raw YCbCr as one image", ycbcr(), {u8({16, 16, 3})}, "wrongNumberOfInputImages", {}},
      {"RGB of one sample", with(gray(), [](ImageSpec& t) { t.photometric = PHOTOMETRIC_RGB; }), {u8({16, 16})},
       "badRgbSamplesPerPixelConfiguration", {}},
      {"YCbCr to JPEG from RGB of one sample",
       with(jpeg(ycbcr()), [](ImageSpec& t) { t.samples = 1, t.jpegColorMode = JPEGCOLORMODE_RGB; }),
       {u8({16, 16})}, "badRgbSamplesPerPixelConfiguration", {}},
      {"LogLuv codec not set up", logluv(), {zeros(zvSINGLE_CLASS, {16, 16, 3})}, "luvCodecNotSet", {}},
      {"palette 16 from int16, signed format", palette(16, SAMPLEFORMAT_INT), {zeros(zvINT16_CLASS, {16, 16})},
       "badDatatypeForPaletteImage", {I(16), I(16)}},
      {"palette signed", palette(8, SAMPLEFORMAT_INT), {u8({16, 16})}, "badPaletteWriteConfiguration", {}},
      {"palette with map", palette(8), {u8({16, 16})}, nullptr, {}, set_colormap},
      {"single as unsigned", gray(32), {zeros(zvSINGLE_CLASS, {16, 16})}, "badDatatypeForSampleFormat",
       {S("Uint"), S("logical, uint8, uint16, uint32")}},
      {"int32 as float", gray(32, SAMPLEFORMAT_IEEEFP), {zeros(zvINT32_CLASS, {16, 16})},
       "badDatatypeForSampleFormat", {S("IEEEFP"), S("single, double")}},
      {"YCbCr separate", ycbcr(PLANARCONFIG_SEPARATE), {u8({16, 16}), u8({8, 8}), u8({8, 8})},
       "unsupportedYCbCrConfiguration", {}},
      {"Cr unlike Cb", ycbcr(), {y15, u8({8, 8}), u8({8, 7})}, "badYCbCrDimensions",
       {I(15), I(15), I(8), I(8), I(8), I(7), I(2), I(2)}},
      {"15 x 15 Y takes 8 x 8 chroma", ycbcr(), {y15, u8({8, 8}), u8({8, 8})}, nullptr, {}},
      {"RGB with alpha", rgb(4, 1), {u8({16, 16, 4})}, nullptr, {}},
      {"palette of 2 samples", palette(8, SAMPLEFORMAT_UINT, 2), {u8({16, 16, 2})}, "badExtraSamples",
       {S("PALETTE"), I(2)}, set_colormap},
      // RowsPerStrip 16 is not enough: the length must be a multiple too.
      {"JPEG 100 rows", jpeg(with(gray(), [](ImageSpec& t) { t.length = 100, t.rowsPerStrip = 16; })),
       {u8({16, 16})}, "strippedJpegCompressionRequires16", {}},
      // Refused only after the array passed every array check.
      {"one separate sample, 3-D", with(gray(), [](ImageSpec& t) { t.planar = PLANARCONFIG_SEPARATE; }),
       {u8({16, 16, 2})}, "badPlanarImage", {}},
  };
  ScratchDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ModuleFile file(dir.path("c.tif"));
    if (c.tags.width) set_image_tags(file.tif(), c.tags);
    if (c.extra) c.extra(file.tif());
    const auto result = file.write(false, Array::scalar(0), c.images);
    if (c.kind == nullptr) {
      EXPECT_TRUE(result.ok()) << result.error_id();
      continue;
    }
    EXPECT_EQ(outcome(result), outcome(c.kind, c.args));
  }
}

TEST(write_config, tiled_jpeg_needs_tiles_of_16) {
  // libtiff takes a tile width of 8 only for a file open for reading; the
  // checks run before anything is written, so such a file reaches them.
  ScratchDir dir;
  {
    TiffHandle out(dir.path("t.tif"), "w");
    set_basic_tags(out, 16, 16, 8, 1, 0, 16);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  ModuleFile file(dir.path("t.tif"), "r");
  TIFFSetField(file.tif(), TIFFTAG_COMPRESSION, COMPRESSION_JPEG);
  // With tiles of 16 the checks pass, and libtiff refuses to write: tile 1.
  const auto refused = file.write(true, Array::scalar(0), {u8({16, 16})});
  EXPECT_EQ(outcome(refused), outcome("tileWritefailure", {std::int64_t{1}}));
  TIFFSetField(file.tif(), TIFFTAG_TILEWIDTH, 8);
  EXPECT_EQ(file.write(true, Array::scalar(0), {u8({16, 8})}).error_id(), tiff_id("tiledJpegCompressionRequires16"));
}

namespace {

/// Leaves freed blocks of `bytes` full of 0xAB, so that an allocation of
/// that size that is not cleared shows it.
void litter(std::size_t bytes) {
  std::vector<void*> blocks;
  for (int i = 0; i < 8; ++i) {
    blocks.push_back(std::malloc(bytes));
    std::memset(blocks.back(), 0xAB, bytes);
  }
  for (void* b : blocks) std::free(b);
}

}  // namespace

// The chunk buffer is zero-filled only when the data does not cover it:
// every byte that reaches the file is either the data's or zero, never what
// the allocator handed back.
TEST(write_buffer, only_the_data_and_zeros_reach_the_file) {
  ScratchDir dir;

  // A 1-bit strip 10 pixels wide: 2 bytes a row, whose last 6 bits are
  // padding that must come out zero.
  const std::string bits = dir.path("bits.tif");
  {
    ModuleFile file(bits);
    set_basic_tags(file.tif(), 10, 4, 1, 1, 4);
    litter(8);
    const auto result = file.write(false, Array::scalar(0),
                                   {host_array<std::uint8_t>(zvLOGICAL_CLASS, {4, 10}, [](auto r, auto c, auto) {
                                     return static_cast<std::uint8_t>((r + c) % 3 == 0);
                                   })});
    ASSERT_TRUE(result.ok()) << outcome(result);
    file.close();
  }
  const std::vector<unsigned char> packed = decoded_chunk(TiffHandle(bits, "r"), 0);
  ASSERT_EQ(packed.size(), 8u);
  for (std::size_t r = 0; r < 4; ++r) {
    unsigned expected = 0;
    for (std::size_t c = 0; c < 10; ++c)
      if ((r + c) % 3 == 0) expected |= 0x8000u >> c;
    EXPECT_EQ(packed[2 * r], expected >> 8) << r;
    EXPECT_EQ(packed[2 * r + 1], expected & 0xFF) << r;
  }

  // RGBA strips of 10 x 4 written from a 10 x 4 x 3 array: the data covers
  // every pixel but not the fourth sample, which the packer writes as zero.
  // The next strip's data is 2 rows short: those rows are zero.
  const std::string rgba = dir.path("rgba.tif");
  {
    ModuleFile file(rgba);
    TIFF* tif = file.tif();
    set_basic_tags(tif, 10, 8, 8, 4, 4);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    const std::uint16_t extra[] = {EXTRASAMPLE_UNASSALPHA};
    TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, extra);
    const auto value = [](auto r, auto c, auto k) { return static_cast<std::uint8_t>(100 + 10 * k + r + 2 * c); };
    for (std::uint32_t strip : {0u, 1u}) {
      litter(160);
      const auto result = file.write(false, Array::scalar(strip),
                                     {host_array<std::uint8_t>(zvUINT8_CLASS, {strip == 0 ? 4u : 2u, 10, 3}, value)});
      ASSERT_TRUE(result.ok()) << outcome(result);
    }
    file.close();
  }
  for (std::uint32_t strip : {0u, 1u}) {
    const std::vector<unsigned char> data = decoded_chunk(TiffHandle(rgba, "r"), strip);
    ASSERT_EQ(data.size(), 160u);
    for (std::size_t r = 0; r < 4; ++r)
      for (std::size_t c = 0; c < 10; ++c)
        for (std::size_t k = 0; k < 4; ++k) {
          const bool present = k < 3 && (strip == 0 || r < 2);
          EXPECT_EQ(data[(r * 10 + c) * 4 + k], present ? 100 + 10 * k + r + 2 * c : 0)
              << "strip " << strip << " r " << r << " c " << c << " k " << k;
        }
  }
}

// A write refused midway, however refused, leaves the file as it was: it
// closes through the module, and libtiff alone reads the tags and the two
// strips written before, with and without compression (a codec holds state
// between strips). A file open for reading is left byte for byte.
TEST(write_safety, refusals_midway_keep_what_was_written) {
  ScratchDir dir;
  const auto strip = [](std::uint32_t s) {
    return u8({4, 16}, [s](auto r, auto c, auto) { return std::uint8_t(s * 64 + r * 16 + c + 7); });
  };
  const std::vector<std::function<tiffgate::embedded::CallResult(const ModuleFile&)>> refusals = {
      [](const ModuleFile& f) { return f.write(false, num(2), {Array(zvDOUBLE_CLASS, {4, 16})}); },
      [](const ModuleFile& f) { return f.write(false, num(2), {Array(zvUINT8_CLASS, {4, 16, 2})}); },
      [&](const ModuleFile& f) { return f.write(false, num(2), {strip(2), strip(2)}); },
      [&](const ModuleFile& f) { return f.write(false, num(4), {strip(2)}); },
      [&](const ModuleFile& f) { return f.write(false, num(-1), {strip(2)}); },
      [&](const ModuleFile& f) { return f.write(true, num(2), {strip(2)}); },
      [](const ModuleFile& f) { return f.set(258, num(12)); }};
  for (const std::uint16_t compression : {COMPRESSION_NONE, COMPRESSION_ADOBE_DEFLATE})
    for (std::size_t k = 0; k < refusals.size(); ++k) {
      SCOPED_TRACE(std::to_string(k) + (compression == COMPRESSION_NONE ? "" : ", Deflate"));
      const std::string path = dir.path("midway.tif");
      {
        ModuleFile f(path);
        set_image_tags(f.tif(), image(16, 16, 8, SAMPLEFORMAT_UINT, 1, 4, 0, compression));
        for (std::uint32_t s : {0u, 1u}) ASSERT_TRUE(f.write(false, num(s), {strip(s)}).ok());
        ASSERT_FALSE(refusals[k](f).ok());
        EXPECT_EQ(outcome(tiffgate::embedded::call("close", {f.id()})), "ok");
      }
      TiffHandle back(path, "r");
      EXPECT_EQ(TIFFNumberOfStrips(back), 4u);
      for (std::uint32_t s : {0u, 1u}) {
        std::vector<std::uint8_t> bytes(64);
        ASSERT_EQ(TIFFReadEncodedStrip(back, s, bytes.data(), 64), 64);
        for (std::size_t i = 0; i < 64; ++i) EXPECT_EQ(bytes[i], std::uint8_t(s * 64 + i + 7)) << s << ", " << i;
      }
    }
  const std::vector<unsigned char> before = file_bytes(dir.path("midway.tif"));
  {
    ModuleFile f(dir.path("midway.tif"), "r");
    EXPECT_EQ(outcome(f.write(false, num(0), {strip(0)})), "stripWriteFailure(1)");
    EXPECT_EQ(outcome(f.set(270, Array::text("x"))), "cannotWriteInReadMode()");
  }
  EXPECT_EQ(file_bytes(dir.path("midway.tif")), before);
}
