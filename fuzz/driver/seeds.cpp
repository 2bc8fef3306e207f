// The seed programs of the command driver, written with an encoder of its
// language: a tour of every reading command over each corpus file the
// driver opens, images of several layouts written to the scratch file,
// every family of setter, the copies opened for update, colour tables
// before a change of depth, and identifiers of every kind for every
// command. Seeds
// only need to reach the paths; the fuzzer mutates them from there.

#include "fuzz/driver/seeds.h"

#include "fuzz/driver/program.h"

#include <algorithm>  // std::find
#include <initializer_list>
#include <string_view>

namespace tiffgate::fuzz {

namespace {

using namespace program;

template <class T, std::size_t N, class V>
std::uint8_t index_in(const T (&table)[N], V value) {
  return static_cast<std::uint8_t>(std::find(std::begin(table), std::end(table), value) - std::begin(table));
}

/// Pool positions as the driver opens them: the ten corpus files, the
/// scratch file for writing, then the copies opened "r+": Group 4 pages
/// with Group3Options, a palette image, SubIFDs, BigTIFF, and the
/// uncompressed image with Predictor and Group3Options. Files a program
/// opens come after them.
constexpr std::uint8_t kWriteFile = 10;
constexpr std::uint8_t kFaxCopy = 11, kPaletteCopy = 12, kSubIfdCopy = 13, kBigCopy = 14, kForeignCopy = 15;
constexpr std::uint8_t kFirstOpened = 16;

/// Builds one program in the driver's language.
class Encoder {
 public:
  /// A step with `count` operands, within the command's limits.
  Encoder& step(std::string_view word, std::uint8_t count, int outputs = 1) {
    ++steps_;
    bytes_.push_back(static_cast<std::uint8_t>(word_index(word)));
    bytes_.push_back(static_cast<std::uint8_t>(count - least(word)));
    bytes_.push_back(static_cast<std::uint8_t>(outputs));
    return *this;
  }
  /// The pool position goes above the bit that Near reads as its sign.
  Encoder& id(std::uint8_t pool) { return form(IdForm::Pool).raw({static_cast<std::uint8_t>(pool << 1)}); }
  /// An identifier of form f, with the bytes the driver reads for it: a
  /// pool position (the second file, the one above it for Near), or eight
  /// bytes of a forged value.
  Encoder& id_as(IdForm f) {
    form(f);
    if (f == IdForm::Forged) return raw({0, 0, 0x7f, 1, 2, 3, 4, 8});
    return pooled(f) ? raw({3}) : *this;
  }
  Encoder& tag(std::uint32_t number) {
    return form(TagForm::Number).raw({static_cast<std::uint8_t>(number >> 24), static_cast<std::uint8_t>(number >> 16),
                                      static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)});
  }
  Encoder& number(std::uint8_t v) { return form(NumberForm::Small).raw({v}); }
  Encoder& known_offset() { return form(NumberForm::KnownOffset).raw({0}); }
  Encoder& pair(std::uint8_t row, std::uint8_t column) { return form(PositionForm::Pair).raw({row, column}); }
  Encoder& scalar(std::uint8_t v) { return form(ValueForm::Small).raw({v}); }
  Encoder& big(std::uint32_t v) {
    return form(ValueForm::Big).raw({static_cast<std::uint8_t>(v >> 24), static_cast<std::uint8_t>(v >> 16),
                                     static_cast<std::uint8_t>(v >> 8), static_cast<std::uint8_t>(v)});
  }
  Encoder& row(std::initializer_list<std::uint8_t> values) {
    form(ValueForm::Row).raw({static_cast<std::uint8_t>(values.size())});
    return raw(values);
  }
  Encoder& text(std::string_view t) { return form(ValueForm::Text).raw({index_in(kTexts, t)}); }
  Encoder& blob(std::uint8_t size) {
    form(ValueForm::Blob).raw({size});
    for (std::uint8_t i = 0; i < size; ++i) bytes_.push_back(static_cast<std::uint8_t>(i * 7));
    return *this;
  }
  Encoder& table(std::size_t rows, bool threeColumns, bool fractions) {
    const auto shape = static_cast<std::uint8_t>((threeColumns ? 1 : 0) | (fractions ? 2 : 0));
    return form(ValueForm::Table).raw({shape, index_in(kTableRows, rows)});
  }
  Encoder& matrix(std::uint8_t rows, std::size_t columns) {
    return form(ValueForm::Matrix).raw({rows, index_in(kMatrixColumns, columns),
                                        static_cast<std::uint8_t>(Fill::Pattern)});
  }
  Encoder& text_cell(std::uint8_t n) {
    form(ValueForm::TextCell).raw({n});
    for (std::uint8_t i = 0; i < n; ++i) raw({index_in(kTexts, std::string_view("Cyan"))});
    return *this;
  }
  Encoder& image(std::uint8_t cls, std::size_t rows, std::size_t columns, std::size_t samples) {
    return raw({index_in(kImageClasses, cls), index_in(kImageDims, rows), index_in(kImageDims, columns),
                index_in(kImageSamples, samples), static_cast<std::uint8_t>(Fill::Pattern)});
  }
  /// readFile chooses among the corpus files for ReadFile, among the
  /// copies for Copy.
  Encoder& name(NameForm f, std::uint8_t readFile = 0) {
    form(f);
    return f == NameForm::ReadFile || f == NameForm::Copy ? raw({readFile}) : *this;
  }
  Encoder& mode(std::string_view m) { return form(ModeForm::Fixed).raw({index_in(kModes, m)}); }
  Encoder& hostile(std::uint8_t cls, std::uint8_t dims) { return raw({0xFF, cls, 0, dims, dims, 3}); }
  Encoder& raw(std::initializer_list<std::uint8_t> bytes) {
    bytes_.insert(bytes_.end(), bytes);
    return *this;
  }

  /// setField(file, tag, small scalar).
  Encoder& set(std::uint8_t file, std::uint32_t tag, std::uint8_t v) {
    return step("setField", 3).id(file).tag(tag).scalar(v);
  }

  const std::vector<std::uint8_t>& bytes() const { return bytes_; }
  std::size_t steps() const { return steps_; }

 private:
  template <class Form>
  Encoder& form(Form f) {
    bytes_.push_back(static_cast<std::uint8_t>(f));
    return *this;
  }
  static std::uint8_t least(std::string_view word) {
    struct Least {
      std::string_view word;
      std::uint8_t count;
    };
    static constexpr Least kLeast[] = {{"computeStrip", 2}, {"computeTile", 2}, {"getField", 2},
                                       {"getVersion", 0},   {"open", 2},        {"readEncodedStrip", 2},
                                       {"readEncodedTile", 2}, {"readRGBAStrip", 2}, {"readRGBATile", 3},
                                       {"setDirectory", 2}, {"setField", 3},    {"setSubDirectory", 2},
                                       {"writeEncodedStrip", 3}, {"writeEncodedTile", 3},
                                       {"__writeImage__", 3}};
    for (const Least& l : kLeast)
      if (l.word == word) return l.count;
    return 1;
  }

  std::vector<std::uint8_t> bytes_;
  std::size_t steps_ = 0;
};

/// Every reading command once over corpus file `file`.
Encoder tour(std::uint8_t file) {
  Encoder e;
  e.step("retrieveMetadata", 1).id(file);
  for (std::uint32_t tag : {256u, 258u, 262u, 273u, 320u, 330u, 333u, 338u, 34735u})
    e.step("getField", 2).id(file).tag(tag);
  e.step("isTiled", 1).id(file).step("numberOfStrips", 1).id(file).step("numberOfTiles", 1).id(file);
  e.step("readEncodedStrip", 2, 3).id(file).number(0);
  e.step("readEncodedTile", 2, 3).id(file).number(0);
  e.step("readRGBAImage", 1).id(file);
  e.step("readRGBAStrip", 2).id(file).number(0);
  e.step("readRGBATile", 3).id(file).number(0).number(0);
  e.step("__readImage__", 1).id(file);
  e.step("computeStrip", 2).id(file).number(0);
  e.step("computeStrip", 3).id(file).number(0).number(1);
  e.step("computeTile", 2).id(file).pair(0, 0);
  e.step("setSubDirectory", 2).id(file).known_offset();
  e.step("retrieveMetadata", 1).id(file);
  e.step("setDirectory", 2).id(file).number(1);
  e.step("readDirectory", 1).id(file);
  e.step("lastDirectory", 1).id(file).step("currentDirectory", 1).id(file);
  return e;
}

/// The tags of a stripped or tiled image on the scratch file.
Encoder& layout(Encoder& e, std::uint8_t bits, std::uint8_t samples, std::uint8_t photometric, bool tiled,
                std::uint8_t compression = 1) {
  const std::uint8_t f = kWriteFile;
  // The setters check each tag against those set before it, the
  // photometric interpretation first of all.
  e.set(f, 262, photometric).set(f, 259, compression).set(f, 258, bits).set(f, 277, samples);
  e.set(f, 284, 1).set(f, 256, 32).set(f, 257, 32);
  if (tiled) return e.set(f, 322, 16).set(f, 323, 16);
  return e.set(f, 278, 16);
}

/// An image of one layout written chunk by chunk, then its directory.
Encoder written(std::uint8_t cls, std::uint8_t bits, std::uint8_t samples, std::uint8_t photometric, bool tiled) {
  Encoder e;
  layout(e, bits, samples, photometric, tiled);
  const char* word = tiled ? "writeEncodedTile" : "writeEncodedStrip";
  for (std::uint8_t chunk = 0; chunk < 2; ++chunk)
    e.step(word, 3).id(kWriteFile).number(chunk).image(cls, 16, 16, samples == 1 ? 0 : samples);
  e.step(word, 3).id(kWriteFile).number(9).image(cls, 17, 33, samples == 1 ? 0 : samples);
  e.step("__writeImage__", 3).id(kWriteFile).image(cls, 40, 40, samples == 1 ? 0 : samples).number(3);
  e.step("writeDirectory", 1).id(kWriteFile);
  e.step("readEncodedStrip", 2).id(kWriteFile).number(0);
  return e;
}

/// Every command that takes a file, each with the identifier `id` writes
/// and plain operands after it.
template <class Id>
Encoder& every_command(Encoder& e, Id id) {
  for (const char* word : {"close", "currentDirectory", "isTiled", "lastDirectory", "numberOfStrips",
                           "numberOfTiles", "readDirectory", "readRGBAImage", "rewriteDirectory", "retrieveMetadata",
                           "writeDirectory"})
    id(e.step(word, 1));
  for (const char* word : {"computeStrip", "readEncodedStrip", "readEncodedTile", "readRGBAStrip", "setDirectory",
                           "setSubDirectory"})
    id(e.step(word, 2)).number(0);
  id(e.step("computeTile", 2)).pair(0, 0);
  id(e.step("getField", 2)).tag(256);
  id(e.step("readRGBATile", 3)).number(0).number(0);
  id(e.step("setField", 3)).tag(270).text("a");
  id(e.step("writeEncodedStrip", 3)).number(0).image(9, 16, 32, 0);
  id(e.step("writeEncodedTile", 3)).number(0).image(9, 16, 16, 0);
  id(e.step("__readImage__", 1));
  id(e.step("__writeImage__", 3)).image(9, 16, 16, 0).number(1);
  return e;
}

/// A colour table set on a new file, then a LogLuv coding whose data
/// format changes BitsPerSample under it, the table read back and the
/// file closed, which writes it.
Encoder table_then_log_luv(bool colorMap, std::uint8_t dataFormat) {
  const std::uint8_t f = kFirstOpened;
  Encoder e;
  e.step("open", 2).name(NameForm::OtherScratch).mode("w");
  if (colorMap) {
    e.set(f, 262, 3).set(f, 258, 8).step("setField", 3).id(f).tag(320).table(256, true, true);
  } else {
    e.set(f, 262, 1).step("setField", 3).id(f).tag(301).table(2, false, false);
  }
  e.step("setField", 3).id(f).tag(262).big(32844);
  e.step("setField", 3).id(f).tag(259).big(34676);
  e.set(f, 65560, dataFormat);
  e.step("getField", 2).id(f).tag(colorMap ? 320 : 301);
  e.step("close", 1).id(f);
  return e;
}

std::vector<std::pair<std::string, Encoder>> programs() {
  std::vector<std::pair<std::string, Encoder>> all;
  for (std::uint8_t file = 0; file < kWriteFile; ++file) all.emplace_back("tour-" + std::to_string(file), tour(file));

  all.emplace_back("write-grey8-strips", written(9, 8, 1, 1, false));
  all.emplace_back("write-grey16-tiles", written(11, 16, 1, 1, true));
  all.emplace_back("write-rgb8-strips", written(9, 8, 3, 2, false));
  all.emplace_back("write-bilevel", written(3, 1, 1, 0, false));
  all.emplace_back("write-double-tiles", written(6, 64, 1, 1, true));

  Encoder floats;
  layout(floats, 32, 1, 1, false).set(kWriteFile, 339, 3);
  floats.step("writeEncodedStrip", 3).id(kWriteFile).number(0).image(7, 16, 32, 0);
  all.emplace_back("write-float32", floats);

  Encoder ycbcr;
  layout(ycbcr, 8, 3, 6, false).step("setField", 3).id(kWriteFile).tag(530).row({2, 2});
  ycbcr.step("writeEncodedStrip", 5).id(kWriteFile).number(0).image(9, 16, 32, 0).image(9, 8, 16, 0).image(9, 8, 16, 0);
  ycbcr.step("writeDirectory", 1).id(kWriteFile);
  all.emplace_back("write-ycbcr", ycbcr);

  Encoder jpeg;
  layout(jpeg, 8, 3, 6, false, 7).step("setField", 3).id(kWriteFile).tag(65537).scalar(75);
  jpeg.set(kWriteFile, 65538, 1);
  jpeg.step("writeEncodedStrip", 3).id(kWriteFile).number(0).image(9, 16, 32, 3);
  jpeg.step("writeDirectory", 1).id(kWriteFile);
  all.emplace_back("write-jpeg", jpeg);

  Encoder deflate;
  layout(deflate, 16, 1, 1, true, 8).set(kWriteFile, 317, 2).set(kWriteFile, 65557, 9);
  deflate.step("writeEncodedTile", 3).id(kWriteFile).number(0).image(11, 16, 16, 0);
  deflate.step("writeDirectory", 1).id(kWriteFile);
  all.emplace_back("write-deflate-predictor", deflate);

  Encoder tags;
  layout(tags, 8, 1, 3, false);
  tags.step("setField", 3).id(kWriteFile).tag(270).text("a");
  tags.step("setField", 3).id(kWriteFile).tag(306).text("2024:01:02 03:04");
  tags.step("setField", 3).id(kWriteFile).tag(700).text("<x:xmpmeta/>");
  tags.step("setField", 3).id(kWriteFile).tag(34377).blob(12);
  tags.step("setField", 3).id(kWriteFile).tag(34675).blob(3);
  tags.step("setField", 3).id(kWriteFile).tag(320).table(256, true, true);
  tags.step("setField", 3).id(kWriteFile).tag(301).table(256, false, false);
  tags.step("setField", 3).id(kWriteFile).tag(297).row({1, 2});
  tags.step("setField", 3).id(kWriteFile).tag(33922).matrix(1, 6);
  tags.step("setField", 3).id(kWriteFile).tag(34735).matrix(2, 4);
  tags.step("setField", 3).id(kWriteFile).tag(33550).row({1, 1, 0});
  tags.step("setField", 3).id(kWriteFile).tag(330).scalar(2);
  tags.set(kWriteFile, 262, 5).step("setField", 3).id(kWriteFile).tag(333).text_cell(4);
  tags.step("setField", 3).id(kWriteFile).tag(65537).scalar(75);
  tags.step("setField", 3).id(0).tag(65537).scalar(75);
  tags.step("setField", 3).id(0).tag(270).text("a");
  for (std::uint32_t tag : {320u, 301u, 333u, 306u}) tags.step("getField", 2).id(kWriteFile).tag(tag);
  tags.step("writeDirectory", 1).id(kWriteFile).step("rewriteDirectory", 1).id(kWriteFile);
  all.emplace_back("set-tags", tags);

  Encoder files;
  files.step("open", 2).name(NameForm::ReadFile, 3).mode("r");
  files.step("close", 1).id(kFirstOpened).step("close", 1).id(kFirstOpened);
  files.step("currentDirectory", 1).id(kFirstOpened);
  files.step("open", 2).name(NameForm::OtherScratch).mode("w8");
  files.step("open", 2).name(NameForm::WriteFile).mode("a");
  files.step("open", 2).name(NameForm::NonAscii).mode("w");
  files.step("open", 2).name(NameForm::WithNul).mode("w");
  files.step("open", 2).name(NameForm::Missing).mode("r");
  files.step("open", 2).name(NameForm::ReadFile, 0).mode("r+");
  files.step("open", 2).name(NameForm::Copy, 1).mode("a");
  files.step("close", 1).id(0).step("numberOfStrips", 1).id(0);
  all.emplace_back("open-close", files);

  Encoder ids;
  for (auto f = IdForm::Pool; f < IdForm::kCount; f = static_cast<IdForm>(static_cast<int>(f) + 1)) {
    ids.step("currentDirectory", 1).id_as(f);
    ids.step("getField", 2).id_as(f).tag(256);
  }
  ids.step("setField", 3).hostile(1, 2).hostile(4, 3).hostile(2, 1);
  ids.step("writeEncodedStrip", 5).id(kWriteFile).hostile(6, 0).hostile(1, 3).hostile(4, 2).hostile(15, 4);
  all.emplace_back("identifiers", ids);

  // A stale identifier (its file closed, another opened after it) and a
  // made-up one, for every command.
  Encoder stale;
  stale.step("open", 2).name(NameForm::OtherScratch).mode("w").step("close", 1).id(kFirstOpened);
  stale.step("open", 2).name(NameForm::ReadFile, 3).mode("r");
  every_command(stale, [](Encoder& e) -> Encoder& { return e.id_as(IdForm::Closed); });
  every_command(stale, [](Encoder& e) -> Encoder& { return e.id_as(IdForm::Forged); });
  all.emplace_back("stale-identifiers", stale);

  for (const bool colorMap : {false, true})
    for (const std::uint8_t format : {3, 0})
      all.emplace_back(std::string(colorMap ? "colormap" : "transfer") + "-then-logluv-" + std::to_string(format),
                       table_then_log_luv(colorMap, format));

  // Directories read from files, changed in place: tags of another codec
  // than the image's, a palette image turned LogLuv, pages and SubIFDs.
  Encoder update;
  update.set(kForeignCopy, 317, 2).step("getField", 2).id(kForeignCopy).tag(317);
  update.set(kForeignCopy, 292, 4).step("rewriteDirectory", 1).id(kForeignCopy);
  update.step("setField", 3).id(kForeignCopy).tag(270).text("a").step("writeDirectory", 1).id(kForeignCopy);
  update.set(kFaxCopy, 292, 1).set(kFaxCopy, 293, 0).step("rewriteDirectory", 1).id(kFaxCopy);
  update.step("setDirectory", 2).id(kFaxCopy).number(3).set(kFaxCopy, 317, 2);
  update.step("writeDirectory", 1).id(kFaxCopy);
  update.step("setField", 3).id(kPaletteCopy).tag(262).big(32844);
  update.step("setField", 3).id(kPaletteCopy).tag(259).big(34676);
  update.set(kPaletteCopy, 65560, 3).step("getField", 2).id(kPaletteCopy).tag(320);
  update.step("rewriteDirectory", 1).id(kPaletteCopy);
  update.step("setField", 3).id(kSubIfdCopy).tag(330).scalar(1).step("writeDirectory", 1).id(kSubIfdCopy);
  update.step("setField", 3).id(kBigCopy).tag(305).text("a").step("rewriteDirectory", 1).id(kBigCopy);
  update.step("writeEncodedTile", 3).id(kBigCopy).number(0).image(9, 16, 16, 0);
  all.emplace_back("update-copies", update);
  return all;
}

}  // namespace

std::vector<SeedProgram> command_seeds() {
  std::vector<SeedProgram> seeds;
  for (const auto& [name, program] : programs()) seeds.push_back({name, program.bytes(), program.steps()});
  return seeds;
}

}  // namespace tiffgate::fuzz
