#include "support/write_files.h"

#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace tiffgate::testing {

void set_tags(TIFF* tif, const ImageTags& t) {
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, t.width);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, t.length);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, t.bits);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, t.samples);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, t.photometric);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, t.planar);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, t.compression);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, t.sampleFormat);
  if (t.tile) {
    TIFFSetField(tif, TIFFTAG_TILEWIDTH, t.tile);
    TIFFSetField(tif, TIFFTAG_TILELENGTH, t.tile);
  } else if (t.rowsPerStrip) {
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, t.rowsPerStrip);
  }
  if (t.extraSamples) {
    const std::vector<std::uint16_t> kinds(t.extraSamples, EXTRASAMPLE_UNASSALPHA);
    TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, t.extraSamples, kinds.data());
  }
  if (t.subsampling[0]) TIFFSetField(tif, TIFFTAG_YCBCRSUBSAMPLING, t.subsampling[0], t.subsampling[1]);
  if (t.jpegColorMode >= 0) TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, t.jpegColorMode);
}

ModuleFile::ModuleFile(const std::string& path, const char* mode) : id_(open_file(path, mode)) {
  open_ = id_.at<std::uint64_t>(0) != 0;
  if (!open_) throw std::runtime_error("the module could not open " + path);
}

ModuleFile::~ModuleFile() {
  if (open_) embedded::call("close", {id_});
}

TIFF* ModuleFile::tif() const { return reinterpret_cast<TIFF*>(static_cast<std::uintptr_t>(id_.at<std::uint64_t>(0))); }

embedded::CallResult ModuleFile::write(bool tiled, embedded::Array chunk, std::vector<embedded::Array> images) const {
  images.insert(images.begin(), {id_, std::move(chunk)});
  return embedded::call(tiled ? "writeEncodedTile" : "writeEncodedStrip", std::move(images));
}

void ModuleFile::close() {
  if (!open_) return;
  open_ = false;
  const auto result = embedded::call("close", {id_});
  if (!result.ok()) throw std::runtime_error("close failed: " + result.error_id());
}

std::vector<std::uint8_t> libtiff_chunk(const std::string& path, std::uint32_t chunk) {
  TiffHandle in(path, "r");
  const bool tiled = TIFFIsTiled(in);
  const tmsize_t size = tiled ? TIFFTileSize(in) : TIFFStripSize(in);
  std::vector<std::uint8_t> buffer(static_cast<std::size_t>(size));
  const tmsize_t got = tiled ? TIFFReadEncodedTile(in, chunk, buffer.data(), size)
                             : TIFFReadEncodedStrip(in, chunk, buffer.data(), size);
  if (got < 0) throw std::runtime_error("libtiff could not decode chunk " + std::to_string(chunk));
  return buffer;
}

Decoded tifffile_decode(const std::string& path) {
  const std::string command =
      "/usr/bin/python3 -c 'import sys, numpy, tifffile\n"
      "a = tifffile.imread(sys.argv[1])\n"
      "a = a.astype(numpy.uint8) if a.dtype == bool else a\n"
      "sys.stdout.write(a.dtype.str + \" \" + \" \".join(map(str, a.shape)) + \"\\n\"); sys.stdout.flush()\n"
      "sys.stdout.buffer.write(numpy.ascontiguousarray(a).tobytes())' '" +
      path + "'";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  if (!pipe) throw std::runtime_error("could not run tifffile");
  Decoded decoded;
  std::string header;
  for (int ch; (ch = std::fgetc(pipe.get())) != EOF && ch != '\n';) header += static_cast<char>(ch);
  std::istringstream fields(header);
  fields >> decoded.dtype;
  for (std::size_t n; fields >> n;) decoded.shape.push_back(n);
  std::uint8_t block[4096];
  for (std::size_t got; (got = std::fread(block, 1, sizeof block, pipe.get())) > 0;)
    decoded.bytes.insert(decoded.bytes.end(), block, block + got);
  return decoded;
}

std::string args_text(const Args& args) {
  struct Show : boost::static_visitor<std::string> {
    std::string operator()(const std::string& t) const { return '"' + t + '"'; }
    std::string operator()(const std::u16string& t) const { return "u\"" + std::string(t.begin(), t.end()) + '"'; }
    std::string operator()(std::int64_t i) const { return std::to_string(i); }
  };
  std::string text = "(";
  for (const auto& a : args) text += (text.size() > 1 ? ", " : "") + boost::apply_visitor(Show(), a);
  return text + ")";
}

std::vector<std::string> warning_texts(const embedded::CallResult& r) {
  std::vector<std::string> texts;
  for (const auto& w : r.warnings) texts.push_back(w.identifier + args_text(w.arguments));
  return texts;
}

}  // namespace tiffgate::testing
