#include "tags/tag_table.h"

#include "core/errors.h"
#include "tags/tag_checks.h"
#include "tags/tag_forms.h"

#include <algorithm>
#include <iterator>

namespace tiffgate {
namespace {

using namespace detail;

// In ascending tag order. The names are the ones callers see in error
// messages, odd spellings ("Threshholding", "ICC Profile") included. A tag
// with no reader is refused by getField with unhandledTagId; one with no
// writer is refused by setField as unrecognized (StripOffsets, the offset
// tags and the like are not settable).
const TagRow kTags[] = {
    {254, "SubfileType", read_u32_defaulted, 0, write_u32},
    {255, "OldSubfileType"},
    {256, "ImageWidth", read_u32, 0, write_dimension},
    {257, "ImageLength", read_u32, 0, write_dimension},
    {258, "BitsPerSample", read_u16_defaulted, 0, set_bits_per_sample},
    {259, "Compression", read_u16_defaulted, 0, set_compression},
    {262, "PhotometricInterpretation", read_u16, 0, set_photometric},
    {263, "Threshholding", read_u16, 0, set_threshholding, "Thresholding"},
    {264, "CellWidth"},
    {265, "CellLength"},
    {266, "FillOrder", read_u16, 0, write_u16},
    {269, "DocumentName", read_text, 0, write_text},
    {270, "ImageDescription", read_text, 0, write_text},
    {271, "Make", read_text, 0, write_text},
    {272, "Model", read_text, 0, write_text},
    {273, "StripOffsets", read_strip_array},
    {274, "Orientation", read_u16_defaulted, 0, write_u16},
    {277, "SamplesPerPixel", read_u16_defaulted, 0, set_samples_per_pixel},
    {278, "RowsPerStrip", read_u32_defaulted, 0, write_dimension},
    {279, "StripByteCounts", read_strip_array},
    {280, "MinSampleValue", read_u16_defaulted, 0, write_u16},
    {281, "MaxSampleValue", read_u16_defaulted, 0, write_u16},
    {282, "XResolution", read_float, 0, write_float1},
    {283, "YResolution", read_float, 0, write_float1},
    {284, "PlanarConfiguration", read_planar_configuration, 0, set_planar_configuration},
    {285, "PageName", read_text, 0, write_text},
    {286, "XPosition", read_float, 0, write_float1},
    {287, "YPosition", read_float, 0, write_float1},
    {288, "FreeOffsets"},
    {289, "FreeByteCounts"},
    {290, "GrayResponseUnit"},
    {291, "GrayResponseCurve"},
    {292, "Group3Options", read_u32, 0, write_u32},
    {293, "Group4Options", read_u32, 0, write_u32},
    {296, "ResolutionUnit", read_u16_defaulted, 0, write_u16},
    {297, "PageNumber", read_pair, 0, write_pair16},
    {300, "ColorResponseUnit"},
    {301, "TransferFunction", read_transfer_function, 0, set_transfer_function},
    {305, "Software", read_text, 0, write_text},
    {306, "DateTime", read_text, 19, write_date_time},
    {315, "Artist", read_text, 0, write_text},
    {316, "HostComputer", read_text, 0, write_text},
    {317, "Predictor", read_u16, 0, write_u16},
    {318, "WhitePoint", read_rational_vector, 2, set_white_point},
    {319, "PrimaryChromaticities", read_rational_vector, 6, set_primary_chromaticities},
    {320, "ColorMap", read_color_map, 0, set_color_map},
    {321, "HalftoneHints", read_pair, 0, write_pair16},
    {322, "TileWidth", read_u32, 0, write_tile_dimension},
    {323, "TileLength", read_u32, 0, write_tile_dimension},
    {324, "TileOffsets", read_tile_array},
    {325, "TileByteCounts", read_tile_array},
    {330, "SubIFD", read_u64_row, 0, write_sub_ifds},
    {332, "InkSet", read_u16, 0, write_u16, nullptr, kSeparated},
    {333, "InkNames", read_ink_names, 0, set_ink_names, nullptr, kSeparated},
    {334, "NumberOfInks", read_u16_defaulted, 0, set_number_of_inks, nullptr, kSeparated},
    {336, "DotRange", read_pair, 0, write_pair16, "DotRange", kSeparated},
    {337, "TargetPrinter", read_text, 0, write_text, nullptr, kSeparated},
    {338, "ExtraSamples", read_u16_row, 0, write_counted16},
    {339, "SampleFormat", read_u16_defaulted, 0, set_sample_format},
    {340, "SMinSampleValue", read_double, 0, set_sample_min_max, nullptr, kUnchecked},
    {341, "SMaxSampleValue", read_double, 0, set_sample_min_max, nullptr, kUnchecked},
    {343, "ClipPath"},
    {344, "XClipPathUnits"},
    {345, "YClipPathUnits"},
    {529, "YCbCrCoefficients", read_rational_vector, 3, write_floats},
    {530, "YCbCrSubsampling", read_pair_defaulted, 0, write_pair16},
    {531, "YCbCrPositioning", read_u16, 0, write_u16},
    {532, "ReferenceBlackWhite", read_rational_vector, 6, set_reference_black_white},
    {700, "XMLPacket", read_byte_text, 5, write_xml_packet, "XMP"},
    {32995, "Matteing", read_unsupported, 0, write_unsupported},
    {32996, "DataType", read_unsupported, 0, write_unsupported},
    {32997, "ImageDepth", read_u32_defaulted, 0, write_unsupported},
    {32998, "TileDepth", read_unsupported, 0, write_unsupported},
    {33300, "ImageFullWidth"},
    {33301, "ImageFullLength"},
    {33302, "TextureFormat"},
    {33303, "TextureWrapModes"},
    {33304, "FieldOfViewCotangent"},
    {33305, "MatrixWorldToScreen"},
    {33306, "MatrixWorldToCamera"},
    {33432, "Copyright", read_text, 0, write_text},
    {33550, "ModelPixelScaleTag", read_double_row, 3, write_doubles, "GeoPixelScale"},
    {33723, "RichTIFFIPTC", read_byte_block, 0, write_bytes},
    {33922, "ModelTiepointTag", read_double_records, 6, write_double_records},
    {34264, "ModelTransformationTag", read_double_row, 16, write_doubles, "ModelTransformation"},
    {34377, "Photoshop", read_byte_block, 7, write_bytes, "Photoshop"},
    {34665, "EXIFIFDOffset"},
    {34675, "ICC Profile", read_byte_block, 0, write_bytes},
    {34735, "GeoKeyDirectoryTag", read_u16_records, 4, write_u16_records},
    {34736, "GeoDoubleParamsTag", read_double_row, 0, write_doubles},
    {34737, "GeoASCIIParamsTag", read_text, 0, write_text},
    {34853, "GPSIFDOffset"},
    {34908, "FaxRecvParams"},
    {34909, "FaxSubAddress"},
    {34910, "FaxRecvTime"},
    {34911, "FaxDcs"},
    {37439, "StoNits", read_double, 0, write_double1},
    {40965, "InteroperabilityIFDOffset"},
    {65537, "JPEGQuality", read_u32, 0, write_u32, nullptr, kWhileReading},
    {65538, "JPEGColorMode", nullptr, 0, write_u32, nullptr, kWhileReading},
    {65557, "ZIPQuality", read_u32, 0, write_u32, nullptr, kWhileReading},
    {65560, "SGILogDataFmt", read_u32, 0, set_sgi_log_data_fmt, nullptr, kWhileReading},
};

}  // namespace

const TagRow* find_tag(std::uint32_t tag) {
  const auto* row = std::lower_bound(std::begin(kTags), std::end(kTags), tag,
                                     [](const TagRow& r, std::uint32_t t) { return r.number < t; });
  return row != std::end(kTags) && row->number == tag ? row : nullptr;
}

const std::map<std::uint32_t, std::string>& TagNameTable() {
  static const std::map<std::uint32_t, std::string> table = [] {
    std::map<std::uint32_t, std::string> map;
    for (const TagRow& row : kTags) map.emplace(row.number, row.name);
    return map;
  }();
  return table;
}

std::string tagName(std::uint32_t tag) {
  const TagRow* row = find_tag(tag);
  if (row == nullptr) raise(Tiff::unrecognizedTagNumber(static_cast<detail::Int>(tag)));
  return row->name;
}

}  // namespace tiffgate
