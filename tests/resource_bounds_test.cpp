// Sizes a directory claims and the machine cannot hold: each command that
// would allocate in proportion to them refuses with a kind before it
// allocates, and what it may allocate for a sensible size still works. Peak
// memory is watched around each refusal, so that an allocation that merely
// happened to succeed (lazily granted pages) cannot pass for a refusal.

#include "core/memory_limit.h"
#include "support/foundation.h"
#include "support/raw_tiff.h"
#include "support/write_files.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdint>

using namespace tiffgate::testing;
using tiffgate::embedded::Array;
using tiffgate::embedded::call;
using tiffgate::embedded::CallResult;

namespace {

/// Peak resident memory of the process so far, in bytes.
std::uint64_t peak_bytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<std::uint64_t>(usage.ru_maxrss) * 1024;
}

/// The call, with a check that it did not raise the peak by more than
/// 64 MB (the largest legitimate buffer of the cases below is a few KB).
CallResult bounded_call(const char* word, std::vector<Array> operands) {
  const std::uint64_t before = peak_bytes();
  CallResult r = call(word, std::move(operands));
  EXPECT_LT(peak_bytes() - before, std::uint64_t{64} << 20) << word;
  return r;
}

std::int64_t arg(const CallResult& r, std::size_t i) { return boost::get<std::int64_t>(r.error->arguments.at(i)); }

/// Sets the value of a SHORT or LONG entry of the first directory.
void patch_entry(std::vector<unsigned char>& bytes, std::uint16_t tag, std::uint32_t value) {
  const std::size_t at = first_ifd_entry(bytes, tag);
  const int width = bytes[at + 2] == 3 ? 2 : 4;
  for (int i = 0; i < width; ++i) bytes[at + 8 + i] = static_cast<unsigned char>(value >> (8 * i));
}

}  // namespace

TEST(resource_bounds, strip_and_tile_arrays_of_claimed_planes) {
  // libtiff pads a short StripOffsets array to its strip count (up to a
  // million entries), and getField multiplies that count by the separate
  // planes: 15 rows of 65535 planes made a row of 983025 x 65535 entries,
  // 515 GB, from a file of 400 bytes.
  ScratchDir dir;
  const std::vector<RawEntry> image = {{256, 4, 1}, {257, 4, 15}, {258, 3, 8}, {259, 3, 1}, {262, 3, 1},
                                       {277, 3, 65535}, {284, 3, 2}};
  std::vector<RawEntry> strips = image, tiles = image;
  strips.insert(strips.end(), {{273, 4, 8}, {278, 4, 1}, {279, 4, 1}});
  tiles.insert(tiles.end(), {{322, 4, 16}, {323, 4, 16}, {324, 4, 8}, {325, 4, 1}});
  write_raw_tiff(dir.path("strips.tif"), strips);
  write_raw_tiff(dir.path("tiles.tif"), tiles);

  const Array s = open_file(dir.path("strips.tif"));
  EXPECT_EQ(outcome(bounded_call("getField", {s, num(273)})), "tagRetrievalFailed('StripOffsets')");
  EXPECT_EQ(outcome(bounded_call("getField", {s, num(279)})), "tagRetrievalFailed('StripByteCounts')");
  // What needs no allocation still answers, with libtiff's counts: 15
  // strips a plane, and row 14 of plane 65534 in strip 65534 * 15 + 14.
  EXPECT_EQ(call("numberOfStrips", {s}).out().number(), 15.0 * 65535);
  EXPECT_EQ(call("computeStrip", {s, num(14), num(65534)}).out().number(), 65534.0 * 15 + 14 + 1);
  // One strip is one byte: reading it is no trouble.
  const CallResult strip = bounded_call("readEncodedStrip", {s, num(983024)});
  ASSERT_TRUE(strip.ok()) << outcome(strip);
  EXPECT_EQ(strip.out().dims(), (Array::Dims{1, 1}));
  call("close", {s});

  const Array t = open_file(dir.path("tiles.tif"));
  EXPECT_EQ(outcome(bounded_call("getField", {t, num(324)})), "tagRetrievalFailed('TileOffsets')");
  EXPECT_EQ(outcome(bounded_call("getField", {t, num(325)})), "tagRetrievalFailed('TileByteCounts')");
  EXPECT_EQ(call("numberOfTiles", {t}).out().number(), 65535.0);
  EXPECT_EQ(call("computeTile", {t, Array::row({0, 14}), num(65534)}).out().number(), 65535.0);
  call("close", {t});

  // A separate-plane image of sensible size still gives its full row.
  write_raw_tiff(dir.path("three.tif"), {{256, 4, 1}, {257, 4, 2}, {258, 3, 8}, {259, 3, 1}, {262, 3, 1},
                                         {273, 4, 8}, {277, 3, 3}, {278, 4, 1}, {279, 4, 1}, {284, 3, 2}});
  const Array three = open_file(dir.path("three.tif"));
  const CallResult row = call("getField", {three, num(273)});
  ASSERT_TRUE(row.ok()) << outcome(row);
  EXPECT_EQ(row.out().dims(), (Array::Dims{1, 18}));  // 6 strips (2 rows x 3 planes), times 3 by design
  call("close", {three});
}

TEST(resource_bounds, written_chunks_larger_than_memory) {
  // A strip of 2^32 - 1 columns, 2^20 rows and 64-bit samples: 36 PB. The
  // chunk buffer was asked of malloc, which failed with bad_alloc, a kind
  // outside the catalogue (and an abort under the sanitizers).
  ScratchDir dir;
  struct Case {
    const char* what;
    bool tiled;
    std::uint32_t width, length, chunkWidth, chunkLength;
    std::uint16_t bits, samples;
  };
  const Case cases[] = {
      {"wide strip", false, 0xFFFFFFFFu, 1u << 20, 0, 1u << 20, 64, 1},
      {"large tile", true, 1u << 24, 1u << 24, 1u << 24, 1u << 24, 8, 1},
      {"65535 samples", false, 1u << 20, 1u << 10, 0, 1u << 10, 8, 65535},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ModuleFile f(dir.path("big.tif"));
    TIFFSetField(f.tif(), TIFFTAG_IMAGEWIDTH, c.width);
    TIFFSetField(f.tif(), TIFFTAG_IMAGELENGTH, c.length);
    TIFFSetField(f.tif(), TIFFTAG_BITSPERSAMPLE, c.bits);
    TIFFSetField(f.tif(), TIFFTAG_SAMPLESPERPIXEL, c.samples);
    TIFFSetField(f.tif(), TIFFTAG_SAMPLEFORMAT, c.bits == 64 ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
    TIFFSetField(f.tif(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    if (c.tiled) {
      TIFFSetField(f.tif(), TIFFTAG_TILEWIDTH, c.chunkWidth);
      TIFFSetField(f.tif(), TIFFTAG_TILELENGTH, c.chunkLength);
    } else {
      TIFFSetField(f.tif(), TIFFTAG_ROWSPERSTRIP, c.chunkLength);
    }
    const Array data(c.bits == 64 ? zvDOUBLE_CLASS : zvUINT8_CLASS,
                     c.samples == 1 ? Array::Dims{2, 2} : Array::Dims{2, 2, c.samples});
    const CallResult r = bounded_call(c.tiled ? "writeEncodedTile" : "writeEncodedStrip", {f.id(), num(0), data});
    ASSERT_EQ(r.error_id(), tiff_id("tooManyBytes")) << outcome(r);
    // Chunk 0 needs its buffer, libtiff's encoding buffer (a tenth more)
    // and libtiff's two arrays of one 8-byte entry per chunk.
    const std::uint64_t width = c.tiled ? c.chunkWidth : c.width;
    const std::uint64_t chunk = width * c.chunkLength * (c.bits / 8) * c.samples;
    const std::uint64_t chunks = c.tiled ? 1 : (std::uint64_t{c.length} + c.chunkLength - 1) / c.chunkLength;
    EXPECT_EQ(arg(r, 0), 0);
    EXPECT_EQ(arg(r, 1), static_cast<std::int64_t>(tiffgate::memory_limit()));
    EXPECT_EQ(arg(r, 2), static_cast<std::int64_t>(chunk * 2 + chunk / 10 + chunks * 16));
    f.close();
  }
}

TEST(resource_bounds, written_strip_arrays_larger_than_memory) {
  // 2^31 one-row strips: libtiff's first write of the directory allocates
  // and zero-fills two arrays of 16 GB each before it writes one byte, and
  // the process was killed for memory (under the sanitizers, whose
  // allocator grants the pages lazily, always).
  const std::uint64_t strips = std::uint64_t{1} << 31;
  const std::uint64_t needed = 1 + 1 + 0 + strips * 16;  // one-byte strip, its encoding buffer, the arrays
  if (needed <= tiffgate::memory_limit()) GTEST_SKIP() << "this machine could hold the arrays";
  ScratchDir dir;
  ModuleFile f(dir.path("strips.tif"));
  TIFFSetField(f.tif(), TIFFTAG_IMAGEWIDTH, 1);
  TIFFSetField(f.tif(), TIFFTAG_IMAGELENGTH, static_cast<std::uint32_t>(strips));
  TIFFSetField(f.tif(), TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(f.tif(), TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(f.tif(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(f.tif(), TIFFTAG_ROWSPERSTRIP, 1);
  const CallResult r = bounded_call("writeEncodedStrip", {f.id(), num(7), Array(zvUINT8_CLASS, {1, 1})});
  ASSERT_EQ(r.error_id(), tiff_id("tooManyBytes")) << outcome(r);
  EXPECT_EQ(arg(r, 0), 7);
  EXPECT_EQ(arg(r, 2), static_cast<std::int64_t>(needed));
  f.close();

  // A million strips (32 MB of arrays) are written as ever.
  ModuleFile g(dir.path("million.tif"));
  TIFFSetField(g.tif(), TIFFTAG_IMAGEWIDTH, 1);
  TIFFSetField(g.tif(), TIFFTAG_IMAGELENGTH, 1000000);
  TIFFSetField(g.tif(), TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(g.tif(), TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(g.tif(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(g.tif(), TIFFTAG_ROWSPERSTRIP, 1);
  const CallResult ok = g.write(false, num(999999), {Array::of<std::uint8_t>(zvUINT8_CLASS, {1, 1}, {42})});
  ASSERT_TRUE(ok.ok()) << outcome(ok);
  g.close();
  TiffHandle back(dir.path("million.tif"), "r");
  std::uint8_t value = 0;
  ASSERT_EQ(TIFFReadEncodedStrip(back, 999999, &value, 1), 1);
  EXPECT_EQ(value, 42);
}

TEST(resource_bounds, compressed_data_that_expands_past_its_chunk) {
  // A Deflate strip is decoded into the chunk's buffer and no further: 4 MB
  // of compressed rows under a directory that says 64 rows give those 64
  // rows, and nothing is allocated for the rest.
  ScratchDir dir;
  const std::uint32_t width = 64, rows = 1u << 16, kept = 64;
  {
    TiffHandle out(dir.path("deflate.tif"), "w");
    ImageSpec layout;
    layout.width = width, layout.length = rows, layout.rowsPerStrip = rows, layout.compression = COMPRESSION_ADOBE_DEFLATE;
    set_image_tags(out, layout);
    std::vector<std::uint8_t> pixels(std::size_t{width} * rows, 0);
    for (std::uint32_t y = 0; y < kept; ++y)
      for (std::uint32_t x = 0; x < width; ++x) pixels[y * width + x] = static_cast<std::uint8_t>(y * 3 + x);
    ASSERT_GT(TIFFWriteEncodedStrip(out, 0, pixels.data(), static_cast<tmsize_t>(pixels.size())), 0);
  }
  std::vector<unsigned char> bytes = file_bytes(dir.path("deflate.tif"));
  ASSERT_LT(bytes.size(), std::size_t{64} << 10);  // it does expand a hundredfold
  patch_entry(bytes, TIFFTAG_IMAGELENGTH, kept);
  patch_entry(bytes, TIFFTAG_ROWSPERSTRIP, kept);
  write_file_bytes(dir.path("deflate.tif"), bytes);

  const Array id = open_file(dir.path("deflate.tif"));
  const CallResult r = bounded_call("readEncodedStrip", {id, num(0)});
  ASSERT_TRUE(r.ok()) << outcome(r);
  ASSERT_EQ(r.out().dims(), (Array::Dims{kept, width}));
  std::size_t wrong = 0;
  for (std::uint32_t y = 0; y < kept; ++y)
    for (std::uint32_t x = 0; x < width; ++x)
      wrong += r.out().at<std::uint8_t>(y + x * kept) != static_cast<std::uint8_t>(y * 3 + x);
  EXPECT_EQ(wrong, 0u);
  call("close", {id});
}
