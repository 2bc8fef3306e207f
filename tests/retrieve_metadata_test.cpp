// "retrieveMetadata" and the layout record beneath it, on files written with
// libtiff directly and on corpus files whose layout the manifest records.

#include "imagedata/layout.h"
#include "support/tag_files.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <fcntl.h>  // O_RDONLY

#include <string>
#include <vector>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;
using embedded::CallResult;
using Values = std::vector<double>;

const std::vector<std::string> kFields = {
    "BitsPerSample", "Compression", "ImageDepth", "ImageLength", "ImageWidth", "JPEGColorMode",
    "PhotometricInterpretation", "PlanarConfiguration", "RowsPerStrip", "SampleFormat", "SamplesPerPixel",
    "TileLength", "TileWidth", "YCbCrSubsampling", "isTiled", "numExtraSamples"};

CallResult metadata_of(const std::string& path, const char* mode = "r") {
  const Array id = open_file(path, mode);
  CallResult r = call("retrieveMetadata", {id});
  call("close", {id});
  return r;
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

}  // namespace
}  // namespace tiffgate::testing
