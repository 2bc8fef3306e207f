#pragma once
/// The seed programs of the command driver (fuzz/driver/program.h).

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tiffgate::fuzz {

struct SeedProgram {
  std::string name;
  std::vector<std::uint8_t> bytes;
  std::size_t steps;  ///< steps the program was written with
};

std::vector<SeedProgram> command_seeds();

}  // namespace tiffgate::fuzz
