// libFuzzer entry of the command driver: the input bytes are a program of
// commands and operands (fuzz/driver/program.h).

#include "fuzz/target.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tiffgate::fuzz::abort_on_problems(tiffgate::fuzz::run_command_input(data, size));
  return 0;
}
