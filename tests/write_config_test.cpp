// The checks a write runs against the directory's tags, one case per rule,
// with each kind's exact arguments; each case in a fresh file.

#include "support/write_files.h"

#include <gtest/gtest.h>

#include <optional>

using namespace tiffgate::testing;
using tiffgate::embedded::Array;

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

TEST(write_config, every_rule_in_order) {
  const Array y15 = u8({15, 15});
  const std::vector<Case> cases = {
      // ImageWidth alone makes ImageLength read back as 0.
      {"no length", ImageSpec{0}, {Array::text("anything")}, "imageDimensionsNotSet", {},
       [](TIFF* t) { TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 16), TIFFSetField(t, TIFFTAG_PHOTOMETRIC, 1); }},
      {"tile width alone", gray(), {u8({16, 16})}, "tileDimensionsNotSet", {},
       [](TIFF* t) { TIFFSetField(t, TIFFTAG_TILEWIDTH, 16); }},
      {"two grey images", gray(), {u8({16, 16}), u8({16, 16})}, "wrongNumberOfInputImages", {}},
      {"raw YCbCr as one image", ycbcr(), {u8({16, 16, 3})}, "wrongNumberOfInputImages", {}},
      {"RGB of one sample", with(gray(), [](ImageSpec& t) { t.photometric = PHOTOMETRIC_RGB; }), {u8({16, 16})},
       "badRgbSamplesPerPixelConfiguration", {}},
      {"YCbCr to JPEG from RGB of one sample",
       with(jpeg(ycbcr()), [](ImageSpec& t) { t.samples = 1, t.jpegColorMode = JPEGCOLORMODE_RGB; }),
       {u8({16, 16})}, "badRgbSamplesPerPixelConfiguration", {}},
      {"LogLuv codec not set up", logluv(), {zeros(zvSINGLE_CLASS, {16, 16, 3})}, "luvCodecNotSet", {}},
      {"LogLuv 8-bit", logluv(), {u8({16, 16, 3})}, "eightBitSgiFormatNotAllowedWhenWriting", {},
       [](TIFF* t) { TIFFSetField(t, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_8BIT); }},
      {"palette 8 from int8", palette(8), {zeros(zvINT8_CLASS, {16, 16})}, "badDatatypeForPaletteImage", {I(8), I(8)}},
      {"palette 16 from int16, signed format", palette(16, SAMPLEFORMAT_INT), {zeros(zvINT16_CLASS, {16, 16})},
       "badDatatypeForPaletteImage", {I(16), I(16)}},
      {"palette of 4 bits", palette(4), {u8({16, 16})}, "badPaletteWriteConfiguration", {}},
      {"palette signed", palette(8, SAMPLEFORMAT_INT), {u8({16, 16})}, "badPaletteWriteConfiguration", {}},
      {"palette without map", palette(8), {u8({16, 16})}, "colorMapShouldbeSet", {}},
      {"palette with map", palette(8), {u8({16, 16})}, nullptr, {}, set_colormap},
      {"12 bits", gray(12), {zeros(zvUINT16_CLASS, {16, 16})}, "unsupportedBitsPerSample", {I(12)}},
      {"1 bit from uint8", gray(1), {u8({16, 16})}, "imageDatatypeNotLogical", {S("uint8")}},
      {"8 bits from double", gray(8), {zeros(zvDOUBLE_CLASS, {16, 16})}, "imageDatatypeNot8bit", {S("double")}},
      {"16 bits from uint8", gray(16), {u8({16, 16})}, "imageDatatypeNot16bit", {S("uint8")}},
      {"32 bits from int16", gray(32), {zeros(zvINT16_CLASS, {16, 16})}, "imageDatatypeNot32bit", {S("int16")}},
      {"64 bits from single", gray(64, SAMPLEFORMAT_IEEEFP), {zeros(zvSINGLE_CLASS, {16, 16})},
       "imageDatatypeNotDouble", {S("single")}},
      {"separate plane as 3-D", rgb(3, 0, PLANARCONFIG_SEPARATE), {u8({16, 16, 2})}, "badPlanarImage", {}},
      {"grey as 3-D", gray(), {u8({16, 16, 2})}, "badContigImageOneSpp", {}},
      {"RGB as a matrix", rgb(3), {u8({16, 16})}, "badContigImageMultipleSpp", {}},
      {"single as unsigned", gray(32), {zeros(zvSINGLE_CLASS, {16, 16})}, "badDatatypeForSampleFormat",
       {S("Uint"), S("logical, uint8, uint16, uint32")}},
      {"uint8 as signed", gray(8, SAMPLEFORMAT_INT), {u8({16, 16})}, "badDatatypeForSampleFormat",
       {S("Int"), S("int8, int16, int32")}},
      {"int32 as float", gray(32, SAMPLEFORMAT_IEEEFP), {zeros(zvINT32_CLASS, {16, 16})},
       "badDatatypeForSampleFormat", {S("IEEEFP"), S("single, double")}},
      {"void samples", gray(8, SAMPLEFORMAT_VOID), {u8({16, 16})}, "badSampleFormat", {}},
      {"YCbCr separate", ycbcr(PLANARCONFIG_SEPARATE), {u8({16, 16}), u8({8, 8}), u8({8, 8})},
       "unsupportedYCbCrConfiguration", {}},
      {"Cb too narrow", ycbcr(), {y15, u8({8, 7}), u8({8, 7})}, "badYCbCrDimensions",
       {I(15), I(15), I(8), I(7), I(8), I(7), I(2), I(2)}},
      {"Cr unlike Cb", ycbcr(), {y15, u8({8, 8}), u8({8, 7})}, "badYCbCrDimensions",
       {I(15), I(15), I(8), I(8), I(8), I(7), I(2), I(2)}},
      {"15 x 15 Y takes 8 x 8 chroma", ycbcr(), {y15, u8({8, 8}), u8({8, 8})}, nullptr, {}},
      {"RGB with an extra sample of 3", rgb(3, 1), {u8({16, 16, 3})}, "badExtraSamples", {S("RGB"), I(3)}},
      {"RGB with alpha", rgb(4, 1), {u8({16, 16, 4})}, nullptr, {}},
      {"palette of 2 samples", palette(8, SAMPLEFORMAT_UINT, 2), {u8({16, 16, 2})}, "badExtraSamples",
       {S("PALETTE"), I(2)}, set_colormap},
      {"Lab with alpha", with(rgb(4, 1), [](ImageSpec& t) { t.photometric = PHOTOMETRIC_CIELAB; }),
       {u8({16, 16, 4})}, "improperUsageOfExtraSamples", {I(1)}},
      {"JPEG of 16 bits", jpeg(gray(16)), {zeros(zvUINT16_CLASS, {16, 16})}, "jpegBitsPerSampleMustBeEight", {}},
      {"JPEG grey with alpha", jpeg(with(gray(), [](ImageSpec& t) { t.samples = 2, t.extraSamples = 1; })),
       {u8({16, 16, 2})}, "jpegCompressionRequiresThreeSamplesPerPixel", {}},
      // RowsPerStrip 16 is not enough: the length must be a multiple too.
      {"JPEG 100 rows", jpeg(with(gray(), [](ImageSpec& t) { t.length = 100, t.rowsPerStrip = 16; })),
       {u8({16, 16})}, "strippedJpegCompressionRequires16", {}},
      // Refused only after the array passed every array check.
      {"one separate sample, 3-D", with(gray(), [](ImageSpec& t) { t.planar = PLANARCONFIG_SEPARATE; }),
       {u8({16, 16, 2})}, "badPlanarImage", {}},
      {"one separate sample", with(gray(), [](ImageSpec& t) { t.planar = PLANARCONFIG_SEPARATE; }),
       {u8({16, 16})}, "badPlanarConfigurationSamplesPerPixelCombination", {}},
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
