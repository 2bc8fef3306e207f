#include "support/corpus.h"

#include <sys/wait.h>  // WIFEXITED, WEXITSTATUS

#include "support/tiff_files.h"

#include <algorithm>
#include <cstring>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace tiffgate::testing {

std::vector<std::string> split_csv(const std::string& line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '"' && quoted && i + 1 < line.size() && line[i + 1] == '"') fields.back() += line[++i];
    else if (c == '"') quoted = !quoted;
    else if (c == ',' && !quoted) fields.emplace_back();
    else fields.back() += c;
  }
  return fields;
}

std::vector<CsvRow> read_csv(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::string line;
  std::getline(in, line);
  const std::vector<std::string> columns = split_csv(line);
  std::vector<CsvRow> rows;
  while (std::getline(in, line)) {
    const std::vector<std::string> fields = split_csv(line);
    CsvRow& row = rows.emplace_back();
    for (std::size_t i = 0; i < columns.size() && i < fields.size(); ++i) row[columns[i]] = fields[i];
  }
  return rows;
}

std::vector<std::string> tiff_files_in(const std::string& folder) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string ext = entry.path().extension().string();
    if (entry.is_regular_file() && (ext == ".tif" || ext == ".tiff")) files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string test_source(const std::string& name) { return std::string(TIFFGATE_SOURCE_DIR) + "/tests/" + name; }

std::string command_output(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string out;
  char block[65536];
  for (std::size_t got; (got = std::fread(block, 1, sizeof block, pipe)) > 0;) out.append(block, got);
  const int status = pclose(pipe);
  if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw std::runtime_error("failed (status " + std::to_string(status) + "): " + command);
  return out;
}

namespace {

/// Single quotes for the shell, with embedded quotes closed and reopened.
std::string quoted(const std::string& text) {
  std::string out = "'";
  for (const char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

}  // namespace

std::string run_python(const std::string& script, const std::vector<std::string>& arguments) {
  std::string command = "/usr/bin/python3 " + quoted(test_source(script));
  for (const std::string& a : arguments) command += " " + quoted(a);
  return command_output(command);
}

std::vector<double> TagRecord::numbers() const {
  std::vector<double> out;
  std::istringstream in(values);
  for (std::string word; in >> word;) out.push_back(std::strtod(word.c_str(), nullptr));
  return out;
}

std::vector<unsigned char> TagRecord::bytes() const {
  std::vector<unsigned char> out;
  for (std::size_t i = 0; i + 1 < values.size(); i += 2)
    out.push_back(static_cast<unsigned char>(std::stoi(values.substr(i, 2), nullptr, 16)));
  return out;
}

const TagRecord* DirectoryRecord::tag(std::uint32_t code) const {
  const auto found = tags.find(code);
  return found == tags.end() ? nullptr : &found->second;
}

std::map<std::string, FileDirectories> tifffile_directories(const std::vector<std::string>& files,
                                                            bool decodeSubIfds) {
  std::vector<std::string> arguments = files;
  if (decodeSubIfds) arguments.insert(arguments.begin(), "--decode-subifds");
  std::istringstream out(run_python("tifffile_directories.py", arguments));
  std::map<std::string, FileDirectories> result;
  FileDirectories* file = nullptr;
  DirectoryRecord* directory = nullptr;
  for (std::string line; std::getline(out, line);) {
    std::vector<std::string> f;
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, '\t');) f.push_back(field);
    if (f.empty()) continue;
    if (f[0] == "F" && f.size() == 2) {
      file = &result[f[1]];
      directory = nullptr;
    } else if (f[0] == "D" && f.size() == 2 && file) {
      directory = &(*file)[f[1]];
    } else if (f[0] == "T" && f.size() >= 4 && directory) {
      TagRecord& tag = directory->tags[static_cast<std::uint32_t>(std::stoul(f[1]))];
      tag.type = static_cast<std::uint16_t>(std::stoul(f[2]));
      tag.count = std::stoull(f[3]);
      tag.values = f.size() > 4 ? f[4] : "";
    } else if (f[0] == "R" && f.size() == 4 && directory) {
      directory->shape = f[1], directory->dtype = f[2], directory->sha256 = f[3];
    } else if (f[0] == "E" && f.size() >= 2 && file) {
      (directory ? directory->error : (*file)[""].error) = f[1];
    }
  }
  return result;
}

std::string dtype_of(zvClassID cls) {
  switch (cls) {
    case zvLOGICAL_CLASS: return "bool";
    case zvSINGLE_CLASS: return "float32";
    case zvDOUBLE_CLASS: return "float64";
    default: return embedded::class_name(cls);
  }
}

void ImageAssembly::add(const ChunkPlace& p, const embedded::CallResult& r) {
  if (element_ == 0) {
    cls_ = r.out(0).class_id(), element_ = r.out(0).element_size();
    bytes_.assign(std::size_t{width_} * length_ * samples_ * element_, 0);
  }
  const std::size_t outputs = r.outputs.size() >= 3 && r.outputs[2] ? 3 : 1;
  for (std::size_t o = 0; o < outputs; ++o) {
    const embedded::Array& a = r.out(o);
    const std::size_t m = a.dims()[0], n = a.dims()[1], planesHeld = a.numel() / std::max<std::size_t>(m * n, 1);
    const auto* data = static_cast<const unsigned char*>(a.data());
    for (std::size_t k = 0; k < planesHeld; ++k)
      for (std::size_t c = 0; c < n; ++c)
        for (std::size_t row = 0; row < m; ++row) {
          const std::size_t y = p.row0 + row, x = p.column0 + c, s = p.plane + o + k;
          if (y >= length_ || x >= width_ || s >= samples_) continue;
          const std::size_t at = planes_ ? (s * length_ + y) * width_ + x : (y * width_ + x) * samples_ + s;
          std::memcpy(&bytes_[at * element_], data + (row + c * m + k * m * n) * element_, element_);
        }
  }
}

std::string ImageAssembly::shape() const {
  std::string s = planes_ ? std::to_string(samples_) + "x" : "";
  s += std::to_string(length_) + "x" + std::to_string(width_);
  return planes_ || samples_ == 1 ? s : s + "x" + std::to_string(samples_);
}

ModuleImage read_module_image(const embedded::Array& id) {
  TIFF* tif = handle_of(id);
  const bool tiled = TIFFIsTiled(tif);
  const std::uint32_t count = tiled ? TIFFNumberOfTiles(tif) : TIFFNumberOfStrips(tif);
  std::uint32_t width = 0, length = 0;
  std::uint16_t samples = 1, planar = PLANARCONFIG_CONTIG;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &length);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
  ImageAssembly image(width, length, samples, planar == PLANARCONFIG_SEPARATE);
  for (std::uint32_t i = 0; i < count; ++i) {
    const embedded::CallResult r = embedded::call(tiled ? "readEncodedTile" : "readEncodedStrip", {id, num(i)});
    if (!r.ok()) return {outcome(r), "", "", {}};
    image.add(chunk_place(tif, i), r);
  }
  return {"ok", image.shape(), image.dtype(), image.bytes()};
}

std::vector<PageRecord> parse_pages(const std::string& text) {
  std::vector<PageRecord> pages;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> f;
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, '\t');) f.push_back(field);
    if (f.size() != 6) throw std::runtime_error("not a page record: " + line);
    pages.push_back({f[0], f[1], f[2], f[3], static_cast<std::uint16_t>(std::stoul(f[4])), f[5]});
  }
  return pages;
}

std::string go_to_directory(const embedded::Array& id, const std::string& key) {
  std::istringstream parts(key);
  std::string part;
  std::getline(parts, part, '.');
  embedded::CallResult r = embedded::call("setDirectory", {id, num(std::stod(part))});
  if (!r.ok()) return "setDirectory " + part + ": " + outcome(r);
  while (std::getline(parts, part, '.')) {
    const embedded::CallResult offsets = embedded::call("getField", {id, num(330)});
    const std::size_t s = std::stoul(part);
    if (!offsets.ok() || offsets.out().numel() <= s) return "no SubIFD " + part;
    r = embedded::call("setSubDirectory", {id, embedded::Array::uint64(offsets.out().at<std::uint64_t>(s))});
    if (!r.ok()) return "setSubDirectory " + part + ": " + outcome(r);
  }
  return {};
}

}  // namespace tiffgate::testing
