// "writeEncodedStrip" and "writeEncodedTile": every chunk of an image
// written through the module, then decoded by libtiff alone (chunk by
// chunk, rearranged here by hand) and by tifffile.

#include "support/image_files.h"
#include "support/write_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>

using namespace tiffgate::testing;
using tiffgate::embedded::Array;

namespace {

std::size_t ceil_div(std::size_t a, std::size_t b) { return (a + b - 1) / b; }

/// Sample (y, x, k) of a test image: bit patterns that reach every byte
/// (and negative values), or a smooth ramp that JPEG keeps nearly intact.
template <class T>
T sample(bool bilevel, bool smooth, std::size_t y, std::size_t x, std::size_t k) {
  if (smooth) return static_cast<T>(y * 3 + x * 2 + k * 40);
  const std::uint64_t p = y * 0x9E3779B1u + x * 0x85EBCA77u + k * 0xC2B2AE3Du + 12345;
  if (bilevel) return static_cast<T>((p >> 7) & 1);
  if constexpr (std::is_floating_point_v<T>) {
    return static_cast<T>(static_cast<std::int32_t>(p)) / 8;
  } else {
    T v;
    std::memcpy(&v, &p, sizeof v);  // the low bytes
    return v;
  }
}

struct Layout {
  const char* what;
  ImageSpec tags;
  zvClassID cls;
  const char* dtype;  ///< tifffile's dtype text; nullptr: tifffile cannot decode this compression
  bool smooth = false;
  double tolerance = 0;
  std::uint16_t predictor = 0;
};

ImageSpec image(std::uint32_t width, std::uint32_t length, std::uint16_t bits, std::uint16_t format,
                std::uint16_t samples, std::uint32_t rowsPerStrip, std::uint32_t tile, std::uint16_t compression) {
  ImageSpec t;
  t.width = width, t.length = length, t.bits = bits, t.format = format, t.samples = samples;
  t.rowsPerStrip = rowsPerStrip, t.tileWidth = t.tileLength = tile, t.compression = compression;
  t.photometric = samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
  t.extraSamples = samples == 4 || samples == 2 ? 1 : 0;
  return t;
}
ImageSpec separate(ImageSpec t) {
  t.planar = PLANARCONFIG_SEPARATE;
  return t;
}

template <class T>
void round_trip(const Layout& l, const std::string& path) {
  const ImageSpec& t = l.tags;
  const bool tiled = t.tileWidth != 0, bilevel = t.bits == 1;
  const std::size_t spc = t.planar == PLANARCONFIG_SEPARATE ? 1 : t.samples;
  const std::size_t cw = tiled ? t.tileWidth : t.width, ch = tiled ? t.tileLength : t.rowsPerStrip;
  const auto value = [&](std::size_t y, std::size_t x, std::size_t k) { return sample<T>(bilevel, l.smooth, y, x, k); };
  std::vector<ChunkPlace> places;
  {
    ModuleFile file(path);
    set_image_tags(file.tif(), t);
    if (l.predictor) TIFFSetField(file.tif(), TIFFTAG_PREDICTOR, l.predictor);
    if (t.compression == COMPRESSION_JPEG) TIFFSetField(file.tif(), TIFFTAG_JPEGQUALITY, 95);
    const std::uint32_t chunks = tiled ? TIFFNumberOfTiles(file.tif()) : TIFFNumberOfStrips(file.tif());
    for (std::uint32_t i = 0; i < chunks; ++i) {
      const ChunkPlace& p = places.emplace_back(chunk_place(file.tif(), i));
      std::vector<std::size_t> dims = {p.rows, p.columns};
      if (spc > 1) dims.push_back(spc);
      const auto data = host_array<T>(l.cls, dims, [&](std::size_t r, std::size_t c, std::size_t k) {
        return value(p.row0 + r, p.column0 + c, p.plane + k);
      });
      const auto result = file.write(tiled, Array::scalar(static_cast<double>(i)), {data});
      ASSERT_TRUE(result.ok()) << "chunk " << i << ": " << outcome(result);
      EXPECT_TRUE(result.warnings.empty()) << result.warnings[0].identifier;
    }
    file.close();
  }

  // libtiff alone: every sample of every chunk, padding included.
  double worst = 0;
  std::size_t wrongPadding = 0;
  const std::size_t rowBits = ceil_div(cw * spc, 8) * 8;
  TiffHandle in(path, "r");
  for (std::uint32_t i = 0; i < places.size(); ++i) {
    const ChunkPlace& p = places[i];
    const auto bytes = decoded_chunk(in, i);
    for (std::size_t r = 0; r < ch; ++r)
      for (std::size_t c = 0; c < cw; ++c)
        for (std::size_t k = 0; k < spc; ++k) {
          double got;
          if (bilevel) {
            const std::size_t bit = r * rowBits + c * spc + k;
            got = (bytes[bit / 8] >> (7 - bit % 8)) & 1;
          } else {
            T v;
            std::memcpy(&v, bytes.data() + ((r * cw + c) * spc + k) * sizeof(T), sizeof(T));
            got = static_cast<double>(v);
          }
          if (r < p.rows && c < p.columns)
            worst = std::max(worst, std::abs(got - static_cast<double>(value(p.row0 + r, p.column0 + c, p.plane + k))));
          else if (l.tolerance == 0)
            wrongPadding += got != 0;
        }
  }
  EXPECT_LE(worst, l.tolerance);
  EXPECT_EQ(wrongPadding, 0u);

  if (l.dtype == nullptr) return;
  const Decoded d = tifffile_decode(path);
  const bool planes = t.planar == PLANARCONFIG_SEPARATE && t.samples > 1;
  std::vector<std::size_t> shape = {t.length, t.width};
  if (planes) shape.insert(shape.begin(), t.samples);
  if (!planes && t.samples > 1) shape.push_back(t.samples);
  ASSERT_EQ(d.shape, shape);
  EXPECT_EQ(d.dtype, l.dtype);
  const std::size_t size = bilevel ? 1 : sizeof(T);
  ASSERT_EQ(d.bytes.size(), t.length * t.width * t.samples * size);
  std::size_t wrong = 0;
  for (std::size_t y = 0; y < t.length; ++y)
    for (std::size_t x = 0; x < t.width; ++x)
      for (std::size_t k = 0; k < t.samples; ++k) {
        const std::size_t at = planes ? (k * t.length + y) * t.width + x : (y * t.width + x) * t.samples + k;
        const T v = value(y, x, k);
        wrong += std::memcmp(d.bytes.data() + at * size, &v, size) != 0;
      }
  EXPECT_EQ(wrong, 0u);
}

}  // namespace

TEST(write_encoded, every_layout_against_libtiff_and_tifffile) {
  const std::uint16_t U = SAMPLEFORMAT_UINT, S = SAMPLEFORMAT_INT, F = SAMPLEFORMAT_IEEEFP;
  const std::vector<Layout> layouts = {
      {"uint8 grey, short last strip", image(17, 23, 8, U, 1, 5, 0, COMPRESSION_NONE), zvUINT8_CLASS, "|u1"},
      {"int8 LZW", image(17, 23, 8, S, 1, 8, 0, COMPRESSION_LZW), zvINT8_CLASS, nullptr},
      {"uint16 RGB Deflate, predictor", image(19, 11, 16, U, 3, 4, 0, COMPRESSION_ADOBE_DEFLATE), zvUINT16_CLASS,
       "<u2", false, 0, PREDICTOR_HORIZONTAL},
      {"int16 RGBA separate PackBits", separate(image(13, 9, 16, S, 4, 4, 0, COMPRESSION_PACKBITS)), zvINT16_CLASS,
       "<i2"},
      {"uint32 grey, partial tiles", image(37, 21, 32, U, 1, 0, 16, COMPRESSION_NONE), zvUINT32_CLASS, "<u4"},
      {"int32 LZW tiles", image(20, 18, 32, S, 1, 0, 16, COMPRESSION_LZW), zvINT32_CLASS, nullptr},
      {"single RGBA tiles, Deflate", image(33, 17, 32, F, 4, 0, 16, COMPRESSION_ADOBE_DEFLATE), zvSINGLE_CLASS,
       "<f4"},
      {"double RGB separate strips", separate(image(9, 7, 64, F, 3, 3, 0, COMPRESSION_NONE)), zvDOUBLE_CLASS, "<f8"},
      {"uint8 grey with alpha", image(11, 6, 8, U, 2, 4, 0, COMPRESSION_PACKBITS), zvUINT8_CLASS, "|u1"},
      {"1-bit, 21 wide", image(21, 13, 1, U, 1, 5, 0, COMPRESSION_NONE), zvLOGICAL_CLASS, "|u1"},
      {"1-bit G4", image(21, 13, 1, U, 1, 5, 0, COMPRESSION_CCITTFAX4), zvLOGICAL_CLASS, nullptr},
      {"1-bit partial tiles", image(35, 20, 1, U, 1, 0, 16, COMPRESSION_NONE), zvLOGICAL_CLASS, "|u1"},
      {"uint8 RGB JPEG strips", image(32, 32, 8, U, 3, 16, 0, COMPRESSION_JPEG), zvUINT8_CLASS, nullptr, true, 3},
      {"uint8 grey JPEG tiles", image(48, 32, 8, U, 1, 0, 16, COMPRESSION_JPEG), zvUINT8_CLASS, nullptr, true, 3},
  };
  ScratchDir dir;
  for (const Layout& l : layouts) {
    SCOPED_TRACE(l.what);
    const std::string path = dir.path("layout.tif");
    switch (l.cls) {
      case zvLOGICAL_CLASS: round_trip<std::uint8_t>(l, path); break;
      case zvUINT8_CLASS: round_trip<std::uint8_t>(l, path); break;
      case zvINT8_CLASS: round_trip<std::int8_t>(l, path); break;
      case zvUINT16_CLASS: round_trip<std::uint16_t>(l, path); break;
      case zvINT16_CLASS: round_trip<std::int16_t>(l, path); break;
      case zvUINT32_CLASS: round_trip<std::uint32_t>(l, path); break;
      case zvINT32_CLASS: round_trip<std::int32_t>(l, path); break;
      case zvSINGLE_CLASS: round_trip<float>(l, path); break;
      default: round_trip<double>(l, path); break;
    }
  }
}

namespace {

/// libtiff's own YCbCr to RGB conversion for the file's coefficients.
class LibtiffYCbCr {
 public:
  explicit LibtiffYCbCr(TIFF* in) : memory_(sizeof(TIFFYCbCrToRGB) + 16 + 4 * 256 + 2 * 256 * sizeof(int) + 3 * 256 * 4) {
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

void ycbcr_round_trip(const ImageSpec& t, double tolerance, const std::string& path) {
  const std::size_t h = t.subsampling[0], v = t.subsampling[1];
  const bool tiled = t.tileWidth != 0, jpeg = t.compression == COMPRESSION_JPEG;
  const std::size_t cw = tiled ? t.tileWidth : t.width, ch = tiled ? t.tileLength : t.rowsPerStrip;
  const auto luma = [&](std::size_t y, std::size_t x) { return std::uint8_t(jpeg ? 20 + y * 3 + x * 2 : y * 37 + x * 11); };
  const auto cb = [](std::size_t uy, std::size_t ux) { return std::uint8_t(60 + uy * 7 + ux * 5); };
  const auto cr = [](std::size_t uy, std::size_t ux) { return std::uint8_t(200 - uy * 3 - ux * 4); };
  std::vector<ChunkPlace> places;
  {
    ModuleFile file(path);
    set_image_tags(file.tif(), t);
    if (jpeg) TIFFSetField(file.tif(), TIFFTAG_JPEGQUALITY, 95);
    const std::uint32_t chunks = tiled ? TIFFNumberOfTiles(file.tif()) : TIFFNumberOfStrips(file.tif());
    for (std::uint32_t i = 0; i < chunks; ++i) {
      const ChunkPlace& p = places.emplace_back(chunk_place(file.tif(), i));
      const std::size_t cy = p.row0 / v, cx = p.column0 / h;
      using F = std::function<std::uint8_t(std::size_t, std::size_t, std::size_t)>;
      const std::vector<std::size_t> chroma = {ceil_div(p.rows, v), ceil_div(p.columns, h)};
      const auto result = file.write(
          tiled, Array::scalar(static_cast<double>(i)),
          {host_array<std::uint8_t>(zvUINT8_CLASS, {p.rows, p.columns}, F([&](auto r, auto c, auto) { return luma(p.row0 + r, p.column0 + c); })),
           host_array<std::uint8_t>(zvUINT8_CLASS, chroma, F([&](auto r, auto c, auto) { return cb(cy + r, cx + c); })),
           host_array<std::uint8_t>(zvUINT8_CLASS, chroma, F([&](auto r, auto c, auto) { return cr(cy + r, cx + c); }))});
      ASSERT_TRUE(result.ok()) << "chunk " << i << ": " << outcome(result);
    }
    file.close();
  }

  // The raw units libtiff decodes; a unit reaching past the data repeats
  // the data's last row or column, units past the data are zero. (libtiff
  // cannot hand back JPEG-compressed units raw: it garbles them.)
  const std::size_t perRow = ceil_div(cw, h), unit = h * v + 2;
  TiffHandle in(path, "r");
  for (std::uint32_t i = 0; i < places.size() && !jpeg; ++i) {
    const ChunkPlace& p = places[i];
    const auto bytes = decoded_chunk(in, i);
    std::size_t wrong = 0;
    for (std::size_t ur = 0; ur < ceil_div(ch, v); ++ur)
      for (std::size_t uc = 0; uc < perRow; ++uc) {
        const std::uint8_t* got = bytes.data() + (ur * perRow + uc) * unit;
        const bool data = ur < ceil_div(p.rows, v) && uc < ceil_div(p.columns, h);
        for (std::size_t s = 0; s < unit; ++s) {
          const std::size_t r = std::min<std::size_t>(ur * v + s / h, p.rows - 1);
          const std::size_t c = std::min<std::size_t>(uc * h + s % h, p.columns - 1);
          const int want = !data ? 0
                           : s < h * v ? luma(p.row0 + r, p.column0 + c)
                           : s == h * v ? cb(p.row0 / v + ur, p.column0 / h + uc) : cr(p.row0 / v + ur, p.column0 / h + uc);
          wrong += got[s] != want;
        }
      }
    EXPECT_EQ(wrong, 0u) << "chunk " << i;
  }

  // libtiff's RGBA reader, which places the units by itself, against
  // libtiff's own colour conversion of the samples written.
  std::vector<std::uint32_t> raster(t.width * t.length);
  ASSERT_TRUE(TIFFReadRGBAImageOriented(in, t.width, t.length, raster.data(), ORIENTATION_TOPLEFT, 0));
  LibtiffYCbCr convert(in);
  int worst = 0;
  for (std::size_t y = 0; y < t.length; ++y)
    for (std::size_t x = 0; x < t.width; ++x) {
      const std::uint32_t want = convert.rgb(luma(y, x), cb(y / v, x / h), cr(y / v, x / h));
      for (int k = 0; k < 3; ++k)
        worst = std::max(worst, std::abs(int(raster[y * t.width + x] >> (8 * k) & 0xFF) - int(want >> (8 * k) & 0xFF)));
    }
  EXPECT_LE(worst, tolerance);
}

ImageSpec ycbcr_image(std::uint32_t width, std::uint32_t length, std::uint16_t h, std::uint16_t v,
                      std::uint32_t rowsPerStrip, std::uint32_t tile, std::uint16_t compression) {
  ImageSpec t = image(width, length, 8, SAMPLEFORMAT_UINT, 3, rowsPerStrip, tile, compression);
  t.photometric = PHOTOMETRIC_YCBCR, t.subsampling[0] = h, t.subsampling[1] = v;
  return t;
}

}  // namespace

TEST(write_encoded, raw_ycbcr_with_odd_edges) {
  ScratchDir dir;
  {
    SCOPED_TRACE("2 x 2 strips, 15 x 13");
    ycbcr_round_trip(ycbcr_image(15, 13, 2, 2, 4, 0, COMPRESSION_NONE), 0, dir.path("a.tif"));
  }
  {
    SCOPED_TRACE("2 x 1 tiles, 21 x 19");
    ycbcr_round_trip(ycbcr_image(21, 19, 2, 1, 0, 16, COMPRESSION_NONE), 0, dir.path("b.tif"));
  }
  {
    SCOPED_TRACE("2 x 2 JPEG");
    ycbcr_round_trip(ycbcr_image(32, 32, 2, 2, 16, 0, COMPRESSION_JPEG), 10, dir.path("c.tif"));
  }
}

TEST(write_encoded, ycbcr_jpeg_from_rgb) {
  // JPEGColorMode RGB: one RGB image, which libtiff converts and subsamples.
  ScratchDir dir;
  ImageSpec t = ycbcr_image(32, 32, 2, 2, 16, 0, COMPRESSION_JPEG);
  t.jpegColorMode = JPEGCOLORMODE_RGB;
  const auto rgb = [](std::size_t y, std::size_t x, std::size_t k) { return std::uint8_t(40 + y * 2 + x * 3 + k * 30); };
  {
    ModuleFile file(dir.path("rgb.tif"));
    set_image_tags(file.tif(), t);
    for (std::size_t s = 0; s < 2; ++s) {
      const auto result = file.write(false, Array::scalar(static_cast<double>(s)),
                                     {host_array<std::uint8_t>(zvUINT8_CLASS, {16, 32, 3}, [&](auto r, auto c, auto k) {
                                       return rgb(s * 16 + r, c, k);
                                     })});
      ASSERT_TRUE(result.ok()) << outcome(result);
    }
  }
  TiffHandle in(dir.path("rgb.tif"), "r");
  std::vector<std::uint32_t> raster(32 * 32);
  ASSERT_TRUE(TIFFReadRGBAImageOriented(in, 32, 32, raster.data(), ORIENTATION_TOPLEFT, 0));
  int worst = 0;
  for (std::size_t y = 0; y < 32; ++y)
    for (std::size_t x = 0; x < 32; ++x)
      for (std::size_t k = 0; k < 3; ++k)
        worst = std::max(worst, std::abs(int(raster[y * 32 + x] >> (8 * k) & 0xFF) - rgb(y, x, k)));
  EXPECT_LE(worst, 6);
}

namespace {

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
