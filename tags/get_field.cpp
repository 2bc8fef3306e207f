#include "gateway/errors.h"
#include "gateway/handlers.h"

namespace tiffgate {

// Not built yet: refuse the command by name rather than do anything half-way.
TG_HANDLER(handle_get_field) { raise(Tiff::InvalidOperation(entry.name)); }

}  // namespace tiffgate
