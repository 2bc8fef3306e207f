// "setField"(id, tag, value): writes one tag of the current directory. The
// row of each settable tag in the tag table says how its host value becomes
// the arguments of TIFFSetField: a value shape below, or, for the
// image-structure and colour tags, a setter that first checks the value
// against the tags already set.

#include "core/convert.h"
#include "core/errors.h"
#include "tags/commands.h"
#include "tags/tag_checks.h"
#include "tags/tag_forms.h"
#include "tags/tag_table.h"
#include "tags/tag_read.h"

#include <tiffio.h>

#include <fcntl.h>  // O_RDONLY

#include <string>
#include <vector>

namespace tiffgate {

namespace detail {
namespace {

std::string text_value(const TagWrite& w) {
  if (zvGetClassID(w.value) != zvCHAR_CLASS) raise(Tiff::argumentWasNotChar(w.name));
  return zvArrayToNarrow(w.value);
}

/// Values passed with their count. libtiff hands these tags back with a
/// 16-bit count (the GeoTIFF tags are registered so too), so a longer value
/// would come back cut short: it is refused instead.
template <class T>
int set_counted(const TagWrite& w, const std::vector<T>& values) {
  return TIFFSetField(w.tif, w.tag, count_as<std::uint16_t>(values.size()), values.data());
}

/// An M x count matrix, passed row after row with its element count.
template <class T>
int write_matrix(const TagWrite& w) {
  return set_counted(w, tag2DArrayToVector<T>(w.value, w.count, w.name));
}

}  // namespace

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

int write_counted16(const TagWrite& w) {
  return set_counted(w, tagArrayToVector<std::uint16_t>(w.value, w.name));
}

/// Doubles with their count; count 0 in the row accepts any number of them.
int write_doubles(const TagWrite& w) {
  const std::vector<double> values = tagArrayToVector<double>(w.value, w.name);
  if (w.count != 0 && values.size() != w.count) raise(Tiff::badTagValueCount(w.text, w.count));
  return set_counted(w, values);
}

int write_double_records(const TagWrite& w) { return write_matrix<double>(w); }
int write_u16_records(const TagWrite& w) { return write_matrix<std::uint16_t>(w); }

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

int write_unsupported(const TagWrite& w) { raise(Tiff::unsupportedTag(w.name, w.tag)); }

int write_floats(const TagWrite& w) {
  const std::vector<float> values = tagArrayToVector<float>(w.value, w.name);
  if (values.size() != w.count) raise(Tiff::badTagValueCount(w.text, w.count));
  return TIFFSetField(w.tif, w.tag, values.data());
}

}  // namespace detail

void handle_set_field(zvArray*[], int, const zvArray* operands[], TIFF* tif) {
  using namespace detail;
  const std::uint32_t tag = indexToUInt32(operands[1]);
  const TagRow* found = find_tag(tag);
  const TagRow* row = found != nullptr && found->write != nullptr ? found : nullptr;
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
