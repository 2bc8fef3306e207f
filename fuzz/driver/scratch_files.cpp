#include "fuzz/driver/scratch_files.h"

#include "fuzz/driver/support.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include <tiffio.h>

namespace tiffgate::fuzz {
namespace {

/// Corpus files opened for reading by every input: SubIFDs and three
/// directories, subsampled YCbCr, JPEG YCbCr, 1-bit tiles, separate planes,
/// a 2-bit palette, GeoTIFF keys, CMYK, LogLuv and 64-bit floats.
constexpr const char* kReadFiles[] = {
    "imagetiff-subsubifds.tif",        "libtiffnet-ycbcr42-contig-08.tif",        "pillow-child-ifd-jpeg.tiff",
    "imagetiff-tiled-1b-16x16.tif",    "imagetiff-flower-rgb-planar-08.tif",      "imagetiff-flower-palette-02.tif",
    "libgeotiff-epsg27563-allkeys.tif", "imagetiff-flower-separated-contig-08.tif", "libtiff-logluv-3c-16b.tiff",
    "imagetiff-float64-gradient.tiff"};

/// Corpus files copied into the scratch directory for every input and
/// opened there "r+", so that the setters and the directory writers meet
/// directories libtiff read from a file: fax pages holding Group3Options
/// under Group 4 coding, a palette image, SubIFDs, BigTIFF tiles. The
/// corpus itself is only ever read.
constexpr const char* kCopiedFiles[] = {"twelvemonkeys-g4-5pages.tif", "imagetiff-flower-palette-02.tif",
                                        "imagetiff-subsubifds.tif", "imagetiff-bigtiff-tiled-8b.tiff"};

std::string bytes_of(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

/// An uncompressed image whose directory holds Predictor and
/// Group3Options, tags that only the codecs using them define: libtiff
/// reads them back as tags it does not know. The corpus has no such file,
/// so one is written with libtiff, the two tags declared for the purpose.
std::string foreign_codec_tags_file() {
  static const TIFFFieldInfo kForeign[] = {
      {TIFFTAG_PREDICTOR, 1, 1, TIFF_SHORT, FIELD_CUSTOM, 1, 0, const_cast<char*>("Predictor")},
      {TIFFTAG_GROUP3OPTIONS, 1, 1, TIFF_LONG, FIELD_CUSTOM, 1, 0, const_cast<char*>("Group3Options")}};
  const std::string path = scratch_dir() + "/foreign-codec-tags.tif";
  TIFF* tif = TIFFOpen(path.c_str(), "w");
  if (tif == nullptr) throw std::runtime_error("cannot write " + path);
  std::uint8_t pixels[16 * 16];
  for (std::size_t i = 0; i < sizeof pixels; ++i) pixels[i] = static_cast<std::uint8_t>(i * 37);
  const bool written =
      TIFFMergeFieldInfo(tif, kForeign, 2) == 0 && TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, 16) &&
      TIFFSetField(tif, TIFFTAG_IMAGELENGTH, 16) && TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8) &&
      TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK) && TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 16) &&
      TIFFSetField(tif, TIFFTAG_PREDICTOR, 2) && TIFFSetField(tif, TIFFTAG_GROUP3OPTIONS, 1u) &&
      TIFFWriteEncodedStrip(tif, 0, pixels, sizeof pixels) == static_cast<tmsize_t>(sizeof pixels);
  TIFFClose(tif);
  if (!written) throw std::runtime_error("cannot write " + path);
  return bytes_of(path);
}

}  // namespace

std::vector<std::string> command_read_files() {
  std::vector<std::string> found;
  for (const char* name : kReadFiles) {
    const std::string path = corpus_dir() + "/" + name;
    if (std::ifstream(path).good()) found.push_back(path);
  }
  return found;
}

std::vector<std::pair<std::string, std::string>> command_copied_files() {
  std::vector<std::pair<std::string, std::string>> files;
  for (const char* name : kCopiedFiles) {
    const std::string path = corpus_dir() + "/" + name;
    if (std::ifstream(path).good()) files.emplace_back(name, bytes_of(path));
  }
  files.emplace_back("foreign-codec-tags.tif", foreign_codec_tags_file());
  return files;
}


}  // namespace tiffgate::fuzz
