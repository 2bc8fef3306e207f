// "getField" against files written with libtiff directly: every retrieval
// form, the defaults of absent tags, and every error of the command.

#include "files/files.h"
#include "support/tag_files.h"
#include "support/tiff_files.h"
#include "tags/tag_read.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;
using embedded::CallResult;

CallResult get(const Array& id, double tag) { return call("getField", {id, num(tag)}); }

/// The elements of a numeric array in column-major order, as doubles.
std::vector<double> values_of(const Array& a) {
  std::vector<double> v;
  for (std::size_t i = 0; i < a.numel(); ++i) v.push_back(a.number(i));
  return v;
}

/// Checks class, dimensions and values of a getField result.
void expect_value(const CallResult& r, zvClassID cls, std::vector<std::size_t> dims,
                  const std::vector<double>& values, const std::string& what) {
  ASSERT_TRUE(r.ok()) << what << ": " << error_of(r);
  EXPECT_EQ(r.out().class_id(), cls) << what;
  EXPECT_EQ(r.out().dims(), dims) << what;
  EXPECT_EQ(values_of(r.out()), values) << what;
}

void expect_scalar(const CallResult& r, double value, const std::string& what) {
  expect_value(r, zvDOUBLE_CLASS, {1, 1}, {value}, what);
}

std::vector<std::uint8_t> bytes(std::initializer_list<int> list) {
  return std::vector<std::uint8_t>(list.begin(), list.end());
}

// One directory holding a value for nearly every form: 8 x 4 RGBA, 8 bits,
// two strips of two rows, uncompressed.
void write_forms_file(const std::string& path) {
  installTagExtender();  // the GeoTIFF tags, defined as the module defines them
  TiffHandle out(path, "w");
  set_basic_tags(out, 8, 4, 8, 4, 2);
  const std::uint16_t extra[] = {EXTRASAMPLE_UNASSALPHA};
  TIFFSetField(out, TIFFTAG_EXTRASAMPLES, 1, extra);
  const std::pair<std::uint32_t, const char*> texts[] = {
      {269, "doc"}, {270, "caf\xc3\xa9"}, {271, "maker"}, {272, "model"}, {285, "page"},
      {305, "software"}, {306, "2024:01:02 03:04:05"}, {315, "artist"}, {316, "host"},
      {337, "printer"}, {33432, "(c)"}, {34737, "WGS 84|"}};
  for (const auto& [tag, text] : texts) TIFFSetField(out, tag, text);
  for (const auto& [tag, value] : {std::pair{263, 2}, {266, 1}, {332, 2}, {531, 2}, {274, 3},
                                   {280, 1}, {281, 254}, {296, 3}})
    TIFFSetField(out, tag, value);
  TIFFSetField(out, TIFFTAG_NUMBEROFINKS, 4);
  TIFFSetField(out, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
  TIFFSetField(out, TIFFTAG_IMAGEDEPTH, 3);
  for (const auto& [tag, value] : {std::pair{282, 72.5}, {283, 150.0}, {286, 1.5}, {287, 2.25}})
    TIFFSetField(out, tag, value);
  TIFFSetField(out, TIFFTAG_SMINSAMPLEVALUE, 3.0);
  TIFFSetField(out, TIFFTAG_SMAXSAMPLEVALUE, 250.0);
  TIFFSetField(out, TIFFTAG_STONITS, 1.5);
  TIFFSetField(out, TIFFTAG_PAGENUMBER, 1, 3);
  TIFFSetField(out, TIFFTAG_HALFTONEHINTS, 10, 240);
  TIFFSetField(out, TIFFTAG_DOTRANGE, 0, 255);
  const float white[] = {0.3127f, 0.329f};
  const float primaries[] = {0.64f, 0.33f, 0.3f, 0.6f, 0.15f, 0.06f};
  const float coefficients[] = {0.299f, 0.587f, 0.114f};
  const float reference[] = {0, 255, 128, 255, 128, 255};
  TIFFSetField(out, TIFFTAG_WHITEPOINT, white);
  TIFFSetField(out, TIFFTAG_PRIMARYCHROMATICITIES, primaries);
  TIFFSetField(out, TIFFTAG_YCBCRCOEFFICIENTS, coefficients);
  TIFFSetField(out, TIFFTAG_REFERENCEBLACKWHITE, reference);
  const char xmp[] = "<x>\xe9</x>";
  TIFFSetField(out, TIFFTAG_XMLPACKET, 8, xmp);
  const auto iptc = bytes({1, 2, 3, 250});
  const auto photoshop = bytes({'8', 'B', 'I', 'M', 0, 1, 2, 3});
  const auto icc = bytes({0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
  TIFFSetField(out, TIFFTAG_RICHTIFFIPTC, 4, iptc.data());
  TIFFSetField(out, TIFFTAG_PHOTOSHOP, 8, photoshop.data());
  TIFFSetField(out, TIFFTAG_ICCPROFILE, 10, icc.data());
  const std::uint16_t keys[] = {1, 1, 0, 1, 1024, 0, 1, 2};
  const double scale[] = {1, 2, 0};
  const double tiepoints[] = {0, 0, 0, 10, 20, 0, 1, 1, 0, 11, 21, 0};
  double transformation[16] = {};
  for (int i = 0; i < 16; ++i) transformation[i] = i + 0.5;
  const double params[] = {6378137, 298.257223563};
  TIFFSetField(out, 34735, 8, keys);
  TIFFSetField(out, 33550, 3, scale);
  TIFFSetField(out, 33922, 12, tiepoints);
  TIFFSetField(out, 34264, 16, transformation);
  TIFFSetField(out, 34736, 2, params);
  write_chunks(out, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
}

TEST(get_field, every_form_reads_what_libtiff_wrote) {
  ScratchDir dir;
  const std::string path = dir.path("forms.tif");
  write_forms_file(path);
  const Array id = open_file(path);

  // A: texts, the bytes of a UTF-8 text shown as its characters.
  EXPECT_EQ(get(id, 270).out().utf16(), u"caf\u00e9");
  EXPECT_EQ(get(id, 270).out().dims(), (std::vector<std::size_t>{1, 4}));
  for (const auto& [tag, text] : {std::pair{269, "doc"}, {271, "maker"}, {272, "model"}, {285, "page"},
                                  {305, "software"}, {306, "2024:01:02 03:04:05"}, {315, "artist"},
                                  {316, "host"}, {337, "printer"}, {33432, "(c)"}, {34737, "WGS 84|"}}) {
    const CallResult r = get(id, tag);
    ASSERT_TRUE(r.ok()) << tag << ": " << error_of(r);
    EXPECT_EQ(r.out().class_id(), zvCHAR_CLASS);
    EXPECT_EQ(r.out().utf8(), text) << tag;
  }
  // B to G: scalars, set ones and defaulted ones alike.
  for (const auto& [tag, value] :
       {std::pair{262, 2.0}, {263, 2.0}, {266, 1.0}, {332, 2.0}, {531, 2.0},                 // B
        {258, 8.0}, {259, 1.0}, {274, 3.0}, {277, 4.0}, {280, 1.0}, {281, 254.0}, {296, 3.0},  // C
        {334, 4.0}, {339, 1.0},                                                               // C
        {256, 8.0}, {257, 4.0},                                                               // D
        {254, 2.0}, {278, 2.0}, {32997, 3.0},                                                 // E
        {282, 72.5}, {283, 150.0}, {286, 1.5}, {287, 2.25},                                   // F
        {340, 3.0}, {341, 250.0}, {37439, 1.5}, {284, 1.0}})                                  // G
    expect_scalar(get(id, tag), value, "tag " + std::to_string(tag));
  // H, J, L and the GeoTIFF doubles.
  expect_value(get(id, 297), zvDOUBLE_CLASS, {1, 2}, {1, 3}, "PageNumber");
  expect_value(get(id, 321), zvDOUBLE_CLASS, {1, 2}, {10, 240}, "HalftoneHints");
  expect_value(get(id, 336), zvDOUBLE_CLASS, {1, 2}, {0, 255}, "DotRange");
  expect_value(get(id, 338), zvDOUBLE_CLASS, {1, 1}, {2}, "ExtraSamples");
  // One key per row: column-major, so the first column holds 1 and 1024.
  expect_value(get(id, 34735), zvDOUBLE_CLASS, {2, 4}, {1, 1024, 1, 0, 0, 1, 1, 2}, "GeoKeyDirectoryTag");
  expect_value(get(id, 33922), zvDOUBLE_CLASS, {2, 6}, {0, 1, 0, 1, 0, 0, 10, 11, 20, 21, 0, 0},
               "ModelTiepointTag");
  expect_value(get(id, 33550), zvDOUBLE_CLASS, {1, 3}, {1, 2, 0}, "ModelPixelScaleTag");
  expect_value(get(id, 34736), zvDOUBLE_CLASS, {1, 2}, {6378137, 298.257223563}, "GeoDoubleParamsTag");
  const CallResult transformation = get(id, 34264);
  EXPECT_TRUE(transformation.warnings.empty());
  ASSERT_EQ(transformation.out().numel(), 16u);
  EXPECT_EQ(transformation.out().number(15), 15.5);
  // Rationals come back as the nearest rational libtiff stored.
  const std::pair<int, std::vector<double>> rationals[] = {
      {318, {0.3127, 0.329}}, {319, {0.64, 0.33, 0.3, 0.6, 0.15, 0.06}},
      {529, {0.299, 0.587, 0.114}}, {532, {0, 255, 128, 255, 128, 255}}};
  for (const auto& [tag, expected] : rationals) {
    const CallResult r = get(id, tag);
    ASSERT_TRUE(r.ok()) << tag << ": " << error_of(r);
    ASSERT_EQ(r.out().dims(), (std::vector<std::size_t>{1, expected.size()})) << tag;
    for (std::size_t i = 0; i < expected.size(); ++i) EXPECT_NEAR(r.out().number(i), expected[i], 1e-6) << tag;
  }
  // Byte blocks: XMLPacket as characters of the byte codes, not decoded.
  const CallResult xmp = get(id, 700);
  EXPECT_EQ(xmp.out().class_id(), zvCHAR_CLASS);
  EXPECT_EQ(xmp.out().utf16(), u"<x>\u00e9</x>");
  expect_value(get(id, 33723), zvUINT8_CLASS, {1, 4}, {1, 2, 3, 250}, "RichTIFFIPTC");
  expect_value(get(id, 34377), zvUINT8_CLASS, {1, 8}, {'8', 'B', 'I', 'M', 0, 1, 2, 3}, "Photoshop");
  expect_value(get(id, 34675), zvUINT8_CLASS, {1, 10}, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}, "ICC Profile");
  // Strip arrays: two strips of 8 x 2 pixels x 4 bytes, one after the other.
  expect_value(get(id, 279), zvUINT64_CLASS, {1, 2}, {64, 64}, "StripByteCounts");
  const CallResult offsets = get(id, 273);
  ASSERT_EQ(offsets.out().class_id(), zvUINT64_CLASS);
  TiffHandle in(path, "r");
  EXPECT_EQ(offsets.out().at<std::uint64_t>(0), TIFFGetStrileOffset(in, 0));
  EXPECT_EQ(offsets.out().at<std::uint64_t>(1), TIFFGetStrileOffset(in, 0) + 64);
  EXPECT_EQ(call("close", {id}).error_id(), "");
}

TEST(get_field, absent_tags_default_or_fail_with_the_table_name) {
  ScratchDir dir;
  const std::string path = dir.path("bare.tif");
  {
    TiffHandle out(path, "w");  // 1-bit by default, one strip, nothing optional
    TIFFSetField(out, TIFFTAG_IMAGEWIDTH, 8);
    TIFFSetField(out, TIFFTAG_IMAGELENGTH, 2);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);  // no virtual strips on reading
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  const Array id = open_file(path);
  // libtiff's documented defaults; RowsPerStrip is the largest 32-bit value.
  for (const auto& [tag, value] : {std::pair{258, 1.0}, {274, 1.0}, {277, 1.0}, {280, 0.0}, {281, 1.0},
                                   {296, 2.0}, {334, 4.0}, {339, 1.0}, {254, 0.0}, {278, 4294967295.0},
                                   {32997, 1.0}, {284, 1.0}})
    expect_scalar(get(id, tag), value, "tag " + std::to_string(tag));
  expect_value(get(id, 530), zvDOUBLE_CLASS, {1, 2}, {2, 2}, "YCbCrSubsampling");
  for (const auto& [tag, name] :
       {std::pair{263, "Threshholding"}, {270, "ImageDescription"}, {297, "PageNumber"},
        {338, "ExtraSamples"}, {700, "XMLPacket"}, {34735, "GeoKeyDirectoryTag"}, {33922, "ModelTiepointTag"},
        {320, "ColorMap"}, {333, "InkNames"}, {301, "TransferFunction"}, {318, "WhitePoint"},
        {330, "SubIFD"}, {340, "SMinSampleValue"}, {282, "XResolution"}, {65537, "JPEGQuality"}})
    EXPECT_EQ(error_of(get(id, tag)), std::string("Quarn:imagesci:Tiff:tagRetrievalFailed(") + name + ")");
  call("close", {id});
}

TEST(get_field, curves_inks_planes_tiles_and_sub_directories) {
  ScratchDir dir;
  std::vector<std::uint16_t> r(256), g(256), b(256);
  for (int i = 0; i < 256; ++i) {
    r[i] = static_cast<std::uint16_t>(i * 257);
    g[i] = static_cast<std::uint16_t>(65535 - i * 257);
    b[i] = static_cast<std::uint16_t>(i % 2 ? 65535 : 0);
  }
  {
    TiffHandle out(dir.path("palette.tif"), "w");
    set_basic_tags(out, 4, 2);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
    TIFFSetField(out, TIFFTAG_COLORMAP, r.data(), g.data(), b.data());
    TIFFSetField(out, TIFFTAG_TRANSFERFUNCTION, r.data());
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  Array id = open_file(dir.path("palette.tif"));
  const CallResult map = get(id, 320);
  ASSERT_TRUE(map.ok()) << error_of(map);
  ASSERT_EQ(map.out().dims(), (std::vector<std::size_t>{256, 3}));
  EXPECT_EQ(map.out().number(0), 0.0);
  EXPECT_EQ(map.out().number(255), 1.0);                            // red of entry 255
  EXPECT_DOUBLE_EQ(map.out().number(256 + 1), (65535 - 257) / 65535.0);  // green of entry 1
  EXPECT_EQ(map.out().number(512 + 1), 1.0);                        // blue of entry 1
  const CallResult curve = get(id, 301);  // one sample: one curve, raw
  ASSERT_EQ(curve.out().dims(), (std::vector<std::size_t>{1, 256}));
  EXPECT_EQ(curve.out().number(1), 257.0);
  EXPECT_EQ(curve.out().number(255), 65535.0);
  call("close", {id});

  {  // RGB in separate planes with three transfer curves.
    TiffHandle out(dir.path("planes.tif"), "w");
    set_basic_tags(out, 8, 4, 8, 3, 2);
    TIFFSetField(out, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
    TIFFSetField(out, TIFFTAG_TRANSFERFUNCTION, r.data(), g.data(), b.data());
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  id = open_file(dir.path("planes.tif"));
  const CallResult curves = get(id, 301);
  ASSERT_EQ(curves.out().dims(), (std::vector<std::size_t>{256, 3}));
  EXPECT_EQ(curves.out().number(1), 257.0);
  EXPECT_EQ(curves.out().number(256 + 1), 65535.0 - 257);
  EXPECT_EQ(curves.out().number(512 + 1), 65535.0);
  expect_scalar(get(id, 284), 2, "PlanarConfiguration");
  // libtiff holds 6 strips (2 per plane); the row is three times that, and
  // only the strips libtiff holds are filled.
  std::vector<double> counts(18, 0.0);
  std::fill(counts.begin(), counts.begin() + 6, 16.0);
  expect_value(get(id, 279), zvUINT64_CLASS, {1, 18}, counts, "StripByteCounts");
  EXPECT_EQ(error_of(get(id, 324)), "Quarn:imagesci:Tiff:tiledOperationOnStrippedImage()");
  call("close", {id});

  {  // Separated, two named inks.
    TiffHandle out(dir.path("inks.tif"), "w");
    set_basic_tags(out, 4, 2, 8, 2);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_SEPARATED);
    TIFFSetField(out, TIFFTAG_INKSET, INKSET_MULTIINK);
    TIFFSetField(out, TIFFTAG_NUMBEROFINKS, 2);
    TIFFSetField(out, TIFFTAG_INKNAMES, 18, "spot one\0spot two");
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  id = open_file(dir.path("inks.tif"));
  const CallResult inks = get(id, 333);
  ASSERT_TRUE(inks.ok()) << error_of(inks);
  ASSERT_EQ(inks.out().class_id(), zvCELL_CLASS);
  ASSERT_EQ(inks.out().dims(), (std::vector<std::size_t>{1, 2}));
  EXPECT_EQ(inks.out().cells()[0].utf8(), "spot one");
  EXPECT_EQ(inks.out().cells()[1].utf8(), "spot two");
  expect_scalar(get(id, 334), 2, "NumberOfInks");
  EXPECT_EQ(error_of(get(id, 301)), "Quarn:imagesci:Tiff:badTransferFunctionSppCombination(2)");
  call("close", {id});

  {
    TiffHandle out(dir.path("tiled.tif"), "w");
    set_basic_tags(out, 40, 20, 8, 1, 0, 16);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  id = open_file(dir.path("tiled.tif"));
  expect_scalar(get(id, 322), 16, "TileWidth");
  expect_scalar(get(id, 323), 16, "TileLength");
  expect_value(get(id, 325), zvUINT64_CLASS, {1, 6}, std::vector<double>(6, 256.0), "TileByteCounts");
  EXPECT_EQ(get(id, 324).out().numel(), 6u);
  EXPECT_EQ(error_of(get(id, 273)), "Quarn:imagesci:Tiff:strippedOperationOnTiledImage()");
  call("close", {id});

  const std::vector<std::uint64_t> sub = write_file_with_subifds(dir.path("sub.tif"), 2);
  id = open_file(dir.path("sub.tif"));
  expect_value(get(id, 330), zvUINT64_CLASS, {1, 2}, {double(sub[0]), double(sub[1])}, "SubIFD");
  call("close", {id});
}

TEST(get_field, tile_arrays_of_a_file_being_written) {
  ScratchDir dir;
  const Array id = open_file(dir.path("growing.tif"), "w");
  // Set up through libtiff on the module's own handle, which is what the
  // identifier holds.
  TIFF* tif = reinterpret_cast<TIFF*>(static_cast<std::uintptr_t>(id.at<std::uint64_t>(0)));
  set_basic_tags(tif, 40, 40, 8, 1, 0, 16);
  EXPECT_EQ(error_of(get(id, 324)), "Quarn:imagesci:Tiff:tagRetrievalFailed(TileOffsets)");
  write_chunks(tif, [](std::uint32_t, std::size_t) { return std::uint8_t{1}; });
  // libtiff lets the image grow while it is written; its tile count follows
  // at once, its arrays (9 tiles) only when it writes the next tile.
  ASSERT_TRUE(TIFFSetField(tif, TIFFTAG_IMAGELENGTH, 80));
  ASSERT_EQ(TIFFNumberOfTiles(tif), 15u);
  std::vector<double> counts(15, 0.0);
  std::fill(counts.begin(), counts.begin() + 9, 256.0);
  expect_value(get(id, 325), zvUINT64_CLASS, {1, 15}, counts, "TileByteCounts");
  call("close", {id});
}

TEST(get_field, codec_tags_need_their_codec) {
  ScratchDir dir;
  const std::string path = dir.path("deflate.tif");
  {
    TiffHandle out(path, "w");
    set_basic_tags(out, 8, 2);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(out, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    write_chunks(out, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
  }
  {
    TiffHandle out(dir.path("fax.tif"), "w");
    set_basic_tags(out, 16, 2, 1);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX3);
    TIFFSetField(out, TIFFTAG_GROUP3OPTIONS, GROUP3OPT_2DENCODING | GROUP3OPT_FILLBITS);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  Array id = open_file(path);
  expect_scalar(get(id, 317), 2, "Predictor");
  // The codec's default level, -1, read as the unsigned 32-bit value it is handed in.
  expect_scalar(get(id, 65557), 4294967295.0, "ZIPQuality");
  EXPECT_EQ(error_of(get(id, 292)), "Quarn:imagesci:Tiff:tagRetrievalFailed(Group3Options)");
  call("close", {id});
  id = open_file(dir.path("fax.tif"));
  expect_scalar(get(id, 292), 5, "Group3Options");
  call("close", {id});

  // The same Predictor entry in a file that claims no compression: libtiff
  // keeps it as an anonymous counted value, which must not be read as one
  // 16-bit number.
  patch_first_ifd_short(path, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  id = open_file(path);
  EXPECT_EQ(error_of(get(id, 317)), "Quarn:imagesci:Tiff:unableToReadTag(317)");
  expect_scalar(get(id, 256), 8, "ImageWidth");
  call("close", {id});
}

TEST(get_field, geotiff_counts_are_checked) {
  ScratchDir dir;
  const std::string path = dir.path("geo.tif");
  installTagExtender();
  {
    TiffHandle out(path, "w");
    set_basic_tags(out, 4, 2);
    const std::uint16_t keys[7] = {1, 1, 0, 1, 1024, 0, 1};
    const double values[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    TIFFSetField(out, 34735, 7, keys);
    TIFFSetField(out, 33922, 7, values);
    TIFFSetField(out, 34264, 12, values);
    TIFFSetField(out, 33550, 2, values);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
    TIFFWriteDirectory(out);
    set_basic_tags(out, 4, 2);
    TIFFSetField(out, 33922, 0, values);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  const Array id = open_file(path);
  EXPECT_EQ(error_of(get(id, 34735)), "Quarn:imagesci:Tiff:badMultipleTagValueRetrieved(7, GeoKeyDirectoryTag, 4)");
  EXPECT_EQ(error_of(get(id, 33922)), "Quarn:imagesci:Tiff:badMultipleTagValueRetrieved(7, ModelTiepointTag, 6)");
  // A wrong count is a warning, and the values still come back.
  const CallResult transformation = get(id, 34264);
  expect_value(transformation, zvDOUBLE_CLASS, {1, 12}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12},
               "ModelTransformationTag");
  ASSERT_EQ(transformation.warnings.size(), 1u);
  EXPECT_EQ(transformation.warnings[0].identifier, "Quarn:imagesci:Tiff:wrongSizedTagRetrieval");
  EXPECT_NE(transformation.warnings[0].message.find("ModelTransformationTag"), std::string::npos);
  const CallResult scale = get(id, 33550);
  expect_value(scale, zvDOUBLE_CLASS, {1, 2}, {1, 2}, "ModelPixelScaleTag");
  ASSERT_EQ(scale.warnings.size(), 1u);
  EXPECT_EQ(scale.warnings[0].identifier, "Quarn:imagesci:Tiff:wrongSizedTagRetrieval");
  // libtiff keeps no empty value: zero tie points read as an absent tag.
  ASSERT_TRUE(call("setDirectory", {id, num(1)}).ok());
  EXPECT_EQ(error_of(get(id, 33922)), "Quarn:imagesci:Tiff:tagRetrievalFailed(ModelTiepointTag)");
  call("close", {id});
}

TEST(get_field, bad_operands_and_refused_tags) {
  ScratchDir dir;
  write_multi_directory_file(dir.path("plain.tif"), 1);
  const Array id = open_file(dir.path("plain.tif"));
  const std::string kind = "Quarn:imagesci:Tiff:";
  EXPECT_EQ(error_of(call("getField", {num(0), num(256)})), kind + "badFileId()");
  EXPECT_EQ(error_of(call("getField", {id})), "Quarn:imagesci:validate:wrongNumberOfInputs()");
  EXPECT_EQ(error_of(call("getField", {id, num(256), num(1)})), "Quarn:imagesci:validate:wrongNumberOfInputs()");
  // Tag numbers: truncated toward zero, refused at -1 and 2^32; NaN is 0.
  EXPECT_EQ(error_of(get(id, -1)), "Quarn:imagesci:validate:argumentOutOfBounds()");
  EXPECT_EQ(error_of(get(id, 4294967296.0)), "Quarn:imagesci:validate:argumentOutOfBounds()");
  EXPECT_EQ(error_of(get(id, 4294967295.5)), kind + "unrecognizedTagNumber(4294967295)");
  EXPECT_EQ(error_of(get(id, std::nan(""))), kind + "unrecognizedTagNumber(0)");
  EXPECT_EQ(error_of(get(id, -0.5)), kind + "unrecognizedTagNumber(0)");
  EXPECT_EQ(error_of(call("getField", {id, Array()})), kind + "unrecognizedTagNumber(0)");
  expect_scalar(get(id, 256.9), 8, "ImageWidth from 256.9");
  expect_scalar(call("getField", {id, Array::of<std::uint16_t>(zvUINT16_CLASS, {1, 1}, {256})}), 8,
                "ImageWidth from a uint16 tag number");
  for (double tag : {0.0, 260.0, 326.0, 342.0, 65536.0})
    EXPECT_EQ(error_of(get(id, tag)), kind + "unrecognizedTagNumber(" + std::to_string(int(tag)) + ")");
  EXPECT_EQ(error_of(get(id, 32995)), kind + "unsupportedTag(Matteing, 32995)");
  EXPECT_EQ(error_of(get(id, 32996)), kind + "unsupportedTag(DataType, 32996)");
  EXPECT_EQ(error_of(get(id, 32998)), kind + "unsupportedTag(TileDepth, 32998)");
  for (int tag : {255, 264, 265, 288, 289, 290, 291, 300, 343, 344, 345, 33300, 33306, 34665, 34853, 34908,
                  34911, 40965, 65538})
    EXPECT_EQ(error_of(get(id, tag)), kind + "unhandledTagId(" + std::to_string(tag) + ")");
  call("close", {id});

  // A file being written has no ImageWidth until one is set.
  const Array fresh = open_file(dir.path("fresh.tif"), "w");
  EXPECT_EQ(error_of(get(fresh, 256)), kind + "tagRetrievalFailed(ImageWidth)");
  EXPECT_EQ(error_of(get(fresh, 273)), kind + "tagRetrievalFailed(StripOffsets)");
  call("close", {fresh});
}

TEST(get_field, ink_names_are_walked_within_the_buffer) {
  // Two names in the buffer, four inks asked for: the names, then empty texts.
  const char buffer[] = "a\0bc";  // exactly the two names with their NULs
  EXPECT_EQ(split_ink_names(buffer, 2, 4), (std::vector<std::string>{"a", "bc", "", ""}));
  EXPECT_EQ(split_ink_names(buffer, 2, 1), (std::vector<std::string>{"a"}));
  EXPECT_EQ(split_ink_names(nullptr, 0, 2), (std::vector<std::string>{"", ""}));

  // A file whose NumberOfInks says 4 over two names: libtiff keeps the count
  // of names it found, and nothing past them is read.
  ScratchDir dir;
  const std::string path = dir.path("inks.tif");
  {
    TiffHandle out(path, "w");
    set_basic_tags(out, 4, 2, 8, 4);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_SEPARATED);
    TIFFSetField(out, TIFFTAG_INKNAMES, 4, "a\0b");
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  patch_first_ifd_short(path, TIFFTAG_NUMBEROFINKS, 4);
  const Array id = open_file(path);
  const CallResult inks = get(id, 333);
  ASSERT_TRUE(inks.ok()) << error_of(inks);
  ASSERT_EQ(inks.out().numel(), 2u);
  EXPECT_EQ(inks.out().cells()[1].utf8(), "b");
  call("close", {id});
}

}  // namespace
}  // namespace tiffgate::testing
