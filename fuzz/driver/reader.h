#pragma once
/// The fuzz input read front to back as small decisions. An exhausted input
/// reads as zeros, so every prefix of an input is itself a valid program and
/// the drivers stop when empty() says so.

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tiffgate::fuzz {

class Reader {
 public:
  Reader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool empty() const { return pos_ >= size_; }

  std::uint8_t byte() { return empty() ? 0 : data_[pos_++]; }

  /// One of n choices (n > 0); the byte is taken modulo n.
  std::size_t pick(std::size_t n) { return byte() % n; }

  std::uint32_t u32() {
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
    return v;
  }

  std::uint64_t u64() { return (static_cast<std::uint64_t>(u32()) << 32) | u32(); }

  /// Eight bytes taken as a double bit for bit: NaN payloads and subnormals
  /// included.
  double raw_double() {
    const std::uint64_t bits = u64();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

}  // namespace tiffgate::fuzz
