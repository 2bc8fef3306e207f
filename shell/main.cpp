// A short demonstration of the module through the embedded host: it writes a
// small multi-directory TIFF with libtiff, opens it through the gateway, walks
// its directories and SubIFDs, and prints what it found.

#include "host/embedded/session.h"

#include <tiffio.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using tiffgate::embedded::Array;
using tiffgate::embedded::call;
using tiffgate::embedded::CallResult;

void write_demo_file(const std::string& path) {
  TIFF* tif = TIFFOpen(path.c_str(), "w");
  if (!tif) std::exit(1);
  const auto directory = [tif](std::uint32_t w, std::uint32_t h, bool tiled, std::uint16_t subifds) {
    TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, w);
    TIFFSetField(tif, TIFFTAG_IMAGELENGTH, h);
    TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    if (tiled) {
      TIFFSetField(tif, TIFFTAG_TILEWIDTH, 16);
      TIFFSetField(tif, TIFFTAG_TILELENGTH, 16);
    } else {
      TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, 8);
    }
    std::vector<toff_t> placeholders(subifds, 0);
    if (subifds) TIFFSetField(tif, TIFFTAG_SUBIFD, subifds, placeholders.data());
    const bool t = TIFFIsTiled(tif);
    const tmsize_t size = t ? TIFFTileSize(tif) : TIFFStripSize(tif);
    const std::uint32_t n = t ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
    std::vector<unsigned char> chunk(static_cast<std::size_t>(size), 128);
    for (std::uint32_t c = 0; c < n; ++c)
      t ? TIFFWriteEncodedTile(tif, c, chunk.data(), size) : TIFFWriteEncodedStrip(tif, c, chunk.data(), size);
    TIFFWriteDirectory(tif);
  };
  directory(64, 48, false, 1);  // main directory 1, with one SubIFD
  directory(32, 24, false, 0);  // its SubIFD
  directory(40, 40, true, 0);   // main directory 2, tiled
  TIFFClose(tif);
}

double number(const CallResult& r) { return r.out().number(); }

void report(const CallResult& r) {
  for (const auto& w : r.warnings) std::printf("  warning: %s: %s\n", w.identifier.c_str(), w.message.c_str());
  if (!r.ok()) std::printf("  error: %s: %s\n", r.error->identifier.c_str(), r.error->message.c_str());
}

void describe(const Array& id) {
  const bool tiled = call("isTiled", {id}).out().number() != 0;
  std::printf("  directory %g: %s, %g %s\n", number(call("currentDirectory", {id})),
              tiled ? "tiled" : "stripped", number(call(tiled ? "numberOfTiles" : "numberOfStrips", {id})),
              tiled ? "tiles" : "strips");
}

}  // namespace

int main() {
  const std::string path = "/tmp/tiffgate-demo.tif";
  write_demo_file(path);
  std::printf("libtiff: %s\n", call("getVersion").out().utf8().c_str());
  std::printf("wrote %s with libtiff; reading it through the gateway:\n", path.c_str());

  const CallResult opened = call("open", {Array::text(path), Array::text("r")});
  report(opened);
  if (!opened.ok()) return 1;
  const Array id = opened.out();
  for (;;) {
    describe(id);
    if (call("lastDirectory", {id}).out().number() != 0) break;
    const CallResult next = call("readDirectory", {id});
    report(next);
    if (!next.ok()) break;
  }

  std::printf("back to directory 1 and into its SubIFD:\n");
  report(call("setDirectory", {id, Array::scalar(0)}));
  TIFF* direct = TIFFOpen(path.c_str(), "r");
  std::uint16_t count = 0;
  toff_t* offsets = nullptr;
  if (direct && TIFFGetField(direct, TIFFTAG_SUBIFD, &count, &offsets) && count > 0) {
    const CallResult sub = call("setSubDirectory", {id, Array::uint64(offsets[0])});
    report(sub);
    if (sub.ok()) describe(id);
  }
  if (direct) TIFFClose(direct);

  std::printf("a directory that is not there:\n");
  report(call("setDirectory", {id, Array::scalar(5)}));
  std::printf("a misspelt command:\n");
  report(call("Close", {id}));
  report(call("close", {id}));
  std::printf("done\n");
  return 0;
}
