#pragma once
/// SHA-256 (FIPS 180-4), for the digests of large arrays: small enough to
/// keep here rather than pull in a cryptographic library.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace tiffgate::shell {

class Sha256 {
 public:
  Sha256();
  void update(const void* data, std::size_t size);
  /// The digest as 64 lowercase hex digits; the object is spent after it.
  std::string hex();

 private:
  void compress(const std::uint8_t* block);

  std::array<std::uint32_t, 8> state_;
  std::array<std::uint8_t, 64> block_{};
  std::size_t filled_ = 0;
  std::uint64_t length_ = 0;  ///< bytes hashed so far
};

/// The digest of one buffer.
std::string sha256_hex(const void* data, std::size_t size);

}  // namespace tiffgate::shell
