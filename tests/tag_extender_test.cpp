// The tag extender (the GeoTIFF tags and GDAL's two text tags). Its own executable, so that libtiff's
// process-wide extender is fresh: the test installs an extender of its own
// before the module's first "open", as a host or another module could.
// getField is not the subject here: tags are checked through libtiff on the
// handles the gateway opened.

#include "support/foundation.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace {

using namespace tiffgate::testing;
using tiffgate::embedded::Array;
using tiffgate::embedded::call;

std::set<TIFF*> seen_by_earlier;
TIFFExtendProc before_earlier = nullptr;

// The extender installed before the module's: remembers every handle.
void earlier_extender(TIFF* tif) {
  seen_by_earlier.insert(tif);
  if (before_earlier) before_earlier(tif);
}

std::set<TIFF*> seen_by_front;
TIFFExtendProc module_extender = nullptr;

// An extender installed after the module's, chaining to it.
void front_extender(TIFF* tif) {
  seen_by_front.insert(tif);
  if (module_extender) module_extender(tif);
}

struct GeoField {
  ttag_t tag;
  const char* name;
  TIFFDataType type;
  int pass_count;
};
constexpr GeoField kGeoFields[] = {
    {33550, "ModelPixelScaleTag", TIFF_DOUBLE, 1}, {34264, "ModelTransformationTag", TIFF_DOUBLE, 1},
    {33922, "ModelTiepointTag", TIFF_DOUBLE, 1},   {34735, "GeoKeyDirectoryTag", TIFF_SHORT, 1},
    {34736, "GeoDoubleParamsTag", TIFF_DOUBLE, 1}, {34737, "GeoASCIIParamsTag", TIFF_ASCII, 0},
    {42112, "GDAL_METADATA", TIFF_ASCII, 0},       {42113, "GDAL_NODATA", TIFF_ASCII, 0},
};

void expect_geotiff_fields(TIFF* tif) {
  for (const GeoField& f : kGeoFields) {
    SCOPED_TRACE(f.name);
    const TIFFField* field = TIFFFindField(tif, f.tag, TIFF_ANY);
    ASSERT_NE(field, nullptr);
    // A tag libtiff met without being taught would be named "Tag <number>".
    EXPECT_STREQ(TIFFFieldName(field), f.name);
    EXPECT_EQ(TIFFFieldDataType(field), f.type);
    EXPECT_EQ(TIFFFieldPassCount(field), f.pass_count);
    EXPECT_EQ(TIFFFieldReadCount(field), TIFF_VARIABLE);
  }
}

// A 4 x 4 image with three GeoTIFF tags, on a handle that knows them.
void write_geotiff_directory(TIFF* tif) {
  set_basic_tags(tif, 4, 4);
  const double scale[] = {0.5, 0.25, 0};
  const std::uint16_t keys[] = {1, 1, 0, 0};
  ASSERT_TRUE(TIFFSetField(tif, 33550, 3, scale));
  ASSERT_TRUE(TIFFSetField(tif, 34735, 4, keys));
  ASSERT_TRUE(TIFFSetField(tif, 34737, "WGS 84|"));
  write_chunks(tif, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
}

// Writes a file carrying three GeoTIFF tags, teaching this one writing
// handle the tags under names of its own.
void write_geotiff(const std::string& path) {
  static const TIFFFieldInfo kWriterFields[] = {
      {33550, -1, -1, TIFF_DOUBLE, FIELD_CUSTOM, 1, 1, const_cast<char*>("WriterScale")},
      {34735, -1, -1, TIFF_SHORT, FIELD_CUSTOM, 1, 1, const_cast<char*>("WriterKeys")},
      {34737, -1, -1, TIFF_ASCII, FIELD_CUSTOM, 1, 0, const_cast<char*>("WriterText")},
  };
  TiffHandle out(path, "w");
  ASSERT_EQ(TIFFMergeFieldInfo(out, kWriterFields, 3), 0);
  write_geotiff_directory(out);
}

void expect_geotiff_values(TIFF* tif) {
  std::uint16_t count = 0;
  const double* scale = nullptr;
  ASSERT_TRUE(TIFFGetField(tif, 33550, &count, &scale));
  ASSERT_EQ(count, 3);
  EXPECT_EQ(std::vector<double>(scale, scale + 3), (std::vector<double>{0.5, 0.25, 0}));
  const std::uint16_t* keys = nullptr;
  ASSERT_TRUE(TIFFGetField(tif, 34735, &count, &keys));
  ASSERT_EQ(count, 4);
  EXPECT_EQ(std::vector<std::uint16_t>(keys, keys + 4), (std::vector<std::uint16_t>{1, 1, 0, 0}));
  const char* text = nullptr;  // no count beside a text
  ASSERT_TRUE(TIFFGetField(tif, 34737, &text));
  EXPECT_STREQ(text, "WGS 84|");
}

TEST(tag_extender_test, installed_once_before_the_first_open_and_chained) {
  ScratchDir dir;
  before_earlier = TIFFSetTagExtender(earlier_extender);
  write_geotiff(dir.path("geo.tif"));
  write_multi_directory_file(dir.path("plain.tif"), 2);
  {
    // Before the module's first "open", libtiff does not know the tags.
    TiffHandle untaught(dir.path("geo.tif"), "r");
    const TIFFField* field = TIFFFindField(untaught, 33550, TIFF_ANY);
    ASSERT_NE(field, nullptr);
    EXPECT_STRNE(TIFFFieldName(field), "ModelPixelScaleTag");
  }

  // The very first file the module opens already knows them. (Handles freed
  // before may have had the same address: forget them.)
  seen_by_earlier.clear();
  const Array geo = open_file(dir.path("geo.tif"));
  expect_geotiff_fields(handle_of(geo));
  expect_geotiff_values(handle_of(geo));
  EXPECT_EQ(seen_by_earlier.count(handle_of(geo)), 1u);

  // The module's extender is now libtiff's, with ours behind it. Put a
  // third one in front: a module that installed again on a later open
  // would displace it.
  module_extender = TIFFSetTagExtender(front_extender);
  ASSERT_NE(module_extender, nullptr);
  EXPECT_NE(module_extender, &earlier_extender);

  seen_by_earlier.clear();
  std::vector<Array> more;
  for (const char* name : {"plain.tif", "geo.tif", "plain.tif"}) more.push_back(open_file(dir.path(name)));
  EXPECT_EQ(TIFFSetTagExtender(module_extender), &front_extender);
  for (const Array& id : more) {
    EXPECT_EQ(seen_by_front.count(handle_of(id)), 1u);
    EXPECT_EQ(seen_by_earlier.count(handle_of(id)), 1u);
    expect_geotiff_fields(handle_of(id));
    // Every directory libtiff sets up gets the tags, not only the first.
    if (TIFFNumberOfDirectories(handle_of(id)) == 2) {
      ASSERT_TRUE(call("readDirectory", {id}).ok());
      expect_geotiff_fields(handle_of(id));
    }
  }
  expect_geotiff_values(handle_of(more[1]));

  // Handles libtiff opens outside the module know them too, and libtiff
  // keeps them when it writes a directory.
  const Array written = open_file(dir.path("written.tif"), "w");
  write_geotiff_directory(handle_of(written));
  ASSERT_TRUE(call("close", {written}).ok());
  {
    TiffHandle direct(dir.path("written.tif"), "r");
    expect_geotiff_fields(direct);
    expect_geotiff_values(direct);
  }

  for (const Array& id : more) EXPECT_TRUE(call("close", {id}).ok());
  EXPECT_TRUE(call("close", {geo}).ok());
}

}  // namespace
