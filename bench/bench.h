#pragma once
/// The benchmarks and the table they make. Each benchmark is registered
/// under a name; a table row names the benchmark it shows and the floor it
/// is divided by, both measured in the same run.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace tiffgate::bench {

/// The image sizes of a run: quick (small images, seconds) or full
/// (8192 x 8192, minutes).
struct Mode {
  const char* name;
  std::uint32_t size;         ///< image width and length
  std::uint32_t rowsPerStrip;
  std::uint32_t tile;         ///< tile width and length
  double minTime;             ///< seconds per repetition, at least
  int repetitions;            ///< the table shows the median
};
const Mode& mode();
void set_mode(const Mode& mode);

/// One line of the table. A timed row names its benchmark and its floor,
/// and shows measured / floor against `target` (when target > 0); with
/// `micros` the target bounds the measured time in microseconds instead. A
/// row whose `bytes` is set shows a measured size against `floorBytes`.
struct Row {
  std::string section;
  std::string label;
  std::string measured;     ///< benchmark name
  std::string floor;        ///< benchmark name
  double target = 0;
  bool micros = false;
  std::string second;       ///< a second floor, its ratio shown for information
  double bytes = -1;
  double floorBytes = 0;
};
/// A ratio row, with an optional second floor shown for information.
void add_row(const std::string& section, const std::string& label, const std::string& measured,
             const std::string& floor, double target = 0, const std::string& second = "");
/// A row whose target bounds the measured time in microseconds.
void add_micros_row(const std::string& section, const std::string& label, const std::string& measured,
                    const std::string& floor, double targetMicros);
/// A row of sizes rather than times.
void add_bytes_row(const std::string& section, const std::string& label, double bytes, double floorBytes,
                   double target);

/// Registers a benchmark under name unless one is already there (a floor
/// can serve several rows), with the run's repetitions; returns the name.
/// `body` runs the whole timing loop; `each` is called once per iteration.
std::string once(const std::string& name, std::function<void(benchmark::State&)> body);
std::string each(const std::string& name, std::function<void()> iteration);
/// The same timed by the wall clock rather than the CPU, for work on threads.
std::string each_wall(const std::string& name, std::function<void()> iteration);

/// A directory for the generated files, removed at exit: $TIFFGATE_BENCH_DIR,
/// else under /dev/shm (no disk writeback to disturb the timings), else /tmp.
const std::string& work_directory();

void register_kernel_benchmarks();
void register_file_benchmarks();
void register_call_benchmarks();

/// Whole-file reads with the allocation counter on; adds their rows.
void measure_peak_memory();
/// Closes what the benchmarks opened through the host, before it unloads.
void close_host_files();

}  // namespace tiffgate::bench
