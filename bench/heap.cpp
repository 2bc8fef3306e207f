#include "bench/heap.h"

#include <algorithm>
#include <atomic>

#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__)
#define TIFFGATE_COUNT_HEAP 1
#include <cerrno>
#include <malloc.h>  // malloc_usable_size
#else
#define TIFFGATE_COUNT_HEAP 0
#endif

namespace tiffgate::bench {
namespace {

std::atomic<bool> counting{false};
std::atomic<long long> live{0};
std::atomic<long long> peak{0};

}  // namespace

#if TIFFGATE_COUNT_HEAP
namespace detail {

void allocated(void* p) {
  if (p == nullptr || !counting.load(std::memory_order_relaxed)) return;
  const long long now = live.fetch_add(static_cast<long long>(malloc_usable_size(p))) +
                        static_cast<long long>(malloc_usable_size(p));
  long long seen = peak.load(std::memory_order_relaxed);
  while (now > seen && !peak.compare_exchange_weak(seen, now)) {
  }
}

void released(void* p) {
  if (p != nullptr && counting.load(std::memory_order_relaxed))
    live.fetch_sub(static_cast<long long>(malloc_usable_size(p)));
}

}  // namespace detail
#endif

bool heap_counting_available() { return TIFFGATE_COUNT_HEAP != 0; }

Peak::Peak() {
  live = 0;
  peak = 0;
  counting = true;
}

Peak::~Peak() { counting = false; }

std::size_t Peak::bytes() const { return static_cast<std::size_t>(std::max(0LL, peak.load())); }

}  // namespace tiffgate::bench

#if TIFFGATE_COUNT_HEAP
// The C library's own allocator under its internal names; every entry of
// the malloc family below forwards to it and reports the block.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* p, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* p);

void* malloc(std::size_t size) noexcept {
  void* p = __libc_malloc(size);
  tiffgate::bench::detail::allocated(p);
  return p;
}

void* calloc(std::size_t count, std::size_t size) noexcept {
  void* p = __libc_calloc(count, size);
  tiffgate::bench::detail::allocated(p);
  return p;
}

void* realloc(void* old, std::size_t size) noexcept {
  tiffgate::bench::detail::released(old);
  void* p = __libc_realloc(old, size);
  // A failed realloc keeps the old block.
  tiffgate::bench::detail::allocated(p != nullptr || size == 0 ? p : old);
  return p;
}

void free(void* p) noexcept {
  tiffgate::bench::detail::released(p);
  __libc_free(p);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
  void* p = __libc_memalign(alignment, size);
  tiffgate::bench::detail::allocated(p);
  return p;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept { return memalign(alignment, size); }

int posix_memalign(void** out, std::size_t alignment, std::size_t size) noexcept {
  void* p = memalign(alignment, size);
  if (p == nullptr) return ENOMEM;
  *out = p;
  return 0;
}
}
#endif
