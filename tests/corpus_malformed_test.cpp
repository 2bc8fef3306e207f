// Every reading command over every malformed file of the corpus (truncated,
// fuzzed, looping, absurdly sized): each call ends in a value, warnings or
// an error kind of the catalogue. Each file runs in a child process with a
// time limit, so that a crash or a hang is reported against its file and
// does not take the test down; the child exits normally, so that the
// sanitizer build's leak check runs for it.

#include "core/catalogue.h"
#include "support/corpus.h"
#include "support/image_files.h"
#include "support/tiff_files.h"
#include "tags/tag_table.h"

#include <gtest/gtest.h>

#include <sys/wait.h>  // waitpid
#include <unistd.h>    // fork, pipe, alarm

#include <chrono>
#include <csignal>
#include <cstdio>
#include <map>
#include <set>

namespace tiffgate::testing {
namespace {

using embedded::Array;
using embedded::call;
using embedded::CallResult;

// Per file, far above what any file takes (well under a second each, also
// under the sanitizers): reaching it means a loop that does not end.
constexpr unsigned kSecondsPerFile = 60;
// Chunks and RGBA regions read per directory: a fuzzed count can run to
// millions of chunks that all fail alike.
constexpr std::uint32_t kChunksPerDirectory = 4096;
constexpr std::uint32_t kRgbaRegionsPerDirectory = 64;

/// Calls commands and keeps count of their outcomes; an outcome that is
/// neither a value nor a kind of the catalogue is a problem.
class Prober {
 public:
  explicit Prober(std::FILE* report) : report_(report) {
    for (const CatalogueEntry& entry : kCatalogue) kinds_.insert(entry.identifier);
  }

  CallResult operator()(const std::string& command, std::vector<Array> operands, const std::string& what) {
    CallResult r = call(command, std::move(operands));
    ++calls_;
    if (!r.ok()) ++errors_[r.error_id().substr(r.error_id().rfind(':') + 1)];
    if (!r.ok() && !kinds_.count(r.error_id()))
      std::fprintf(report_, "problem: %s %s: %s %s\n", command.c_str(), what.c_str(), r.error_id().c_str(),
                   r.error->message.c_str());
    return r;
  }

  void summary(int directories) const {
    std::fprintf(report_, "directories %d, %zu calls; errors:", directories, calls_);
    for (const auto& [kind, count] : errors_) std::fprintf(report_, " %zu %s", count, kind.c_str());
    std::fprintf(report_, "\n");
  }

 private:
  std::FILE* report_;
  std::set<std::string> kinds_;
  std::size_t calls_ = 0;
  std::map<std::string, std::size_t> errors_;
};

/// Every reading command on the current directory.
void probe_directory(Prober& probe, const Array& id) {
  for (const char* query : {"currentDirectory", "lastDirectory", "isTiled", "numberOfStrips", "numberOfTiles"})
    probe(query, {id}, "");
  const CallResult metadata = probe("retrieveMetadata", {id}, "");
  for (const auto& [tag, name] : TagNameTable()) probe("getField", {id, num(tag)}, "tag " + std::to_string(tag));

  const CallResult tiled = probe("isTiled", {id}, "");
  const bool isTiled = tiled.ok() && tiled.out().number() != 0;
  const CallResult n = probe(isTiled ? "numberOfTiles" : "numberOfStrips", {id}, "");
  const std::uint32_t chunks = n.ok() ? static_cast<std::uint32_t>(n.out().number()) : 0;
  const char* read = isTiled ? "readEncodedTile" : "readEncodedStrip";
  // Every chunk, and the one past the last.
  for (std::uint32_t i = 0; i <= std::min(chunks, kChunksPerDirectory); ++i)
    probe(read, {id, num(i)}, std::to_string(i));

  probe("readRGBAImage", {id}, "");
  probe("computeStrip", {id, num(0)}, "");
  probe("computeTile", {id, Array::row({0, 0})}, "");
  if (!metadata.ok()) return;
  const Array& m = metadata.out();
  const double width = m.field("ImageWidth")->number(), length = m.field("ImageLength")->number();
  const double rows = m.field("RowsPerStrip")->number();
  const double tileWidth = m.field("TileWidth")->number(), tileLength = m.field("TileLength")->number();
  std::uint32_t regions = 0;
  if (!isTiled) {
    for (double row = 0; row < length && regions < kRgbaRegionsPerDirectory; row += std::max(rows, 1.0), ++regions)
      probe("readRGBAStrip", {id, num(row)}, std::to_string(row));
  } else {
    for (double row = 0; row < length && regions < kRgbaRegionsPerDirectory; row += std::max(tileLength, 1.0))
      for (double column = 0; column < width && regions < kRgbaRegionsPerDirectory;
           column += std::max(tileWidth, 1.0), ++regions)
        probe("readRGBATile", {id, num(column), num(row)}, std::to_string(column) + "," + std::to_string(row));
  }
}

/// Opens the file and walks it: the main chain by "readDirectory", each
/// directory's SubIFDs by "setSubDirectory" (and back by "setDirectory").
void probe_file(const std::string& path, std::FILE* report) {
  Prober probe(report);
  const CallResult opened = probe("open", {str(path), str("r")}, "");
  int directories = 0;
  if (opened.ok()) {
    const Array id = opened.out();
    for (; directories < 64; ++directories) {
      probe_directory(probe, id);
      const CallResult subifds = probe("getField", {id, num(330)}, "tag 330");
      for (std::size_t s = 0; subifds.ok() && s < std::min<std::size_t>(subifds.out().numel(), 8); ++s) {
        if (probe("setSubDirectory", {id, Array::uint64(subifds.out().at<std::uint64_t>(s))}, "").ok())
          probe_directory(probe, id);
        probe("setDirectory", {id, num(directories)}, "");
      }
      if (!probe("readDirectory", {id}, "").ok()) break;
    }
    probe("setDirectory", {id, num(0)}, "");
    probe("setDirectory", {id, num(directories + 1)}, "past the last");
    probe("close", {id}, "");
  }
  probe.summary(opened.ok() ? directories + 1 : 0);
}

struct ChildOutcome {
  int status = 0;
  std::string report;
  double seconds = 0;
};

/// Runs probe_file in a child process under an alarm.
ChildOutcome probe_in_child(const std::string& path) {
  int fds[2];
  if (pipe(fds) != 0) throw std::runtime_error("pipe failed");
  std::fflush(nullptr);
  const auto start = std::chrono::steady_clock::now();
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    close(fds[0]);
    alarm(kSecondsPerFile);  // its default action ends the child
    std::FILE* report = fdopen(fds[1], "w");
    probe_file(path, report);
    std::fclose(report);
    std::exit(0);  // not _exit: the leak check runs at exit
  }
  close(fds[1]);
  ChildOutcome outcome;
  char block[4096];
  for (ssize_t got; (got = read(fds[0], block, sizeof block)) > 0;) outcome.report.append(block, static_cast<std::size_t>(got));
  close(fds[0]);
  waitpid(pid, &outcome.status, 0);
  outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return outcome;
}

TEST(corpus_malformed, every_reading_command_ends_in_a_value_or_a_kind) {
  const std::vector<std::string> files = tiff_files_in(corpus_dir() + "/malformed");
  ASSERT_EQ(files.size(), 22u);
  // How many directories libtiff itself reaches in each (the manifest's count).
  std::map<std::string, std::string> reached;
  for (const CsvRow& row : read_csv(corpus_dir() + "/MANIFEST.csv")) reached[row.at("file")] = row.at("directories");

  for (const std::string& path : files) {
    const std::string name = path.substr(corpus_dir().size() + 1);
    SCOPED_TRACE(name);
    const ChildOutcome child = probe_in_child(path);
    if (WIFSIGNALED(child.status))
      ADD_FAILURE() << (WTERMSIG(child.status) == SIGALRM ? "no end after " : "killed by signal ")
                    << (WTERMSIG(child.status) == SIGALRM ? kSecondsPerFile : WTERMSIG(child.status));
    else
      EXPECT_EQ(WEXITSTATUS(child.status), 0) << "the child failed (a sanitizer report?)";
    EXPECT_EQ(child.report.find("problem:"), std::string::npos) << child.report;
    const std::string directories = "directories " + reached[name] + ",";
    EXPECT_EQ(child.report.rfind(directories, 0) == 0 || child.report.find("\n" + directories) != std::string::npos,
              true)
        << "libtiff reaches " << reached[name] << " directories; the module: " << child.report;
    std::printf("  %s (%.2f s): %s", name.c_str(), child.seconds, child.report.c_str());
  }
}

}  // namespace
}  // namespace tiffgate::testing
