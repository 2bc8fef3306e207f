#pragma once
/// Test support for the corpus and the round trips: the corpus's CSV
/// files, its TIFF files, and tifffile (under /usr/bin/python3) as an
/// independent reader of directories and tags.

#include "host/embedded/session.h"
#include "support/image_files.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tiffgate::testing {

/// One record of a CSV line with quoted fields.
std::vector<std::string> split_csv(const std::string& line);

/// The rows of a CSV file with a header line, each a map from column to text.
using CsvRow = std::map<std::string, std::string>;
std::vector<CsvRow> read_csv(const std::string& path);

/// The TIFF files (.tif, .tiff) directly in a folder, sorted by name.
std::vector<std::string> tiff_files_in(const std::string& folder);

/// A file under tests/ of the source tree, e.g. a python script.
std::string test_source(const std::string& name);

/// Runs a shell command and returns its standard output; throws when it
/// cannot be started or exits with a status other than 0.
std::string command_output(const std::string& command);

/// /usr/bin/python3 with a script under tests/ and these arguments (each
/// quoted for the shell); its standard output.
std::string run_python(const std::string& script, const std::vector<std::string>& arguments);

/// One tag entry as tifffile_directories.py prints it: the TIFF type, the
/// count and the values (text, byte and undefined values as hexadecimal
/// bytes; numbers in decimal, rationals as their quotient).
struct TagRecord {
  std::uint16_t type = 0;
  std::uint64_t count = 0;
  std::string values;
  std::vector<double> numbers() const;
  std::vector<unsigned char> bytes() const;
};

/// One directory: its tags, and for a SubIFD tifffile's decode of it
/// ("shape", "dtype", "sha256"), or why there is none.
struct DirectoryRecord {
  std::map<std::uint32_t, TagRecord> tags;
  std::string shape, dtype, sha256, error;
  const TagRecord* tag(std::uint32_t code) const;
};

/// The directories of each file by key: "2" main directory 2, "0.1" SubIFD 1
/// of main directory 0, "0.1.0" a SubIFD of that.
using FileDirectories = std::map<std::string, DirectoryRecord>;
std::map<std::string, FileDirectories> tifffile_directories(const std::vector<std::string>& files,
                                                            bool decodeSubIfds);

/// tifffile's dtype name for a host class ("bool", "uint8", "float32", ...).
std::string dtype_of(zvClassID cls);

/// The arrays that chunk reads returned, placed into one C-order image the
/// way tifffile returns it: length x width, x samples for contiguous data,
/// samples x length x width for separate planes.
class ImageAssembly {
 public:
  ImageAssembly(std::uint32_t width, std::uint32_t length, std::uint16_t samples, bool planes)
      : width_(width), length_(length), samples_(samples), planes_(planes && samples > 1) {}
  /// Adds the outputs of the read of the chunk at p (Y, Cb and Cr standing
  /// for three samples, which fits unsubsampled YCbCr only).
  void add(const ChunkPlace& p, const embedded::CallResult& r);
  std::string shape() const;
  std::string dtype() const { return dtype_of(cls_); }
  const std::vector<unsigned char>& bytes() const { return bytes_; }

 private:
  std::uint32_t width_, length_;
  std::uint16_t samples_;
  bool planes_;
  zvClassID cls_ = zvUNKNOWN_CLASS;
  std::size_t element_ = 0;
  std::vector<unsigned char> bytes_;
};

/// The current directory's image read chunk by chunk through the module:
/// "ok" and the image, or the first refusal as outcome() gives it.
struct ModuleImage {
  std::string outcome;
  std::string shape, dtype;
  std::vector<unsigned char> bytes;
};
ModuleImage read_module_image(const embedded::Array& id);

/// One line of tifffile_pages.py or tifffile_write.py: a page, what tifffile
/// makes of it, and the file holding its C-order bytes (or the error).
struct PageRecord {
  std::string file, key, dtype, shape;
  std::uint16_t compression = 0;
  std::string data;  ///< a file name, or "error: ..."
  bool decoded() const { return data.rfind("error:", 0) != 0; }
};
std::vector<PageRecord> parse_pages(const std::string& text);

/// Makes the directory at key ("2", or "0.1" for SubIFD 1 of directory 0)
/// current through "setDirectory" and "setSubDirectory"; empty when it
/// could, else what failed.
std::string go_to_directory(const embedded::Array& id, const std::string& key);

}  // namespace tiffgate::testing
