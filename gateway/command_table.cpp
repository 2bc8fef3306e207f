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
  // Alphabetical but for "rewriteDirectory" before "retrieveMetadata"; code 4
  // is unused.
  constexpr FileOperand kNone = FileOperand::none, kOpen = FileOperand::open,
                        kClosable = FileOperand::closable;
  static const std::vector<CommandEntry> table = {
      {0, 1, 1, "close", "TIFFClose", handle_close, kClosable},
      {1, 2, 3, "computeStrip", "TIFFComputeStrip", handle_compute_strip, kOpen},
      {2, 2, 3, "computeTile", "TIFFComputeTile", handle_compute_tile, kOpen},
      {3, 1, 1, "currentDirectory", "TIFFCurrentDirectory", handle_current_directory, kOpen},
      {5, 2, 2, "getField", "TIFFGetField", handle_get_field, kOpen},
      {6, 0, 0, "getVersion", "TIFFGetVersion", handle_get_version, kNone},
      {7, 1, 1, "isTiled", "TIFFIsTiled", handle_is_tiled, kOpen},
      {8, 1, 1, "lastDirectory", "TIFFLastDirectory", handle_last_directory, kOpen},
      {9, 1, 1, "numberOfStrips", "TIFFNumberOfStrips", handle_number_of_strips, kOpen},
      {10, 1, 1, "numberOfTiles", "TIFFNumberOfTiles", handle_number_of_tiles, kOpen},
      {11, 2, 2, "open", "TIFFOpen", handle_open, kNone},
      {12, 1, 1, "readDirectory", "TIFFReadDirectory", handle_read_directory, kOpen},
      {13, 2, 2, "readEncodedStrip", "TIFFReadEncodedStrip", handle_read_encoded_strip, kOpen},
      {14, 2, 3, "readEncodedTile", "TIFFReadEncodedTile", handle_read_encoded_tile, kOpen},
      {15, 1, 1, "readRGBAImage", "TIFFReadRGBAImage", handle_read_rgba_image, kOpen},
      {16, 2, 2, "readRGBAStrip", "TIFFReadRGBAStrip", handle_read_rgba_strip, kOpen},
      {17, 3, 3, "readRGBATile", "TIFFReadRGBATile", handle_read_rgba_tile, kOpen},
      {18, 1, 1, "rewriteDirectory", "TIFFRewriteDirectory", handle_rewrite_directory, kOpen},
      {19, 1, 1, "retrieveMetadata", "retrieveMetadata", handle_retrieve_metadata, kOpen},
      {20, 2, 2, "setDirectory", "TIFFSetDirectory", handle_set_directory, kOpen},
      {21, 3, 3, "setField", "TIFFSetField", handle_set_field, kOpen},
      {22, 2, 2, "setSubDirectory", "TIFFSetSubDirectory", handle_set_sub_directory, kOpen},
      {23, 1, 1, "writeDirectory", "TIFFWriteDirectory", handle_write_directory, kOpen},
      {24, 3, 5, "writeEncodedStrip", "TIFFWriteEncodedStrip", handle_write_encoded_strip, kOpen},
      {25, 3, 5, "writeEncodedTile", "TIFFWriteEncodedTile", handle_write_encoded_tile, kOpen},
  };
  return table;
}

const CommandEntry& lookup_command(std::string_view word, int nOperands) {
  for (const CommandEntry& entry : command_table()) {
    if (entry.name == word) {
      if (nOperands < entry.minOperands || nOperands > entry.maxOperands)
        raise(validate::wrongNumberOfInputs());
      return entry;
    }
  }
  raise(Tiff::InvalidOperation(std::string(word)));
}

}  // namespace tiffgate
