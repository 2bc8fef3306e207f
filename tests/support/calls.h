#pragma once
/// Test support: one command on a file opened for it alone, and the files
/// whose chunks and rasters are larger than any machine's memory.

#include "host/embedded/session.h"

#include <string>
#include <vector>

namespace tiffgate::testing {

/// Opens path through the module, calls command with the identifier and
/// then the operands, and closes the file again; the command's result.
embedded::CallResult call_on_file(const std::string& path, const char* command,
                                  std::vector<embedded::Array> operands = {}, const char* mode = "r");

/// Writes a 10^6 x 10^6 8-bit grey Deflate image as one strip (strip_path)
/// and as one tile (tile_path): chunks of 10^12 bytes, rasters of 4 x 10^12.
void write_huge_images(const std::string& strip_path, const std::string& tile_path);

}  // namespace tiffgate::testing
