// "open" and "close", the registry of open handles and identifier
// validation; the directory commands and file queries: numbering
// in both directions, result classes, SubIFD navigation only through the
// current directory's list, and the kind each libtiff failure is reported
// as. Files are written and checked with libtiff directly.

#include "support/foundation.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <fcntl.h>  // O_RDONLY, O_RDWR

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace {

using namespace tiffgate::testing;
using tiffgate::embedded::Array;
using tiffgate::embedded::call;
using tiffgate::embedded::CallResult;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// Gives a directory opened for writing through the gateway an image, with
// libtiff on the gateway's own handle (setField is not the subject here).
void fill_directory(TIFF* tif, std::uint32_t width) {
  set_basic_tags(tif, width, 2);
  write_chunks(tif, [](std::uint32_t, std::size_t i) { return static_cast<std::uint8_t>(i); });
}

std::uint32_t width_of(TIFF* tif) {
  std::uint32_t width = 0;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
  return width;
}

TEST(files_test, w8_writes_a_bigtiff_and_w_a_classic_file) {
  ScratchDir dir;
  for (const char* mode : {"w8", "w"}) {
    SCOPED_TRACE(mode);
    const std::string path = dir.path(std::string(mode) + ".tif");
    const Array id = open_file(path, mode);
    fill_directory(handle_of(id), 24);
    ASSERT_TRUE(call("close", {id}).ok());

    const std::vector<unsigned char> b = file_bytes(path);
    ASSERT_GE(b.size(), 16u);
    EXPECT_EQ(b[0], 'I');
    EXPECT_EQ(b[1], 'I');
    if (std::string(mode) == "w8") {
      // BigTIFF: version 43, offsets of 8 bytes, then a zero word.
      EXPECT_EQ(b[2], 43);
      EXPECT_EQ(b[4], 8);
      EXPECT_EQ(b[6], 0);
    } else {
      EXPECT_EQ(b[2], 42);
    }
    EXPECT_EQ(b[3], 0);
    TiffHandle check(path, "r");
    EXPECT_EQ(TIFFIsBigTIFF(check) != 0, std::string(mode) == "w8");
    EXPECT_EQ(width_of(check), 24u);
  }
}

TEST(files_test, read_update_and_append_modes_are_libtiffs) {
  ScratchDir dir;
  const std::string path = dir.path("two.tif");
  write_multi_directory_file(path, 2);

  const Array r = open_file(path, "r");
  EXPECT_EQ(TIFFGetMode(handle_of(r)), O_RDONLY);
  EXPECT_EQ(width_of(handle_of(r)), 8u);
  const Array rw = open_file(path, "r+");
  EXPECT_EQ(TIFFGetMode(handle_of(rw)), O_RDWR);
  EXPECT_TRUE(call("close", {r}).ok());
  EXPECT_TRUE(call("close", {rw}).ok());

  // "a" adds a directory behind the existing ones.
  const Array a = open_file(path, "a");
  EXPECT_EQ(TIFFGetMode(handle_of(a)), O_RDWR);
  fill_directory(handle_of(a), 40);
  EXPECT_TRUE(call("writeDirectory", {a}).ok());
  EXPECT_TRUE(call("close", {a}).ok());
  TiffHandle check(path, "r");
  EXPECT_EQ(TIFFNumberOfDirectories(check), 3);
  ASSERT_TRUE(TIFFSetDirectory(check, 2));
  EXPECT_EQ(width_of(check), 40u);

  // libtiff refuses these modes; the module passes them on unexamined.
  for (const char* mode : {"q", "", "+r"}) {
    const auto bad = call("open", {str(path), str(mode)});
    EXPECT_EQ(bad.error_id(), tiff_id("unableToOpenFile")) << mode;
  }
  EXPECT_EQ(call("open", {str(dir.path("missing.tif")), str("r")}).error_id(), tiff_id("unableToOpenFile"));
}

TEST(files_test, non_ascii_names_open_that_file_and_are_reported_as_given) {
  ScratchDir dir;
  const std::u16string leaf = u"gr\u00FCn-\u0436-\U0001F600.tif";
  const std::string utf8_leaf = "gr\xC3\xBCn-\xD0\xB6-\xF0\x9F\x98\x80.tif";
  {
    TiffHandle out(dir.path(utf8_leaf), "w");
    set_basic_tags(out, 37, 3);
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{1}; });
  }
  std::u16string full;
  for (char c : dir.path("")) full += static_cast<char16_t>(static_cast<unsigned char>(c));  // ASCII temp dir
  full += leaf;

  const auto opened = call("open", {Array::text(full), str("r")});
  ASSERT_TRUE(opened.ok()) << opened.error_id();
  EXPECT_EQ(width_of(handle_of(opened.out())), 37u);
  EXPECT_EQ(std::string(TIFFFileName(handle_of(opened.out()))), dir.path(utf8_leaf));
  EXPECT_TRUE(call("close", {opened.out()}).ok());

  // The error carries the UTF-16 name exactly as the caller gave it.
  const std::u16string missing = full + u"-missing";
  const auto r = call("open", {Array::text(missing), str("r")});
  EXPECT_EQ(r.error_id(), tiff_id("unableToOpenFile"));
  ASSERT_EQ(r.error->arguments.size(), 1u);
  EXPECT_EQ(boost::get<std::u16string>(r.error->arguments[0]), missing);
  EXPECT_NE(r.error->message.find(utf8_leaf + "-missing"), std::string::npos);
}

TEST(files_test, open_refuses_bad_operands_cleanly) {
  ScratchDir dir;
  const std::string path = dir.path("a.tif");
  write_multi_directory_file(path, 1);

  // Not text: the file name is checked first.
  const Array not_text[] = {num(1), num(kNaN), num(-kInf), Array(), Array::uint64(1), Array::logical(true),
                            Array::cell({str(path)})};
  for (const Array& value : not_text) {
    SCOPED_TRACE(value.class_name());
    auto r = call("open", {value, str("r")});
    EXPECT_EQ(r.error_id(), tiff_id("argumentWasNotChar"));
    EXPECT_EQ(boost::get<std::string>(r.error->arguments.at(0)), "file");
    r = call("open", {str(path), value});
    EXPECT_EQ(r.error_id(), tiff_id("argumentWasNotChar"));
    EXPECT_EQ(boost::get<std::string>(r.error->arguments.at(0)), "access mode");
    r = call("open", {value, value});
    EXPECT_EQ(boost::get<std::string>(r.error->arguments.at(0)), "file");
  }

  // Text that names no file: empty, a 2 x N character matrix, very long,
  // and a name with a NUL in it, which must not open the file before the NUL.
  const std::vector<Array> no_file = {
      str(""),
      Array::of<char16_t>(zvCHAR_CLASS, {2, 2}, {u'a', u'b', u'c', u'd'}),
      str(std::string(5000, 'x')),
      Array::text(std::u16string(path.begin(), path.end()) + u'\0' + u"junk"),
  };
  for (const Array& name : no_file)
    EXPECT_EQ(call("open", {name, str("r")}).error_id(), tiff_id("unableToOpenFile"));
}

TEST(files_test, close_is_silent_for_closed_and_unknown_identifiers) {
  ScratchDir dir;
  write_multi_directory_file(dir.path("a.tif"), 1);
  const Array id = open_file(dir.path("a.tif"));
  auto r = call("close", {id});
  EXPECT_TRUE(r.ok());
  EXPECT_TRUE(r.outputs.size() <= 1 && (r.outputs.empty() || !r.outputs[0]));  // yields nothing
  r = call("close", {id});
  EXPECT_TRUE(r.ok()) << r.error_id();
  EXPECT_TRUE(r.warnings.empty());
  // Never opened, but not 0: "close" does not consult libtiff for it.
  EXPECT_TRUE(call("close", {Array::uint64(0xDEADBEEF)}).ok());

  // Identifiers that read as 0 are badFileId; values that are no uint64 at
  // all are out of bounds.
  const Array zero_like[] = {Array::uint64(0), num(0), num(kNaN), Array(), str("abc"), Array::cell({num(1)}),
                             Array::of<std::uint64_t>(zvUINT64_CLASS, {1, 2}, {0, 0xDEADBEEF})};
  for (const Array& value : zero_like) EXPECT_EQ(call("close", {value}).error_id(), tiff_id("badFileId"));
  for (double v : {-1.0, kInf, -kInf, 1e300, 18446744073709551616.0})
    EXPECT_EQ(call("close", {num(v)}).error_id(), validate_id("argumentOutOfBounds")) << v;
}

// Every command that takes a file refuses, before libtiff sees it, any
// identifier that names no file open now: one closed while a later file
// may have taken its handle's address, made-up values, an open file's value
// in another class. 0 is badFileId; "close" is silent about the rest.
TEST(files_test, every_command_refuses_identifiers_of_no_open_file) {
  ScratchDir dir;
  write_multi_directory_file(dir.path("a.tif"), 2);
  const Array closed = open_file(dir.path("a.tif"));
  ASSERT_TRUE(call("close", {closed}).ok());
  const Array later = open_file(dir.path("a.tif"), "r+");
  const std::uint64_t live = later.at<std::uint64_t>(0);
  EXPECT_NE(live, closed.at<std::uint64_t>(0));

  const Array strip = Array::of<std::uint8_t>(zvUINT8_CLASS, {1, 1}, {7});
  const std::vector<std::pair<const char*, std::vector<Array>>> commands = {
      {"computeStrip", {num(0)}}, {"computeTile", {num(0), num(0)}}, {"currentDirectory", {}},
      {"getField", {num(256)}}, {"isTiled", {}}, {"lastDirectory", {}}, {"numberOfStrips", {}},
      {"numberOfTiles", {}}, {"readDirectory", {}}, {"readEncodedStrip", {num(0)}},
      {"readEncodedTile", {num(0)}}, {"readRGBAImage", {}}, {"readRGBAStrip", {num(0)}},
      {"readRGBATile", {num(0), num(0)}}, {"rewriteDirectory", {}}, {"retrieveMetadata", {}},
      {"setDirectory", {num(1)}}, {"setField", {num(270), str("lost")}}, {"setSubDirectory", {num(8)}},
      {"writeDirectory", {}}, {"writeEncodedStrip", {num(0), strip}}, {"writeEncodedTile", {num(0), strip}},
      {"close", {}}};
  const std::vector<std::pair<Array, const char*>> identifiers = {
      {closed, "invalidFileId"}, {Array::uint64(8), "invalidFileId"}, {Array::uint64(UINT64_MAX), "invalidFileId"},
      {Array::uint64(live + 1), "invalidFileId"}, {num(static_cast<double>(live)), "invalidFileId"},
      {Array::of<std::uint64_t>(zvUINT64_CLASS, {1, 2}, {live, live}), "invalidFileId"},
      {Array::uint64(0), "badFileId"}, {num(0), "badFileId"}, {Array(), "badFileId"}};
  for (const auto& [command, rest] : commands) {
    for (const auto& [id, kind] : identifiers) {
      std::vector<Array> operands = {id};
      operands.insert(operands.end(), rest.begin(), rest.end());
      const bool silent = std::string(command) == "close" && std::string(kind) != "badFileId";
      EXPECT_EQ(outcome(call(command, operands)), silent ? "ok" : std::string(kind) + "()") << command;
    }
  }
  // The later file saw none of it: still open, in its first directory, untouched.
  EXPECT_EQ(outcome(call("currentDirectory", {later})), "ok");
  EXPECT_EQ(call("currentDirectory", {later}).out().number(), 1);
  EXPECT_EQ(outcome(call("getField", {later, num(270)})), "tagRetrievalFailed('ImageDescription')");
  ASSERT_TRUE(call("close", {later}).ok());
  EXPECT_EQ(outcome(call("isTiled", {later})), "invalidFileId()");
}

// A successful query's scalar, with its class checked.
double scalar_of(const CallResult& r, zvClassID cls) {
  EXPECT_TRUE(r.ok()) << r.error_id();
  if (!r.ok()) return -1;
  EXPECT_EQ(r.out().class_id(), cls);
  EXPECT_EQ(r.out().numel(), 1u);
  return r.out().number();
}

TEST(directories_test, walking_a_chain_of_directories) {
  ScratchDir dir;
  write_multi_directory_file(dir.path("three.tif"), 3);  // widths 8, 16, 24
  const Array id = open_file(dir.path("three.tif"));
  TIFF* tif = handle_of(id);

  for (int d = 1; d <= 3; ++d) {
    SCOPED_TRACE(d);
    EXPECT_EQ(scalar_of(call("currentDirectory", {id}), zvDOUBLE_CLASS), d);
    EXPECT_EQ(scalar_of(call("lastDirectory", {id}), zvLOGICAL_CLASS), d == 3);
    EXPECT_EQ(width_of(tif), 8u * d);
    const auto next = call("readDirectory", {id});
    EXPECT_EQ(next.error_id(), d < 3 ? "" : tiff_id("unableToReadDir"));
  }

  // setDirectory counts from 0, currentDirectory from 1.
  const std::vector<std::pair<double, int>> to = {{0, 1}, {2, 3}, {1, 2}, {2.9, 3}, {-0.5, 1}, {kNaN, 1}};
  for (const auto& [index, number] : to) {
    SCOPED_TRACE(index);
    ASSERT_TRUE(call("setDirectory", {id, num(index)}).ok());
    EXPECT_EQ(scalar_of(call("currentDirectory", {id}), zvDOUBLE_CLASS), number);
    EXPECT_EQ(width_of(tif), 8u * number);
  }
  // Any class and shape: the first element is the index.
  EXPECT_TRUE(call("setDirectory", {id, Array::of<std::uint8_t>(zvUINT8_CLASS, {1, 2}, {2, 0})}).ok());
  EXPECT_EQ(width_of(tif), 24u);
  EXPECT_TRUE(call("setDirectory", {id, Array::logical(true)}).ok());
  EXPECT_EQ(width_of(tif), 16u);

  // Beyond the last directory: reported counted from 1, without wrapping.
  for (const auto& [index, reported] : std::vector<std::pair<double, std::int64_t>>{{3, 4}, {65535, 65536}}) {
    const auto r = call("setDirectory", {id, num(index)});
    EXPECT_EQ(r.error_id(), tiff_id("unableToChangeDir"));
    EXPECT_EQ(boost::get<std::int64_t>(r.error->arguments.at(0)), reported);
  }
  for (const Array& bad : {num(-1), num(65536), num(kInf), num(-kInf), num(1e300), Array(),
                           Array::of<std::int16_t>(zvINT16_CLASS, {1, 1}, {-3})})
    EXPECT_EQ(call("setDirectory", {id, bad}).error_id(), validate_id("argumentOutOfBounds"));
  EXPECT_TRUE(call("close", {id}).ok());
}

TEST(directories_test, one_directory_file) {
  ScratchDir dir;
  write_multi_directory_file(dir.path("one.tif"), 1);
  const Array id = open_file(dir.path("one.tif"));
  EXPECT_EQ(scalar_of(call("currentDirectory", {id}), zvDOUBLE_CLASS), 1);
  EXPECT_EQ(scalar_of(call("lastDirectory", {id}), zvLOGICAL_CLASS), 1);
  EXPECT_TRUE(call("setDirectory", {id, num(0)}).ok());
  const auto r = call("setDirectory", {id, num(1)});
  EXPECT_EQ(r.error_id(), tiff_id("unableToChangeDir"));
  EXPECT_EQ(boost::get<std::int64_t>(r.error->arguments.at(0)), 2);
  EXPECT_EQ(call("readDirectory", {id}).error_id(), tiff_id("unableToReadDir"));
  EXPECT_TRUE(call("close", {id}).ok());
}

TEST(directories_test, strip_and_tile_queries) {
  ScratchDir dir;
  {
    TiffHandle out(dir.path("mixed.tif"), "w");
    set_basic_tags(out, 40, 10, 8, 1, 3);  // 4 strips of 3, 3, 3, 1 rows
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
    TIFFWriteDirectory(out);
    set_basic_tags(out, 40, 33, 8, 3, 0, 16);  // 3 x 3 tiles of 16 x 16
    write_chunks(out, [](std::uint32_t, std::size_t) { return std::uint8_t{0}; });
    TIFFWriteDirectory(out);
  }
  TiffHandle reference(dir.path("mixed.tif"), "r");
  const Array id = open_file(dir.path("mixed.tif"));

  EXPECT_EQ(scalar_of(call("isTiled", {id}), zvLOGICAL_CLASS), 0);
  EXPECT_EQ(scalar_of(call("numberOfStrips", {id}), zvDOUBLE_CLASS), 4);
  // On a stripped image this is whatever libtiff says, without error.
  EXPECT_EQ(scalar_of(call("numberOfTiles", {id}), zvDOUBLE_CLASS), TIFFNumberOfTiles(reference));

  ASSERT_TRUE(call("readDirectory", {id}).ok());
  EXPECT_EQ(scalar_of(call("isTiled", {id}), zvLOGICAL_CLASS), 1);
  EXPECT_EQ(scalar_of(call("numberOfTiles", {id}), zvDOUBLE_CLASS), 9);
  ASSERT_TRUE(TIFFReadDirectory(reference));
  EXPECT_EQ(scalar_of(call("numberOfStrips", {id}), zvDOUBLE_CLASS), TIFFNumberOfStrips(reference));
  EXPECT_TRUE(call("close", {id}).ok());
}

TEST(directories_test, sub_directories_are_reached_only_through_the_current_list) {
  ScratchDir dir;
  const std::string path = dir.path("sub.tif");
  // Directory 1 (16 x 16) lists SubIFDs 2 x 1 and 2 x 2; directory 2 is 24 x 4.
  const std::vector<std::uint64_t> subifds = write_file_with_subifds(path, 2);
  ASSERT_EQ(subifds.size(), 2u);
  std::uint64_t second_main = 0;
  {
    TiffHandle probe(path, "r");
    ASSERT_TRUE(TIFFSetDirectory(probe, 1));
    second_main = TIFFCurrentDirOffset(probe);
  }
  const Array id = open_file(path);
  TIFF* tif = handle_of(id);
  const auto length_of = [tif] {
    std::uint32_t length = 0;
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &length);
    return length;
  };

  // The offset in each of the accepted forms.
  const Array forms[] = {Array::uint64(subifds[1]), num(static_cast<double>(subifds[1])),
                         Array::of<std::uint32_t>(zvUINT32_CLASS, {1, 1}, {static_cast<std::uint32_t>(subifds[1])}),
                         Array::of<std::uint64_t>(zvUINT64_CLASS, {1, 2}, {subifds[1], subifds[0]})};
  for (const Array& offset : forms) {
    ASSERT_TRUE(call("setDirectory", {id, num(0)}).ok());
    const auto r = call("setSubDirectory", {id, offset});
    ASSERT_TRUE(r.ok()) << r.error_id();
    EXPECT_EQ(width_of(tif), 2u);
    EXPECT_EQ(length_of(), 2u);
  }

  ASSERT_TRUE(call("setDirectory", {id, num(0)}).ok());
  ASSERT_TRUE(call("setSubDirectory", {id, Array::uint64(subifds[0])}).ok());
  EXPECT_EQ(length_of(), 1u);

  // From the SubIFD itself there is no list to follow.
  EXPECT_EQ(call("setSubDirectory", {id, Array::uint64(subifds[1])}).error_id(), tiff_id("noSubDirectories"));

  // A valid directory elsewhere in the file is not in the list: refused,
  // and libtiff is not moved.
  ASSERT_TRUE(call("setDirectory", {id, num(0)}).ok());
  EXPECT_EQ(call("setSubDirectory", {id, Array::uint64(second_main)}).error_id(), tiff_id("noSuchSubDirectory"));
  EXPECT_EQ(width_of(tif), 16u);
  for (const Array& offset : {Array::uint64(subifds[1] + (1ull << 40)), Array::uint64(0), num(kNaN),
                              str("x"), Array::cell({num(5)})})
    EXPECT_EQ(call("setSubDirectory", {id, offset}).error_id(), tiff_id("noSuchSubDirectory"));
  for (const Array& offset : {num(-1), num(kInf), num(-kInf), num(1e300), Array(), Array::cell({})})
    EXPECT_EQ(call("setSubDirectory", {id, offset}).error_id(), validate_id("argumentOutOfBounds"));
  EXPECT_EQ(width_of(tif), 16u);

  // The second main directory has no SubIFD tag at all.
  ASSERT_TRUE(call("setDirectory", {id, num(1)}).ok());
  EXPECT_EQ(call("setSubDirectory", {id, Array::uint64(subifds[0])}).error_id(), tiff_id("noSubDirectories"));
  EXPECT_TRUE(call("close", {id}).ok());
}

TEST(directories_test, a_listed_offset_that_libtiff_cannot_read) {
  ScratchDir dir;
  const std::string path = dir.path("broken.tif");
  write_file_with_subifds(path, 1);
  // The list now points past the end of the file.
  const std::uint32_t beyond = static_cast<std::uint32_t>(file_bytes(path).size() + 1000);
  patch_first_subifd(path, beyond);

  const Array id = open_file(path);
  const auto r = call("setSubDirectory", {id, num(beyond)});
  EXPECT_EQ(r.error_id(), tiff_id("unableToChangeSubdir"));
  EXPECT_EQ(boost::get<std::int64_t>(r.error->arguments.at(0)), std::int64_t{beyond});
  EXPECT_TRUE(r.warnings.empty());  // libtiff's complaint stays unreported on failure
  EXPECT_TRUE(call("close", {id}).ok());
}

TEST(directories_test, writing_and_rewriting_directories) {
  ScratchDir dir;
  const std::string path = dir.path("new.tif");
  const Array id = open_file(path, "w");
  TIFF* tif = handle_of(id);
  for (std::uint32_t width : {5u, 7u}) {
    set_basic_tags(tif, width, 2);
    write_chunks(tif, [](std::uint32_t, std::size_t) { return std::uint8_t{9}; });
    const auto r = call("writeDirectory", {id});
    ASSERT_TRUE(r.ok()) << r.error_id();
    EXPECT_TRUE(r.outputs.empty() || !r.outputs[0]);
  }
  EXPECT_TRUE(call("close", {id}).ok());
  {
    TiffHandle check(path, "r");
    EXPECT_EQ(TIFFNumberOfDirectories(check), 2);
    EXPECT_EQ(width_of(check), 5u);
  }

  // Rewriting keeps the directory count and carries the change.
  const Array update = open_file(path, "r+");
  ASSERT_TRUE(TIFFSetField(handle_of(update), TIFFTAG_IMAGEDESCRIPTION, "rewritten"));
  ASSERT_TRUE(call("rewriteDirectory", {update}).ok());
  EXPECT_TRUE(call("close", {update}).ok());
  {
    TiffHandle check(path, "r");
    EXPECT_EQ(TIFFNumberOfDirectories(check), 2);
    const char* description = nullptr;
    ASSERT_TRUE(TIFFGetField(check, TIFFTAG_IMAGEDESCRIPTION, &description));
    EXPECT_STREQ(description, "rewritten");
  }

  // When the writes themselves fail; the kinds are crossed against their
  // wording: write -> unableToWriteCurrentDir, rewrite -> unableToWriteDir.
  const Array doomed = open_file(dir.path("doomed.tif"), "w");
  set_basic_tags(handle_of(doomed), 4, 2);
  make_writes_fail(handle_of(doomed), dir.path("doomed.tif"));
  EXPECT_EQ(call("writeDirectory", {doomed}).error_id(), tiff_id("unableToWriteCurrentDir"));
  EXPECT_TRUE(call("close", {doomed}).ok());

  const Array stuck = open_file(path, "r+");
  ASSERT_TRUE(TIFFSetField(handle_of(stuck), TIFFTAG_IMAGEDESCRIPTION, "lost"));
  make_writes_fail(handle_of(stuck), path);
  EXPECT_EQ(call("rewriteDirectory", {stuck}).error_id(), tiff_id("unableToWriteDir"));
  EXPECT_TRUE(call("close", {stuck}).ok());
}

}  // namespace
