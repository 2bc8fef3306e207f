#include "shell/info.h"

#include "host/embedded/session.h"
#include "shell/printer.h"
#include "shell/values.h"

#include <optional>
#include <set>

namespace tiffgate::shell {

namespace {

struct Named {
  double code;
  const char* name;
};

constexpr Named kSampleFormats[] = {
    {1, "unsigned integer"}, {2, "signed integer"},  {3, "IEEE floating point"},
    {4, "untyped"},          {5, "complex integer"}, {6, "complex floating point"},
};
constexpr Named kPhotometrics[] = {
    {0, "MinIsWhite"}, {1, "MinIsBlack"}, {2, "RGB"},        {3, "Palette"},       {4, "Mask"},
    {5, "Separated"},  {6, "YCbCr"},      {8, "CIELab"},     {9, "ICCLab"},        {10, "ITULab"},
    {32803, "CFA"},    {32844, "LogL"},   {32845, "LogLuv"}, {34892, "LinearRaw"},
};
constexpr Named kCompressions[] = {
    {1, "None"},
    {2, "CCITT RLE"},
    {3, "CCITT Group 3"},
    {4, "CCITT Group 4"},
    {5, "LZW"},
    {6, "old JPEG"},
    {7, "JPEG"},
    {8, "Adobe Deflate"},
    {32771, "CCITT RLEW"},
    {32773, "PackBits"},
    {32809, "ThunderScan"},
    {32946, "Deflate"},
    {34661, "JBIG"},
    {34676, "SGILog"},
    {34677, "SGILog24"},
    {34712, "JPEG 2000"},
    {34887, "LERC"},
    {34925, "LZMA"},
    {50000, "Zstandard"},
    {50001, "WebP"},
};
constexpr Named kPlanarConfigurations[] = {{1, "contiguous"}, {2, "separate"}};
constexpr Named kExtraSamples[] = {{0, "unspecified"}, {1, "associated alpha"}, {2, "unassociated alpha"}};
// The text tags worth showing, in tag order.
constexpr Named kTextTags[] = {
    {269, "DocumentName"}, {270, "ImageDescription"}, {271, "Make"},        {272, "Model"},
    {285, "PageName"},     {305, "Software"},         {306, "DateTime"},    {315, "Artist"},
    {316, "HostComputer"}, {337, "TargetPrinter"},    {33432, "Copyright"}, {34737, "GeoASCIIParamsTag"},
};

/// "RGB (2)", "unknown (7)".
template <std::size_t N>
std::string named(const Named (&table)[N], double code) {
  for (const Named& row : table)
    if (row.code == code) return std::string(row.name) + " (" + shortest(code) + ")";
  return "unknown (" + shortest(code) + ")";
}

/// SubIFDs within SubIFDs are followed this deep, no deeper.
constexpr std::size_t kMaxSubIfdDepth = 4;
constexpr const char* kAbsentTag = "Quarn:imagesci:Tiff:tagRetrievalFailed";

class Summary {
 public:
  Summary(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

  /// Describes one file; false when anything failed.
  bool describe_file(const std::string& path) {
    ok_ = true;
    out_ << path << ":\n";
    std::optional<Array> id;
    try {
      id = ask("open", {Array::text(path), Array::text("r")});
      // Each directory is reached by its index, also after a visit to its
      // SubIFDs; one that cannot be reached ends the walk.
      for (double index = 0;; ++index) {
        ask("setDirectory", {*id, Array::scalar(index)});
        try {
          const double number = ask("currentDirectory", {*id})->number();
          std::set<std::uint64_t> seen;
          describe_directory(*id, "directory " + shortest(number), index, {}, "  ", seen);
        } catch (const ShellError& e) {
          failed(e);
        }
        ask("setDirectory", {*id, Array::scalar(index)});
        if (ask("lastDirectory", {*id})->number() != 0) break;
      }
    } catch (const ShellError& e) {
      failed(e);
    }
    try {
      if (id) ask("close", {*id});
    } catch (const ShellError& e) {
      failed(e);
    }
    return ok_;
  }

 private:
  /// Runs a command; its warnings are shown, its error thrown, except that
  /// an absent tag gives nothing when absent_ok.
  std::optional<Array> ask(const char* word, std::vector<Array> operands, bool absent_ok = false) {
    embedded::CallResult r = embedded::call(word, std::move(operands));
    for (const auto& w : r.warnings) diagnostic("warning", w.identifier, w.message);
    if (!r.ok()) {
      if (absent_ok && r.error->identifier == kAbsentTag) return std::nullopt;
      fail(r.error->identifier, r.error->message);
    }
    if (r.outputs.empty() || !r.outputs[0]) return std::nullopt;
    return std::move(*r.outputs[0]);
  }

  void diagnostic(const char* kind, const std::string& identifier, const std::string& message) {
    out_.flush();
    print_diagnostic(err_, kind, identifier, message);
    err_.flush();
  }
  void failed(const ShellError& e) {
    diagnostic("error", e.identifier(), e.what());
    ok_ = false;
  }

  void describe_directory(const Array& id, const std::string& heading, double index, std::vector<std::uint64_t> path,
                          const std::string& indent, std::set<std::uint64_t>& seen) {
    const Array meta = *ask("retrieveMetadata", {id});
    const auto field = [&meta](const char* name) {
      const Array* v = meta.field(name);
      return v ? v->number() : 0.0;
    };
    const auto text = [&field](const char* name) { return shortest(field(name)); };
    const std::string in = indent + "  ";
    out_ << indent << heading << ": " << text("ImageWidth") << " x " << text("ImageLength") << '\n';
    out_ << in << "bits per sample: " << text("BitsPerSample") << '\n';
    out_ << in << "samples per pixel: " << text("SamplesPerPixel") << '\n';
    out_ << in << "sample format: " << named(kSampleFormats, field("SampleFormat")) << '\n';
    out_ << in << "photometric interpretation: " << named(kPhotometrics, field("PhotometricInterpretation")) << '\n';
    if (const Array* sub = meta.field("YCbCrSubsampling"); sub && sub->numel() == 2)
      out_ << in << "YCbCr subsampling: " << shortest(sub->number(0)) << " x " << shortest(sub->number(1)) << '\n';
    out_ << in << "compression: " << named(kCompressions, field("Compression")) << '\n';
    out_ << in << "planar configuration: " << named(kPlanarConfigurations, field("PlanarConfiguration")) << '\n';
    const auto count = [](double n, const char* noun) { return shortest(n) + " " + noun + (n == 1 ? "" : "s"); };
    if (field("isTiled") != 0) {
      out_ << in << "tiled: " << text("TileWidth") << " x " << text("TileLength") << " tiles, "
           << count(ask("numberOfTiles", {id})->number(), "tile") << '\n';
    } else {
      out_ << in << "stripped: " << count(field("RowsPerStrip"), "row") << " per strip, "
           << count(ask("numberOfStrips", {id})->number(), "strip") << '\n';
    }
    out_ << in << "extra samples: ";
    if (field("numExtraSamples") == 0) {
      out_ << "none\n";
    } else {
      const Array extra = *ask("getField", {id, Array::scalar(338)});
      for (std::size_t i = 0; i < extra.numel(); ++i) out_ << (i ? ", " : "") << named(kExtraSamples, extra.number(i));
      out_ << '\n';
    }
    const std::optional<Array> subifds = ask("getField", {id, Array::scalar(330)}, true);
    std::vector<std::uint64_t> offsets;
    if (subifds && subifds->class_id() == zvUINT64_CLASS)
      offsets.assign(subifds->data_as<std::uint64_t>(), subifds->data_as<std::uint64_t>() + subifds->numel());
    out_ << in << "SubIFD offsets:";
    for (std::uint64_t offset : offsets) out_ << ' ' << offset;
    out_ << (offsets.empty() ? " none\n" : "\n");
    for (const Named& tag : kTextTags)
      if (const auto value = ask("getField", {id, Array::scalar(tag.code)}, true))
        out_ << in << tag.name << ": " << quoted(value->utf8()) << '\n';

    if (path.size() >= kMaxSubIfdDepth) return;
    for (std::uint64_t offset : offsets) {
      if (!seen.insert(offset).second) continue;  // a SubIFD listed twice, or a loop
      path.push_back(offset);
      try {
        // SubIFDs are reached from their parent: back to the main
        // directory, then down the path.
        ask("setDirectory", {id, Array::scalar(index)});
        for (std::uint64_t step : path) ask("setSubDirectory", {id, Array::uint64(step)});
        describe_directory(id, "SubIFD at " + std::to_string(offset), index, path, in, seen);
      } catch (const ShellError& e) {
        failed(e);
      }
      path.pop_back();
    }
  }

  std::ostream& out_;
  std::ostream& err_;
  bool ok_ = true;
};

}  // namespace

int run_info(const std::vector<std::string>& files, std::ostream& out, std::ostream& err) {
  Summary summary(out, err);
  int status = 0;
  for (const std::string& file : files)
    if (!summary.describe_file(file)) status = 1;
  return status;
}

}  // namespace tiffgate::shell
