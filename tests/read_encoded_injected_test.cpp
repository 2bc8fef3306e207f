// Read errors that libtiff never lets happen, reached by putting this
// executable's own TIFFReadEncodedStrip and TIFFGetFieldDefaulted in front of
// libtiff's (a definition in the executable takes precedence over the shared
// library's): a strip read that returns more bytes than the strip size, and
// SampleFormat or PlanarConfiguration values that libtiff refuses to store.
#include "support/image_files.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <cstdarg>

namespace {
tmsize_t g_extra_bytes = 0;
std::uint32_t g_tag = 0;  // the tag whose value is replaced; 0 for none
std::uint16_t g_value = 0;
}  // namespace

extern "C" tmsize_t TIFFReadEncodedStrip(TIFF* tif, uint32_t strip, void* buffer, tmsize_t size) {
  using Read = tmsize_t (*)(TIFF*, uint32_t, void*, tmsize_t);
  static const auto real = reinterpret_cast<Read>(dlsym(RTLD_NEXT, "TIFFReadEncodedStrip"));
  const tmsize_t got = real(tif, strip, buffer, size);
  return got < 0 ? got : got + g_extra_bytes;
}

extern "C" int TIFFGetFieldDefaulted(TIFF* tif, uint32_t tag, ...) {
  va_list arguments;
  va_start(arguments, tag);
  int found = 1;
  if (tag == g_tag)
    *va_arg(arguments, std::uint16_t*) = g_value;
  else
    found = TIFFVGetFieldDefaulted(tif, tag, arguments);
  va_end(arguments);
  return found;
}

namespace tiffgate::testing {
namespace {

using embedded::call;

TEST(read_encoded_injected, too_many_bytes_unknown_format_illegal_planar_configuration) {
  ScratchDir dir;
  ImageSpec image_spec;  // 16 x 16 uint8 in strips of 8 rows: 128 bytes a strip
  image_spec.rowsPerStrip = 8;
  write_image(dir.path("a.tif"), image_spec);
  image_spec.bits = 32;
  write_image(dir.path("b.tif"), image_spec);
  const embedded::Array a = open_file(dir.path("a.tif"));
  const embedded::Array b = open_file(dir.path("b.tif"));

  g_extra_bytes = 1;
  EXPECT_EQ(outcome(call("readEncodedStrip", {a, num(1)})), "tooManyBytes(1, 128, 129)");
  g_extra_bytes = 0;
  EXPECT_EQ(outcome(call("readEncodedStrip", {a, num(1)})), "ok");

  g_tag = TIFFTAG_SAMPLEFORMAT, g_value = 7;
  EXPECT_EQ(outcome(call("readEncodedStrip", {b, num(0)})), "unknownSampleFormat(7)");
  EXPECT_EQ(outcome(call("readEncodedStrip", {a, num(0)})), "badSampleFormatBitsPerSampleCombination(7, 8)");
  g_tag = TIFFTAG_PLANARCONFIG, g_value = 3;
  EXPECT_EQ(outcome(call("readEncodedTile", {a, num(0)})), "illegalPlanarConfiguration(3)");
  EXPECT_EQ(outcome(call("computeStrip", {a, num(0)})), "illegalPlanarConfiguration(3)");
  g_tag = 0;
  EXPECT_EQ(outcome(call("readEncodedStrip", {b, num(0)})), "ok");
  call("close", {a});
  call("close", {b});
}

}  // namespace
}  // namespace tiffgate::testing
