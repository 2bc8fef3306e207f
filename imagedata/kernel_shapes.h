#pragma once
/// What the copy kernels of both directions (pack_kernels.h, host to chunk;
/// unpack_kernels.h, chunk to host) measure a chunk with. Pure: no host and
/// no libtiff.

#include <cstddef>

namespace tiffgate::detail {

/// YCbCr subsampling factors: a data unit holds h x v luma samples.
struct Subsampling {
  std::size_t horizontal = 1;  ///< h, at least 1
  std::size_t vertical = 1;    ///< v, at least 1
};

/// a / b rounded up: chroma rows and columns for luma ones, data units per
/// chunk row, bytes for bits. Written so that it cannot overflow.
constexpr std::size_t ceil_div(std::size_t a, std::size_t b) { return a / b + (a % b != 0); }

/// Bytes of one sample that the element and YCbCr kernels move whole: 1, 2,
/// 4 or 8 for 8, 16, 32 and 64-bit samples; 0 for any other depth, which
/// has no such kernel.
constexpr std::size_t element_bytes(unsigned bitsPerSample) {
  return bitsPerSample == 8 || bitsPerSample == 16 || bitsPerSample == 32 || bitsPerSample == 64
             ? bitsPerSample / 8u
             : 0;
}

/// How many of the first `rows` rows, `stride` bytes apart, have their first
/// `used` bytes inside a buffer of `bytes`: a chunk can be shorter than its
/// geometry says when the file is inconsistent.
constexpr std::size_t readable_rows(std::size_t bytes, std::size_t stride, std::size_t used, std::size_t rows) {
  if (bytes < used) return 0;
  if (stride == 0) return rows;
  const std::size_t fit = (bytes - used) / stride + 1;
  return fit < rows ? fit : rows;
}

}  // namespace tiffgate::detail
