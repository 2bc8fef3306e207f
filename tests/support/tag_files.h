#pragma once
/// Test support for the tag commands: editing a file's bytes after libtiff
/// wrote it (for directories libtiff itself would refuse to write), and
/// errors shown with their arguments.

#include "host/embedded/session.h"

#include <tiffio.h>

#include <cstdint>
#include <functional>
#include <string>

namespace tiffgate::testing {

/// Writes a one-directory file with libtiff directly: set_basic_tags with
/// these arguments, then tags(tif) for the rest, then zero-filled chunks.
void write_tiff(const std::string& path, const std::function<void(TIFF*)>& tags, std::uint32_t width = 8,
                std::uint32_t length = 4, std::uint16_t bits = 8, std::uint16_t samples = 1,
                std::uint32_t rowsPerStrip = 0, std::uint32_t tileSize = 0);

/// Overwrites the value of a SHORT entry of the first directory of a classic
/// little-endian TIFF file (what libtiff writes on this machine). Throws
/// when the file is not such a file or has no such entry.
void patch_first_ifd_short(const std::string& path, std::uint16_t tag, std::uint16_t value);

}  // namespace tiffgate::testing
