#include "support/calls.h"

#include "support/raw_tiff.h"
#include "support/tiff_files.h"

namespace tiffgate::testing {

embedded::CallResult call_on_file(const std::string& path, const char* command,
                                  std::vector<embedded::Array> operands, const char* mode) {
  const embedded::Array id = open_file(path, mode);
  operands.insert(operands.begin(), id);
  embedded::CallResult result = embedded::call(command, std::move(operands));
  embedded::call("close", {id});
  return result;
}

void write_huge_images(const std::string& strip_path, const std::string& tile_path) {
  const std::uint32_t huge = 1000000;
  const std::vector<RawEntry> image = {{256, 4, huge}, {257, 4, huge}, {258, 3, 8}, {259, 3, COMPRESSION_ADOBE_DEFLATE},
                                       {262, 3, PHOTOMETRIC_MINISBLACK}, {277, 3, 1}};
  std::vector<RawEntry> strips = image, tiles = image;
  strips.insert(strips.end(), {{273, 4, 8}, {278, 4, huge}, {279, 4, 16}});
  tiles.insert(tiles.end(), {{322, 4, huge}, {323, 4, huge}, {324, 4, 8}, {325, 4, 16}});
  write_raw_tiff(strip_path, strips);
  write_raw_tiff(tile_path, tiles);
}

}  // namespace tiffgate::testing
