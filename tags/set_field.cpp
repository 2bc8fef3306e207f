// "setField"(id, tag, value): writes one tag of the current directory. One
// table row per settable tag says how its host value becomes the arguments
// of TIFFSetField; the image-structure and colour tags have setters of
// their own that first check the value against the tags already set.

#include "core/convert.h"
#include "core/errors.h"
#include "tags/commands.h"
#include "tags/tag_checks.h"
#include "tags/tag_names.h"
#include "tags/tag_read.h"

#include <tiffio.h>

#include <fcntl.h>  // O_RDONLY

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace tiffgate {

namespace detail {

namespace {

// --- value shapes ---

int write_u16(const TagWrite& w) { return TIFFSetField(w.tif, w.tag, tagScalarToUInt16(w.value, w.name)); }

int write_u32(const TagWrite& w) { return TIFFSetField(w.tif, w.tag, tagScalarToUInt32(w.value, w.name)); }

int write_dimension(const TagWrite& w) {
  const std::uint32_t size = tagScalarToUInt32(w.value, w.name);
  if (size == 0) raise(Tiff::zeroLengthDimension(w.name));
  return TIFFSetField(w.tif, w.tag, size);
}

// 0 is a multiple of 16, so it reaches the zero test.
int write_tile_dimension(const TagWrite& w) {
  const std::uint32_t size = tagScalarToUInt32(w.value, w.name);
  if (size % 16 != 0) raise(Tiff::badTileDimension(w.name));
  if (size == 0) raise(Tiff::zeroLengthDimension(w.name));
  return TIFFSetField(w.tif, w.tag, size);
}

/// One float, handed to libtiff widened to double as its varargs expect.
int write_float1(const TagWrite& w) {
  const std::vector<float> values = tagArrayToVector<float>(w.value, w.name);
  if (values.size() != 1) raise(Tiff::tagValueNotDoublePrecisionScalar(w.name));
  return TIFFSetField(w.tif, w.tag, static_cast<double>(values.front()));
}

int write_double1(const TagWrite& w) {
  const std::vector<double> values = tagArrayToVector<double>(w.value, w.name);
  if (values.size() != 1) raise(Tiff::tagValueNotDoublePrecisionScalar(w.name));
  return TIFFSetField(w.tif, w.tag, values.front());
}

// libtiff takes these uint16[2] tags as two separate arguments.
int write_pair16(const TagWrite& w) {
  const std::vector<std::uint16_t> values = tagArrayToVector<std::uint16_t>(w.value, w.name);
  if (values.size() != 2) raise(Tiff::badTagValueCount(w.text, 2));
  return TIFFSetField(w.tif, w.tag, values[0], values[1]);
}

std::string text_value(const TagWrite& w) {
  if (zvGetClassID(w.value) != zvCHAR_CLASS) raise(Tiff::argumentWasNotChar(w.name));
  return zvArrayToNarrow(w.value);
}

int write_text(const TagWrite& w) { return TIFFSetField(w.tif, w.tag, text_value(w).c_str()); }

// Always "YYYY:MM:DD HH:MM:SS" long: shorter texts are padded with spaces.
// Lengths are the host's characters, not the bytes of their UTF-8 form.
int write_date_time(const TagWrite& w) {
  std::string text = text_value(w);
  const std::size_t characters = zvArrayToUtf16(w.value).size();
  if (characters > w.count) raise(Tiff::dateTimeTooLong());
  text.append(w.count - characters, ' ');
  return TIFFSetField(w.tif, w.tag, text.c_str());
}

/// Values passed with their count. libtiff hands these tags back with a
/// 16-bit count (the GeoTIFF tags are registered so too), so a longer value
/// would come back cut short: it is refused instead.
template <class T>
int set_counted(const TagWrite& w, const std::vector<T>& values) {
  return TIFFSetField(w.tif, w.tag, count_as<std::uint16_t>(values.size()), values.data());
}

int write_counted16(const TagWrite& w) {
  return set_counted(w, tagArrayToVector<std::uint16_t>(w.value, w.name));
}

/// Doubles with their count; count 0 in the row accepts any number of them.
int write_doubles(const TagWrite& w) {
  const std::vector<double> values = tagArrayToVector<double>(w.value, w.name);
  if (w.count != 0 && values.size() != w.count) raise(Tiff::badTagValueCount(w.text, w.count));
  return set_counted(w, values);
}

/// An M x count matrix, passed row after row with its element count.
template <class T>
int write_matrix(const TagWrite& w) {
  return set_counted(w, tag2DArrayToVector<T>(w.value, w.count, w.name));
}

/// Uninterpreted bytes, passed in place; count is the minimum length.
int write_bytes(const TagWrite& w) {
  if (zvGetClassID(w.value) != zvUINT8_CLASS) raise(Tiff::badUninterpretedTagType(w.name));
  const auto size = count_as<std::uint32_t>(zvGetNumberOfElements(w.value));
  if (size < w.count) raise(Tiff::lengthTooShort(w.text, w.count));
  return TIFFSetField(w.tif, w.tag, size, zvGetData(w.value));
}

// The packet is passed with its length and without the terminator. Its
// length is counted in bytes of the narrow text: the same as the host's
// character count for ASCII, and nothing is cut off otherwise.
int write_xml_packet(const TagWrite& w) {
  if (zvGetClassID(w.value) != zvCHAR_CLASS) raise(Tiff::badXmlPacketTagType());
  if (zvGetNumberOfElements(w.value) < w.count) raise(Tiff::lengthTooShort(w.text, w.count));
  const std::string packet = zvArrayToNarrow(w.value);
  return TIFFSetField(w.tif, w.tag, count_as<std::uint32_t>(packet.size()), packet.c_str());
}

// Reserves that many sub-directories; libtiff fills in their offsets as the
// directories that follow are written. An empty list would be written as
// an entry that libtiff cannot read back.
int write_sub_ifds(const TagWrite& w) {
  const std::uint16_t count = tagScalarToUInt16(w.value, w.name);
  if (count == 0) raise(Tiff::zeroLengthDimension(w.name));
  const std::vector<std::uint64_t> offsets(count, 0);
  return TIFFSetField(w.tif, w.tag, count, offsets.data());
}

int refuse_unsupported(const TagWrite& w) { raise(Tiff::unsupportedTag(w.name, w.tag)); }

// --- the table ---

enum RowFlags : unsigned {
  kSeparated = 1,     ///< PhotometricInterpretation must be Separated first
  kWhileReading = 2,  ///< a codec setting, allowed on a file opened for reading
  kUnchecked = 4,     ///< libtiff's answer is not examined
};

struct SetFieldRow {
  std::uint32_t tag;
  TagWriter write;
  std::uint32_t count = 0;       ///< expected count, minimum length or matrix width
  const char* text = nullptr;    ///< error text where it differs from the tag's name
  unsigned flags = 0;
};

// In ascending tag order. Tags of the name table missing here (255, 264,
// 265, 273, 279, 288-291, 324, 325, 34665 ...) are not settable.
const SetFieldRow kSetFieldTable[] = {
    {254, write_u32},
    {256, write_dimension},
    {257, write_dimension},
    {258, set_bits_per_sample},
    {259, set_compression},
    {262, set_photometric},
    {263, set_threshholding, 0, "Thresholding"},
    {266, write_u16},
    {269, write_text},
    {270, write_text},
    {271, write_text},
    {272, write_text},
    {274, write_u16},
    {277, set_samples_per_pixel},
    {278, write_dimension},
    {280, write_u16},
    {281, write_u16},
    {282, write_float1},
    {283, write_float1},
    {284, set_planar_configuration},
    {285, write_text},
    {286, write_float1},
    {287, write_float1},
    {292, write_u32},
    {293, write_u32},
    {296, write_u16},
    {297, write_pair16},
    {301, set_transfer_function},
    {305, write_text},
    {306, write_date_time, 19},
    {315, write_text},
    {316, write_text},
    {317, write_u16},
    {318, set_white_point, 2},
    {319, set_primary_chromaticities, 6},
    {320, set_color_map},
    {321, write_pair16},
    {322, write_tile_dimension},
    {323, write_tile_dimension},
    {330, write_sub_ifds},
    {332, write_u16, 0, nullptr, kSeparated},
    {333, set_ink_names, 0, nullptr, kSeparated},
    {334, set_number_of_inks, 0, nullptr, kSeparated},
    {336, write_pair16, 0, "DotRange", kSeparated},
    {337, write_text, 0, nullptr, kSeparated},
    {338, write_counted16},
    {339, set_sample_format},
    {340, set_sample_min_max, 0, nullptr, kUnchecked},
    {341, set_sample_min_max, 0, nullptr, kUnchecked},
    {529, write_floats, 3},
    {530, write_pair16},
    {531, write_u16},
    {532, set_reference_black_white, 6},
    {700, write_xml_packet, 5, "XMP"},
    {32995, refuse_unsupported},
    {32996, refuse_unsupported},
    {32997, refuse_unsupported},
    {32998, refuse_unsupported},
    {33432, write_text},
    {33550, write_doubles, 3, "GeoPixelScale"},
    {33723, write_bytes},
    {33922, write_matrix<double>, 6},
    {34264, write_doubles, 16, "ModelTransformation"},
    {34377, write_bytes, 7, "Photoshop"},
    {34675, write_bytes},
    {34735, write_matrix<std::uint16_t>, 4},
    {34736, write_doubles},
    {34737, write_text},
    {37439, write_double1},
    {65537, write_u32, 0, nullptr, kWhileReading},
    {65538, write_u32, 0, nullptr, kWhileReading},
    {65557, write_u32, 0, nullptr, kWhileReading},
    {65560, set_sgi_log_data_fmt, 0, nullptr, kWhileReading},
};

const SetFieldRow* find_row(std::uint32_t tag) {
  const auto* row = std::lower_bound(std::begin(kSetFieldTable), std::end(kSetFieldTable), tag,
                                     [](const SetFieldRow& r, std::uint32_t t) { return r.tag < t; });
  return row != std::end(kSetFieldTable) && row->tag == tag ? row : nullptr;
}

}  // namespace

int write_floats(const TagWrite& w) {
  const std::vector<float> values = tagArrayToVector<float>(w.value, w.name);
  if (values.size() != w.count) raise(Tiff::badTagValueCount(w.text, w.count));
  return TIFFSetField(w.tif, w.tag, values.data());
}

}  // namespace detail

void handle_set_field(zvArray*[], int, const zvArray* operands[], TIFF* tif) {
  using namespace detail;
  const std::uint32_t tag = indexToUInt32(operands[1]);
  const SetFieldRow* row = find_row(tag);
  // The mode check runs before the tag's name is looked up, although the
  // name is meant to come first: a file opened for reading must refuse a tag
  // number that no table knows with cannotWriteInReadMode, and only the codec
  // settings get past this check.
  if (TIFFGetMode(tif) == O_RDONLY && (row == nullptr || !(row->flags & kWhileReading)))
    raise(Tiff::cannotWriteInReadMode());
  const std::string name = tagName(tag);
  if (row == nullptr) raise(Tiff::unrecognizedTagNumber(tag));
  // libtiff would take the value as a count and a pointer to copy from.
  // The tag cannot be written in this directory whatever the value, which
  // is unableToWriteTag: the writing side of getField's unableToReadTag.
  if (is_anonymous_field(tif, tag)) raise(Tiff::unableToWriteTag(name));
  if (row->flags & kSeparated) check_separated(tif, name.c_str());
  const TagWrite w{tif, tag, name.c_str(), row->text ? row->text : name.c_str(), row->count, operands[2]};
  if (!row->write(w) && !(row->flags & kUnchecked)) raise(Tiff::unableToWriteTag(name));
}

}  // namespace tiffgate
