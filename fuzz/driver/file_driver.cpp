// The file driver: the input is a TIFF file. It is opened through the
// gateway, and every directory of the main chain and every SubIFD below it
// is read through every reading command: the metadata summary, each tag of
// the tag table, the strips or tiles, the RGBA reads and the chunk index
// computations. Only the sizes of the budget are asked of libtiff directly.

#include "fuzz/driver/drivers.h"
#include "fuzz/driver/support.h"
#include "tags/tag_table.h"

#include <algorithm>  // std::max, std::min
#include <cmath>      // std::ceil, std::floor
#include <cstdio>
#include <cstdint>
#include <stdexcept>

namespace tiffgate::fuzz {

namespace {

// A file can chain thousands of directories and list thousands of SubIFDs;
// a few of each show every path the module has.
constexpr int kMaxMainDirectories = 8;
constexpr int kMaxSubDirectories = 4;  ///< per directory
constexpr int kMaxDepth = 2;           ///< SubIFDs of SubIFDs
constexpr int kMaxVisits = 16;         ///< directories read in all
constexpr std::uint64_t kMaxChunks = 24;  ///< chunks read per directory, per command

Array num(double v) { return Array::scalar(v); }

/// What getField told of the current directory; 0 when it could not say.
struct Facts {
  double width = 0, length = 0, rowsPerStrip = 0, tileWidth = 0, tileLength = 0, samples = 1;
  std::vector<std::uint64_t> subIfds;
};

double scalar_of(const CallResult& r) {
  return r.ok() && r.outputs.size() > 0 && r.outputs[0] && r.outputs[0]->numel() > 0 ? r.outputs[0]->number(0) : 0;
}

/// Indices 0 to count - 1, at most kMaxChunks of them spread evenly, the
/// last one always among them (it is the one cut short at the image's edge).
std::vector<std::uint64_t> spread(std::uint64_t count) {
  std::vector<std::uint64_t> picked;
  if (count == 0) return picked;
  const std::uint64_t step = std::max<std::uint64_t>(1, (count + kMaxChunks - 1) / kMaxChunks);
  for (std::uint64_t i = 0; i < count; i += step) picked.push_back(i);
  if (picked.back() != count - 1) picked.push_back(count - 1);
  return picked;
}

class FileWalk {
 public:
  FileWalk(Session& session, Array id) : s_(session), id_(std::move(id)), tif_(handle_of(id_)) {}

  void run() {
    for (int d = 0; d < kMaxMainDirectories && visits_ < kMaxVisits; ++d) {
      const Facts facts = exercise_directory();
      if (!facts.subIfds.empty()) {
        visit_sub_directories(d, {}, facts.subIfds);
        // Back to the main chain before stepping along it.
        if (!s_.call("setDirectory", {id_, num(d)}).ok()) break;
      }
      if (!s_.call("readDirectory", {id_}).ok()) break;
    }
    // Navigation beyond what the file holds.
    s_.call("setDirectory", {id_, num(0)});
    s_.call("setDirectory", {id_, num(65535)});
    s_.call("setSubDirectory", {id_, Array::uint64(8)});
    s_.call("readDirectory", {id_});
  }

 private:
  /// Goes from main directory d down the SubIFD offsets of path.
  bool go_to(int d, const std::vector<std::uint64_t>& path) {
    if (!s_.call("setDirectory", {id_, num(d)}).ok()) return false;
    for (std::uint64_t offset : path)
      if (!s_.call("setSubDirectory", {id_, Array::uint64(offset)}).ok()) return false;
    return true;
  }

  void visit_sub_directories(int d, std::vector<std::uint64_t> path, const std::vector<std::uint64_t>& offsets) {
    const std::size_t n = std::min<std::size_t>(offsets.size(), kMaxSubDirectories);
    for (std::size_t i = 0; i < n && visits_ < kMaxVisits; ++i) {
      if (!go_to(d, path)) return;
      if (!s_.call("setSubDirectory", {id_, Array::uint64(offsets[i])}).ok()) continue;
      const Facts facts = exercise_directory();
      // A SubIFD may chain siblings of its own.
      s_.call("readDirectory", {id_});
      if (path.size() + 1 < kMaxDepth && !facts.subIfds.empty()) {
        path.push_back(offsets[i]);
        visit_sub_directories(d, path, facts.subIfds);
        path.pop_back();
      }
    }
  }

  Facts exercise_directory() {
    ++visits_;
    Facts f;
    s_.call("currentDirectory", {id_});
    s_.call("lastDirectory", {id_});
    s_.call("retrieveMetadata", {id_});
    for (const auto& entry : TagNameTable()) {
      const std::uint32_t tag = entry.first;
      const CallResult r = s_.call("getField", {id_, num(tag)});
      switch (tag) {
        case 256: f.width = scalar_of(r); break;
        case 257: f.length = scalar_of(r); break;
        case 277: f.samples = std::max(1.0, scalar_of(r)); break;
        case 278: f.rowsPerStrip = scalar_of(r); break;
        case 322: f.tileWidth = scalar_of(r); break;
        case 323: f.tileLength = scalar_of(r); break;
        case 330:
          if (r.ok() && r.outputs[0] && r.outputs[0]->class_id() == zvUINT64_CLASS) {
            const Array& offsets = *r.outputs[0];
            for (std::size_t i = 0; i < offsets.numel(); ++i) f.subIfds.push_back(offsets.at<std::uint64_t>(i));
          }
          break;
        default: break;
      }
    }
    const CallResult tiled = s_.call("isTiled", {id_});
    const bool isTiled = tiled.ok() && tiled.out().number(0) != 0;
    const auto strips = static_cast<std::uint64_t>(scalar_of(s_.call("numberOfStrips", {id_})));
    const auto tiles = static_cast<std::uint64_t>(scalar_of(s_.call("numberOfTiles", {id_})));
    read_chunks(isTiled, isTiled ? tiles : strips);
    read_rgba(f, isTiled);
    compute_indices(f);
    return f;
  }

  /// A data call, made only when its buffers fit the budget.
  void budgeted(Demand demand, const char* word, std::vector<Array> operands) {
    if (!budget_.take(demand_bytes(tif_, demand))) {
      s_.skip();
      return;
    }
    // Three outputs: contiguous YCbCr comes back as Y, Cb and Cr.
    s_.call(word, std::move(operands), 3);
  }

  void read_chunks(bool isTiled, std::uint64_t count) {
    const char* word = isTiled ? "readEncodedTile" : "readEncodedStrip";
    const Demand demand = isTiled ? Demand::Tile : Demand::Strip;
    // The other kind of chunk is refused before anything is read.
    s_.call(isTiled ? "readEncodedStrip" : "readEncodedTile", {id_, num(0)});
    for (std::uint64_t c : spread(count)) budgeted(demand, word, {id_, num(static_cast<double>(c))});
    budgeted(demand, word, {id_, num(static_cast<double>(count))});  // one past the end
  }

  void read_rgba(const Facts& f, bool isTiled) {
    budgeted(Demand::RgbaImage, "readRGBAImage", {id_});
    if (isTiled) {
      const double across = f.tileWidth > 0 ? std::max(1.0, std::ceil(f.width / f.tileWidth)) : 1;
      const double down = f.tileLength > 0 ? std::max(1.0, std::ceil(f.length / f.tileLength)) : 1;
      for (std::uint64_t t : spread(static_cast<std::uint64_t>(std::min(across * down, 1e9)))) {
        const double column = static_cast<double>(t % static_cast<std::uint64_t>(across)) * f.tileWidth;
        const double row = std::floor(static_cast<double>(t) / across) * f.tileLength;
        budgeted(Demand::RgbaTile, "readRGBATile", {id_, num(column), num(row)});
      }
      budgeted(Demand::RgbaTile, "readRGBATile", {id_, num(f.width), num(f.length)});
    } else {
      const double rows = f.rowsPerStrip > 0 ? std::min(f.rowsPerStrip, std::max(f.length, 1.0)) : 1;
      const double strips = f.length > 0 ? std::ceil(f.length / rows) : 1;
      for (std::uint64_t s : spread(static_cast<std::uint64_t>(std::min(strips, 1e9))))
        budgeted(Demand::RgbaStrip, "readRGBAStrip", {id_, num(static_cast<double>(s) * rows)});
      budgeted(Demand::RgbaStrip, "readRGBAStrip", {id_, num(f.length)});
    }
  }

  void compute_indices(const Facts& f) {
    const double lastRow = std::max(f.length - 1, 0.0);
    const double lastColumn = std::max(f.width - 1, 0.0);
    for (double row : {0.0, lastRow, f.length + 7, 4294967295.0}) {
      s_.call("computeStrip", {id_, num(row)});
      s_.call("computeTile", {id_, Array::row({row, lastColumn})});
    }
    for (double sample : {0.0, f.samples - 1, f.samples}) {
      s_.call("computeStrip", {id_, num(lastRow), num(sample)});
      s_.call("computeTile", {id_, Array::row({lastRow, f.width + 1}), num(sample)});
    }
  }

  Session& s_;
  const Array id_;
  TIFF* const tif_;
  Budget budget_;
  int visits_ = 0;
};

}  // namespace

RunReport run_file_input(const std::uint8_t* data, std::size_t size) {
  RunReport report;
  Session session(report);
  const std::string path = scratch_dir() + "/input.tif";
  {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (out == nullptr) throw std::runtime_error("cannot write " + path);
    const bool written = size == 0 || std::fwrite(data, 1, size, out) == size;
    if (std::fclose(out) != 0 || !written) throw std::runtime_error("cannot write " + path);
  }
  const CallResult opened = session.call("open", {Array::text(path), Array::text("r")});
  if (opened.ok()) FileWalk(session, opened.out()).run();
  session.finish();
  return report;
}

}  // namespace tiffgate::fuzz
