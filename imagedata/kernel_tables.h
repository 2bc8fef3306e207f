#pragma once
/// The copy kernels that depend on the vector width. copy_kernels.cpp is
/// compiled once for each width the build has (CMake sets
/// TIFFGATE_VECTOR_BYTES and TIFFGATE_WIDTH_NS for each build: v16 always,
/// v32 with AVX2 on x86-64); each build fills the two tables of its
/// namespace. kernels.cpp chooses the tables once per process.

#include "imagedata/pack_kernels.h"
#include "imagedata/unpack_kernels.h"

#include <cstddef>

namespace tiffgate::detail {

/// Kernels are indexed by element size in bytes; sizes other than 1, 2, 4
/// and 8 hold null.
constexpr std::size_t kElementSizes = 9;

struct UnpackTable {
  ElementUnpacker elements[kElementSizes];
  StridedElementUnpacker strided[kElementSizes];
  BitUnpacker bits;
  StridedBitUnpacker strided_bits;
};

struct PackTable {
  ElementPacker elements[kElementSizes];
  BitPacker bits;
};

namespace v16 {
extern const UnpackTable unpack_table;
extern const PackTable pack_table;
}  // namespace v16

namespace v32 {
extern const UnpackTable unpack_table;
extern const PackTable pack_table;
}  // namespace v32

}  // namespace tiffgate::detail
