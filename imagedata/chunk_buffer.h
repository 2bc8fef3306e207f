#pragma once
/// The buffer of one strip or tile that the read and write commands hand to
/// libtiff.

#include <tiffio.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

namespace tiffgate::detail {

/// A zero-filled chunk buffer of libtiff's chunk size (empty when libtiff
/// could not compute one). calloc rather than a vector: a large buffer comes
/// zeroed from the system without being written page by page, and a size no
/// system can give (a malformed file's strip of hundreds of gigabytes) fails
/// at once as bad_alloc.
class ChunkBuffer {
 public:
  explicit ChunkBuffer(tmsize_t size)
      : size_(static_cast<std::size_t>(std::max<tmsize_t>(size, 0))),
        data_(static_cast<unsigned char*>(std::calloc(std::max<std::size_t>(size_, 1), 1))) {
    if (!data_) throw std::bad_alloc();
  }
  unsigned char* data() const { return data_.get(); }
  std::size_t size() const { return size_; }

 private:
  struct Free {
    void operator()(unsigned char* p) const noexcept { std::free(p); }
  };
  std::size_t size_;
  std::unique_ptr<unsigned char, Free> data_;
};

}  // namespace tiffgate::detail
