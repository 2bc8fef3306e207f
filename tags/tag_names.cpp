#include "tags/tag_names.h"

#include "core/errors.h"

#include <utility>
#include <vector>

namespace tiffgate {

const std::map<std::uint32_t, std::string>& TagNameTable() {
  static const std::map<std::uint32_t, std::string> table = [] {
    // Inserted in this order with unique keys: the repeated 344 is ignored.
    // The names are the ones callers see in error messages, odd spellings
    // ("Threshholding", "ICC Profile") included.
    const std::vector<std::pair<std::uint32_t, const char*>> pairs = {
      {254, "SubfileType"},
      {255, "OldSubfileType"},
      {256, "ImageWidth"},
      {257, "ImageLength"},
      {258, "BitsPerSample"},
      {259, "Compression"},
      {262, "PhotometricInterpretation"},
      {263, "Threshholding"},
      {264, "CellWidth"},
      {265, "CellLength"},
      {266, "FillOrder"},
      {269, "DocumentName"},
      {270, "ImageDescription"},
      {271, "Make"},
      {272, "Model"},
      {273, "StripOffsets"},
      {274, "Orientation"},
      {277, "SamplesPerPixel"},
      {278, "RowsPerStrip"},
      {279, "StripByteCounts"},
      {280, "MinSampleValue"},
      {281, "MaxSampleValue"},
      {282, "XResolution"},
      {283, "YResolution"},
      {284, "PlanarConfiguration"},
      {285, "PageName"},
      {286, "XPosition"},
      {287, "YPosition"},
      {288, "FreeOffsets"},
      {289, "FreeByteCounts"},
      {290, "GrayResponseUnit"},
      {291, "GrayResponseCurve"},
      {296, "ResolutionUnit"},
      {297, "PageNumber"},
      {300, "ColorResponseUnit"},
      {301, "TransferFunction"},
      {305, "Software"},
      {306, "DateTime"},
      {315, "Artist"},
      {316, "HostComputer"},
      {318, "WhitePoint"},
      {319, "PrimaryChromaticities"},
      {320, "ColorMap"},
      {321, "HalftoneHints"},
      {322, "TileWidth"},
      {323, "TileLength"},
      {324, "TileOffsets"},
      {325, "TileByteCounts"},
      {330, "SubIFD"},
      {332, "InkSet"},
      {333, "InkNames"},
      {334, "NumberOfInks"},
      {336, "DotRange"},
      {337, "TargetPrinter"},
      {338, "ExtraSamples"},
      {339, "SampleFormat"},
      {340, "SMinSampleValue"},
      {341, "SMaxSampleValue"},
      {343, "ClipPath"},
      {344, "XClipPathUnits"},
      {344, "XClipPathUnits"},
      {345, "YClipPathUnits"},
      {529, "YCbCrCoefficients"},
      {530, "YCbCrSubsampling"},
      {531, "YCbCrPositioning"},
      {532, "ReferenceBlackWhite"},
      {700, "XMLPacket"},
      {32995, "Matteing"},
      {32996, "DataType"},
      {32997, "ImageDepth"},
      {32998, "TileDepth"},
      {33300, "ImageFullWidth"},
      {33301, "ImageFullLength"},
      {33302, "TextureFormat"},
      {33303, "TextureWrapModes"},
      {33304, "FieldOfViewCotangent"},
      {33305, "MatrixWorldToScreen"},
      {33306, "MatrixWorldToCamera"},
      {33432, "Copyright"},
      {33723, "RichTIFFIPTC"},
      {34377, "Photoshop"},
      {34665, "EXIFIFDOffset"},
      {34675, "ICC Profile"},
      {34853, "GPSIFDOffset"},
      {34908, "FaxRecvParams"},
      {34909, "FaxSubAddress"},
      {34910, "FaxRecvTime"},
      {34911, "FaxDcs"},
      {37439, "StoNits"},
      {40965, "InteroperabilityIFDOffset"},
      {33550, "ModelPixelScaleTag"},
      {34264, "ModelTransformationTag"},
      {33922, "ModelTiepointTag"},
      {34735, "GeoKeyDirectoryTag"},
      {34736, "GeoDoubleParamsTag"},
      {34737, "GeoASCIIParamsTag"},
      {65560, "SGILogDataFmt"},
      {65538, "JPEGColorMode"},
      {65557, "ZIPQuality"},
      {292, "Group3Options"},
      {65537, "JPEGQuality"},
      {317, "Predictor"},
      {293, "Group4Options"},
    };
    std::map<std::uint32_t, std::string> map;
    for (const auto& [tag, name] : pairs) map.emplace(tag, name);
    return map;
  }();
  return table;
}

std::string tagName(std::uint32_t tag) {
  const auto& table = TagNameTable();
  const auto it = table.find(tag);
  if (it == table.end()) raise(Tiff::unrecognizedTagNumber(static_cast<detail::Int>(tag)));
  return it->second;
}

}  // namespace tiffgate
