// Whole files, chunk by chunk: libtiff alone (the floors) against the same
// work through the embedded host; the per-call cost of metadata commands;
// the peak heap of a whole-file read.

#include "bench/bench.h"
#include "bench/heap.h"
#include "host/embedded/session.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include <sys/mman.h>  // madvise
#include <vector>

namespace tiffgate::bench {
namespace {

using embedded::Array;

/// Ends the run at once: the benchmarks own files that must not be closed
/// by destructors running at exit in an arbitrary order.
[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "tiffgate_bench: %s\n", what.c_str());
  std::fflush(nullptr);
  std::error_code ignored;
  std::filesystem::remove_all(work_directory(), ignored);
  std::_Exit(2);
}

/// One kind of image the benchmarks read and write.
struct FileCase {
  const char* name;
  std::uint16_t bits;
  std::uint16_t samples;
  std::uint16_t photometric;
  std::uint16_t format;
  bool tiled;
  std::uint32_t rowsPerStrip;  ///< strips only; 0: the mode's
  zvClassID cls;               ///< host class of the samples
};

struct Layout {
  std::uint32_t size, chunkWidth, chunkLength, chunks;
  std::size_t chunkBytes;   ///< libtiff's buffer
  std::size_t outputBytes;  ///< one chunk as a host array
};

/// The layout of f's file; `size` for an image size other than the mode's.
Layout layout_of(const FileCase& f, std::uint32_t size = 0) {
  const Mode& m = mode();
  Layout l{};
  l.size = size ? size : m.size;
  l.chunkWidth = f.tiled ? m.tile : l.size;
  l.chunkLength = f.tiled ? m.tile : (f.rowsPerStrip ? f.rowsPerStrip : m.rowsPerStrip);
  l.chunks = (l.size / l.chunkWidth) * (l.size / l.chunkLength);
  const std::size_t pixels = std::size_t{l.chunkWidth} * l.chunkLength;
  l.chunkBytes = f.bits == 1 ? (std::size_t{l.chunkWidth} * f.samples + 7) / 8 * l.chunkLength
                             : pixels * f.samples * (f.bits / 8);
  l.outputBytes = pixels * f.samples * (f.bits == 1 ? 1 : f.bits / 8);
  return l;
}

/// Deflate's fastest level, in every file and for both writers: a full run
/// then takes minutes rather than an hour, and the level changes libtiff's
/// share of the work, not what the module adds to it.
constexpr int kZipQuality = 1;

void set_tags(TIFF* tif, const FileCase& f, const Layout& l, std::uint16_t compression) {
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, l.size);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, l.size);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, f.bits);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, f.samples);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, f.photometric);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, f.format);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, compression);
  if (compression == COMPRESSION_ADOBE_DEFLATE) TIFFSetField(tif, TIFFTAG_ZIPQUALITY, kZipQuality);
  if (f.tiled) {
    TIFFSetField(tif, TIFFTAG_TILEWIDTH, l.chunkWidth);
    TIFFSetField(tif, TIFFTAG_TILELENGTH, l.chunkLength);
  } else {
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, l.chunkLength);
  }
}

/// Chunk `index` as libtiff lays it out: smooth ramps with a little noise,
/// so that Deflate has about as much to do as with a photograph.
std::vector<unsigned char> chunk_data(const FileCase& f, const Layout& l, std::uint32_t index) {
  std::vector<unsigned char> out(l.chunkBytes, 0);
  const std::uint32_t across = l.size / l.chunkWidth;
  const std::uint32_t row0 = index / across * l.chunkLength, col0 = index % across * l.chunkWidth;
  std::size_t at = 0;
  for (std::uint32_t r = 0; r < l.chunkLength; ++r) {
    for (std::uint32_t c = 0; c < l.chunkWidth; ++c) {
      const std::uint32_t y = row0 + r, x = col0 + c;
      const std::uint32_t noise = (x * 2654435761u ^ y * 2246822519u) >> 27;  // 0 .. 31
      for (std::uint32_t k = 0; k < f.samples; ++k) {
        const std::uint32_t ramp = y / 3 + x / 5 + k * 85;
        if (f.bits == 1) {
          const std::size_t bit = std::size_t{r} * ((l.chunkWidth * f.samples + 7) / 8 * 8) + c * f.samples + k;
          if (((x / 16 + y / 16) & 1) ^ (noise == 0)) out[bit / 8] |= static_cast<unsigned char>(0x80u >> bit % 8);
        } else if (f.bits == 8) {
          out[at++] = static_cast<unsigned char>(ramp + noise / 8);
        } else if (f.bits == 16) {
          const auto v = static_cast<std::uint16_t>(ramp * 64 + noise);
          std::memcpy(&out[at], &v, 2);
          at += 2;
        } else {
          const float v = static_cast<float>(ramp) / 255.0f + static_cast<float>(noise) * 1e-4f;
          std::memcpy(&out[at], &v, 4);
          at += 4;
        }
      }
    }
  }
  return out;
}

/// A chunk's data as the host array a caller writes it from.
Array host_array(const FileCase& f, const Layout& l, const std::vector<unsigned char>& chunk) {
  const std::size_t m = l.chunkLength, n = l.chunkWidth, s = f.samples;
  Array a(f.cls, s > 1 ? Array::Dims{m, n, s} : Array::Dims{m, n}, false);
  auto* out = static_cast<unsigned char*>(a.data());
  const std::size_t size = f.bits == 1 ? 1 : f.bits / 8;
  for (std::size_t k = 0; k < s; ++k)
    for (std::size_t c = 0; c < n; ++c)
      for (std::size_t r = 0; r < m; ++r) {
        unsigned char* dst = out + (r + c * m + k * m * n) * size;
        if (f.bits == 1) {
          const std::size_t bit = r * ((n * s + 7) / 8 * 8) + c * s + k;
          *dst = (chunk[bit / 8] >> (7 - bit % 8)) & 1;
        } else {
          std::memcpy(dst, &chunk[((r * n + c) * s + k) * size], size);
        }
      }
  return a;
}

std::string file_path(const FileCase& f, std::uint16_t compression, const char* role) {
  return work_directory() + "/" + f.name + (compression == COMPRESSION_NONE ? "-none" : "-deflate") + role + ".tif";
}

/// Writes the file the read benchmarks read, with libtiff alone.
void generate(const FileCase& f, std::uint16_t compression, const std::string& path, const Layout& l) {
  TIFF* tif = TIFFOpen(path.c_str(), "w");
  if (tif == nullptr) fail("cannot create " + path);
  set_tags(tif, f, l, compression);
  for (std::uint32_t i = 0; i < l.chunks; ++i) {
    std::vector<unsigned char> data = chunk_data(f, l, i);
    const tmsize_t size = static_cast<tmsize_t>(data.size());
    const tmsize_t written = f.tiled ? TIFFWriteEncodedTile(tif, i, data.data(), size)
                                     : TIFFWriteEncodedStrip(tif, i, data.data(), size);
    if (written < 0) fail("cannot write " + path);
  }
  TIFFClose(tif);
}

/// A file kept open for the length of the run.
struct OpenFile {
  TIFF* tif;
  explicit OpenFile(const std::string& path) : tif(TIFFOpen(path.c_str(), "r")) {
    if (tif == nullptr) fail("cannot open " + path);
  }
  ~OpenFile() { TIFFClose(tif); }
};

/// The same through the host. Files still open when the run ends are
/// closed by close_host_files, before the host itself goes away.
struct HostFile {
  Array id;
  bool open = true;
  explicit HostFile(const std::string& path, const char* mode) {
    const auto opened = embedded::call("open", {Array::text(path), Array::text(mode)});
    if (!opened.ok()) fail("host cannot open " + path + ": " + opened.error->message);
    id = opened.out();
    live().push_back(this);
  }
  ~HostFile() {
    close();
    live().erase(std::find(live().begin(), live().end(), this));
  }
  HostFile(const HostFile&) = delete;
  HostFile& operator=(const HostFile&) = delete;
  void close() {
    if (open) embedded::call("close", {id});
    open = false;
  }
  /// Never destroyed: benchmarks holding a HostFile are destroyed at exit,
  /// in an order this file does not control.
  static std::vector<HostFile*>& live() {
    static auto* files = new std::vector<HostFile*>;
    return *files;
  }
};

void check(const embedded::CallResult& result, const char* what) {
  if (!result.ok()) fail(std::string(what) + ": " + result.error->identifier + " " + result.error->message);
}

void read_rows(const FileCase& f, std::uint16_t compression) {
  const Layout l = layout_of(f);
  const std::string path = file_path(f, compression, "");
  generate(f, compression, path, l);
  const std::string key = std::string("file/read/") + f.name + (compression == COMPRESSION_NONE ? "/none" : "/deflate");

  auto file = std::make_shared<OpenFile>(path);
  auto buffer = std::make_shared<std::vector<unsigned char>>(l.chunkBytes);
  auto destination = std::make_shared<std::vector<unsigned char>>(l.outputBytes, 1);
  // The second floor copies the output's bytes: for 1-bit samples (one
  // logical each) 8 times the chunk's, from a source of that size.
  auto expanded = std::make_shared<std::vector<unsigned char>>(l.outputBytes > l.chunkBytes ? l.outputBytes : 0, 1);
  const bool tiled = f.tiled;
  const std::uint32_t chunks = l.chunks;
  const auto read_all = [=] {
    for (std::uint32_t i = 0; i < chunks; ++i) {
      const tmsize_t got = tiled ? TIFFReadEncodedTile(file->tif, i, buffer->data(), -1)
                                 : TIFFReadEncodedStrip(file->tif, i, buffer->data(), -1);
      benchmark::DoNotOptimize(got);
    }
  };
  const std::string floor = each(key + "/libtiff", read_all);
  const std::string copied = each(key + "/libtiff+memcpy", [=] {
    for (std::uint32_t i = 0; i < chunks; ++i) {
      const tmsize_t got = tiled ? TIFFReadEncodedTile(file->tif, i, buffer->data(), -1)
                                 : TIFFReadEncodedStrip(file->tif, i, buffer->data(), -1);
      benchmark::DoNotOptimize(got);
      if (expanded->empty())
        std::memcpy(destination->data(), buffer->data(), buffer->size());
      else
        std::memcpy(destination->data(), expanded->data(), expanded->size());
      benchmark::ClobberMemory();
    }
  });

  auto host = std::make_shared<HostFile>(path, "r");
  auto inputs = std::make_shared<std::vector<Array>>(
      std::vector<Array>{Array::text(tiled ? "readEncodedTile" : "readEncodedStrip"), host->id, Array::scalar(0)});
  // The host file is captured too: it must stay open as long as the benchmark.
  const std::string through = each(key + "/host", [host, inputs, chunks] {
    for (std::uint32_t i = 0; i < chunks; ++i) {
      *(*inputs)[2].data_as<double>() = i;
      const embedded::CallResult result = embedded::call_inputs(*inputs);
      benchmark::DoNotOptimize(result.outputs.data());
    }
  });
  const double target = compression == COMPRESSION_NONE ? 5 : 1.15;
  const std::string label = std::string(f.name) + (compression == COMPRESSION_NONE ? ", none" : ", Deflate");
  add_row("whole-file reads through the embedded host: ratio to libtiff alone", label, through, floor, target,
          copied);

}

/// The layout of f at least 4096 pixels square, and its file, written once:
/// the size a user reads chunk after chunk or whole (smaller images fit
/// the caches, which such files do not).
std::pair<Layout, std::string> large_file(const FileCase& f, std::uint16_t compression) {
  static std::set<std::string> written;
  const Layout l = layout_of(f, std::max(mode().size, 4096u));
  const std::string path = file_path(f, compression, "-large");
  if (written.insert(path).second) generate(f, compression, path, l);
  return {l, path};
}

/// As a script reads every chunk: each output kept until the next has
/// been made, against libtiff making a new array for each chunk the same way.
void kept_rows(const FileCase& f, std::uint16_t compression) {
  const auto [l, path] = large_file(f, compression);
  const std::string key = std::string("file/kept/") + f.name + (compression == COMPRESSION_NONE ? "/none" : "/deflate");
  const std::string label = std::string(f.name) + (compression == COMPRESSION_NONE ? ", none" : ", Deflate");
  auto file = std::make_shared<OpenFile>(path);
  auto buffer = std::make_shared<std::vector<unsigned char>>(l.chunkBytes);
  // For 1-bit samples the array holds a byte for each, copied from a source of that size.
  auto source = std::make_shared<std::vector<unsigned char>>(l.outputBytes, 1);
  const bool tiled = f.tiled;
  const std::uint32_t chunks = l.chunks;
  const std::size_t outputBytes = l.outputBytes;
  const std::string fresh = each(key + "/libtiff+new-array", [=] {
    std::unique_ptr<unsigned char[]> previous;
    for (std::uint32_t i = 0; i < chunks; ++i) {
      const tmsize_t got = tiled ? TIFFReadEncodedTile(file->tif, i, buffer->data(), -1)
                                 : TIFFReadEncodedStrip(file->tif, i, buffer->data(), -1);
      benchmark::DoNotOptimize(got);
      std::unique_ptr<unsigned char[]> out(new unsigned char[outputBytes]);
      std::memcpy(out.get(), outputBytes > buffer->size() ? source->data() : buffer->data(), outputBytes);
      benchmark::DoNotOptimize(out.get());
      previous = std::move(out);
    }
  });
  auto host = std::make_shared<HostFile>(path, "r");
  auto inputs = std::make_shared<std::vector<Array>>(
      std::vector<Array>{Array::text(tiled ? "readEncodedTile" : "readEncodedStrip"), host->id, Array::scalar(0)});
  const std::string kept = each(key + "/host", [host, inputs, chunks] {
    embedded::CallResult previous;
    for (std::uint32_t i = 0; i < chunks; ++i) {
      *(*inputs)[2].data_as<double>() = i;
      embedded::CallResult result = embedded::call_inputs(*inputs);
      benchmark::DoNotOptimize(result.outputs.data());
      previous = std::move(result);
    }
  });
  add_row("every chunk of a 4096-pixel file, each output kept until the next is made (as a script reads): ratio "
          "to libtiff + a new array per chunk",
          label, kept, fresh, compression == COMPRESSION_NONE ? 2 : 1.15);
}

/// Memory for a whole image as the embedded host gives it: on huge pages
/// where the system grants them.
struct HugeBuffer {
  unsigned char* data;
  explicit HugeBuffer(std::size_t bytes) {
    constexpr std::size_t kHuge = std::size_t{2} << 20;
    const std::size_t rounded = (bytes + kHuge - 1) / kHuge * kHuge;
    data = static_cast<unsigned char*>(std::aligned_alloc(kHuge, rounded));
    if (data == nullptr) fail("out of memory");
    madvise(data, rounded, MADV_HUGEPAGE);
  }
  ~HugeBuffer() { std::free(data); }
};

/// The whole image of a large file through "__readImage__" on 1, 2 and
/// every processor's threads, against libtiff alone filling one new image
/// buffer on one thread (and, for information, one on huge pages, as the
/// embedded host's arrays are); and a region of a thirty-second of each
/// side against the whole image.
void whole_image_rows(const FileCase& f, std::uint16_t compression) {
  const auto [l, path] = large_file(f, compression);
  const std::string key = std::string("image/read/") + f.name + (compression == COMPRESSION_NONE ? "/none" : "/deflate");
  const std::string label = std::string(f.name) + (compression == COMPRESSION_NONE ? ", none" : ", Deflate");
  const char* section = "whole-image reads (__readImage__), wall time: ratio to libtiff alone on one thread";

  auto file = std::make_shared<OpenFile>(path);
  const bool tiled = f.tiled;
  const std::uint32_t chunks = l.chunks;
  const std::size_t chunkBytes = l.chunkBytes;
  // The floor writes the image into plain new memory, as any host must; the
  // second floor into huge pages, as the embedded host's arrays.
  const auto read_into = [=](unsigned char* image) {
    for (std::uint32_t i = 0; i < chunks; ++i) {
      const tmsize_t got = tiled ? TIFFReadEncodedTile(file->tif, i, image + i * chunkBytes, -1)
                                 : TIFFReadEncodedStrip(file->tif, i, image + i * chunkBytes, -1);
      benchmark::DoNotOptimize(got);
    }
    benchmark::DoNotOptimize(image);
  };
  const std::string floor = each_wall(key + "/libtiff", [=] {
    const std::unique_ptr<unsigned char[]> image(new unsigned char[chunkBytes * chunks]);
    read_into(image.get());
  });
  const std::string huge = each_wall(key + "/libtiff-huge-pages", [=] { read_into(HugeBuffer(chunkBytes * chunks).data); });
  auto host = std::make_shared<HostFile>(path, "r");
  const unsigned processors = std::max(1u, std::thread::hardware_concurrency());
  std::vector<unsigned> counts = {1, 2};
  if (processors > 2) counts.push_back(processors);
  std::string one;
  for (const unsigned threads : counts) {
    const std::string name = key + "/host/threads:" + std::to_string(threads);
    each_wall(name, [host, threads] {
      const embedded::CallResult r = embedded::call("__readImage__", {host->id, Array::scalar(threads)});
      check(r, "__readImage__");
      benchmark::DoNotOptimize(r.outputs.data());
    });
    if (threads == 1) one = name;
    // The targets hold for this machine's processors, two or more.
    const double target = threads < std::min(processors, 2u) || processors < 2 ? 0
                          : compression == COMPRESSION_NONE                ? 1.2
                                                                           : 0.65;
    add_row(section, label + ", " + std::to_string(threads) + (threads == 1 ? " thread" : " threads"), name, floor,
            target, huge);
  }
  if (!tiled) return;
  // A region a thirty-second of each side, off the tile grid: at most four tiles.
  const double side = l.size / 32, first = l.size / 2 + 17;
  const Array region = Array::row({first, first + side - 1, first, first + side - 1});
  const std::string part = each_wall(key + "/host/region", [host, region] {
    const embedded::CallResult r = embedded::call("__readImage__", {host->id, Array::scalar(1), region});
    check(r, "__readImage__ region");
    benchmark::DoNotOptimize(r.outputs.data());
  });
  add_row("a region of a thirty-second of each side: ratio to the whole image, one thread each", label, part, one,
          0.02);
}

void write_rows(const FileCase& f, std::uint16_t compression) {
  const Layout l = layout_of(f);
  const std::string key =
      std::string("file/write/") + f.name + (compression == COMPRESSION_NONE ? "/none" : "/deflate");
  auto data = std::make_shared<std::vector<unsigned char>>(chunk_data(f, l, 0));
  const std::string floorPath = file_path(f, compression, "-written-by-libtiff");
  const std::string floor = each(key + "/libtiff", [=] {
    TIFF* tif = TIFFOpen(floorPath.c_str(), "w");
    if (tif == nullptr) fail("cannot create " + floorPath);
    set_tags(tif, f, l, compression);
    for (std::uint32_t i = 0; i < l.chunks; ++i) {
      const tmsize_t size = static_cast<tmsize_t>(data->size());
      const tmsize_t written = f.tiled ? TIFFWriteEncodedTile(tif, i, data->data(), size)
                                       : TIFFWriteEncodedStrip(tif, i, data->data(), size);
      if (written < 0) fail("cannot write " + floorPath);
    }
    TIFFClose(tif);
  });

  // The operands of a chunk write, made once: the identifier changes with
  // each file, the chunk number with each call.
  auto inputs = std::make_shared<std::vector<Array>>(std::vector<Array>{
      Array::text(f.tiled ? "writeEncodedTile" : "writeEncodedStrip"), Array(), Array::scalar(0),
      host_array(f, l, *data)});
  const std::string hostPath = file_path(f, compression, "-written-by-host");
  const std::string through = each(key + "/host", [=] {
    HostFile file(hostPath, "w");
    const auto set = [&file](ttag_t tag, double value) {
      check(embedded::call("setField", {file.id, Array::scalar(tag), Array::scalar(value)}), "setField");
    };
    set(TIFFTAG_PHOTOMETRIC, f.photometric);  // first: the module checks other tags against it
    set(TIFFTAG_IMAGEWIDTH, l.size);
    set(TIFFTAG_IMAGELENGTH, l.size);
    set(TIFFTAG_BITSPERSAMPLE, f.bits);
    set(TIFFTAG_SAMPLESPERPIXEL, f.samples);
    set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    set(TIFFTAG_SAMPLEFORMAT, f.format);
    set(TIFFTAG_COMPRESSION, compression);
    if (compression == COMPRESSION_ADOBE_DEFLATE) set(TIFFTAG_ZIPQUALITY, kZipQuality);
    if (f.tiled) {
      set(TIFFTAG_TILEWIDTH, l.chunkWidth);
      set(TIFFTAG_TILELENGTH, l.chunkLength);
    } else {
      set(TIFFTAG_ROWSPERSTRIP, l.chunkLength);
    }
    (*inputs)[1] = file.id;
    for (std::uint32_t i = 0; i < l.chunks; ++i) {
      *(*inputs)[2].data_as<double>() = i;
      check(embedded::call_inputs(*inputs), "write");
    }
  });
  const double target = compression == COMPRESSION_NONE ? 5 : 1.15;
  const std::string label = std::string(f.name) + (compression == COMPRESSION_NONE ? ", none" : ", Deflate");
  add_row("whole-file writes through the embedded host: ratio to libtiff alone", label, through, floor, target);
}

const FileCase kCases[] = {
    {"RGB 8-bit strips", 8, 3, PHOTOMETRIC_RGB, SAMPLEFORMAT_UINT, false, 0, zvUINT8_CLASS},
    {"grey 16-bit tiles", 16, 1, PHOTOMETRIC_MINISBLACK, SAMPLEFORMAT_UINT, true, 0, zvUINT16_CLASS},
    {"1-bit strips", 1, 1, PHOTOMETRIC_MINISBLACK, SAMPLEFORMAT_UINT, false, 0, zvLOGICAL_CLASS},
    {"float RGB tiles", 32, 3, PHOTOMETRIC_RGB, SAMPLEFORMAT_IEEEFP, true, 0, zvSINGLE_CLASS},
};
// Strips of 64 rows in the large files.
const FileCase kLargeStrips = {"RGB 8-bit 64-row strips", 8, 3, PHOTOMETRIC_RGB, SAMPLEFORMAT_UINT, false, 64,
                               zvUINT8_CLASS};
const FileCase kLargeBits = {"1-bit 64-row strips", 1, 1, PHOTOMETRIC_MINISBLACK, SAMPLEFORMAT_UINT, false, 64,
                             zvLOGICAL_CLASS};
// Libtiff's default strip for a wide RGB image: one row, so one call per row.
const FileCase kOneRow = {"RGB 8-bit one-row strips", 8, 3, PHOTOMETRIC_RGB, SAMPLEFORMAT_UINT, false, 1,
                          zvUINT8_CLASS};

}  // namespace

void register_file_benchmarks() {
  for (std::uint16_t compression : {COMPRESSION_NONE, COMPRESSION_ADOBE_DEFLATE})
    for (const FileCase& f : kCases) read_rows(f, compression);
  read_rows(kOneRow, COMPRESSION_NONE);
  for (std::uint16_t compression : {COMPRESSION_NONE, COMPRESSION_ADOBE_DEFLATE}) {
    for (const FileCase* f : {&kLargeStrips, &kCases[1], &kLargeBits}) kept_rows(*f, compression);
    whole_image_rows(kLargeStrips, compression);
    whole_image_rows(kCases[1], compression);
  }
  for (std::uint16_t compression : {COMPRESSION_NONE, COMPRESSION_ADOBE_DEFLATE})
    for (const FileCase& f : kCases) write_rows(f, compression);
}

void register_call_benchmarks() {
  const FileCase& f = kCases[0];
  const std::string path = file_path(f, COMPRESSION_NONE, "");  // made by the read benchmarks
  auto file = std::make_shared<OpenFile>(path);
  const std::string alone = once("call/TIFFGetField", [file](benchmark::State& state) {
    std::uint32_t width = 0;
    for (auto _ : state) {
      TIFFGetField(file->tif, TIFFTAG_IMAGEWIDTH, &width);
      benchmark::DoNotOptimize(width);
    }
  });
  auto host = std::make_shared<HostFile>(path, "r");
  auto getField = std::make_shared<std::vector<Array>>(
      std::vector<Array>{Array::text("getField"), host->id, Array::scalar(TIFFTAG_IMAGEWIDTH)});
  auto metadata = std::make_shared<std::vector<Array>>(std::vector<Array>{Array::text("retrieveMetadata"), host->id});
  const char* section = "per call through the embedded host: floor TIFFGetField alone";
  add_micros_row(section, "getField of ImageWidth (output array included)", each("call/getField", [host, getField] {
             const embedded::CallResult result = embedded::call_inputs(*getField);
             benchmark::DoNotOptimize(result.outputs.data());
           }),
           alone, 1);
  add_row(section, "retrieveMetadata", each("call/retrieveMetadata", [host, metadata] {
             const embedded::CallResult result = embedded::call_inputs(*metadata);
             benchmark::DoNotOptimize(result.outputs.data());
           }),
           alone);
}

void close_host_files() {
  for (HostFile* file : HostFile::live()) file->close();
}

void measure_peak_memory() {
  if (!heap_counting_available()) return;
  for (const FileCase& f : kCases) {
    const Layout l = layout_of(f);
    HostFile host(file_path(f, COMPRESSION_NONE, ""), "r");
    std::vector<Array> inputs = {Array::text(f.tiled ? "readEncodedTile" : "readEncodedStrip"), host.id,
                                 Array::scalar(0)};
    // One read first: what libtiff keeps for the handle is not the call's.
    check(embedded::call_inputs(inputs), "read");
    std::size_t peak = 0;
    {
      const Peak counted;
      for (std::uint32_t i = 0; i < l.chunks; ++i) {
        *inputs[2].data_as<double>() = i;
        check(embedded::call_inputs(inputs), "read");
      }
      peak = counted.bytes();
    }
    add_bytes_row("peak heap of a whole-file read: ratio to one chunk buffer + one output", f.name,
                  static_cast<double>(peak), static_cast<double>(l.chunkBytes + l.outputBytes), 1.1);
  }
}

}  // namespace tiffgate::bench
