#include "imagedata/write_config.h"

#include "core/errors.h"

#include <tiffio.h>

#include <cmath>
#include <cstdint>
#include <initializer_list>

namespace tiffgate {
namespace {

using detail::Int;

/// A set of host classes, one bit per class number.
using ClassSet = std::uint32_t;

constexpr ClassSet set_of(std::initializer_list<zvClassID> classes) {
  ClassSet set = 0;
  for (zvClassID cls : classes) set |= ClassSet{1} << cls;
  return set;
}

constexpr bool in(zvClassID cls, ClassSet set) {
  return cls >= 0 && cls < 32 && ((set >> cls) & 1u) != 0;
}

/// Host classes that can hold samples of one BitsPerSample.
struct BitsRule {
  std::uint16_t bits;
  ClassSet accepted;
  void (*refuse)(const char* className);
};

constexpr BitsRule kBitsRules[] = {
    {1, set_of({zvLOGICAL_CLASS}), [](const char* name) { raise(Tiff::imageDatatypeNotLogical(name)); }},
    {8, set_of({zvINT8_CLASS, zvUINT8_CLASS}), [](const char* name) { raise(Tiff::imageDatatypeNot8bit(name)); }},
    {16, set_of({zvINT16_CLASS, zvUINT16_CLASS}),
     [](const char* name) { raise(Tiff::imageDatatypeNot16bit(name)); }},
    {32, set_of({zvINT32_CLASS, zvUINT32_CLASS, zvSINGLE_CLASS}),
     [](const char* name) { raise(Tiff::imageDatatypeNot32bit(name)); }},
    {64, set_of({zvDOUBLE_CLASS}), [](const char* name) { raise(Tiff::imageDatatypeNotDouble(name)); }},
};

/// Host classes that can hold samples of one SampleFormat; the two texts
/// are the arguments of badDatatypeForSampleFormat.
struct FormatRule {
  std::uint16_t format;
  ClassSet accepted;
  const char* formatName;
  const char* classNames;
};

constexpr FormatRule kFormatRules[] = {
    {SAMPLEFORMAT_UINT, set_of({zvLOGICAL_CLASS, zvUINT8_CLASS, zvUINT16_CLASS, zvUINT32_CLASS}), "Uint",
     "logical, uint8, uint16, uint32"},
    {SAMPLEFORMAT_INT, set_of({zvINT8_CLASS, zvINT16_CLASS, zvINT32_CLASS}), "Int", "int8, int16, int32"},
    {SAMPLEFORMAT_IEEEFP, set_of({zvSINGLE_CLASS, zvDOUBLE_CLASS}), "IEEEFP", "single, double"},
};

/// Photometric interpretations that allow no extra samples at all.
constexpr std::uint16_t kNoExtraSamples[] = {
    PHOTOMETRIC_MASK,   PHOTOMETRIC_YCBCR, PHOTOMETRIC_CIELAB, PHOTOMETRIC_ICCLAB,
    PHOTOMETRIC_ITULAB, PHOTOMETRIC_LOGL,  PHOTOMETRIC_LOGLUV,
};

std::size_t rows_of(const zvArray* a) { return zvGetDimensions(a)[0]; }
std::size_t columns_of(const zvArray* a) { return zvGetDimensions(a)[1]; }

/// Class against BitsPerSample, dimensions against the planar
/// configuration, class against SampleFormat.
void check_array(const ImageLayout& layout, const zvArray* image) {
  const zvClassID cls = zvGetClassID(image);
  const BitsRule* bits = nullptr;
  for (const BitsRule& rule : kBitsRules)
    if (rule.bits == layout.bitsPerSample) bits = &rule;
  if (bits == nullptr) raise(Tiff::unsupportedBitsPerSample(Int{layout.bitsPerSample}));
  if (!in(cls, bits->accepted)) bits->refuse(zvGetClassName(image));

  const std::size_t dimensions = zvGetNumberOfDimensions(image);
  if (layout.planarConfiguration == PLANARCONFIG_SEPARATE) {
    if (dimensions != 2) raise(Tiff::badPlanarImage());
  } else if (layout.planarConfiguration == PLANARCONFIG_CONTIG) {
    if (layout.samplesPerChunk == 1) {
      if (dimensions != 2) raise(Tiff::badContigImageOneSpp());
    } else if (dimensions != 3 && layout.photometric != PHOTOMETRIC_YCBCR) {
      // YCbCr planes come as matrices even though the chunk holds 3 samples.
      raise(Tiff::badContigImageMultipleSpp());
    }
  }

  for (const FormatRule& rule : kFormatRules) {
    if (rule.format != layout.sampleFormat) continue;
    if (!in(cls, rule.accepted)) raise(Tiff::badDatatypeForSampleFormat(rule.formatName, rule.classNames));
    return;
  }
  raise(Tiff::badSampleFormat());
}

void check_ycbcr(const ImageLayout& layout, const zvArray* const images[], std::size_t count) {
  if (!is_raw_ycbcr(layout)) {
    // libtiff converts one RGB image; the number of arrays is not looked at.
    if (layout.samplesPerPixel != 3) raise(Tiff::badRgbSamplesPerPixelConfiguration());
    check_array(layout, images[0]);
    return;
  }
  if (count != 3) raise(Tiff::wrongNumberOfInputImages());
  for (std::size_t i = 0; i < 3; ++i) check_array(layout, images[i]);
  if (layout.planarConfiguration == PLANARCONFIG_SEPARATE) raise(Tiff::unsupportedYCbCrConfiguration());

  const zvArray* y = images[0];
  const zvArray* cb = images[1];
  const zvArray* cr = images[2];
  const std::uint16_t h = layout.ycbcrSubsampling[0];
  const std::uint16_t v = layout.ycbcrSubsampling[1];
  // In floating point, so that a zero factor fails the comparison instead
  // of dividing by zero.
  const double chromaRows = std::ceil(static_cast<double>(rows_of(y)) / v);
  const double chromaColumns = std::ceil(static_cast<double>(columns_of(y)) / h);
  if (static_cast<double>(rows_of(cb)) != chromaRows || static_cast<double>(columns_of(cb)) != chromaColumns ||
      rows_of(cr) != rows_of(cb) || columns_of(cr) != columns_of(cb)) {
    const auto n = [](std::size_t x) { return static_cast<Int>(x); };
    raise(Tiff::badYCbCrDimensions(n(rows_of(y)), n(columns_of(y)), n(rows_of(cb)), n(columns_of(cb)),
                                   n(rows_of(cr)), n(columns_of(cr)), Int{h}, Int{v}));
  }
}

void check_photometric(const ImageLayout& layout, const zvArray* const images[], std::size_t count) {
  if (layout.photometric == PHOTOMETRIC_YCBCR) return check_ycbcr(layout, images, count);
  if (count != 1) raise(Tiff::wrongNumberOfInputImages());
  const zvArray* image = images[0];
  switch (layout.photometric) {
    case PHOTOMETRIC_LOGL:
    case PHOTOMETRIC_LOGLUV: {
      // -1, libtiff's answer while the LogLuv codec is not set up, is
      // caught as a large unsigned value.
      const auto format = static_cast<std::uint32_t>(layout.sgiLogDataFmt);
      if (format == SGILOGDATAFMT_8BIT) raise(Tiff::eightBitSgiFormatNotAllowedWhenWriting());
      if (format > SGILOGDATAFMT_8BIT) raise(Tiff::luvCodecNotSet());
      break;
    }
    case PHOTOMETRIC_RGB:
      if (layout.samplesPerPixel < 3) raise(Tiff::badRgbSamplesPerPixelConfiguration());
      break;
    case PHOTOMETRIC_PALETTE: {
      const zvClassID cls = zvGetClassID(image);
      if (layout.bitsPerSample == 8) {
        if (cls != zvUINT8_CLASS) raise(Tiff::badDatatypeForPaletteImage(8, 8));
      } else if (layout.bitsPerSample == 16) {
        if (cls != zvUINT16_CLASS) raise(Tiff::badDatatypeForPaletteImage(16, 16));
      } else {
        raise(Tiff::badPaletteWriteConfiguration());
      }
      if (layout.sampleFormat != SAMPLEFORMAT_UINT) raise(Tiff::badPaletteWriteConfiguration());
      std::uint16_t* red = nullptr;
      std::uint16_t* green = nullptr;
      std::uint16_t* blue = nullptr;
      if (!TIFFGetField(layout.tif, TIFFTAG_COLORMAP, &red, &green, &blue)) raise(Tiff::colorMapShouldbeSet());
      break;
    }
    default:
      break;
  }
  check_array(layout, image);
}

void check_extra_samples(const ImageLayout& layout) {
  const auto extra = layout.numExtraSamples;
  const auto colour = static_cast<std::int16_t>(layout.samplesPerPixel - extra);
  if (layout.photometric == PHOTOMETRIC_RGB && colour != 3)
    raise(Tiff::badExtraSamples("RGB", Int{layout.samplesPerPixel}));
  if (layout.photometric == PHOTOMETRIC_PALETTE && colour != 1)
    raise(Tiff::badExtraSamples("PALETTE", Int{layout.samplesPerPixel}));
  for (std::uint16_t photometric : kNoExtraSamples)
    if (layout.photometric == photometric && extra != 0) raise(Tiff::improperUsageOfExtraSamples(Int{extra}));
}

void check_jpeg(const ImageLayout& layout) {
  if (layout.bitsPerSample != 8) raise(Tiff::jpegBitsPerSampleMustBeEight());
  if (layout.samplesPerPixel != 1 && layout.samplesPerPixel != 3)
    raise(Tiff::jpegCompressionRequiresThreeSamplesPerPixel());
  const auto multiple_of_16 = [](std::uint32_t x) { return x % 16 == 0; };
  if (layout.isTiled) {
    if (!multiple_of_16(layout.tileWidth) || !multiple_of_16(layout.tileLength))
      raise(Tiff::tiledJpegCompressionRequires16());
  } else if (!multiple_of_16(layout.imageWidth) || !multiple_of_16(layout.imageLength) ||
             !multiple_of_16(layout.rowsPerStrip)) {
    // The image length is held to it too, not only the strip height.
    raise(Tiff::strippedJpegCompressionRequires16());
  }
}

}  // namespace

bool is_raw_ycbcr(const ImageLayout& layout) {
  return layout.photometric == PHOTOMETRIC_YCBCR && layout.jpegColorMode != JPEGCOLORMODE_RGB;
}

void validate_write_configuration(const ImageLayout& layout, const zvArray* const images[], std::size_t count) {
  if (layout.imageWidth == 0 || layout.imageLength == 0) raise(Tiff::imageDimensionsNotSet());
  if (layout.isTiled && (layout.tileWidth == 0 || layout.tileLength == 0)) raise(Tiff::tileDimensionsNotSet());
  check_photometric(layout, images, count);
  check_extra_samples(layout);
  if (layout.compression == COMPRESSION_JPEG) check_jpeg(layout);
  // Last on purpose: the arrays have been checked by now.
  if (layout.samplesPerPixel == 1 && layout.planarConfiguration == PLANARCONFIG_SEPARATE)
    raise(Tiff::badPlanarConfigurationSamplesPerPixelCombination());
}

}  // namespace tiffgate
