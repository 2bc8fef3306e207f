#include "files/files.h"

#include <tiffio.h>

#include <iterator>

namespace tiffgate {
namespace {

// libtiff's field bit for custom fields.
constexpr unsigned short kCustomFieldBit = FIELD_CUSTOM;

// Kept in this order (not sorted by tag). The text tags have no passed
// count: they are set and read as NUL-terminated text.
const TIFFFieldInfo kGeoTiffFields[] = {
    {33550, -1, -1, TIFF_DOUBLE, kCustomFieldBit, 1, 1, const_cast<char*>("ModelPixelScaleTag")},
    {34264, -1, -1, TIFF_DOUBLE, kCustomFieldBit, 1, 1, const_cast<char*>("ModelTransformationTag")},
    {33922, -1, -1, TIFF_DOUBLE, kCustomFieldBit, 1, 1, const_cast<char*>("ModelTiepointTag")},
    {34735, -1, -1, TIFF_SHORT, kCustomFieldBit, 1, 1, const_cast<char*>("GeoKeyDirectoryTag")},
    {34736, -1, -1, TIFF_DOUBLE, kCustomFieldBit, 1, 1, const_cast<char*>("GeoDoubleParamsTag")},
    {34737, -1, -1, TIFF_ASCII, kCustomFieldBit, 1, 0, const_cast<char*>("GeoASCIIParamsTag")},
    // Private tags of geospatial writers, which GeoTIFF files carry beside
    // the GeoTIFF tags: metadata as XML, and the value of no data as text.
    {42112, -1, -1, TIFF_ASCII, kCustomFieldBit, 1, 0, const_cast<char*>("GDAL_METADATA")},
    {42113, -1, -1, TIFF_ASCII, kCustomFieldBit, 1, 0, const_cast<char*>("GDAL_NODATA")},
};

bool install_needed = true;
TIFFExtendProc previous_extender = nullptr;

void extend(TIFF* tif) {
  TIFFMergeFieldInfo(tif, kGeoTiffFields, static_cast<uint32_t>(std::size(kGeoTiffFields)));
  // An extender installed before ours still runs, after our tags are merged.
  if (previous_extender) previous_extender(tif);
}

}  // namespace

void installTagExtender() {
  if (!install_needed) return;
  install_needed = false;
  previous_extender = TIFFSetTagExtender(extend);
}

}  // namespace tiffgate
