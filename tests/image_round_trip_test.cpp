// Images written with the module alone (every tag through "setField", the
// data through "writeEncodedStrip"/"writeEncodedTile") and read back with
// the module alone: every chunk compared in class, shape and value.

#include "support/image_files.h"
#include "support/write_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::CallResult;
using Tags = std::vector<std::pair<double, Array>>;

constexpr std::uint16_t U = SAMPLEFORMAT_UINT, I = SAMPLEFORMAT_INT, F = SAMPLEFORMAT_IEEEFP;
constexpr std::uint16_t C = PLANARCONFIG_CONTIG, S = PLANARCONFIG_SEPARATE;
constexpr std::uint16_t GREY = PHOTOMETRIC_MINISBLACK, WHITE = PHOTOMETRIC_MINISWHITE, RGB = PHOTOMETRIC_RGB,
                        YCC = PHOTOMETRIC_YCBCR, MAP = PHOTOMETRIC_PALETTE;
constexpr std::uint16_t NONE = COMPRESSION_NONE, LZW = COMPRESSION_LZW, ZIP = COMPRESSION_ADOBE_DEFLATE,
                        DEFLATE = COMPRESSION_DEFLATE, PACKBITS = COMPRESSION_PACKBITS, JPEG = COMPRESSION_JPEG,
                        G4 = COMPRESSION_CCITTFAX4;

struct Layout {
  const char* name;
  zvClassID cls;
  std::uint32_t width, length;
  std::uint16_t photometric, bits, samples, extra, format, planar, compression;
  std::uint32_t rowsPerStrip, tile;  ///< tiled when tile is non-zero
  std::uint16_t h = 1, v = 1;        ///< YCbCr subsampling
  double tolerance = 0;              ///< the largest difference allowed (JPEG)
  std::uint32_t tileLength = 0;      ///< 0: tiles as long as they are wide

  bool ycbcr() const { return photometric == YCC; }
};

const Layout kLayouts[] = {
    // name, class, width, length, photometric, bits, samples, extra, format, planar, compression,
    // rows per strip, tile[, h, v, tolerance, tile length]
    {"uint8 grey, short last strip", zvUINT8_CLASS, 17, 23, GREY, 8, 1, 0, U, C, NONE, 5, 0},
    {"int8 grey, LZW", zvINT8_CLASS, 19, 7, GREY, 8, 1, 0, I, C, LZW, 3, 0},
    {"uint8 RGBA planes, LZW", zvUINT8_CLASS, 13, 10, RGB, 8, 4, 1, U, S, LZW, 4, 0},
    {"uint16 RGB, Deflate", zvUINT16_CLASS, 19, 11, RGB, 16, 3, 0, U, C, ZIP, 4, 0},
    {"int16 grey + alpha planes, PackBits", zvINT16_CLASS, 13, 9, GREY, 16, 2, 1, I, S, PACKBITS, 4, 0},
    {"uint32 RGBA, partial tiles", zvUINT32_CLASS, 37, 21, RGB, 32, 4, 1, U, C, NONE, 0, 16},
    {"int32 grey tiles, LZW", zvINT32_CLASS, 20, 18, GREY, 32, 1, 0, I, C, LZW, 0, 16},
    {"single RGB plane tiles, Deflate", zvSINGLE_CLASS, 33, 17, RGB, 32, 3, 0, F, S, DEFLATE, 0, 16},
    {"double RGBA", zvDOUBLE_CLASS, 9, 7, RGB, 64, 4, 1, F, C, NONE, 3, 0},
    {"double grey tiles, LZW", zvDOUBLE_CLASS, 18, 20, GREY, 64, 1, 0, F, C, LZW, 0, 16},
    {"uint8 palette, PackBits", zvUINT8_CLASS, 21, 11, MAP, 8, 1, 0, U, C, PACKBITS, 4, 0},
    {"uint16 palette tiles, LZW", zvUINT16_CLASS, 20, 18, MAP, 16, 1, 0, U, C, LZW, 0, 16},
    {"1-bit, 21 wide", zvLOGICAL_CLASS, 21, 13, GREY, 1, 1, 0, U, C, NONE, 5, 0},
    {"1-bit G4, 130 wide", zvLOGICAL_CLASS, 130, 9, WHITE, 1, 1, 0, U, C, G4, 4, 0},
    {"1-bit partial tiles, PackBits", zvLOGICAL_CLASS, 35, 20, GREY, 1, 1, 0, U, C, PACKBITS, 0, 16},
    {"uint16 grey, tiles longer than wide", zvUINT16_CLASS, 37, 50, GREY, 16, 1, 0, U, C, NONE, 0, 16, 1, 1, 0, 32},
    {"1-bit, tiles wider than long", zvLOGICAL_CLASS, 70, 20, GREY, 1, 1, 0, U, C, NONE, 0, 48, 1, 1, 0, 16},
    {"YCbCr 2x2, odd edges", zvUINT8_CLASS, 15, 9, YCC, 8, 3, 0, U, C, NONE, 4, 0, 2, 2},
    {"YCbCr 2x1, odd edges, LZW", zvUINT8_CLASS, 15, 5, YCC, 8, 3, 0, U, C, LZW, 3, 0, 2, 1},
    {"YCbCr 2x2 partial tiles", zvUINT8_CLASS, 31, 17, YCC, 8, 3, 0, U, C, NONE, 0, 16, 2, 2},
    {"YCbCr 4x4, odd edges", zvUINT8_CLASS, 17, 13, YCC, 8, 3, 0, U, C, NONE, 8, 0, 4, 4},
    {"YCbCr 4x2, odd edges", zvUINT8_CLASS, 17, 13, YCC, 8, 3, 0, U, C, NONE, 4, 0, 4, 2},
    {"YCbCr 1x1", zvUINT8_CLASS, 17, 13, YCC, 8, 3, 0, U, C, NONE, 4, 0, 1, 1},
    {"YCbCr 1x2, odd edges", zvUINT8_CLASS, 17, 13, YCC, 8, 3, 0, U, C, NONE, 4, 0, 1, 2},
    {"YCbCr 2x2, 16-bit", zvUINT16_CLASS, 15, 9, YCC, 16, 3, 0, U, C, NONE, 4, 0, 2, 2},
    {"YCbCr 2x2, strips of 3 rows", zvUINT8_CLASS, 15, 9, YCC, 8, 3, 0, U, C, NONE, 3, 0, 2, 2},
    {"YCbCr 2x2, tiles longer than wide, LZW", zvUINT8_CLASS, 31, 37, YCC, 8, 3, 0, U, C, LZW, 0, 16, 2, 2, 0, 32},
    {"JPEG grey", zvUINT8_CLASS, 48, 32, GREY, 8, 1, 0, U, C, JPEG, 16, 0, 1, 1, 3},
    {"JPEG RGB, partial tiles", zvUINT8_CLASS, 40, 40, RGB, 8, 3, 0, U, C, JPEG, 0, 16, 1, 1, 3},
    {"JPEG YCbCr 2x2, partial tiles", zvUINT8_CLASS, 47, 40, YCC, 8, 3, 0, U, C, JPEG, 0, 16, 2, 2, 3},
    {"JPEG YCbCr 2x1", zvUINT8_CLASS, 48, 32, YCC, 8, 3, 0, U, C, JPEG, 16, 0, 2, 1, 3},
};

/// The tags of a layout in an order the setters accept: PhotometricInterpretation
/// first, BitsPerSample before SamplesPerPixel and SampleFormat, SamplesPerPixel
/// before ExtraSamples, Compression before its codec settings.
Tags tags_of(const Layout& l) {
  Tags tags = {{262, num(l.photometric)}, {258, num(l.bits)},   {277, num(l.samples)},
               {339, num(l.format)},      {284, num(l.planar)}, {259, num(l.compression)},
               {256, num(l.width)},       {257, num(l.length)}};
  if (l.extra) tags.push_back({338, Array::row({EXTRASAMPLE_UNASSALPHA})});
  if (l.photometric == MAP) {
    const std::size_t entries = std::size_t{1} << l.bits;
    tags.push_back({320, host_array(zvDOUBLE_CLASS, {entries, 3}, [entries](std::size_t r, std::size_t c, std::size_t) {
                      return static_cast<double>((r * (c + 1)) % entries) / static_cast<double>(entries - 1);
                    })});
  }
  if (l.ycbcr()) tags.push_back({530, Array::row({double(l.h), double(l.v)})});
  if (l.tile) {
    tags.push_back({322, num(l.tile)});
    tags.push_back({323, num(l.tileLength ? l.tileLength : l.tile)});
  } else {
    tags.push_back({278, num(l.rowsPerStrip)});
  }
  if (l.compression == JPEG) tags.push_back({65537, num(95)});
  // libtiff's differencing steps through whole pixels, which subsampled
  // YCbCr rows are not made of.
  if ((l.compression == ZIP || l.compression == LZW) && !l.ycbcr()) tags.push_back({317, num(PREDICTOR_HORIZONTAL)});
  return tags;
}

/// Sample k of image pixel (row, column): bit patterns that reach the sign
/// and the high bytes, signed halves for floating point, a smooth ramp for
/// JPEG.
double sample(const Layout& l, std::size_t row, std::size_t column, std::size_t k) {
  if (l.bits == 1) return (row * 7 + column * 3 + k) % 5 < 2;
  if (l.compression == JPEG) return static_cast<double>(row * 2 + column + k * 40);
  const std::uint64_t mixed = (row * 1000003ull + column * 7919ull + k * 104729ull + 12345) * 0x9E3779B97F4A7C15ull;
  if (l.format == F) return (static_cast<double>((mixed >> 40) % 100000) - 50000) / 2;
  const std::uint64_t value = mixed >> (64 - l.bits);  // integers have at most 32 bits
  if (l.format == I) return static_cast<double>(value) - std::ldexp(1.0, l.bits - 1);
  return static_cast<double>(value);
}

/// The whole image as host arrays: one M x N (x samples) array, or Y, Cb and
/// Cr with the chroma planes rounded up.
std::vector<Array> image_of(const Layout& l) {
  const auto value = [&l](std::size_t plane) {
    return [&l, plane](std::size_t r, std::size_t c, std::size_t k) { return sample(l, r, c, plane + k); };
  };
  if (!l.ycbcr()) {
    std::vector<std::size_t> dims = {l.length, l.width};
    if (l.samples > 1) dims.push_back(l.samples);
    return {host_array(l.cls, dims, value(0))};
  }
  const std::vector<std::size_t> chroma = {(l.length + l.v - 1u) / l.v, (l.width + l.h - 1u) / l.h};
  return {host_array(l.cls, {l.length, l.width}, value(0)), host_array(l.cls, chroma, value(1)),
          host_array(l.cls, chroma, value(2))};
}

/// The arrays of the chunk at p cut from the image: the part inside the
/// image, one plane of a separate image.
std::vector<Array> chunk_of(const Layout& l, const std::vector<Array>& image, const ChunkPlace& p) {
  if (l.ycbcr()) {
    const std::size_t rows = (p.rows + l.v - 1u) / l.v, columns = (p.columns + l.h - 1u) / l.h;
    return {part_of(image[0], p.row0, p.column0, p.rows, p.columns),
            part_of(image[1], p.row0 / l.v, p.column0 / l.h, rows, columns),
            part_of(image[2], p.row0 / l.v, p.column0 / l.h, rows, columns)};
  }
  const Array all = part_of(image[0], p.row0, p.column0, p.rows, p.columns);
  if (l.planar == C) return {all};
  // One plane: the k-th p.rows x p.columns slice of the cut array.
  const std::size_t plane = std::size_t{p.rows} * p.columns * all.element_size();
  Array one(l.cls, {p.rows, p.columns});
  if (plane > 0) std::memcpy(one.data(), static_cast<const unsigned char*>(all.data()) + p.plane * plane, plane);
  return {one};
}

/// Sets the layout's tags through setField and writes every chunk of the
/// image through the write command; returns where each chunk lies.
std::vector<ChunkPlace> write_layout(const ModuleFile& file, const Layout& l, const std::vector<Array>& image) {
  std::vector<ChunkPlace> places;
  for (const auto& [tag, value] : tags_of(l)) {
    const CallResult r = file.set(tag, value);
    EXPECT_TRUE(r.ok()) << "tag " << tag << ": " << outcome(r);
    if (!r.ok()) return places;
  }
  const CallResult count = embedded::call(l.tile ? "numberOfTiles" : "numberOfStrips", {file.id()});
  EXPECT_TRUE(count.ok()) << outcome(count);
  for (std::uint32_t i = 0; count.ok() && i < count.out().number(); ++i) {
    places.push_back(chunk_place(file.tif(), i));
    const CallResult r = file.write(l.tile != 0, num(i), chunk_of(l, image, places.back()));
    EXPECT_TRUE(r.ok()) << "chunk " << i << ": " << outcome(r);
    EXPECT_TRUE(r.warnings.empty()) << "chunk " << i << ": " << r.warnings.front().message;
  }
  return places;
}

/// Reads every chunk of the current directory back through the read
/// command and compares it with the image: class and shape exactly, values
/// within the layout's tolerance. The chunk numbers agree with the index
/// commands.
void read_layout(const ModuleFile& file, const Layout& l, const std::vector<Array>& image,
                 const std::vector<ChunkPlace>& places) {
  EXPECT_EQ(file.get(259).out().number(), l.compression);
  const CallResult count = embedded::call(l.tile ? "numberOfTiles" : "numberOfStrips", {file.id()});
  ASSERT_TRUE(count.ok()) << outcome(count);
  ASSERT_EQ(count.out().number(), places.size());
  double largest = 0;
  for (std::uint32_t i = 0; i < places.size(); ++i) {
    // The chunk that computeStrip or computeTile names for its last pixel,
    // 1-based.
    const ChunkPlace& p = places[i];
    const double row = p.row0 + p.rows - 1, column = p.column0 + p.columns - 1;
    std::vector<Array> where = {file.id(), l.tile ? Array::row({row, column}) : num(row)};
    if (l.planar == S) where.push_back(num(p.plane));
    const CallResult at = embedded::call(l.tile ? "computeTile" : "computeStrip", where);
    ASSERT_EQ(outcome(at), "ok") << "chunk " << i;
    EXPECT_EQ(at.out().number(), i + 1) << "chunk " << i;

    const CallResult r = embedded::call(l.tile ? "readEncodedTile" : "readEncodedStrip", {file.id(), num(i)},
                                        l.ycbcr() ? 3 : 1);
    ASSERT_TRUE(r.ok()) << "chunk " << i << ": " << outcome(r);
    EXPECT_TRUE(r.warnings.empty()) << "chunk " << i << ": " << r.warnings.front().message;
    const std::vector<Array> expected = chunk_of(l, image, p);
    ASSERT_EQ(r.outputs.size(), expected.size());
    for (std::size_t k = 0; k < expected.size(); ++k) {
      const Comparison c = compare(r.out(k), expected[k]);
      ASSERT_EQ(c.mismatch, "") << "chunk " << i << ", output " << k;
      largest = std::max(largest, c.largest);
    }
  }
  EXPECT_LE(largest, l.tolerance);
}

TEST(image_round_trip, every_layout_written_and_read_through_the_module) {
  ScratchDir dir;
  for (const Layout& l : kLayouts) {
    SCOPED_TRACE(l.name);
    const std::string path = dir.path("round.tif");
    const std::vector<Array> image = image_of(l);
    std::vector<ChunkPlace> places;
    {
      ModuleFile file(path);
      places = write_layout(file, l, image);
      file.close();
    }
    read_layout(ModuleFile(path, "r"), l, image, places);
  }
}

// The same layouts as the directories of one file, written one after the
// other with writeDirectory: no codec setting or tag of one directory may
// leak into the next.
TEST(image_round_trip, every_layout_as_a_directory_of_one_file) {
  ScratchDir dir;
  const std::string path = dir.path("all.tif");
  std::vector<std::vector<ChunkPlace>> places;
  {
    ModuleFile file(path);
    for (const Layout& l : kLayouts) {
      SCOPED_TRACE(l.name);
      places.push_back(write_layout(file, l, image_of(l)));
      ASSERT_EQ(outcome(embedded::call("writeDirectory", {file.id()})), "ok");
    }
    file.close();
  }
  ModuleFile file(path, "r");
  for (std::size_t d = 0; d < std::size(kLayouts); ++d) {
    SCOPED_TRACE(kLayouts[d].name);
    ASSERT_EQ(outcome(embedded::call("setDirectory", {file.id(), num(static_cast<double>(d))})), "ok");
    read_layout(file, kLayouts[d], image_of(kLayouts[d]), places[d]);
  }
  EXPECT_EQ(embedded::call("lastDirectory", {file.id()}).out().number(), 1);
}

// JPEGColorMode RGB: libtiff takes one RGB image and stores it as YCbCr;
// read back through libtiff's RGBA conversion, bottom row first.
TEST(image_round_trip, rgb_written_as_jpeg_ycbcr_reads_back_as_rgba) {
  ScratchDir dir;
  const std::string path = dir.path("rgb.tif");
  const std::size_t width = 48, length = 32;
  const Array rgb = host_array(zvUINT8_CLASS, {length, width, 3}, [](std::size_t r, std::size_t c, std::size_t k) {
    return static_cast<double>(40 + r * 2 + c + k * 50);
  });
  {
    ModuleFile file(path);
    const Tags tags = {{262, num(YCC)},     {258, num(8)},      {277, num(3)},   {259, num(JPEG)},
                       {256, num(width)},   {257, num(length)}, {278, num(16)},  {530, Array::row({2, 2})},
                       {65537, num(95)},    {65538, num(JPEGCOLORMODE_RGB)}};
    for (const auto& [tag, value] : tags) ASSERT_TRUE(file.set(tag, value).ok()) << "tag " << tag;
    for (std::size_t strip = 0; strip < 2; ++strip) {
      const CallResult r = file.write(false, num(static_cast<double>(strip)), {part_of(rgb, strip * 16, 0, 16, width)});
      ASSERT_TRUE(r.ok()) << outcome(r);
    }
    file.close();
  }
  ModuleFile file(path, "r");
  const CallResult r = embedded::call("readRGBAImage", {file.id()});
  ASSERT_TRUE(r.ok()) << outcome(r);
  ASSERT_EQ(r.out().dims(), (Array::Dims{4, width, length}));
  const Array raster = host_array(zvUINT8_CLASS, {4, width, length}, [&](std::size_t k, std::size_t x, std::size_t y) {
    return k == 3 ? 255 : rgb.number((length - 1 - y) + x * length + k * length * width);
  });
  const Comparison c = compare(r.out(), raster);
  EXPECT_EQ(c.mismatch, "");
  EXPECT_LE(c.largest, 3);
}

}  // namespace
}  // namespace tiffgate::testing
