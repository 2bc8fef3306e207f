// Round trips with an independent TIFF library: files written through the
// module alone (tags by "setField", data by "writeEncodedStrip" and
// "writeEncodedTile", directories by "writeDirectory") are read by tifffile
// and compared value for value with the arrays written; files written by
// tifffile are read through the module and compared likewise.

#include "support/corpus.h"
#include "support/image_files.h"
#include "support/tag_files.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <map>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;
using embedded::CallResult;

std::size_t ceil_div(std::size_t a, std::size_t b) { return (a + b - 1) / b; }

// --- module writes, tifffile reads ------------------------------------------

struct Layout {
  const char* what;
  zvClassID cls;
  std::uint16_t bits, format, photometric, samples, extra, planar, compression, predictor;
  std::uint32_t width, length, rowsPerStrip, tile;  // tiled when tile is set

  bool planes() const { return planar == PLANARCONFIG_SEPARATE && samples > 1; }
  std::size_t element() const { return bits == 1 ? 1 : bits / 8u; }
  /// What tifffile makes of the layout: its dtype name and shape.
  std::string shape() const {
    const std::string image = std::to_string(length) + "x" + std::to_string(width);
    if (samples == 1) return image;
    return planes() ? std::to_string(samples) + "x" + image : image + "x" + std::to_string(samples);
  }
  /// Compressions tifffile decodes without extra codecs.
  bool tifffile_decodes() const {
    return compression == COMPRESSION_NONE || compression == COMPRESSION_ADOBE_DEFLATE ||
           compression == COMPRESSION_DEFLATE || compression == COMPRESSION_PACKBITS;
  }
};

constexpr std::uint16_t U = SAMPLEFORMAT_UINT, S = SAMPLEFORMAT_INT, F = SAMPLEFORMAT_IEEEFP;
constexpr std::uint16_t C = PLANARCONFIG_CONTIG, P = PLANARCONFIG_SEPARATE;
constexpr std::uint16_t GREY = PHOTOMETRIC_MINISBLACK, RGB = PHOTOMETRIC_RGB, PAL = PHOTOMETRIC_PALETTE;

// Every class, 1, 2, 3 and 4 samples, both planar configurations, strips
// and tiles with partial edges, every compression the module can create.
// clang-format off
const Layout kLayouts[] = {
    {"uint8 grey, short last strip", zvUINT8_CLASS, 8, U, GREY, 1, 0, C, COMPRESSION_NONE, 1, 17, 23, 5, 0},
    {"int8 grey, Deflate", zvINT8_CLASS, 8, S, GREY, 1, 0, C, COMPRESSION_ADOBE_DEFLATE, 1, 17, 23, 8, 0},
    {"uint16 RGB, Deflate with predictor", zvUINT16_CLASS, 16, U, RGB, 3, 0, C, COMPRESSION_ADOBE_DEFLATE, 2, 19, 11, 4, 0},
    {"int16 grey, PackBits tiles", zvINT16_CLASS, 16, S, GREY, 1, 0, C, COMPRESSION_PACKBITS, 1, 37, 21, 0, 16},
    {"uint32 RGBA", zvUINT32_CLASS, 32, U, RGB, 4, 1, C, COMPRESSION_NONE, 1, 13, 9, 3, 0},
    {"int32 grey, old-style Deflate tiles", zvINT32_CLASS, 32, S, GREY, 1, 0, C, COMPRESSION_DEFLATE, 1, 20, 18, 0, 16},
    {"single RGB, separate planes", zvSINGLE_CLASS, 32, F, RGB, 3, 0, P, COMPRESSION_NONE, 1, 7, 12, 5, 0},
    {"double RGB, separate tiles", zvDOUBLE_CLASS, 64, F, RGB, 3, 0, P, COMPRESSION_ADOBE_DEFLATE, 1, 18, 33, 0, 16},
    {"1-bit, 21 wide", zvLOGICAL_CLASS, 1, U, GREY, 1, 0, C, COMPRESSION_NONE, 1, 21, 13, 4, 0},
    {"1-bit PackBits tiles", zvLOGICAL_CLASS, 1, U, GREY, 1, 0, C, COMPRESSION_PACKBITS, 1, 35, 20, 0, 16},
    {"uint8 grey and alpha", zvUINT8_CLASS, 8, U, GREY, 2, 1, C, COMPRESSION_NONE, 1, 9, 8, 4, 0},
    {"uint16 grey and alpha, separate tiles", zvUINT16_CLASS, 16, U, GREY, 2, 1, P, COMPRESSION_NONE, 1, 24, 17, 0, 16},
    {"uint8 palette", zvUINT8_CLASS, 8, U, PAL, 1, 0, C, COMPRESSION_NONE, 1, 10, 12, 0, 0},
    {"uint8 RGB, LZW", zvUINT8_CLASS, 8, U, RGB, 3, 0, C, COMPRESSION_LZW, 1, 15, 10, 4, 0},
    {"uint8 grey, JPEG", zvUINT8_CLASS, 8, U, GREY, 1, 0, C, COMPRESSION_JPEG, 1, 32, 32, 16, 0},
    {"1-bit, G3", zvLOGICAL_CLASS, 1, U, GREY, 1, 0, C, COMPRESSION_CCITTFAX3, 1, 21, 13, 4, 0},
    {"1-bit, G4", zvLOGICAL_CLASS, 1, U, GREY, 1, 0, C, COMPRESSION_CCITTFAX4, 1, 21, 13, 0, 0},
};
// clang-format on

/// The bits of sample k of pixel (y, x) as one element of the layout:
/// patterns that reach every byte and sign, finite floating-point values.
std::uint64_t element_bits(const Layout& l, std::size_t y, std::size_t x, std::size_t k) {
  const std::uint64_t p = (y * 0x9E3779B1ull + x * 0x85EBCA77ull + k * 0xC2B2AE3Dull + l.width) * 0x2545F4914F6CDD1Dull;
  if (l.bits == 1) return (p >> 40) & 1;
  if (l.compression == COMPRESSION_JPEG) return (y * 3 + x * 2) & 0xFF;  // smooth, for a lossy coder
  const auto value = static_cast<double>(static_cast<std::int32_t>(p >> 32)) / 8;
  std::uint64_t bits = p >> 3;
  if (l.cls == zvSINGLE_CLASS) {
    const float f = static_cast<float>(value);
    std::uint32_t b;
    std::memcpy(&b, &f, 4);
    bits = b;
  } else if (l.cls == zvDOUBLE_CLASS) {
    std::memcpy(&bits, &value, 8);
  }
  return l.element() == 8 ? bits : bits & ((1ull << (8 * l.element())) - 1);
}

/// One setField call; fails the test when the module refuses it.
void set(const Array& id, std::uint32_t tag, Array value) {
  const CallResult r = call("setField", {id, num(tag), std::move(value)});
  ASSERT_TRUE(r.ok()) << "tag " << tag << ": " << outcome(r);
}

Array row(const std::vector<double>& values) { return Array::of(zvDOUBLE_CLASS, {1, values.size()}, values); }

// Tags of directory 0 (text and GeoTIFF) and directory 2, with the values
// tifffile must find in the file.
const char* const kDescription = "written through the module: caf\xC3\xA9";
const std::vector<double> kPixelScale = {0.5, 0.25, 0}, kTiepoint = {0, 0, 0, 440720, 3751320, 0};
const std::vector<double> kGeoKeys = {1, 1, 0, 2, 1024, 0, 1, 1, 1025, 0, 1, 1};
const std::vector<double> kGeoDoubles = {6378137, 298.257223563};
const std::vector<double> kTransformation = {2, 0, 0, 100, 0, -2, 0, 200, 0, 0, 1, 0, 0, 0, 0, 1};
std::vector<double> palette_map() {
  std::vector<double> map(256 * 3);
  for (std::size_t i = 0; i < map.size(); ++i) map[i] = static_cast<double>((i * 7919) % 65536) / 65535;
  return map;
}

/// Writes one directory of layout l: tags, then every chunk.
void write_directory(const Array& id, const Layout& l) {
  set(id, 262, num(l.photometric));  // first: the other tags are checked against it
  set(id, 258, num(l.bits));
  set(id, 277, num(l.samples));
  set(id, 339, num(l.format));
  set(id, 284, num(l.planar));
  set(id, 259, num(l.compression));
  if (l.predictor != 1) set(id, 317, num(l.predictor));
  set(id, 256, num(l.width));
  set(id, 257, num(l.length));
  if (l.tile) {
    set(id, 322, num(l.tile));
    set(id, 323, num(l.tile));
  } else if (l.rowsPerStrip) {
    set(id, 278, num(l.rowsPerStrip));
  }
  if (l.extra) set(id, 338, row({EXTRASAMPLE_UNASSALPHA}));
  if (l.photometric == PAL) set(id, 320, Array::of(zvDOUBLE_CLASS, {256, 3}, palette_map()));

  const bool tiled = l.tile != 0;
  const std::size_t spc = l.planar == P ? 1 : l.samples;
  const std::size_t cw = tiled ? l.tile : l.width, ch = tiled ? l.tile : (l.rowsPerStrip ? l.rowsPerStrip : l.length);
  const std::size_t across = ceil_div(l.width, cw), perPlane = across * ceil_div(l.length, ch);
  const CallResult count = call(tiled ? "numberOfTiles" : "numberOfStrips", {id});
  ASSERT_EQ(count.out().number(), static_cast<double>(perPlane * (l.planar == P ? l.samples : 1)));
  for (std::size_t i = 0; i < perPlane * (l.planar == P ? l.samples : 1); ++i) {
    // The part of chunk i inside the image, worked out by hand.
    const std::size_t plane = i / perPlane, y0 = i % perPlane / across * ch, x0 = i % across * cw;
    const std::size_t m = std::min(ch, l.length - y0), n = std::min(cw, l.width - x0);
    std::vector<std::size_t> dims = {m, n};
    if (spc > 1) dims.push_back(spc);
    Array data(l.cls, dims);
    auto* bytes = static_cast<unsigned char*>(data.data());
    for (std::size_t k = 0; k < spc; ++k)
      for (std::size_t c = 0; c < n; ++c)
        for (std::size_t r = 0; r < m; ++r) {
          const std::uint64_t bits = element_bits(l, y0 + r, x0 + c, plane + k);
          std::memcpy(bytes + (r + c * m + k * m * n) * l.element(), &bits, l.element());
        }
    const CallResult w = call(tiled ? "writeEncodedTile" : "writeEncodedStrip", {id, num(i), data});
    ASSERT_TRUE(w.ok()) << "chunk " << i << ": " << outcome(w);
    EXPECT_TRUE(w.warnings.empty()) << "chunk " << i;
  }
}

/// The whole image of layout l in tifffile's layout.
std::vector<unsigned char> expected_image(const Layout& l) {
  std::vector<unsigned char> out(std::size_t{l.width} * l.length * l.samples * l.element());
  for (std::size_t y = 0; y < l.length; ++y)
    for (std::size_t x = 0; x < l.width; ++x)
      for (std::size_t k = 0; k < l.samples; ++k) {
        const std::size_t at = l.planes() ? (k * l.length + y) * l.width + x : (y * l.width + x) * l.samples + k;
        const std::uint64_t bits = element_bits(l, y, x, k);
        std::memcpy(&out[at * l.element()], &bits, l.element());
      }
  return out;
}

std::vector<unsigned char> file_contents(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The key of each layout's directory: directory 0 lists the next one as
/// its SubIFD, so the main chain goes on with the one after.
std::string key_of(std::size_t layout) {
  if (layout == 0) return "0";
  if (layout == 1) return "0.0";
  return std::to_string(layout - 1);
}

/// The directory 0 tags as tifffile finds them in the file's bytes.
void expect_tags(const DirectoryRecord& d0, const DirectoryRecord& d2) {
  const auto text = [](const std::string& s) {
    std::string hex;
    for (const unsigned char c : s + '\0') hex += "0123456789abcdef"[c >> 4], hex += "0123456789abcdef"[c & 15];
    return hex;
  };
  const std::pair<std::uint32_t, std::string> texts[] = {
      {270, kDescription}, {305, "tiffgate tests"}, {315, "nobody"}, {306, "2024:06:07 08:09:10"},
      {34737, "WGS 84|"}};
  for (const auto& [tag, value] : texts) {
    ASSERT_TRUE(d0.tag(tag)) << tag;
    EXPECT_EQ(d0.tag(tag)->values, text(value)) << tag;
  }
  const std::pair<std::uint32_t, std::vector<double>> numbers[] = {
      {33550, kPixelScale}, {33922, kTiepoint}, {34735, kGeoKeys}, {34736, kGeoDoubles}, {282, {72.5}}, {296, {2}}};
  for (const auto& [tag, values] : numbers) {
    ASSERT_TRUE(d0.tag(tag)) << tag;
    EXPECT_EQ(d0.tag(tag)->numbers(), values) << tag;
  }
  ASSERT_TRUE(d0.tag(330));
  EXPECT_EQ(d0.tag(330)->count, 1u);
  ASSERT_TRUE(d2.tag(34264));
  EXPECT_EQ(d2.tag(34264)->numbers(), kTransformation);
}

TEST(tifffile_round_trip, module_writes_tifffile_reads) {
  ScratchDir dir;
  const std::vector<std::string> files = {dir.path("classic.tif"), dir.path("bigtiff.tif")};
  for (const std::string& path : files) {
    const Array id = open_file(path, path == files[1] ? "w8" : "w");
    for (std::size_t i = 0; i < std::size(kLayouts); ++i) {
      SCOPED_TRACE(kLayouts[i].what);
      write_directory(id, kLayouts[i]);
      if (i == 0) {
        set(id, 270, str(kDescription));
        set(id, 305, str("tiffgate tests"));
        set(id, 315, str("nobody"));
        set(id, 306, str("2024:06:07 08:09:10"));
        set(id, 282, num(72.5));
        set(id, 296, num(RESUNIT_INCH));
        set(id, 33550, row(kPixelScale));
        set(id, 33922, Array::of(zvDOUBLE_CLASS, {1, 6}, kTiepoint));
        // Key directory: one record per row.
        std::vector<double> keys(kGeoKeys.size());
        for (std::size_t r = 0; r < 3; ++r)
          for (std::size_t c = 0; c < 4; ++c) keys[r + c * 3] = kGeoKeys[r * 4 + c];
        set(id, 34735, Array::of(zvDOUBLE_CLASS, {3, 4}, keys));
        set(id, 34736, row(kGeoDoubles));
        set(id, 34737, str("WGS 84|"));
        set(id, 330, num(1));  // the next directory is its SubIFD
      }
      if (i == 3) set(id, 34264, row(kTransformation));
      ASSERT_TRUE(call("writeDirectory", {id}).ok());
    }
    ASSERT_TRUE(call("close", {id}).ok());
  }

  const std::vector<PageRecord> pages = parse_pages(run_python("tifffile_pages.py", {dir.path(""), files[0], files[1]}));
  ASSERT_EQ(pages.size(), 2 * std::size(kLayouts));
  std::map<std::string, const PageRecord*> byKey;
  for (const PageRecord& p : pages) byKey[p.file + " " + p.key] = &p;
  std::size_t compared = 0;
  for (const std::string& path : files) {
    for (std::size_t i = 0; i < std::size(kLayouts); ++i) {
      const Layout& l = kLayouts[i];
      SCOPED_TRACE(path + ": " + l.what);
      ASSERT_TRUE(byKey.count(path + " " + key_of(i)));
      const PageRecord& p = *byKey[path + " " + key_of(i)];
      EXPECT_EQ(p.shape, l.shape());
      EXPECT_EQ(p.dtype, dtype_of(l.cls));
      EXPECT_EQ(p.compression, l.compression);
      // Other compressions need codecs tifffile lacks here; the write tests
      // hold their values against libtiff's decode.
      EXPECT_EQ(p.decoded(), l.tifffile_decodes()) << p.data;
      if (!p.decoded()) continue;
      EXPECT_TRUE(file_contents(p.data) == expected_image(l)) << "tifffile decodes other values";
      ++compared;
    }
  }
  EXPECT_EQ(compared, 2 * 13u);

  auto directories = tifffile_directories(files, false);
  for (const std::string& path : files) {
    SCOPED_TRACE(path);
    ASSERT_TRUE(directories[path].count("0") && directories[path].count("2"));
    expect_tags(directories[path]["0"], directories[path]["2"]);
  }
}

// --- tifffile writes, the module reads ---------------------------------------

/// Layouts tifffile writes that the module refuses by design.
const std::map<std::string, std::string> kRefused = {
    {"float16.tif", "badSampleFormatBitsPerSampleCombination(3, 16)"},  // no 16-bit floating-point class
    {"uint64.tif", "sampleFormatMustBeIeeeFpFor64Bits()"},              // 64-bit samples are double only
    {"int64.tif", "sampleFormatMustBeIeeeFpFor64Bits()"},
};

TEST(tifffile_round_trip, tifffile_writes_module_reads) {
  ScratchDir dir;
  const std::vector<PageRecord> pages = parse_pages(run_python("tifffile_write.py", {dir.path("")}));
  ASSERT_GE(pages.size(), 36u);
  std::map<std::string, Array> open;
  std::size_t compared = 0;
  for (const PageRecord& p : pages) {
    const std::string name = p.file.substr(p.file.rfind('/') + 1);
    SCOPED_TRACE(name + " page " + p.key);
    if (!open.count(p.file)) open[p.file] = open_file(p.file);
    const Array& id = open[p.file];
    ASSERT_EQ(go_to_directory(id, p.key), "");
    const ModuleImage image = read_module_image(id);
    if (kRefused.count(name)) {
      EXPECT_EQ(image.outcome, kRefused.at(name));
      continue;
    }
    ASSERT_EQ(image.outcome, "ok");
    EXPECT_EQ(image.shape, p.shape);
    EXPECT_EQ(image.dtype, p.dtype);
    EXPECT_TRUE(image.bytes == file_contents(p.data)) << "the module reads other values";
    ++compared;
  }
  for (const auto& [file, id] : open) EXPECT_TRUE(call("close", {id}).ok()) << file;
  EXPECT_EQ(compared, pages.size() - kRefused.size());
}

}  // namespace
}  // namespace tiffgate::testing
