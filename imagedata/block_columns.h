#pragma once
/// Where the element columns of a block of a chunk row lie in a host array,
/// for the copy kernels. Element column j = c * samples + k of a row is
/// column c of plane k: byte offset c * column + k * plane.
///
/// Only the kernel files include this, and they are compiled once per
/// vector width: everything here has internal linkage, so that the AVX2
/// build's copies stay its own.

#include <cstddef>
#include <cstdint>
#include <type_traits>  // std::integral_constant

namespace tiffgate::detail {
namespace {

/// Calls run(width) with the widest block, 64, 32 or 16 bytes (as an
/// integral_constant), that rows of `bytes` bytes hold; false when they hold
/// none. 64 is a cache line of each row.
template <class Run>
bool with_block_width(std::size_t bytes, Run run) {
  if (bytes >= 64) return run(std::integral_constant<std::size_t, 64>()), true;
  if (bytes >= 32) return run(std::integral_constant<std::size_t, 32>()), true;
  if (bytes >= 16) return run(std::integral_constant<std::size_t, 16>()), true;
  return false;
}

constexpr std::size_t gcd(std::size_t a, std::size_t b) {
  while (b != 0) {
    const std::size_t r = a % b;
    a = b;
    b = r;
  }
  return a;
}

/// Whether more than `limit` of `rows` consecutive rows, `stride` bytes
/// apart, share a set of a cache whose sets repeat every 4096 bytes: a
/// transpose reading or writing them together would have them evict each
/// other, or wait on each other's addresses.
inline bool crowded(std::size_t stride, std::size_t rows, std::size_t limit) {
  const std::size_t period = 4096 / gcd(stride, 4096);  // rows until the set repeats
  return (rows + period - 1) / period > limit;
}

class BlockColumns {
 public:
  /// Offset of a plane the host array lacks (planes <= k < samples).
  static constexpr std::size_t kAbsent = SIZE_MAX;

  /// Blocks of `width` element columns. One table serves every block: the
  /// offsets of element columns 0, 1, 2, ... from the first pixel, for as
  /// many columns as a block reaches from any sample of that pixel.
  BlockColumns(std::size_t column, std::size_t plane, std::size_t samples, std::size_t planes, std::size_t width)
      : column_(column), samples_(samples) {
    const std::size_t size = width + samples - 1;
    // Most tables fit here; a pixel of very many samples takes one
    // allocation for the call.
    table_ = size > kInline ? new std::size_t[size] : inline_;
    std::size_t k = 0, pixel = 0;
    for (std::size_t i = 0; i < size; ++i) {
      table_[i] = k < planes ? pixel + k * plane : kAbsent;
      if (++k == samples) {
        k = 0;
        pixel += column;
      }
    }
  }
  ~BlockColumns() {
    if (table_ != inline_) delete[] table_;
  }
  BlockColumns(const BlockColumns&) = delete;
  BlockColumns& operator=(const BlockColumns&) = delete;

  /// The offsets of element columns j0 .. j0 + width - 1, relative to
  /// `first`, the offset of the pixel that column j0 belongs to. One
  /// division per block, none per element.
  const std::size_t* offsets(std::size_t j0, std::size_t& first) const {
    first = j0 / samples_ * column_;
    return table_ + j0 % samples_;
  }

 private:
  static constexpr std::size_t kInline = 1024;

  std::size_t column_, samples_;
  std::size_t inline_[kInline];
  std::size_t* table_;
};

/// The offsets of element columns first, first + 1, ... one at a time, for
/// the scalar code at the edges: the same places as BlockColumns, with no
/// division per element. Offsets rather than pointers, so that stepping
/// past the last column is plain unsigned arithmetic.
class ColumnWalk {
 public:
  ColumnWalk(std::size_t column, std::size_t plane, std::size_t samples, std::size_t planes, std::size_t first)
      : column_(column),
        plane_(plane),
        samples_(samples),
        planes_(planes),
        k_(first % samples),
        offset_(first / samples * column + k_ * plane) {}

  /// The next column's offset, or BlockColumns::kAbsent for a plane the
  /// host array lacks.
  std::size_t next() {
    const std::size_t here = k_ < planes_ ? offset_ : BlockColumns::kAbsent;
    offset_ += plane_;
    if (++k_ == samples_) {
      k_ = 0;
      offset_ += column_ - samples_ * plane_;
    }
    return here;
  }

 private:
  std::size_t column_, plane_, samples_, planes_, k_, offset_;
};

}  // namespace
}  // namespace tiffgate::detail
