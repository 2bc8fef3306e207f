#pragma once
/// The handlers of "open", "close", the directory commands and the file queries.

#include "core/command_scope.h"

namespace tiffgate {

CommandHandler handle_open, handle_close, handle_current_directory, handle_last_directory,
    handle_set_directory, handle_set_sub_directory, handle_read_directory, handle_write_directory,
    handle_rewrite_directory, handle_number_of_strips, handle_number_of_tiles, handle_is_tiled;

}  // namespace tiffgate
