#include "files/files.h"
#include "gateway/convert.h"
#include "gateway/errors.h"
#include "gateway/handlers.h"

#include <tiffio.h>

namespace tiffgate {

TG_HANDLER(handle_current_directory) {
  // Counted from 1 and kept in 16 bits, so libtiff's 65535 reads as 0.
  const auto number = static_cast<std::uint16_t>(TIFFCurrentDirectory(tif) + 1u);
  outputs[0] = zvCreateDoubleScalar(number);
}

TG_HANDLER(handle_last_directory) {
  outputs[0] = zvCreateLogicalScalar(TIFFLastDirectory(tif) != 0);
}

TG_HANDLER(handle_set_directory) {
  const std::uint16_t index = indexToUInt16(operands[1]);
  if (!TIFFSetDirectory(tif, index)) raise(Tiff::unableToChangeDir(detail::Int{index} + 1));
}

TG_HANDLER(handle_set_sub_directory) {
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

TG_HANDLER(handle_read_directory) {
  if (!TIFFReadDirectory(tif)) raise(Tiff::unableToReadDir());
}

// The kinds of the next two are crossed against their wording on purpose:
// callers match on these identifiers.
TG_HANDLER(handle_write_directory) {
  if (!TIFFWriteDirectory(tif)) raise(Tiff::unableToWriteCurrentDir());
}

TG_HANDLER(handle_rewrite_directory) {
  if (!TIFFRewriteDirectory(tif)) raise(Tiff::unableToWriteDir());
}

TG_HANDLER(handle_number_of_strips) {
  outputs[0] = zvCreateDoubleScalar(static_cast<std::uint32_t>(TIFFNumberOfStrips(tif)));
}

TG_HANDLER(handle_number_of_tiles) {
  outputs[0] = zvCreateDoubleScalar(static_cast<std::uint32_t>(TIFFNumberOfTiles(tif)));
}

TG_HANDLER(handle_is_tiled) {
  outputs[0] = zvCreateLogicalScalar(TIFFIsTiled(tif) == 1);
}

}  // namespace tiffgate
