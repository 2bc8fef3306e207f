// Setters of the tags that decide how image data is laid out and coded.
// Each checks the value against the tags already set, chiefly
// PhotometricInterpretation, and writes nothing until every check passed.

#include "core/convert.h"
#include "core/errors.h"
#include "tags/layout.h"
#include "tags/tag_checks.h"
#include "tags/tag_table.h"
#include "tags/tag_read.h"

#include <tiffio.h>

namespace tiffgate::detail {

namespace {

/// ColorMap or TransferFunction is set: tables that libtiff sized by the
/// BitsPerSample of the moment and never resizes.
bool has_depth_sized_tables(TIFF* tif) {
  std::uint16_t* tables[3] = {};
  return TIFFGetField(tif, TIFFTAG_COLORMAP, &tables[0], &tables[1], &tables[2]) ||
         TIFFGetField(tif, TIFFTAG_TRANSFERFUNCTION, &tables[0], &tables[1], &tables[2]);
}

/// A new depth would leave the colour map or transfer curves at the old
/// size, and every later read of them (getField's, and libtiff's own when
/// it writes the directory) would run past their end. Every tag that sets
/// BitsPerSample, itself or through libtiff, refuses such a depth.
bool strands_depth_sized_tables(TIFF* tif, std::uint16_t bits) {
  return bits != u16_defaulted(tif, TIFFTAG_BITSPERSAMPLE) && has_depth_sized_tables(tif);
}

}  // namespace

std::uint16_t u16_before_write(TIFF* tif, std::uint32_t tag, const char* writing) {
  std::uint16_t value = 0;
  if (!TIFFGetField(tif, tag, &value)) raise(Tiff::tagRetrievalBeforeWriteFailed(tagName(tag), writing));
  return value;
}

// Named by the row's text: "Thresholding" for Threshholding.
std::uint16_t photometric_before_write(const TagWrite& w) {
  return u16_before_write(w.tif, TIFFTAG_PHOTOMETRIC, w.text);
}

void check_separated(TIFF* tif, const char* name) {
  if (u16_before_write(tif, TIFFTAG_PHOTOMETRIC, name) != PHOTOMETRIC_SEPARATED)
    raise(Tiff::photometricInterpretationNotSeparated(name));
}

// Set first, so any code is accepted: the other setters check against it.
int set_photometric(const TagWrite& w) {
  return TIFFSetField(w.tif, w.tag, tagScalarToUInt16(w.value, w.name));
}

int set_samples_per_pixel(const TagWrite& w) {
  // For LogL and LogLuv the SGILogDataFmt setter chooses SamplesPerPixel.
  if (is_log_luv(photometric_before_write(w))) raise(Tiff::doNotSetForLogLuv(w.name));
  const std::uint16_t bits = u16_before_write(w.tif, TIFFTAG_BITSPERSAMPLE, w.name);
  const std::uint16_t samples = tagScalarToUInt16(w.value, w.name);
  if (bits == 1 && samples != 1) raise(Tiff::badSamplesPerPixelBitsPerSampleCombination());
  return TIFFSetField(w.tif, w.tag, samples);
}

int set_sample_format(const TagWrite& w) {
  const std::uint16_t format = tagScalarToUInt16(w.value, w.name);
  const std::uint16_t photometric = photometric_before_write(w);
  if (is_log_luv(photometric)) raise(Tiff::doNotSetForLogLuv(w.name));
  if (format == SAMPLEFORMAT_INT) {
    if (photometric > PHOTOMETRIC_MINISBLACK) raise(Tiff::badValue());
    if (u16_before_write(w.tif, TIFFTAG_BITSPERSAMPLE, w.name) == 1) raise(Tiff::badSampleFormatfor1Bps());
  } else if (format >= SAMPLEFORMAT_VOID && format <= SAMPLEFORMAT_COMPLEXIEEEFP) {
    raise(Tiff::sampleFormatValueNotSupported());
  }
  return TIFFSetField(w.tif, w.tag, format);
}

int set_compression(const TagWrite& w) {
  const std::uint16_t scheme = tagScalarToUInt16(w.value, w.name);
  // Only read so that PhotometricInterpretation is always set first.
  photometric_before_write(w);
  switch (scheme) {
    case COMPRESSION_NONE: case COMPRESSION_LZW: case COMPRESSION_JPEG: case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_PACKBITS: case COMPRESSION_DEFLATE: case COMPRESSION_SGILOG: case COMPRESSION_SGILOG24:
      break;
    case COMPRESSION_CCITTFAX3: case COMPRESSION_CCITTFAX4:
      if (u16_defaulted(w.tif, TIFFTAG_BITSPERSAMPLE) != 1) raise(Tiff::badBitsPerSampleCompressionCombination());
      break;
    case COMPRESSION_CCITTRLE: case COMPRESSION_CCITTRLEW:
      raise(Tiff::ccittNotSupportedForCreating());
    default:
      raise(Tiff::unsupportedCompressionScheme(scheme));
  }
  return TIFFSetField(w.tif, w.tag, scheme);
}

// The messages of this tag say "Thresholding" (w.text), the name table
// "Threshholding".
int set_threshholding(const TagWrite& w) {
  const std::uint16_t value = tagScalarToUInt16(w.value, w.name);
  if (value < THRESHHOLD_BILEVEL || value > THRESHHOLD_ERRORDIFFUSE) raise(Tiff::badThresholdingValue(value));
  if (photometric_before_write(w) > PHOTOMETRIC_MINISBLACK)
    raise(Tiff::badTagUsedWithPhotometric(w.text, "MinIsWhite, MinIsBlack"));
  return TIFFSetField(w.tif, w.tag, value);
}

int set_bits_per_sample(const TagWrite& w) {
  const std::uint16_t bits = tagScalarToUInt16(w.value, w.name);
  if (bits != 1 && bits != 8 && bits != 16 && bits != 32 && bits != 64) raise(Tiff::badBitsPerSampleValue());
  const std::uint16_t photometric = photometric_before_write(w);
  const bool palette_or_lab = photometric == PHOTOMETRIC_PALETTE || photometric == PHOTOMETRIC_CIELAB ||
                              photometric == PHOTOMETRIC_ICCLAB || photometric == PHOTOMETRIC_ITULAB;
  // A 1-bit palette image is refused on purpose.
  if (palette_or_lab && bits != 8 && bits != 16) raise(Tiff::badPhotometricLabPaletteBitsPerSampleCombination());
  if (is_log_luv(photometric)) raise(Tiff::doNotSetForLogLuv(w.name));
  // The value itself is what cannot be taken any more, whatever the
  // photometric interpretation: hence badBitsPerSampleValue.
  if (strands_depth_sized_tables(w.tif, bits)) raise(Tiff::badBitsPerSampleValue());
  return TIFFSetField(w.tif, w.tag, bits);
}

int set_planar_configuration(const TagWrite& w) {
  const std::uint16_t planar = tagScalarToUInt16(w.value, w.name);
  if (planar != PLANARCONFIG_CONTIG && planar != PLANARCONFIG_SEPARATE)
    raise(Tiff::badPlanarConfigurationValue(planar));
  if (is_log_luv(photometric_before_write(w)) && planar == PLANARCONFIG_SEPARATE)
    raise(Tiff::badPhotometricPlanarConfigurationCombination());
  return TIFFSetField(w.tif, w.tag, planar);
}

// The dispatcher has made the separated check already.
int set_number_of_inks(const TagWrite& w) {
  const std::uint16_t inks = tagScalarToUInt16(w.value, w.name);
  const std::uint16_t samples = u16_before_write(w.tif, TIFFTAG_SAMPLESPERPIXEL, w.name);
  std::uint16_t extra = 0;
  std::uint16_t* kinds = nullptr;
  if (!TIFFGetField(w.tif, TIFFTAG_EXTRASAMPLES, &extra, &kinds)) extra = 0;
  // Signed, so that more extra samples than samples cannot wrap around.
  if (std::int32_t{samples} - std::int32_t{extra} > inks || inks > samples)
    raise(Tiff::invalidNumberOfInksValue(inks, samples, extra));
  return TIFFSetField(w.tif, w.tag, inks);
}

// The format can be chosen once per directory; it also decides
// SamplesPerPixel, which is why that tag is refused for LogL and LogLuv.
int set_sgi_log_data_fmt(const TagWrite& w) {
  const std::uint16_t photometric = photometric_before_write(w);
  const std::uint16_t compression = u16_defaulted(w.tif, TIFFTAG_COMPRESSION);
  if (compression != COMPRESSION_SGILOG && compression != COMPRESSION_SGILOG24)
    raise(Tiff::badCompressionForSgiLogDataFmt());
  int current = 0;
  if (!TIFFGetField(w.tif, TIFFTAG_SGILOGDATAFMT, &current)) raise(Tiff::tagRetrievalFailed(w.name));
  // The codec starts with -1 ("unknown"), which reads as above 3 here.
  if (static_cast<std::uint32_t>(current) <= SGILOGDATAFMT_8BIT) raise(Tiff::fmtAlreadySet());
  const std::uint32_t format = tagScalarToUInt32(w.value, w.name);
  if (format != SGILOGDATAFMT_FLOAT && format != SGILOGDATAFMT_8BIT) raise(Tiff::invalidSGILogDataFmtValue(format));
  // libtiff's LogLuv codec sets BitsPerSample with the format: 32 for float
  // samples, 8 for 8-bit ones. As for BitsPerSample itself, the value is
  // what cannot be taken, and it is refused before SamplesPerPixel changes.
  const std::uint16_t bits = format == SGILOGDATAFMT_FLOAT ? 32 : 8;
  if (strands_depth_sized_tables(w.tif, bits)) raise(Tiff::invalidSGILogDataFmtValue(format));
  const std::uint16_t samples = photometric == PHOTOMETRIC_LOGL ? 1 : 3;
  // The one place where a failure can leave a tag changed: SamplesPerPixel.
  if (!TIFFSetField(w.tif, TIFFTAG_SAMPLESPERPIXEL, samples)) raise(Tiff::unableToWriteTag("SamplesPerPixel"));
  return TIFFSetField(w.tif, w.tag, format);
}

}  // namespace tiffgate::detail
