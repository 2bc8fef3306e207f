// "writeEncodedStrip" and "writeEncodedTile": data cut or padded to the
// chunk, chunk numbers, and refused operands, decoded by libtiff alone.
// Every layout's round trip is in image_round_trip_test.cpp.

#include "support/image_files.h"
#include "support/write_files.h"

#include <gtest/gtest.h>

#include <cmath>

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
