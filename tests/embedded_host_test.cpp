// The embedded host: unloading (the at-exit closer runs through it), calls
// that fail, output slots, and the array type with its cells and structures.

#include "support/foundation.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace tiffgate::testing;
using tiffgate::embedded::Array;
using tiffgate::embedded::call;
using tiffgate::embedded::unload;

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
    zvCreateDoubleMatrix(100, 100);
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
  char* narrow = zvArrayToString(&text);
  ASSERT_NE(narrow, nullptr);
  EXPECT_STREQ(narrow, "a\xC3\xA9\xF0\x9F\x98\x80");
  zvFree(narrow);
  EXPECT_EQ(zvArrayToString(&m), nullptr);
  EXPECT_EQ(zvGetLogicals(&m), nullptr);
  const std::size_t two[] = {1, 2};
  const zvArray* made = zvCreateCharArray(2, two, u"hi");
  EXPECT_EQ(made->utf8(), "hi");
  EXPECT_STREQ(zvGetClassName(made), "char");
  EXPECT_EQ(zvGetElementSize(made), 2u);
}

}  // namespace
