// The gateway entry: command lookup, operand limits, the command word
// itself, getVersion, the out-of-range translation, and libtiff's own
// messages surfaced as warnings. The error kinds: the list of kinds against
// the catalogue, both against the kinds the module is required to have, and
// how a kind is rendered, raised and carried. The embedded host: unloading
// (the at-exit closer runs through it), calls that fail, output slots, and
// the array type with its cells and structures.

#include "core/catalogue.h"
#include "core/errors.h"
#include "support/foundation.h"
#include "support/tiff_files.h"

#include "support/corpus.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>  // std::size
#include <limits>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace tiffgate::testing;
using tiffgate::embedded::Array;
using tiffgate::embedded::call;
using tiffgate::embedded::call_inputs;
using tiffgate::embedded::unload;

// Lookup refuses operand counts outside a command's limits before any
// handler runs, so the operands' values do not matter.
TEST(gateway_test, operand_counts_outside_the_limits_are_refused) {
  const struct {
    const char* word;
    std::size_t count;
    const char* expected;
  } rows[] = {{"getVersion", 1, "wrongNumberOfInputs"}, {"close", 0, "wrongNumberOfInputs"},
              {"readRGBATile", 2, "wrongNumberOfInputs"}, {"writeEncodedTile", 6, "wrongNumberOfInputs"},
              {"lastDirectory", 2, "wrongNumberOfInputs"},
              {"writeEncodedTile", 5, "badFileId"}, {"computeStrip", 3, "badFileId"}};
  for (const auto& r : rows)
    EXPECT_EQ(outcome(call(r.word, std::vector<Array>(r.count, num(0)))), std::string(r.expected) + "()") << r.word;
}

// Every command that takes a file refuses, before libtiff sees it, an
// identifier that names no file open now: one closed while a later file may
// have taken its handle's address, made-up values, an open file's value in
// another class or shape. 0 is badFileId; "close" is silent about the rest.
TEST(gateway_test, every_command_refuses_identifiers_of_no_open_file) {
  ScratchDir dir;
  write_multi_directory_file(dir.path("a.tif"), 2);
  const Array closed = open_file(dir.path("a.tif"));
  ASSERT_TRUE(call("close", {closed}).ok());
  const Array later = open_file(dir.path("a.tif"), "r+");
  const std::uint64_t live = later.at<std::uint64_t>(0);
  const Array strip = Array::of<std::uint8_t>(zvUINT8_CLASS, {1, 1}, {7});
  const std::vector<std::pair<const char*, std::vector<Array>>> commands = {
      {"computeStrip", {num(0)}}, {"computeTile", {num(0), num(0)}}, {"currentDirectory", {}},
      {"getField", {num(256)}}, {"isTiled", {}}, {"lastDirectory", {}}, {"numberOfStrips", {}},
      {"numberOfTiles", {}}, {"readDirectory", {}}, {"readEncodedStrip", {num(0)}}, {"readEncodedTile", {num(0)}},
      {"readRGBAImage", {}}, {"readRGBAStrip", {num(0)}}, {"readRGBATile", {num(0), num(0)}},
      {"rewriteDirectory", {}}, {"retrieveMetadata", {}}, {"setDirectory", {num(1)}},
      {"setField", {num(270), str("lost")}}, {"setSubDirectory", {num(8)}}, {"writeDirectory", {}},
      {"writeEncodedStrip", {num(0), strip}}, {"writeEncodedTile", {num(0), strip}}, {"__readImage__", {}},
      {"__writeImage__", {strip, num(1)}}, {"__listTags__", {}}, {"__tagValue__", {num(42113)}},
      {"__setTag__", {num(42113), str("0")}}, {"close", {}}};
  const std::vector<std::pair<Array, const char*>> identifiers = {
      {closed, "invalidFileId"}, {Array::uint64(8), "invalidFileId"}, {Array::uint64(UINT64_MAX), "invalidFileId"},
      {Array::uint64(live + 1), "invalidFileId"}, {num(static_cast<double>(live)), "invalidFileId"},
      {Array::of<std::uint64_t>(zvUINT64_CLASS, {1, 2}, {live, live}), "invalidFileId"},
      {Array::uint64(0), "badFileId"}, {num(0), "badFileId"}, {Array(), "badFileId"}};
  for (const auto& [command, rest] : commands)
    for (const auto& [id, kind] : identifiers) {
      std::vector<Array> operands = {id};
      operands.insert(operands.end(), rest.begin(), rest.end());
      const bool silent = std::string(command) == "close" && std::string(kind) != "badFileId";
      EXPECT_EQ(outcome(call(command, operands)), silent ? "ok" : std::string(kind) + "()") << command;
    }
  // The later file saw none of it: open, in its first directory, untouched.
  EXPECT_EQ(call("currentDirectory", {later}).out().number(), 1);
  EXPECT_EQ(outcome(call("getField", {later, num(270)})), "tagRetrievalFailed('ImageDescription')");
  ASSERT_TRUE(call("close", {later}).ok());
}

TEST(gateway_test, lookup_is_exact_and_case_sensitive) {
  const std::string words[] = {"Close", "CLOSE", "close ", " close", "clos", "closeX", "open\t",
                               std::string("close\0", 6), "getversion", "", "\xC3\xA9"};
  for (const std::string& word : words) {
    SCOPED_TRACE(word);
    const auto r = call(word, {num(1)});
    EXPECT_EQ(r.error_id(), tiff_id("InvalidOperation"));
    ASSERT_EQ(r.error->arguments.size(), 1u);
    EXPECT_EQ(boost::get<std::string>(r.error->arguments[0]), word);
    EXPECT_NE(r.error->message.find(word), std::string::npos);
  }
  // The word also arrives as UTF-16 text from the host, and matches as such.
  EXPECT_TRUE(call_inputs({Array::text(u"getVersion")}).ok());
}

TEST(gateway_test, a_call_without_a_text_command_word_is_an_invalid_operation) {
  const std::vector<std::vector<Array>> calls = {
      {},
      {num(6)},
      {Array::uint64(6), str("getVersion")},
      {Array()},
      {Array::cell({str("getVersion")})},
      {Array::logical(true)},
  };
  for (const auto& inputs : calls) {
    const auto r = call_inputs(inputs);
    EXPECT_EQ(r.error_id(), tiff_id("InvalidOperation"));
    ASSERT_EQ(r.error->arguments.size(), 1u);
    EXPECT_EQ(boost::get<std::string>(r.error->arguments[0]), "");
  }
}

TEST(gateway_test, get_version_returns_libtiffs_text) {
  const auto r = call("getVersion");
  ASSERT_TRUE(r.ok()) << r.error_id();
  EXPECT_EQ(r.out().class_id(), zvCHAR_CLASS);
  EXPECT_EQ(r.out().utf8(), TIFFGetVersion());
  EXPECT_TRUE(r.warnings.empty());
  // Slot 0 is filled even when no output is asked for.
  EXPECT_EQ(call("getVersion", {}, 0).out().utf8(), TIFFGetVersion());
  EXPECT_EQ(call("getVersion", {str("x")}).error_id(), validate_id("wrongNumberOfInputs"));
}

TEST(gateway_test, conversion_failures_in_a_handler_are_argument_out_of_bounds) {
  ScratchDir dir;
  write_multi_directory_file(dir.path("a.tif"), 1);
  const Array id = open_file(dir.path("a.tif"));
  for (double index : {65536.0, -1.0, 1e300, std::numeric_limits<double>::infinity()}) {
    const auto r = call("setDirectory", {id, num(index)});
    EXPECT_EQ(r.error_id(), validate_id("argumentOutOfBounds")) << index;
    EXPECT_TRUE(r.error->arguments.empty());
  }
  // One past the 16-bit range fits; it is libtiff that has no such directory.
  const auto r = call("setDirectory", {id, num(65535)});
  EXPECT_EQ(r.error_id(), tiff_id("unableToChangeDir"));
  EXPECT_EQ(boost::get<std::int64_t>(r.error->arguments.at(0)), 65536);
  EXPECT_TRUE(call("close", {id}).ok());
}

TEST(gateway_test, libtiff_messages_become_warnings_after_a_successful_call_only) {
  ScratchDir dir;
  // Directory 2 carries a tag no reader knows: libtiff warns as it reads it.
  write_file_with_private_tag(dir.path("private.tif"), 3, 1);
  const auto opened = call("open", {str(dir.path("private.tif")), str("r")});
  ASSERT_TRUE(opened.ok());
  EXPECT_TRUE(opened.warnings.empty());
  const Array& id = opened.out();

  const auto count_libtiff = [](const tiffgate::embedded::CallResult& r) {
    std::size_t n = 0;
    for (const auto& w : r.warnings)
      if (w.identifier == tiff_id("libtiffWarning") || w.identifier == tiff_id("libtiffError")) ++n;
    return n;
  };
  const auto read = call("readDirectory", {id});
  ASSERT_TRUE(read.ok()) << read.error_id();
  ASSERT_GE(count_libtiff(read), 1u);
  EXPECT_EQ(read.warnings[0].identifier, tiff_id("libtiffWarning"));
  EXPECT_NE(read.warnings[0].message.find("65000"), std::string::npos) << read.warnings[0].message;

  // Nothing is carried into the next call.
  EXPECT_TRUE(call("currentDirectory", {id}).warnings.empty());
  EXPECT_TRUE(call("readDirectory", {id}).warnings.empty());  // directory 3 is clean
  const auto back = call("setDirectory", {id, num(1)});
  ASSERT_TRUE(back.ok());
  EXPECT_GE(count_libtiff(back), 1u);
  EXPECT_TRUE(call("close", {id}).ok());

  // 70 unknown tags: 64 of libtiff's warnings are kept, the rest counted.
  {
    TiffHandle out(dir.path("many.tif"), "w");
    set_basic_tags(out, 4, 2);
    for (std::uint32_t tag = 65100; tag < 65170; ++tag) {
      const TIFFFieldInfo field = {tag, 1, 1, TIFF_SHORT, FIELD_CUSTOM, 1, 0, const_cast<char*>("Private")};
      ASSERT_EQ(TIFFMergeFieldInfo(out, &field, 1), 0);  // libtiff keeps a copy
      ASSERT_TRUE(TIFFSetField(out, tag, 7));
    }
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
  }
  const auto many = call("open", {str(dir.path("many.tif")), str("r")});
  ASSERT_TRUE(many.ok());
  ASSERT_EQ(many.warnings.size(), 65u);
  EXPECT_EQ(count_libtiff(many), 65u);
  EXPECT_EQ(many.warnings.back().message, "6 more libtiff messages were not kept");
  call("close", {many.out()});

  // libtiff complains while these fail: the failure alone is reported.
  std::ofstream(dir.path("text.tif")) << "not a TIFF file at all";
  for (const std::string& name : {dir.path("text.tif"), dir.path("missing.tif")}) {
    const auto failed = call("open", {str(name), str("r")});
    EXPECT_EQ(failed.error_id(), tiff_id("unableToOpenFile"));
    EXPECT_TRUE(failed.warnings.empty()) << failed.warnings.size();
    // What libtiff said meanwhile does not surface after the next call either.
    EXPECT_TRUE(call("getVersion").warnings.empty());
  }
}

std::uint32_t width_in(const std::string& path) {
  TiffHandle check(path, "r");
  std::uint32_t width = 0;
  TIFFGetField(check, TIFFTAG_IMAGEWIDTH, &width);
  return width;
}

TEST(embedded_host_test, unload_closes_files_left_open_in_handle_order) {
  ScratchDir dir;
  const std::string paths[] = {dir.path("first.tif"), dir.path("second.tif")};
  std::vector<std::pair<std::uint64_t, std::string>> left_open;
  std::vector<Array> ids;
  for (std::size_t i = 0; i < 2; ++i) {
    ids.push_back(open_file(paths[i], "w"));
    // Tags and data but no directory yet: only TIFFClose writes it out.
    set_basic_tags(handle_of(ids.back()), static_cast<std::uint32_t>(11 + i), 2);
    write_chunks(handle_of(ids.back()), [](std::uint32_t, std::size_t) { return std::uint8_t{3}; });
    left_open.emplace_back(ids.back().at<std::uint64_t>(0), paths[i]);
  }
  // A file closed before unload is not mentioned.
  write_multi_directory_file(dir.path("closed.tif"), 1);
  EXPECT_TRUE(call("close", {open_file(dir.path("closed.tif"))}).ok());

  std::sort(left_open.begin(), left_open.end());
  const auto warnings = unload();
  ASSERT_EQ(warnings.size(), 2u);
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(warnings[i].identifier, tiff_id("closingFileHandle"));
    EXPECT_NE(warnings[i].message.find(left_open[i].second), std::string::npos) << warnings[i].message;
  }
  // Each warning was followed by its close: the directories are on disk.
  EXPECT_EQ(width_in(paths[0]), 11u);
  EXPECT_EQ(width_in(paths[1]), 12u);

  // The closed handles are no longer registered, and a second unload has
  // nothing left to do.
  EXPECT_TRUE(unload().empty());
  for (const Array& id : ids) EXPECT_EQ(call("currentDirectory", {id}).error_id(), tiff_id("invalidFileId"));

  // Every call registers the closer again, so the next unload sees new files.
  const Array again = open_file(dir.path("closed.tif"));
  const auto later = unload();
  ASSERT_EQ(later.size(), 1u);
  EXPECT_NE(later[0].message.find("closed.tif"), std::string::npos);
  EXPECT_EQ(call("close", {again}).error_id(), "");  // already closed: silent
}

TEST(embedded_host_test, a_failed_call_leaves_the_host_ready) {
  // Arrays made through the host as a handler makes them belong to the
  // call in progress; a failing call frees them (the leak checker of the
  // sanitizer build holds this test to it).
  for (int i = 0; i < 3; ++i) {
    const std::size_t dims[2] = {100, 100};
    zvCreateNumericArray(2, dims, zvDOUBLE_CLASS);
    zvCreateString("orphan");
    const auto failed = call("open", {num(1), str("r")});
    EXPECT_EQ(failed.error_id(), tiff_id("argumentWasNotChar"));
    EXPECT_TRUE(failed.outputs.empty());
    EXPECT_TRUE(failed.warnings.empty());
    EXPECT_THROW(failed.out(), std::logic_error);

    const auto ok = call("getVersion", {}, 3);
    ASSERT_TRUE(ok.ok());
    EXPECT_EQ(ok.error_id(), "");
    ASSERT_EQ(ok.outputs.size(), 3u);  // one per slot asked for
    EXPECT_EQ(ok.out(0).utf8(), TIFFGetVersion());
    EXPECT_FALSE(ok.outputs[1].has_value());
    EXPECT_THROW(ok.out(2), std::logic_error);
  }
}

TEST(embedded_host_test, cells_and_structures) {
  const std::size_t dims[] = {1, 3};
  zvArray* cell = zvCreateCellArray(2, dims);
  zvSetCell(cell, 0, zvCreateString("name"));
  zvSetCell(cell, 2, zvCreateDoubleScalar(2.5));
  EXPECT_THROW(zvSetCell(cell, 3, zvCreateDoubleScalar(0)), std::out_of_range);
  ASSERT_EQ(cell->cells().size(), 3u);
  EXPECT_EQ(cell->cells()[0].utf8(), "name");
  EXPECT_TRUE(cell->cells()[1].empty());
  EXPECT_EQ(cell->cells()[2].number(), 2.5);

  const char* names[] = {"Width", "Notes"};
  zvArray* s = zvCreateStructMatrix(1, 2, 2, names);
  zvSetField(s, 1, "Notes", cell);
  zvSetField(s, 0, "Width", zvCreateDoubleScalar(640));
  EXPECT_THROW(zvSetField(s, 0, "Height", zvCreateDoubleScalar(0)), std::out_of_range);
  EXPECT_THROW(zvSetField(s, 2, "Width", zvCreateDoubleScalar(0)), std::out_of_range);
  EXPECT_EQ(zvGetClassID(s), zvSTRUCT_CLASS);
  EXPECT_EQ(s->field_names(), (std::vector<std::string>{"Width", "Notes"}));
  EXPECT_EQ(s->field("Width", 0)->number(), 640);
  EXPECT_TRUE(s->field("Width", 1)->empty());
  EXPECT_EQ(s->field("Notes", 1)->cells()[0].utf8(), "name");
  EXPECT_EQ(s->field("Height"), nullptr);

  // Copies are deep: changing one leaves the other as it was.
  Array copy = *s;
  copy.field("Notes", 1)->cells()[0] = Array::text("changed");
  EXPECT_EQ(s->field("Notes", 1)->cells()[0].utf8(), "name");

  const Array built = Array::structure({{"A", Array::cell({Array::scalar(1), Array::text("x")})}});
  EXPECT_EQ(built.field("A")->cells()[1].utf8(), "x");
  EXPECT_EQ(built.dims(), (Array::Dims{1, 1}));
}

TEST(embedded_host_test, arrays_text_and_shapes) {
  // Trailing singleton dimensions beyond the second go; two always remain.
  EXPECT_EQ(Array(zvUINT8_CLASS, {2, 3, 1, 1}).dims(), (Array::Dims{2, 3}));
  EXPECT_EQ(Array(zvUINT8_CLASS, {2, 1, 4}).numel(), 8u);
  EXPECT_EQ(Array(zvUINT8_CLASS, {5}).dims(), (Array::Dims{5, 1}));
  EXPECT_EQ(Array().dims(), (Array::Dims{0, 0}));
  EXPECT_THROW(Array(zvDOUBLE_CLASS, {SIZE_MAX / 2, 4}), std::bad_alloc);

  const Array m = Array::matrix({{1, 2, 3}, {4, 5, 6}});
  EXPECT_EQ(m.dims(), (Array::Dims{2, 3}));
  EXPECT_EQ(m.at<double>(1), 4);  // column-major
  EXPECT_EQ(zvGetScalar(&m), 1);
  const Array empty;
  EXPECT_EQ(zvGetScalar(&empty), 0);
  EXPECT_TRUE(zvIsEmpty(&empty));

  // Text is held as UTF-16 and handed out as UTF-8 copies.
  const Array text = Array::text(u"a\u00E9\U0001F600");
  EXPECT_EQ(text.numel(), 4u);  // the emoji is a surrogate pair
  EXPECT_EQ(zvArrayToNarrow(&text), "a\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(zvGetLogicals(&m), nullptr);
  const std::size_t two[] = {1, 2};
  const zvArray* made = zvCreateCharArray(2, two, u"hi");
  EXPECT_EQ(made->utf8(), "hi");
  EXPECT_STREQ(zvGetClassName(made), "char");
}

}  // namespace

namespace {

using namespace tiffgate;
using tiffgate::testing::tiff_id;

/// The kinds the module must have, in catalogue order, as "Tiff:name(TI)"
/// (tests/required_kinds.txt; "#" lines are comments).
std::vector<std::string> required_kinds() {
  std::ifstream in(tiffgate::testing::test_source("required_kinds.txt"));
  std::vector<std::string> kinds;
  for (std::string line; std::getline(in, line);) {
    if (line.rfind('#', 0) == 0) continue;
    std::istringstream words(line);
    for (std::string k; words >> k;) kinds.push_back("Quarn:imagesci:" + k);
  }
  return kinds;
}

// Every kind as kinds.def declares it: its class's identifier, argument
// types and position.
struct DeclaredKind {
  std::string identifier;
  std::string arguments;  // "Text, Int" as declared
  std::size_t count;
  std::size_t index;
};
const DeclaredKind kDeclared[] = {
#define TG_KIND(ns, name, text, ...)                                                   \
  {"Quarn:imagesci:" #ns ":" #name, #__VA_ARGS__, Quarn::imagesci::ns::name::kArgumentCount, \
   Quarn::imagesci::ns::name::kIndex},
#include "core/kinds.def"
#undef TG_KIND
};

// "Text, Int" -> "TI".
std::string signature(const std::string& declared) {
  std::string out;
  std::istringstream words(declared);
  for (std::string w; words >> w;) out += w.rfind("Text", 0) == 0 ? 'T' : 'I';
  return out;
}

TEST(errors_test, kinds_are_the_required_ones_with_their_placeholders) {
  ASSERT_EQ(std::size(kDeclared), 117u);
  ASSERT_EQ(kKindCount, 117u);

  const std::vector<std::string> required = required_kinds();
  ASSERT_EQ(required.size(), 117u);

  std::set<std::string> seen;
  for (std::size_t i = 0; i < kKindCount; ++i) {
    const DeclaredKind& k = kDeclared[i];
    SCOPED_TRACE(k.identifier);
    EXPECT_EQ(k.index, i);
    EXPECT_EQ(k.count, detail::kArgumentCounts[i]);
    EXPECT_EQ(k.identifier + "(" + signature(k.arguments) + ")", required[i]);
    EXPECT_TRUE(seen.insert(k.identifier).second) << "declared twice";

    // The text's placeholders are exactly {1} .. {count}.
    const std::string text = kCatalogue[i].text;
    std::set<std::size_t> placeholders;
    for (std::size_t p = text.find('{'); p != std::string::npos; p = text.find('{', p + 1)) {
      ASSERT_LT(p + 2, text.size());
      ASSERT_EQ(text[p + 2], '}');
      placeholders.insert(static_cast<std::size_t>(text[p + 1] - '0'));
    }
    std::set<std::size_t> expected;
    for (std::size_t a = 1; a <= k.count; ++a) expected.insert(a);
    EXPECT_EQ(placeholders, expected) << text;
  }
}

TEST(errors_test, every_argument_is_rendered_once_in_its_place) {
  for (std::size_t i = 0; i < kKindCount; ++i) {
    std::vector<Quarn::MsgArg> args;
    for (std::size_t a = 0; a < detail::kArgumentCounts[i]; ++a)
      args.emplace_back(std::string("<arg") + char('1' + a) + ">");
    const std::string message = Quarn::BaseMsgID(i, args).message();
    SCOPED_TRACE(kCatalogue[i].identifier);
    EXPECT_EQ(message.find('{'), std::string::npos) << message;
    for (std::size_t a = 0; a < args.size(); ++a) {
      const std::string marker = boost::get<std::string>(args[a]);
      const std::size_t at = message.find(marker);
      ASSERT_NE(at, std::string::npos) << message;
      EXPECT_EQ(message.find(marker, at + 1), std::string::npos) << message;
    }
  }
  // Integers are shown in full, signed 64-bit.
  EXPECT_NE(Tiff::unableToChangeSubdir(INT64_MIN).message().find("-9223372036854775808"), std::string::npos);
  EXPECT_EQ(Tiff::badYCbCrDimensions(1, 2, 3, 4, 5, 6, 7, 8).arguments().size(), 8u);
}

// These texts put their arguments in the wrong places: "The ColorMap must be 256x8".
TEST(errors_test, texts_take_their_arguments_in_the_order_given) {
  EXPECT_EQ(Tiff::badColorMap(256, 8).message(), "The ColorMap must be a 256x3 double array for BitsPerSample 8.");
  EXPECT_EQ(Tiff::badTransferFunctionSize(8, 3, 256, 3).message(),
            "The TransferFunction must be 256x3 for BitsPerSample 8 and SamplesPerPixel 3.");
  EXPECT_EQ(Tiff::imageDepthStrippedLayoutMismatch(2).message(), "ImageDepth 2 does not fit a stripped layout.");
}

TEST(errors_test, narrow_and_utf16_text_render_the_same) {
  const Tiff::unableToOpenFile narrow(std::string("gr\xC3\xBCn \xF0\x9F\x98\x80.tif"));
  const Tiff::unableToOpenFile wide(std::u16string(u"gr\u00FCn \U0001F600.tif"));
  EXPECT_EQ(narrow.message(), wide.message());
  EXPECT_EQ(narrow.unicode_message(), wide.unicode_message());
  EXPECT_NE(wide.unicode_message().find(u"gr\u00FCn \U0001F600.tif"), std::u16string::npos);
  // The argument keeps the form it was given in.
  EXPECT_EQ(boost::get<std::u16string>(wide.arguments()[0]), u"gr\u00FCn \U0001F600.tif");
  EXPECT_EQ(boost::get<std::string>(Tiff::argumentWasNotChar("file").arguments()[0]), "file");
  // A null text is an empty argument, not a crash.
  EXPECT_EQ(boost::get<std::string>(Tiff::closingFileHandle(static_cast<const char*>(nullptr)).arguments()[0]), "");
}

TEST(errors_test, raise_throws_the_carrier) {
  bool after_raise = false;
  try {
    raise(Tiff::unableToChangeDir(7));
    after_raise = true;
  } catch (const Quarn::Exception<Tiff::unableToChangeDir>& e) {
    EXPECT_STREQ(e.GetID(), "Quarn:imagesci:Tiff:unableToChangeDir");
    EXPECT_EQ(std::string(e.what()), e.kind().message());
    EXPECT_EQ(e.GetUnicodeMessageTxt(), e.kind().unicode_message());
    EXPECT_EQ(boost::get<std::int64_t>(e.GetBaseMsgIDObj().arguments().at(0)), 7);
  }
  EXPECT_FALSE(after_raise);

  const tiffgate::testing::Raised r = tiffgate::testing::raised([] { raise(validate::argumentOutOfBounds()); });
  EXPECT_EQ(r.id, "Quarn:imagesci:validate:argumentOutOfBounds");
  EXPECT_TRUE(r.arguments.empty());
  EXPECT_EQ(tiffgate::testing::raised([] { raise(Tiff::badFileId()); }).id, tiff_id("badFileId"));
}

}  // namespace
