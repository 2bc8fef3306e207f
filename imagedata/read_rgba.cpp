#include "core/convert.h"
#include "core/errors.h"
#include "imagedata/commands.h"
#include "tags/layout.h"
#include "core/memory_limit.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace tiffgate {
namespace {

using detail::Int;

/// Whether a raster of width x length fits in memory (see memory_limit.h)
/// together with the buffer of one strip or tile that libtiff's RGBA reader
/// allocates for itself; what does not is refused with the command's read
/// error before libtiff is asked.
bool raster_fits(TIFF* tif, std::uint32_t width, std::uint32_t length) {
  const tmsize_t chunk = TIFFIsTiled(tif) ? TIFFTileSize(tif) : TIFFStripSize(tif);
  const std::uint64_t raster = saturating_product({4, width, length}), limit = memory_limit();
  return raster <= limit && static_cast<std::uint64_t>(std::max<tmsize_t>(chunk, 0)) <= limit - raster;
}

/// A uint8 array of 4 x width x length: column-major, its memory is exactly
/// libtiff's packed raster of width x length 32-bit words.
zvArray* create_raster(std::uint32_t width, std::uint32_t length) {
  const std::size_t dims[3] = {4, width, length};
  return zvCreateUninitNumericArray(3, dims, zvUINT8_CLASS);
}

std::uint32_t* raster_words(zvArray* raster) { return static_cast<std::uint32_t*>(zvGetData(raster)); }

}  // namespace

void handle_read_rgba_image(zvArray* outputs[], int, const zvArray*[], TIFF* tif) {
  const ImageLayout layout = readImageLayout(tif);
  if (!raster_fits(tif, layout.imageWidth, layout.imageLength)) raise(Tiff::imageReadErrorRGBA());
  zvArray* raster = create_raster(layout.imageWidth, layout.imageLength);
  if (!TIFFReadRGBAImage(tif, layout.imageWidth, layout.imageLength, raster_words(raster), 0))
    raise(Tiff::imageReadErrorRGBA());
  outputs[0] = raster;
}

void handle_read_rgba_strip(zvArray* outputs[], int, const zvArray* operands[], TIFF* tif) {
  const ImageLayout layout = readImageLayout(tif);
  if (TIFFIsTiled(tif)) raise(Tiff::strippedOperationOnTiledImage());

  const std::uint32_t row = indexToUInt32(operands[1]);
  const std::uint32_t perStrip = layout.rowsPerStrip;  // already at most the image length
  const std::uint32_t first = perStrip == 0 ? 0 : row / perStrip * perStrip;
  if (!raster_fits(tif, layout.imageWidth, perStrip)) raise(Tiff::stripReadErrorRGBA(Int{first} + 1));
  zvArray* raster = create_raster(layout.imageWidth, perStrip);
  // libtiff reads ImageLength - first rows; a first row outside the image is
  // refused here, as libtiff refuses it, so that no libtiff version can take
  // a wrapped-around row count.
  if (first >= layout.imageLength || !TIFFReadRGBAStrip(tif, first, raster_words(raster)))
    raise(Tiff::stripReadErrorRGBA(Int{first} + 1));
  // The last strip of an image fills only its rows inside the image; the
  // rest of the raster is left zero rather than undefined.
  const std::size_t filled = std::min(perStrip, layout.imageLength - first);
  std::memset(raster_words(raster) + filled * layout.imageWidth, 0,
              (perStrip - filled) * std::size_t{layout.imageWidth} * 4);
  outputs[0] = raster;
}

void handle_read_rgba_tile(zvArray* outputs[], int, const zvArray* operands[], TIFF* tif) {
  const ImageLayout layout = readImageLayout(tif);
  if (!TIFFIsTiled(tif)) raise(Tiff::tiledOperationOnStrippedImage());

  const std::uint32_t column = indexToUInt32(operands[1]);
  const std::uint32_t row = indexToUInt32(operands[2]);
  const std::uint32_t x0 = layout.tileWidth == 0 ? 0 : column / layout.tileWidth * layout.tileWidth;
  const std::uint32_t y0 = layout.tileLength == 0 ? 0 : row / layout.tileLength * layout.tileLength;
  // A directory being written can be tiled with one tile dimension still
  // unset; libtiff's RGBA tile reader divides by it.
  if (layout.tileWidth == 0 || layout.tileLength == 0 || !raster_fits(tif, layout.tileWidth, layout.tileLength))
    raise(Tiff::tileReadErrorRGBA(Int{y0} + 1, Int{x0} + 1));
  zvArray* raster = create_raster(layout.tileWidth, layout.tileLength);
  // As for strips: an origin outside the image is refused before libtiff
  // could take a wrapped-around extent.
  if (x0 >= layout.imageWidth || y0 >= layout.imageLength ||
      !TIFFReadRGBATile(tif, x0, y0, raster_words(raster)))
    raise(Tiff::tileReadErrorRGBA(Int{y0} + 1, Int{x0} + 1));
  outputs[0] = raster;
}

}  // namespace tiffgate
