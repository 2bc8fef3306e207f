#pragma once
/// The facts of the current directory that every data command (and
/// "retrieveMetadata") needs, gathered in one pass.

#include <cstdint>

typedef struct tiff TIFF;

namespace tiffgate {

struct ImageLayout {
  TIFF* tif = nullptr;
  std::uint32_t rowsPerStrip = 0;  ///< clamped to imageLength; 0 when tiled
  std::uint32_t imageWidth = 0;
  std::uint32_t imageLength = 0;
  std::uint32_t tileWidth = 0;   ///< 0 when stripped
  std::uint32_t tileLength = 0;  ///< 0 when stripped
  std::uint32_t imageDepth = 0;
  std::uint16_t bitsPerSample = 0;
  std::uint16_t samplesPerPixel = 0;
  std::uint16_t planarConfiguration = 0;  ///< 1 contiguous, 2 separate
  std::uint16_t photometric = 0;
  std::uint16_t sampleFormat = 0;
  std::uint16_t compression = 0;
  std::uint16_t numExtraSamples = 0;
  std::int32_t sgiLogDataFmt = 0;  ///< read only for LogL and LogLuv images
  std::int32_t jpegColorMode = 0;  ///< read only for JPEG-compressed YCbCr
  std::uint32_t chunkWidth = 0;    ///< pixel width of one strip or tile
  std::uint32_t chunkLength = 0;   ///< pixel rows of one strip or tile
  std::uint16_t samplesPerChunk = 0;  ///< samplesPerPixel if contiguous, else 1
  bool isTiled = false;
  std::int32_t mode = 0;  ///< TIFFGetMode
  std::uint16_t ycbcrSubsampling[2] = {0, 0};  ///< horizontal, vertical; YCbCr only
};

/// LogL or LogLuv (32844, 32845): SamplesPerPixel and the sample type come
/// from the SGILogDataFmt codec setting, not from the tags.
constexpr bool is_log_luv(std::uint16_t photometric) { return photometric == 32844 || photometric == 32845; }

/// Fills layout from the current directory of tif, in a fixed order of
/// libtiff calls; raises tagRetrievalFailed or illegalPlanarConfiguration.
/// Without `photometric_required`, a directory without
/// PhotometricInterpretation reads as MinIsBlack, as libtiff's decoders,
/// which never look at it, read it.
void readImageLayout(TIFF* tif, ImageLayout& layout, bool photometric_required = true);

/// The same, returned by value.
inline ImageLayout readImageLayout(TIFF* tif, bool photometric_required = true) {
  ImageLayout layout;
  readImageLayout(tif, layout, photometric_required);
  return layout;
}

}  // namespace tiffgate
