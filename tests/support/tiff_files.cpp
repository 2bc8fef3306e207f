#include "support/tiff_files.h"

#include "core/text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace tiffgate::testing {

ScratchDir::ScratchDir() {
  std::string templ = (std::filesystem::temp_directory_path() / "tiffgate-test-XXXXXX").string();
  if (mkdtemp(templ.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  dir_ = templ;
}

ScratchDir::~ScratchDir() {
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

std::string corpus_dir() {
  if (const char* env = std::getenv("TIFFGATE_CORPUS")) return env;
  return std::string(TIFFGATE_SOURCE_DIR) + "/../shared/corpus";
}

TiffHandle::TiffHandle(const std::string& path, const char* mode) : tif(TIFFOpen(path.c_str(), mode)) {
  if (tif == nullptr) throw std::runtime_error("libtiff could not open " + path);
}

TiffHandle::~TiffHandle() {
  if (tif) TIFFClose(tif);
}

void set_basic_tags(TIFF* tif, std::uint32_t width, std::uint32_t length, std::uint16_t bits,
                    std::uint16_t samples, std::uint32_t rowsPerStrip, std::uint32_t tileSize) {
  ImageSpec s;
  s.width = width, s.length = length, s.bits = bits, s.samples = samples;
  s.photometric = samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
  s.rowsPerStrip = rowsPerStrip ? rowsPerStrip : length, s.tileWidth = s.tileLength = tileSize;
  set_image_tags(tif, s);
}

void set_image_tags(TIFF* tif, const ImageSpec& s) {
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, s.width);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, s.length);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, s.bits);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, s.samples);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, s.format);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, s.planar);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, s.photometric);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, s.compression);
  if (s.extraSamples) {
    const std::vector<std::uint16_t> kinds(s.extraSamples, EXTRASAMPLE_UNASSALPHA);
    TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, s.extraSamples, kinds.data());
  }
  if (s.photometric == PHOTOMETRIC_YCBCR) TIFFSetField(tif, TIFFTAG_YCBCRSUBSAMPLING, s.subsampling[0], s.subsampling[1]);
  if (s.tileWidth) {
    TIFFSetField(tif, TIFFTAG_TILEWIDTH, s.tileWidth);
    TIFFSetField(tif, TIFFTAG_TILELENGTH, s.tileLength);
  } else if (s.rowsPerStrip) {
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, s.rowsPerStrip);
  }
  // A codec setting: the codec must have been chosen first.
  if (s.jpegColorMode >= 0) TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, s.jpegColorMode);
}

void write_chunks(TIFF* tif, const std::function<std::uint8_t(std::uint32_t, std::size_t)>& fill) {
  const bool tiled = TIFFIsTiled(tif);
  const std::uint32_t count = tiled ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
  const tmsize_t size = tiled ? TIFFTileSize(tif) : TIFFStripSize(tif);
  std::vector<std::uint8_t> buffer(static_cast<std::size_t>(size));
  for (std::uint32_t c = 0; c < count; ++c) {
    for (std::size_t i = 0; i < buffer.size(); ++i) buffer[i] = fill(c, i);
    const tmsize_t written = tiled ? TIFFWriteEncodedTile(tif, c, buffer.data(), size)
                                   : TIFFWriteEncodedStrip(tif, c, buffer.data(), size);
    if (written < 0) throw std::runtime_error("libtiff could not write a chunk");
  }
}

void write_multi_directory_file(const std::string& path, int count) {
  TiffHandle out(path, "w");
  for (int d = 0; d < count; ++d) {
    set_basic_tags(out, static_cast<std::uint32_t>((d + 1) * 8), 4);
    write_chunks(out, [d](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(d * 10 + i); });
    if (!TIFFWriteDirectory(out)) throw std::runtime_error("TIFFWriteDirectory failed");
  }
}

std::vector<std::uint64_t> write_file_with_subifds(const std::string& path, int subifds) {
  {
    TiffHandle out(path, "w");
    set_basic_tags(out, 16, 16);
    std::vector<toff_t> placeholders(static_cast<std::size_t>(subifds), 0);
    // libtiff writes the next `subifds` directories as SubIFDs of this one.
    TIFFSetField(out, TIFFTAG_SUBIFD, static_cast<std::uint16_t>(subifds), placeholders.data());
    write_chunks(out, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
    if (!TIFFWriteDirectory(out)) throw std::runtime_error("TIFFWriteDirectory failed");
    for (int s = 0; s < subifds; ++s) {
      set_basic_tags(out, 2, static_cast<std::uint32_t>(s + 1));
      TIFFSetField(out, TIFFTAG_SUBFILETYPE, FILETYPE_REDUCEDIMAGE);
      write_chunks(out, [s](std::uint32_t, std::size_t) { return static_cast<std::uint8_t>(100 + s); });
      if (!TIFFWriteDirectory(out)) throw std::runtime_error("TIFFWriteDirectory failed");
    }
    set_basic_tags(out, 24, 4);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{7}; });
    if (!TIFFWriteDirectory(out)) throw std::runtime_error("TIFFWriteDirectory failed");
  }
  TiffHandle in(path, "r");
  std::uint16_t n = 0;
  toff_t* offsets = nullptr;
  if (!TIFFGetField(in, TIFFTAG_SUBIFD, &n, &offsets)) throw std::runtime_error("no SubIFD tag written");
  return std::vector<std::uint64_t>(offsets, offsets + n);
}

std::string outcome(const std::string& kind, const std::vector<Quarn::MsgArg>& arguments) {
  std::string text = kind + "(";
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const Quarn::MsgArg& a = arguments[i];
    if (i) text += ", ";
    if (const auto* n = boost::get<std::int64_t>(&a)) text += std::to_string(*n);
    if (const auto* narrow = boost::get<std::string>(&a)) text += "'" + *narrow + "'";
    if (const auto* wide = boost::get<std::u16string>(&a)) text += "'" + utf16_to_utf8(*wide) + "'";
  }
  return text + ")";
}

namespace {

std::string kind_of(const std::string& identifier) { return identifier.substr(identifier.rfind(':') + 1); }

}  // namespace

std::string outcome(const embedded::CallResult& result) {
  if (result.ok()) return "ok";
  return outcome(kind_of(result.error->identifier), result.error->arguments);
}

std::vector<std::string> warning_outcomes(const embedded::CallResult& result) {
  std::vector<std::string> texts;
  for (const embedded::Warning& w : result.warnings) texts.push_back(outcome(kind_of(w.identifier), w.arguments));
  return texts;
}

embedded::Array open_file(const std::string& path, const char* mode) {
  auto r = embedded::call("open", {str(path), str(mode)});
  EXPECT_TRUE(r.ok()) << r.error_id() << " opening " << path;
  if (!r.ok()) return embedded::Array::uint64(0);
  return r.out();
}

}  // namespace tiffgate::testing
