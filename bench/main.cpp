// The benchmark driver: generates its files, runs every benchmark with
// repetitions, and prints one table of medians and their ratios to floors
// measured in the same run.
//
//   tiffgate_bench [quick|full] [Google Benchmark flags]

#include "bench/bench.h"
#include "bench/heap.h"
#include "imagedata/isa.h"

#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <set>
#include <thread>
#include <unistd.h>  // mkdtemp
#include <vector>

namespace tiffgate::bench {
namespace {

constexpr Mode kQuick = {"quick", 1024, 16, 128, 0.05, 5};
constexpr Mode kFull = {"full", 8192, 64, 256, 0.1, 3};
Mode current = kQuick;

std::vector<Row>& rows() {
  static std::vector<Row> list;
  return list;
}
std::set<std::string>& registered() {
  static std::set<std::string> names;
  return names;
}
/// The benchmarks timed by the clock on the wall: those that run threads.
std::set<std::string>& wall_timed() {
  static std::set<std::string> names;
  return names;
}

/// Per-iteration CPU seconds of every repetition, by benchmark name. CPU
/// time rather than wall time: the machines are shared, and a process that
/// waits for a core is not slower for it. Benchmarks that run threads are
/// timed by the wall clock, what their threads are for.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred || run.iterations == 0) continue;
      const std::string& name = run.run_name.function_name;
      const double total = wall_timed().count(name) ? run.real_accumulated_time : run.cpu_accumulated_time;
      times_[name].push_back(total / static_cast<double>(run.iterations));
      std::fprintf(stderr, "\r%-70.70s", run.run_name.function_name.c_str());
    }
  }
  void Finalize() override { std::fprintf(stderr, "\r%-70s\r", ""); }

  /// The median, or NaN for a benchmark that did not run.
  double median(const std::string& name) const {
    const auto it = times_.find(name);
    if (it == times_.end() || it->second.empty()) return NAN;
    std::vector<double> t = it->second;
    std::sort(t.begin(), t.end());
    const std::size_t n = t.size();
    return n % 2 ? t[n / 2] : (t[n / 2 - 1] + t[n / 2]) / 2;
  }

 private:
  std::map<std::string, std::vector<double>> times_;
};

std::string seconds_text(double s) {
  char text[32];
  if (std::isnan(s)) return "-";
  if (s < 1e-6)
    std::snprintf(text, sizeof text, "%.0f ns", s * 1e9);
  else if (s < 1e-3)
    std::snprintf(text, sizeof text, "%.2f us", s * 1e6);
  else if (s < 1)
    std::snprintf(text, sizeof text, "%.2f ms", s * 1e3);
  else
    std::snprintf(text, sizeof text, "%.2f s", s);
  return text;
}

std::string bytes_text(double b) {
  char text[32];
  if (b < 1 << 20)
    std::snprintf(text, sizeof text, "%.1f KiB", b / 1024);
  else
    std::snprintf(text, sizeof text, "%.1f MiB", b / (1 << 20));
  return text;
}

std::string number(const char* format, double x) {
  char text[32];
  std::snprintf(text, sizeof text, format, x);
  return text;
}

/// The table as Markdown, so that docs/PERFORMANCE.md can take it as it is.
/// Returns the number of rows that missed their target.
int print_table(const Collector& times) {
  std::printf("| case | measured | floor | ratio | target | | vs second floor |\n");
  std::printf("|---|---:|---:|---:|---:|---|---:|\n");
  // Rows of one section together, sections in the order they first appear.
  std::vector<const Row*> ordered;
  for (const Row& row : rows())
    if (std::none_of(ordered.begin(), ordered.end(), [&](const Row* r) { return r->section == row.section; }))
      for (const Row& same : rows())
        if (same.section == row.section) ordered.push_back(&same);
  std::string section;
  int missed = 0;
  for (const Row* r : ordered) {
    const Row& row = *r;
    if (row.section != section) {
      section = row.section;
      std::printf("| **%s** | | | | | | |\n", section.c_str());
    }
    double measured, floor, ratio;
    std::string measuredText, floorText, ratioText, targetText, secondText;
    if (row.bytes >= 0) {
      measured = row.bytes;
      floor = row.floorBytes;
      measuredText = bytes_text(measured);
      floorText = bytes_text(floor);
    } else {
      measured = times.median(row.measured);
      floor = row.floor.empty() ? NAN : times.median(row.floor);
      measuredText = seconds_text(measured);
      floorText = seconds_text(floor);
      if (!row.second.empty()) secondText = number("%.2f", measured / times.median(row.second));
    }
    ratio = measured / floor;
    ratioText = std::isnan(ratio) ? "-" : number("%.2f", ratio);
    const double checked = row.micros ? measured * 1e6 : ratio;
    std::string verdict;
    if (row.target > 0 && std::isnan(measured)) {
      targetText = "not run";
    } else if (row.target > 0) {
      targetText = row.micros ? "<= " + number("%g", row.target) + " us" : "<= " + number("%g", row.target);
      const bool ok = !std::isnan(checked) && checked <= row.target;
      verdict = ok ? "ok" : "MISSED";
      missed += ok ? 0 : 1;
    }
    std::printf("| %s | %s | %s | %s | %s | %s | %s |\n", row.label.c_str(), measuredText.c_str(), floorText.c_str(),
                ratioText.c_str(), targetText.c_str(), verdict.c_str(), secondText.c_str());
  }
  return missed;
}

}  // namespace

const Mode& mode() { return current; }
void set_mode(const Mode& m) { current = m; }

void add_row(const std::string& section, const std::string& label, const std::string& measured,
             const std::string& floor, double target, const std::string& second) {
  rows().push_back(Row{section, label, measured, floor, target, false, second, -1, 0});
}

void add_micros_row(const std::string& section, const std::string& label, const std::string& measured,
                    const std::string& floor, double targetMicros) {
  rows().push_back(Row{section, label, measured, floor, targetMicros, true, "", -1, 0});
}

void add_bytes_row(const std::string& section, const std::string& label, double bytes, double floorBytes,
                   double target) {
  rows().push_back(Row{section, label, "", "", target, false, "", bytes, floorBytes});
}

std::string once(const std::string& name, std::function<void(benchmark::State&)> body) {
  if (registered().insert(name).second) {
    benchmark::RegisterBenchmark(name.c_str(), [body](benchmark::State& state) { body(state); })
        ->Repetitions(current.repetitions)
        ->MinTime(current.minTime);
  }
  return name;
}

std::string each(const std::string& name, std::function<void()> iteration) {
  return once(name, [iteration](benchmark::State& state) {
    for (auto _ : state) iteration();
  });
}

std::string each_wall(const std::string& name, std::function<void()> iteration) {
  if (registered().insert(name).second) {
    wall_timed().insert(name);
    benchmark::RegisterBenchmark(name.c_str(), [iteration](benchmark::State& state) {
      for (auto _ : state) iteration();
    })
        ->Repetitions(current.repetitions)
        ->MinTime(current.minTime)
        ->UseRealTime();
  }
  return name;
}

const std::string& work_directory() {
  static const std::string path = [] {
    std::string base = "/tmp";
    if (const char* chosen = std::getenv("TIFFGATE_BENCH_DIR")) {
      base = chosen;
    } else if (std::filesystem::is_directory("/dev/shm")) {
      base = "/dev/shm";
    }
    std::string pattern = base + "/tiffgate-bench-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror(("tiffgate_bench: cannot create a directory under " + base).c_str());
      std::exit(2);
    }
    return pattern;
  }();
  return path;
}

}  // namespace tiffgate::bench

int main(int argc, char** argv) {
  using namespace tiffgate::bench;
  std::vector<char*> args = {argv[0]};
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "quick") == 0)
      set_mode(kQuick);
    else if (std::strcmp(argv[i], "full") == 0)
      set_mode(kFull);
    else
      args.push_back(argv[i]);
  }
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 2;

  // libtiff's own complaints would garble the table; every call here is
  // checked by its result instead.
  TIFFSetWarningHandler(nullptr);

  const Mode& m = mode();
  const bool wide = tiffgate::detail::best_isa() == tiffgate::detail::Isa::vector32;
  std::fprintf(stderr, "tiffgate benchmarks, %s mode: generating files in %s\n", m.name, work_directory().c_str());
  register_kernel_benchmarks();
  register_file_benchmarks();
  register_call_benchmarks();
  measure_peak_memory();

  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);

  std::printf("tiffgate benchmarks, %s mode: %u x %u images, strips of %u rows, %u x %u tiles; %s kernels; "
              "median of %d repetitions, CPU time (wall time for whole-image reads); %u processors\n\n",
              m.name, m.size, m.size, m.rowsPerStrip, m.tile, m.tile, wide ? "32-byte (AVX2)" : "16-byte (SSE2)",
              m.repetitions, std::thread::hardware_concurrency());
  const int missed = print_table(collector);
  std::printf("\n%d row(s) missed their target.\n", missed);
  close_host_files();
  std::filesystem::remove_all(work_directory());
  benchmark::Shutdown();
  return 0;
}
