// The command driver: the input is a program (fuzz/driver/program.h) run
// against a few corpus files opened for reading, a scratch file opened for
// writing and scratch copies of corpus files opened for update, so that
// every command, setter and write path meets operands of every class and
// shape. Every command gets identifiers of every kind: open, closed, stale
// (closed, with files opened after it), made up, and in other classes.

#include "files/files.h"
#include "fuzz/driver/arrays.h"
#include "fuzz/driver/drivers.h"
#include "fuzz/driver/program.h"
#include "fuzz/driver/reader.h"
#include "fuzz/driver/scratch_files.h"
#include "fuzz/driver/support.h"
#include "gateway/command_table.h"
#include "tags/tag_table.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>

namespace tiffgate::fuzz {

namespace {

using namespace program;

constexpr std::size_t kMaxSteps = 128;
/// Cells and structures nest at most this deep.
constexpr int kMaxNesting = 2;

Array num(double v) { return Array::scalar(v); }

bool is_live(std::uint64_t value) {
  return registered_handle(value) != nullptr;
}

class Program {
 public:
  Program(Reader& reader, Session& session, std::vector<std::string> readFiles, std::vector<std::string> copies)
      : r_(reader), s_(session), readFiles_(std::move(readFiles)), copies_(std::move(copies)) {
    for (const auto& entry : TagNameTable()) tags_.push_back(entry.first);
  }

  void run() {
    for (std::size_t step = 0; step < kMaxSteps && !r_.empty(); ++step) {
      s_.step();
      const std::size_t w = r_.pick(kWordChoices);
      const std::uint8_t countByte = r_.byte();
      const int nOutputs = static_cast<int>(r_.pick(4));
      if (w == kNoInputs) {
        s_.call_inputs({}, nOutputs);
        continue;
      }
      const std::string_view word = w == kNumericWord ? std::string_view() : kWords[w];
      const auto [least, most] = limits(word);
      const std::size_t count =
          countByte < kAnyCount ? least + countByte % (most - least + 1) : countByte % 7;
      std::vector<Array> inputs;
      inputs.push_back(w == kNumericWord ? num(11) : Array::text(word));
      readOnlyName_ = false;
      for (std::size_t i = 0; i < count; ++i) inputs.push_back(operand(role_of(word, i)));
      // The file the call works on, if its identifier names one open now.
      const bool identified = count > 0 && role_of(word, 0) == Role::Id && inputs[1].class_id() == zvUINT64_CLASS &&
                              inputs[1].numel() == 1;
      target_ = identified ? registered_handle(inputs[1].at<std::uint64_t>(0)) : nullptr;
      if (target_ != nullptr && !affordable(word)) {
        s_.skip();
        continue;
      }
      const CallResult result = s_.call_inputs(inputs, nOutputs);
      remember_offsets(word, result);
    }
  }

 private:
  /// Operand limits of the command and entry tables; words that are no
  /// command get up to three operands.
  static std::pair<std::size_t, std::size_t> limits(std::string_view word) {
    for (const auto* table : {&command_table(), &entry_table()})
      for (const CommandEntry& entry : *table)
        if (entry.name == word)
          return {static_cast<std::size_t>(entry.minOperands), static_cast<std::size_t>(entry.maxOperands)};
    return {0, 3};
  }

  /// Whether the buffers of a data command on the target file fit the
  /// budget; other commands allocate nothing that grows with the file.
  bool affordable(std::string_view word) {
    static constexpr std::pair<std::string_view, Demand> kDemands[] = {
        {"readEncodedStrip", Demand::Strip}, {"writeEncodedStrip", Demand::Strip},
        {"readEncodedTile", Demand::Tile},   {"writeEncodedTile", Demand::Tile},
        {"readRGBAImage", Demand::RgbaImage}, {"readRGBAStrip", Demand::RgbaStrip},
        {"readRGBATile", Demand::RgbaTile},   {"__readImage__", Demand::Image},
        {"__writeImage__", Demand::Image}};
    for (const auto& [name, demand] : kDemands)
      if (name == word) return budget_.take(demand_bytes(target_, demand));
    return true;
  }

  /// SubIFD offsets that "getField" returned, for "setSubDirectory" to try.
  void remember_offsets(std::string_view word, const CallResult& result) {
    if (word != "getField" || !result.ok() || result.outputs.empty() || !result.outputs[0]) return;
    const Array& out = *result.outputs[0];
    if (out.class_id() != zvUINT64_CLASS) return;
    for (std::size_t i = 0; i < out.numel() && offsets_.size() < 16; ++i)
      offsets_.push_back(out.at<std::uint64_t>(i));
  }

  Array operand(Role role) {
    switch (role) {
      case Role::Id: return identifier();
      case Role::Name: return name();
      case Role::Mode: return mode();
      case Role::Tag: return tag();
      case Role::Value: return value();
      case Role::Number: return number();
      case Role::Offset: return number();
      case Role::Position: return position();
      case Role::Image: return image();
      case Role::Any: break;
    }
    return any(0);
  }

  /// Any identifier for any command: the dispatcher checks every one
  /// against the registry before the handler or libtiff sees it.
  Array identifier() {
    const std::uint8_t b = r_.byte();
    if (b >= kHostile) return any(0);
    auto form = static_cast<IdForm>(b % static_cast<std::uint8_t>(IdForm::kCount));
    std::uint64_t value = 0;
    if (pooled(form)) {
      std::vector<std::uint64_t> pool;
      for (const Array& id : s_.opened())
        if (form != IdForm::Closed || !is_live(id.at<std::uint64_t>(0))) pool.push_back(id.at<std::uint64_t>(0));
      // The choice is read even when there is nothing to choose from, so
      // that the bytes after it mean the same either way.
      const std::uint8_t choice = r_.byte();
      if (pool.empty()) {
        form = IdForm::Zero;
      } else {
        value = pool[(choice >> 1) % pool.size()];
        if (form == IdForm::Near) value = (choice & 1) ? value + 1 : value - 1;
      }
    }
    switch (form) {
      case IdForm::Pool: case IdForm::Closed: case IdForm::Near: return Array::uint64(value);
      case IdForm::PoolAsDouble: return num(static_cast<double>(value));
      case IdForm::PoolAsInt64: return Array::of(zvINT64_CLASS, {1, 1}, std::vector<std::int64_t>{static_cast<std::int64_t>(value)});
      case IdForm::PoolPair: return Array::of(zvUINT64_CLASS, {1, 2}, std::vector<std::uint64_t>{value, 0});
      case IdForm::Zero: break;
      case IdForm::ZeroDouble: return num(0);
      case IdForm::Empty: return Array(zvUINT64_CLASS, {0, 0});
      case IdForm::Text: return Array::text("id");
      case IdForm::Negative: return num(-1);
      case IdForm::Huge: return num(1e30);
      case IdForm::NaN: return num(std::numeric_limits<double>::quiet_NaN());
      case IdForm::Forged: return Array::uint64(r_.u64());
      case IdForm::PoolAsUint32: return Array::of(zvUINT32_CLASS, {1, 1}, std::vector<std::uint32_t>{static_cast<std::uint32_t>(value)});
      case IdForm::PoolAsSingle: return Array::of(zvSINGLE_CLASS, {1, 1}, std::vector<float>{static_cast<float>(value)});
      case IdForm::kCount: break;
    }
    return Array::uint64(0);
  }

  Array name() {
    const std::uint8_t b = r_.byte();
    const std::string& dir = scratch_dir();
    if (b >= kHostile) return confined(any(0));
    switch (static_cast<NameForm>(b % static_cast<std::uint8_t>(NameForm::kCount))) {
      case NameForm::ReadFile: {
        const std::uint8_t choice = r_.byte();
        if (readFiles_.empty()) break;
        readOnlyName_ = true;
        return Array::text(readFiles_[choice % readFiles_.size()]);
      }
      case NameForm::WriteFile: return Array::text(dir + "/out.tif");
      case NameForm::Copy: {
        const std::uint8_t choice = r_.byte();
        if (copies_.empty()) break;
        return Array::text(copies_[choice % copies_.size()]);
      }
      case NameForm::OtherScratch: return Array::text(dir + "/other.tif");
      case NameForm::Missing: break;
      case NameForm::Directory: return Array::text(dir);
      case NameForm::Empty: return Array::text("");
      case NameForm::WithNul: return Array::text(dir + std::string("/other.tif\0x", 12));
      case NameForm::NonAscii: return Array::text(dir + "/\xC3\xA9t\xC3\xA9.tif");
      case NameForm::LoneSurrogate: {
        std::u16string name(dir.begin(), dir.end());
        return Array::text(name + u"/\xD800.tif");
      }
      case NameForm::Long: return Array::text(dir + "/" + std::string(5000, 'a'));
      case NameForm::Numeric: return num(1);
      case NameForm::kCount: break;
    }
    return Array::text(dir + "/missing/none.tif");
  }

  /// A text of any content as a name inside the scratch directory: a
  /// random name must not create or truncate files elsewhere.
  static Array confined(Array a) {
    if (a.class_id() != zvCHAR_CLASS) return a;
    std::u16string units = a.utf16();
    std::replace(units.begin(), units.end(), u'/', u'_');
    const std::string& dir = scratch_dir();
    return Array::text(std::u16string(dir.begin(), dir.end()) + u"/" + units);
  }

  Array mode() {
    const std::uint8_t b = r_.byte();
    Array m;
    if (b >= kHostile) {
      m = any(0);
    } else {
      switch (static_cast<ModeForm>(b % static_cast<std::uint8_t>(ModeForm::kCount))) {
        case ModeForm::Fixed: m = Array::text(kModes[r_.pick(std::size(kModes))]); break;
        case ModeForm::Random: m = random_text(); break;
        default: m = num(r_.byte()); break;
      }
    }
    // Corpus files are only ever read: libtiff decides on the first
    // character, and on a '+' right after it.
    if (readOnlyName_ && m.class_id() == zvCHAR_CLASS) {
      if (m.empty()) return Array::text("r");
      char16_t* units = m.data_as<char16_t>();
      units[0] = u'r';
      if (m.numel() > 1 && units[1] == u'+') units[1] = u'm';
    }
    return m;
  }

  Array tag() {
    const std::uint8_t b = r_.byte();
    if (b >= kHostile) return any(0);
    const auto tableTag = [&] { return static_cast<double>(tags_[r_.pick(tags_.size())]); };
    switch (static_cast<TagForm>(b % static_cast<std::uint8_t>(TagForm::kCount))) {
      case TagForm::Table: return num(tableTag());
      case TagForm::Number: return num(r_.u32());
      case TagForm::Unknown: return num(kUnknownTags[r_.pick(std::size(kUnknownTags))]);
      case TagForm::Special: return num(special());
      case TagForm::AsUint16:
        return Array::of(zvUINT16_CLASS, {1, 1}, std::vector<std::uint16_t>{static_cast<std::uint16_t>(static_cast<std::uint32_t>(tableTag()))});
      case TagForm::Row: return Array::row({tableTag(), 0});
      default: return Array();
    }
  }

  Array number() {
    const std::uint8_t b = r_.byte();
    if (b >= kHostile) return any(0);
    const auto offset = [&] {
      const std::uint8_t choice = r_.byte();
      return offsets_.empty() ? std::uint64_t{8} : offsets_[choice % offsets_.size()];
    };
    switch (static_cast<NumberForm>(b % static_cast<std::uint8_t>(NumberForm::kCount))) {
      case NumberForm::Small: return num(r_.byte());
      case NumberForm::Special: return num(special());
      case NumberForm::SmallAsClass: {
        Array a(static_cast<zvClassID>(kNumericClasses[r_.pick(std::size(kNumericClasses))]), {1, 1});
        set_small(a, 0, r_.byte());
        return a;
      }
      case NumberForm::Empty: return Array();
      case NumberForm::Fraction: return num(r_.byte() / 10.0);
      case NumberForm::Big: return num(r_.u32());
      case NumberForm::KnownOffset: return Array::uint64(offset());
      default: return num(static_cast<double>(offset()));
    }
  }

  Array position() {
    const std::uint8_t b = r_.byte();
    if (b >= kHostile) return any(0);
    switch (static_cast<PositionForm>(b % static_cast<std::uint8_t>(PositionForm::kCount))) {
      case PositionForm::Pair: {
        const double row = r_.byte();
        return Array::row({row, static_cast<double>(r_.byte())});
      }
      case PositionForm::PairSpecial: {
        const double row = special();
        return Array::row({row, special()});
      }
      case PositionForm::Single: return Array::row({static_cast<double>(r_.byte())});
      case PositionForm::Triple: {
        Array a(zvDOUBLE_CLASS, {1, 3});
        for (std::size_t i = 0; i < 3; ++i) set_small(a, i, r_.byte());
        return a;
      }
      case PositionForm::Empty: return Array(zvDOUBLE_CLASS, {1, 0});
      default: {
        Array a(static_cast<zvClassID>(kNumericClasses[r_.pick(std::size(kNumericClasses))]), {1, 2});
        for (std::size_t i = 0; i < 2; ++i) set_small(a, i, r_.byte());
        return a;
      }
    }
  }

  Array value() {
    const std::uint8_t b = r_.byte();
    if (b >= kHostile) return any(0);
    switch (static_cast<ValueForm>(b % static_cast<std::uint8_t>(ValueForm::kCount))) {
      case ValueForm::Small: return num(r_.byte());
      case ValueForm::Special: return num(special());
      case ValueForm::Row: return row_of(zvDOUBLE_CLASS);
      case ValueForm::SpecialRow: {
        Array a(zvDOUBLE_CLASS, {1, r_.pick(9)});
        for (std::size_t i = 0; i < a.numel(); ++i) store<double>(a, i, special());
        return a;
      }
      case ValueForm::Matrix: {
        const std::size_t rows = r_.pick(5);
        Array a(zvDOUBLE_CLASS, {rows, kMatrixColumns[r_.pick(std::size(kMatrixColumns))]});
        fill(a);
        return a;
      }
      case ValueForm::Text: return text();
      case ValueForm::Blob: {
        Array a(zvUINT8_CLASS, {1, r_.pick(65)});
        for (std::size_t i = 0; i < a.numel(); ++i) store<std::uint8_t>(a, i, r_.byte());
        return a;
      }
      case ValueForm::TextCell: {
        std::vector<Array> names(r_.pick(5));
        for (Array& n : names) n = text();
        return Array::cell(std::move(names));
      }
      case ValueForm::Uint16Row: return row_of(zvUINT16_CLASS);
      case ValueForm::Single: return Array::of(zvSINGLE_CLASS, {1, 1}, std::vector<float>{static_cast<float>(r_.byte())});
      case ValueForm::Logical: return Array::logical(r_.byte() & 1);
      case ValueForm::Empty: return Array();
      case ValueForm::Big: return num(r_.u32());
      case ValueForm::Table: {
        const std::uint8_t shape = r_.byte();
        Array a(zvDOUBLE_CLASS, {kTableRows[r_.pick(std::size(kTableRows))], (shape & 1) ? 3u : 1u});
        // Colour maps are fractions of 1, transfer functions 16-bit counts.
        for (std::size_t i = 0; i < a.numel(); ++i) {
          const double v = static_cast<double>((i * 2654435761u) % 65536);
          store<double>(a, i, (shape & 2) ? v / 65535.0 : v);
        }
        return a;
      }
      case ValueForm::kCount: break;
    }
    return Array();
  }

  Array row_of(zvClassID cls) {
    Array a(cls, {1, r_.pick(9)});
    for (std::size_t i = 0; i < a.numel(); ++i) set_small(a, i, r_.byte());
    return a;
  }

  Array image() {
    const auto cls = static_cast<zvClassID>(kImageClasses[r_.pick(std::size(kImageClasses))]);
    const std::size_t rows = kImageDims[r_.pick(std::size(kImageDims))];
    const std::size_t columns = kImageDims[r_.pick(std::size(kImageDims))];
    const std::size_t samples = kImageSamples[r_.pick(std::size(kImageSamples))];
    if (cls == zvCELL_CLASS) return any(kMaxNesting - 1);
    Array a(cls, samples ? Array::Dims{rows, columns, samples} : Array::Dims{rows, columns});
    fill(a);
    return a;
  }

  /// An array of any class and shape, cells and structures included.
  Array any(int depth) {
    static constexpr std::uint8_t kClasses[] = {1, 2, 3, 4, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    const auto cls = static_cast<zvClassID>(kClasses[r_.pick(std::size(kClasses))]);
    Array::Dims dims(2 + r_.pick(3));
    for (std::size_t& d : dims) d = kAnyDims[r_.pick(std::size(kAnyDims))];
    if ((cls == zvCELL_CLASS || cls == zvSTRUCT_CLASS) && depth >= kMaxNesting) return Array();
    Array a = shaped(cls, std::move(dims));
    if (cls == zvSTRUCT_CLASS) {
      static const std::vector<std::string> kFields = {"f0", "f1"};
      a.set_field_names(std::vector<std::string>(kFields.begin(), kFields.begin() + static_cast<long>(r_.pick(3))));
    }
    if (cls == zvCELL_CLASS || cls == zvSTRUCT_CLASS) {
      for (Array& element : a.cells()) element = any(depth + 1);
    } else {
      fill(a);
    }
    return a;
  }

  /// Fills a numeric, logical or text array in the way the next byte says.
  void fill(Array& a) {
    const auto how = static_cast<Fill>(r_.pick(static_cast<std::size_t>(Fill::kCount)));
    const std::size_t n = a.numel();
    if (n == 0 || a.element_size() == 0) return;
    switch (how) {
      case Fill::Zeros: break;
      case Fill::Pattern:
        for (std::size_t i = 0; i < n; ++i) set_small(a, i, static_cast<std::uint8_t>(i * 37 + 11));
        break;
      case Fill::Bytes: {
        // A few bytes of the input, repeated over the array bit for bit.
        std::uint8_t bytes[16];
        const std::size_t k = 1 + r_.pick(16);
        for (std::size_t i = 0; i < k; ++i) bytes[i] = r_.byte();
        auto* data = static_cast<std::uint8_t*>(a.data());
        for (std::size_t i = 0; i < a.byte_size(); ++i) data[i] = bytes[i % k];
        // A logical holds 0 or 1 and nothing else.
        if (a.class_id() == zvLOGICAL_CLASS)
          for (std::size_t i = 0; i < n; ++i) store<zvLogical>(a, i, (data[i] & 1) != 0);
        break;
      }
      case Fill::Specials: fill_specials(a); break;
      case Fill::kCount: break;
    }
  }

  double special() { return kSpecials[r_.pick(std::size(kSpecials))]; }

  Array text() {
    const std::size_t c = r_.pick(kTextChoices);
    if (c < std::size(kTexts)) return Array::text(kTexts[c]);
    if (c == std::size(kTexts)) return Array::text(std::string(1000, 'x'));
    return random_text();
  }

  /// Up to 23 UTF-16 units of any value, lone surrogates included.
  Array random_text() {
    std::u16string units(r_.pick(24), u'\0');
    for (char16_t& u : units) u = static_cast<char16_t>(r_.byte() | (r_.byte() << 8));
    return Array::text(units);
  }

  Reader& r_;
  Session& s_;
  const std::vector<std::string> readFiles_;
  const std::vector<std::string> copies_;  ///< scratch copies, open in any mode
  std::vector<std::uint32_t> tags_;
  std::vector<std::uint64_t> offsets_;
  Budget budget_;
  TIFF* target_ = nullptr;     ///< the open file the step's identifier names
  bool readOnlyName_ = false;  ///< the step opens a corpus file
};

}  // namespace

RunReport run_command_input(const std::uint8_t* data, std::size_t size) {
  static const std::vector<std::string> readFiles = command_read_files();
  static const std::vector<std::pair<std::string, std::string>> copied = command_copied_files();
  RunReport report;
  Session session(report);
  // Every input starts from an empty scratch directory and fresh copies, so
  // that it runs the same whatever ran before it.
  for (const auto& entry : std::filesystem::directory_iterator(scratch_dir()))
    std::filesystem::remove_all(entry.path());
  for (const std::string& path : readFiles) session.call("open", {Array::text(path), Array::text("r")});
  session.call("open", {Array::text(scratch_dir() + "/out.tif"), Array::text("w")});
  std::vector<std::string> copies;
  for (const auto& [name, bytes] : copied) {
    copies.push_back(scratch_dir() + "/" + name);
    std::ofstream(copies.back(), std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    session.call("open", {Array::text(copies.back()), Array::text("r+")});
  }
  Reader reader(data, size);
  Program(reader, session, readFiles, copies).run();
  session.finish();
  return report;
}

}  // namespace tiffgate::fuzz
