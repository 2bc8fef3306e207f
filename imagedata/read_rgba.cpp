#include "gateway/errors.h"
#include "gateway/handlers.h"

namespace tiffgate {

// Not built yet: refuse the command by name rather than do anything half-way.
TG_HANDLER(handle_read_rgba_image) { raise(Tiff::InvalidOperation(entry.name)); }

// Not built yet: refuse the command by name rather than do anything half-way.
TG_HANDLER(handle_read_rgba_strip) { raise(Tiff::InvalidOperation(entry.name)); }

// Not built yet: refuse the command by name rather than do anything half-way.
TG_HANDLER(handle_read_rgba_tile) { raise(Tiff::InvalidOperation(entry.name)); }

}  // namespace tiffgate
