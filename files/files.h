#pragma once
/// Open files: the registry of handles, identifier validation, the closer
/// run at unload, and the GeoTIFF tag extender.

#include "gateway/command_table.h"

#include <set>

typedef struct tiff TIFF;

namespace tiffgate {

/// Every handle this module opened and has not closed, in ascending order.
std::set<TIFF*>& open_file_registry();

/// Basic validation: the first element as an unsigned 64-bit handle;
/// badFileId for 0. The handle is not looked up in the registry.
TIFF* basic_file_id(const zvArray* id);
/// Registered validation: basic validation, then invalidFileId when the
/// handle is not registered (skipped for "close", code 0).
TIFF* registered_file_id(const zvArray* id, const CommandEntry& entry);

/// A 1x1 uint64 host array holding the handle's address.
zvArray* make_file_id(TIFF* handle);

/// Closes every file still open, each after a closingFileHandle warning.
void close_files_at_exit();

/// Teaches libtiff the GeoTIFF tags; does its work once per process.
void installTagExtender();

}  // namespace tiffgate
