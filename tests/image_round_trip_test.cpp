// Every layout the module writes, written with the module alone (every tag
// through "setField", the data through "writeEncodedStrip"/"writeEncodedTile")
// as the directories of one classic and one BigTIFF file, then held against
// three readers: the module itself, libtiff's own decode of every chunk
// (padding included), and tifffile's decode of the whole image. Directory 0
// also carries text and GeoTIFF tags and lists the next directory as its
// SubIFD, which tifffile must find.

#include "support/corpus.h"
#include "support/foundation.h"
#include "support/image_files.h"
#include "support/write_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <map>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;
using embedded::CallResult;
using Tags = std::vector<std::pair<double, Array>>;

constexpr std::uint16_t U = SAMPLEFORMAT_UINT, I = SAMPLEFORMAT_INT, F = SAMPLEFORMAT_IEEEFP;
constexpr std::uint16_t C = PLANARCONFIG_CONTIG, S = PLANARCONFIG_SEPARATE;
constexpr std::uint16_t GREY = PHOTOMETRIC_MINISBLACK, WHITE = PHOTOMETRIC_MINISWHITE, RGB = PHOTOMETRIC_RGB,
                        YCC = PHOTOMETRIC_YCBCR, MAP = PHOTOMETRIC_PALETTE;
constexpr std::uint16_t NONE = COMPRESSION_NONE, LZW = COMPRESSION_LZW, ZIP = COMPRESSION_ADOBE_DEFLATE,
                        DEFLATE = COMPRESSION_DEFLATE, PACKBITS = COMPRESSION_PACKBITS, JPEG = COMPRESSION_JPEG,
                        G3 = COMPRESSION_CCITTFAX3, G4 = COMPRESSION_CCITTFAX4;

std::size_t ceil_div(std::size_t a, std::size_t b) { return (a + b - 1) / b; }

/// libtiff garbles some JPEG YCbCr when it hands back the raw units, which
/// the read returns as libtiff decodes them: only the RGBA reader is held
/// against the image.
constexpr double kGarbled = -1;

struct Layout {
  const char* name;
  zvClassID cls;
  std::uint32_t width, length;
  std::uint16_t photometric, bits, samples, extra, format, planar, compression;
  std::uint32_t rowsPerStrip, tile;  ///< tiled when tile is non-zero; 0 rows per strip: not set
  std::uint16_t h = 1, v = 1;        ///< YCbCr subsampling
  double tolerance = 0;              ///< the largest difference allowed (JPEG); -1: see kGarbled
  std::uint32_t tileLength = 0;      ///< 0: tiles as long as they are wide

  bool ycbcr() const { return photometric == YCC; }
  bool planes() const { return planar == S && samples > 1; }
  /// tifffile decodes these without extra codecs (and YCbCr not as written).
  bool tifffile_decodes() const {
    return !ycbcr() && (compression == NONE || compression == ZIP || compression == DEFLATE || compression == PACKBITS);
  }
  std::string shape() const {  // as tifffile gives it
    const std::string image = std::to_string(length) + "x" + std::to_string(width);
    if (samples == 1) return image;
    return planes() ? std::to_string(samples) + "x" + image : image + "x" + std::to_string(samples);
  }
};

// Every class, 1 to 4 samples, both planar configurations, strips and tiles
// with partial edges, every subsampling, every compression the module can
// create.
const Layout kLayouts[] = {
    // name, class, width, length, photometric, bits, samples, extra, format, planar, compression,
    // rows per strip, tile[, h, v, tolerance, tile length]
    {"uint8 grey, short last strip", zvUINT8_CLASS, 17, 23, GREY, 8, 1, 0, U, C, NONE, 5, 0},
    {"int8 grey, LZW", zvINT8_CLASS, 19, 7, GREY, 8, 1, 0, I, C, LZW, 3, 0},
    {"int8 grey, Deflate", zvINT8_CLASS, 17, 23, GREY, 8, 1, 0, I, C, ZIP, 8, 0},
    {"uint8 RGBA planes, LZW", zvUINT8_CLASS, 13, 10, RGB, 8, 4, 1, U, S, LZW, 4, 0},
    {"uint8 RGB, LZW", zvUINT8_CLASS, 15, 10, RGB, 8, 3, 0, U, C, LZW, 4, 0},
    {"uint8 grey and alpha, PackBits", zvUINT8_CLASS, 11, 6, GREY, 8, 2, 1, U, C, PACKBITS, 4, 0},
    {"uint16 RGB, Deflate", zvUINT16_CLASS, 19, 11, RGB, 16, 3, 0, U, C, ZIP, 4, 0},
    {"int16 grey + alpha planes, PackBits", zvINT16_CLASS, 13, 9, GREY, 16, 2, 1, I, S, PACKBITS, 4, 0},
    {"int16 grey, PackBits tiles", zvINT16_CLASS, 37, 21, GREY, 16, 1, 0, I, C, PACKBITS, 0, 16},
    {"uint16 grey and alpha, separate tiles", zvUINT16_CLASS, 24, 17, GREY, 16, 2, 1, U, S, NONE, 0, 16},
    {"uint32 RGBA, partial tiles", zvUINT32_CLASS, 37, 21, RGB, 32, 4, 1, U, C, NONE, 0, 16},
    {"uint32 RGBA strips", zvUINT32_CLASS, 13, 9, RGB, 32, 4, 1, U, C, NONE, 3, 0},
    {"int32 grey tiles, LZW", zvINT32_CLASS, 20, 18, GREY, 32, 1, 0, I, C, LZW, 0, 16},
    {"int32 grey, old-style Deflate tiles", zvINT32_CLASS, 20, 18, GREY, 32, 1, 0, I, C, DEFLATE, 0, 16},
    {"single RGB plane tiles, Deflate", zvSINGLE_CLASS, 33, 17, RGB, 32, 3, 0, F, S, DEFLATE, 0, 16},
    {"single RGBA tiles, Deflate", zvSINGLE_CLASS, 33, 17, RGB, 32, 4, 1, F, C, ZIP, 0, 16},
    {"single RGB, separate planes", zvSINGLE_CLASS, 7, 12, RGB, 32, 3, 0, F, S, NONE, 5, 0},
    {"double RGBA", zvDOUBLE_CLASS, 9, 7, RGB, 64, 4, 1, F, C, NONE, 3, 0},
    {"double RGB separate strips", zvDOUBLE_CLASS, 9, 7, RGB, 64, 3, 0, F, S, NONE, 3, 0},
    {"double RGB, separate tiles", zvDOUBLE_CLASS, 18, 33, RGB, 64, 3, 0, F, S, ZIP, 0, 16},
    {"double grey tiles, LZW", zvDOUBLE_CLASS, 18, 20, GREY, 64, 1, 0, F, C, LZW, 0, 16},
    {"uint8 palette, PackBits", zvUINT8_CLASS, 21, 11, MAP, 8, 1, 0, U, C, PACKBITS, 4, 0},
    {"uint8 palette, one strip", zvUINT8_CLASS, 10, 12, MAP, 8, 1, 0, U, C, NONE, 0, 0},
    {"uint16 palette tiles, LZW", zvUINT16_CLASS, 20, 18, MAP, 16, 1, 0, U, C, LZW, 0, 16},
    {"1-bit, 21 wide", zvLOGICAL_CLASS, 21, 13, GREY, 1, 1, 0, U, C, NONE, 5, 0},
    {"1-bit G3", zvLOGICAL_CLASS, 21, 13, GREY, 1, 1, 0, U, C, G3, 4, 0},
    {"1-bit G4, 130 wide", zvLOGICAL_CLASS, 130, 9, WHITE, 1, 1, 0, U, C, G4, 4, 0},
    {"1-bit G4, one strip", zvLOGICAL_CLASS, 21, 13, GREY, 1, 1, 0, U, C, G4, 0, 0},
    {"1-bit partial tiles, PackBits", zvLOGICAL_CLASS, 35, 20, GREY, 1, 1, 0, U, C, PACKBITS, 0, 16},
    {"1-bit partial tiles", zvLOGICAL_CLASS, 35, 20, GREY, 1, 1, 0, U, C, NONE, 0, 16},
    {"uint16 grey, tiles longer than wide", zvUINT16_CLASS, 37, 50, GREY, 16, 1, 0, U, C, NONE, 0, 16, 1, 1, 0, 32},
    {"1-bit, tiles wider than long", zvLOGICAL_CLASS, 70, 20, GREY, 1, 1, 0, U, C, NONE, 0, 48, 1, 1, 0, 16},
    {"YCbCr 2x2, odd edges", zvUINT8_CLASS, 15, 9, YCC, 8, 3, 0, U, C, NONE, 4, 0, 2, 2},
    {"YCbCr 2x2, odd edges, 13 long", zvUINT8_CLASS, 15, 13, YCC, 8, 3, 0, U, C, NONE, 4, 0, 2, 2},
    {"YCbCr 2x1, odd edges, LZW", zvUINT8_CLASS, 15, 5, YCC, 8, 3, 0, U, C, LZW, 3, 0, 2, 1},
    {"YCbCr 2x2 partial tiles", zvUINT8_CLASS, 31, 17, YCC, 8, 3, 0, U, C, NONE, 0, 16, 2, 2},
    {"YCbCr 2x1 partial tiles", zvUINT8_CLASS, 21, 19, YCC, 8, 3, 0, U, C, NONE, 0, 16, 2, 1},
    {"YCbCr 4x4, odd edges", zvUINT8_CLASS, 17, 13, YCC, 8, 3, 0, U, C, NONE, 8, 0, 4, 4},
    {"YCbCr 4x2, odd edges", zvUINT8_CLASS, 17, 13, YCC, 8, 3, 0, U, C, NONE, 4, 0, 4, 2},
    {"YCbCr 1x1", zvUINT8_CLASS, 17, 13, YCC, 8, 3, 0, U, C, NONE, 4, 0, 1, 1},
    {"YCbCr 1x2, odd edges", zvUINT8_CLASS, 17, 13, YCC, 8, 3, 0, U, C, NONE, 4, 0, 1, 2},
    {"YCbCr 2x2, 16-bit", zvUINT16_CLASS, 15, 9, YCC, 16, 3, 0, U, C, NONE, 4, 0, 2, 2},
    {"YCbCr 2x2, strips of 3 rows", zvUINT8_CLASS, 15, 9, YCC, 8, 3, 0, U, C, NONE, 3, 0, 2, 2},
    {"YCbCr 2x2, tiles longer than wide, LZW", zvUINT8_CLASS, 31, 37, YCC, 8, 3, 0, U, C, LZW, 0, 16, 2, 2, 0, 32},
    {"JPEG grey", zvUINT8_CLASS, 48, 32, GREY, 8, 1, 0, U, C, JPEG, 16, 0, 1, 1, 3},
    {"JPEG grey tiles", zvUINT8_CLASS, 48, 32, GREY, 8, 1, 0, U, C, JPEG, 0, 16, 1, 1, 3},
    {"JPEG RGB strips", zvUINT8_CLASS, 32, 32, RGB, 8, 3, 0, U, C, JPEG, 16, 0, 1, 1, 3},
    {"JPEG RGB, partial tiles", zvUINT8_CLASS, 40, 40, RGB, 8, 3, 0, U, C, JPEG, 0, 16, 1, 1, 3},
    {"JPEG YCbCr 2x2, partial tiles", zvUINT8_CLASS, 47, 40, YCC, 8, 3, 0, U, C, JPEG, 0, 16, 2, 2, 3},
    {"JPEG YCbCr 2x2", zvUINT8_CLASS, 32, 32, YCC, 8, 3, 0, U, C, JPEG, 16, 0, 2, 2, kGarbled},
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
  } else if (l.rowsPerStrip) {
    tags.push_back({278, num(l.rowsPerStrip)});
  }
  if (l.compression == JPEG) tags.push_back({65537, num(95)});
  // libtiff's differencing steps through whole pixels, which subsampled
  // YCbCr rows are not made of; tifffile undoes it for integers only.
  if ((l.compression == ZIP || l.compression == LZW) && !l.ycbcr() && l.format != F)
    tags.push_back({317, num(PREDICTOR_HORIZONTAL)});
  return tags;
}

/// Sample k of image pixel (row, column): bit patterns that reach the sign
/// and the high bytes, signed halves for floating point, a smooth ramp for
/// JPEG.
double sample(const Layout& l, std::size_t row, std::size_t column, std::size_t k) {
  if (l.bits == 1) return (row * 7 + column * 3 + k) % 5 < 2;
  if (l.compression == JPEG) return static_cast<double>(20 + row * 2 + column + k * 40);
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
  const std::vector<std::size_t> chroma = {ceil_div(l.length, l.v), ceil_div(l.width, l.h)};
  return {host_array(l.cls, {l.length, l.width}, value(0)), host_array(l.cls, chroma, value(1)),
          host_array(l.cls, chroma, value(2))};
}

/// The arrays of the chunk at p cut from the image: the part inside the
/// image, one plane of a separate image.
std::vector<Array> chunk_of(const Layout& l, const std::vector<Array>& image, const ChunkPlace& p) {
  if (l.ycbcr()) {
    const std::size_t rows = ceil_div(p.rows, l.v), columns = ceil_div(p.columns, l.h);
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
  const CallResult count = call(l.tile ? "numberOfTiles" : "numberOfStrips", {file.id()});
  EXPECT_TRUE(count.ok()) << outcome(count);
  for (std::uint32_t i = 0; count.ok() && i < count.out().number(); ++i) {
    places.push_back(chunk_place(file.tif(), i));
    const CallResult r = file.write(l.tile != 0, num(i), chunk_of(l, image, places.back()));
    EXPECT_TRUE(r.ok()) << "chunk " << i << ": " << outcome(r);
    EXPECT_TRUE(r.warnings.empty()) << "chunk " << i << ": " << r.warnings.front().message;
  }
  return places;
}

/// Counts the elements of libtiff's decode of chunk p outside the image
/// that are not zero; for raw YCbCr, the units that are not what the image
/// gives (a unit reaching past the data repeats its last row or column,
/// units past the data are zero).
std::size_t wrong_padding(const Layout& l, const std::vector<Array>& image, const ChunkPlace& p,
                          const std::vector<unsigned char>& bytes) {
  std::size_t wrong = 0;
  if (l.ycbcr()) {
    const auto at = [&](const Array& a, std::size_t r, std::size_t c) { return a.number(r + c * a.dims()[0]); };
    const std::size_t perRow = ceil_div(p.width, l.h), unit = l.h * l.v + 2u;
    for (std::size_t ur = 0; ur < ceil_div(p.length, l.v); ++ur)
      for (std::size_t uc = 0; uc < perRow; ++uc) {
        const bool data = ur < ceil_div(p.rows, l.v) && uc < ceil_div(p.columns, l.h);
        for (std::size_t s = 0; s < unit; ++s) {
          const std::size_t r = std::min<std::size_t>(ur * l.v + s / l.h, p.rows - 1);
          const std::size_t c = std::min<std::size_t>(uc * l.h + s % l.h, p.columns - 1);
          const std::size_t cy = p.row0 / l.v + ur, cx = p.column0 / l.h + uc;
          const double want = !data ? 0
                              : s < unit - 2u ? at(image[0], p.row0 + r, p.column0 + c)
                                              : at(image[s - unit + 3u], cy, cx);
          wrong += bytes[(ur * perRow + uc) * unit + s] != want;
        }
      }
    return wrong;
  }
  const std::size_t spc = l.planar == S ? 1 : l.samples, size = l.bits == 1 ? 0 : l.bits / 8u;
  const std::size_t rowBits = ceil_div(p.width * spc, 8) * 8;
  for (std::size_t r = 0; r < p.length; ++r)
    for (std::size_t c = 0; c < p.width; ++c)
      for (std::size_t k = 0; k < spc && (r >= p.rows || c >= p.columns); ++k) {
        if (size == 0) {
          const std::size_t bit = r * rowBits + c * spc + k;
          wrong += (bytes[bit / 8] >> (7 - bit % 8)) & 1;
        } else {
          const unsigned char* e = bytes.data() + ((r * p.width + c) * spc + k) * size;
          wrong += std::any_of(e, e + size, [](unsigned char b) { return b != 0; });
        }
      }
  return wrong;
}

/// Reads every chunk of the current directory back through the read
/// command and compares it with the image (class and shape exactly, values
/// within the layout's tolerance) and with libtiff's decode of the same
/// chunk, exactly; the chunk numbers agree with the index commands.
void read_layout(const ModuleFile& file, const Layout& l, const std::vector<Array>& image,
                 const std::vector<ChunkPlace>& places) {
  EXPECT_EQ(file.get(259).out().number(), l.compression);
  const CallResult count = call(l.tile ? "numberOfTiles" : "numberOfStrips", {file.id()});
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
    const CallResult at = call(l.tile ? "computeTile" : "computeStrip", where);
    ASSERT_EQ(outcome(at), "ok") << "chunk " << i;
    EXPECT_EQ(at.out().number(), i + 1) << "chunk " << i;

    const CallResult r = call(l.tile ? "readEncodedTile" : "readEncodedStrip", {file.id(), num(i)}, l.ycbcr() ? 3 : 1);
    ASSERT_TRUE(r.ok()) << "chunk " << i << ": " << outcome(r);
    EXPECT_TRUE(r.warnings.empty()) << "chunk " << i << ": " << r.warnings.front().message;
    const std::vector<Array> expected = chunk_of(l, image, p);
    ASSERT_EQ(r.outputs.size(), expected.size());
    for (std::size_t k = 0; k < expected.size(); ++k) {
      const Comparison c = compare(r.out(k), expected[k]);
      ASSERT_EQ(c.mismatch, "") << "chunk " << i << ", output " << k;
      largest = std::max(largest, c.largest);
    }
    // libtiff's decode on the module's handle, which is at this directory.
    EXPECT_EQ(compare_outputs(r, libtiff_chunk(file.tif(), i)), "") << "chunk " << i;
    if (l.compression != JPEG && (!l.ycbcr() || l.bits == 8)) {
      EXPECT_EQ(wrong_padding(l, image, p, decoded_chunk(file.tif(), i)), 0u) << "chunk " << i;
    }
  }
  if (l.tolerance != kGarbled) {
    EXPECT_LE(largest, l.tolerance);
  }
}

/// libtiff's own YCbCr to RGB conversion for the directory's coefficients.
class LibtiffYCbCr {
 public:
  explicit LibtiffYCbCr(TIFF* in)
      : memory_(sizeof(TIFFYCbCrToRGB) + 16 + 4 * 256 + 2 * 256 * sizeof(int) + 3 * 256 * 4) {
    float* luma = nullptr;
    float* reference = nullptr;
    TIFFGetFieldDefaulted(in, TIFFTAG_YCBCRCOEFFICIENTS, &luma);
    TIFFGetFieldDefaulted(in, TIFFTAG_REFERENCEBLACKWHITE, &reference);
    TIFFYCbCrToRGBInit(table(), luma, reference);
  }
  std::uint32_t rgb(std::uint32_t y, std::int32_t cb, std::int32_t cr) {
    std::uint32_t r, g, b;
    TIFFYCbCrtoRGB(table(), y, cb, cr, &r, &g, &b);
    return r | g << 8 | b << 16;
  }

 private:
  TIFFYCbCrToRGB* table() { return reinterpret_cast<TIFFYCbCrToRGB*>(memory_.data()); }
  std::vector<std::uint64_t> memory_;
};

/// 8-bit YCbCr through libtiff's RGBA reader, which places the units by
/// itself, against libtiff's own colour conversion of the samples written.
void expect_rgba(TIFF* in, const Layout& l, const std::vector<Array>& image) {
  std::vector<std::uint32_t> raster(std::size_t{l.width} * l.length);
  ASSERT_TRUE(TIFFReadRGBAImageOriented(in, l.width, l.length, raster.data(), ORIENTATION_TOPLEFT, 0));
  LibtiffYCbCr convert(in);
  const auto at = [](const Array& a, std::size_t r, std::size_t c) { return a.number(r + c * a.dims()[0]); };
  int worst = 0;
  for (std::size_t y = 0; y < l.length; ++y)
    for (std::size_t x = 0; x < l.width; ++x) {
      const std::uint32_t want = convert.rgb(static_cast<std::uint32_t>(at(image[0], y, x)),
                                             static_cast<std::int32_t>(at(image[1], y / l.v, x / l.h)),
                                             static_cast<std::int32_t>(at(image[2], y / l.v, x / l.h)));
      for (int k = 0; k < 3; ++k)
        worst = std::max(worst, std::abs(int(raster[y * l.width + x] >> (8 * k) & 0xFF) - int(want >> (8 * k) & 0xFF)));
    }
  EXPECT_LE(worst, l.compression == JPEG ? 10 : 0);
}

/// The whole-image entries: the image written, the same bytes on one thread
/// and on three, and a region (all but the outer rows and columns, and one
/// pixel) that is the slice of the whole; the image written again whole
/// ("__writeImage__", strips of a few rows cut from bands of the image)
/// reads back the same.
void expect_whole_image(const Array& id, const Layout& l, const Array& image, const std::string& again) {
  const CallResult one = call("__readImage__", {id, num(1)}), three = call("__readImage__", {id, num(3)});
  ASSERT_EQ(outcome(one), "ok");
  const Comparison c = compare(one.out(), image);
  ASSERT_EQ(c.mismatch, "");
  EXPECT_LE(c.largest, std::max(l.tolerance, 0.0));
  // Empty when a and b are the same, bit for bit.
  const auto differs = [](const Array& a, const Array& b) {
    const Comparison d = compare(a, b);
    return d.largest == 0 ? d.mismatch : d.mismatch + " by " + std::to_string(d.largest);
  };
  EXPECT_EQ(differs(three.out(), one.out()), "");
  const double L = l.length, W = l.width;
  const struct {
    std::vector<double> region;
    std::size_t row0, column0, rows, columns;
  } regions[] = {{{2, L - 1, 2, W - 1}, 1, 1, l.length - 2, l.width - 2}, {{L, L, W, W}, l.length - 1, l.width - 1, 1, 1}};
  for (const auto& r : regions) {
    const CallResult part = call("__readImage__", {id, num(2), Array::of(zvDOUBLE_CLASS, {1, 4}, r.region)});
    ASSERT_EQ(outcome(part), "ok");
    const Array slice = part_of(one.out(), r.row0, r.column0, r.rows, r.columns);
    EXPECT_EQ(differs(part.out(), slice), "");
  }
  if (l.compression == JPEG) return;
  {
    ModuleFile copy(again);
    for (const auto& [tag, value] : tags_of(l)) ASSERT_EQ(outcome(copy.set(tag, value)), "ok") << tag;
    ASSERT_EQ(outcome(call("__writeImage__", {copy.id(), image, num(INFINITY)})), "ok");
  }
  const ModuleFile back(again, "r");
  EXPECT_EQ(differs(call("__readImage__", {back.id()}).out(), one.out()), "");
}

// Directory 0's tags, with the values tifffile must find in the file.
const char* const kDescription = "written through the module: caf\xC3\xA9";
const std::vector<double> kPixelScale = {0.5, 0.25, 0}, kTiepoint = {0, 0, 0, 440720, 3751320, 0};
const std::vector<double> kGeoKeys = {1, 1, 0, 2, 1024, 0, 1, 1, 1025, 0, 1, 1};
const std::vector<double> kGeoDoubles = {6378137, 298.257223563};
const std::vector<double> kTransformation = {2, 0, 0, 100, 0, -2, 0, 200, 0, 0, 1, 0, 0, 0, 0, 1};
const std::pair<std::uint32_t, std::string> kTexts[] = {
    {270, kDescription}, {305, "tiffgate tests"}, {315, "nobody"}, {306, "2024:06:07 08:09:10"}, {34737, "WGS 84|"}};

Array row(const std::vector<double>& values) { return Array::of(zvDOUBLE_CLASS, {1, values.size()}, values); }

void set_directory_0_tags(const ModuleFile& file) {
  std::vector<double> keys(kGeoKeys.size());  // one key record per row
  for (std::size_t r = 0; r < 3; ++r)
    for (std::size_t c = 0; c < 4; ++c) keys[r + c * 3] = kGeoKeys[r * 4 + c];
  Tags tags = {{282, num(72.5)}, {296, num(RESUNIT_INCH)}, {33550, row(kPixelScale)}, {33922, row(kTiepoint)},
               {34735, Array::of(zvDOUBLE_CLASS, {3, 4}, keys)}, {34736, row(kGeoDoubles)},
               {34264, row(kTransformation)}, {330, num(1)}};  // the next directory is its SubIFD
  for (const auto& [tag, text] : kTexts) tags.push_back({tag, str(text)});
  for (const auto& [tag, value] : tags) EXPECT_EQ(outcome(file.set(tag, value)), "ok") << tag;
}

/// Directory 0's tags as tifffile finds them in the file's bytes.
void expect_directory_0_tags(const DirectoryRecord& d0) {
  for (const auto& [tag, value] : kTexts) {
    std::string hex;
    for (const unsigned char c : value + '\0') hex += "0123456789abcdef"[c >> 4], hex += "0123456789abcdef"[c & 15];
    ASSERT_TRUE(d0.tag(tag)) << tag;
    EXPECT_EQ(d0.tag(tag)->values, hex) << tag;
  }
  const std::pair<std::uint32_t, std::vector<double>> numbers[] = {
      {33550, kPixelScale}, {33922, kTiepoint},     {34735, kGeoKeys}, {34736, kGeoDoubles},
      {34264, kTransformation}, {282, {72.5}}, {296, {2}}};
  for (const auto& [tag, values] : numbers) {
    ASSERT_TRUE(d0.tag(tag)) << tag;
    EXPECT_EQ(d0.tag(tag)->numbers(), values) << tag;
  }
  ASSERT_TRUE(d0.tag(330));
  EXPECT_EQ(d0.tag(330)->count, 1u);
}

/// Directory 0 lists the next one as its SubIFD, so the main chain goes on
/// with the one after.
std::string key_of(std::size_t layout) { return layout == 0 ? "0" : layout == 1 ? "0.0" : std::to_string(layout - 1); }

// Every layout as a directory of one file, so that no codec setting or tag
// of one directory may leak into the next.
TEST(image_round_trip, every_layout_against_the_module_libtiff_and_tifffile) {
  ScratchDir dir;
  const std::vector<std::string> files = {dir.path("classic.tif"), dir.path("bigtiff.tif")};
  std::vector<std::vector<Array>> images;
  for (const Layout& l : kLayouts) images.push_back(image_of(l));
  std::vector<std::vector<ChunkPlace>> places;
  for (const std::string& path : files) {
    ModuleFile file(path, path == files[1] ? "w8" : "w");
    for (std::size_t i = 0; i < std::size(kLayouts); ++i) {
      SCOPED_TRACE(kLayouts[i].name);
      places.push_back(write_layout(file, kLayouts[i], images[i]));
      if (i == 0) set_directory_0_tags(file);
      ASSERT_EQ(outcome(call("writeDirectory", {file.id()})), "ok");
    }
    file.close();
  }

  std::map<std::string, PageRecord> pages;
  for (const PageRecord& p : parse_pages(run_python("tifffile_pages.py", {dir.path(""), files[0], files[1]})))
    pages[p.file + " " + p.key] = p;
  EXPECT_EQ(pages.size(), 2 * std::size(kLayouts));
  std::size_t compared = 0;
  for (std::size_t f = 0; f < files.size(); ++f) {
    ModuleFile file(files[f], "r");
    for (std::size_t i = 0; i < std::size(kLayouts); ++i) {
      const Layout& l = kLayouts[i];
      SCOPED_TRACE(files[f] + ": " + l.name);
      ASSERT_EQ(go_to_directory(file.id(), key_of(i)), "");
      read_layout(file, l, images[i], places[f * std::size(kLayouts) + i]);
      // libtiff's RGBA reader misplaces 4 x 4 units at odd edges, needs whole
      // units in a strip, and smooths the chroma of JPEG tiles at their edges.
      const bool rgba = l.h * l.v < 16 && (l.tile ? l.compression != JPEG : l.rowsPerStrip % l.v == 0);
      if (l.ycbcr() && l.bits == 8 && rgba) expect_rgba(file.tif(), l, images[i]);

      if (!l.ycbcr()) expect_whole_image(file.id(), l, images[i][0], dir.path("again.tif"));

      const auto page = pages.find(files[f] + " " + key_of(i));
      ASSERT_NE(page, pages.end());
      const PageRecord& p = page->second;
      EXPECT_EQ(p.compression, l.compression);
      if (l.ycbcr()) continue;
      EXPECT_EQ(p.shape, l.shape());
      EXPECT_EQ(p.dtype, dtype_of(l.cls));
      // Other compressions need codecs tifffile lacks here.
      EXPECT_EQ(p.decoded(), l.tifffile_decodes()) << p.data;
      if (!p.decoded()) continue;
      const ModuleImage image = read_module_image(file.id());  // checked against the arrays written above
      ASSERT_EQ(image.outcome, "ok");
      EXPECT_TRUE(image.bytes == file_bytes(p.data)) << "tifffile decodes other values";
      ++compared;
    }
    EXPECT_EQ(call("lastDirectory", {file.id()}).out().number(), 1);
  }
  EXPECT_EQ(compared, 2 * 23u);

  auto directories = tifffile_directories(files, false);
  for (const std::string& path : files) {
    SCOPED_TRACE(path);
    ASSERT_TRUE(directories[path].count("0"));
    expect_directory_0_tags(directories[path]["0"]);
  }
}

// JPEGColorMode RGB: libtiff takes one RGB image and stores it as YCbCr;
// read back through libtiff's RGBA conversion, by the module (bottom row
// first) and by libtiff directly.
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
  const CallResult r = call("readRGBAImage", {file.id()});
  ASSERT_TRUE(r.ok()) << outcome(r);
  ASSERT_EQ(r.out().dims(), (Array::Dims{4, width, length}));
  const Array raster = host_array(zvUINT8_CLASS, {4, width, length}, [&](std::size_t k, std::size_t x, std::size_t y) {
    return k == 3 ? 255 : rgb.number((length - 1 - y) + x * length + k * length * width);
  });
  const Comparison c = compare(r.out(), raster);
  EXPECT_EQ(c.mismatch, "");
  EXPECT_LE(c.largest, 3);
  std::vector<std::uint32_t> words(width * length);
  ASSERT_TRUE(TIFFReadRGBAImageOriented(TiffHandle(path, "r"), width, length, words.data(), ORIENTATION_TOPLEFT, 0));
  double worst = 0;
  for (std::size_t y = 0; y < length; ++y)
    for (std::size_t x = 0; x < width; ++x)
      for (std::size_t k = 0; k < 3; ++k)
        worst = std::max(worst, std::abs(double(words[y * width + x] >> (8 * k) & 0xFF) -
                                         rgb.number(y + x * length + k * length * width)));
  EXPECT_LE(worst, 6);
}

// Files written by tifffile, read through the module.
/// Layouts tifffile writes that the module refuses by design.
const std::map<std::string, std::string> kRefused = {
    {"float16.tif", "badSampleFormatBitsPerSampleCombination(3, 16)"},  // no 16-bit floating-point class
    {"uint64.tif", "sampleFormatMustBeIeeeFpFor64Bits()"},              // 64-bit samples are double only
    {"int64.tif", "sampleFormatMustBeIeeeFpFor64Bits()"},
};

TEST(tifffile_round_trip, tifffile_writes_module_reads) {
  ScratchDir dir;
  const std::vector<PageRecord> pages = parse_pages(run_python("tifffile_write.py", {dir.path("")}));
  ASSERT_GE(pages.size(), 36u);
  std::map<std::string, Array> open;
  std::size_t compared = 0;
  for (const PageRecord& p : pages) {
    const std::string name = p.file.substr(p.file.rfind('/') + 1);
    SCOPED_TRACE(name + " page " + p.key);
    if (!open.count(p.file)) open[p.file] = open_file(p.file);
    const Array& id = open[p.file];
    ASSERT_EQ(go_to_directory(id, p.key), "");
    const ModuleImage image = read_module_image(id);
    if (kRefused.count(name)) {
      EXPECT_EQ(image.outcome, kRefused.at(name));
      continue;
    }
    ASSERT_EQ(image.outcome, "ok");
    EXPECT_EQ(image.shape, p.shape);
    EXPECT_EQ(image.dtype, p.dtype);
    EXPECT_TRUE(image.bytes == file_bytes(p.data)) << "the module reads other values";
    ++compared;
  }
  for (const auto& [file, id] : open) EXPECT_TRUE(call("close", {id}).ok()) << file;
  EXPECT_EQ(compared, pages.size() - kRefused.size());
}

}  // namespace
}  // namespace tiffgate::testing
