#pragma once
/// How much one data command may allocate: a malformed file can declare a
/// strip or an image of hundreds of gigabytes. Asked for that much, the
/// allocator fails (and aborts the process under the sanitizers), and a
/// large allocation that the system grants lazily is then filled by libtiff
/// and the copy kernels until the process is killed. Such sizes are refused
/// before anything is allocated.

#include <cstdint>
#include <initializer_list>

namespace tiffgate {

/// The machine's physical memory in bytes: a command's buffers together
/// must fit in it.
std::uint64_t memory_limit();

/// The product of the factors, or the largest uint64 when it does not fit.
std::uint64_t saturating_product(std::initializer_list<std::uint64_t> factors);

}  // namespace tiffgate
