#pragma once
/// Live heap bytes, counted by this program's own malloc family (which
/// forwards to the C library's). Counting is off until a Peak is made, so
/// that it costs the timed benchmarks nothing but a test of one flag.

#include <cstddef>

namespace tiffgate::bench {

/// Whether allocations can be counted in this build (not under the address
/// sanitizer, which brings its own malloc).
bool heap_counting_available();

/// While it exists, tracks the largest number of heap bytes live at once
/// beyond those live when it was made.
class Peak {
 public:
  Peak();
  ~Peak();
  Peak(const Peak&) = delete;
  Peak& operator=(const Peak&) = delete;
  std::size_t bytes() const;
};

}  // namespace tiffgate::bench
