#pragma once
/// The buffer a strip or tile travels through between libtiff and a kernel.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

namespace tiffgate {

/// A buffer of libtiff's chunk size (empty when libtiff could not compute
/// one). Zero-filled on request with calloc: a large buffer then comes
/// zeroed from the system without being written page by page. Otherwise
/// left as malloc gives it, for a caller that writes every byte before
/// libtiff sees any: a second full-size pass costs as much as the copy. A
/// size no system can give (a malformed file's strip of hundreds of
/// gigabytes) fails at once as bad_alloc.
class ChunkBuffer {
 public:
  ChunkBuffer(std::int64_t size, bool zeroed)
      : size_(static_cast<std::size_t>(std::max<std::int64_t>(size, 0))),
        owned_(static_cast<unsigned char*>(zeroed ? std::calloc(std::max<std::size_t>(size_, 1), 1)
                                                  : std::malloc(std::max<std::size_t>(size_, 1)))),
        data_(owned_.get()) {
    if (!data_) throw std::bad_alloc();
  }
  /// The same in `storage`, which a caller reading chunk after chunk keeps:
  /// its pages are not fetched from the system every time. Always zeroed:
  /// some decoders report success without writing every byte.
  ChunkBuffer(std::int64_t size, std::vector<unsigned char>& storage)
      : size_(static_cast<std::size_t>(std::max<std::int64_t>(size, 0))) {
    storage.assign(std::max<std::size_t>(size_, 1), 0);
    data_ = storage.data();
  }
  unsigned char* data() const { return data_; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

 private:
  struct Free {
    void operator()(unsigned char* p) const noexcept { std::free(p); }
  };
  std::size_t size_;
  std::unique_ptr<unsigned char, Free> owned_;
  unsigned char* data_ = nullptr;
};

}  // namespace tiffgate
