#pragma once
/// Arrays for the command driver's operands: shapes within the driver's
/// limits, and values set element by element whatever the class.

#include "fuzz/driver/support.h"

#include <cstddef>
#include <cstdint>

namespace tiffgate::fuzz {

/// Arrays of any class stay below this many elements, cells and structures
/// below kMaxCells.
constexpr std::size_t kMaxElements = std::size_t{1} << 16;
constexpr std::size_t kMaxCells = 4;

template <class T>
void store(Array& a, std::size_t i, T v) {
  a.data_as<T>()[i] = v;
}

/// Element i of a numeric, logical or text array set from a small value.
void set_small(Array& a, std::size_t i, std::uint8_t v);

/// An array of the given class and extents, capped at kMaxElements (cells
/// and structures at kMaxCells) by setting the largest extent to 1.
Array shaped(zvClassID cls, Array::Dims dims);

/// Values at the edges of each class: NaN, infinities and extremes for
/// floating point, the least and greatest integers, surrogates in text.
void fill_specials(Array& a);

/// The values, over and over, from the first element on.
template <class T, std::size_t N>
void cycle(Array& a, const T (&values)[N]) {
  T* data = a.data_as<T>();
  for (std::size_t i = 0; i < a.numel(); ++i) data[i] = values[i % N];
}

}  // namespace tiffgate::fuzz
