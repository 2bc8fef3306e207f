// Every strip and tile of every directory of the corpus files, valid and
// malformed: read without a crash, equal to libtiff's own decode laid out by
// hand, or refused with a kind of the catalogue.
#include "support/image_files.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;

TEST(corpus_chunks, every_chunk_reads_as_libtiff_decodes_it_or_fails_cleanly) {
  std::vector<std::string> files;
  for (const std::string& folder : {corpus_dir(), corpus_dir() + "/malformed"})
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      const std::string ext = entry.path().extension().string();
      // One malformed file has a 171 GB strip: reading it is an allocation
      // failure in the host by design, and an abort under the sanitizer.
      if ((ext == ".tif" || ext == ".tiff") && entry.path().filename() != "pillow-libtiff-segfault.tif")
        files.push_back(entry.path().string());
    }
  std::sort(files.begin(), files.end());
  ASSERT_GT(files.size(), 150u);
  // The direct reference handle would print libtiff's complaints a second time.
  TIFFSetErrorHandler(nullptr);
  TIFFSetWarningHandler(nullptr);

  std::map<std::string, int> refusals;  // kind -> directories refused with it
  std::size_t chunks = 0;
  for (const std::string& path : files) {
    SCOPED_TRACE(path);
    const auto opened = call("open", {str(path), str("r")});
    if (!opened.ok()) continue;  // files libtiff cannot open are the open command's business
    const Array id = opened.out();
    TiffHandle ref(path, "r");
    for (int directory = 0; directory < 16; ++directory) {
      const bool tiled = TIFFIsTiled(ref);
      const std::uint32_t count = tiled ? TIFFNumberOfTiles(ref) : TIFFNumberOfStrips(ref);
      for (std::uint32_t i = 0; i < count; ++i) {
        const auto r = call(tiled ? "readEncodedTile" : "readEncodedStrip", {id, num(i)});
        if (!r.ok()) {
          EXPECT_EQ(r.error_id().rfind("Quarn:imagesci:", 0), 0u) << r.error_id();
          ++refusals[outcome(r)];
          break;  // the directory's configuration: every chunk would say the same
        }
        EXPECT_EQ(compare_outputs(r, libtiff_chunk(ref, i)), "") << "directory " << directory << " chunk " << i;
        ++chunks;
      }
      if (!TIFFReadDirectory(ref)) break;
      ASSERT_EQ(outcome(call("readDirectory", {id})), "ok");
    }
    call("close", {id});
  }
  TIFFSetErrorHandler(nullptr);
  EXPECT_GT(chunks, 5000u);
  for (const auto& [kind, count] : refusals) std::cout << "  refused " << count << " x " << kind << "\n";
}

}  // namespace
}  // namespace tiffgate::testing
