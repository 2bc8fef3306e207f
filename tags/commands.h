#pragma once
/// The handlers of "getField", "setField" and "retrieveMetadata", and of
/// the hosts' tag entries.

#include "core/command_scope.h"

namespace tiffgate {

CommandHandler handle_get_field, handle_set_field, handle_retrieve_metadata, handle_tag_names, handle_list_tags,
    handle_tag_value, handle_set_tag;

}  // namespace tiffgate
