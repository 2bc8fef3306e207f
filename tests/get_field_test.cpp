// "getField" and "retrieveMetadata" against files written with libtiff
// directly: every retrieval form, the defaults of absent tags, and every
// error of the commands; the layout record beneath "retrieveMetadata", also
// on corpus files whose layout the manifest records; the tag name table.

#include "files/files.h"
#include "core/text.h"
#include "tags/layout.h"
#include "support/calls.h"
#include "support/tag_files.h"
#include "support/tiff_files.h"
#include "support/write_files.h"
#include "tags/tag_table.h"
#include "tags/tag_read.h"

#include <gtest/gtest.h>

#include <fcntl.h>  // O_RDONLY

#include <cmath>
#include <map>
#include <string>
#include <vector>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;
using embedded::CallResult;
using Values = std::vector<double>;
using Dims = std::vector<std::size_t>;

CallResult get(const Array& id, double tag) { return call("getField", {id, num(tag)}); }

/// Class, dimensions and column-major values of a result.
void expect_value(const CallResult& r, zvClassID cls, const Dims& dims, const Values& values, double tolerance = 0) {
  ASSERT_TRUE(r.ok()) << outcome(r);
  EXPECT_EQ(r.out().class_id(), cls);
  EXPECT_EQ(r.out().dims(), dims);
  ASSERT_EQ(r.out().numel(), values.size());
  for (std::size_t i = 0; i < values.size(); ++i) EXPECT_NEAR(r.out().number(i), values[i], tolerance) << i;
}
void expect_scalar(const CallResult& r, double value) { expect_value(r, zvDOUBLE_CLASS, {1, 1}, {value}); }

// What the forms file holds besides set_basic_tags' 8 x 4 RGBA, two strips.
const std::uint32_t kTextTags[] = {269, 270, 271, 272, 285, 305, 306, 315, 316, 337, 33432, 34737};
std::string text_for(std::uint32_t tag) { return "t" + std::to_string(tag) + "\xc3\xa9"; }  // UTF-8 é
const std::pair<std::uint32_t, int> kIntegers[] = {{263, 2}, {266, 1}, {332, 2}, {531, 2}, {274, 3}, {280, 1},
                                                   {281, 254}, {296, 3}, {334, 4}, {254, 2}, {32997, 3}};
const std::pair<std::uint32_t, double> kReals[] = {{282, 72.5}, {283, 150}, {286, 1.5}, {287, 2.25},
                                                   {340, 3},     {341, 250}, {37439, 1.5}};
const std::pair<std::uint32_t, Values> kRationals[] = {
    {318, {0.3127, 0.329}}, {319, {0.64, 0.33, 0.3, 0.6, 0.15, 0.06}},
    {529, {0.299, 0.587, 0.114}}, {532, {0, 255, 128, 255, 128, 255}}};
const double kDoubles[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

void write_forms_file(const std::string& path) {
  installTagExtender();  // the GeoTIFF tags, defined as the module defines them
  write_tiff(path, [](TIFF* tif) {
    for (std::uint32_t tag : kTextTags) TIFFSetField(tif, tag, text_for(tag).c_str());
    for (const auto& [tag, value] : kIntegers) TIFFSetField(tif, tag, value);
    for (const auto& [tag, value] : kReals) TIFFSetField(tif, tag, value);
    for (const auto& [tag, values] : kRationals)
      TIFFSetField(tif, tag, std::vector<float>(values.begin(), values.end()).data());
    const std::uint16_t extra[] = {EXTRASAMPLE_UNASSALPHA};
    const std::uint16_t keys[] = {1, 1, 0, 1, 1024, 0, 1, 2};
    TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, extra);
    TIFFSetField(tif, TIFFTAG_PAGENUMBER, 1, 3);
    TIFFSetField(tif, TIFFTAG_HALFTONEHINTS, 10, 240);
    TIFFSetField(tif, TIFFTAG_DOTRANGE, 0, 255);
    TIFFSetField(tif, TIFFTAG_XMLPACKET, 8, "<x>\xe9</x>");
    TIFFSetField(tif, TIFFTAG_RICHTIFFIPTC, 4, "\x01\x02\x03\xfa");
    TIFFSetField(tif, TIFFTAG_PHOTOSHOP, 8, "8BIM\0\1\2\3");
    TIFFSetField(tif, TIFFTAG_ICCPROFILE, 3, "ICC");
    TIFFSetField(tif, 34735, 8, keys);
    TIFFSetField(tif, 33550, 3, kDoubles);
    TIFFSetField(tif, 33922, 12, kDoubles);
    TIFFSetField(tif, 34264, 16, kDoubles);
    TIFFSetField(tif, 34736, 2, kDoubles);
  }, 8, 4, 8, 4, 2);
}

TEST(get_field, every_form_reads_what_libtiff_wrote) {
  ScratchDir dir;
  write_forms_file(dir.path("forms.tif"));
  const ModuleFile id(dir.path("forms.tif"), "r");
  for (std::uint32_t tag : kTextTags) {  // A
    const CallResult r = get(id, tag);
    ASSERT_TRUE(r.ok()) << tag;
    EXPECT_EQ(r.out().class_id(), zvCHAR_CLASS);
    EXPECT_EQ(r.out().utf16(), utf8_to_utf16(text_for(tag))) << tag;
  }
  // B to G, set by set_basic_tags, defaulted, or set here.
  std::vector<std::pair<std::uint32_t, double>> scalars = {{256, 8}, {257, 4}, {258, 8}, {259, 1}, {262, 2},
                                                           {277, 4}, {278, 2}, {284, 1}, {339, 1}};
  scalars.insert(scalars.end(), std::begin(kIntegers), std::end(kIntegers));
  scalars.insert(scalars.end(), std::begin(kReals), std::end(kReals));
  for (const auto& [tag, value] : scalars) {
    SCOPED_TRACE(tag);
    expect_scalar(get(id, tag), value);
  }
  for (const auto& [tag, values] : kRationals) {  // nearest rationals to the floats
    SCOPED_TRACE(tag);
    expect_value(get(id, tag), zvDOUBLE_CLASS, {1, values.size()}, values, 1e-6);
  }
  expect_value(get(id, 297), zvDOUBLE_CLASS, {1, 2}, {1, 3});  // H
  expect_value(get(id, 321), zvDOUBLE_CLASS, {1, 2}, {10, 240});
  expect_value(get(id, 336), zvDOUBLE_CLASS, {1, 2}, {0, 255});
  expect_value(get(id, 338), zvDOUBLE_CLASS, {1, 1}, {2});  // J
  // L and the tie points: one record per row (shown column-major).
  expect_value(get(id, 34735), zvDOUBLE_CLASS, {2, 4}, {1, 1024, 1, 0, 0, 1, 1, 2});
  expect_value(get(id, 33922), zvDOUBLE_CLASS, {2, 6}, {1, 7, 2, 8, 3, 9, 4, 10, 5, 11, 6, 12});
  expect_value(get(id, 33550), zvDOUBLE_CLASS, {1, 3}, {1, 2, 3});
  expect_value(get(id, 34736), zvDOUBLE_CLASS, {1, 2}, {1, 2});
  const CallResult transformation = get(id, 34264);
  expect_value(transformation, zvDOUBLE_CLASS, {1, 16}, Values(kDoubles, kDoubles + 16));
  EXPECT_TRUE(transformation.warnings.empty());
  // XMLPacket: the byte codes as characters, not decoded.
  EXPECT_EQ(get(id, 700).out().utf16(), u"<x>\u00e9</x>");
  expect_value(get(id, 33723), zvUINT8_CLASS, {1, 4}, {1, 2, 3, 250});
  expect_value(get(id, 34377), zvUINT8_CLASS, {1, 8}, {'8', 'B', 'I', 'M', 0, 1, 2, 3});
  expect_value(get(id, 34675), zvUINT8_CLASS, {1, 3}, {'I', 'C', 'C'});
  // Two strips of 8 x 2 pixels x 4 bytes, written one after the other.
  expect_value(get(id, 279), zvUINT64_CLASS, {1, 2}, {64, 64});
  TiffHandle in(dir.path("forms.tif"), "r");
  const double first = static_cast<double>(TIFFGetStrileOffset(in, 0));
  expect_value(get(id, 273), zvUINT64_CLASS, {1, 2}, {first, first + 64});
}

TEST(get_field, absent_tags_default_or_fail_with_the_table_name) {
  ScratchDir dir;
  {  // 1-bit by default; compressed, so libtiff makes no virtual strips.
    TiffHandle out(dir.path("bare.tif"), "w");
    TIFFSetField(out, TIFFTAG_IMAGEWIDTH, 8);
    TIFFSetField(out, TIFFTAG_IMAGELENGTH, 2);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  const ModuleFile id(dir.path("bare.tif"), "r");
  for (const auto& [tag, value] : {std::pair{258, 1.0}, {274, 1.0}, {277, 1.0}, {280, 0.0}, {281, 1.0}, {296, 2.0},
                                   {334, 4.0}, {339, 1.0}, {254, 0.0}, {278, 4294967295.0}, {32997, 1.0}, {284, 1.0}}) {
    SCOPED_TRACE(tag);
    expect_scalar(get(id, tag), value);
  }
  expect_value(get(id, 530), zvDOUBLE_CLASS, {1, 2}, {2, 2});
  for (const auto& [tag, name] :
       {std::pair{263, "Threshholding"}, {270, "ImageDescription"}, {297, "PageNumber"}, {338, "ExtraSamples"},
        {700, "XMLPacket"}, {34735, "GeoKeyDirectoryTag"}, {33922, "ModelTiepointTag"}, {320, "ColorMap"},
        {333, "InkNames"}, {301, "TransferFunction"}, {318, "WhitePoint"}, {330, "SubIFD"}, {340, "SMinSampleValue"},
        {282, "XResolution"}, {65537, "JPEGQuality"}})
    EXPECT_EQ(outcome(get(id, tag)), std::string("tagRetrievalFailed('") + name + "')");
}

TEST(get_field, curves_inks_planes_tiles_and_sub_directories) {
  ScratchDir dir;
  std::vector<std::uint16_t> r(256), g(256), b(256);
  for (int i = 0; i < 256; ++i) {
    r[i] = static_cast<std::uint16_t>(i * 257);
    g[i] = static_cast<std::uint16_t>(65535 - i * 257);
    b[i] = static_cast<std::uint16_t>(i % 2 ? 65535 : 0);
  }
  write_tiff(dir.path("palette.tif"), [&](TIFF* tif) {
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
    TIFFSetField(tif, TIFFTAG_COLORMAP, r.data(), g.data(), b.data());
    TIFFSetField(tif, TIFFTAG_TRANSFERFUNCTION, r.data());
  });
  const ModuleFile palette(dir.path("palette.tif"), "r");
  const CallResult map = get(palette, 320);  // scaled to 0..1
  ASSERT_EQ(map.out().dims(), (Dims{256, 3}));
  EXPECT_EQ(Values({map.out().number(0), map.out().number(255), map.out().number(512 + 1)}), Values({0, 1, 1}));
  EXPECT_DOUBLE_EQ(map.out().number(256 + 1), (65535 - 257) / 65535.0);
  const CallResult curve = get(palette, 301);  // one sample: one raw curve
  ASSERT_EQ(curve.out().dims(), (Dims{1, 256}));
  EXPECT_EQ(Values({curve.out().number(1), curve.out().number(255)}), Values({257, 65535}));

  write_tiff(dir.path("planes.tif"), [&](TIFF* tif) {
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
    TIFFSetField(tif, TIFFTAG_TRANSFERFUNCTION, r.data(), g.data(), b.data());
  }, 8, 4, 8, 3, 2);
  const ModuleFile planes(dir.path("planes.tif"), "r");
  const CallResult curves = get(planes, 301);
  ASSERT_EQ(curves.out().dims(), (Dims{256, 3}));
  EXPECT_EQ(Values({curves.out().number(1), curves.out().number(257), curves.out().number(513)}),
            Values({257, 65535 - 257, 65535}));
  expect_scalar(get(planes, 284), 2);
  // libtiff holds 6 strips, 2 per plane; the row is three times as long and
  // only the strips libtiff holds are filled.
  Values counts(18, 0.0);
  std::fill(counts.begin(), counts.begin() + 6, 16.0);
  expect_value(get(planes, 279), zvUINT64_CLASS, {1, 18}, counts);
  EXPECT_EQ(outcome(get(planes, 324)), "tiledOperationOnStrippedImage()");

  write_tiff(dir.path("inks.tif"), [](TIFF* tif) {
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_SEPARATED);
    TIFFSetField(tif, TIFFTAG_INKSET, INKSET_MULTIINK);
    TIFFSetField(tif, TIFFTAG_INKNAMES, 18, "spot one\0spot two");
  }, 4, 2, 8, 2);
  const ModuleFile inks(dir.path("inks.tif"), "r");
  const CallResult names = get(inks, 333);
  ASSERT_EQ(names.out().class_id(), zvCELL_CLASS);
  ASSERT_EQ(names.out().dims(), (Dims{1, 2}));
  EXPECT_EQ(names.out().cells()[0].utf8() + "|" + names.out().cells()[1].utf8(), "spot one|spot two");
  expect_scalar(get(inks, 334), 2);
  EXPECT_EQ(outcome(get(inks, 301)), "badTransferFunctionSppCombination(2)");

  write_tiff(dir.path("tiled.tif"), [](TIFF*) {}, 40, 20, 8, 1, 0, 16);
  const ModuleFile tiled(dir.path("tiled.tif"), "r");
  expect_scalar(get(tiled, 322), 16);
  expect_scalar(get(tiled, 323), 16);
  expect_value(get(tiled, 325), zvUINT64_CLASS, {1, 6}, Values(6, 256.0));
  EXPECT_EQ(outcome(get(tiled, 273)), "strippedOperationOnTiledImage()");

  const std::vector<std::uint64_t> sub = write_file_with_subifds(dir.path("sub.tif"), 2);
  const ModuleFile subifds(dir.path("sub.tif"), "r");
  expect_value(get(subifds, 330), zvUINT64_CLASS, {1, 2}, {double(sub[0]), double(sub[1])});
}

TEST(get_field, tile_arrays_of_a_file_being_written) {
  ScratchDir dir;
  const ModuleFile id(dir.path("growing.tif"), "w");
  // Set up through libtiff on the module's own handle, which the identifier holds.
  TIFF* tif = id.tif();
  set_basic_tags(tif, 40, 40, 8, 1, 0, 16);
  EXPECT_EQ(outcome(get(id, 324)), "tagRetrievalFailed('TileOffsets')");
  write_chunks(tif, [](std::uint32_t, std::size_t) { return std::uint8_t{1}; });
  // The image may grow while it is written: libtiff's tile count follows at
  // once, its arrays (9 tiles) only when the next tile is written.
  ASSERT_TRUE(TIFFSetField(tif, TIFFTAG_IMAGELENGTH, 80));
  ASSERT_EQ(TIFFNumberOfTiles(tif), 15u);
  Values counts(15, 0.0);
  std::fill(counts.begin(), counts.begin() + 9, 256.0);
  expect_value(get(id, 325), zvUINT64_CLASS, {1, 15}, counts);
}

TEST(get_field, codec_tags_need_their_codec) {
  ScratchDir dir;
  const std::string path = dir.path("deflate.tif");
  write_tiff(path, [](TIFF* tif) {
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  });
  write_tiff(dir.path("fax.tif"), [](TIFF* tif) {
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX3);
    TIFFSetField(tif, TIFFTAG_GROUP3OPTIONS, GROUP3OPT_2DENCODING | GROUP3OPT_FILLBITS);
  }, 16, 2, 1);
  {
    const ModuleFile deflate(path, "r");
    expect_scalar(get(deflate, 317), 2);
    expect_scalar(get(deflate, 65557), 4294967295.0);  // the codec's default level, -1, read as uint32
    EXPECT_EQ(outcome(get(deflate, 292)), "tagRetrievalFailed('Group3Options')");
  }
  const ModuleFile fax(dir.path("fax.tif"), "r");
  expect_scalar(get(fax, 292), 5);
  // The same Predictor in a file that claims no compression: libtiff keeps it
  // as an anonymous counted value, not to be read as one 16-bit number.
  patch_first_ifd_short(path, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  const ModuleFile patched(path, "r");
  EXPECT_EQ(outcome(get(patched, 317)), "unableToReadTag(317)");
  expect_scalar(get(patched, 256), 8);
}

TEST(get_field, geotiff_counts_are_checked) {
  ScratchDir dir;
  installTagExtender();
  {
    TiffHandle out(dir.path("geo.tif"), "w");
    set_basic_tags(out, 4, 2);
    const std::uint16_t keys[7] = {1, 1, 0, 1, 1024, 0, 1};
    TIFFSetField(out, 34735, 7, keys);
    TIFFSetField(out, 33922, 7, kDoubles);
    TIFFSetField(out, 34264, 12, kDoubles);
    TIFFSetField(out, 33550, 2, kDoubles);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
    TIFFWriteDirectory(out);
    set_basic_tags(out, 4, 2);
    TIFFSetField(out, 33922, 0, kDoubles);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  const ModuleFile id(dir.path("geo.tif"), "r");
  EXPECT_EQ(outcome(get(id, 34735)), "badMultipleTagValueRetrieved(7, 'GeoKeyDirectoryTag', 4)");
  EXPECT_EQ(outcome(get(id, 33922)), "badMultipleTagValueRetrieved(7, 'ModelTiepointTag', 6)");
  // A wrong count is a warning, and the values still come back.
  for (const auto& [tag, count, name] : {std::tuple{34264, 12, "ModelTransformationTag"},
                                         {33550, 2, "ModelPixelScaleTag"}}) {
    const CallResult r = get(id, tag);
    expect_value(r, zvDOUBLE_CLASS, {1, std::size_t(count)}, Values(kDoubles, kDoubles + count));
    ASSERT_EQ(r.warnings.size(), 1u);
    EXPECT_EQ(r.warnings[0].identifier, tiff_id("wrongSizedTagRetrieval"));
    EXPECT_NE(r.warnings[0].message.find(name), std::string::npos);
  }
  // libtiff keeps no empty value: zero tie points read as an absent tag.
  ASSERT_TRUE(call("setDirectory", {id, num(1)}).ok());
  EXPECT_EQ(outcome(get(id, 33922)), "tagRetrievalFailed('ModelTiepointTag')");
}

TEST(get_field, bad_operands_and_refused_tags) {
  ScratchDir dir;
  write_tiff(dir.path("plain.tif"), [](TIFF*) {});
  const ModuleFile id(dir.path("plain.tif"), "r");
  EXPECT_EQ(outcome(call("getField", {num(0), num(256)})), "badFileId()");
  EXPECT_EQ(outcome(call("getField", {id})), "wrongNumberOfInputs()");
  // Tag numbers are truncated toward zero, refused at -1 and 2^32; NaN is 0.
  EXPECT_EQ(outcome(get(id, -1)), "argumentOutOfBounds()");
  EXPECT_EQ(outcome(get(id, 4294967296.0)), "argumentOutOfBounds()");
  EXPECT_EQ(outcome(get(id, 4294967295.5)), "unrecognizedTagNumber(4294967295)");
  for (double zero : {std::nan(""), -0.5, 0.0})
    EXPECT_EQ(outcome(get(id, zero)), "unrecognizedTagNumber(0)");
  // An empty operand has no tag number at all: refused like a value out of range.
  EXPECT_EQ(outcome(call("getField", {id, Array()})), "argumentOutOfBounds()");
  expect_scalar(get(id, 256.9), 8);
  expect_scalar(call("getField", {id, Array::of<std::uint16_t>(zvUINT16_CLASS, {1, 1}, {256})}), 8);
  for (int tag : {260, 326, 342, 65536})
    EXPECT_EQ(outcome(get(id, tag)), "unrecognizedTagNumber(" + std::to_string(tag) + ")");
  EXPECT_EQ(outcome(get(id, 32995)), "unsupportedTag('Matteing', 32995)");
  EXPECT_EQ(outcome(get(id, 32996)), "unsupportedTag('DataType', 32996)");
  EXPECT_EQ(outcome(get(id, 32998)), "unsupportedTag('TileDepth', 32998)");
  for (int tag : {255, 264, 265, 288, 289, 290, 291, 300, 343, 344, 345, 33300, 33306, 34665, 34853, 34908, 34911,
                  40965, 65538})
    EXPECT_EQ(outcome(get(id, tag)), "unhandledTagId(" + std::to_string(tag) + ")");
  const ModuleFile fresh(dir.path("fresh.tif"), "w");  // nothing set yet
  EXPECT_EQ(outcome(get(fresh, 256)), "tagRetrievalFailed('ImageWidth')");
}

TEST(get_field, text_in_another_encoding_keeps_every_byte) {
  // A corpus file's description in Mac Roman ("Photoshop\xA8") came back with
  // U+FFFD in place of the byte that is not UTF-8.
  ScratchDir dir;
  write_tiff(dir.path("latin.tif"), [](TIFF* tif) {
    TIFFSetField(tif, TIFFTAG_IMAGEDESCRIPTION, "Photoshop\xA8 caf\xE9 \xC3\xA9 \xE2\x82");
  });
  const ModuleFile id(dir.path("latin.tif"), "r");
  // Stray bytes as the characters of their codes; well-formed UTF-8 decoded.
  EXPECT_EQ(get(id, 270).out().utf16(), u"Photoshop\u00A8 caf\u00E9 \u00E9 \u00E2\u0082");
}

TEST(get_field, ink_names_are_walked_within_the_buffer) {
  const char buffer[] = "a\0bc";  // exactly two names with their NULs
  EXPECT_EQ(split_ink_names(buffer, 2, 4), (std::vector<std::string>{"a", "bc", "", ""}));
  EXPECT_EQ(split_ink_names(buffer, 2, 1), (std::vector<std::string>{"a"}));
  EXPECT_EQ(split_ink_names(nullptr, 0, 2), (std::vector<std::string>{"", ""}));
  // NumberOfInks 4 over two names in the file: libtiff keeps the count of
  // names it found, and nothing past them is read.
  ScratchDir dir;
  write_tiff(dir.path("inks.tif"), [](TIFF* tif) {
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_SEPARATED);
    TIFFSetField(tif, TIFFTAG_INKNAMES, 4, "a\0b");
  }, 4, 2, 8, 4);
  patch_first_ifd_short(dir.path("inks.tif"), TIFFTAG_NUMBEROFINKS, 4);
  const ModuleFile id(dir.path("inks.tif"), "r");
  const CallResult inks = get(id, 333);
  ASSERT_EQ(inks.out().numel(), 2u);
  EXPECT_EQ(inks.out().cells()[1].utf8(), "b");
}

// --- retrieveMetadata ------------------------------------------------------------

const std::vector<std::string> kFields = {
    "BitsPerSample", "Compression", "ImageDepth", "ImageLength", "ImageWidth", "JPEGColorMode",
    "PhotometricInterpretation", "PlanarConfiguration", "RowsPerStrip", "SampleFormat", "SamplesPerPixel",
    "TileLength", "TileWidth", "YCbCrSubsampling", "isTiled", "numExtraSamples"};

CallResult metadata_of(const std::string& path, const char* mode = "r") {
  return call_on_file(path, "retrieveMetadata", {}, mode);
}

/// Every field as numbers, in field order; "YCbCrSubsampling" may hold 0 or 2.
Values numbers_of(const Array& m) {
  Values v;
  for (const std::string& name : kFields) {
    const Array* field = m.field(name);
    const zvClassID cls = name == "isTiled" ? zvLOGICAL_CLASS : zvDOUBLE_CLASS;
    EXPECT_TRUE(field && field->class_id() == cls) << name;
    for (std::size_t i = 0; field && i < field->numel(); ++i) v.push_back(field->number(i));
  }
  return v;
}

TEST(retrieve_metadata, layouts_of_libtiff_written_and_corpus_files) {
  ScratchDir dir;
  write_tiff(dir.path("grey.tif"), [](TIFF*) {}, 8, 6, 8, 1, 4);
  write_tiff(dir.path("tiled.tif"), [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_PLANARCONFIG, 2); }, 40, 20, 16, 3, 0, 32);
  write_tiff(dir.path("rgba.tif"), [](TIFF* tif) {  // RowsPerStrip 100 over 4 rows
    const std::uint16_t extra[] = {EXTRASAMPLE_ASSOCALPHA};
    TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, extra);
    TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_INT);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  }, 4, 4, 8, 4, 100);
  write_tiff(dir.path("ycbcr.tif"), [](TIFF* tif) {  // no subsampling tag
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  }, 4, 2, 8, 3);
  {
    TiffHandle out(dir.path("jpeg.tif"), "w");
    set_basic_tags(out, 16, 16, 8, 3, 16);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_JPEG);
    TIFFSetField(out, TIFFTAG_YCBCRSUBSAMPLING, 2, 1);
    TIFFSetField(out, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);  // libjpeg converts the RGB we write
    write_chunks(out, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
  }
  int jpeg_mode = -1;  // what libtiff itself reports for the file just opened
  TIFFGetField(TiffHandle(dir.path("jpeg.tif"), "r"), TIFFTAG_JPEGCOLORMODE, &jpeg_mode);

  // bits comp depth length width jpeg photometric planar rows format spp tlength twidth [sub] tiled extra
  const std::pair<std::string, Values> cases[] = {
      {dir.path("grey.tif"), {8, 1, 1, 6, 8, 0, 1, 1, 4, 1, 1, 0, 0, 0, 0}},
      {dir.path("tiled.tif"), {16, 1, 1, 20, 40, 0, 2, 2, 0, 1, 3, 32, 32, 1, 0}},
      {dir.path("rgba.tif"), {8, 5, 1, 4, 4, 0, 2, 1, 4, 2, 4, 0, 0, 0, 1}},
      {dir.path("ycbcr.tif"), {8, 5, 1, 2, 4, 0, 6, 1, 2, 1, 3, 0, 0, 2, 2, 0, 0}},
      {dir.path("jpeg.tif"), {8, 7, 1, 16, 16, double(jpeg_mode), 6, 1, 16, 1, 3, 0, 0, 2, 1, 0, 0}},
      // 1 x 1 LogLuv, 16-bit signed, SGILog, as the manifest records.
      {corpus_dir() + "/libtiff-logluv-3c-16b.tiff", {16, 34676, 1, 1, 1, 0, 32845, 1, 1, 2, 3, 0, 0, 0, 0}}};
  for (const auto& [path, expected] : cases) {
    const CallResult r = metadata_of(path);
    ASSERT_TRUE(r.ok()) << path << ": " << outcome(r);
    EXPECT_EQ(r.out().field_names(), kFields);
    EXPECT_EQ(numbers_of(r.out()), expected) << path;
  }
  const Array grey = metadata_of(dir.path("grey.tif")).out();
  EXPECT_EQ(grey.field("YCbCrSubsampling")->dims(), (std::vector<std::size_t>{0, 0}));
  EXPECT_EQ(metadata_of(dir.path("jpeg.tif")).out().field("YCbCrSubsampling")->dims(),
            (std::vector<std::size_t>{1, 2}));
}

TEST(retrieve_metadata, failures_of_the_layout_and_the_identifier) {
  ScratchDir dir;
  write_tiff(dir.path("luv.tif"), [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGLUV); },
             4, 2, 16, 3);  // LogLuv without the SGILog codec
  write_tiff(dir.path("bare.tif"), [](TIFF* tif) { TIFFUnsetField(tif, TIFFTAG_PHOTOMETRIC); });
  const std::string failed = "tagRetrievalFailed";
  EXPECT_EQ(outcome(metadata_of(dir.path("luv.tif"))), failed + "('SgiLogDataFmt')");
  EXPECT_EQ(outcome(metadata_of(dir.path("bare.tif"))), failed + "('PhotometricInterpretation')");
  EXPECT_EQ(outcome(metadata_of(corpus_dir() + "/pillow-float32-no-photometric.tiff")),
            failed + "('PhotometricInterpretation')");
  EXPECT_EQ(outcome(metadata_of(dir.path("fresh.tif"), "w")), failed + "('ImageLength')");
  EXPECT_EQ(outcome(call("retrieveMetadata", {num(0)})), "badFileId()");
  EXPECT_EQ(outcome(call("retrieveMetadata", {Array::uint64(0x1234)})), "invalidFileId()");
  EXPECT_EQ(outcome(call("retrieveMetadata", {})), "wrongNumberOfInputs()");
}

TEST(image_layout, chunks_clamping_codec_and_mode) {
  ScratchDir dir;
  write_tiff(dir.path("planes.tif"), [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_PLANARCONFIG, 2); }, 10, 7, 8, 3, 3);
  write_tiff(dir.path("tiles.tif"), [](TIFF*) {}, 10, 7, 8, 3, 0, 16);
  write_tiff(dir.path("no-rows.tif"), [](TIFF* tif) {  // compressed: no virtual strips
    TIFFUnsetField(tif, TIFFTAG_ROWSPERSTRIP);
    TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
  }, 5, 9);
  const auto layout_of = [&](const std::string& name) { return readImageLayout(TiffHandle(dir.path(name), "r")); };
  const ImageLayout planes = layout_of("planes.tif");
  EXPECT_EQ(planes.samplesPerChunk, 1);
  EXPECT_EQ(planes.rowsPerStrip, 3u);  // smaller than the image: kept
  EXPECT_EQ(std::make_pair(planes.chunkWidth, planes.chunkLength), std::make_pair(10u, 3u));
  EXPECT_EQ(planes.mode, O_RDONLY);
  const ImageLayout tiles = layout_of("tiles.tif");
  EXPECT_EQ(tiles.samplesPerChunk, 3);
  EXPECT_EQ(tiles.rowsPerStrip, 0u);
  EXPECT_EQ(std::make_pair(tiles.chunkWidth, tiles.chunkLength), std::make_pair(16u, 16u));
  // No RowsPerStrip: libtiff's default, the largest 32-bit value, is clamped.
  const ImageLayout rows = layout_of("no-rows.tif");
  EXPECT_EQ(std::make_pair(rows.rowsPerStrip, rows.chunkLength), std::make_pair(9u, 9u));
  EXPECT_EQ(rows.numExtraSamples, 0);
  {
    TiffHandle out(dir.path("writing.tif"), "w");
    set_basic_tags(out, 4, 4);
    EXPECT_NE(readImageLayout(out).mode, O_RDONLY);
  }
  TiffHandle luv(corpus_dir() + "/imagetiff-pics-off-luv32.tif", "r");
  int format = 12345;
  ASSERT_TRUE(TIFFGetField(luv, TIFFTAG_SGILOGDATAFMT, &format));
  ImageLayout layout;
  layout.sgiLogDataFmt = 12345;
  readImageLayout(luv, layout);
  EXPECT_EQ(layout.sgiLogDataFmt, format);
}

// --- the tag name table ----------------------------------------------------------

// Against libtiff's own names for the same tags.
TEST(tag_names, agree_with_libtiff_and_the_geotiff_names) {
  const auto& table = TagNameTable();
  EXPECT_EQ(table.size(), 102u);  // 103 pairs, 344 listed twice

  // libtiff leaves most codec pseudo-tags unnamed and knows the GeoTIFF tags
  // only from the module's extender (installed by the tests above).
  const std::map<std::uint32_t, std::string> others = {
      {33550, "ModelPixelScaleTag"}, {33922, "ModelTiepointTag"},   {34264, "ModelTransformationTag"},
      {34735, "GeoKeyDirectoryTag"}, {34736, "GeoDoubleParamsTag"}, {34737, "GeoASCIIParamsTag"},
      {65537, "JPEGQuality"},        {65538, "JPEGColorMode"},      {65557, "ZIPQuality"}};
  // libtiff knows the codec tags once a codec that has them is chosen; the
  // names it gives are the ones callers see, odd spellings included.
  ScratchDir dir;
  TiffHandle scratch(dir.path("names.tif"), "w");
  std::map<std::uint32_t, std::string> libtiff_names;
  for (int compression : {COMPRESSION_NONE, COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4, COMPRESSION_LZW,
                          COMPRESSION_JPEG, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_SGILOG}) {
    ASSERT_TRUE(TIFFSetField(scratch, TIFFTAG_COMPRESSION, compression)) << compression;
    for (const auto& [tag, name] : table)
      if (const TIFFField* field = TIFFFindField(scratch, tag, TIFF_ANY);
          field && *TIFFFieldName(field) && !others.count(tag))
        libtiff_names.emplace(tag, TIFFFieldName(field));
  }
  for (const auto& [tag, name] : table) {
    const auto known = libtiff_names.find(tag);
    if (known != libtiff_names.end())
      EXPECT_EQ(name, known->second) << tag;
    else
      EXPECT_EQ(name, others.at(tag)) << tag;
  }
  EXPECT_EQ(libtiff_names.size() + others.size(), table.size());
  EXPECT_EQ(tagName(263), "Threshholding");
  EXPECT_EQ(tagName(34675), "ICC Profile");
  EXPECT_EQ(tagName(65560), "SGILogDataFmt");
  EXPECT_EQ(tagName(344), "XClipPathUnits");
}

TEST(tag_names, unknown_numbers_are_refused_with_the_number) {
  for (std::uint32_t tag : {0u, 260u, 326u, 342u, 65536u, 4294967295u}) {
    try {
      tagName(tag);
      ADD_FAILURE() << tag << " has a name";
    } catch (const Quarn::IMsgIDException& e) {
      EXPECT_STREQ(e.GetID(), "Quarn:imagesci:Tiff:unrecognizedTagNumber");
      ASSERT_EQ(e.GetBaseMsgIDObj().arguments().size(), 1u);
      // Widened without sign extension: 4294967295 stays positive.
      EXPECT_EQ(boost::get<std::int64_t>(e.GetBaseMsgIDObj().arguments()[0]), std::int64_t{tag});
    }
  }
}

}  // namespace
}  // namespace tiffgate::testing
