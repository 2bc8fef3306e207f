// Host value to libtiff type: the range rule at every width, the pinned
// results for not-a-number, the single-precision rule, and the typed entry
// points with their class checks, called directly (no handler in between).

#include "core/convert.h"
#include "support/foundation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

namespace {

using namespace tiffgate;
using embedded::Array;
using tiffgate::testing::raised;
using tiffgate::testing::Raised;
using tiffgate::testing::tiff_id;
using boost::numeric::negative_overflow;
using boost::numeric::positive_overflow;

// The converters take the host's pointers; a temporary operand lives to the
// end of the full expression.
const zvArray* in(const Array& a) { return &a; }

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// `below` and `above` are the refusal bounds of the width (x <= below or
// x >= above is refused); `top` is what the largest double under `above`
// becomes, `nan` what not-a-number becomes.
template <class T>
void check_range_rule(const char* name, double below, double above, T top, T nan) {
  SCOPED_TRACE(name);
  using L = std::numeric_limits<T>;
  EXPECT_THROW(convert<T>(below), negative_overflow);
  EXPECT_THROW(convert<T>(above), positive_overflow);
  EXPECT_THROW(convert<T>(-kInf), negative_overflow);
  EXPECT_THROW(convert<T>(kInf), positive_overflow);
  EXPECT_THROW(convert<T>(-1e300), negative_overflow);
  EXPECT_THROW(convert<T>(1e300), positive_overflow);
  // Just inside: the nearest doubles to the bounds truncate to the extremes.
  EXPECT_EQ(convert<T>(std::nextafter(below, 0.0)), L::min());
  EXPECT_EQ(convert<T>(std::nextafter(above, 0.0)), top);
  EXPECT_EQ(convert<T>(below + 1), L::min());
  // Truncation toward zero on both sides of it.
  EXPECT_EQ(convert<T>(-0.0), T{0});
  EXPECT_EQ(convert<T>(-0.7), T{0});
  EXPECT_EQ(convert<T>(1.999), T{1});
  if constexpr (L::is_signed) {
    EXPECT_EQ(convert<T>(-1.999), T(-1));
  }
  EXPECT_EQ(convert<T>(kNaN), nan);
}

// Each width's refusal bounds, the value of the largest double under the
// upper one, and not-a-number's pinned result (neither range test refuses
// NaN; its result is fixed, not left to the cast).
TEST(convert_test, range_rule_and_not_a_number_at_every_integer_width) {
  check_range_rule<std::uint8_t>("uint8", -1, 256, 255, 0);
  check_range_rule<std::int8_t>("int8", -129, 128, 127, 0);
  check_range_rule<std::uint16_t>("uint16", -1, 65536, 65535, 0);
  check_range_rule<std::int16_t>("int16", -32769, 32768, 32767, 0);
  check_range_rule<std::uint32_t>("uint32", -1, 4294967296.0, 4294967295u, 0);
  check_range_rule<std::int32_t>("int32", -2147483649.0, 2147483648.0, 2147483647, INT32_MIN);
  // The largest double below 2^64 is 2^64 - 2048; it converts exactly.
  check_range_rule<std::uint64_t>("uint64", -1, 18446744073709551616.0, 18446744073709549568u, 0);
  EXPECT_EQ(convert<std::uint64_t>(-kNaN), 0u);
  EXPECT_TRUE(std::isnan(convert<float>(kNaN)));
  EXPECT_TRUE(std::isnan(convert<double>(kNaN)));
  // The values named for 16 bits.
  EXPECT_EQ(convert<std::uint16_t>(65535.5), 65535);
  EXPECT_EQ(convert<std::uint16_t>(65535.9), 65535);
  EXPECT_EQ(convert<std::uint16_t>(-0.5), 0);
  EXPECT_EQ(convert<std::int32_t>(-2147483648.9), INT32_MIN);
  EXPECT_EQ(convert<std::uint32_t>(4294967295.9), UINT32_MAX);
}

TEST(convert_test, single_precision_rounds_to_nearest_within_its_range) {
  const double fmax = 3.4028234663852886e38;
  EXPECT_EQ(convert<float>(fmax), std::numeric_limits<float>::max());
  EXPECT_EQ(convert<float>(-fmax), -std::numeric_limits<float>::max());
  EXPECT_THROW(convert<float>(std::nextafter(fmax, kInf)), positive_overflow);
  EXPECT_THROW(convert<float>(std::nextafter(-fmax, -kInf)), negative_overflow);
  EXPECT_THROW(convert<float>(3.5e38), positive_overflow);
  EXPECT_THROW(convert<float>(-3.5e38), negative_overflow);
  EXPECT_THROW(convert<float>(kInf), positive_overflow);
  EXPECT_THROW(convert<float>(-kInf), negative_overflow);
  // 2^24 + 3 lies between 2^24 + 2 and 2^24 + 4: nearest-even gives the
  // latter, truncation would give the former.
  EXPECT_EQ(convert<float>(16777219.0), 16777220.0f);
  EXPECT_EQ(convert<float>(-16777219.0), -16777220.0f);
  EXPECT_EQ(convert<float>(0.1), 0.1f);
  EXPECT_EQ(convert<float>(1e-50), 0.0f);
  // The double target takes everything unchanged.
  EXPECT_EQ(convert<double>(-kInf), -kInf);
  EXPECT_EQ(convert<double>(1e308), 1e308);
}

TEST(convert_test, tag_scalars_must_be_one_double) {
  EXPECT_EQ(tagScalarToUInt16(in(Array::scalar(65535.5)), "BitsPerSample"), 65535);
  EXPECT_EQ(tagScalarToUInt16(in(Array::scalar(-0.5)), "BitsPerSample"), 0);
  EXPECT_EQ(tagScalarToUInt16(in(Array::scalar(kNaN)), "BitsPerSample"), 0);
  EXPECT_THROW(tagScalarToUInt16(in(Array::scalar(65536)), "BitsPerSample"), positive_overflow);
  EXPECT_THROW(tagScalarToUInt16(in(Array::scalar(-1)), "BitsPerSample"), negative_overflow);
  EXPECT_EQ(tagScalarToUInt32(in(Array::scalar(4294967295.5)), "ImageWidth"), UINT32_MAX);
  EXPECT_THROW(tagScalarToUInt32(in(Array::scalar(4294967296.0)), "ImageWidth"), positive_overflow);
  EXPECT_THROW(tagScalarToUInt32(in(Array::scalar(-kInf)), "ImageWidth"), negative_overflow);

  const Array wrong[] = {
      Array::row({8, 8}),                                        // two elements
      Array(),                                                   // empty
      Array::of<float>(zvSINGLE_CLASS, {1, 1}, {8.0f}),          // single
      Array::of<std::uint16_t>(zvUINT16_CLASS, {1, 1}, {8}),     // the target's own class
      Array::logical(true), Array::text("8"), Array::cell({Array::scalar(8)}),
  };
  for (const Array& value : wrong) {
    SCOPED_TRACE(value.class_name());
    const Raised r16 = raised([&] { tagScalarToUInt16(in(value), "BitsPerSample"); });
    EXPECT_EQ(r16.id, tiff_id("tagValueNotDoublePrecisionScalar"));
    ASSERT_EQ(r16.arguments.size(), 1u);
    EXPECT_EQ(boost::get<std::string>(r16.arguments[0]), "BitsPerSample");
    EXPECT_EQ(raised([&] { tagScalarToUInt32(in(value), "ImageWidth"); }).id,
              tiff_id("tagValueNotDoublePrecisionScalar"));
  }
}

TEST(convert_test, indices_read_the_first_element_of_any_class) {
  EXPECT_EQ(indexToUInt16(in(Array::scalar(2.9))), 2);
  EXPECT_EQ(indexToUInt16(in(Array::row({3, 70000}))), 3);  // only the first counts
  EXPECT_EQ(indexToUInt16(in(Array::of<std::uint8_t>(zvUINT8_CLASS, {1, 1}, {7}))), 7);
  EXPECT_EQ(indexToUInt16(in(Array::of<float>(zvSINGLE_CLASS, {1, 1}, {65535.5f}))), 65535);
  EXPECT_EQ(indexToUInt16(in(Array::logical(true))), 1);
  EXPECT_THROW(indexToUInt16(in(Array::scalar(65536))), positive_overflow);
  EXPECT_THROW(indexToUInt16(in(Array::of<std::int8_t>(zvINT8_CLASS, {1, 1}, {-1}))), negative_overflow);
  EXPECT_EQ(indexToUInt32(in(Array::scalar(4294967295.5))), UINT32_MAX);
  EXPECT_THROW(indexToUInt32(in(Array::scalar(4294967296.0))), positive_overflow);
  EXPECT_THROW(indexToUInt32(in(Array::scalar(-1))), negative_overflow);
  // An empty index has no first element to read: refused, not taken as 0.
  EXPECT_THROW(indexToUInt16(in(Array())), boost::numeric::bad_numeric_cast);
  EXPECT_THROW(indexToUInt32(in(Array::row({}))), boost::numeric::bad_numeric_cast);
}

TEST(convert_test, offsets_are_bit_exact_as_unsigned_integers) {
  // Above 2^53 a double cannot hold every integer; a uint64 offset must not
  // pass through one.
  for (std::uint64_t v : std::initializer_list<std::uint64_t>{(1ull << 53) + 1, 0x123456789ABCDEF1ull, UINT64_MAX})
    EXPECT_EQ(offsetToUInt64(in(Array::uint64(v))), v);
  EXPECT_EQ(offsetToUInt64(in(Array::of<std::uint64_t>(zvUINT64_CLASS, {1, 2}, {(1ull << 60) + 3, 5}))),
            (1ull << 60) + 3);
  EXPECT_EQ(offsetToUInt64(in(Array::of<std::uint32_t>(zvUINT32_CLASS, {1, 1}, {UINT32_MAX}))), UINT32_MAX);
  // Other classes go through a double and the range rule.
  EXPECT_EQ(offsetToUInt64(in(Array::scalar(9007199254740994.0))), 9007199254740994u);
  EXPECT_EQ(offsetToUInt64(in(Array::scalar(1234.9))), 1234u);
  EXPECT_THROW(offsetToUInt64(in(Array::scalar(18446744073709551616.0))), positive_overflow);
  EXPECT_THROW(offsetToUInt64(in(Array::scalar(-1))), negative_overflow);
  EXPECT_THROW(offsetToUInt64(in(Array::of<std::int64_t>(zvINT64_CLASS, {1, 1}, {-5}))), negative_overflow);
  EXPECT_THROW(offsetToUInt64(in(Array::of<std::uint64_t>(zvUINT64_CLASS, {0, 0}, {}))),
               boost::numeric::bad_numeric_cast);
}

TEST(convert_test, row_column_pairs_take_element_two_first) {
  EXPECT_EQ(rowColumnToUInt32Pair(in(Array::row({3, 7}))), std::make_pair(7u, 3u));
  EXPECT_EQ(rowColumnToUInt32Pair(in(Array::of<std::uint16_t>(zvUINT16_CLASS, {2, 1}, {9, 4}))),
            std::make_pair(4u, 9u));
  // Both out of range: the kind of overflow shows which was converted first.
  EXPECT_THROW(rowColumnToUInt32Pair(in(Array::row({5e9, -5}))), negative_overflow);
  EXPECT_THROW(rowColumnToUInt32Pair(in(Array::row({-5, 5e9}))), positive_overflow);
  // Fewer than two elements cannot be read as a position.
  EXPECT_THROW(rowColumnToUInt32Pair(in(Array::scalar(1))), boost::numeric::bad_numeric_cast);
}

TEST(convert_test, tag_arrays_convert_element_by_element_in_column_major_order) {
  const Array m = Array::matrix({{1.9, 2}, {3, 4}});  // stored 1.9, 3, 2, 4
  EXPECT_EQ(tagArrayToVector<std::uint8_t>(in(m), "T"), (std::vector<std::uint8_t>{1, 3, 2, 4}));
  EXPECT_EQ(tagArrayToVector<std::uint8_t>(in(Array::row({255.9, -0.9})), "T"), (std::vector<std::uint8_t>{255, 0}));
  EXPECT_EQ(tagArrayToVector<std::int8_t>(in(Array::row({-128.9, 127.9})), "T"), (std::vector<std::int8_t>{-128, 127}));
  EXPECT_EQ(tagArrayToVector<std::uint16_t>(in(Array::row({65535.9, kNaN})), "T"), (std::vector<std::uint16_t>{65535, 0}));
  EXPECT_EQ(tagArrayToVector<std::int16_t>(in(Array::row({-32768.9, 32767.9})), "T"),
            (std::vector<std::int16_t>{-32768, 32767}));
  EXPECT_EQ(tagArrayToVector<std::uint32_t>(in(Array::row({4294967295.9})), "T"), (std::vector<std::uint32_t>{UINT32_MAX}));
  EXPECT_EQ(tagArrayToVector<std::int32_t>(in(Array::row({kNaN, -2.5})), "T"), (std::vector<std::int32_t>{INT32_MIN, -2}));
  EXPECT_EQ(tagArrayToVector<float>(in(Array::row({0.1, 16777219.0})), "T"), (std::vector<float>{0.1f, 16777220.0f}));
  const std::vector<double> d = tagArrayToVector<double>(in(Array::row({kInf, -0.0, 1e-310})), "T");
  EXPECT_EQ(d[0], kInf);
  EXPECT_TRUE(std::signbit(d[1]));
  EXPECT_EQ(d[2], 1e-310);

  // A refusal anywhere refuses the whole array.
  EXPECT_THROW(tagArrayToVector<std::uint8_t>(in(Array::row({1, 2, 256})), "T"), positive_overflow);
  EXPECT_THROW(tagArrayToVector<std::int16_t>(in(Array::row({0, -32769})), "T"), negative_overflow);
  EXPECT_THROW(tagArrayToVector<float>(in(Array::row({1, 1e39})), "T"), positive_overflow);

  EXPECT_TRUE(tagArrayToVector<std::uint16_t>(in(Array()), "T").empty());
  EXPECT_TRUE(tagArrayToVector<double>(in(Array::row({})), "T").empty());

  for (const Array& value : {Array::of<float>(zvSINGLE_CLASS, {1, 2}, {1.0f, 2.0f}),
                             Array::of<std::uint16_t>(zvUINT16_CLASS, {1, 1}, {1}), Array::logical(false),
                             Array::text("ab"), Array::cell({})}) {
    SCOPED_TRACE(value.class_name());
    const Raised r = raised([&] { tagArrayToVector<std::uint16_t>(in(value), "BitsPerSample"); });
    EXPECT_EQ(r.id, tiff_id("tagValueNotDoublePrecisionArray"));
    ASSERT_EQ(r.arguments.size(), 1u);
    EXPECT_EQ(boost::get<std::string>(r.arguments[0]), "BitsPerSample");
    EXPECT_EQ(raised([&] { tagArrayToVector<double>(in(value), "T"); }).id, tiff_id("tagValueNotDoublePrecisionArray"));
  }
}

TEST(convert_test, two_dimensional_values_are_read_row_by_row) {
  const Array m = Array::matrix({{11, 12}, {21, 22}, {31, 32}});
  EXPECT_EQ(tag2DArrayToVector<double>(in(m), 2, "ColorMap"), (std::vector<double>{11, 12, 21, 22, 31, 32}));
  EXPECT_EQ(tag2DArrayToVector<std::uint16_t>(in(m), 2, "ColorMap"),
            (std::vector<std::uint16_t>{11, 12, 21, 22, 31, 32}));
  EXPECT_EQ(tag2DArrayToVector<std::uint16_t>(in(Array::matrix({{65535.9, kNaN}})), 2, "T"),
            (std::vector<std::uint16_t>{65535, 0}));
  EXPECT_THROW(tag2DArrayToVector<std::uint16_t>(in(Array::matrix({{1, 65536}})), 2, "T"), positive_overflow);
  EXPECT_TRUE(tag2DArrayToVector<double>(in(Array(zvDOUBLE_CLASS, {0, 3})), 3, "T").empty());

  const Array wrong[] = {
      Array::matrix({{1, 2, 3}, {4, 5, 6}}),                        // 2 x 3
      Array(zvDOUBLE_CLASS, {3, 2, 2}),                             // three dimensions
      Array(),                                                      // 0 x 0
      Array::of<float>(zvSINGLE_CLASS, {3, 2}, std::vector<float>(6, 1.0f)),
      Array::of<std::uint16_t>(zvUINT16_CLASS, {3, 2}, std::vector<std::uint16_t>(6, 1)),
  };
  for (const Array& value : wrong) {
    const Raised r = raised([&] { tag2DArrayToVector<std::uint16_t>(in(value), 2, "TransferFunction"); });
    EXPECT_EQ(r.id, tiff_id("bad2DtagValue"));
    ASSERT_EQ(r.arguments.size(), 2u);
    EXPECT_EQ(boost::get<std::string>(r.arguments[0]), "TransferFunction");
    EXPECT_EQ(boost::get<std::int64_t>(r.arguments[1]), 2);
  }
}

}  // namespace
