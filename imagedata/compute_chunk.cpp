#include "core/convert.h"
#include "core/errors.h"
#include "imagedata/commands.h"
#include "tags/layout.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdint>

namespace tiffgate {
namespace {

/// The sample operand (the third, after handle and position): required for
/// separate planes, refused for contiguous ones.
std::uint16_t sample_operand(int nOperands, const zvArray* operands[], const ImageLayout& layout) {
  if (nOperands < 3) {
    if (layout.planarConfiguration == PLANARCONFIG_SEPARATE) raise(Tiff::sampleParameterRequired());
    return 0;
  }
  if (layout.planarConfiguration == PLANARCONFIG_CONTIG) raise(Tiff::sampleParameterNotAllowedInChunkyCase());
  // Held to SamplesPerPixel itself, one past the last sample: libtiff
  // reports that one through its own error.
  return std::min(indexToUInt16(operands[2]), layout.samplesPerPixel);
}

zvArray* one_based(std::uint32_t index) { return zvCreateDoubleScalar(static_cast<double>(index) + 1); }

}  // namespace

void handle_compute_strip(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif) {
  const ImageLayout layout = readImageLayout(tif);
  std::uint32_t row = indexToUInt32(operands[1]);
  if (row >= layout.imageLength) row = layout.imageLength - 1;  // the last row
  const std::uint16_t sample = sample_operand(nOperands, operands, layout);
  outputs[0] = one_based(TIFFComputeStrip(tif, row, sample));
}

void handle_compute_tile(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif) {
  const ImageLayout layout = readImageLayout(tif);
  auto [column, row] = rowColumnToUInt32Pair(operands[1]);
  const std::uint16_t sample = sample_operand(nOperands, operands, layout);
  // Unlike the strip's, this clamp goes to the dimension itself, one past
  // the last pixel; the difference is deliberate.
  column = std::min(column, layout.imageWidth);
  row = std::min(row, layout.imageLength);
  outputs[0] = one_based(TIFFComputeTile(tif, column, row, 0, sample));
}

}  // namespace tiffgate
