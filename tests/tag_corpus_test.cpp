// Every tag of the name table and the metadata summary over the real files of
// the corpus, malformed ones included: each call ends in a value or in one of
// the catalogue's kinds. The first directory of each valid file is compared
// with the layout the corpus manifest records.

#include "gateway/catalogue.h"
#include "support/tag_files.h"
#include "support/tiff_files.h"
#include "tags/tag_names.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;
using embedded::CallResult;

/// One record of a CSV file with quoted fields.
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

/// The manifest's rows by file name, each a map from column to text.
std::map<std::string, std::map<std::string, std::string>> read_manifest() {
  std::ifstream in(corpus_dir() + "/MANIFEST.csv");
  std::string line;
  std::getline(in, line);
  const std::vector<std::string> columns = split_csv(line);
  std::map<std::string, std::map<std::string, std::string>> rows;
  while (std::getline(in, line)) {
    const std::vector<std::string> fields = split_csv(line);
    auto& row = rows[fields[0]];
    for (std::size_t i = 0; i < columns.size() && i < fields.size(); ++i) row[columns[i]] = fields[i];
  }
  return rows;
}

/// The number a manifest entry records: "Palette (3)" and "None (1, default)"
/// give the number in parentheses, "8" and "1 (default)" the leading one;
/// -1 for an absent value.
double manifest_number(const std::string& text) {
  const std::size_t open = text.find('(');
  if (open != std::string::npos && std::isdigit(static_cast<unsigned char>(text[open + 1])))
    return std::stod(text.substr(open + 1));
  if (!text.empty() && std::isdigit(static_cast<unsigned char>(text[0]))) return std::stod(text);
  return -1;
}

std::vector<std::string> corpus_files() {
  std::vector<std::string> files;
  for (const char* sub : {"", "/malformed"})
    for (const auto& entry : std::filesystem::directory_iterator(corpus_dir() + sub)) {
      const std::string ext = entry.path().extension().string();
      if (ext == ".tif" || ext == ".tiff") files.push_back(entry.path().string());
    }
  std::sort(files.begin(), files.end());
  return files;
}

void compare_with_manifest(const std::string& file, const CallResult& metadata,
                           const std::map<std::string, std::string>& row) {
  if (manifest_number(row.at("photometric")) < 0) {
    EXPECT_EQ(outcome(metadata), "tagRetrievalFailed('PhotometricInterpretation')") << file;
    return;
  }
  ASSERT_TRUE(metadata.ok()) << file << ": " << outcome(metadata);
  const Array& m = metadata.out();
  const std::pair<const char*, const char*> numbers[] = {
      {"ImageWidth", "width"},          {"ImageLength", "length"},     {"BitsPerSample", "bits_per_sample"},
      {"SamplesPerPixel", "samples_per_pixel"}, {"PhotometricInterpretation", "photometric"},
      {"Compression", "compression"},   {"PlanarConfiguration", "planar"}};
  for (const auto& [field, column] : numbers)
    EXPECT_EQ(m.field(field)->number(), manifest_number(row.at(column))) << file << " " << field;
  const std::string tiles = row.at("tiled");
  EXPECT_EQ(m.field("isTiled")->number() != 0, tiles != "no") << file;
  if (tiles != "no") {
    EXPECT_EQ(m.field("TileWidth")->number(), std::stod(tiles)) << file;
    EXPECT_EQ(m.field("TileLength")->number(), std::stod(tiles.substr(tiles.find('x') + 1))) << file;
  }
}

TEST(tag_corpus, every_tag_of_every_directory_ends_in_a_value_or_a_kind) {
  std::set<std::string> kinds;
  for (const CatalogueEntry& entry : kCatalogue) kinds.insert(entry.identifier);
  const auto manifest = read_manifest();
  const auto files = corpus_files();
  ASSERT_GE(files.size(), 200u);

  std::size_t compared = 0;
  std::size_t values = 0;
  for (const std::string& file : files) {
    const CallResult opened = call("open", {str(file), str("r")});
    if (!opened.ok()) {
      EXPECT_TRUE(kinds.count(opened.error_id())) << file << ": " << outcome(opened);
      continue;
    }
    const Array& id = opened.out();
    for (int directory = 0; directory < 3; ++directory) {
      for (const auto& [tag, name] : TagNameTable()) {
        const CallResult r = call("getField", {id, num(tag)});
        EXPECT_TRUE(r.ok() || kinds.count(r.error_id())) << file << " tag " << tag << ": " << outcome(r);
        values += r.ok();
      }
      const CallResult metadata = call("retrieveMetadata", {id});
      EXPECT_TRUE(metadata.ok() || kinds.count(metadata.error_id())) << file << ": " << outcome(metadata);
      const std::string relative = file.substr(corpus_dir().size() + 1);
      if (directory == 0 && relative.rfind("malformed/", 0) != 0 && manifest.count(relative)) {
        compare_with_manifest(relative, metadata, manifest.at(relative));
        ++compared;
      }
      if (!call("readDirectory", {id}).ok()) break;
    }
    EXPECT_TRUE(call("close", {id}).ok()) << file;
  }
  EXPECT_GE(compared, 180u);
  EXPECT_GT(values, 2000u);
}

TEST(tag_corpus, a_codec_tag_of_another_codec_is_not_read_as_its_own) {
  // A Group 4 file carrying Group3Options: libtiff keeps the entry as an
  // anonymous counted value, which read as one 32-bit number overran the
  // caller's variable.
  const Array id = open_file(corpus_dir() + "/twelvemonkeys-g4-5pages.tif");
  EXPECT_EQ(outcome(call("getField", {id, num(292)})), "unableToReadTag(292)");
  EXPECT_EQ(call("getField", {id, num(259)}).out().number(), 4.0);
  call("close", {id});
}

}  // namespace
}  // namespace tiffgate::testing
