#pragma once
/// Where the element columns of a block of a chunk row lie in a host array,
/// for the copy kernels. Element column j = c * samples + k of a row is
/// column c of plane k: byte offset c * column + k * plane.

#include <cstddef>
#include <cstdint>
#include <numeric>  // std::gcd
#include <vector>

namespace tiffgate::detail {

/// Whether more than `limit` of `rows` consecutive rows, `stride` bytes
/// apart, share a set of a cache whose sets repeat every 4096 bytes: a
/// transpose reading or writing them together would have them evict each
/// other, or wait on each other's addresses.
inline bool crowded(std::size_t stride, std::size_t rows, std::size_t limit) {
  const std::size_t period = 4096 / std::gcd(stride, std::size_t{4096});  // rows until the set repeats
  return (rows + period - 1) / period > limit;
}

class BlockColumns {
 public:
  /// Offset of a plane the host array lacks (planes <= k < samples).
  static constexpr std::size_t kAbsent = SIZE_MAX;

  /// Blocks of `width` element columns. The offsets within a block depend
  /// only on where it starts among the samples of a pixel (its phase), so
  /// they are worked out once per call for every phase, unless there are
  /// so many samples that a block's are worked out each time.
  BlockColumns(std::size_t column, std::size_t plane, std::size_t samples, std::size_t planes, std::size_t width)
      : column_(column),
        plane_(plane),
        samples_(samples),
        planes_(planes),
        width_(width),
        cached_(samples <= kCachedPhases) {
    // Up to kInline offsets live here; more (several phases of wide
    // blocks) take one allocation for the call.
    const std::size_t size = (cached_ ? samples : 1) * width;
    if (size > kInline) heap_.resize(size);
    table_ = size > kInline ? heap_.data() : inline_;
    if (cached_)
      for (std::size_t phase = 0; phase < samples; ++phase) fill(phase, table_ + phase * width);
  }
  BlockColumns(const BlockColumns&) = delete;
  BlockColumns& operator=(const BlockColumns&) = delete;

  /// The offsets of element columns j0 .. j0 + width - 1, relative to
  /// `first`, the offset of the pixel that column j0 belongs to. One
  /// division per block, none per element.
  const std::size_t* offsets(std::size_t j0, std::size_t& first) {
    const std::size_t phase = j0 % samples_;
    first = j0 / samples_ * column_;
    if (cached_) return table_ + phase * width_;
    fill(phase, table_);
    return table_;
  }

 private:
  static constexpr std::size_t kCachedPhases = 16;
  static constexpr std::size_t kInline = 512;  // one phase of a 1-bit block

  void fill(std::size_t phase, std::size_t* out) const {
    std::size_t k = phase, pixel = 0;
    for (std::size_t i = 0; i < width_; ++i) {
      out[i] = k < planes_ ? pixel + k * plane_ : kAbsent;
      if (++k == samples_) {
        k = 0;
        pixel += column_;
      }
    }
  }

  std::size_t column_, plane_, samples_, planes_, width_;
  bool cached_;
  std::size_t inline_[kInline];
  std::vector<std::size_t> heap_;
  std::size_t* table_;
};

}  // namespace tiffgate::detail
