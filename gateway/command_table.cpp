#include "gateway/command_table.h"

#include "core/errors.h"
#include "files/commands.h"
#include "imagedata/commands.h"
#include "tags/commands.h"

#include <tiffio.h>

namespace tiffgate {
namespace {

// The one command of no folder: it touches no file.
void handle_get_version(zvArray* outputs[], int, const zvArray*[], TIFF*) {
  outputs[0] = zvCreateString(TIFFGetVersion());
}

}  // namespace

const std::vector<CommandEntry>& command_table() {
  // Alphabetical but for "rewriteDirectory" before "retrieveMetadata".
  constexpr FileOperand kNone = FileOperand::none, kOpen = FileOperand::open,
                        kClosable = FileOperand::closable;
  static const std::vector<CommandEntry> table = {
      {"close", 1, 1, handle_close, kClosable},
      {"computeStrip", 2, 3, handle_compute_strip, kOpen},
      {"computeTile", 2, 3, handle_compute_tile, kOpen},
      {"currentDirectory", 1, 1, handle_current_directory, kOpen},
      {"getField", 2, 2, handle_get_field, kOpen},
      {"getVersion", 0, 0, handle_get_version, kNone},
      {"isTiled", 1, 1, handle_is_tiled, kOpen},
      {"lastDirectory", 1, 1, handle_last_directory, kOpen},
      {"numberOfStrips", 1, 1, handle_number_of_strips, kOpen},
      {"numberOfTiles", 1, 1, handle_number_of_tiles, kOpen},
      {"open", 2, 2, handle_open, kNone},
      {"readDirectory", 1, 1, handle_read_directory, kOpen},
      {"readEncodedStrip", 2, 2, handle_read_encoded_strip, kOpen},
      {"readEncodedTile", 2, 3, handle_read_encoded_tile, kOpen},
      {"readRGBAImage", 1, 1, handle_read_rgba_image, kOpen},
      {"readRGBAStrip", 2, 2, handle_read_rgba_strip, kOpen},
      {"readRGBATile", 3, 3, handle_read_rgba_tile, kOpen},
      {"rewriteDirectory", 1, 1, handle_rewrite_directory, kOpen},
      {"retrieveMetadata", 1, 1, handle_retrieve_metadata, kOpen},
      {"setDirectory", 2, 2, handle_set_directory, kOpen},
      {"setField", 3, 3, handle_set_field, kOpen},
      {"setSubDirectory", 2, 2, handle_set_sub_directory, kOpen},
      {"writeDirectory", 1, 1, handle_write_directory, kOpen},
      {"writeEncodedStrip", 3, 5, handle_write_encoded_strip, kOpen},
      {"writeEncodedTile", 3, 5, handle_write_encoded_tile, kOpen},
  };
  return table;
}

const std::vector<CommandEntry>& entry_table() {
  // Work that one command at a time cannot do well, for the hosts' own
  // functions (the Octave package's tiffgate_read and tiffgate_write).
  // Named so that nobody types them by accident; documented in README.md.
  static const std::vector<CommandEntry> table = {
      // (id [, threads [, region]]): the image of the current directory, or
      // [first last first last] rows and columns of it, L x W x S.
      {"__readImage__", 1, 3, handle_read_image, FileOperand::open},
      // (id, image, count): the first count chunks (Inf: all) cut from image.
      {"__writeImage__", 3, 3, handle_write_image, FileOperand::open},
      // (): the tag table's numbers and names.
      {"__tagNames__", 0, 0, handle_tag_names, FileOperand::none},
      // (id): the numbers of the tags the current directory holds.
      {"__listTags__", 1, 1, handle_list_tags, FileOperand::open},
      // (id, tag): a tag outside the table, as libtiff holds it.
      {"__tagValue__", 2, 2, handle_tag_value, FileOperand::open},
      // (id, tag, value): a text tag outside the table that libtiff knows,
      // or a compression scheme outside setField's list.
      {"__setTag__", 3, 3, handle_set_tag, FileOperand::open},
  };
  return table;
}

const CommandEntry& lookup_command(std::string_view word, int nOperands) {
  for (const auto* table : {&command_table(), &entry_table()}) {
    for (const CommandEntry& entry : *table) {
      if (entry.name == word) {
        if (nOperands < entry.minOperands || nOperands > entry.maxOperands)
          raise(validate::wrongNumberOfInputs());
        return entry;
      }
    }
  }
  raise(Tiff::InvalidOperation(std::string(word)));
}

}  // namespace tiffgate
