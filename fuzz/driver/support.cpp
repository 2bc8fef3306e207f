#include "fuzz/driver/support.h"

#include "files/files.h"
#include "gateway/command_table.h"

#include <sys/stat.h>  // fstat
#include <tiffio.h>

#include <algorithm>  // std::min, std::max
#include <cstdint>  // UINT64_MAX
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>  // O_RDONLY
#include <filesystem>
#include <stdexcept>
#include <tuple>

namespace tiffgate::fuzz {

namespace {

class ScratchDir {
 public:
  ScratchDir() {
    std::string templ = (std::filesystem::temp_directory_path() / "tiffgate-fuzz-XXXXXX").string();
    if (mkdtemp(templ.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = templ;
  }
  ~ScratchDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

constexpr std::string_view kCatalogueIds = "Quarn:imagesci:";

/// a * b * c, held at the largest value instead of wrapping: a file's
/// dimensions multiply past 64 bits easily.
std::uint64_t product(std::uint64_t a, std::uint64_t b, std::uint64_t c = 1) {
  std::uint64_t ab = 0, abc = 0;
  if (__builtin_mul_overflow(a, b, &ab) || __builtin_mul_overflow(ab, c, &abc)) return UINT64_MAX;
  return abc;
}

/// a + b, held at the largest value: a product held there must not wrap
/// round to a size the budget takes.
std::uint64_t sum(std::uint64_t a, std::uint64_t b) {
  std::uint64_t ab = 0;
  return __builtin_add_overflow(a, b, &ab) ? UINT64_MAX : ab;
}

/// Whether a call's first operand is a command's file operand that names no
/// file open now. Only a 1x1 uint64 of a registered value names one; a
/// count of operands outside the command's limits is refused before it.
bool names_no_open_file(std::string_view word, const std::vector<Array>& inputs) {
  for (const auto* table : {&command_table(), &entry_table()}) {
    for (const CommandEntry& entry : *table) {
      if (entry.name != word) continue;
      const auto operands = static_cast<std::int32_t>(inputs.size()) - 1;
      if (entry.file == FileOperand::none || operands < entry.minOperands || operands > entry.maxOperands)
        return false;
      const Array& id = inputs[1];
      return id.class_id() != zvUINT64_CLASS || id.numel() != 1 || handle_of(id) == nullptr;
    }
  }
  return false;
}

/// What a command could change about an open file: its place in the file
/// and the file's length.
struct FileState {
  std::uint64_t id;
  TIFF* handle;
  tdir_t directory;
  std::uint64_t directoryOffset;
  std::uint32_t row, strip, tile;
  off_t length;
  bool operator==(const FileState& o) const {
    return std::tie(id, handle, directory, directoryOffset, row, strip, tile, length) ==
           std::tie(o.id, o.handle, o.directory, o.directoryOffset, o.row, o.strip, o.tile, o.length);
  }
};

std::vector<FileState> open_files() {
  std::vector<FileState> files;
  for (const auto& [id, tif] : open_file_registry()) {
    struct stat st {};
    fstat(TIFFFileno(tif), &st);
    files.push_back({id, tif, TIFFCurrentDirectory(tif), TIFFCurrentDirOffset(tif), TIFFCurrentRow(tif),
                     TIFFCurrentStrip(tif), TIFFCurrentTile(tif), st.st_size});
  }
  return files;
}

}  // namespace

const std::string& scratch_dir() {
  static const ScratchDir dir;
  return dir.path();
}

std::string corpus_dir() {
  if (const char* env = std::getenv("TIFFGATE_CORPUS")) return env;
  return TIFFGATE_DEFAULT_CORPUS;
}

CallResult Session::call(std::string_view word, std::vector<Array> operands, int nOutputs) {
  operands.insert(operands.begin(), Array::text(word));
  return call_inputs(operands, nOutputs);
}

CallResult Session::call_inputs(const std::vector<Array>& inputs, int nOutputs) {
  // Written before the call, so that the last line before a crash names it.
  static const bool tracing = std::getenv("TIFFGATE_FUZZ_TRACE") != nullptr;
  if (tracing) {
    std::string line = "call";
    for (const Array& input : inputs) line += " " + describe(input);
    std::fprintf(stderr, "%s\n", line.c_str());
  }
  const bool worded = !inputs.empty() && inputs[0].class_id() == zvCHAR_CLASS;
  const std::string word = worded ? inputs[0].utf8() : std::string();
  const bool stray = names_no_open_file(word, inputs);
  const std::vector<FileState> before = stray ? open_files() : std::vector<FileState>();
  CallResult result = embedded::call_inputs(inputs, nOutputs);
  if (tracing) std::fprintf(stderr, "  -> %s\n", result.ok() ? "ok" : result.error_id().c_str());
  check(word, result);
  if (stray) {
    // Refused before the handler ran ("close" lets closed files be), and
    // no open file saw the call.
    const std::string kind = result.ok() ? "ok" : result.error_id();
    const auto is = [&](std::string_view k) { return kind == std::string(kCatalogueIds) + std::string(k); };
    if (!is("Tiff:badFileId") && !is("Tiff:invalidFileId") && !is("validate:argumentOutOfBounds") &&
        !(kind == "ok" && word == "close"))
      problem(word + " of " + describe(inputs[1]) + ", which names no open file: " + kind);
    if (open_files() != before) problem(word + " of " + describe(inputs[1]) + ", which names no open file, changed one");
  }
  return result;
}

std::string describe(const Array& a) {
  std::string text = a.class_name();
  for (std::size_t i = 0; i < a.dims().size(); ++i) text += (i ? "x" : " ") + std::to_string(a.dims()[i]);
  if (a.class_id() == zvCHAR_CLASS) {
    const std::string utf8 = a.utf8();
    return text + " '" + utf8.substr(0, 60) + (utf8.size() > 60 ? "...'" : "'");
  }
  if (a.class_id() == zvCELL_CLASS) {
    text += " {";
    for (std::size_t i = 0; i < std::min<std::size_t>(a.numel(), 3); ++i) text += (i ? ", " : "") + describe(a.cells()[i]);
    return text + (a.numel() > 3 ? ", ...}" : "}");
  }
  if (a.element_size() == 0 || a.empty()) return text;
  text += " [";
  for (std::size_t i = 0; i < std::min<std::size_t>(a.numel(), 4); ++i) {
    char number[32];
    if (a.class_id() == zvUINT64_CLASS)
      std::snprintf(number, sizeof number, "0x%llx", static_cast<unsigned long long>(a.at<std::uint64_t>(i)));
    else
      std::snprintf(number, sizeof number, "%.17g", a.number(i));
    text += (i ? " " : "") + std::string(number);
  }
  return text + (a.numel() > 4 ? " ...]" : "]");
}

void Session::check(std::string_view word, const CallResult& result) {
  ++report_.calls;
  const std::string what(word);
  if (!result.ok()) {
    ++report_.failures;
    // Anything else reached the host as a foreign exception.
    if (result.error_id().compare(0, kCatalogueIds.size(), kCatalogueIds) != 0)
      problem(what + ": " + result.error_id() + ": " + result.error->message);
    return;
  }
  if (what != "open") return;
  const bool is_id = !result.outputs.empty() && result.outputs[0] &&
                     result.outputs[0]->class_id() == zvUINT64_CLASS && result.outputs[0]->numel() == 1;
  if (!is_id) {
    problem("open succeeded without an identifier");
    return;
  }
  const std::uint64_t value = result.outputs[0]->at<std::uint64_t>(0);
  for (const Array& earlier : opened_)
    if (earlier.at<std::uint64_t>(0) == value) problem("open: an identifier issued twice");
  opened_.push_back(*result.outputs[0]);
  if (handle_of(opened_.back()) == nullptr) problem("open: identifier not registered");
}

void Session::finish() {
  for (const Array& id : opened_) {
    const CallResult closed = call("close", {id});
    if (!closed.ok()) problem("close of an opened identifier failed: " + closed.error_id());
  }
  if (!open_file_registry().empty()) {
    problem(std::to_string(open_file_registry().size()) + " files left open after closing every identifier");
    embedded::unload();  // close them, so that the next input starts clean
  }
  for (const Array& id : opened_) {
    const CallResult refused = call("currentDirectory", {id});
    if (refused.error_id() != "Quarn:imagesci:Tiff:invalidFileId")
      problem("a closed identifier was not refused: " + (refused.ok() ? "accepted" : refused.error_id()));
  }
}

std::uint64_t demand_bytes(TIFF* tif, Demand what) {
  std::uint32_t width = 0, length = 0, rows = 0, tileWidth = 0, tileLength = 0;
  std::uint16_t samples = 1, planar = PLANARCONFIG_CONTIG;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &length);
  TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rows);
  TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tileWidth);
  TIFFGetField(tif, TIFFTAG_TILELENGTH, &tileLength);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
  rows = std::min(rows, length);
  const std::uint64_t perChunk = planar == PLANARCONFIG_SEPARATE ? 1 : samples;
  // The result array has an element per sample (a byte even for 1-bit
  // data), besides the buffer libtiff decodes into.
  // A file being written gets its chunk offset and byte count arrays on the
  // first chunk written, about 20 bytes per chunk, however many there are.
  const bool writing = TIFFGetMode(tif) != O_RDONLY;
  const std::uint64_t chunk = TIFFIsTiled(tif) ? TIFFTileSize64(tif) : TIFFStripSize64(tif);
  switch (what) {
    case Demand::Strip:
      return std::max({TIFFStripSize64(tif), product(width, rows, perChunk),
                       writing ? product(TIFFNumberOfStrips(tif), 20) : 0});
    case Demand::Tile:
      return std::max({TIFFTileSize64(tif), product(tileWidth, tileLength, perChunk),
                       writing ? product(TIFFNumberOfTiles(tif), 20) : 0});
    // libtiff's RGBA routines decode each chunk into a buffer of their own,
    // of the whole chunk's size, besides the raster the module allocates.
    case Demand::RgbaImage: return std::max(product(4, width, length), chunk);
    case Demand::RgbaStrip: return std::max(product(4, width, rows), chunk);
    case Demand::RgbaTile: return std::max(product(4, tileWidth, tileLength), chunk);
    // The whole image, 8 bytes a sample at most, besides a chunk's buffer
    // (and, writing, the arrays of every chunk).
    case Demand::Image:
      return sum(sum(product(product(8, width, length), samples), chunk),
                 writing ? product(std::uint64_t{TIFFNumberOfStrips(tif)} + TIFFNumberOfTiles(tif), 20) : 0);
  }
  return 0;
}

}  // namespace tiffgate::fuzz
