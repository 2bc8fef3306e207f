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

const std::vector<std::string> kFieldOrder = {
    "BitsPerSample", "Compression", "ImageDepth", "ImageLength", "ImageWidth", "JPEGColorMode",
    "PhotometricInterpretation", "PlanarConfiguration", "RowsPerStrip", "SampleFormat", "SamplesPerPixel",
    "TileLength", "TileWidth", "YCbCrSubsampling", "isTiled", "numExtraSamples"};

/// The metadata structure of the file's first directory.
Array metadata_of(const std::string& path) {
  const Array id = open_file(path);
  const CallResult r = call("retrieveMetadata", {id});
  call("close", {id});
  EXPECT_TRUE(r.ok()) << path << ": " << error_of(r);
  return r.ok() ? r.out() : Array();
}

std::string error_for(const std::string& path) {
  const Array id = open_file(path);
  const std::string error = error_of(call("retrieveMetadata", {id}));
  call("close", {id});
  return error;
}

/// The 13 scalar fields, in field order (TileLength before TileWidth).
std::vector<double> scalars_of(const Array& m) {
  std::vector<double> v;
  for (std::size_t i = 0; i < 13; ++i) {
    const Array* field = m.field(kFieldOrder[i]);
    EXPECT_TRUE(field && field->class_id() == zvDOUBLE_CLASS && field->numel() == 1) << kFieldOrder[i];
    v.push_back(field ? field->number() : -1);
  }
  return v;
}

std::vector<double> subsampling_of(const Array& m) {
  const Array* field = m.field("YCbCrSubsampling");
  EXPECT_EQ(field->class_id(), zvDOUBLE_CLASS);
  std::vector<double> v;
  for (std::size_t i = 0; i < field->numel(); ++i) v.push_back(field->number(i));
  if (v.empty()) EXPECT_EQ(field->dims(), (std::vector<std::size_t>{0, 0}));
  else EXPECT_EQ(field->dims(), (std::vector<std::size_t>{1, 2}));
  return v;
}

bool tiled_of(const Array& m) {
  EXPECT_EQ(m.field("isTiled")->class_id(), zvLOGICAL_CLASS);
  return m.field("isTiled")->number() != 0;
}

TEST(retrieve_metadata, stripped_tiled_planes_and_extra_samples) {
  ScratchDir dir;
  {
    TiffHandle out(dir.path("grey.tif"), "w");
    set_basic_tags(out, 8, 6, 8, 1, 4);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  const Array grey = metadata_of(dir.path("grey.tif"));
  ASSERT_EQ(grey.class_id(), zvSTRUCT_CLASS);
  EXPECT_EQ(grey.dims(), (std::vector<std::size_t>{1, 1}));
  EXPECT_EQ(grey.field_names(), kFieldOrder);
  //                                   bits comp depth len wid jpeg phot plan rps fmt spp tlen twid
  EXPECT_EQ(scalars_of(grey), (std::vector<double>{8, 1, 1, 6, 8, 0, 1, 1, 4, 1, 1, 0, 0}));
  EXPECT_TRUE(subsampling_of(grey).empty());
  EXPECT_FALSE(tiled_of(grey));
  EXPECT_EQ(grey.field("numExtraSamples")->number(), 0.0);

  {
    TiffHandle out(dir.path("tiled.tif"), "w");
    set_basic_tags(out, 40, 20, 16, 3, 0, 32);
    TIFFSetField(out, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  const Array tiled = metadata_of(dir.path("tiled.tif"));
  EXPECT_EQ(scalars_of(tiled), (std::vector<double>{16, 1, 1, 20, 40, 0, 2, 2, 0, 1, 3, 32, 32}));
  EXPECT_TRUE(tiled_of(tiled));

  {
    TiffHandle out(dir.path("rgba.tif"), "w");
    set_basic_tags(out, 4, 4, 8, 4, 100);  // RowsPerStrip beyond the image
    const std::uint16_t extra[] = {EXTRASAMPLE_ASSOCALPHA};
    TIFFSetField(out, TIFFTAG_EXTRASAMPLES, 1, extra);
    TIFFSetField(out, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_INT);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  const Array rgba = metadata_of(dir.path("rgba.tif"));
  EXPECT_EQ(scalars_of(rgba), (std::vector<double>{8, 5, 1, 4, 4, 0, 2, 1, 4, 2, 4, 0, 0}));
  EXPECT_EQ(rgba.field("numExtraSamples")->number(), 1.0);
}

TEST(retrieve_metadata, ycbcr_jpeg_logluv_and_failures) {
  ScratchDir dir;
  {
    TiffHandle out(dir.path("jpeg.tif"), "w");
    set_basic_tags(out, 16, 16, 8, 3, 16);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_JPEG);
    TIFFSetField(out, TIFFTAG_YCBCRSUBSAMPLING, 2, 1);
    TIFFSetField(out, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);  // feed RGB, libjpeg converts
    write_chunks(out, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
  }
  const Array jpeg = metadata_of(dir.path("jpeg.tif"));
  EXPECT_EQ(subsampling_of(jpeg), (std::vector<double>{2, 1}));
  EXPECT_EQ(jpeg.field("Compression")->number(), 7.0);
  EXPECT_EQ(jpeg.field("PhotometricInterpretation")->number(), 6.0);
  {  // libtiff's own report of the colour mode of a file just opened.
    TiffHandle in(dir.path("jpeg.tif"), "r");
    int mode = -1;
    TIFFGetField(in, TIFFTAG_JPEGCOLORMODE, &mode);
    EXPECT_EQ(jpeg.field("JPEGColorMode")->number(), double(mode));
  }
  const Array id = open_file(dir.path("jpeg.tif"));
  const CallResult quality = call("getField", {id, num(65537)});
  EXPECT_EQ(quality.ok() ? quality.out().number() : -1, 75.0);  // libjpeg's default quality
  call("close", {id});

  {  // YCbCr without JPEG and without a subsampling tag: libtiff's 2 x 2.
    TiffHandle out(dir.path("ycbcr.tif"), "w");
    set_basic_tags(out, 4, 2, 8, 3);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_YCBCR);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  const Array ycbcr = metadata_of(dir.path("ycbcr.tif"));
  EXPECT_EQ(subsampling_of(ycbcr), (std::vector<double>{2, 2}));
  EXPECT_EQ(ycbcr.field("JPEGColorMode")->number(), 0.0);

  // LogLuv from the corpus: 1 x 1, 16-bit signed, SGILog (per the manifest).
  const Array luv = metadata_of(corpus_dir() + "/libtiff-logluv-3c-16b.tiff");
  EXPECT_EQ(scalars_of(luv), (std::vector<double>{16, 34676, 1, 1, 1, 0, 32845, 1, 1, 2, 3, 0, 0}));

  {  // LogLuv without the SGILog codec: its data format cannot be read.
    TiffHandle out(dir.path("luv-none.tif"), "w");
    set_basic_tags(out, 4, 2, 16, 3);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGLUV);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  EXPECT_EQ(error_for(dir.path("luv-none.tif")), "Quarn:imagesci:Tiff:tagRetrievalFailed(SgiLogDataFmt)");
  {
    TiffHandle out(dir.path("no-photometric.tif"), "w");
    set_basic_tags(out, 4, 2);
    TIFFUnsetField(out, TIFFTAG_PHOTOMETRIC);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  EXPECT_EQ(error_for(dir.path("no-photometric.tif")),
            "Quarn:imagesci:Tiff:tagRetrievalFailed(PhotometricInterpretation)");
  EXPECT_EQ(error_for(corpus_dir() + "/pillow-float32-no-photometric.tiff"),
            "Quarn:imagesci:Tiff:tagRetrievalFailed(PhotometricInterpretation)");

  const Array fresh = open_file(dir.path("fresh.tif"), "w");
  EXPECT_EQ(error_of(call("retrieveMetadata", {fresh})), "Quarn:imagesci:Tiff:tagRetrievalFailed(ImageLength)");
  call("close", {fresh});
  EXPECT_EQ(error_of(call("retrieveMetadata", {num(0)})), "Quarn:imagesci:Tiff:badFileId()");
  EXPECT_EQ(error_of(call("retrieveMetadata", {Array::uint64(0x1234)})), "Quarn:imagesci:Tiff:invalidFileId()");
  EXPECT_EQ(error_of(call("retrieveMetadata", {})), "Quarn:imagesci:validate:wrongNumberOfInputs()");
}

TEST(image_layout, chunks_clamping_and_mode) {
  ScratchDir dir;
  {
    TiffHandle out(dir.path("planes.tif"), "w");
    set_basic_tags(out, 10, 7, 8, 3, 3);
    TIFFSetField(out, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  {
    TiffHandle in(dir.path("planes.tif"), "r");
    const ImageLayout layout = readImageLayout(in);
    EXPECT_EQ(layout.tif, in.tif);
    EXPECT_EQ(layout.rowsPerStrip, 3u);  // smaller than the image: kept
    EXPECT_EQ(layout.chunkLength, 3u);
    EXPECT_EQ(layout.chunkWidth, 10u);
    EXPECT_EQ(layout.samplesPerChunk, 1);
    EXPECT_EQ(layout.mode, O_RDONLY);
    EXPECT_FALSE(layout.isTiled);
  }
  {
    TiffHandle out(dir.path("contig.tif"), "w");
    set_basic_tags(out, 10, 7, 8, 3, 0, 16);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
    const ImageLayout writing = readImageLayout(out);
    EXPECT_NE(writing.mode, O_RDONLY);
  }
  {
    TiffHandle in(dir.path("contig.tif"), "r");
    const ImageLayout layout = readImageLayout(in);
    EXPECT_EQ(layout.samplesPerChunk, 3);
    EXPECT_EQ(layout.rowsPerStrip, 0u);
    EXPECT_EQ(layout.chunkWidth, 16u);
    EXPECT_EQ(layout.chunkLength, 16u);
    EXPECT_TRUE(layout.isTiled);
  }
  {
    // No RowsPerStrip tag and a compressed strip (no virtual strips): libtiff's
    // default, the largest 32-bit value, is clamped to the image length.
    TiffHandle out(dir.path("no-rows.tif"), "w");
    TIFFSetField(out, TIFFTAG_IMAGEWIDTH, 5);
    TIFFSetField(out, TIFFTAG_IMAGELENGTH, 9);
    TIFFSetField(out, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(out, TIFFTAG_COMPRESSION, COMPRESSION_PACKBITS);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  {
    TiffHandle in(dir.path("no-rows.tif"), "r");
    const ImageLayout layout = readImageLayout(in);
    EXPECT_EQ(layout.rowsPerStrip, 9u);
    EXPECT_EQ(layout.chunkLength, 9u);
    EXPECT_EQ(layout.numExtraSamples, 0);
    EXPECT_EQ(layout.jpegColorMode, 0);
  }
  {  // LogLuv through the SGILog codec: its data format is read.
    TiffHandle in(corpus_dir() + "/imagetiff-pics-off-luv32.tif", "r");
    int format = 12345;
    ASSERT_TRUE(TIFFGetField(in, TIFFTAG_SGILOGDATAFMT, &format));
    ImageLayout layout;
    layout.sgiLogDataFmt = 12345;
    readImageLayout(in, layout);
    EXPECT_EQ(layout.sgiLogDataFmt, format);
  }
}

}  // namespace
}  // namespace tiffgate::testing
