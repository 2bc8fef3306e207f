#pragma once
/// The handlers of the strip, tile and RGBA reads and writes and the chunk
/// indices, and of the whole-image entries.

#include "core/command_scope.h"

namespace tiffgate {

CommandHandler handle_read_encoded_strip, handle_read_encoded_tile, handle_read_rgba_image,
    handle_read_rgba_strip, handle_read_rgba_tile, handle_write_encoded_strip,
    handle_write_encoded_tile, handle_compute_strip, handle_compute_tile, handle_read_image,
    handle_write_image;

}  // namespace tiffgate
