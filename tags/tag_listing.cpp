// The entries for the hosts' tag functions: the tag table, the tags a
// directory holds, and the tags outside the table (private and unknown
// ones) read and written as libtiff stores them.

#include "core/convert.h"
#include "core/errors.h"
#include "core/text.h"
#include "tags/commands.h"
#include "tags/tag_table.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace tiffgate {
namespace {

zvArray* number_row(const std::vector<double>& values) {
  const std::size_t dims[2] = {1, values.size()};
  zvArray* row = zvCreateUninitNumericArray(2, dims, zvDOUBLE_CLASS);
  std::copy(values.begin(), values.end(), static_cast<double*>(zvGetData(row)));
  return row;
}

/// Whether the current directory holds `tag`: libtiff answers for a tag it
/// knows without looking at the destinations' types, so room for the
/// widest form (a count and three arrays) is enough.
bool holds(TIFF* tif, std::uint32_t tag) {
  std::uint64_t room[4][2] = {};
  return TIFFGetField(tif, tag, &room[0], &room[1], &room[2], &room[3]) == 1;
}

/// A tag outside the table: the custom field libtiff holds for it.
const TIFFField* custom_field(TIFF* tif, std::uint32_t tag) {
  if (find_tag(tag) != nullptr) raise(Tiff::unsupportedTag(tagName(tag), tag));
  const TIFFField* field = TIFFFieldWithTag(tif, tag);
  if (field == nullptr || !holds(tif, tag)) raise(Tiff::tagRetrievalFailed(std::to_string(tag)));
  return field;
}


}  // namespace

// "__tagNames__"(): the numbers (1 x N double) and names (1 x N cell) of
// the tag table, in number order.
void handle_tag_names(zvArray* outputs[], int, const zvArray*[], TIFF*) {
  const auto& table = TagNameTable();
  std::vector<double> numbers;
  const std::size_t dims[2] = {1, table.size()};
  zvArray* names = zvCreateCellArray(2, dims);
  for (const auto& [number, name] : table) {
    zvSetCell(names, numbers.size(), zvCreateString(name.c_str()));
    numbers.push_back(number);
  }
  outputs[0] = number_row(numbers);
  outputs[1] = names;
}

// "__listTags__"(id): the numbers of the tags the current directory holds,
// in number order: those of the table and any other libtiff read from the
// file (its codec settings, which no file holds, left out).
void handle_list_tags(zvArray* outputs[], int, const zvArray*[], TIFF* tif) {
  // libtiff answers for the strip and tile tags alike and for DataType as
  // SampleFormat: the directory holds the kind its layout has.
  const bool tiled = TIFFIsTiled(tif);
  const auto alias = [tiled](std::uint32_t tag) {
    return tag == TIFFTAG_DATATYPE || (tiled ? tag == TIFFTAG_STRIPOFFSETS || tag == TIFFTAG_STRIPBYTECOUNTS
                                             : tag == TIFFTAG_TILEOFFSETS || tag == TIFFTAG_TILEBYTECOUNTS);
  };
  std::set<std::uint32_t> held;
  for (const auto& [number, name] : TagNameTable())
    if (number < 65536 && !alias(number) && holds(tif, number)) held.insert(number);
  // Codec settings are never among the custom tags a file's directory set.
  for (int i = 0, n = TIFFGetTagListCount(tif); i < n; ++i) held.insert(TIFFGetTagListEntry(tif, i));
  outputs[0] = number_row(std::vector<double>(held.begin(), held.end()));
}

// "__tagValue__"(id, tag): a tag outside the table as libtiff holds it:
// text as a character row, numbers as a row of doubles.
void handle_tag_value(zvArray* outputs[], int, const zvArray* operands[], TIFF* tif) {
  const std::uint32_t tag = indexToUInt32(operands[1]);
  const TIFFField* field = custom_field(tif, tag);
  const TIFFDataType type = TIFFFieldDataType(field);
  std::uint32_t count = 1;
  void* data = nullptr;
  const bool counted = TIFFFieldPassCount(field);
  if (counted && TIFFFieldReadCount(field) == TIFF_VARIABLE2) {
    TIFFGetField(tif, tag, &count, &data);
  } else if (counted) {
    std::uint16_t count16 = 0;
    TIFFGetField(tif, tag, &count16, &data);
    count = count16;
  } else if (type == TIFF_ASCII) {
    char* text = nullptr;
    TIFFGetField(tif, tag, &text);
    outputs[0] = zvCreateString(text == nullptr ? "" : text);
    return;
  } else if (TIFFFieldReadCount(field) > 1) {
    // A fixed number of values, handed over as a pointer to them.
    count = static_cast<std::uint32_t>(TIFFFieldReadCount(field));
    TIFFGetField(tif, tag, &data);
  } else {
    // One value, written in place in its own type: the widest will do.
    static thread_local std::uint64_t one = 0;
    one = 0;
    TIFFGetField(tif, tag, &one);
    data = &one;
  }
  if (type == TIFF_ASCII || type == TIFF_UNDEFINED) {
    const auto* bytes = static_cast<const char*>(data);
    std::string text(bytes, bytes ? std::find(bytes, bytes + count, '\0') - bytes : 0);
    outputs[0] = zvCreateString(text.c_str());
    return;
  }
  std::vector<double> values(count);
  for (std::uint32_t i = 0; i < count && data != nullptr; ++i) {
    const auto* p = static_cast<const unsigned char*>(data);
    switch (type) {
      case TIFF_BYTE: values[i] = p[i]; break;
      case TIFF_SBYTE: values[i] = reinterpret_cast<const std::int8_t*>(p)[i]; break;
      case TIFF_SHORT: values[i] = reinterpret_cast<const std::uint16_t*>(p)[i]; break;
      case TIFF_SSHORT: values[i] = reinterpret_cast<const std::int16_t*>(p)[i]; break;
      case TIFF_LONG: case TIFF_IFD: values[i] = reinterpret_cast<const std::uint32_t*>(p)[i]; break;
      case TIFF_SLONG: values[i] = reinterpret_cast<const std::int32_t*>(p)[i]; break;
      case TIFF_LONG8: case TIFF_IFD8: values[i] = static_cast<double>(reinterpret_cast<const std::uint64_t*>(p)[i]); break;
      case TIFF_SLONG8: values[i] = static_cast<double>(reinterpret_cast<const std::int64_t*>(p)[i]); break;
      case TIFF_FLOAT: values[i] = reinterpret_cast<const float*>(p)[i]; break;
      case TIFF_DOUBLE: values[i] = reinterpret_cast<const double*>(p)[i]; break;
      // Rationals come from libtiff as floats or doubles by the field's set type.
      case TIFF_RATIONAL: case TIFF_SRATIONAL:
        values[i] = TIFFFieldSetGetSize(field) == 8 ? reinterpret_cast<const double*>(p)[i]
                                                    : reinterpret_cast<const float*>(p)[i];
        break;
      default: raise(Tiff::unhandledTagId(tag));
    }
  }
  outputs[0] = number_row(values);
}

// "__setTag__"(id, tag, value): what setField does not write in the
// directory being written: a text tag outside the table that libtiff knows
// (GDAL_METADATA and GDAL_NODATA), or a Compression scheme outside
// setField's list that this libtiff build has a codec for (LZMA, ZSTD, WebP).
void handle_set_tag(zvArray*[], int, const zvArray* operands[], TIFF* tif) {
  const std::uint32_t tag = indexToUInt32(operands[1]);
  if (tag == TIFFTAG_COMPRESSION) {
    const std::uint16_t scheme = tagScalarToUInt16(operands[2], "Compression");
    const bool extra = scheme == COMPRESSION_LZMA || scheme == COMPRESSION_ZSTD || scheme == COMPRESSION_WEBP;
    if (!extra || !TIFFIsCODECConfigured(scheme)) raise(Tiff::unsupportedCompressionScheme(scheme));
    if (TIFFSetField(tif, TIFFTAG_COMPRESSION, scheme) != 1) raise(Tiff::unableToWriteTag("Compression"));
    return;
  }
  if (find_tag(tag) != nullptr) raise(Tiff::unsupportedTag(tagName(tag), tag));
  const TIFFField* field = TIFFFieldWithTag(tif, tag);
  if (field == nullptr || TIFFFieldDataType(field) != TIFF_ASCII || TIFFFieldPassCount(field))
    raise(Tiff::unrecognizedTagNumber(tag));
  if (zvGetClassID(operands[2]) != zvCHAR_CLASS) raise(Tiff::argumentWasNotChar(std::to_string(tag)));
  const std::string text = utf16_to_utf8(zvArrayToUtf16(operands[2]));
  if (text.find('\0') != std::string::npos || TIFFSetField(tif, tag, text.c_str()) != 1)
    raise(Tiff::unableToWriteTag(std::to_string(tag)));
}

}  // namespace tiffgate
