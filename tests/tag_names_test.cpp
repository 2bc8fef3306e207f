// The tag name table against libtiff's own names for the same tags.

#include "support/tag_files.h"
#include "support/tiff_files.h"
#include "tags/tag_names.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace tiffgate::testing {
namespace {

TEST(tag_names, agree_with_libtiff_and_the_geotiff_names) {
  const auto& table = TagNameTable();
  EXPECT_EQ(table.size(), 102u);  // 103 pairs, 344 listed twice

  // libtiff knows the codec tags once a codec that has them is chosen; the
  // names it gives are the ones callers see, odd spellings included.
  ScratchDir dir;
  TiffHandle scratch(dir.path("names.tif"), "w");
  std::map<std::uint32_t, std::string> libtiff_names;
  for (int compression : {COMPRESSION_NONE, COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4, COMPRESSION_LZW,
                          COMPRESSION_JPEG, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_SGILOG}) {
    ASSERT_TRUE(TIFFSetField(scratch, TIFFTAG_COMPRESSION, compression)) << compression;
    for (const auto& [tag, name] : table)
      if (const TIFFField* field = TIFFFindField(scratch, tag, TIFF_ANY); field && *TIFFFieldName(field))
        libtiff_names.emplace(tag, TIFFFieldName(field));
  }
  // libtiff leaves most codec pseudo-tags unnamed and knows no GeoTIFF tags.
  const std::map<std::uint32_t, std::string> others = {
      {33550, "ModelPixelScaleTag"}, {33922, "ModelTiepointTag"},   {34264, "ModelTransformationTag"},
      {34735, "GeoKeyDirectoryTag"}, {34736, "GeoDoubleParamsTag"}, {34737, "GeoASCIIParamsTag"},
      {65537, "JPEGQuality"},        {65538, "JPEGColorMode"},      {65557, "ZIPQuality"}};
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
