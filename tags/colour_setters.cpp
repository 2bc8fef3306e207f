// Setters of the tables and ranges tied to the colour model or the sample
// type. Each converts the host value into the exact arrays libtiff copies
// from, after every check has passed.

#include "core/convert.h"
#include "core/errors.h"
#include "tags/tag_checks.h"
#include "tags/tag_forms.h"
#include "tags/tag_read.h"

#include <tiffio.h>

#include <cmath>
#include <string>
#include <vector>

namespace tiffgate::detail {

namespace {

/// PrimaryChromaticities and ReferenceBlackWhite need an RGB-like model.
std::uint16_t colour_photometric(const TagWrite& w) {
  const std::uint16_t photometric = photometric_before_write(w);
  if (photometric != PHOTOMETRIC_RGB && photometric != PHOTOMETRIC_PALETTE && photometric != PHOTOMETRIC_YCBCR)
    raise(Tiff::badTagUsedWithPhotometric(w.name, "RGB, YCbCr, Palette"));
  return photometric;
}

/// The first element of a one-element double array converted to T, widened back.
template <class T>
double sample_value(const zvArray* value, const char* name) {
  return static_cast<double>(tagArrayToVector<T>(value, name).front());
}
using SampleConverter = double (*)(const zvArray*, const char*);

/// By SampleFormat (unsigned, signed, IEEE) and BitsPerSample (8, 16, 32, 64);
/// null marks a combination that is refused.
constexpr SampleConverter kSampleConverters[3][4] = {
    {sample_value<std::uint8_t>, sample_value<std::uint16_t>, sample_value<std::uint32_t>, nullptr},
    {sample_value<std::int8_t>, sample_value<std::int16_t>, sample_value<std::int32_t>, nullptr},
    {nullptr, nullptr, sample_value<float>, sample_value<double>},
};

}  // namespace

int set_ink_names(const TagWrite& w) {
  if (zvGetClassID(w.value) != zvCELL_CLASS) raise(Tiff::notCellString(w.name));
  const std::uint16_t inks = u16_defaulted(w.tif, TIFFTAG_NUMBEROFINKS);
  const std::size_t names = zvGetNumberOfElements(w.value);
  if (names != inks) raise(Tiff::badNumberOfInkNames(inks));
  // libtiff takes all names as one buffer of NUL-terminated texts.
  std::string buffer;
  for (std::size_t i = 0; i < names; ++i) {
    const zvArray* name = zvGetCell(w.value, i);
    if (name == nullptr || zvGetClassID(name) != zvCHAR_CLASS) raise(Tiff::notCellString(w.name));
    buffer += zvArrayToNarrow(name);
    buffer += '\0';
  }
  return TIFFSetField(w.tif, w.tag, count_as<std::uint16_t>(buffer.size()), buffer.c_str());
}

int set_transfer_function(const TagWrite& w) {
  const std::uint16_t photometric = photometric_before_write(w);
  if (photometric > PHOTOMETRIC_PALETTE && photometric != PHOTOMETRIC_YCBCR)
    raise(Tiff::badTagUsedWithPhotometric(w.name, "MinIsWhite, MinIsBlack, RGB, Palette, YCbCr"));
  const std::uint16_t bits = u16_defaulted(w.tif, TIFFTAG_BITSPERSAMPLE);
  const std::uint16_t samples = u16_defaulted(w.tif, TIFFTAG_SAMPLESPERPIXEL);
  const std::uint32_t n = table_entries(bits);
  const std::size_t ndims = zvGetNumberOfDimensions(w.value);
  const std::size_t* dims = zvGetDimensions(w.value);
  const std::size_t rows = ndims > 0 ? dims[0] : 0;
  const std::size_t columns = ndims > 1 ? dims[1] : 1;
  const std::size_t count = zvGetNumberOfElements(w.value);
  if (ndims > 2) raise(Tiff::badTransferFunctionSize(bits, samples, n, samples));
  if (samples == 1) {
    if ((columns > 1 && rows >= 2) || count != n) raise(Tiff::badTransferFunctionSize(bits, 1, n, 1));
    const std::vector<std::uint16_t> table = tagArrayToVector<std::uint16_t>(w.value, w.name);
    return TIFFSetField(w.tif, w.tag, table.data());
  }
  if (samples == 3) {
    if (columns != 3 || count != std::size_t{3} * n) raise(Tiff::badTransferFunctionSize(bits, 3, n, 3));
    // Column-major: each column is one contiguous table.
    const std::vector<std::uint16_t> tables = tagArrayToVector<std::uint16_t>(w.value, w.name);
    return TIFFSetField(w.tif, w.tag, tables.data(), tables.data() + n, tables.data() + 2 * std::size_t{n});
  }
  raise(Tiff::badTransferFunctionSppCombination(samples));
}

int set_white_point(const TagWrite& w) {
  // ITULab is accepted although the message's list does not name it.
  switch (photometric_before_write(w)) {
    case PHOTOMETRIC_RGB: case PHOTOMETRIC_PALETTE: case PHOTOMETRIC_YCBCR:
    case PHOTOMETRIC_CIELAB: case PHOTOMETRIC_ICCLAB: case PHOTOMETRIC_ITULAB:
      break;
    default:
      raise(Tiff::badTagUsedWithPhotometric(w.name, "RGB, YCbCr, Palette, CIELab, ICCLab"));
  }
  return write_floats(w);
}

int set_primary_chromaticities(const TagWrite& w) {
  colour_photometric(w);
  return write_floats(w);
}

int set_reference_black_white(const TagWrite& w) {
  // Palette passes the shared check and is refused here with the narrower list.
  const std::uint16_t photometric = colour_photometric(w);
  if (photometric != PHOTOMETRIC_RGB && photometric != PHOTOMETRIC_YCBCR)
    raise(Tiff::badTagUsedWithPhotometric(w.name, "RGB, YCbCr"));
  return write_floats(w);
}

int set_color_map(const TagWrite& w) {
  const std::uint16_t bits = u16_before_write(w.tif, TIFFTAG_BITSPERSAMPLE, w.name);
  // 2^bits rows. From 63 bits on no host matrix has that many; the count
  // then saturates so that the message still shows a number.
  const std::uint64_t n = bits < 63 ? std::uint64_t{1} << bits : std::uint64_t{INT64_MAX};
  const auto refuse = [&] { raise(Tiff::badColorMap(static_cast<Int>(n), bits)); };
  if (zvGetClassID(w.value) != zvDOUBLE_CLASS || zvIsEmpty(w.value)) refuse();
  const std::size_t* dims = zvGetDimensions(w.value);
  if (zvGetNumberOfDimensions(w.value) != 2 || dims[0] != n || dims[1] != 3) refuse();
  const auto* data = static_cast<const double*>(zvGetData(w.value));
  const std::size_t count = zvGetNumberOfElements(w.value);
  // Written so that NaN, which lies in no range, is refused too.
  for (std::size_t i = 0; i < count; ++i)
    if (!(data[i] >= 0.0 && data[i] <= 1.0)) raise(Tiff::colorMapValuesNotNormalized());
  // Column-major: red, green and blue are the three columns, one after another.
  std::vector<std::uint16_t> tables(count);
  for (std::size_t i = 0; i < count; ++i) tables[i] = static_cast<std::uint16_t>(std::floor(65535.0 * data[i] + 0.5));
  return TIFFSetField(w.tif, w.tag, tables.data(), tables.data() + n, tables.data() + 2 * n);
}

int set_sample_min_max(const TagWrite& w) {
  if (zvGetNumberOfElements(w.value) != 1) raise(Tiff::tagValueNotDoublePrecisionScalar(w.name));
  const std::uint16_t format = u16_before_write(w.tif, TIFFTAG_SAMPLEFORMAT, w.name);
  const std::uint16_t bits = u16_before_write(w.tif, TIFFTAG_BITSPERSAMPLE, w.name);
  // A sample format other than the three below ignores the value and writes 0.
  double value = 0.0;
  if (bits == 1) {
    value = tagArrayToVector<double>(w.value, w.name).front();
    if (value != 0.0 && value != 1.0) raise(Tiff::badSMinMaxValueForBiLevelImage(w.name));
  } else if (format >= SAMPLEFORMAT_UINT && format <= SAMPLEFORMAT_IEEEFP) {
    const int column = bits == 8 ? 0 : bits == 16 ? 1 : bits == 32 ? 2 : bits == 64 ? 3 : -1;
    const SampleConverter convert = column < 0 ? nullptr : kSampleConverters[format - 1][column];
    if (convert == nullptr) raise(Tiff::badSampleFormatBitsPerSampleCombination(format, bits));
    value = convert(w.value, w.name);
  }
  // The dispatcher does not examine this answer: a refusal passes silently.
  return TIFFSetField(w.tif, w.tag, value);
}

}  // namespace tiffgate::detail
