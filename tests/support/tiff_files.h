#pragma once
/// Test support: scratch files, and TIFF files written with libtiff directly
/// (never through the module), so that tests check against values known
/// independently of the code under test.

#include "files/files.h"
#include "host/embedded/session.h"

#include <tiffio.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tiffgate::testing {

/// A fresh directory under the system's temporary directory, removed with
/// everything in it when the object goes.
class ScratchDir {
 public:
  ScratchDir();
  ~ScratchDir();
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  std::string path(const std::string& name) const { return dir_ + "/" + name; }

 private:
  std::string dir_;
};

/// The corpus of real files (../shared/corpus beside the project).
std::string corpus_dir();

/// Owns a libtiff handle opened directly, for writing or checking files.
struct TiffHandle {
  TIFF* tif = nullptr;
  TiffHandle(const std::string& path, const char* mode);
  ~TiffHandle();
  TiffHandle(const TiffHandle&) = delete;
  TiffHandle& operator=(const TiffHandle&) = delete;
  operator TIFF*() const { return tif; }
};

/// Sets the tags of a simple image directory: width x length, samples of
/// bits each (unsigned), minisblack or RGB, no compression, stripped with
/// rowsPerStrip rows, or tiled when tileSize is non-zero.
void set_basic_tags(TIFF* tif, std::uint32_t width, std::uint32_t length, std::uint16_t bits = 8,
                    std::uint16_t samples = 1, std::uint32_t rowsPerStrip = 0, std::uint32_t tileSize = 0);

/// The tags of a test image; stripped unless tileWidth is set.
struct ImageSpec {
  std::uint32_t width = 16, length = 16;
  std::uint16_t bits = 8, samples = 1, format = SAMPLEFORMAT_UINT;
  std::uint16_t planar = PLANARCONFIG_CONTIG, photometric = PHOTOMETRIC_MINISBLACK;
  std::uint16_t compression = COMPRESSION_NONE;
  std::uint32_t rowsPerStrip = 0;  ///< 0: not set, one strip
  std::uint32_t tileWidth = 0, tileLength = 0;
  std::uint16_t extraSamples = 0;         ///< trailing samples marked as unassociated alpha
  std::uint16_t subsampling[2] = {2, 2};  ///< set for YCbCr only
  int jpegColorMode = -1;                 ///< -1: not set
};

/// Sets the tags of image_spec with TIFFSetField, in an order libtiff takes.
void set_image_tags(TIFF* tif, const ImageSpec& image_spec);

/// Writes every strip or tile of the current directory filled with bytes
/// from fill(chunk index, byte index).
void write_chunks(TIFF* tif, const std::function<std::uint8_t(std::uint32_t, std::size_t)>& fill);

/// A file of `count` small stripped 8-bit grey directories, directory d
/// being (d + 1) * 8 pixels wide and 4 long.
void write_multi_directory_file(const std::string& path, int count);

/// A file whose first directory lists `subifds` SubIFDs (directory i of
/// them 2 x (i + 1)), followed by a second main directory. Returns the
/// SubIFD offsets as written.
std::vector<std::uint64_t> write_file_with_subifds(const std::string& path, int subifds);

/// The libtiff handle behind the identifier of an open file, so that a test can check the
/// module's work with libtiff itself, or change the handle's state the way
/// a host-side caller could not.
inline TIFF* handle_of(const embedded::Array& id) { return registered_handle(id.at<std::uint64_t>(0)); }

/// "Quarn:imagesci:Tiff:<kind>", an identifier as the host sees it.
inline std::string tiff_id(const std::string& kind) { return "Quarn:imagesci:Tiff:" + kind; }

/// A call's outcome as text, so that a failing test shows it: "ok" after a
/// success, else the error's kind and arguments, texts quoted:
/// "badStripNumber(3)", "badExtraSamples('RGB', 3)".
std::string outcome(const embedded::CallResult& result);
/// The same text for a kind and its arguments, to compare with.
std::string outcome(const std::string& kind, const std::vector<Quarn::MsgArg>& arguments);
/// The call's warnings in the same form, in order.
std::vector<std::string> warning_outcomes(const embedded::CallResult& result);

/// Operands for the embedded host.
inline embedded::Array num(double v) { return embedded::Array::scalar(v); }
inline embedded::Array str(const std::string& s) { return embedded::Array::text(s); }

/// Opens a file through the gateway; fails the test on error.
embedded::Array open_file(const std::string& path, const char* mode = "r");

}  // namespace tiffgate::testing
