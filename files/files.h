#pragma once
/// Open files: the registry of handles and their identifiers, the closer
/// run at unload, and the GeoTIFF tag extender.

#include "core/host.h"

#include <cstdint>
#include <map>
#include <string>

typedef struct tiff TIFF;

namespace tiffgate {

/// Every file this module opened and has not closed, by identifier.
using FileRegistry = std::map<std::uint64_t, TIFF*>;
FileRegistry& open_file_registry();

/// Registers a handle just opened under an identifier never issued before
/// in this process, and returns it as a 1x1 uint64 host array.
zvArray* register_file(TIFF* handle);

/// The open file an identifier names: badFileId for 0, invalidFileId for
/// any other value that does not name a file open now.
TIFF* open_file(const zvArray* id);
/// The same for "close", which is silent about files already closed: null
/// where open_file would raise invalidFileId.
TIFF* open_file_or_null(const zvArray* id);
/// The handle registered under an identifier value, or null.
TIFF* registered_handle(std::uint64_t id);
/// The mode string "open" opened a registered handle with; empty for any
/// other handle.
std::string open_mode(TIFF* handle);
/// Closes a registered handle and forgets it.
void close_file(TIFF* handle);

/// Closes every file still open, each after a closingFileHandle warning.
void close_files_at_exit();

/// Teaches libtiff the GeoTIFF tags; does its work once per process.
void installTagExtender();

}  // namespace tiffgate
