#pragma once
/// SHA-256 (FIPS 180-4), for comparing decoded images with the hashes the
/// corpus records. Incremental: feed bytes in any number of pieces.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace tiffgate::testing {

class Sha256 {
 public:
  Sha256();
  void update(const void* data, std::size_t size);
  /// The digest as 64 lower-case hexadecimal digits; ends the hashing.
  std::string hex();

 private:
  void block(const std::uint8_t* p);
  std::array<std::uint32_t, 8> state_;
  std::array<std::uint8_t, 64> pending_{};
  std::size_t pendingSize_ = 0;
  std::uint64_t length_ = 0;  ///< bytes hashed so far
};

/// The digest of one buffer.
std::string sha256_hex(const void* data, std::size_t size);

}  // namespace tiffgate::testing
