// The gateway entry: command lookup, operand limits, the command word
// itself, getVersion, the out-of-range translation, and libtiff's own
// messages surfaced as warnings.

#include "support/foundation.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <fstream>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace tiffgate::testing;
using tiffgate::embedded::Array;
using tiffgate::embedded::call;
using tiffgate::embedded::call_inputs;

struct Limits {
  const char* name;
  int min;
  int max;
};
// Every command word with its operand limits, as the host relies on them.
constexpr Limits kCommands[] = {
    {"close", 1, 1},           {"computeStrip", 2, 3},     {"computeTile", 2, 3},
    {"currentDirectory", 1, 1}, {"getField", 2, 2},         {"getVersion", 0, 0},
    {"isTiled", 1, 1},         {"lastDirectory", 1, 1},    {"numberOfStrips", 1, 1},
    {"numberOfTiles", 1, 1},   {"open", 2, 2},             {"readDirectory", 1, 1},
    {"readEncodedStrip", 2, 2}, {"readEncodedTile", 2, 3},  {"readRGBAImage", 1, 1},
    {"readRGBAStrip", 2, 2},   {"readRGBATile", 3, 3},     {"rewriteDirectory", 1, 1},
    {"retrieveMetadata", 1, 1}, {"setDirectory", 2, 2},     {"setField", 3, 3},
    {"setSubDirectory", 2, 2}, {"writeDirectory", 1, 1},   {"writeEncodedStrip", 3, 5},
    {"writeEncodedTile", 3, 5},
};

TEST(gateway_test, every_command_refuses_operand_counts_outside_its_limits) {
  ASSERT_EQ(std::size(kCommands), 25u);
  for (const Limits& c : kCommands) {
    SCOPED_TRACE(c.name);
    // Lookup refuses before any handler runs, so the operands' values do
    // not matter; a word that were unknown would give InvalidOperation.
    EXPECT_EQ(call(c.name, std::vector<Array>(static_cast<std::size_t>(c.max + 1), num(0))).error_id(),
              validate_id("wrongNumberOfInputs"));
    if (c.min > 0) {
      EXPECT_EQ(call(c.name, std::vector<Array>(static_cast<std::size_t>(c.min - 1), num(0))).error_id(),
                validate_id("wrongNumberOfInputs"));
    }
  }
  // Within the limits the handler runs: "close" of identifier 0 is its own error.
  EXPECT_EQ(call("close", {num(0)}).error_id(), tiff_id("badFileId"));
  EXPECT_TRUE(call("close").error->arguments.empty());
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

}  // namespace
