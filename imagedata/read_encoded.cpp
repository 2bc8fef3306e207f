#include "gateway/errors.h"
#include "gateway/handlers.h"

namespace tiffgate {

// Not built yet: refuse the command by name rather than do anything half-way.
TG_HANDLER(handle_read_encoded_strip) { raise(Tiff::InvalidOperation(entry.name)); }

// Not built yet: refuse the command by name rather than do anything half-way.
TG_HANDLER(handle_read_encoded_tile) { raise(Tiff::InvalidOperation(entry.name)); }

}  // namespace tiffgate
