// Every error kind of the catalogue, reached through the embedded host with
// the arguments it reports, and what each failure leaves behind: no heap growth, no descriptor, no handle
// in the registry that was not there before; the files that were open stay
// open, unmoved and readable, and the host takes the next call.

#include "files/files.h"
#include "support/corpus.h"
#include "support/foundation.h"
#include "support/image_files.h"
#include "support/raw_tiff.h"
#include "support/write_files.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <dlfcn.h>

#include <cerrno>  // ENOMEM
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <limits>
#include <set>

// Some kinds guard what libtiff never lets happen: values it refuses to
// store (PlanarConfiguration 3, SampleFormat 7), and a strip read that
// returns more bytes than the strip holds. They are reached by putting this
// executable's TIFFGetFieldDefaulted and TIFFReadEncodedStrip in front of
// libtiff's (a definition in the executable takes precedence over the
// shared library's): the module still meets them through the host.
namespace {
std::uint32_t g_tag = 0;  // the tag whose value is replaced; 0 for none
std::uint16_t g_value = 0;
tmsize_t g_extra_bytes = 0;
}  // namespace

extern "C" tmsize_t TIFFReadEncodedStrip(TIFF* tif, uint32_t strip, void* buffer, tmsize_t size) {
  using Read = tmsize_t (*)(TIFF*, uint32_t, void*, tmsize_t);
  static const auto real = reinterpret_cast<Read>(dlsym(RTLD_NEXT, "TIFFReadEncodedStrip"));
  const tmsize_t got = real(tif, strip, buffer, size);
  return got < 0 ? got : got + g_extra_bytes;
}

extern "C" int TIFFGetFieldDefaulted(TIFF* tif, uint32_t tag, ...) {
  va_list arguments;
  va_start(arguments, tag);
  int found = 1;
  if (g_tag != 0 && tag == g_tag)
    *va_arg(arguments, std::uint16_t*) = g_value;
  else
    found = TIFFVGetFieldDefaulted(tif, tag, arguments);
  va_end(arguments);
  return found;
}

// Live heap blocks, counted by this executable's own malloc family in front
// of glibc's (glibc routes its internal calls through it as well). Under the
// sanitizers it is not compiled, and under valgrind, whose allocator takes
// part of the calls, the count is not compared: their own leak checks take
// over there.
namespace {
std::int64_t g_live_blocks = 0;

bool blocks_counted() {
#ifdef __SANITIZE_ADDRESS__
  return false;
#else
  const char* preload = std::getenv("LD_PRELOAD");
  return preload == nullptr || std::strstr(preload, "vgpreload") == nullptr;
#endif
}
}  // namespace

#ifndef __SANITIZE_ADDRESS__
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t size) {
  void* p = __libc_malloc(size);
  g_live_blocks += p != nullptr;
  return p;
}
void* calloc(std::size_t n, std::size_t size) {
  void* p = __libc_calloc(n, size);
  g_live_blocks += p != nullptr;
  return p;
}
void* realloc(void* old, std::size_t size) {
  void* p = __libc_realloc(old, size);
  if (old == nullptr) g_live_blocks += p != nullptr;
  if (old != nullptr && size == 0) --g_live_blocks;  // glibc frees, and returns null
  return p;
}
void free(void* p) {
  g_live_blocks -= p != nullptr;
  __libc_free(p);
}
void* memalign(std::size_t alignment, std::size_t size) {
  void* p = __libc_memalign(alignment, size);
  g_live_blocks += p != nullptr;
  return p;
}
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
  void* p = memalign(alignment, size);
  if (p == nullptr) return ENOMEM;
  *out = p;
  return 0;
}
}
#endif

using namespace tiffgate::testing;
using tiffgate::embedded::Array;
using tiffgate::embedded::call;
using tiffgate::embedded::CallResult;

namespace {

using Tags = std::vector<std::pair<double, Array>>;


std::size_t open_descriptors() {
  std::size_t n = 0;
  if (DIR* d = opendir("/proc/self/fd")) {
    while (readdir(d) != nullptr) ++n;
    closedir(d);
  }
  return n;  // the same count includes this directory's own descriptor each time
}

Array filled(std::size_t rows, std::size_t columns, double value) {
  return Array::of(zvDOUBLE_CLASS, {rows, columns}, std::vector<double>(rows * columns, value));
}
Array u8(std::vector<std::size_t> dims) { return Array(zvUINT8_CLASS, std::move(dims)); }
Array cells(std::vector<Array> v) { return Array::cell(std::move(v)); }

/// The files the recipes use, written once with libtiff directly.
class Files {
 public:
  Files() {
    ImageSpec grey;  // 16 x 16 uint8 in two strips of 8 rows
    grey.rowsPerStrip = 8;
    write_image(path("grey.tif"), grey);
    ImageSpec tiled;  // 32 x 32 in four tiles of 16
    tiled.width = tiled.length = 32, tiled.tileWidth = tiled.tileLength = 16;
    write_image(path("tiled.tif"), tiled);
    ImageSpec planes;
    planes.samples = 3, planes.planar = PLANARCONFIG_SEPARATE, planes.photometric = PHOTOMETRIC_RGB;
    write_image(path("planes.tif"), planes);
    ImageSpec two;
    two.samples = 2, two.extraSamples = 1;
    write_image(path("two.tif"), two);
    ImageSpec complex;
    complex.bits = 32, complex.format = SAMPLEFORMAT_COMPLEXINT;
    write_image(path("complex.tif"), complex);
    ImageSpec wide = grey;
    wide.bits = 32;
    write_image(path("grey32.tif"), wide);
    ImageSpec deep = grey;
    deep.rowsPerStrip = 16;
    write_image(path("deep.tif"), deep);
    {
      TiffHandle d(path("deep.tif"), "r+");
      TIFFSetField(d, TIFFTAG_IMAGEDEPTH, 2);
      TIFFRewriteDirectory(d);
    }
    ImageSpec ycc;
    ycc.samples = 3, ycc.planar = PLANARCONFIG_SEPARATE, ycc.photometric = PHOTOMETRIC_YCBCR;
    ycc.subsampling[0] = ycc.subsampling[1] = 1;
    write_image(path("ycc-planes.tif"), ycc);
    write_multi_directory_file(path("three.tif"), 3);
    subifds_ = write_file_with_subifds(path("subifds.tif"), 2);
    write_file_with_subifds(path("broken-subifd.tif"), 1);
    beyond_ = static_cast<std::uint32_t>(file_bytes(path("broken-subifd.tif")).size() + 1000);
    patch_first_subifd(path("broken-subifd.tif"), beyond_);

    // Forged directories: JPEG YCbCr without data, a Deflate strip of 10^12
    // bytes (compressed, so that libtiff does not cut it into rows),
    // a Predictor in an uncompressed file (an anonymous field to libtiff).
    const std::vector<RawEntry> image = {{256, 4, 16}, {257, 4, 16}, {258, 3, 8}, {273, 4, 8}, {278, 4, 16}, {279, 4, 16}};
    std::vector<RawEntry> jpeg = image, predictor = image;
    jpeg.insert(jpeg.end(), {{259, 3, COMPRESSION_JPEG}, {262, 3, PHOTOMETRIC_YCBCR}, {277, 3, 3}});
    predictor.insert(predictor.end(), {{259, 3, COMPRESSION_NONE}, {262, 3, 1}, {277, 3, 1}, {317, 3, 2}});
    write_raw_tiff(path("jpeg.tif"), jpeg);
    write_raw_tiff(path("predictor.tif"), predictor);
    write_raw_tiff(path("huge.tif"), {{256, 4, 1000000}, {257, 4, 1000000}, {258, 3, 8}, {259, 3, COMPRESSION_ADOBE_DEFLATE}, {262, 3, 1},
                                      {273, 4, 8}, {277, 3, 1}, {278, 4, 1000000}, {279, 4, 16}});
    // GeoTIFF values of counts the readers do not expect.
    tiffgate::installTagExtender();
    TiffHandle geo(path("geo.tif"), "w");
    set_basic_tags(geo, 4, 2);
    const std::uint16_t keys[7] = {1, 1, 0, 1, 1024, 0, 1};
    const double doubles[2] = {1, 2};
    TIFFSetField(geo, 34735, 7, keys);
    TIFFSetField(geo, 33550, 2, doubles);
    write_chunks(geo, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }

  std::string path(const std::string& name) const { return dir_.path(name); }
  std::string corpus(const std::string& name) const { return corpus_dir() + "/" + name; }
  std::uint64_t subifd(std::size_t i) const { return subifds_.at(i); }
  std::uint32_t beyond() const { return beyond_; }

 private:
  ScratchDir dir_;
  std::vector<std::uint64_t> subifds_;
  std::uint32_t beyond_ = 0;
};

/// Operands: the file's identifier first, then the rest.
CallResult on(const char* word, const std::string& path, std::vector<Array> rest = {}) {
  const ModuleFile f(path, "r");
  rest.insert(rest.begin(), f);
  return call(word, std::move(rest));
}

/// "setField" of tag in a new file, after the setup tags (set through the
/// module, each of which must pass).
CallResult set_after(const Files& files, const Tags& setup, double tag, Array value) {
  const ModuleFile f(files.path("set.tif"), "w");
  for (const auto& [t, v] : setup) EXPECT_TRUE(call("setField", {f, Array::scalar(t), v}).ok()) << t;
  return call("setField", {f, Array::scalar(tag), std::move(value)});
}

/// A write of chunk 0 into a new file whose tags libtiff set (none when the
/// layout's width is 0), after `extra`.
CallResult write_after(const Files& files, const ImageSpec& layout, std::vector<Array> images, bool tiled = false,
                       const std::function<void(TIFF*)>& extra = nullptr) {
  ModuleFile f(files.path("write.tif"));
  if (layout.width) set_image_tags(f.tif(), layout);
  if (extra) extra(f.tif());
  CallResult r = f.write(tiled, Array::scalar(0), std::move(images));
  f.close();
  return r;
}

ImageSpec layout(std::uint16_t bits = 8, std::uint16_t photometric = PHOTOMETRIC_MINISBLACK, std::uint16_t samples = 1,
               std::uint16_t format = SAMPLEFORMAT_UINT) {
  ImageSpec s;
  s.bits = bits, s.photometric = photometric, s.samples = samples, s.format = format;
  return s;
}
ImageSpec with(ImageSpec s, const std::function<void(ImageSpec&)>& change) {
  change(s);
  return s;
}

/// A call with a libtiff value replaced for its duration.
CallResult injected(std::uint32_t tag, std::uint16_t value, const std::function<CallResult()>& run) {
  g_tag = tag, g_value = value;
  CallResult r = run();
  g_tag = 0;
  return r;
}

struct Row {
  /// The kind's namespace and what outcome() renders of the error (or of
  /// the warning of that kind): "Tiff:badStripNumber(2)". A text ending in
  /// "*" stands for what starts so (a path or a size that is the machine's).
  const char* expected;
  std::function<CallResult(const Files&)> reach;
};

std::vector<Row> rows() {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Tags minIsBlack = {{262, Array::scalar(1)}}, rgb = {{262, Array::scalar(2)}}, palette = {{262, Array::scalar(3)}};
  const Tags grey8 = {{262, Array::scalar(1)}, {258, Array::scalar(8)}, {277, Array::scalar(1)}};
  const Tags cmyk = {{262, Array::scalar(5)}, {258, Array::scalar(8)}, {277, Array::scalar(5)}, {338, Array::row({2})}};
  const Tags inks3 = {{262, Array::scalar(5)}, {258, Array::scalar(8)}, {277, Array::scalar(3)}, {334, Array::scalar(3)}};
  const Tags logL = {{262, Array::scalar(32844)}, {259, Array::scalar(34676)}};
  const Tags bilevel = {{262, Array::scalar(0)}, {258, Array::scalar(1)}, {339, Array::scalar(1)}};
  const auto setter = [](Tags setup, double tag, Array value) {
    return [=](const Files& f) { return set_after(f, setup, tag, value); };
  };
  const auto writer = [](ImageSpec s, std::vector<Array> images, bool tiled = false,
                         std::function<void(TIFF*)> extra = nullptr) {
    return [=](const Files& f) { return write_after(f, s, images, tiled, extra); };
  };
  const auto colormap = [](TIFF* tif) {
    std::vector<std::uint16_t> map(256, 0);
    TIFFSetField(tif, TIFFTAG_COLORMAP, map.data(), map.data(), map.data());
  };
  ImageSpec tiles = layout();
  tiles.tileWidth = tiles.tileLength = 16;
  ImageSpec ycc = layout(8, PHOTOMETRIC_YCBCR, 3);
  ImageSpec logluv = layout(32, PHOTOMETRIC_LOGLUV, 3, SAMPLEFORMAT_IEEEFP);
  logluv.compression = COMPRESSION_SGILOG;

  return {
      // Gateway and arguments
      {"validate:wrongNumberOfInputs()", [](const Files&) { return call("close"); }},
      {"validate:argumentOutOfBounds()", [](const Files& f) { return on("computeStrip", f.path("grey.tif"), {num(-1)}); }},
      {"Tiff:InvalidOperation('noSuchCommand')", [](const Files&) { return call("noSuchCommand"); }},
      {"Tiff:tagValueNotDoublePrecisionScalar('ImageWidth')", setter({}, 256, Array::row({1, 2}))},
      {"Tiff:tagValueNotDoublePrecisionArray('XPosition')", setter({}, 286, str("1"))},
      {"Tiff:bad2DtagValue('ModelTiepointTag', 6)", setter({}, 33922, filled(3, 2, 1))},
      // Files and directories
      {"Tiff:argumentWasNotChar('file')", [](const Files&) { return call("open", {num(1), str("r")}); }},
      {"Tiff:unableToOpenFile(*", [](const Files& f) { return call("open", {str(f.path("missing.tif")), str("r")}); }},
      // Tiff:closingFileHandle is a warning of the unload, the last check below.
      {"Tiff:badFileId()", [](const Files&) { return call("close", {num(0)}); }},
      {"Tiff:invalidFileId()",
       [](const Files& f) {
         const Array id = open_file(f.path("grey.tif"));
         call("close", {id});
         return call("currentDirectory", {id});
       }},
      {"Tiff:unableToChangeDir(6)", [](const Files& f) { return on("setDirectory", f.path("grey.tif"), {num(5)}); }},
      {"Tiff:unableToReadDir()", [](const Files& f) { return on("readDirectory", f.path("grey.tif")); }},
      {"Tiff:unableToWriteDir()",
       [](const Files& f) {
         const ModuleFile stuck(f.path("three.tif"), "r+");
         TIFFSetField(stuck.tif(), TIFFTAG_IMAGEDESCRIPTION, "lost");
         make_writes_fail(stuck.tif(), f.path("three.tif"));
         return call("rewriteDirectory", {stuck});
       }},
      {"Tiff:unableToWriteCurrentDir()",
       [](const Files& f) {
         const ModuleFile doomed(f.path("doomed.tif"), "w");
         set_basic_tags(doomed.tif(), 4, 2);
         make_writes_fail(doomed.tif(), f.path("doomed.tif"));
         return call("writeDirectory", {doomed});
       }},
      {"Tiff:noSubDirectories()",
       [](const Files& f) { return on("setSubDirectory", f.path("grey.tif"), {Array::uint64(8)}); }},
      {"Tiff:noSuchSubDirectory()",
       [](const Files& f) { return on("setSubDirectory", f.path("subifds.tif"), {Array::uint64(f.subifd(1) + 1)}); }},
      {"Tiff:unableToChangeSubdir(*",
       [](const Files& f) { return on("setSubDirectory", f.path("broken-subifd.tif"), {num(f.beyond())}); }},
      // Tag names and tag reading
      {"Tiff:unrecognizedTagNumber(0)", [](const Files& f) { return on("getField", f.path("grey.tif"), {num(0)}); }},
      {"Tiff:unsupportedTag('Matteing', 32995)", [](const Files& f) { return on("getField", f.path("grey.tif"), {num(32995)}); }},
      {"Tiff:unhandledTagId(344)", [](const Files& f) { return on("getField", f.path("grey.tif"), {num(344)}); }},
      {"Tiff:unableToReadTag(317)", [](const Files& f) { return on("getField", f.path("predictor.tif"), {num(317)}); }},
      {"Tiff:tagRetrievalFailed('ImageDescription')", [](const Files& f) { return on("getField", f.path("grey.tif"), {num(270)}); }},
      {"Tiff:badMultipleTagValueRetrieved(7, 'GeoKeyDirectoryTag', 4)",
       [](const Files& f) { return on("getField", f.path("geo.tif"), {num(34735)}); }},
      {"Tiff:wrongSizedTagRetrieval(3, 'ModelPixelScaleTag', 2)", [](const Files& f) { return on("getField", f.path("geo.tif"), {num(33550)}); }},
      {"Tiff:badPlanarConfiguration(3)",
       [](const Files& f) {
         return injected(TIFFTAG_PLANARCONFIG, 3, [&] { return on("getField", f.path("grey.tif"), {num(284)}); });
       }},
      {"Tiff:badTransferFunctionSppCombination(2)",
       [](const Files& f) { return on("getField", f.path("two.tif"), {num(301)}); }},
      // Tag writing
      {"Tiff:cannotWriteInReadMode()", [](const Files& f) { return on("setField", f.path("grey.tif"), {num(270), str("x")}); }},
      {"Tiff:unableToWriteTag('FillOrder')", setter({}, 266, num(nan))},
      {"Tiff:tagRetrievalBeforeWriteFailed('PhotometricInterpretation', 'Compression')", setter({}, 259, num(1))},
      {"Tiff:badTagValueCount('PageNumber', 2)", setter({}, 297, Array::row({1, 2, 3}))},
      {"Tiff:lengthTooShort('XMP', 5)", setter({}, 700, str("<x/>"))},
      {"Tiff:zeroLengthDimension('ImageWidth')", setter({}, 256, num(0))},
      {"Tiff:badTileDimension('TileWidth')", setter({}, 322, num(8))},
      {"Tiff:dateTimeTooLong()", setter({}, 306, str("2024:05:06 07:08:09Z"))},
      {"Tiff:badXmlPacketTagType()", setter({}, 700, u8({1, 9}))},
      {"Tiff:badUninterpretedTagType('ICC Profile')", setter({}, 34675, str("icc"))},
      {"Tiff:badTagUsedWithPhotometric('Thresholding', 'MinIsWhite, MinIsBlack')", setter(rgb, 263, num(1))},
      {"Tiff:doNotSetForLogLuv('SamplesPerPixel')", setter(logL, 277, num(1))},
      {"Tiff:badValue()", setter(rgb, 339, num(2))},
      {"Tiff:fmtAlreadySet()", setter({{262, num(32844)}, {259, num(34676)}, {65560, num(3)}}, 65560, num(0))},
      {"Tiff:invalidSGILogDataFmtValue(1)", setter(logL, 65560, num(1))},
      {"Tiff:badCompressionForSgiLogDataFmt()", setter(minIsBlack, 65560, num(0))},
      {"Tiff:invalidNumberOfInksValue(3, 5, 1)", setter(cmyk, 334, num(3))},
      {"Tiff:badNumberOfInkNames(3)", setter(inks3, 333, cells({str("C"), str("M")}))},
      {"Tiff:notCellString('InkNames')", setter(inks3, 333, num(1))},
      {"Tiff:photometricInterpretationNotSeparated('InkSet')", setter(minIsBlack, 332, num(1))},
      {"Tiff:badSamplesPerPixelBitsPerSampleCombination()", setter(bilevel, 277, num(3))},
      {"Tiff:badSampleFormatfor1Bps()", setter(bilevel, 339, num(2))},
      {"Tiff:sampleFormatValueNotSupported()", setter(rgb, 339, num(4))},
      {"Tiff:badBitsPerSampleValue()", setter({}, 258, num(12))},
      {"Tiff:badPhotometricLabPaletteBitsPerSampleCombination()", setter(palette, 258, num(1))},
      {"Tiff:badBitsPerSampleCompressionCombination()", setter({{262, num(1)}, {258, num(8)}}, 259, num(4))},
      {"Tiff:unsupportedCompressionScheme(6)", setter(minIsBlack, 259, num(6))},
      {"Tiff:ccittNotSupportedForCreating()", setter(minIsBlack, 259, num(2))},
      {"Tiff:badThresholdingValue(4)", setter({}, 263, num(4))},
      {"Tiff:badPlanarConfigurationValue(3)", setter({}, 284, num(3))},
      {"Tiff:badPhotometricPlanarConfigurationCombination()", setter(logL, 284, num(2))},
      {"Tiff:badTransferFunctionSize(8, 1, 256, 1)", setter(grey8, 301, filled(255, 1, 0))},
      {"Tiff:badSMinMaxValueForBiLevelImage('SMaxSampleValue')", setter(bilevel, 341, num(0.5))},
      {"Tiff:badSampleFormatBitsPerSampleCombination(3, 16)",
       setter({{262, num(1)}, {258, num(16)}, {339, num(3)}}, 341, num(0.5))},
      {"Tiff:badColorMap(256, 8)", setter(grey8, 320, filled(255, 3, 0))},
      {"Tiff:colorMapValuesNotNormalized()", setter(grey8, 320, filled(256, 3, 1.0001))},
      // Image layout and write configuration
      {"Tiff:illegalPlanarConfiguration(3)",
       [](const Files& f) {
         return injected(TIFFTAG_PLANARCONFIG, 3, [&] { return on("computeStrip", f.path("grey.tif"), {num(0)}); });
       }},
      {"Tiff:imageDimensionsNotSet()", writer(ImageSpec{0}, {str("anything")}, false,
                                             [](TIFF* tif) {
                                               // ImageWidth alone makes ImageLength read back as 0.
                                               TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, 16);
                                               TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
                                             })},
      {"Tiff:tileDimensionsNotSet()", writer(layout(), {u8({16, 16})}, false,
                                           [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_TILEWIDTH, 16); })},
      {"Tiff:badPlanarConfigurationSamplesPerPixelCombination()",
       writer(with(layout(), [](ImageSpec& s) { s.planar = PLANARCONFIG_SEPARATE; }), {u8({16, 16})})},
      {"Tiff:badContigImageOneSpp()", writer(layout(), {u8({16, 16, 2})})},
      {"Tiff:badContigImageMultipleSpp()", writer(layout(8, PHOTOMETRIC_RGB, 3), {u8({16, 16})})},
      {"Tiff:badPlanarImage()",
       writer(with(layout(8, PHOTOMETRIC_RGB, 3), [](ImageSpec& s) { s.planar = PLANARCONFIG_SEPARATE; }),
              {u8({16, 16, 2})})},
      {"Tiff:badSampleFormat()", writer(layout(8, PHOTOMETRIC_MINISBLACK, 1, SAMPLEFORMAT_VOID), {u8({16, 16})})},
      {"Tiff:badDatatypeForSampleFormat('Int', 'int8, int16, int32')", writer(layout(8, PHOTOMETRIC_MINISBLACK, 1, SAMPLEFORMAT_INT), {u8({16, 16})})},
      {"Tiff:unsupportedBitsPerSample(12)", writer(layout(12), {Array(zvUINT16_CLASS, {16, 16})})},
      {"Tiff:imageDatatypeNot8bit('double')", writer(layout(8), {Array(zvDOUBLE_CLASS, {16, 16})})},
      {"Tiff:imageDatatypeNot16bit('uint8')", writer(layout(16), {u8({16, 16})})},
      {"Tiff:imageDatatypeNot32bit('int16')", writer(layout(32), {Array(zvINT16_CLASS, {16, 16})})},
      {"Tiff:imageDatatypeNotDouble('single')",
       writer(layout(64, PHOTOMETRIC_MINISBLACK, 1, SAMPLEFORMAT_IEEEFP), {Array(zvSINGLE_CLASS, {16, 16})})},
      {"Tiff:imageDatatypeNotLogical('uint8')", writer(layout(1), {u8({16, 16})})},
      {"Tiff:wrongNumberOfInputImages()", writer(layout(), {u8({16, 16}), u8({16, 16})})},
      {"Tiff:badRgbSamplesPerPixelConfiguration()", writer(layout(8, PHOTOMETRIC_RGB, 2), {u8({16, 16, 2})})},
      {"Tiff:badPaletteWriteConfiguration()", writer(layout(4, PHOTOMETRIC_PALETTE), {u8({16, 16})})},
      {"Tiff:colorMapShouldbeSet()", writer(layout(8, PHOTOMETRIC_PALETTE), {u8({16, 16})})},
      {"Tiff:badDatatypeForPaletteImage(8, 8)",
       writer(layout(8, PHOTOMETRIC_PALETTE), {Array(zvINT8_CLASS, {16, 16})}, false, colormap)},
      {"Tiff:badYCbCrDimensions(15, 15, 8, 7, 8, 7, 2, 2)", writer(ycc, {u8({15, 15}), u8({8, 7}), u8({8, 7})})},
      {"Tiff:unsupportedYCbCrConfiguration()", [](const Files& f) { return on("readEncodedStrip", f.path("ycc-planes.tif"), {num(0)}); }},
      {"Tiff:eightBitSgiFormatNotAllowedWhenWriting()",
       writer(logluv, {u8({16, 16, 3})}, false, [](TIFF* tif) { TIFFSetField(tif, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_8BIT); })},
      {"Tiff:luvCodecNotSet()",
       [](const Files& f) { return on("readEncodedStrip", f.corpus("imagetiff-pics-off-l16.tif"), {num(0)}); }},
      {"Tiff:badExtraSamples('RGB', 3)",
       writer(with(layout(8, PHOTOMETRIC_RGB, 3), [](ImageSpec& s) { s.extraSamples = 1; }), {u8({16, 16, 3})})},
      {"Tiff:improperUsageOfExtraSamples(1)",
       writer(with(layout(8, PHOTOMETRIC_CIELAB, 4), [](ImageSpec& s) { s.extraSamples = 1; }), {u8({16, 16, 4})})},
      {"Tiff:jpegBitsPerSampleMustBeEight()",
       writer(with(layout(16), [](ImageSpec& s) { s.compression = COMPRESSION_JPEG; }), {Array(zvUINT16_CLASS, {16, 16})})},
      {"Tiff:jpegCompressionRequiresThreeSamplesPerPixel()",
       writer(with(layout(8, PHOTOMETRIC_MINISBLACK, 2), [](ImageSpec& s) { s.compression = COMPRESSION_JPEG, s.extraSamples = 1; }),
              {u8({16, 16, 2})})},
      {"Tiff:strippedJpegCompressionRequires16()",
       writer(with(layout(), [](ImageSpec& s) { s.compression = COMPRESSION_JPEG, s.rowsPerStrip = 8; }), {u8({16, 16})})},
      {"Tiff:tiledJpegCompressionRequires16()",
       [](const Files& f) {
         const ModuleFile t(f.path("tiled.tif"), "r");
         TIFFSetField(t.tif(), TIFFTAG_COMPRESSION, COMPRESSION_JPEG);
         TIFFSetField(t.tif(), TIFFTAG_TILEWIDTH, 8);
         return call("writeEncodedTile", {t, num(0), u8({16, 8})});
       }},
      // Strip and tile data
      {"Tiff:strippedOperationOnTiledImage()", [](const Files& f) { return on("readEncodedStrip", f.path("tiled.tif"), {num(0)}); }},
      {"Tiff:tiledOperationOnStrippedImage()", [](const Files& f) { return on("readEncodedTile", f.path("grey.tif"), {num(0)}); }},
      {"Tiff:sampleParameterRequired()", [](const Files& f) { return on("computeStrip", f.path("planes.tif"), {num(0)}); }},
      {"Tiff:sampleParameterNotAllowedInChunkyCase()",
       [](const Files& f) { return on("computeStrip", f.path("grey.tif"), {num(0), num(0)}); }},
      {"Tiff:badStripNumber(2)", [](const Files& f) { return on("readEncodedStrip", f.path("grey.tif"), {num(5)}); }},
      {"Tiff:badTileNumber(4)", [](const Files& f) { return on("readEncodedTile", f.path("tiled.tif"), {num(9)}); }},
      {"Tiff:stripNumberTooLarge(1)",
       [](const Files& f) {
         ModuleFile w(f.path("write.tif"));
         set_image_tags(w.tif(), layout());
         return w.write(false, num(3), {u8({16, 16})});
       }},
      {"Tiff:tileNumberTooLarge(1)",
       [=](const Files& f) {
         ModuleFile w(f.path("write.tif"));
         set_image_tags(w.tif(), tiles);
         return w.write(true, num(4), {u8({16, 16})});
       }},
      {"Tiff:tooManyBytes(0, *", [](const Files& f) { return on("readEncodedStrip", f.path("huge.tif"), {num(0)}); }},
      {"Tiff:imageDepthStrippedLayoutMismatch(2)",
       [](const Files& f) { return on("readEncodedStrip", f.path("deep.tif"), {num(3)}); }},
      {"Tiff:readWithJpegColorModeRGB()",
       [](const Files& f) {
         const ModuleFile jpeg(f.path("jpeg.tif"), "r");
         TIFFSetField(jpeg.tif(), TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
         return call("readEncodedStrip", {jpeg, num(0)});
       }},
      {"Tiff:imageReadErrorRGBA()", [](const Files& f) { return on("readRGBAImage", f.path("huge.tif")); }},
      {"Tiff:stripReadErrorRGBA(97)", [](const Files& f) { return on("readRGBAStrip", f.path("grey.tif"), {num(100)}); }},
      {"Tiff:tileReadErrorRGBA(1, 289)", [](const Files& f) { return on("readRGBATile", f.path("tiled.tif"), {num(300), num(10)}); }},
      {"Tiff:stripWriteFailure(1)",
       [](const Files& f) {
         ModuleFile w(f.path("write.tif"));
         set_image_tags(w.tif(), layout());
         make_writes_fail(w.tif(), f.path("write.tif"));
         return w.write(false, num(0), {u8({16, 16})});
       }},
      {"Tiff:tileWritefailure(1)",
       [=](const Files& f) {
         ModuleFile w(f.path("write.tif"));
         set_image_tags(w.tif(), tiles);
         make_writes_fail(w.tif(), f.path("write.tif"));
         return w.write(true, num(0), {u8({16, 16})});
       }},
      // The four cuts are warnings of a write that goes on.
      {"Tiff:dataWidthExceedsImageWidth(16, 20)", writer(layout(), {u8({16, 20})})},
      {"Tiff:dataLengthExceedsRowsPerStrip(16, 20)", writer(layout(), {u8({20, 16})})},
      {"Tiff:dataWidthExceedsTileWidth(16, 20)", writer(tiles, {u8({16, 20})}, true)},
      {"Tiff:dataLengthExceedsTileLength(16, 20)", writer(tiles, {u8({20, 16})}, true)},
      {"Tiff:unhandledBitsPerSample(2)",
       [](const Files& f) { return on("readEncodedStrip", f.corpus("imagetiff-flower-minisblack-02.tif"), {num(0)}); }},
      {"Tiff:unknownSampleFormat(7)",
       [](const Files& f) {
         return injected(TIFFTAG_SAMPLEFORMAT, 7, [&] { return on("readEncodedStrip", f.path("grey32.tif"), {num(0)}); });
       }},
      {"Tiff:complexSampleFormat()", [](const Files& f) { return on("readEncodedStrip", f.path("complex.tif"), {num(0)}); }},
      {"Tiff:sampleFormatMustBeIeeeFpFor64Bits()",
       [](const Files& f) { return on("readEncodedStrip", f.corpus("imagetiff-uint64-gradient.tiff"), {num(0)}); }},
  };
}

/// Empty when the call raised the row's error, or warned with its warning,
/// as expected; else what it did.
std::string mismatch(const CallResult& r, const std::string& expected) {
  const std::string kind = expected.substr(0, expected.find('(')), id = "Quarn:imagesci:" + kind;
  const std::string want = expected.substr(expected.find(':') + 1);
  const auto matches = [&](const std::string& seen) {
    return want.back() == '*' ? seen.rfind(want.substr(0, want.size() - 1), 0) == 0 : seen == want;
  };
  if (r.error_id() == id && matches(outcome(r))) return "";
  const std::vector<std::string> warned = warning_outcomes(r);
  for (std::size_t i = 0; i < r.warnings.size(); ++i)
    if (r.warnings[i].identifier == id && matches(warned[i])) return "";
  return outcome(r);
}

}  // namespace

TEST(every_kind, reached_through_the_host_and_leaves_nothing_behind) {
  const Files files;
  // Files that stay open through every failure below: one read, one being
  // written, each moved off its first state so that a reset would show.
  const Array reader = open_file(files.path("three.tif"));
  ASSERT_TRUE(call("setDirectory", {reader, num(1)}).ok());
  const Array writer = open_file(files.path("bystander.tif"), "w");
  ASSERT_TRUE(call("setField", {writer, num(256), num(24)}).ok());
  const double readerDirectory = call("currentDirectory", {reader}).out().number();
  const Array readerStrip = call("readEncodedStrip", {reader, num(0)}).out();
  // Directory 1 of three.tif is 16 pixels wide (write_multi_directory_file).
  ASSERT_EQ(call("getField", {reader, num(256)}).out().number(), 16.0);
  const auto bystanders_intact = [&] {
    const CallResult directory = call("currentDirectory", {reader});
    ASSERT_TRUE(directory.ok()) << outcome(directory);
    EXPECT_EQ(directory.out().number(), readerDirectory);
    EXPECT_EQ(call("getField", {reader, num(256)}).out().number(), 16.0);
    const CallResult strip = call("readEncodedStrip", {reader, num(0)});
    ASSERT_TRUE(strip.ok()) << outcome(strip);
    EXPECT_EQ(compare(strip.out(), readerStrip).mismatch, "");
    EXPECT_EQ(call("getField", {writer, num(256)}).out().number(), 24.0);
    EXPECT_TRUE(call("getVersion").ok());
  };

  const bool counted = blocks_counted();
  std::set<std::string> covered;
  for (const Row& row : rows()) {
    SCOPED_TRACE(row.expected);
    // The first run builds what libtiff and the runtime keep from call to
    // call (codec state, buffers that only grow); the second is measured.
    row.reach(files);
    const tiffgate::FileRegistry registry = tiffgate::open_file_registry();
    const std::size_t descriptors = open_descriptors();
    const std::int64_t blocks = g_live_blocks;  // last: the copies above are part of it
    {
      const CallResult r = row.reach(files);
      EXPECT_EQ(mismatch(r, row.expected), "");
    }
    if (counted) {
      EXPECT_EQ(g_live_blocks, blocks);
    }
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(tiffgate::open_file_registry(), registry);
    bystanders_intact();
    covered.insert(std::string(row.expected).substr(0, std::string(row.expected).find('(')));
  }

  // The file being written all along is finished through the module, and
  // libtiff reads it back.
  for (const auto& [tag, value] : Tags{{257, num(2)}, {262, num(1)}, {258, num(8)}, {277, num(1)}, {278, num(2)}})
    ASSERT_TRUE(call("setField", {writer, num(tag), value}).ok()) << tag;
  const Array pixels = Array::of<std::uint8_t>(zvUINT8_CLASS, {2, 24}, std::vector<std::uint8_t>(48, 99));
  ASSERT_TRUE(call("writeEncodedStrip", {writer, num(0), pixels}).ok());
  ASSERT_TRUE(call("close", {writer}).ok());
  {
    TiffHandle back(files.path("bystander.tif"), "r");
    std::vector<std::uint8_t> bytes(48);
    ASSERT_EQ(TIFFReadEncodedStrip(back, 0, bytes.data(), 48), 48);
    EXPECT_EQ(bytes, std::vector<std::uint8_t>(48, 99));
  }

  // The unload closes what is still open with a warning, and the module
  // takes calls again afterwards.
  const std::vector<tiffgate::embedded::Warning> closing = tiffgate::embedded::unload();
  ASSERT_EQ(closing.size(), 1u);
  for (const auto& w : closing) EXPECT_EQ(w.identifier, tiff_id("closingFileHandle"));
  covered.insert("Tiff:closingFileHandle");
  EXPECT_TRUE(tiffgate::open_file_registry().empty());
  EXPECT_EQ(outcome(call("currentDirectory", {reader})), "invalidFileId()");
  EXPECT_TRUE(call("getVersion").ok());

  // Every kind the module must have, and only those.
  std::set<std::string> kinds;
  std::ifstream list(test_source("required_kinds.txt"));
  for (std::string line; std::getline(list, line);) {
    std::istringstream words(line);
    for (std::string k; line.rfind('#', 0) != 0 && words >> k;) kinds.insert(k.substr(0, k.find('(')));
  }
  EXPECT_EQ(kinds.size(), 117u);
  EXPECT_EQ(covered, kinds);
}

// The injected values with the arguments each refusal reports, and the
// reads that follow once they are gone.
TEST(every_kind, injected_values_are_reported_as_met) {
  const Files files;
  const Array a = open_file(files.path("grey.tif")), b = open_file(files.path("grey32.tif"));
  g_extra_bytes = 1;
  EXPECT_EQ(outcome(call("readEncodedStrip", {a, num(1)})), "tooManyBytes(1, 128, 129)");
  g_extra_bytes = 0;
  EXPECT_EQ(outcome(call("readEncodedStrip", {a, num(1)})), "ok");
  const std::pair<std::uint32_t, std::uint16_t> sampleFormat7{TIFFTAG_SAMPLEFORMAT, 7}, planar3{TIFFTAG_PLANARCONFIG, 3};
  const struct {
    std::pair<std::uint32_t, std::uint16_t> injected;
    const char* command;
    const Array& id;
    const char* expected;
  } rows[] = {
      {sampleFormat7, "readEncodedStrip", b, "unknownSampleFormat(7)"},
      {sampleFormat7, "readEncodedStrip", a, "badSampleFormatBitsPerSampleCombination(7, 8)"},
      {planar3, "readEncodedTile", a, "illegalPlanarConfiguration(3)"},
      {planar3, "computeStrip", a, "illegalPlanarConfiguration(3)"},
      {{0, 0}, "readEncodedStrip", b, "ok"},
  };
  for (const auto& row : rows) {
    const CallResult r = injected(row.injected.first, row.injected.second,
                                  [&] { return call(row.command, {row.id, num(0)}); });
    EXPECT_EQ(outcome(r), row.expected) << row.command;
  }
  call("close", {a});
  call("close", {b});
}
