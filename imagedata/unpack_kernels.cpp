#include "imagedata/unpack_kernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace tiffgate::detail {
namespace {

/// One element of the chunk; memcpy because the buffer holds bytes.
template <class T>
T load(const unsigned char* p) {
  T value;
  std::memcpy(&value, p, sizeof value);
  return value;
}

/// How many of the first `rows` rows, `stride` bytes apart, have their first
/// `used` bytes inside a buffer of `bytes`: a chunk can be shorter than its
/// geometry says when the file is inconsistent.
std::size_t readable_rows(std::size_t bytes, std::size_t stride, std::size_t used, std::size_t rows) {
  if (bytes < used) return 0;
  if (stride == 0) return rows;
  return std::min(rows, (bytes - used) / stride + 1);
}

/// Zeroes rows [from, rows) of every column of a column-major array.
template <class T>
void zero_rows(T* out, std::size_t rows, std::size_t columns, std::size_t from) {
  if (from >= rows) return;
  for (std::size_t c = 0; c < columns; ++c) std::fill(out + c * rows + from, out + (c + 1) * rows, T{});
}

template <class T>
void unpack_elements(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, void* output) {
  T* out = static_cast<T*>(output);
  const std::size_t m = shape.rows, n = shape.columns, spc = shape.samples, plane = m * n;
  const std::size_t stride = shape.width * spc * sizeof(T);
  const std::size_t kept = readable_rows(bytes, stride, n * spc * sizeof(T), m);
  if (spc == 1) {
    for (std::size_t r = 0; r < kept; ++r) {
      const unsigned char* src = chunk + r * stride;
      T* dst = out + r;
      for (std::size_t c = 0; c < n; ++c, src += sizeof(T), dst += m) *dst = load<T>(src);
    }
  } else {
    for (std::size_t r = 0; r < kept; ++r) {
      const unsigned char* src = chunk + r * stride;
      for (std::size_t c = 0; c < n; ++c) {
        T* dst = out + r + c * m;
        for (std::size_t k = 0; k < spc; ++k, src += sizeof(T), dst += plane) *dst = load<T>(src);
      }
    }
  }
  zero_rows(out, m, n * spc, kept);
}

template <class T>
void unpack_ycbcr(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, Subsampling f,
                  void* yPlane, void* cbPlane, void* crPlane) {
  T* y = static_cast<T*>(yPlane);
  T* cb = static_cast<T*>(cbPlane);
  T* cr = static_cast<T*>(crPlane);
  const std::size_t h = f.horizontal, v = f.vertical, m = shape.rows, n = shape.columns;
  const std::size_t cm = ceil_div(m, v), cn = ceil_div(n, h);
  const std::size_t lumaPerUnit = h * v, unit = (lumaPerUnit + 2) * sizeof(T);
  const std::size_t stride = ceil_div(shape.width, h) * unit;  // units per chunk row, rounded up
  const std::size_t kept = readable_rows(bytes, stride, cn * unit, cm);
  for (std::size_t ur = 0; ur < kept; ++ur) {
    const unsigned char* src = chunk + ur * stride;
    for (std::size_t uc = 0; uc < cn; ++uc, src += unit) {
      const unsigned char* luma = src;
      for (std::size_t kv = 0, row = ur * v; kv < v; ++kv, ++row) {
        for (std::size_t kh = 0, col = uc * h; kh < h; ++kh, ++col, luma += sizeof(T)) {
          // Units at the right and bottom edges reach past the image.
          if (row < m && col < n) y[row + col * m] = load<T>(luma);
        }
      }
      cb[ur + uc * cm] = load<T>(src + lumaPerUnit * sizeof(T));
      cr[ur + uc * cm] = load<T>(src + (lumaPerUnit + 1) * sizeof(T));
    }
  }
  zero_rows(y, m, n, std::min(m, kept * v));
  zero_rows(cb, cm, cn, kept);
  zero_rows(cr, cm, cn, kept);
}

// Indexed by element size; sizes 0, 3, 5, 6 and 7 have no kernel.
constexpr ElementUnpacker kElementUnpackers[] = {
    nullptr, unpack_elements<std::uint8_t>, unpack_elements<std::uint16_t>, nullptr,
    unpack_elements<std::uint32_t>, nullptr, nullptr, nullptr, unpack_elements<std::uint64_t>};
constexpr YCbCrUnpacker kYCbCrUnpackers[] = {
    nullptr, unpack_ycbcr<std::uint8_t>, unpack_ycbcr<std::uint16_t>, nullptr,
    unpack_ycbcr<std::uint32_t>, nullptr, nullptr, nullptr, unpack_ycbcr<std::uint64_t>};
constexpr std::size_t kKernelSizes = sizeof kElementUnpackers / sizeof kElementUnpackers[0];

}  // namespace

ElementUnpacker element_unpacker(std::size_t elementSize) {
  return elementSize < kKernelSizes ? kElementUnpackers[elementSize] : nullptr;
}

YCbCrUnpacker ycbcr_unpacker(std::size_t elementSize) {
  return elementSize < kKernelSizes ? kYCbCrUnpackers[elementSize] : nullptr;
}

void unpack_bits(const unsigned char* chunk, std::size_t bytes, const ChunkShape& shape, bool* out) {
  const std::size_t m = shape.rows, n = shape.columns, spc = shape.samples, plane = m * n;
  const std::size_t stride = (shape.width * spc + 7) / 8;
  const std::size_t kept = readable_rows(bytes, stride, (n * spc + 7) / 8, m);
  for (std::size_t r = 0; r < kept; ++r) {
    const unsigned char* row = chunk + r * stride;
    std::size_t bit = 0;  // bit c * spc + k of the row
    for (std::size_t c = 0; c < n; ++c) {
      bool* dst = out + r + c * m;
      for (std::size_t k = 0; k < spc; ++k, ++bit, dst += plane)
        *dst = (row[bit >> 3] >> (7 - (bit & 7))) & 1;
    }
  }
  zero_rows(out, m, n * spc, kept);
}

}  // namespace tiffgate::detail
