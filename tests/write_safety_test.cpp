// A write that fails leaves the file as it was before the failed call: the
// file closes, and libtiff alone reads back every chunk written before it,
// with the tags as set, whatever refused the call.

#include "support/foundation.h"
#include "support/write_files.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

using namespace tiffgate::testing;
using tiffgate::embedded::Array;
using tiffgate::embedded::call;
using tiffgate::embedded::CallResult;

namespace {

constexpr std::uint32_t kSide = 16, kRows = 4;  // 16 x 16 uint8 in strips (or tiles) of 4 rows (16 x 16)

/// Pixel (y, x) of the image, distinct across chunks.
std::uint8_t pixel(std::uint32_t y, std::uint32_t x) { return static_cast<std::uint8_t>(y * 16 + x + 7); }

/// Strip s as a host array.
Array strip_data(std::uint32_t s) {
  return host_array<std::uint8_t>(zvUINT8_CLASS, {kRows, kSide},
                                  [s](std::size_t r, std::size_t c, std::size_t) { return pixel(s * kRows + r, c); });
}

/// Strip s as libtiff holds it: rows one after another.
std::vector<std::uint8_t> strip_bytes(std::uint32_t s) {
  std::vector<std::uint8_t> bytes;
  for (std::uint32_t r = 0; r < kRows; ++r)
    for (std::uint32_t x = 0; x < kSide; ++x) bytes.push_back(pixel(s * kRows + r, x));
  return bytes;
}

void set_strip_tags(TIFF* tif, std::uint16_t compression) {
  ImageSpec layout;
  layout.width = layout.length = kSide, layout.rowsPerStrip = kRows, layout.compression = compression;
  set_image_tags(tif, layout);
}

/// What libtiff alone reads of strip s: the bytes, or nothing when it
/// cannot read it.
std::vector<std::uint8_t> libtiff_strip(TIFF* tif, std::uint32_t s) {
  std::vector<std::uint8_t> bytes(kRows * kSide);
  const tmsize_t got = TIFFReadEncodedStrip(tif, s, bytes.data(), static_cast<tmsize_t>(bytes.size()));
  if (got != static_cast<tmsize_t>(bytes.size())) return {};
  return bytes;
}

/// The kind of a failed call, without its namespace.
std::string kind_of(const CallResult& r) { return r.error_id().substr(r.error_id().rfind(':') + 1); }

}  // namespace

TEST(write_safety, refusals_midway_keep_what_was_written) {
  // Each refusal comes after strips 0 and 1 were written; the file is then
  // closed through the module and read with libtiff, with and without
  // compression (a codec holds state between strips).
  ScratchDir dir;
  const struct {
    const char* what;
    std::function<CallResult(const ModuleFile&)> refuse;
    const char* kind;
  } refusals[] = {
      {"wrong class", [](const ModuleFile& f) { return f.write(false, num(2), {Array(zvDOUBLE_CLASS, {4, 16})}); },
       "imageDatatypeNot8bit"},
      {"wrong dimensions", [](const ModuleFile& f) { return f.write(false, num(2), {Array(zvUINT8_CLASS, {4, 16, 2})}); },
       "badContigImageOneSpp"},
      {"two arrays", [](const ModuleFile& f) { return f.write(false, num(2), {strip_data(2), strip_data(2)}); },
       "wrongNumberOfInputImages"},
      {"strip past the end", [](const ModuleFile& f) { return f.write(false, num(4), {strip_data(2)}); },
       "stripNumberTooLarge"},
      {"negative strip number", [](const ModuleFile& f) { return f.write(false, num(-1), {strip_data(2)}); },
       "argumentOutOfBounds"},
      {"tile writer on strips", [](const ModuleFile& f) { return f.write(true, num(2), {strip_data(2)}); },
       "tiledOperationOnStrippedImage"},
      {"a tag refused", [](const ModuleFile& f) { return f.set(258, num(12)); }, "badBitsPerSampleValue"},
  };
  for (const std::uint16_t compression : {COMPRESSION_NONE, COMPRESSION_ADOBE_DEFLATE}) {
    for (const auto& refusal : refusals) {
      SCOPED_TRACE(std::string(refusal.what) + (compression == COMPRESSION_NONE ? "" : ", Deflate"));
      const std::string path = dir.path("midway.tif");
      {
        ModuleFile f(path);
        set_strip_tags(f.tif(), compression);
        for (std::uint32_t s : {0u, 1u}) ASSERT_TRUE(f.write(false, num(s), {strip_data(s)}).ok());
        const CallResult refused = refusal.refuse(f);
        ASSERT_FALSE(refused.ok());
        EXPECT_EQ(kind_of(refused), refusal.kind);
        const CallResult closed = call("close", {f.id()});
        EXPECT_TRUE(closed.ok()) << outcome(closed);
      }
      TiffHandle back(path, "r");
      std::uint32_t width = 0, length = 0;
      ASSERT_TRUE(TIFFGetField(back, TIFFTAG_IMAGEWIDTH, &width));
      ASSERT_TRUE(TIFFGetField(back, TIFFTAG_IMAGELENGTH, &length));
      EXPECT_EQ(width, kSide);
      EXPECT_EQ(length, kSide);
      EXPECT_EQ(TIFFNumberOfStrips(back), 4u);
      EXPECT_EQ(libtiff_strip(back, 0), strip_bytes(0));
      EXPECT_EQ(libtiff_strip(back, 1), strip_bytes(1));
    }
  }
}

TEST(write_safety, writing_goes_on_after_a_refusal) {
  // The refusal changes nothing that a later write depends on: the image
  // completed after it reads back whole, here as tiles.
  ScratchDir dir;
  const std::string path = dir.path("tiles.tif");
  ImageSpec layout;
  layout.width = layout.length = 32, layout.tileWidth = layout.tileLength = 16;
  layout.compression = COMPRESSION_LZW;
  const auto tile = [](std::uint32_t t) {
    return host_array<std::uint8_t>(zvUINT8_CLASS, {16, 16}, [t](std::size_t r, std::size_t c, std::size_t) {
      return static_cast<std::uint8_t>(t * 50 + r * 3 + c);
    });
  };
  {
    ModuleFile f(path);
    set_image_tags(f.tif(), layout);
    ASSERT_TRUE(f.write(true, num(0), {tile(0)}).ok());
    EXPECT_EQ(f.write(true, num(1), {Array(zvINT16_CLASS, {16, 16})}).error_id(), tiff_id("imageDatatypeNot8bit"));
    EXPECT_EQ(f.write(true, num(4), {tile(1)}).error_id(), tiff_id("tileNumberTooLarge"));
    EXPECT_EQ(f.write(false, num(1), {tile(1)}).error_id(), tiff_id("tiledOperationOnStrippedImage"));
    for (std::uint32_t t : {1u, 2u, 3u}) ASSERT_TRUE(f.write(true, num(t), {tile(t)}).ok()) << t;
    f.close();
  }
  TiffHandle back(path, "r");
  for (std::uint32_t t = 0; t < 4; ++t) {
    std::vector<std::uint8_t> bytes(256);
    ASSERT_EQ(TIFFReadEncodedTile(back, t, bytes.data(), 256), 256) << t;
    std::size_t wrong = 0;
    for (std::size_t r = 0; r < 16; ++r)
      for (std::size_t c = 0; c < 16; ++c) wrong += bytes[r * 16 + c] != static_cast<std::uint8_t>(t * 50 + r * 3 + c);
    EXPECT_EQ(wrong, 0u) << "tile " << t;
  }
}

TEST(write_safety, earlier_directories_survive_a_failure_in_a_later_one) {
  // Directory 0 complete; directory 1 fails after its first strip.
  ScratchDir dir;
  const std::string path = dir.path("two.tif");
  {
    ModuleFile f(path);
    set_strip_tags(f.tif(), COMPRESSION_NONE);
    for (std::uint32_t s = 0; s < 4; ++s) ASSERT_TRUE(f.write(false, num(s), {strip_data(s)}).ok());
    ASSERT_TRUE(call("writeDirectory", {f.id()}).ok());
    set_strip_tags(f.tif(), COMPRESSION_PACKBITS);
    ASSERT_TRUE(f.write(false, num(0), {strip_data(3)}).ok());
    EXPECT_EQ(f.write(false, num(1), {Array::text("not pixels")}).error_id(), tiff_id("imageDatatypeNot8bit"));
    f.close();
  }
  TiffHandle back(path, "r");
  ASSERT_EQ(TIFFNumberOfDirectories(back), 2);
  for (std::uint32_t s = 0; s < 4; ++s) EXPECT_EQ(libtiff_strip(back, s), strip_bytes(s)) << s;
  ASSERT_TRUE(TIFFSetDirectory(back, 1));
  EXPECT_EQ(libtiff_strip(back, 0), strip_bytes(3));
}

TEST(write_safety, a_file_open_for_reading_is_left_unchanged) {
  ScratchDir dir;
  const std::string path = dir.path("read.tif");
  {
    TiffHandle out(path, "w");
    set_strip_tags(out, COMPRESSION_NONE);
    for (std::uint32_t s = 0; s < 4; ++s) {
      std::vector<std::uint8_t> bytes = strip_bytes(s);
      ASSERT_EQ(TIFFWriteEncodedStrip(out, s, bytes.data(), static_cast<tmsize_t>(bytes.size())), 64);
    }
  }
  const std::vector<unsigned char> before = file_bytes(path);
  {
    ModuleFile f(path, "r");
    // libtiff refuses the write itself: the strip's write error, 1-based.
    EXPECT_EQ(outcome(f.write(false, num(0), {strip_data(3)})), outcome("stripWriteFailure", {std::int64_t{1}}));
    EXPECT_EQ(outcome(f.set(270, str("changed"))), "cannotWriteInReadMode()");
    // libtiff takes a directory write of a read-only file as done; nothing
    // is written (the bytes are compared below).
    EXPECT_EQ(outcome(call("writeDirectory", {f.id()})), "ok");
    // Reading still works on the same handle.
    const CallResult strip = call("readEncodedStrip", {f.id(), num(2)});
    ASSERT_TRUE(strip.ok()) << outcome(strip);
    EXPECT_EQ(compare(strip.out(), strip_data(2)).mismatch, "");
    f.close();
  }
  EXPECT_EQ(file_bytes(path), before);
}
