#pragma once
/// Test support: a classic little-endian TIFF written byte by byte, for
/// directories that libtiff would refuse to write (absurd sizes and the
/// like). One directory; every value fits in its entry.

#include <cstdint>
#include <string>
#include <vector>

namespace tiffgate::testing {

struct RawEntry {
  std::uint16_t tag;
  std::uint16_t type;  ///< 3 SHORT or 4 LONG
  std::uint32_t value;
};

/// Writes the directory (entries sorted by tag) at offset 8, followed by
/// 256 zero bytes that strip or tile offsets may point into.
void write_raw_tiff(const std::string& path, std::vector<RawEntry> entries);

}  // namespace tiffgate::testing
