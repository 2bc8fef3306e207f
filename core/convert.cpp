#include "core/convert.h"

namespace tiffgate {

namespace detail {
void throw_negative_overflow() { throw boost::numeric::negative_overflow(); }
void throw_positive_overflow() { throw boost::numeric::positive_overflow(); }
}  // namespace detail

namespace {

double tag_scalar(const zvArray* value, const char* tagName) {
  if (zvGetClassID(value) != zvDOUBLE_CLASS || zvGetNumberOfElements(value) != 1)
    raise(Tiff::tagValueNotDoublePrecisionScalar(tagName));
  return zvGetScalar(value);
}

/// The first element of an index or offset, of any class. An empty operand
/// has none: it is refused like a value out of range instead of being taken
/// for 0, which would silently address the first directory.
double first_element(const zvArray* value) {
  if (zvGetNumberOfElements(value) == 0) detail::throw_negative_overflow();
  return zvGetScalar(value);
}

}  // namespace

std::uint16_t tagScalarToUInt16(const zvArray* value, const char* tagName) {
  return convert<std::uint16_t>(tag_scalar(value, tagName));
}

std::uint32_t tagScalarToUInt32(const zvArray* value, const char* tagName) {
  return convert<std::uint32_t>(tag_scalar(value, tagName));
}

std::uint32_t indexToUInt32(const zvArray* value) { return convert<std::uint32_t>(first_element(value)); }

std::uint16_t indexToUInt16(const zvArray* value) { return convert<std::uint16_t>(first_element(value)); }

std::uint64_t offsetToUInt64(const zvArray* value) {
  if (zvGetNumberOfElements(value) > 0) {
    switch (zvGetClassID(value)) {
      case zvUINT64_CLASS: return *static_cast<const std::uint64_t*>(zvGetData(value));
      case zvUINT32_CLASS: return *static_cast<const std::uint32_t*>(zvGetData(value));
      default: break;
    }
  }
  return convert<std::uint64_t>(first_element(value));
}

std::pair<std::uint32_t, std::uint32_t> rowColumnToUInt32Pair(const zvArray* value) {
  // A position needs two elements; one that has fewer is refused like a value
  // out of range instead of being read past its end.
  if (zvGetNumberOfElements(value) < 2) detail::throw_negative_overflow();
  const std::uint32_t column = convert<std::uint32_t>(element_as_double(value, 1));
  const std::uint32_t row = convert<std::uint32_t>(element_as_double(value, 0));
  return {column, row};
}

double element_as_double(const zvArray* value, std::size_t index) {
  const void* data = zvGetData(value);
  switch (zvGetClassID(value)) {
    case zvDOUBLE_CLASS: return static_cast<const double*>(data)[index];
    case zvSINGLE_CLASS: return static_cast<const float*>(data)[index];
    case zvLOGICAL_CLASS: return static_cast<const zvLogical*>(data)[index] ? 1.0 : 0.0;
    case zvINT8_CLASS: return static_cast<const std::int8_t*>(data)[index];
    case zvUINT8_CLASS: return static_cast<const std::uint8_t*>(data)[index];
    case zvINT16_CLASS: return static_cast<const std::int16_t*>(data)[index];
    case zvUINT16_CLASS: return static_cast<const std::uint16_t*>(data)[index];
    case zvINT32_CLASS: return static_cast<const std::int32_t*>(data)[index];
    case zvUINT32_CLASS: return static_cast<const std::uint32_t*>(data)[index];
    case zvINT64_CLASS: return static_cast<double>(static_cast<const std::int64_t*>(data)[index]);
    case zvUINT64_CLASS: return static_cast<double>(static_cast<const std::uint64_t*>(data)[index]);
    default: return 0.0;  // text, cells, structures: no number to read
  }
}

}  // namespace tiffgate
