#pragma once
/// What a fuzz target does with a driver's report: a broken invariant is a
/// finding like a crash, so it ends the run the same way.

#include "fuzz/driver/drivers.h"

#include <cstdio>
#include <cstdlib>

namespace tiffgate::fuzz {

inline void abort_on_problems(const RunReport& report) {
  if (report.problems.empty()) return;
  for (const std::string& p : report.problems) std::fprintf(stderr, "tiffgate fuzz: %s\n", p.c_str());
  std::abort();
}

}  // namespace tiffgate::fuzz
