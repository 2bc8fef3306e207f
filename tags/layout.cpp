#include "tags/layout.h"

#include "core/errors.h"
#include "tags/tag_read.h"

#include <tiffio.h>

namespace tiffgate {

void readImageLayout(TIFF* tif, ImageLayout& layout, bool photometric_required) {
  layout.tif = tif;
  get_tag_checked(tif, TIFFTAG_IMAGELENGTH, "ImageLength", &layout.imageLength);
  get_tag_checked(tif, TIFFTAG_IMAGEWIDTH, "ImageWidth", &layout.imageWidth);
  if (TIFFIsTiled(tif)) {
    layout.isTiled = true;
    layout.rowsPerStrip = 0;
    get_tag_checked(tif, TIFFTAG_TILELENGTH, "TileLength", &layout.tileLength);
    get_tag_checked(tif, TIFFTAG_TILEWIDTH, "TileWidth", &layout.tileWidth);
    layout.chunkWidth = layout.tileWidth;
    layout.chunkLength = layout.tileLength;
  } else {
    layout.isTiled = false;
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &layout.rowsPerStrip);
    // libtiff's default for an absent RowsPerStrip is the largest 32-bit
    // value; clamping makes it read back as the image length.
    if (layout.rowsPerStrip > layout.imageLength) layout.rowsPerStrip = layout.imageLength;
    layout.tileLength = 0;
    layout.tileWidth = 0;
    layout.chunkLength = layout.rowsPerStrip;
    layout.chunkWidth = layout.imageWidth;
  }
  if (photometric_required)
    get_tag_checked(tif, TIFFTAG_PHOTOMETRIC, "PhotometricInterpretation", &layout.photometric);
  else if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &layout.photometric))
    layout.photometric = PHOTOMETRIC_MINISBLACK;

  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &layout.bitsPerSample);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &layout.samplesPerPixel);
  TIFFGetFieldDefaulted(tif, TIFFTAG_IMAGEDEPTH, &layout.imageDepth);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &layout.sampleFormat);
  TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &layout.compression);

  layout.samplesPerChunk = layout.samplesPerPixel;
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &layout.planarConfiguration);
  if (layout.planarConfiguration == PLANARCONFIG_SEPARATE)
    layout.samplesPerChunk = 1;
  else if (layout.planarConfiguration != PLANARCONFIG_CONTIG)
    raise(Tiff::illegalPlanarConfiguration(layout.planarConfiguration));

  std::uint16_t* extra = nullptr;
  if (!TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &layout.numExtraSamples, &extra)) layout.numExtraSamples = 0;

  layout.jpegColorMode = 0;
  if (layout.photometric == PHOTOMETRIC_YCBCR) {
    TIFFGetFieldDefaulted(tif, TIFFTAG_YCBCRSUBSAMPLING, &layout.ycbcrSubsampling[0],
                          &layout.ycbcrSubsampling[1]);
    // JPEGColorMode takes one int; the second destination is never written.
    if (layout.compression == COMPRESSION_JPEG)
      TIFFGetField(tif, TIFFTAG_JPEGCOLORMODE, &layout.jpegColorMode, &layout.jpegColorMode);
  }
  if (is_log_luv(layout.photometric))
    get_tag_checked(tif, TIFFTAG_SGILOGDATAFMT, "SgiLogDataFmt", &layout.sgiLogDataFmt);

  layout.mode = TIFFGetMode(tif);
}

}  // namespace tiffgate
