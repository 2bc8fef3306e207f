#pragma once
/// Host value to libtiff type. One range rule for every integer target:
/// x is refused when x <= least - 1 or x >= greatest + 1 (tested on the
/// double before rounding), otherwise truncated toward zero. Refusals are
/// boost's bad_numeric_cast family, which the gateway turns into
/// validate::argumentOutOfBounds.

#include "core/errors.h"
#include "core/host.h"

#include <boost/numeric/conversion/converter.hpp>

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

namespace tiffgate {

namespace detail {
[[noreturn]] void throw_negative_overflow();
[[noreturn]] void throw_positive_overflow();
}  // namespace detail

/// The range rule for one value. NaN passes both range tests; what it
/// becomes is fixed here explicitly rather than left to an undefined cast:
/// 0 for the narrower integers, the least value for signed 32-bit (what the
/// truncating conversion instruction yields), NaN for floating targets.
template <class T>
T convert(double x) {
  if constexpr (std::is_same_v<T, double>) {
    return x;
  } else if constexpr (std::is_same_v<T, float>) {
    constexpr double kMax = std::numeric_limits<float>::max();
    if (x < -kMax) detail::throw_negative_overflow();
    if (x > kMax) throw boost::numeric::positive_overflow();
    return static_cast<float>(x);
  } else {
    static_assert(std::is_integral_v<T>);
    if (std::isnan(x)) {
      return std::is_same_v<T, std::int32_t> ? std::numeric_limits<T>::min() : T{0};
    }
    // boost's converter with truncation tests exactly x <= L - 1 and x >= H + 1.
    using Converter =
        boost::numeric::converter<T, double, boost::numeric::conversion_traits<T, double>,
                                  boost::numeric::def_overflow_handler,
                                  boost::numeric::Trunc<double>>;
    return Converter::convert(x);
  }
}

/// Element index of a numeric or logical array as a double; 0 for other
/// classes. The caller makes sure index is below the element count.
double element_as_double(const zvArray* value, std::size_t index);

/// Tag scalars: class double with exactly one element.
std::uint16_t tagScalarToUInt16(const zvArray* value, const char* tagName);
std::uint32_t tagScalarToUInt32(const zvArray* value, const char* tagName);
/// Indices: the first element read as a double, whatever the class; an
/// empty operand is refused as out of range.
std::uint32_t indexToUInt32(const zvArray* value);
std::uint16_t indexToUInt16(const zvArray* value);
/// Offsets: uint64 taken bit for bit, uint32 widened, anything else as a
/// double; an empty operand is refused as out of range.
std::uint64_t offsetToUInt64(const zvArray* value);
/// (column, row) from elements 2 and 1; element 2 is converted first.
std::pair<std::uint32_t, std::uint32_t> rowColumnToUInt32Pair(const zvArray* value);

/// Element-wise conversion of a double array, in the host's element order.
template <class T>
std::vector<T> tagArrayToVector(const zvArray* value, const char* tagName) {
  if (zvGetClassID(value) != zvDOUBLE_CLASS) raise(Tiff::tagValueNotDoublePrecisionArray(tagName));
  const std::size_t n = zvGetNumberOfElements(value);
  const auto* data = static_cast<const double*>(zvGetData(value));
  std::vector<T> out;
  out.reserve(n);
  for (std::size_t i = 0; i < n; ++i) out.push_back(convert<T>(data[i]));
  return out;
}

/// An R x columns double matrix read row by row.
template <class T>
std::vector<T> tag2DArrayToVector(const zvArray* value, std::size_t columns, const char* tagName) {
  const auto refuse = [&] {
    raise(Tiff::bad2DtagValue(tagName, static_cast<detail::Int>(columns)));
  };
  if (zvGetClassID(value) != zvDOUBLE_CLASS) refuse();
  if (zvGetNumberOfDimensions(value) != 2) refuse();
  const std::size_t* dims = zvGetDimensions(value);
  if (dims[1] != columns) refuse();
  const std::size_t rows = dims[0];
  const auto* data = static_cast<const double*>(zvGetData(value));
  std::vector<T> out;
  out.reserve(rows * columns);
  for (std::size_t r = 0; r < rows; ++r)
    for (std::size_t c = 0; c < columns; ++c) out.push_back(convert<T>(data[c * rows + r]));
  return out;
}

}  // namespace tiffgate
