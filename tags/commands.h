#pragma once
/// The handlers of "getField", "setField" and "retrieveMetadata".

#include "core/command_scope.h"

namespace tiffgate {

CommandHandler handle_get_field, handle_set_field, handle_retrieve_metadata;

}  // namespace tiffgate
