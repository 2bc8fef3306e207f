// The fuzz drivers in the ordinary build: inputs the fuzz targets found
// faults with, kept under tests/regressions/ and replayed through the same
// driver; the malformed corpus through the file driver; and the command
// driver's seed programs, which must read back as they were written.

#include "fuzz/driver/drivers.h"
#include "fuzz/driver/seeds.h"
#include "support/tiff_files.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using namespace tiffgate::testing;
using tiffgate::fuzz::RunReport;

std::vector<std::uint8_t> bytes_of(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

RunReport run_file(const std::filesystem::path& path) {
  const std::vector<std::uint8_t> bytes = bytes_of(path);
  return tiffgate::fuzz::run_file_input(bytes.data(), bytes.size());
}

std::string problems_of(const RunReport& report) {
  std::string all;
  for (const std::string& p : report.problems) all += p + "\n";
  return all;
}

struct Kept {
  const char* file;  ///< under tests/regressions/: file-* a TIFF file, command-* a program
  const char* broke;
};
// Each kept input, with what it broke.
const std::vector<Kept> kKept = {
    {"command-read-into-empty-array",
     "a strip read whose output array was empty made the element kernel offset a null pointer"},
};

TEST(regressions_test, every_kept_input_replays_clean) {
  const std::filesystem::path dir = TIFFGATE_REGRESSIONS;
  std::vector<std::string> present;
  for (const auto& entry : std::filesystem::directory_iterator(dir))
    if (entry.path().filename() != "README.md") present.push_back(entry.path().filename().string());
  // A kept input says what it broke, and a listed one is there.
  std::vector<std::string> listed;
  for (const Kept& k : kKept) listed.push_back(k.file);
  std::sort(present.begin(), present.end());
  std::sort(listed.begin(), listed.end());
  EXPECT_EQ(present, listed);

  for (const Kept& k : kKept) {
    SCOPED_TRACE(std::string(k.file) + ": " + k.broke);
    const std::string name = k.file;
    RunReport report;
    if (name.rfind("file-", 0) == 0) {
      report = run_file(dir / name);
    } else {
      const std::vector<std::uint8_t> bytes = bytes_of(dir / name);
      report = tiffgate::fuzz::run_command_input(bytes.data(), bytes.size());
      EXPECT_GT(report.steps, 0u);
    }
    EXPECT_GT(report.calls, 0u);
    EXPECT_TRUE(report.problems.empty()) << problems_of(report);
  }
}

TEST(regressions_test, the_file_driver_walks_every_directory_and_refuses_the_huge_strip) {
  const std::filesystem::path corpus = corpus_dir();
  for (const auto& entry : std::filesystem::directory_iterator(corpus / "malformed")) {
    SCOPED_TRACE(entry.path().filename().string());
    const RunReport report = run_file(entry.path());
    EXPECT_TRUE(report.problems.empty()) << problems_of(report);
  }
  // Directory counts from the corpus manifest; each directory has a
  // "getField" for each of the 102 tags of the tag table, at least.
  const std::pair<const char*, std::size_t> multi[] = {
      {"imagetiff-multipage-8b.tiff", 3}, {"pillow-planar-raw-overviews.tif", 5}, {"twelvemonkeys-g4-5pages.tif", 5}};
  for (const auto& [name, directories] : multi) {
    SCOPED_TRACE(name);
    const RunReport report = run_file(corpus / name);
    EXPECT_TRUE(report.problems.empty()) << problems_of(report);
    EXPECT_GE(report.calls, directories * 102);
  }
  // Its strip claims 171 GB: the driver leaves the reads out.
  const RunReport huge = run_file(corpus / "malformed" / "pillow-libtiff-segfault.tif");
  EXPECT_GT(huge.skipped, 0u);
}

TEST(regressions_test, the_seed_programs_read_back_step_for_step) {
  const std::vector<tiffgate::fuzz::SeedProgram> seeds = tiffgate::fuzz::command_seeds();
  ASSERT_GE(seeds.size(), 10u);
  for (const tiffgate::fuzz::SeedProgram& seed : seeds) {
    SCOPED_TRACE(seed.name);
    const RunReport report = tiffgate::fuzz::run_command_input(seed.bytes.data(), seed.bytes.size());
    // A step read with other bytes than the encoder wrote shifts every
    // later one, and the count no longer matches.
    EXPECT_EQ(report.steps, seed.steps);
    EXPECT_TRUE(report.problems.empty()) << problems_of(report);
  }
}

}  // namespace
