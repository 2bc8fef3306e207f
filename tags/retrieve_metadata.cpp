// "retrieveMetadata": the layout record of the current directory as one
// host structure, for a host-side reader to plan its reads with.

#include "core/errors.h"
#include "tags/commands.h"
#include "tags/layout.h"

#include <tiffio.h>

#include <iterator>
#include <utility>

namespace tiffgate {

void handle_retrieve_metadata(zvArray* outputs[], int, const zvArray*[], TIFF* tif) {
  const ImageLayout layout = readImageLayout(tif);

  // Created in this order; the host shows them so.
  const char* fields[] = {
      "BitsPerSample", "Compression", "ImageDepth", "ImageLength", "ImageWidth", "JPEGColorMode",
      "PhotometricInterpretation", "PlanarConfiguration", "RowsPerStrip", "SampleFormat",
      "SamplesPerPixel", "TileLength", "TileWidth", "YCbCrSubsampling", "isTiled", "numExtraSamples"};
  zvArray* metadata = zvCreateStructMatrix(1, 1, static_cast<int>(std::size(fields)), fields);

  const std::pair<const char*, double> scalars[] = {
      {"BitsPerSample", layout.bitsPerSample},
      {"Compression", layout.compression},
      {"ImageDepth", layout.imageDepth},
      {"ImageLength", layout.imageLength},
      {"ImageWidth", layout.imageWidth},
      {"JPEGColorMode", layout.jpegColorMode},
      {"PhotometricInterpretation", layout.photometric},
      {"PlanarConfiguration", layout.planarConfiguration},
      {"RowsPerStrip", layout.rowsPerStrip},
      {"SampleFormat", layout.sampleFormat},
      {"SamplesPerPixel", layout.samplesPerPixel},
      {"TileWidth", layout.tileWidth},
      {"TileLength", layout.tileLength},
  };
  for (const auto& [name, value] : scalars) zvSetField(metadata, 0, name, zvCreateDoubleScalar(value));

  // Subsampling means something for YCbCr only; otherwise it is empty.
  zvArray* subsampling = nullptr;
  if (layout.photometric == PHOTOMETRIC_YCBCR) {
    const std::size_t dims[2] = {1, 2};
    subsampling = zvCreateNumericArray(2, dims, zvDOUBLE_CLASS);
    auto* data = static_cast<double*>(zvGetData(subsampling));
    data[0] = layout.ycbcrSubsampling[0];
    data[1] = layout.ycbcrSubsampling[1];
  } else {
    subsampling = zvCreateNumericArray(0, nullptr, zvDOUBLE_CLASS);
  }
  zvSetField(metadata, 0, "YCbCrSubsampling", subsampling);
  zvSetField(metadata, 0, "isTiled", zvCreateLogicalScalar(layout.isTiled));
  zvSetField(metadata, 0, "numExtraSamples", zvCreateDoubleScalar(layout.numExtraSamples));
  outputs[0] = metadata;
}

}  // namespace tiffgate
