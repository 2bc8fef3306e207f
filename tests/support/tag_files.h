#pragma once
/// Test support for the tag commands: editing a file's bytes after libtiff
/// wrote it (for directories libtiff itself would refuse to write), and
/// errors shown with their arguments.

#include "host/embedded/session.h"

#include <cstdint>
#include <string>

namespace tiffgate::testing {

/// Overwrites the value of a SHORT entry of the first directory of a classic
/// little-endian TIFF file (what libtiff writes on this machine). Throws
/// when the file is not such a file or has no such entry.
void patch_first_ifd_short(const std::string& path, std::uint16_t tag, std::uint16_t value);

/// The call's error as "identifier(arg, arg...)", or "ok" after a success.
std::string error_of(const embedded::CallResult& result);

}  // namespace tiffgate::testing
