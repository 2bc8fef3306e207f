// The module against the valid files of the corpus, none of them written
// here. Every directory, SubIFDs included, goes through "retrieveMetadata",
// "getField" for every tag of the name table and every strip or tile read,
// and is held against three references nobody here wrote: the tags as
// tifffile finds them in the file's bytes, libtiff's own decode of every
// chunk (whose hash must equal the corpus's LIBTIFF_CHUNKS.csv), and the
// whole image as tifffile decodes it (REFERENCE.csv, and tifffile run here
// for SubIFDs). Whatever the module does otherwise is listed, with the
// reason, in corpus_explained.csv; a difference not listed there, or a listed one
// that no longer happens, fails the test.

#include "support/corpus.h"
#include "support/write_files.h"
#include "support/image_files.h"
#include "shell/sha256.h"
#include "support/tiff_files.h"
#include "tags/tag_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iomanip>
#include <map>
#include <optional>
#include <cctype>
#include <set>
#include <sstream>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;
using embedded::CallResult;
using shell::Sha256;  // the one the shell prints digests with
using shell::sha256_hex;

/// What the module does with a corpus directory other than reading it
/// plainly, and why: tests/corpus_explained.csv. Directory keys: "1" is main
/// directory 1, "0.1" SubIFD 1 of main directory 0; "*" stands for any.
/// Subjects: "read" (every strip or tile), "metadata", "tag N", "strips" (the
/// strip arrays). Outcomes: an error as "kind(arguments)", "warnings" for
/// reads that succeed with libtiff's errors passed on as warnings, and
/// "differs: ..." for a value unlike the file's.

// --- reading the module's values --------------------------------------------

/// An error of the module's own kinds (whether each kind is one of the
/// catalogue is the every-kind test's business).
bool is_kind(const CallResult& r) {
  if (r.ok()) return false;
  const std::string& id = r.error_id();
  for (const std::string ns : {"Quarn:imagesci:Tiff:", "Quarn:imagesci:validate:"})
    if (id.rfind(ns, 0) == 0 && id.size() > ns.size())
      return std::all_of(id.begin() + ns.size(), id.end(), [](unsigned char c) { return std::isalnum(c); });
  return false;
}

/// getField refuses these tags whatever the file holds: not a reading of
/// the file, so not listed in corpus_explained.csv.
bool contract_refusal(const CallResult& r) {
  return r.error_id() == "Quarn:imagesci:Tiff:unhandledTagId" || r.error_id() == "Quarn:imagesci:Tiff:unsupportedTag";
}

/// The elements of a numeric or logical array as doubles, row by row
/// (the order of records in a matrix tag) or column by column (curves).
std::vector<double> flatten(const Array& a, bool byColumns) {
  std::vector<double> out;
  const std::size_t rows = a.dims().empty() ? 0 : a.dims()[0];
  const std::size_t columns = rows == 0 ? 0 : a.numel() / rows;
  for (std::size_t i = 0; i < a.numel(); ++i) {
    const std::size_t r = byColumns ? i % rows : i / columns, c = byColumns ? i / rows : i % columns;
    out.push_back(a.class_id() == zvUINT64_CLASS ? static_cast<double>(a.at<std::uint64_t>(r + c * rows))
                                                 : a.number(r + c * rows));
  }
  return out;
}

bool close_enough(double got, double want) {
  if (std::isnan(got) || std::isnan(want)) return std::isnan(got) && std::isnan(want);
  // Rationals go through libtiff as single precision.
  return std::abs(got - want) <= 1e-6 * std::max(1.0, std::abs(want));
}

// Tags whose value libtiff gives for an absent tag (the defaulted forms),
// and the per-sample tags, of which the module returns the first value.
const std::set<std::uint32_t> kDefaulted = {254, 258, 259, 274, 277, 278, 280, 281, 284, 296, 334, 339, 530, 32997};
const std::set<std::uint32_t> kPerSample = {258, 280, 281, 339, 340, 341};

/// Empty when getField's value equals the file's entry, else what differs.
std::string compare_tag(std::uint32_t tag, const Array& value, const TagRecord& file) {
  if (value.class_id() == zvCHAR_CLASS || value.class_id() == zvUINT8_CLASS) {
    std::vector<unsigned char> want = file.bytes();
    std::vector<unsigned char> got;
    if (value.class_id() == zvUINT8_CLASS) {
      got.assign(value.data_as<unsigned char>(), value.data_as<unsigned char>() + value.numel());
    } else if (tag == 700) {  // XMLPacket: one character per byte
      for (const char16_t c : value.utf16()) got.push_back(static_cast<unsigned char>(c));
    } else {  // text up to the first NUL, as UTF-8 or else byte by byte (Latin-1)
      want.erase(std::find(want.begin(), want.end(), 0), want.end());
      const std::string text = value.utf8();
      got.assign(text.begin(), text.end());
      const std::u16string units = value.utf16();
      if (got != want && std::equal(units.begin(), units.end(), want.begin(), want.end())) got = want;
    }
    if (got == want) return {};
    return "differs: " + std::to_string(got.size()) + " bytes where the file has " + std::to_string(want.size());
  }
  if (!(value.class_id() >= zvLOGICAL_CLASS && value.class_id() <= zvUINT64_CLASS))
    return std::string("differs: class ") + value.class_name();

  std::vector<double> got = flatten(value, tag == 320 || tag == 301);
  std::vector<double> want = file.numbers();
  if (tag == 320)  // ColorMap, scaled to 0..1
    for (double& v : got) v = std::round(v * 65535);
  if (kPerSample.count(tag) && !want.empty()) want.resize(1);
  // The strip and tile arrays of separate planes are longer than libtiff's,
  // by entries left 0.
  if ((tag == 273 || tag == 279 || tag == 324 || tag == 325) && got.size() > want.size() &&
      std::all_of(got.begin() + static_cast<std::ptrdiff_t>(want.size()), got.end(), [](double v) { return v == 0; }))
    got.resize(want.size());
  if (got.size() != want.size())
    return "differs: " + std::to_string(got.size()) + " values where the file has " + std::to_string(want.size());
  for (std::size_t i = 0; i < got.size(); ++i)
    if (!close_enough(got[i], want[i])) {
      std::ostringstream s;
      s << "differs: value " << i << " is " << got[i] << " where the file has " << want[i];
      return s.str();
    }
  return {};
}

/// libtiff opened with "r" reads a single uncompressed strip as strips of
/// about 8 KB ("strip chopping"; mode "rc" keeps the file's strip). When the
/// module's strip arrays are exactly such a split of the file's one strip,
/// returns the file's record with the split in place of that strip;
/// otherwise nullopt.
std::optional<DirectoryRecord> as_chopped(const DirectoryRecord& file, const CallResult& rows,
                                          const CallResult& offsets, const CallResult& counts) {
  const TagRecord* fileOffsets = file.tag(273);
  const TagRecord* fileCounts = file.tag(279);
  if (!fileOffsets || !fileCounts || fileOffsets->count != 1 || !rows.ok() || !offsets.ok() || !counts.ok())
    return std::nullopt;
  // A strip short enough for one chopped strip is still given fewer rows.
  const TagRecord* fileRows = file.tag(278);
  const double declared = fileRows && !fileRows->numbers().empty() ? fileRows->numbers()[0] : 4294967295.0;
  const std::vector<double> o = flatten(offsets.out(), false), c = flatten(counts.out(), false);
  if (rows.out().number() >= declared || o.empty() || o.size() != c.size()) return std::nullopt;
  double next = fileOffsets->numbers()[0];
  for (std::size_t k = 0; k < o.size(); ++k) {
    if (o[k] != next || (k + 1 < o.size() && c[k] != c[0])) return std::nullopt;
    next += c[k];
  }
  if (next - o[0] != fileCounts->numbers()[0]) return std::nullopt;
  const auto text = [](const std::vector<double>& values) {
    std::ostringstream s;
    for (const double v : values) s << std::fixed << std::setprecision(0) << v << " ";
    return s.str();
  };
  DirectoryRecord chopped = file;
  chopped.tags[273] = {fileOffsets->type, o.size(), text(o)};
  chopped.tags[279] = {fileCounts->type, c.size(), text(c)};
  chopped.tags[278] = {TIFF_LONG, 1, text({rows.out().number()})};
  return chopped;
}

/// The metadata structure against the file's own entries; empty when equal.
std::string compare_metadata(const Array& m, const DirectoryRecord& file) {
  const auto first = [&](std::uint32_t tag, double absent) {
    const TagRecord* t = file.tag(tag);
    const std::vector<double> v = t ? t->numbers() : std::vector<double>{};
    return v.empty() ? absent : v[0];
  };
  const bool tiled = file.tag(322) != nullptr;
  const double length = first(257, -1);
  const std::pair<const char*, double> expected[] = {
      {"ImageWidth", first(256, -1)},
      {"ImageLength", length},
      {"BitsPerSample", first(258, 1)},
      {"SamplesPerPixel", first(277, 1)},
      {"Compression", first(259, 1)},
      {"PhotometricInterpretation", first(262, -1)},
      {"PlanarConfiguration", first(284, 1)},
      {"SampleFormat", first(339, 1)},
      {"ImageDepth", first(32997, 1)},
      {"TileWidth", tiled ? first(322, -1) : 0},
      {"TileLength", tiled ? first(323, -1) : 0},
      {"RowsPerStrip", tiled ? 0 : std::min(first(278, 4294967295.0), length)},
      {"numExtraSamples", file.tag(338) ? static_cast<double>(file.tag(338)->count) : 0},
      {"isTiled", tiled ? 1 : 0},
      {"JPEGColorMode", 0},
  };
  for (const auto& [field, want] : expected) {
    const Array* got = m.field(field);
    if (got == nullptr || got->number() != want)
      return std::string("differs: ") + field + " is " + (got ? std::to_string(got->number()) : "absent") +
             " where the file has " + std::to_string(want);
  }
  const Array* ycbcr = m.field("YCbCrSubsampling");
  std::vector<double> subsampling;
  if (first(262, -1) == PHOTOMETRIC_YCBCR)
    subsampling = file.tag(530) ? file.tag(530)->numbers() : std::vector<double>{2, 2};
  if (ycbcr == nullptr || flatten(*ycbcr, false) != subsampling) return "differs: YCbCrSubsampling";
  return {};
}

// --- one file, every directory ----------------------------------------------

/// What the corpus and tifffile know of one file's main directory.
struct DirectoryReferences {
  const DirectoryRecord* tags = nullptr;  ///< tifffile's view of the entries
  const CsvRow* chunks = nullptr;         ///< LIBTIFF_CHUNKS.csv
  std::string shape, dtype, sha256;       ///< tifffile's decode, when it has one
};

/// An outcome other than a plain read, as corpus_explained.csv lists them.
struct Seen {
  std::string file, directory, subject, outcome;
};

struct Counts {
  std::size_t chopped = 0, entries = 0, directories = 0, chunks = 0, tags = 0, images = 0, libtiffHashes = 0;
};

class FileCheck {
 public:
  FileCheck(const std::string& path, const std::string& name, const FileDirectories* tifffile,
            std::vector<Seen>& outcomes, Counts& counts)
      : path_(path), name_(name), tifffile_(tifffile), outcomes_(outcomes), counts_(counts), ref_(path, "r") {}

  void run(const std::map<int, const CsvRow*>& chunkRows, const std::map<int, const CsvRow*>& referenceRows) {
    const CallResult opened = call("open", {str(path_), str("r")});
    ASSERT_TRUE(opened.ok()) << outcome(opened);
    id_ = opened.out();
    // The main chain by "readDirectory", then the SubIFDs of each directory.
    std::map<int, std::vector<std::uint64_t>> subifds;
    for (int d = 0;; ++d) {
      ASSERT_LT(d, 64) << "no end to the directory chain";
      EXPECT_EQ(call("currentDirectory", {id_}).out().number(), d + 1);
      EXPECT_EQ(TIFFCurrentDirectory(ref_), d);
      DirectoryReferences refs;
      refs.tags = record(std::to_string(d));
      if (chunkRows.count(d)) refs.chunks = chunkRows.at(d);
      if (referenceRows.count(d)) {
        const CsvRow& row = *referenceRows.at(d);
        refs.shape = row.at("shape"), refs.dtype = row.at("dtype"), refs.sha256 = row.at("sha256");
      }
      subifds[d] = directory(std::to_string(d), refs);
      const bool last = call("lastDirectory", {id_}).out().number() != 0;
      EXPECT_EQ(last, TIFFLastDirectory(ref_) != 0);
      if (last) break;
      ASSERT_TRUE(call("readDirectory", {id_}).ok());
      ASSERT_TRUE(TIFFReadDirectory(ref_));
    }
    EXPECT_FALSE(call("readDirectory", {id_}).ok());  // past the last directory
    for (const auto& [d, offsets] : subifds) visit_subifds(d, {}, std::to_string(d), offsets);
    EXPECT_TRUE(call("close", {id_}).ok());
  }

 private:
  const DirectoryRecord* record(const std::string& key) const {
    if (tifffile_ == nullptr || !tifffile_->count(key)) return nullptr;
    return &tifffile_->at(key);
  }

  void note(const std::string& key, const std::string& subject, const std::string& outcome) {
    outcomes_.push_back({name_, key, subject, outcome});
  }

  /// The SubIFDs listed by the directory at `route`, reached by
  /// "setSubDirectory" from there, and theirs in turn.
  void visit_subifds(int main, std::vector<std::uint64_t> route, const std::string& key,
                     const std::vector<std::uint64_t>& offsets) {
    for (std::size_t i = 0; i < offsets.size(); ++i) {
      route.push_back(offsets[i]);
      const std::string subkey = key + "." + std::to_string(i);
      ASSERT_LT(route.size(), 5u) << "SubIFDs nested too deep";
      // From the main directory down the route, both handles alike.
      ASSERT_TRUE(call("setDirectory", {id_, num(main)}).ok());
      ASSERT_TRUE(TIFFSetDirectory(ref_, static_cast<tdir_t>(main)));
      for (const std::uint64_t offset : route) {
        const CallResult r = call("setSubDirectory", {id_, Array::uint64(offset)});
        ASSERT_TRUE(r.ok()) << subkey << ": " << outcome(r);
        ASSERT_TRUE(TIFFSetSubDirectory(ref_, offset));
      }
      DirectoryReferences refs;
      refs.tags = record(subkey);
      if (refs.tags) refs.shape = refs.tags->shape, refs.dtype = refs.tags->dtype, refs.sha256 = refs.tags->sha256;
      const std::vector<std::uint64_t> deeper = directory(subkey, refs);
      visit_subifds(main, route, subkey, deeper);
      route.pop_back();
    }
  }

  /// Checks the current directory; returns the SubIFD offsets it lists.
  std::vector<std::uint64_t> directory(const std::string& key, const DirectoryReferences& refs) {
    SCOPED_TRACE("directory " + key);
    ++counts_.directories;
    EXPECT_TRUE(refs.tags != nullptr) << "tifffile does not know this directory";
    std::optional<DirectoryRecord> chopped;
    if (refs.tags) {
      chopped = as_chopped(*refs.tags, call("getField", {id_, num(278)}), call("getField", {id_, num(273)}),
                           call("getField", {id_, num(279)}));
      counts_.chopped += chopped.has_value();
      if (chopped) note(key, "strips", "chopped by libtiff");
    }
    const DirectoryRecord* file = chopped ? &*chopped : refs.tags;
    const CallResult metadata = call("retrieveMetadata", {id_});
    if (!metadata.ok()) {
      EXPECT_TRUE(is_kind(metadata)) << outcome(metadata);
      note(key, "metadata", outcome(metadata));
    } else if (file) {
      const std::string difference = compare_metadata(metadata.out(), *file);
      if (!difference.empty()) note(key, "metadata", difference);
    }
    std::vector<std::uint64_t> subifds;
    for (const auto& [tag, name] : TagNameTable()) {
      const CallResult r = call("getField", {id_, num(tag)});
      EXPECT_TRUE(r.ok() || is_kind(r)) << "tag " << tag << ": " << outcome(r);
      if (tag == 330 && r.ok())
        for (std::size_t i = 0; i < r.out().numel(); ++i) subifds.push_back(r.out().at<std::uint64_t>(i));
      counts_.tags += r.ok();
      const TagRecord* entry = file ? file->tag(tag) : nullptr;
      const std::string subject = "tag " + std::to_string(tag);
      if (entry && r.ok()) {
        ++counts_.entries;
        const std::string difference = compare_tag(tag, r.out(), *entry);
        if (!difference.empty()) note(key, subject, difference);
      } else if (entry && !contract_refusal(r)) {
        note(key, subject, outcome(r));  // in the file, but not read
      } else if (r.ok() && tag < 65536 && !kDefaulted.count(tag)) {
        note(key, subject, "differs: a value for an absent tag");
      }
    }
    read_chunks(key, refs);
    return subifds;
  }

  /// Every chunk through the module, against libtiff's own decode of it.
  void read_chunks(const std::string& key, const DirectoryReferences& refs) {
    const bool tiled = TIFFIsTiled(ref_);
    const std::uint32_t count = tiled ? TIFFNumberOfTiles(ref_) : TIFFNumberOfStrips(ref_);
    std::uint32_t width = 0, length = 0;
    std::uint16_t samples = 1, planar = PLANARCONFIG_CONTIG;
    TIFFGetField(ref_, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(ref_, TIFFTAG_IMAGELENGTH, &length);
    TIFFGetFieldDefaulted(ref_, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetFieldDefaulted(ref_, TIFFTAG_PLANARCONFIG, &planar);
    ImageAssembly image(width, length, samples, planar == PLANARCONFIG_SEPARATE);
    Sha256 libtiffHash;
    std::size_t libtiffFailures = 0;
    std::string result = "ok";
    // As LIBTIFF_CHUNKS.csv was made: one buffer for the directory, zeroed
    // once, each read with size -1. Some decoders (raw JPEG YCbCr, OJPEG,
    // the fax codes) leave bytes of it unwritten, which then hold what an
    // earlier chunk left there.
    const tmsize_t size = tiled ? TIFFTileSize(ref_) : TIFFStripSize(ref_);
    std::vector<unsigned char> reused(static_cast<std::size_t>(std::max<tmsize_t>(size, 0))), fresh;
    for (std::uint32_t i = 0; i < count; ++i) {
      const CallResult r = call(tiled ? "readEncodedTile" : "readEncodedStrip", {id_, num(i)});
      const tmsize_t got = tiled ? TIFFReadEncodedTile(ref_, i, reused.data(), -1)
                                 : TIFFReadEncodedStrip(ref_, i, reused.data(), -1);
      if (got < 0) ++libtiffFailures;
      else libtiffHash.update(reused.data(), static_cast<std::size_t>(got));
      if (!r.ok()) {
        EXPECT_TRUE(is_kind(r)) << outcome(r);
        result = outcome(r);
        break;  // the directory's configuration: every chunk says the same
      }
      ++counts_.chunks;
      const bool complained = std::any_of(r.warnings.begin(), r.warnings.end(), [](const embedded::Warning& w) {
        return w.identifier == "Quarn:imagesci:Tiff:libtiffError";
      });
      if (complained || got < 0) result = "warnings";
      // The module decodes into a zeroed buffer each time: so does libtiff
      // here when the reused buffer held something else.
      std::string difference = compare_outputs(r, arrange_libtiff_chunk(ref_, i, reused));
      if (!difference.empty()) {
        read_libtiff_chunk(ref_, i, fresh);
        difference = compare_outputs(r, arrange_libtiff_chunk(ref_, i, fresh));
      }
      EXPECT_EQ(difference, "") << "chunk " << i;
      if (!difference.empty()) return;
      if (!refs.sha256.empty()) image.add(chunk_place(ref_, i), r);
    }
    if (result != "ok") note(key, "read", result);

    // libtiff in this test decodes as libtiff did for the corpus.
    if (refs.chunks && result == "ok") {
      EXPECT_EQ(std::to_string(count), refs.chunks->at("chunks"));
      EXPECT_EQ(libtiffHash.hex(), refs.chunks->at("sha256"));
      EXPECT_EQ(libtiffFailures, 0u);
      ++counts_.libtiffHashes;
    }
    if (!refs.sha256.empty() && result == "ok") {
      EXPECT_EQ(image.shape(), refs.shape);
      EXPECT_EQ(image.dtype(), refs.dtype);
      EXPECT_EQ(sha256_hex(image.bytes().data(), image.bytes().size()), refs.sha256)
          << "the image differs from tifffile's decode";
      ++counts_.images;
    }
  }

  std::string path_, name_;
  const FileDirectories* tifffile_;
  std::vector<Seen>& outcomes_;
  Counts& counts_;
  TiffHandle ref_;
  Array id_;
};

std::string name_of(const std::string& path) { return path.substr(corpus_dir().size() + 1); }

TEST(corpus_conformance, every_directory_of_every_valid_file) {
  const std::vector<std::string> files = tiff_files_in(corpus_dir());
  ASSERT_GE(files.size(), 180u);
  // The manifest lists every file of the corpus, and no other.
  std::set<std::string> listed;
  for (const CsvRow& row : read_csv(corpus_dir() + "/MANIFEST.csv"))
    if (row.at("file").rfind("malformed/", 0) != 0) listed.insert(row.at("file"));
  std::set<std::string> present;
  for (const std::string& f : files) present.insert(name_of(f));
  EXPECT_EQ(present, listed);

  std::map<std::string, std::map<int, const CsvRow*>> chunkRows, referenceRows;
  const std::vector<CsvRow> chunkCsv = read_csv(corpus_dir() + "/LIBTIFF_CHUNKS.csv");
  const std::vector<CsvRow> referenceCsv = read_csv(corpus_dir() + "/REFERENCE.csv");
  for (const CsvRow& row : chunkCsv) chunkRows[row.at("file")][std::stoi(row.at("directory"))] = &row;
  for (const CsvRow& row : referenceCsv)
    if (!row.at("sha256").empty()) referenceRows[row.at("file")][std::stoi(row.at("directory"))] = &row;
  const auto tifffile = tifffile_directories(files, true);

  // The reference handles would print libtiff's complaints a second time.
  TIFFSetErrorHandler(nullptr);
  TIFFSetWarningHandler(nullptr);
  std::vector<Seen> outcomes;
  Counts counts;
  for (const std::string& path : files) {
    const std::string name = name_of(path);
    SCOPED_TRACE(name);
    const auto found = tifffile.find(path);
    FileCheck check(path, name, found == tifffile.end() ? nullptr : &found->second, outcomes, counts);
    check.run(chunkRows[name], referenceRows[name]);
  }

  // Everything other than a plain read is explained, and every explanation
  // holds ("*" standing for every directory of its file).
  const std::vector<CsvRow> explained = read_csv(test_source("corpus_explained.csv"));
  ASSERT_FALSE(explained.empty());
  std::vector<bool> used(explained.size());
  for (const Seen& seen : outcomes) {
    const auto e = std::find_if(explained.begin(), explained.end(), [&](const CsvRow& x) {
      return (seen.file == x.at("file") || x.at("file") == "*") && seen.subject == x.at("subject") &&
             (seen.directory == x.at("directory") || x.at("directory") == "*");
    });
    const bool found = e != explained.end();
    if (found) used[e - explained.begin()] = true;
    EXPECT_TRUE(found && seen.outcome == e->at("outcome"))
        << "unexplained: " << seen.file << " " << seen.directory << " " << seen.subject << ": " << seen.outcome;
  }
  for (std::size_t i = 0; i < used.size(); ++i)
    EXPECT_TRUE(used[i]) << "explained but not seen: " << explained[i].at("file") << " "
                         << explained[i].at("directory") << " " << explained[i].at("subject");

  EXPECT_GE(counts.directories, 225u);
  EXPECT_GT(counts.chunks, 5000u);
  EXPECT_GT(counts.images, 100u);
  EXPECT_GT(counts.entries, 3000u);
  EXPECT_GE(counts.libtiffHashes, 185u);
  std::cout << "  " << counts.directories << " directories (" << counts.chopped
            << " with a single strip chopped by libtiff), " << counts.chunks << " chunks, " << counts.tags
            << " tag values (" << counts.entries << " against the file's entries), " << counts.images << " whole images against tifffile, " << counts.libtiffHashes
            << " directories against LIBTIFF_CHUNKS.csv\n";
}

TEST(corpus_conformance, logluv_reads_once_the_data_format_is_chosen) {
  const char* const files[] = {"libtiff-logluv-3c-16b.tiff", "imagetiff-pics-off-l16.tif",
                               "imagetiff-pics-off-luv24.tif", "imagetiff-pics-off-luv32.tif"};
  TIFFSetErrorHandler(nullptr);
  TIFFSetWarningHandler(nullptr);
  for (const char* name : files) {
    SCOPED_TRACE(name);
    const std::string path = corpus_dir() + "/" + name;
    const Array id = open_file(path);
    EXPECT_EQ(outcome(call("readEncodedStrip", {id, num(0)})), "luvCodecNotSet()");
    // Floating point, chosen on a file open for reading; then once only.
    ASSERT_EQ(outcome(call("setField", {id, num(65560), num(SGILOGDATAFMT_FLOAT)})), "ok");
    EXPECT_EQ(outcome(call("setField", {id, num(65560), num(SGILOGDATAFMT_FLOAT)})), "fmtAlreadySet()");
    TiffHandle ref(path, "r");
    TIFFSetField(ref, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT);
    for (std::uint32_t i = 0; i < TIFFNumberOfStrips(ref); ++i) {
      const CallResult r = call("readEncodedStrip", {id, num(i)});
      ASSERT_TRUE(r.ok()) << outcome(r);
      EXPECT_EQ(r.out().class_id(), zvSINGLE_CLASS);
      EXPECT_EQ(compare_outputs(r, libtiff_chunk(ref, i)), "") << "strip " << i;
    }
    call("close", {id});
  }
}

// The whole-image read of page 1 of every valid file, on one thread and on
// four: the same outcome and the same bytes.
TEST(corpus_conformance, whole_images_are_the_same_on_any_number_of_threads) {
  std::size_t read = 0;
  for (const std::string& path : tiff_files_in(corpus_dir())) {
    SCOPED_TRACE(name_of(path));
    const Array id = open_file(path);
    const CallResult one = call("__readImage__", {id, num(1)}), four = call("__readImage__", {id, num(4)});
    EXPECT_EQ(outcome(four), outcome(one));
    if (one.ok() && four.ok()) {
      const Comparison c = compare(four.out(), one.out());
      EXPECT_EQ(c.mismatch, "");
      EXPECT_EQ(c.largest, 0);
      ++read;
    }
    call("close", {id});
  }
  EXPECT_GE(read, 160u);
}

/// A whole image (L x W x S, column-major) as tifffile lays it out, C order:
/// L x W x S, or S x L x W for separate planes; 16-bit floating point as
/// the half-precision bytes the file holds.
std::string c_order_sha256(const Array& image, bool planes_first, bool half) {
  const std::size_t L = image.dims()[0], W = image.dims()[1], S = image.dims().size() > 2 ? image.dims()[2] : 1;
  const std::size_t es = half ? 2 : image.element_size();
  std::vector<unsigned char> out;
  const auto put = [&](std::size_t r, std::size_t c, std::size_t k) {
    const auto* e = static_cast<const unsigned char*>(image.data()) + (r + c * L + k * L * W) * image.element_size();
    if (!half) return out.insert(out.end(), e, e + es), void();
    float f;
    std::memcpy(&f, e, 4);
    std::uint32_t b;
    std::memcpy(&b, &f, 4);  // exact: every value came from a half
    const std::uint32_t exponent = b >> 23 & 0xFF;
    const std::uint16_t h = static_cast<std::uint16_t>(
        (b >> 16 & 0x8000) | (exponent == 0 ? 0 : exponent == 0xFF ? 0x7C00 : (exponent - 112) << 10) | (b >> 13 & 0x3FF));
    out.push_back(static_cast<unsigned char>(h)), out.push_back(static_cast<unsigned char>(h >> 8));
  };
  if (planes_first)
    for (std::size_t k = 0; k < S; ++k)
      for (std::size_t r = 0; r < L; ++r)
        for (std::size_t c = 0; c < W; ++c) put(r, c, k);
  else
    for (std::size_t r = 0; r < L; ++r)
      for (std::size_t c = 0; c < W; ++c)
        for (std::size_t k = 0; k < S; ++k) put(r, c, k);
  return sha256_hex(out.data(), out.size());
}

// The whole-image read returns what the read commands refuse, each sample
// as stored: integers of every width, 64-bit ones, floating point of 16 and
// 24 bits, LogLuv as floating point, separate YCbCr planes, a directory
// without PhotometricInterpretation; against tifffile's decode
// (REFERENCE.csv), libtiff's own, or the same picture at another depth.
TEST(corpus_conformance, whole_images_of_every_sample_kind) {
  std::map<std::string, std::string> reference;
  for (const CsvRow& row : read_csv(corpus_dir() + "/REFERENCE.csv"))
    if (row.at("directory") == "0") reference[row.at("file")] = row.at("sha256");
  const auto image = [](const std::string& name) {
    const Array id = open_file(corpus_dir() + "/" + name);
    const CallResult r = call("__readImage__", {id, num(2)});
    call("close", {id});
    EXPECT_EQ(outcome(r), "ok") << name;
    return r.ok() ? r.out() : Array();
  };
  const struct {
    const char* file;
    zvClassID cls;
    bool planes, half;
  } digests[] = {{"imagetiff-uint64-gradient.tiff", zvUINT64_CLASS, false, false},
                 {"imagetiff-uint64-rgb-gradient.tiff", zvUINT64_CLASS, false, false},
                 {"libtiffnet-tiger-rgb-tile-contig-64.tif", zvUINT64_CLASS, false, false},
                 {"imagetiff-float16-deflate.tiff", zvSINGLE_CLASS, false, true},
                 {"twelvemonkeys-float16-rgb-icc.tif", zvSINGLE_CLASS, false, true},
                 {"pillow-float32-no-photometric.tiff", zvSINGLE_CLASS, false, false},
                 {"libtiffnet-ycbcr-separate-08.tif", zvUINT8_CLASS, true, false}};
  for (const auto& d : digests) {
    const Array a = image(d.file);
    EXPECT_EQ(a.class_id(), d.cls) << d.file;
    EXPECT_EQ(c_order_sha256(a, d.planes, d.half), reference.at(d.file)) << d.file;
  }
  // The same picture at 2 to 24 bits: each sample the 32-bit one's value
  // scaled to its range, to within a step; floating point of 24 bits to
  // within half precision of 16.
  const Array base = image("imagetiff-flower-minisblack-32.tif");
  const struct {
    const char* file;
    zvClassID cls;
    unsigned bits;
  } depths[] = {{"imagetiff-flower-minisblack-02.tif", zvUINT8_CLASS, 2},
                {"imagetiff-flower-minisblack-04.tif", zvUINT8_CLASS, 4},
                {"imagetiff-flower-minisblack-12.tif", zvUINT16_CLASS, 12},
                {"imagetiff-flower-minisblack-24.tif", zvUINT32_CLASS, 24}};
  for (const auto& d : depths) {
    const Array a = image(d.file);
    ASSERT_EQ(a.class_id(), d.cls) << d.file;
    ASSERT_EQ(a.numel(), base.numel());
    double worst = 0;
    for (std::size_t i = 0; i < a.numel(); ++i)
      worst = std::max(worst, std::abs(a.number(i) / (std::ldexp(1, d.bits) - 1) - base.number(i) / 4294967295.0));
    EXPECT_LE(worst, 1 / (std::ldexp(1, std::min(d.bits, 8u)) - 1) + 1e-9) << d.file;
  }
  const Array f24 = image("libtiffnet-tiger-float24-strip.tif"), f16 = image("libtiffnet-tiger-float16-strip.tif");
  EXPECT_LE(compare(f24, f16).largest, std::ldexp(1, -10));
  // LogLuv as libtiff decodes it once asked for floating point.
  const std::string luv = corpus_dir() + "/imagetiff-pics-off-luv24.tif";
  const Array a = image("imagetiff-pics-off-luv24.tif");
  TiffHandle ref(luv, "r");
  TIFFSetField(ref, TIFFTAG_SGILOGDATAFMT, SGILOGDATAFMT_FLOAT);
  std::vector<float> strip(static_cast<std::size_t>(TIFFStripSize(ref)) / 4);
  ASSERT_GT(TIFFReadEncodedStrip(ref, 0, strip.data(), -1), 0);
  ASSERT_EQ(a.dims().size(), 3u);
  const std::size_t W = a.dims()[1], L = a.dims()[0];
  for (std::size_t c = 0; c < W; c += 37)
    for (std::size_t k = 0; k < 3; ++k) EXPECT_EQ(a.number(c * L + k * L * W), strip[c * 3 + k]) << c;
}

}  // namespace
}  // namespace tiffgate::testing
