// Writes the seed programs of the command target into the directory given
// as the only argument, one file each.

#include "fuzz/driver/seeds.h"

#include <cstdio>
#include <fstream>
#include <string>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY\n", argv[0]);
    return 2;
  }
  for (const tiffgate::fuzz::SeedProgram& seed : tiffgate::fuzz::command_seeds()) {
    std::ofstream out(std::string(argv[1]) + "/" + seed.name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(seed.bytes.data()), static_cast<std::streamsize>(seed.bytes.size()));
    if (!out) {
      std::fprintf(stderr, "cannot write %s\n", seed.name.c_str());
      return 1;
    }
  }
  return 0;
}
