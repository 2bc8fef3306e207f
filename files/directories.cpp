#include "files/files.h"
#include "core/convert.h"
#include "core/errors.h"
#include "files/commands.h"

#include <tiffio.h>

namespace tiffgate {

void handle_current_directory(zvArray* outputs[], int, const zvArray*[], TIFF* tif) {
  // Counted from 1 and kept in 16 bits, so libtiff's 65535 reads as 0.
  const auto number = static_cast<std::uint16_t>(TIFFCurrentDirectory(tif) + 1u);
  outputs[0] = zvCreateDoubleScalar(number);
}

void handle_last_directory(zvArray* outputs[], int, const zvArray*[], TIFF* tif) {
  outputs[0] = zvCreateLogicalScalar(TIFFLastDirectory(tif) != 0);
}

void handle_set_directory(zvArray*[], int, const zvArray* operands[], TIFF* tif) {
  const std::uint16_t index = indexToUInt16(operands[1]);
  if (!TIFFSetDirectory(tif, index)) raise(Tiff::unableToChangeDir(detail::Int{index} + 1));
}

void handle_set_sub_directory(zvArray*[], int, const zvArray* operands[], TIFF* tif) {
  const std::uint64_t offset = offsetToUInt64(operands[1]);
  std::uint16_t count = 0;
  std::uint64_t* offsets = nullptr;
  if (!TIFFGetField(tif, TIFFTAG_SUBIFD, &count, &offsets) || count == 0 || offsets == nullptr)
    raise(Tiff::noSubDirectories());
  bool listed = false;
  for (std::uint16_t i = 0; i < count; ++i) listed = listed || offsets[i] == offset;
  // Only the offsets the current directory lists are followed: anything else
  // could point libtiff at arbitrary bytes of the file.
  if (!listed) raise(Tiff::noSuchSubDirectory());
  if (!TIFFSetSubDirectory(tif, offset))
    raise(Tiff::unableToChangeSubdir(static_cast<detail::Int>(offset)));
}

void handle_read_directory(zvArray*[], int, const zvArray*[], TIFF* tif) {
  if (!TIFFReadDirectory(tif)) raise(Tiff::unableToReadDir());
}

// The kinds of the next two are crossed against their wording on purpose:
// callers match on these identifiers.
void handle_write_directory(zvArray*[], int, const zvArray*[], TIFF* tif) {
  if (!TIFFWriteDirectory(tif)) raise(Tiff::unableToWriteCurrentDir());
}

void handle_rewrite_directory(zvArray*[], int, const zvArray*[], TIFF* tif) {
  if (!TIFFRewriteDirectory(tif)) raise(Tiff::unableToWriteDir());
}

void handle_number_of_strips(zvArray* outputs[], int, const zvArray*[], TIFF* tif) {
  outputs[0] = zvCreateDoubleScalar(static_cast<std::uint32_t>(TIFFNumberOfStrips(tif)));
}

void handle_number_of_tiles(zvArray* outputs[], int, const zvArray*[], TIFF* tif) {
  outputs[0] = zvCreateDoubleScalar(static_cast<std::uint32_t>(TIFFNumberOfTiles(tif)));
}

void handle_is_tiled(zvArray* outputs[], int, const zvArray*[], TIFF* tif) {
  outputs[0] = zvCreateLogicalScalar(TIFFIsTiled(tif) == 1);
}

}  // namespace tiffgate
