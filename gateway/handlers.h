#pragma once
/// The handler of every command, one per row of the command table.

#include "gateway/command_table.h"

/// Declares or defines a handler; a handler may leave any parameter unused.
#define TG_HANDLER(name)                                                                     \
  void name([[maybe_unused]] int nOutputs, [[maybe_unused]] zvArray* outputs[],             \
            [[maybe_unused]] int nOperands, [[maybe_unused]] const zvArray* operands[],     \
            [[maybe_unused]] TIFF* tif)

namespace tiffgate {

TG_HANDLER(handle_get_version);
// files/
TG_HANDLER(handle_open);
TG_HANDLER(handle_close);
TG_HANDLER(handle_current_directory);
TG_HANDLER(handle_last_directory);
TG_HANDLER(handle_set_directory);
TG_HANDLER(handle_set_sub_directory);
TG_HANDLER(handle_read_directory);
TG_HANDLER(handle_write_directory);
TG_HANDLER(handle_rewrite_directory);
TG_HANDLER(handle_number_of_strips);
TG_HANDLER(handle_number_of_tiles);
TG_HANDLER(handle_is_tiled);
// tags/
TG_HANDLER(handle_get_field);
TG_HANDLER(handle_set_field);
TG_HANDLER(handle_retrieve_metadata);
// imagedata/
TG_HANDLER(handle_read_encoded_strip);
TG_HANDLER(handle_read_encoded_tile);
TG_HANDLER(handle_read_rgba_image);
TG_HANDLER(handle_read_rgba_strip);
TG_HANDLER(handle_read_rgba_tile);
TG_HANDLER(handle_write_encoded_strip);
TG_HANDLER(handle_write_encoded_tile);
TG_HANDLER(handle_compute_strip);
TG_HANDLER(handle_compute_tile);

}  // namespace tiffgate
