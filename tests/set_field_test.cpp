// "setField": values written through the gateway are read back with libtiff
// directly; every refusal names its kind and leaves the directory as it was.

#include "support/corpus.h"
#include "support/foundation.h"
#include "support/raw_tiff.h"
#include "support/tiff_files.h"
#include "support/write_files.h"

#include <gtest/gtest.h>
#include <tiffio.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <map>
#include <optional>
#include <sstream>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;
using Tags = std::vector<std::pair<double, Array>>;

/// A scratch file opened through the module (for writing unless a mode is
/// given), or an existing one.
struct GatewayFile {
  ScratchDir dir;
  std::string path = dir.path("t.tif");
  ModuleFile file;
  explicit GatewayFile(const char* mode = "w") : file(path, mode) {}
  GatewayFile(const std::string& existing, const char* mode) : path(existing), file(existing, mode) {}
  const Array& id() const { return file.id(); }
  TIFF* tif() const { return file.tif(); }
  std::string set(double tag, Array value) { return outcome(file.set(tag, std::move(value))); }
  void set_all(const Tags& tags) {
    for (const auto& [tag, value] : tags) ASSERT_EQ(set(tag, value), "ok") << "setting " << tag;
  }
  /// Writes the image data with libtiff (which a directory needs to be
  /// readable), then closes through the gateway, which writes the directory.
  void close() {
    write_chunks(tif(), [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
    file.close();
  }
};

/// The directory as libtiff prints it, colour map and curves included.
std::string printed(TIFF* tif) {
  char* text = nullptr;
  std::size_t size = 0;
  FILE* out = open_memstream(&text, &size);
  TIFFPrintDirectory(tif, out, TIFFPRINT_COLORMAP | TIFFPRINT_CURVES);
  std::fclose(out);
  std::string s(text, size);
  std::free(text);
  return s;
}

Array bytes(std::size_t n, std::uint8_t first = 0) {
  std::vector<std::uint8_t> v(n);
  for (std::size_t i = 0; i < n; ++i) v[i] = static_cast<std::uint8_t>(first + i);
  return Array::of(zvUINT8_CLASS, {1, n}, v);
}
Array filled(std::size_t rows, std::size_t columns, double value) {
  return Array::of(zvDOUBLE_CLASS, {rows, columns}, std::vector<double>(rows * columns, value));
}
Array cells(std::vector<Array> v) { return Array::cell(std::move(v)); }

/// getField of a scalar tag through the module, on the handle f holds.
double read_back(const GatewayFile& f, double tag) {
  const embedded::CallResult r = call("getField", {f.id(), num(tag)});
  EXPECT_EQ(outcome(r), "ok") << "tag " << tag;
  return r.ok() ? r.out().number() : -1;
}

template <class T>
T get(TIFF* tif, std::uint32_t tag) {
  T value{};
  EXPECT_TRUE(TIFFGetField(tif, tag, &value)) << "tag " << tag;
  return value;
}
const Tags kGrey8 = {{262, num(1)}, {258, num(8)}, {277, num(1)}};
const Tags kRgb8 = {{262, num(2)}, {258, num(8)}, {277, num(3)}};

/// tiffdump's "count<values>" of each tag of the file's first directory.
std::map<std::uint32_t, std::string> dumped(const std::string& path) {
  std::map<std::uint32_t, std::string> values;
  std::istringstream lines(command_output("tiffdump " + path));
  int directories = 0;
  for (std::string text; std::getline(lines, text);) {
    // "Name (256) SHORT (3) 1<20>", or "700 (0x2bc) BYTE (1) 12<...>" for a
    // tag tiffdump has no name for.
    if (text.rfind("Directory ", 0) == 0 && ++directories) continue;
    const auto open = text.find(" (");
    const auto type = open == std::string::npos ? open : text.find(") ", open);
    const auto value = type == std::string::npos ? type : text.find(") ", type + 1);
    if (directories != 1 || value == std::string::npos) continue;
    const bool unnamed = text.compare(open + 2, 2, "0x") == 0;
    values[std::stoul(unnamed ? text.substr(0, open) : text.substr(open + 2, type - open - 2))] = text.substr(value + 2);
  }
  return values;
}

struct Written {
  double tag;
  Array value;
  const char* dumped;         ///< how tiffdump shows the tag (a prefix of long values)
  std::optional<Array> back = std::nullopt;  ///< what getField gives where that differs from value
};

/// Sets the rows' tags in order on f, writes the file and compares each tag
/// as tiffdump shows it, and as getField reads it from the file reopened.
/// Rationals and floats come back as the nearest value libtiff stores.
void round_trip(GatewayFile& f, const std::vector<Written>& rows) {
  for (const auto& row : rows) ASSERT_EQ(f.set(row.tag, row.value), "ok") << "setting " << row.tag;
  f.close();
  const auto values = dumped(f.path);
  for (const auto& row : rows) {
    const auto found = values.find(static_cast<std::uint32_t>(row.tag));
    ASSERT_NE(found, values.end()) << "tag " << row.tag << " not written";
    EXPECT_EQ(found->second.substr(0, std::strlen(row.dumped)), row.dumped) << "tag " << row.tag;
  }
  GatewayFile reopened(f.path, "r");
  for (const auto& row : rows) {
    const embedded::CallResult r = call("getField", {reopened.id(), num(row.tag)});
    ASSERT_EQ(outcome(r), "ok") << "tag " << row.tag;
    const Comparison c = compare(r.out(), row.back ? *row.back : row.value);
    EXPECT_EQ(c.mismatch, "") << "tag " << row.tag;
    EXPECT_LE(c.largest, 1e-6) << "tag " << row.tag;
  }
}

}  // namespace

// Every tag of the plain shapes, and the RGB colour tags; text goes to the
// file as UTF-8 ("Zoë": 4 bytes and the terminator) and comes back whole.
// DateTime's 19 are characters: 18 of them in 20 bytes take one space.
TEST(SetField, RoundTripsThroughTheFile) {
  std::vector<double> curve(3 * 256), table(3 * 256);  // the curve as set, and as truncated to uint16
  for (std::size_t i = 0; i < curve.size(); ++i) {
    table[i] = static_cast<double>(i * 85 % 65536);
    curve[i] = table[i] + 0.9;
  }
  GatewayFile f;
  round_trip(f, {
      {262, num(2), "1<2>"}, {258, num(8), "3<8 8 8>"}, {277, num(3), "1<3>"}, {254, num(2), "1<2>"},
      {256, num(20), "1<20>"}, {257, num(10), "1<10>"}, {259, num(5), "1<5>"}, {266, num(1), "1<1>"},
      {269, str("doc"), "4<doc\\0>"}, {270, str("text"), "5<text\\0>"}, {271, str("maker"), "6<maker\\0>"},
      {272, str("model"), "6<model\\0>"}, {274, num(4), "1<4>"}, {278, num(5.7), "1<5>", num(5)},
      {280, num(1), "3<1 1 1>"}, {281, num(254), "3<254 254 254>"}, {282, num(72.5), "1<72.5>"},
      {283, Array::row({300}), "1<300>"}, {284, num(1), "1<1>"}, {285, str("page"), "5<page\\0>"},
      {286, num(1.5), "1<1.5>"}, {287, num(0.25), "1<0.25>"}, {296, num(3), "1<3>"},
      {297, Array::row({2, 9}), "2<2 9>"}, {301, Array::of(zvDOUBLE_CLASS, {256, 3}, curve), "768<0 85 170 255 ", Array::of(zvDOUBLE_CLASS, {256, 3}, table)},
      {305, str("tiffgate"), "9<tiffgate\\0>"}, {306, str("2024:05:06 07:08\u00e9\u00e9"), "22<2024:05:06 07:08", str("2024:05:06 07:08\u00e9\u00e9 ")},
      {315, str("Zo\u00eb"), "5<Zo"}, {316, str("host"), "5<host\\0>"}, {317, num(2), "1<2>"},
      {318, Array::row({0.3127, 0.329}), "2<0.3127 0.329>"},
      {319, Array::row({0.64, 0.33, 0.3, 0.6, 0.15, 0.06}), "6<0.64 0.33 0.3 0.6 0.15 0.06>"},
      {321, Array::row({16, 240}), "2<16 240>"}, {339, num(1), "3<1 1 1>"}, {340, num(3.9), "3<0x3 0x3 0x3>", num(3)},
      {341, num(250), "3<0xfa 0xfa 0xfa>"}, {529, Array::row({0.299, 0.587, 0.114}), "3<0.299 0.587 0.114>"},
      {530, Array::row({2, 1}), "2<2 1>"}, {531, num(2), "1<2>"},
      {532, Array::row({0, 255, 128, 255, 128, 255}), "6<0 255 128 255 128 255>"},
      {700, str("<x/>\n"), "5<0x3c 0x78 0x2f 0x3e 0xa>"}, {33432, str("(c)"), "4<(c)\\0>"},
      {33550, Array::row({0.5, 0.25, 0}), "3<0.5 0.25 0>"}, {33723, bytes(4, 10), "4<0xa 0xb 0xc 0xd>"},
      {33922, Array::matrix({{0, 0, 0, 10, 20, 0}, {1, 1, 0, 11, 21, 0}}), "12<0 0 0 10 20 0 1 1 0 11 21 0>"},
      {34264, filled(4, 4, 0.5), "16<0.5 0.5 ", filled(1, 16, 0.5)}, {34377, bytes(7, 20), "7<0x14 0x15 0x16 0x17 0x18 0x19 0x1a>"},
      {34675, bytes(3, 30), "3<0x1e 0x1f 0x20>"},
      {34735, Array::matrix({{1, 1, 0, 1}, {1024, 0, 1, 2}}), "8<1 1 0 1 1024 0 1 2>"},
      {34736, Array::row({6378137.5, 298.25}), "2<6.37814e+06 298.25>"}, {34737, str("WGS 84|"), "8<WGS 84|\\0>"},
      {37439, num(123.5), "1<123.5>"}});
  // Each column of the transfer function is one table.
  TiffHandle in(f.path, "r");
  const std::uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
  ASSERT_TRUE(TIFFGetField(in, TIFFTAG_TRANSFERFUNCTION, &red, &green, &blue));
  EXPECT_EQ((std::vector<int>{red[255], green[0], blue[1]}), (std::vector<int>{21675, 21760, 43605}));
}

// Refusals with their exact arguments, after the tags of its setup, beside
// the one of each kind in every_kind_test.cpp: the other bounds and shapes
// of each rule. The directory libtiff holds is the same before and after
// the refused call, and a file opened for update is the same byte for byte
// once closed.
TEST(SetField, RefusalsNameTheirKindAndChangeNothing) {
  ScratchDir dir;
  // Codec tags in an uncompressed directory: libtiff knows them only from the file.
  const std::string codecTags = dir.path("codec-tags.tif");
  write_raw_tiff(codecTags, {{256, 4, 8}, {257, 4, 4}, {258, 3, 8}, {259, 3, 1}, {262, 3, 1}, {273, 4, 146},
                             {277, 3, 1}, {278, 4, 4}, {279, 4, 32}, {292, 4, 5}, {317, 3, 2}});
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Array single = Array::of(zvSINGLE_CLASS, {1, 1}, std::vector<float>{8});
  const Tags none, minIsBlack = {{262, num(1)}}, rgb = {{262, num(2)}}, palette = {{262, num(3)}};
  const Tags cmyk = {{262, num(5)}, {258, num(8)}, {277, num(5)}, {338, Array::row({2})}};
  const Tags logL = {{262, num(32844)}, {259, num(34676)}}, bilevel = {{262, num(0)}, {258, num(1)}, {339, num(1)}};
  const Tags palette8 = {{262, num(3)}, {258, num(8)}}, mapped8 = {{262, num(3)}, {258, num(8)}, {320, filled(256, 3, 0.5)}};
  const Tags curved8 = {{262, num(1)}, {258, num(8)}, {277, num(1)}, {301, filled(1, 256, 7)}};
  const struct {
    const Tags& setup;
    double tag;
    Array value;
    const char* expected;
    const std::string* update = nullptr;  ///< a file to open "r+" instead of a new one
  } cases[] = {
      // numbers and shapes
      {none, -1, num(1), "argumentOutOfBounds()"},
      {none, 273, num(1), "unrecognizedTagNumber(273)"},
      {none, 260, num(1), "unrecognizedTagNumber(260)"},
      {none, 32995, num(1), "unsupportedTag('Matteing', 32995)"},
      {none, 32998, num(16), "unsupportedTag('TileDepth', 32998)"},
      {none, 257, num(nan), "zeroLengthDimension('ImageLength')"},
      {none, 278, num(0.9), "zeroLengthDimension('RowsPerStrip')"},
      {none, 323, num(0), "zeroLengthDimension('TileLength')"},
      {none, 266, single, "tagValueNotDoublePrecisionScalar('FillOrder')"},
      {none, 266, num(65536), "argumentOutOfBounds()"},
      {none, 274, num(-1), "argumentOutOfBounds()"},
      {none, 254, num(4294967296.0), "argumentOutOfBounds()"},
      {none, 282, Array::row({1, 2}), "tagValueNotDoublePrecisionScalar('XResolution')"},
      {none, 283, Array(), "tagValueNotDoublePrecisionScalar('YResolution')"},
      {none, 282, num(3.5e38), "argumentOutOfBounds()"},
      {none, 282, num(-1), "unableToWriteTag('XResolution')"},
      {none, 37439, Array::row({1, 2}), "tagValueNotDoublePrecisionScalar('StoNits')"},
      {none, 321, num(1), "badTagValueCount('HalftoneHints', 2)"},
      {none, 530, bytes(2), "tagValueNotDoublePrecisionArray('YCbCrSubsampling')"},
      {none, 297, Array::row({1, 65536}), "argumentOutOfBounds()"},
      {none, 529, Array::row({1, 2}), "badTagValueCount('YCbCrCoefficients', 3)"},
      {none, 33550, Array::row({1, 2}), "badTagValueCount('GeoPixelScale', 3)"},
      {none, 34264, filled(3, 4, 1), "badTagValueCount('ModelTransformation', 16)"},
      {none, 34736, str("x"), "tagValueNotDoublePrecisionArray('GeoDoubleParamsTag')"},
      {none, 34735, Array::row({1, 2, 3, 4, 5}), "bad2DtagValue('GeoKeyDirectoryTag', 4)"},
      {none, 34735, filled(1, 4, -1), "argumentOutOfBounds()"},
      {none, 338, str("a"), "tagValueNotDoublePrecisionArray('ExtraSamples')"},
      {none, 338, Array::row({9}), "unableToWriteTag('ExtraSamples')"},
      {none, 270, num(1), "argumentWasNotChar('ImageDescription')"},
      {none, 306, num(1), "argumentWasNotChar('DateTime')"},
      {none, 33723, filled(1, 4, 1), "badUninterpretedTagType('RichTIFFIPTC')"},
      {none, 34377, bytes(6), "lengthTooShort('Photoshop', 7)"},
      {none, 330, num(65536), "argumentOutOfBounds()"},
      {none, 330, num(0), "zeroLengthDimension('SubIFD')"},
      {none, 34736, filled(1, 65536, 0), "argumentOutOfBounds()"},  // read back with a 16-bit count
      {none, 317, num(2), "unableToWriteTag('Predictor')", &codecTags},
      {none, 34675, bytes(0), "unableToWriteTag('ICC Profile')"},
      {none, 34736, Array(), "unableToWriteTag('GeoDoubleParamsTag')"},
      {none, 700, str("<x/>\n"), "ok"},
      {none, 65537, num(50), "unableToWriteTag('JPEGQuality')"},  // no JPEG codec
      // image structure
      {none, 277, num(1), "tagRetrievalBeforeWriteFailed('PhotometricInterpretation', 'SamplesPerPixel')"},
      {minIsBlack, 277, num(1), "tagRetrievalBeforeWriteFailed('BitsPerSample', 'SamplesPerPixel')"},
      {none, 339, num(1), "tagRetrievalBeforeWriteFailed('PhotometricInterpretation', 'SampleFormat')"},
      {minIsBlack, 339, num(2), "tagRetrievalBeforeWriteFailed('BitsPerSample', 'SampleFormat')"},
      {none, 263, num(1), "tagRetrievalBeforeWriteFailed('PhotometricInterpretation', 'Thresholding')"},
      {none, 258, num(8), "tagRetrievalBeforeWriteFailed('PhotometricInterpretation', 'BitsPerSample')"},
      {none, 284, num(1), "tagRetrievalBeforeWriteFailed('PhotometricInterpretation', 'PlanarConfiguration')"},
      {none, 65560, num(0), "tagRetrievalBeforeWriteFailed('PhotometricInterpretation', 'SGILogDataFmt')"},
      {none, 332, num(1), "tagRetrievalBeforeWriteFailed('PhotometricInterpretation', 'InkSet')"},
      {{{262, num(5)}}, 334, num(4), "tagRetrievalBeforeWriteFailed('SamplesPerPixel', 'NumberOfInks')"},
      {minIsBlack, 333, cells({str("K")}), "photometricInterpretationNotSeparated('InkNames')"},
      {minIsBlack, 334, num(1), "photometricInterpretationNotSeparated('NumberOfInks')"},
      {minIsBlack, 336, Array::row({0, 1}), "photometricInterpretationNotSeparated('DotRange')"},
      {minIsBlack, 337, str("p"), "photometricInterpretationNotSeparated('TargetPrinter')"},
      {cmyk, 336, Array::row({0}), "badTagValueCount('DotRange', 2)"},
      {cmyk, 337, num(1), "argumentWasNotChar('TargetPrinter')"},
      {cmyk, 334, num(6), "invalidNumberOfInksValue(6, 5, 1)"},
      {cmyk, 334, num(5), "ok"},
      {{{262, num(5)}, {258, num(8)}, {277, num(1)}, {334, num(1)}}, 333, cells({str(std::string(70000, 'a'))}),
       "argumentOutOfBounds()"},
      {logL, 339, num(3), "doNotSetForLogLuv('SampleFormat')"},
      {logL, 258, num(16), "doNotSetForLogLuv('BitsPerSample')"},
      {rgb, 339, num(6), "sampleFormatValueNotSupported()"},
      {rgb, 339, num(7), "unableToWriteTag('SampleFormat')"},
      // A new depth after ColorMap or TransferFunction left libtiff's tables at the old size, read past later.
      {mapped8, 258, num(16), "badBitsPerSampleValue()"},
      {curved8, 258, num(16), "badBitsPerSampleValue()"},
      // The LogLuv codec would set BitsPerSample 8 (and SamplesPerPixel 3 first).
      {{{262, num(1)}, {258, num(1)}, {320, filled(2, 3, 1)}, {262, num(32845)}, {259, num(34677)}}, 65560, num(3),
       "invalidSGILogDataFmtValue(3)"},
      {mapped8, 258, num(8), "ok"},
      {palette8, 258, num(16), "ok"},
      {rgb, 258, num(64), "ok"},
      {{{262, num(9)}}, 258, num(32), "badPhotometricLabPaletteBitsPerSampleCombination()"},
      {minIsBlack, 259, num(4), "ok"},  // BitsPerSample defaults to 1
      {minIsBlack, 259, num(0), "unsupportedCompressionScheme(0)"},
      {minIsBlack, 259, num(32771), "ccittNotSupportedForCreating()"},
      // colour and range
      {{{262, num(5)}, {258, num(8)}, {277, num(2)}, {334, num(2)}}, 333, cells({str("C"), num(1)}), "notCellString('InkNames')"},
      {none, 301, filled(2, 1, 0), "tagRetrievalBeforeWriteFailed('PhotometricInterpretation', 'TransferFunction')"},
      {{{262, num(8)}}, 301, filled(2, 1, 0),
       "badTagUsedWithPhotometric('TransferFunction', 'MinIsWhite, MinIsBlack, RGB, Palette, YCbCr')"},
      {kRgb8, 301, filled(256, 1, 0), "badTransferFunctionSize(8, 3, 256, 3)"},
      {kRgb8, 301, filled(3, 256, 0), "badTransferFunctionSize(8, 3, 256, 3)"},
      {kGrey8, 301, filled(128, 2, 0), "badTransferFunctionSize(8, 1, 256, 1)"},
      {kGrey8, 301, Array::of(zvDOUBLE_CLASS, {128, 1, 2}, std::vector<double>(256)), "badTransferFunctionSize(8, 1, 256, 1)"},
      {kGrey8, 301, filled(1, 256, 65536), "argumentOutOfBounds()"},
      {{{262, num(2)}, {258, num(8)}, {277, num(4)}}, 301, filled(256, 3, 0), "badTransferFunctionSppCombination(4)"},
      {minIsBlack, 318, Array::row({0.3, 0.3}), "badTagUsedWithPhotometric('WhitePoint', 'RGB, YCbCr, Palette, CIELab, ICCLab')"},
      {rgb, 318, Array::row({0.3, 0.3, 0.3}), "badTagValueCount('WhitePoint', 2)"},
      {{{262, num(10)}}, 318, Array::row({0.3, 0.3}), "ok"},
      {none, 319, filled(1, 6, 0), "tagRetrievalBeforeWriteFailed('PhotometricInterpretation', 'PrimaryChromaticities')"},
      {minIsBlack, 319, filled(1, 6, 0), "badTagUsedWithPhotometric('PrimaryChromaticities', 'RGB, YCbCr, Palette')"},
      {palette, 319, filled(1, 5, 0), "badTagValueCount('PrimaryChromaticities', 6)"},
      {palette, 532, filled(1, 6, 0), "badTagUsedWithPhotometric('ReferenceBlackWhite', 'RGB, YCbCr')"},
      {rgb, 532, filled(2, 3, 1), "ok"},  // any shape with 6 elements
      {{{262, num(6)}}, 532, filled(1, 7, 0), "badTagValueCount('ReferenceBlackWhite', 6)"},
      {palette, 320, filled(256, 3, 0), "tagRetrievalBeforeWriteFailed('BitsPerSample', 'ColorMap')"},
      {kGrey8, 320, filled(256, 2, 0), "badColorMap(256, 8)"},
      {kGrey8, 320, Array::of(zvUINT8_CLASS, {256, 3}, std::vector<std::uint8_t>(768)), "badColorMap(256, 8)"},
      {{{262, num(3)}, {258, num(16)}}, 320, Array(), "badColorMap(65536, 16)"},
      {kGrey8, 320, filled(256, 3, -0.1), "colorMapValuesNotNormalized()"},
      {kGrey8, 320, filled(256, 3, nan), "colorMapValuesNotNormalized()"},
      {kGrey8, 340, Array::row({1, 2}), "tagValueNotDoublePrecisionScalar('SMinSampleValue')"},
      {kGrey8, 341, num(1), "tagRetrievalBeforeWriteFailed('SampleFormat', 'SMaxSampleValue')"},
      {{{262, num(1)}, {339, num(1)}}, 340, num(1), "tagRetrievalBeforeWriteFailed('BitsPerSample', 'SMinSampleValue')"},
      {bilevel, 341, num(nan), "badSMinMaxValueForBiLevelImage('SMaxSampleValue')"},
      {bilevel, 340, bytes(1), "tagValueNotDoublePrecisionArray('SMinSampleValue')"},
      {{{262, num(1)}, {258, num(64)}, {339, num(1)}}, 341, num(0.5), "badSampleFormatBitsPerSampleCombination(1, 64)"},
      {{{262, num(1)}, {258, num(8)}, {339, num(1)}}, 341, num(256), "argumentOutOfBounds()"},
      {{{262, num(1)}, {258, num(8)}, {339, num(2)}}, 340, num(-129), "argumentOutOfBounds()"},
  };
  for (const auto& c : cases) {
    std::optional<GatewayFile> opened;
    GatewayFile& f = c.update ? opened.emplace(*c.update, "r+") : opened.emplace();
    const std::vector<unsigned char> bytes = file_bytes(f.path);
    f.set_all(c.setup);
    const std::string before = printed(f.tif());
    EXPECT_EQ(f.set(c.tag, c.value), c.expected) << "tag " << c.tag;
    if (std::string(c.expected) != "ok") {
      EXPECT_EQ(printed(f.tif()), before) << "tag " << c.tag;
    }
    if (c.update) {
      f.file.close();
      EXPECT_EQ(file_bytes(f.path), bytes) << "tag " << c.tag;
    }
  }
}

// Ink tags of a Separated image, a palette, and tiled and Group 3 bilevel images.
TEST(SetField, InkColourMapAndBilevelRoundTrips) {
  GatewayFile cmyk, palette, fax, fax3;
  round_trip(cmyk, {{262, num(5), "1<5>"}, {258, num(8), "5<8 8 8 8 8>"}, {277, num(5), "1<5>"},
                    {338, Array::row({2}), "1<2>"}, {334, num(4), "1<4>"}, {332, num(1), "1<1>"},
                    {333, cells({str("C"), str("M"), str("Y"), str("K")}), "8<C\\0M\\0Y\\0K\\0>"},
                    {336, Array::row({0, 255}), "2<0 255>"}, {337, str("press"), "6<press\\0>"},
                    {256, num(16), "1<16>"}, {257, num(4), "1<4>"}});
  std::vector<double> map(3 * 256, 0.25), stored(3 * 256, 16384.0 / 65535);  // as set, and as scaled back
  for (std::size_t i = 0; i < 256; ++i) {
    map[i] = static_cast<double>(i % 3) / 2, map[512 + i] = 1;
    stored[i] = (i % 3 == 0 ? 0 : i % 3 == 1 ? 32768 : 65535) / 65535.0, stored[512 + i] = 1;
  }
  round_trip(palette, {{262, num(3), "1<3>"}, {258, num(8), "1<8>"}, {277, num(1), "1<1>"},
                       {320, Array::of(zvDOUBLE_CLASS, {256, 3}, map), "768<0 32768 65535 0 ",  // halves round up
                        Array::of(zvDOUBLE_CLASS, {256, 3}, stored)},
                       {256, num(16), "1<16>"}, {257, num(4), "1<4>"}});
  TiffHandle in(palette.path, "r");
  const std::uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
  ASSERT_TRUE(TIFFGetField(in, TIFFTAG_COLORMAP, &red, &green, &blue));
  EXPECT_EQ((std::vector<int>{red[255], green[255], blue[0]}), (std::vector<int>{0, 16384, 65535}));
  round_trip(fax, {{262, num(0), "1<0>"}, {258, num(1), "1<1>"}, {277, num(1), "1<1>"}, {339, num(1), "1<1>"},
                   {259, num(4), "1<4>"}, {293, num(0), "1<0>"}, {263, num(2), "1<2>"}, {256, num(32), "1<32>"},
                   {257, num(32), "1<32>"}, {322, num(16), "1<16>"}, {323, num(32), "1<32>"},
                   {340, num(0), "1<00>"}, {341, Array::row({1}), "1<0x1>"}});
  round_trip(fax3, {{262, num(0), "1<0>"}, {259, num(3), "1<3>"}, {292, num(5), "1<5>"}, {256, num(32), "1<32>"},
                    {257, num(8), "1<8>"}});
}

// SMinSampleValue and SMaxSampleValue through the conversion of each sample
// format: truncated toward zero to the sample type, stored as libtiff types
// them by the format.
TEST(SetField, SampleRangesRoundTripInTheirFormats) {
  GatewayFile int16, uint32, float32, float64;
  const auto grey = [](double bits, double format) {
    return std::vector<Written>{{262, num(1), "1<1>"}, {258, num(bits), ""}, {277, num(1), "1<1>"},
                                {339, num(format), ""}, {256, num(4), "1<4>"}, {257, num(2), "1<2>"}};
  };
  const auto with = [](std::vector<Written> rows, Written min, Written max) {
    rows.push_back(std::move(min));
    rows.push_back(std::move(max));
    return rows;
  };
  round_trip(int16, with(grey(16, 2), {340, num(-5.5), "1<-5>", num(-5)}, {341, num(1000.9), "1<1000>", num(1000)}));
  round_trip(uint32, with(grey(32, 1), {340, num(7), "1<7>"}, {341, num(4294967295.0), "1<4294967295>"}));
  round_trip(float32, with(grey(32, 3), {340, num(-1.5), "1<-1.5>"}, {341, num(0.25), "1<0.25>"}));
  round_trip(float64, with(grey(64, 3), {340, num(-1e300), "1<-1e+300>"}, {341, num(1e-300), "1<1e-300>"}));
}

// The codec settings, which libtiff keeps in the handle rather than the file
// (read back on the same handle), Group3Options, which needs its codec,
// SMaxSampleValue for a sample format without a conversion, and SubIFD
// reservation.
TEST(SetField, CodecSettingsAndReservations) {
  GatewayFile jpeg, zip, fax3, logL, logLuv, voidFormat, subifd;
  jpeg.set_all({{262, num(6)}, {256, num(16)}, {257, num(16)}, {259, num(7)}, {65537, num(60.9)}, {65538, num(1)}});
  EXPECT_EQ(get<int>(jpeg.tif(), 65537), 60);
  EXPECT_EQ(get<int>(jpeg.tif(), 65538), 1);
  EXPECT_EQ(read_back(jpeg, 65537), 60);
  // getField does not read JPEGColorMode; retrieveMetadata reports it.
  EXPECT_EQ(outcome(call("getField", {jpeg.id(), num(65538)})), "unhandledTagId(65538)");
  const embedded::CallResult metadata = call("retrieveMetadata", {jpeg.id()});
  ASSERT_EQ(outcome(metadata), "ok");
  EXPECT_EQ(metadata.out().field("JPEGColorMode")->number(), 1);
  zip.set_all({{262, num(1)}, {259, num(8)}, {65557, num(9)}});
  EXPECT_EQ(get<int>(zip.tif(), 65557), 9);
  EXPECT_EQ(read_back(zip, 65557), 9);
  fax3.set_all({{262, num(0)}, {259, num(3)}, {292, num(5)}});
  EXPECT_EQ(get<std::uint32_t>(fax3.tif(), 292), 5u);
  EXPECT_EQ(read_back(fax3, 292), 5);
  logL.set_all({{262, num(32844)}, {259, num(34676)}, {65560, num(3)}});
  EXPECT_EQ(get<int>(logL.tif(), 65560), 3);
  EXPECT_EQ(get<std::uint16_t>(logL.tif(), 277), 1);
  EXPECT_EQ(read_back(logL, 65560), 3);
  EXPECT_EQ(read_back(logL, 277), 1);
  logLuv.set_all({{262, num(32845)}, {259, num(34677)}, {65560, num(0)}});
  EXPECT_EQ(get<std::uint16_t>(logLuv.tif(), 277), 3);
  EXPECT_EQ(read_back(logLuv, 65560), 0);
  EXPECT_EQ(read_back(logLuv, 277), 3);
  // A sample format the table has no column for ignores the value: 0 is set.
  voidFormat.set_all({{262, num(1)}, {258, num(8)}, {339, num(1)}});
  ASSERT_TRUE(TIFFSetField(voidFormat.tif(), 339, SAMPLEFORMAT_VOID));  // refused by the module itself
  EXPECT_EQ(voidFormat.set(341, num(77)), "ok");
  EXPECT_EQ(get<double>(voidFormat.tif(), 341), 0.0);
  EXPECT_EQ(read_back(voidFormat, 341), 0);

  subifd.set_all(kGrey8);
  subifd.set_all({{256, num(8)}, {257, num(2)}, {330, num(2.9)}});
  write_chunks(subifd.tif(), [](std::uint32_t, std::size_t) { return std::uint8_t{1}; });
  ASSERT_TRUE(call("writeDirectory", {subifd.id()}).ok());
  for (int i = 0; i < 2; ++i) {
    subifd.set_all(kGrey8);
    subifd.set_all({{256, num(4 + i)}, {257, num(1)}});
    write_chunks(subifd.tif(), [](std::uint32_t, std::size_t) { return std::uint8_t{2}; });
    ASSERT_TRUE(call("writeDirectory", {subifd.id()}).ok());
  }
  subifd.file.close();
  TiffHandle in(subifd.path, "r");
  std::uint16_t count = 0;
  const std::uint64_t* offsets = nullptr;
  ASSERT_TRUE(TIFFGetField(in, 330, &count, &offsets));
  ASSERT_EQ(count, 2);  // 2.9 counts as 2, and libtiff filled in both
  const std::vector<std::uint64_t> written(offsets, offsets + count);
  ASSERT_TRUE(TIFFSetSubDirectory(in, offsets[1]));
  EXPECT_EQ(get<std::uint32_t>(in, 256), 5u);
  // Through the module: the count set comes back as the offsets libtiff
  // filled in, each leading to its sub-directory.
  GatewayFile reopened(subifd.path, "r");
  const embedded::CallResult r = call("getField", {reopened.id(), num(330)});
  ASSERT_EQ(outcome(r), "ok");
  EXPECT_EQ(compare(r.out(), Array::of(zvUINT64_CLASS, {1, 2}, written)).mismatch, "");
  EXPECT_EQ(compare(r.out(), Array::of(zvUINT64_CLASS, {1, 2}, written)).largest, 0);
  for (std::size_t i = 0; i < 2; ++i) {
    ASSERT_TRUE(call("setDirectory", {reopened.id(), num(0)}).ok());  // the directory listing them
    ASSERT_TRUE(call("setSubDirectory", {reopened.id(), Array::uint64(written[i])}).ok());
    EXPECT_EQ(read_back(reopened, 256), 4 + i);
  }
}

// A file opened for update: tags set on its directory and rewritten with
// rewriteDirectory read back, and its image data stays as it was.
TEST(SetField, UpdatedDirectoryReadsBack) {
  ScratchDir dir;
  const std::string path = dir.path("update.tif");
  {
    TiffHandle out(path, "w");
    set_basic_tags(out, 8, 4);
    TIFFSetField(out, TIFFTAG_IMAGEDESCRIPTION, "old");
    write_chunks(out, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(3 * i); });
  }
  {
    GatewayFile f(path, "r+");
    f.set_all({{270, str("a longer description")}, {305, str("tiffgate")}, {282, num(300)}});
    ASSERT_EQ(outcome(call("rewriteDirectory", {f.id()})), "ok");
  }
  GatewayFile f(path, "r");
  EXPECT_EQ(f.file.get(270).out().utf8(), "a longer description");
  EXPECT_EQ(f.file.get(305).out().utf8(), "tiffgate");
  EXPECT_EQ(read_back(f, 282), 300);
  const embedded::CallResult strip = call("readEncodedStrip", {f.id(), num(0)});
  ASSERT_EQ(outcome(strip), "ok");
  ASSERT_EQ(strip.out().dims(), (Array::Dims{4, 8}));
  for (std::size_t r = 0; r < 4; ++r)  // byte r * 8 + c of the strip, column-major
    for (std::size_t c = 0; c < 8; ++c) EXPECT_EQ(strip.out().number(r + 4 * c), 3 * (r * 8 + c)) << r << ", " << c;
}

// A file opened for reading takes the four codec settings and nothing else,
// not even a tag number that no table knows.
TEST(SetField, ReadOnlyFilesTakeOnlyCodecSettings) {
  ScratchDir dir;
  const std::string path = dir.path("codecs.tif");
  {
    TiffHandle out(path, "w");
    for (int scheme : {COMPRESSION_JPEG, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_SGILOG}) {
      set_basic_tags(out, 16, 16, scheme == COMPRESSION_SGILOG ? 32 : 8);
      if (scheme == COMPRESSION_SGILOG) TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_LOGL);
      TIFFSetField(out, TIFFTAG_COMPRESSION, scheme);
      if (scheme == COMPRESSION_SGILOG) TIFFSetField(out, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT);
      write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
      ASSERT_TRUE(TIFFWriteDirectory(out));
    }
  }
  GatewayFile f(path, "r");
  const std::string before = printed(f.tif());
  for (double tag : {270.0, 256.0, 273.0, 260.0, 0.0}) EXPECT_EQ(f.set(tag, num(16)), "cannotWriteInReadMode()") << tag;
  EXPECT_EQ(printed(f.tif()), before);
  EXPECT_EQ(f.set(65537, num(40)), "ok");
  EXPECT_EQ(get<int>(f.tif(), 65537), 40);
  EXPECT_EQ(f.set(65538, num(1)), "ok");
  EXPECT_EQ(get<int>(f.tif(), 65538), 1);
  EXPECT_EQ(f.set(65557, num(9)), "unableToWriteTag('ZIPQuality')");  // not a Deflate directory
  ASSERT_TRUE(call("setDirectory", {f.id(), num(1)}).ok());
  EXPECT_EQ(f.set(65557, num(9)), "ok");
  EXPECT_EQ(get<int>(f.tif(), 65557), 9);
  ASSERT_TRUE(call("setDirectory", {f.id(), num(2)}).ok());
  EXPECT_EQ(f.set(65560, num(3)), "ok");
  EXPECT_EQ(get<int>(f.tif(), 65560), 3);

  EXPECT_EQ(outcome(call("setField", {num(0), num(256), num(1)})), "badFileId()");
  EXPECT_EQ(outcome(call("setField", {f.id(), num(256)})), "wrongNumberOfInputs()");
}

// The tag table as the hosts get it ("__tagNames__"), against libtiff's own
// names for the same tags; the module's odd spellings are libtiff's too.
// libtiff names the codec tags once a codec that has them is chosen, and
// leaves most pseudo-tags unnamed; the GeoTIFF names are the extender's.
TEST(SetField, TagNamesAreLibtiffs) {
  const embedded::CallResult r = call("__tagNames__", {}, 2);
  ASSERT_EQ(outcome(r), "ok");
  const Array& numbers = r.out(0);
  const std::vector<Array>& names = r.out(1).cells();
  ASSERT_EQ(numbers.numel(), 102u);
  ASSERT_EQ(names.size(), numbers.numel());
  const std::map<std::uint32_t, std::string> unnamed = {{65537, "JPEGQuality"}, {65538, "JPEGColorMode"},
                                                        {65557, "ZIPQuality"}};
  ScratchDir dir;
  const ModuleFile opened(dir.path("names.tif"), "w");  // the module's handle knows the GeoTIFF tags
  std::map<std::uint32_t, std::string> libtiff_names;
  for (int compression : {COMPRESSION_NONE, COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4, COMPRESSION_LZW,
                          COMPRESSION_JPEG, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_SGILOG}) {
    ASSERT_TRUE(TIFFSetField(opened.tif(), TIFFTAG_COMPRESSION, compression));
    for (std::size_t i = 0; i < numbers.numel(); ++i)
      if (const TIFFField* f = TIFFFindField(opened.tif(), static_cast<std::uint32_t>(numbers.number(i)), TIFF_ANY);
          f && *TIFFFieldName(f))
        libtiff_names.emplace(static_cast<std::uint32_t>(numbers.number(i)), TIFFFieldName(f));
  }
  for (std::size_t i = 0; i < numbers.numel(); ++i) {
    const auto tag = static_cast<std::uint32_t>(numbers.number(i));
    const auto known = libtiff_names.find(tag);
    EXPECT_EQ(names[i].utf8(), known != libtiff_names.end() ? known->second : unnamed.at(tag)) << tag;
    if (i > 0) {
      EXPECT_LT(numbers.number(i - 1), numbers.number(i));
    }
  }
  EXPECT_EQ(libtiff_names.size() + unnamed.size(), numbers.numel());
}

// The tag entries of the hosts: the tags a directory holds as tiffdump
// finds them in the file, a tag outside the table as it was written (an
// unknown one, and GDAL's text tags written through "__setTag__"), and
// what "__setTag__" refuses.
TEST(SetField, TagsOutsideTheTable) {
  ScratchDir dir;
  const std::string path = dir.path("private.tif");
  write_file_with_private_tag(path, 1, 0);  // 8 x 2 grey, tag 65000 "private"
  {
    GatewayFile f(path, "r+");
    const struct {
      double tag;
      Array value;
      const char* expected;
    } writes[] = {{42113, str("-9999"), "ok"},
                  {42112, str("<GDALMetadata/>"), "ok"},
                  {42113, num(1), "argumentWasNotChar('42113')"},
                  {270, str("x"), "unsupportedTag('ImageDescription', 270)"},
                  {65001, str("x"), "unrecognizedTagNumber(65001)"},
                  {259, num(COMPRESSION_LZW), "unsupportedCompressionScheme(5)"},
                  {259, num(COMPRESSION_ZSTD), "ok"},
                  {259, num(COMPRESSION_NONE), "unsupportedCompressionScheme(1)"}};
    for (const auto& w : writes)
      EXPECT_EQ(outcome(call("__setTag__", {f.id(), num(w.tag), w.value})), w.expected) << w.tag;
    TIFFSetField(f.tif(), TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    ASSERT_EQ(outcome(call("rewriteDirectory", {f.id()})), "ok");
  }
  const GatewayFile f(path, "r");
  std::vector<double> dumped_tags;
  for (const auto& [tag, value] : dumped(path)) dumped_tags.push_back(tag);
  const embedded::CallResult listed = call("__listTags__", {f.id()});
  ASSERT_EQ(outcome(listed), "ok");
  EXPECT_EQ(compare(listed.out(), Array::of(zvDOUBLE_CLASS, {1, dumped_tags.size()}, dumped_tags)).mismatch, "");
  const struct {
    double tag;
    const char* expected;
  } reads[] = {{65000, "private"}, {42113, "-9999"}, {42112, "<GDALMetadata/>"}};
  for (const auto& r : reads) EXPECT_EQ(call("__tagValue__", {f.id(), num(r.tag)}).out().utf8(), r.expected) << r.tag;
  // Numbers of every type, from private tags libtiff wrote (and the reader
  // meets as unknown ones).
  const std::string numbers = dir.path("numbers.tif");
  {
    static const TIFFFieldInfo kTypes[] = {
        {65010, -3, -3, TIFF_BYTE, FIELD_CUSTOM, 1, 1, const_cast<char*>("B")},
        {65011, -3, -3, TIFF_SBYTE, FIELD_CUSTOM, 1, 1, const_cast<char*>("SB")},
        {65012, -3, -3, TIFF_SHORT, FIELD_CUSTOM, 1, 1, const_cast<char*>("S")},
        {65013, -3, -3, TIFF_SSHORT, FIELD_CUSTOM, 1, 1, const_cast<char*>("SS")},
        {65014, -3, -3, TIFF_LONG, FIELD_CUSTOM, 1, 1, const_cast<char*>("L")},
        {65015, -3, -3, TIFF_SLONG, FIELD_CUSTOM, 1, 1, const_cast<char*>("SL")},
        {65016, -3, -3, TIFF_FLOAT, FIELD_CUSTOM, 1, 1, const_cast<char*>("F")},
        {65017, -3, -3, TIFF_DOUBLE, FIELD_CUSTOM, 1, 1, const_cast<char*>("D")},
        {65018, -3, -3, TIFF_RATIONAL, FIELD_CUSTOM, 1, 1, const_cast<char*>("R")}};
    TiffHandle out(numbers, "w");
    set_basic_tags(out, 4, 2);
    ASSERT_EQ(TIFFMergeFieldInfo(out, kTypes, 9), 0);
    const std::uint8_t b[] = {1, 255};
    const std::int8_t sb[] = {-128, 7};
    const std::uint16_t u16[] = {65535, 2};
    const std::int16_t s16[] = {-32768, 3};
    const std::uint32_t u32[] = {4294967295u, 4};
    const std::int32_t s32[] = {-2147483647 - 1, 5};
    const float f32[] = {0.25f, -6};
    const double f64[] = {1e300, -7.5};
    const float rational[] = {0.125f, 9};
    const void* values[] = {b, sb, u16, s16, u32, s32, f32, f64, rational};
    for (std::uint32_t i = 0; i < 9; ++i) ASSERT_TRUE(TIFFSetField(out, 65010 + i, 2u, values[i])) << i;
    // Tags libtiff knows outside the module's table: four bytes, one value,
    // a counted row.
    const std::uint8_t version[4] = {1, 4, 0, 0}, cfa[4] = {0, 1, 1, 2};
    ASSERT_TRUE(TIFFSetField(out, TIFFTAG_DNGVERSION, version));
    ASSERT_TRUE(TIFFSetField(out, TIFFTAG_CFAPATTERN, 4, cfa));
    ASSERT_TRUE(TIFFSetField(out, TIFFTAG_BASELINEEXPOSURE, -1.5));
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  const GatewayFile n(numbers, "r");
  const std::vector<std::vector<double>> expected = {{1, 255},    {-128, 7},          {65535, 2},
                                                     {-32768, 3}, {4294967295.0, 4},  {-2147483648.0, 5},
                                                     {0.25, -6},  {1e300, -7.5},      {0.125, 9}};
  const auto same = [&](double tag, const std::vector<double>& values) {
    const Comparison c = compare(call("__tagValue__", {n.id(), num(tag)}).out(),
                                 Array::of(zvDOUBLE_CLASS, {1, values.size()}, values));
    return c.mismatch + (c.largest == 0 ? "" : " differs");
  };
  for (std::uint32_t i = 0; i < 9; ++i) EXPECT_EQ(same(65010 + i, expected[i]), "") << 65010 + i;
  EXPECT_EQ(same(TIFFTAG_DNGVERSION, {1, 4, 0, 0}), "");
  EXPECT_EQ(same(TIFFTAG_BASELINEEXPOSURE, {-1.5}), "");
  EXPECT_EQ(same(TIFFTAG_CFAPATTERN, {0, 1, 1, 2}), "");
  EXPECT_EQ(outcome(call("__tagValue__", {f.id(), num(256)})), "unsupportedTag('ImageWidth', 256)");
  EXPECT_EQ(outcome(call("__tagValue__", {f.id(), num(65002)})), "tagRetrievalFailed('65002')");
}

}  // namespace tiffgate::testing
