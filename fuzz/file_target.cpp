// libFuzzer entry of the file driver: the input bytes are a TIFF file.

#include "fuzz/target.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tiffgate::fuzz::abort_on_problems(tiffgate::fuzz::run_file_input(data, size));
  return 0;
}
