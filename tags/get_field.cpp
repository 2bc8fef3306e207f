// "getField": one tag of the current directory as one host value. Each tag
// the command reads names its reader in the tag table; every reader knows
// the exact argument types libtiff hands that tag back in.

#include "core/convert.h"
#include "core/errors.h"
#include "tags/commands.h"
#include "core/memory_limit.h"
#include "tags/tag_forms.h"
#include "tags/tag_table.h"
#include "tags/tag_read.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdint>
#include <string>

// The InkNames reader relies on libtiff keeping NumberOfInks equal to the
// number of names in the InkNames buffer, which it does from 4.5 on; the
// build asks for that version (find_package(TIFF 4.5)).

namespace tiffgate {
namespace {
/// A rows x columns host array of class cls whose element (r, c) is value(r, c).
template <class Out, class Value>
zvArray* make_matrix(std::size_t rows, std::size_t columns, zvClassID cls, Value value) {
  const std::size_t dims[2] = {rows, columns};
  zvArray* array = zvCreateUninitNumericArray(2, dims, cls);
  auto* out = static_cast<Out*>(zvGetData(array));
  for (std::size_t c = 0; c < columns; ++c)
    for (std::size_t r = 0; r < rows; ++r) out[c * rows + r] = static_cast<Out>(value(r, c));
  return array;
}

/// A 1 x n row of class cls holding values[0 .. n).
template <class Out, class T>
zvArray* make_row(const T* values, std::size_t n, zvClassID cls = zvDOUBLE_CLASS) {
  return make_matrix<Out>(1, n, cls, [values](std::size_t, std::size_t c) { return values[c]; });
}

/// libtiff reported success but handed no data for a value that has some.
/// unableToReadTag reports this and the unreadable fields: the same kind
/// re-tested on a read that passed its guard could never fire.
void require_data(const void* data, std::size_t count, std::uint32_t tag) {
  if (count > 0 && data == nullptr) raise(Tiff::unableToReadTag(static_cast<detail::Int>(tag)));
}

template <class T>
zvArray* read_scalar(TIFF* tif, const TagRef& tag) {
  T value{};
  get_tag_checked(tif, tag.number, tag.name, &value);
  return zvCreateDoubleScalar(static_cast<double>(value));
}

template <class T>
zvArray* read_scalar_defaulted(TIFF* tif, const TagRef& tag) {
  T value{};
  TIFFGetFieldDefaulted(tif, tag.number, &value);
  return zvCreateDoubleScalar(static_cast<double>(value));
}

/// A counted value: a 16-bit count, then the values. The count and the
/// array are libtiff's own record of one stored value, so they agree.
template <class T>
struct Counted {
  const T* values = nullptr;
  std::uint16_t count = 0;
};

template <class T>
Counted<T> get_counted(TIFF* tif, const TagRef& tag) {
  std::uint16_t count = 0;
  T* values = nullptr;
  get_tag_checked(tif, tag.number, tag.name, &count, &values);
  require_data(values, count, tag.number);
  return {values, count};
}

/// A counted value as a 1 x count row; a size other than 0 is the count
/// expected, and any other count is returned after a warning.
template <class T, class Out, zvClassID kClass>
zvArray* read_counted_row(TIFF* tif, const TagRef& tag) {
  const Counted<T> value = get_counted<T>(tif, tag);
  if (tag.count != 0 && value.count != tag.count)
    warn(Tiff::wrongSizedTagRetrieval(tag.count, tag.name, value.count));
  return make_row<Out>(value.values, value.count, kClass);
}

/// A counted value as a matrix of `size` columns, one record per row.
template <class T>
zvArray* read_counted_rows(TIFF* tif, const TagRef& tag) {
  const Counted<T> value = get_counted<T>(tif, tag);
  const std::uint32_t columns = tag.count;
  if (value.count % columns != 0)
    raise(Tiff::badMultipleTagValueRetrieved(value.count, tag.name, columns));
  const T* values = value.values;
  return make_matrix<double>(value.count / columns, columns, zvDOUBLE_CLASS,
                             [values, columns](std::size_t r, std::size_t c) { return values[r * columns + c]; });
}

/// An uninterpreted block: a 32-bit count and the bytes. The count may be
/// of wider elements; copying count bytes stays within the block either way.
struct Bytes {
  const std::uint8_t* data = nullptr;
  std::uint32_t count = 0;
};

Bytes get_bytes(TIFF* tif, const TagRef& tag) {
  std::uint32_t count = 0;
  void* data = nullptr;
  get_tag_checked(tif, tag.number, tag.name, &count, &data);
  require_data(data, count, tag.number);
  return {static_cast<const std::uint8_t*>(data), count};
}

/// Entries per colour map or transfer curve for the current BitsPerSample.
std::uint32_t entries_per_curve(TIFF* tif) {
  return table_entries(u16_defaulted(tif, TIFFTAG_BITSPERSAMPLE));
}

/// Three curves of n entries as an n x 3 matrix, each entry times scale.
zvArray* curves_matrix(std::uint16_t* const (&curves)[3], std::uint32_t n, std::uint32_t tag,
                       double scale) {
  for (const std::uint16_t* curve : curves) require_data(curve, n, tag);
  return make_matrix<double>(n, 3, zvDOUBLE_CLASS,
                             [&](std::size_t r, std::size_t c) { return curves[c][r] * scale; });
}

zvArray* read_chunk_array(TIFF* tif, const TagRef& tag, bool tile_array) {
  const std::uint16_t samples = u16_defaulted(tif, TIFFTAG_SAMPLESPERPIXEL);
  const std::uint16_t planar = u16_defaulted(tif, TIFFTAG_PLANARCONFIG);
  const bool tiled = TIFFIsTiled(tif) != 0;
  if (tiled && !tile_array) raise(Tiff::strippedOperationOnTiledImage());
  if (!tiled && tile_array) raise(Tiff::tiledOperationOnStrippedImage());
  std::uint64_t n = tiled ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
  if (planar == PLANARCONFIG_SEPARATE) n *= samples;
  // A directory can claim far more entries than the file holds: libtiff
  // pads short arrays to its strip count, and the count is multiplied by
  // SamplesPerPixel here, so a 15-row image of 65535 separate planes asks
  // for a row of 500 GB. A row that cannot fit in memory (see
  // memory_limit.h) is refused before it is created, with the kind of a
  // tag that cannot be retrieved, which is what it is.
  if (n > memory_limit() / sizeof(std::uint64_t)) raise(Tiff::tagRetrievalFailed(tag.name));
  std::uint64_t* values = nullptr;
  get_tag_checked(tif, tag.number, tag.name, &values);
  // libtiff's counts already include the planes of a separate image, so n
  // overshoots its arrays there: the entries it holds are copied and the
  // rest of the row stays 0.
  const std::uint64_t held = values == nullptr ? 0 : strile_entries_held(tif, n);
  const std::size_t dims[2] = {1, static_cast<std::size_t>(n)};
  zvArray* row = zvCreateNumericArray(2, dims, zvUINT64_CLASS);
  std::copy_n(values, held, static_cast<std::uint64_t*>(zvGetData(row)));
  return row;
}

}  // namespace

namespace detail {

zvArray* read_text(TIFF* tif, const TagRef& tag) {
  const char* text = nullptr;
  get_tag_checked(tif, tag.number, tag.name, &text);
  return zvCreateString(text);
}

// Pairs come back through two pointers, one per value.
zvArray* read_pair(TIFF* tif, const TagRef& tag) {
  std::uint16_t pair[2] = {};
  get_tag_checked(tif, tag.number, tag.name, &pair[0], &pair[1]);
  return make_row<double>(pair, 2);
}

zvArray* read_pair_defaulted(TIFF* tif, const TagRef& tag) {
  std::uint16_t pair[2] = {};
  TIFFGetFieldDefaulted(tif, tag.number, &pair[0], &pair[1]);
  return make_row<double>(pair, 2);
}

zvArray* read_planar_configuration(TIFF* tif, const TagRef&) {
  const std::uint16_t value = u16_defaulted(tif, TIFFTAG_PLANARCONFIG);
  if (value != PLANARCONFIG_CONTIG && value != PLANARCONFIG_SEPARATE)
    raise(Tiff::badPlanarConfiguration(value));
  return zvCreateDoubleScalar(value);
}

/// A rational array of fixed length (the row's size). libtiff stores these
/// tags only when the file holds exactly that many values.
zvArray* read_rational_vector(TIFF* tif, const TagRef& tag) {
  float* values = nullptr;
  get_tag_checked(tif, tag.number, tag.name, &values);
  require_data(values, tag.count, tag.number);
  return make_row<double>(values, tag.count);
}

zvArray* read_byte_block(TIFF* tif, const TagRef& tag) {
  const Bytes block = get_bytes(tif, tag);
  return make_row<std::uint8_t>(block.data, block.count, zvUINT8_CLASS);
}

// XMLPacket: each byte becomes the character of that code, undecoded.
zvArray* read_byte_text(TIFF* tif, const TagRef& tag) {
  const Bytes block = get_bytes(tif, tag);
  const std::u16string text(block.data, block.data + block.count);
  const std::size_t dims[2] = {1, block.count};
  return zvCreateCharArray(2, dims, text.data());
}

zvArray* read_ink_names(TIFF* tif, const TagRef& tag) {
  const std::uint16_t inks = u16_defaulted(tif, TIFFTAG_NUMBEROFINKS);
  const std::size_t dims[2] = {1, inks};
  zvArray* cell = zvCreateCellArray(2, dims);
  const char* buffer = nullptr;
  get_tag_checked(tif, tag.number, tag.name, &buffer);
  // libtiff counts the NUL-terminated names when InkNames is set and keeps
  // NumberOfInks at that count: that is how far the buffer may be walked.
  std::uint16_t names_held = 0;
  if (buffer == nullptr || !TIFFGetField(tif, TIFFTAG_NUMBEROFINKS, &names_held)) names_held = 0;
  const std::vector<std::string> names = split_ink_names(buffer, names_held, inks);
  for (std::size_t i = 0; i < names.size(); ++i) zvSetCell(cell, i, zvCreateString(names[i].c_str()));
  return cell;
}

zvArray* read_color_map(TIFF* tif, const TagRef& tag) {
  const std::uint32_t n = entries_per_curve(tif);
  std::uint16_t* curves[3] = {};
  get_tag_checked(tif, tag.number, tag.name, &curves[0], &curves[1], &curves[2]);
  return curves_matrix(curves, n, tag.number, 1.0 / 65535.0);
}

zvArray* read_transfer_function(TIFF* tif, const TagRef& tag) {
  const std::uint32_t n = entries_per_curve(tif);
  const std::uint16_t samples = u16_defaulted(tif, TIFFTAG_SAMPLESPERPIXEL);
  if (samples != 1 && samples != 3) raise(Tiff::badTransferFunctionSppCombination(samples));
  // libtiff hands TransferFunction back through three pointers whatever
  // SamplesPerPixel, the last two null for a single curve (and for three
  // samples of which two are extra), so three destinations are always given.
  std::uint16_t* curves[3] = {};
  get_tag_checked(tif, tag.number, tag.name, &curves[0], &curves[1], &curves[2]);
  if (samples == 1) {
    require_data(curves[0], n, tag.number);
    return make_row<double>(curves[0], n);
  }
  return curves_matrix(curves, n, tag.number, 1.0);
}

zvArray* read_strip_array(TIFF* tif, const TagRef& tag) { return read_chunk_array(tif, tag, false); }
zvArray* read_tile_array(TIFF* tif, const TagRef& tag) { return read_chunk_array(tif, tag, true); }

zvArray* read_unsupported(TIFF*, const TagRef& tag) {
  raise(Tiff::unsupportedTag(tag.name, tag.number));
}

// The forms that differ only in their types.
zvArray* read_u16(TIFF* tif, const TagRef& tag) { return read_scalar<std::uint16_t>(tif, tag); }
zvArray* read_u32(TIFF* tif, const TagRef& tag) { return read_scalar<std::uint32_t>(tif, tag); }
zvArray* read_float(TIFF* tif, const TagRef& tag) { return read_scalar<float>(tif, tag); }
zvArray* read_double(TIFF* tif, const TagRef& tag) { return read_scalar<double>(tif, tag); }
zvArray* read_u16_defaulted(TIFF* tif, const TagRef& tag) { return read_scalar_defaulted<std::uint16_t>(tif, tag); }
zvArray* read_u32_defaulted(TIFF* tif, const TagRef& tag) { return read_scalar_defaulted<std::uint32_t>(tif, tag); }
zvArray* read_u16_row(TIFF* tif, const TagRef& tag) {
  return read_counted_row<std::uint16_t, double, zvDOUBLE_CLASS>(tif, tag);
}
zvArray* read_u64_row(TIFF* tif, const TagRef& tag) {
  return read_counted_row<std::uint64_t, std::uint64_t, zvUINT64_CLASS>(tif, tag);
}
zvArray* read_double_row(TIFF* tif, const TagRef& tag) {
  return read_counted_row<double, double, zvDOUBLE_CLASS>(tif, tag);
}
zvArray* read_u16_records(TIFF* tif, const TagRef& tag) { return read_counted_rows<std::uint16_t>(tif, tag); }
zvArray* read_double_records(TIFF* tif, const TagRef& tag) { return read_counted_rows<double>(tif, tag); }

}  // namespace detail

void handle_get_field(zvArray* outputs[], int, const zvArray* operands[], TIFF* tif) {
  const std::uint32_t tag = indexToUInt32(operands[1]);
  const std::string name = tagName(tag);
  const TagRow* row = find_tag(tag);
  if (row->read == nullptr) raise(Tiff::unhandledTagId(static_cast<detail::Int>(tag)));
  outputs[0] = row->read(tif, TagRef{tag, name, row->count});
}

}  // namespace tiffgate
