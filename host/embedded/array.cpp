#include "host/embedded/array.h"

#include "core/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>

#include <sys/mman.h>  // madvise

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>  // ASAN_POISON_MEMORY_REGION
#endif

namespace tiffgate::embedded {

std::size_t element_size(zvClassID cls) {
  switch (cls) {
    case zvLOGICAL_CLASS: return sizeof(zvLogical);
    case zvCHAR_CLASS: return sizeof(char16_t);
    case zvDOUBLE_CLASS: return 8;
    case zvSINGLE_CLASS: return 4;
    case zvINT8_CLASS: case zvUINT8_CLASS: return 1;
    case zvINT16_CLASS: case zvUINT16_CLASS: return 2;
    case zvINT32_CLASS: case zvUINT32_CLASS: return 4;
    case zvINT64_CLASS: case zvUINT64_CLASS: return 8;
    default: return 0;
  }
}

const char* class_name(zvClassID cls) {
  switch (cls) {
    case zvCELL_CLASS: return "cell";
    case zvSTRUCT_CLASS: return "struct";
    case zvLOGICAL_CLASS: return "logical";
    case zvCHAR_CLASS: return "char";
    case zvVOID_CLASS: return "void";
    case zvDOUBLE_CLASS: return "double";
    case zvSINGLE_CLASS: return "single";
    case zvINT8_CLASS: return "int8";
    case zvUINT8_CLASS: return "uint8";
    case zvINT16_CLASS: return "int16";
    case zvUINT16_CLASS: return "uint16";
    case zvINT32_CLASS: return "int32";
    case zvUINT32_CLASS: return "uint32";
    case zvINT64_CLASS: return "int64";
    case zvUINT64_CLASS: return "uint64";
    default: return "unknown";
  }
}

}  // namespace tiffgate::embedded

using tiffgate::embedded::element_size;

zvArray::zvArray(zvClassID cls, Dims dims, bool zero) : cls_(cls), dims_(std::move(dims)) {
  // Two dimensions at least, trailing singletons beyond the second dropped,
  // as the numerical hosts keep them; no dimensions at all is 0 x 0.
  if (dims_.empty()) dims_ = {0, 0};
  while (dims_.size() < 2) dims_.push_back(1);
  while (dims_.size() > 2 && dims_.back() == 1) dims_.pop_back();
  numel_ = 1;
  for (std::size_t d : dims_) {
    if (d != 0 && numel_ > SIZE_MAX / d) throw std::bad_alloc();
    numel_ *= d;
  }
  allocate(zero);
  if (cls_ == zvCELL_CLASS) cells_.resize(numel_);
}

namespace {

constexpr std::size_t kLine = 64;
constexpr std::size_t kHugePage = std::size_t{2} << 20;
constexpr std::size_t kHugeArray = std::size_t{4} << 20;

/// `bytes` starting on a multiple of `alignment`, from plain malloc with the
/// block's own address stored just before them (see FreeDeleter). Not
/// aligned_alloc: glibc splits what is left over around an aligned block,
/// and arrays of one size made and freed in turn, as a script reading strip
/// after strip makes them, then grow the heap instead of reusing it.
void* aligned_block(std::size_t bytes, std::size_t alignment) {
  const std::size_t extra = alignment + sizeof(void*);
  if (bytes > SIZE_MAX - extra) throw std::bad_alloc();
  void* raw = std::malloc(bytes + extra);
  if (raw == nullptr) throw std::bad_alloc();
  const auto first = (reinterpret_cast<std::uintptr_t>(raw) + sizeof(void*) + alignment - 1) & ~(alignment - 1);
  auto* p = reinterpret_cast<unsigned char*>(first);
  std::memcpy(p - sizeof(void*), &raw, sizeof(void*));
#if defined(__SANITIZE_ADDRESS__)
  // The slack around the array is not array: an access past either end
  // must still be caught by the sanitizer build.
  ASAN_POISON_MEMORY_REGION(raw, static_cast<std::size_t>(p - sizeof(void*) - static_cast<unsigned char*>(raw)));
  ASAN_POISON_MEMORY_REGION(p + bytes, static_cast<unsigned char*>(raw) + bytes + extra - (p + bytes));
#endif
  return p;
}

}  // namespace

void zvArray::FreeDeleter::operator()(void* p) const noexcept {
  void* raw;
  std::memcpy(&raw, static_cast<unsigned char*>(p) - sizeof(void*), sizeof(void*));
  std::free(raw);
}

void zvArray::allocate(bool zero) {
  const std::size_t size = tiffgate::embedded::element_size(cls_);
  if (size == 0 || numel_ == 0) return;
  if (numel_ > SIZE_MAX / size) throw std::bad_alloc();
  const std::size_t bytes = numel_ * size;
  // Arrays start on a cache line, so that the copy kernels' column segments
  // do not straddle lines needlessly. A whole image starts on a huge page
  // and asks for them where the system grants them: a page fault for every
  // 2 MB instead of every 4 KB when it is first written (for a 48 MB image,
  // a third of the time of a threaded read).
  const bool huge = bytes >= kHugeArray;
  void* p = aligned_block(bytes, huge ? kHugePage : kLine);
  if (huge) madvise(p, bytes / kHugePage * kHugePage, MADV_HUGEPAGE);
  if (zero) std::memset(p, 0, bytes);
  data_.reset(static_cast<unsigned char*>(p));
}

zvArray::zvArray(const zvArray& other)
    : cls_(other.cls_),
      dims_(other.dims_),
      numel_(other.numel_),
      cells_(other.cells_),
      field_names_(other.field_names_) {
  allocate(false);
  if (data_) std::memcpy(data_.get(), other.data_.get(), byte_size());
}

zvArray& zvArray::operator=(const zvArray& other) {
  if (this != &other) *this = zvArray(other);
  return *this;
}

zvArray zvArray::scalar(double value) {
  zvArray a(zvDOUBLE_CLASS, {1, 1}, false);
  *a.data_as<double>() = value;
  return a;
}

zvArray zvArray::logical(bool value) {
  zvArray a(zvLOGICAL_CLASS, {1, 1}, false);
  *a.data_as<zvLogical>() = value;
  return a;
}

zvArray zvArray::text(std::string_view utf8) { return text(tiffgate::utf8_to_utf16(utf8)); }

zvArray zvArray::text(std::u16string_view utf16) {
  zvArray a(zvCHAR_CLASS, {utf16.empty() ? 0u : 1u, utf16.size()}, false);
  if (!utf16.empty()) std::memcpy(a.data(), utf16.data(), utf16.size() * sizeof(char16_t));
  return a;
}

zvArray zvArray::uint64(std::uint64_t value) {
  zvArray a(zvUINT64_CLASS, {1, 1}, false);
  *a.data_as<std::uint64_t>() = value;
  return a;
}

zvArray zvArray::row(std::initializer_list<double> values) {
  zvArray a(zvDOUBLE_CLASS, {1, values.size()}, false);
  std::copy(values.begin(), values.end(), a.data_as<double>());
  return a;
}

zvArray zvArray::matrix(std::initializer_list<std::initializer_list<double>> rows) {
  const std::size_t m = rows.size();
  const std::size_t n = m ? rows.begin()->size() : 0;
  zvArray a(zvDOUBLE_CLASS, {m, n});
  std::size_t r = 0;
  for (const auto& row : rows) {
    if (row.size() != n) throw std::invalid_argument("matrix rows differ in length");
    std::size_t c = 0;
    for (double v : row) a.data_as<double>()[c++ * m + r] = v;
    ++r;
  }
  return a;
}

zvArray zvArray::cell(std::vector<zvArray> elements) {
  zvArray a(zvCELL_CLASS, {1, elements.size()});
  a.cells_ = std::move(elements);
  return a;
}

zvArray zvArray::structure(std::vector<std::pair<std::string, zvArray>> fields) {
  zvArray a(zvSTRUCT_CLASS, {1, 1});
  std::vector<std::string> names;
  for (auto& f : fields) names.push_back(f.first);
  a.set_field_names(std::move(names));
  for (std::size_t i = 0; i < fields.size(); ++i) a.cells_[i] = std::move(fields[i].second);
  return a;
}

void zvArray::set_field_names(std::vector<std::string> names) {
  field_names_ = std::move(names);
  cells_.assign(numel_ * field_names_.size(), zvArray());
}

double zvArray::number(std::size_t i) const {
  if (i >= numel_) return 0.0;
  switch (cls_) {
    case zvDOUBLE_CLASS: return at<double>(i);
    case zvSINGLE_CLASS: return at<float>(i);
    case zvLOGICAL_CLASS: return at<zvLogical>(i) ? 1.0 : 0.0;
    case zvCHAR_CLASS: return at<char16_t>(i);
    case zvINT8_CLASS: return at<std::int8_t>(i);
    case zvUINT8_CLASS: return at<std::uint8_t>(i);
    case zvINT16_CLASS: return at<std::int16_t>(i);
    case zvUINT16_CLASS: return at<std::uint16_t>(i);
    case zvINT32_CLASS: return at<std::int32_t>(i);
    case zvUINT32_CLASS: return at<std::uint32_t>(i);
    case zvINT64_CLASS: return static_cast<double>(at<std::int64_t>(i));
    case zvUINT64_CLASS: return static_cast<double>(at<std::uint64_t>(i));
    default: return 0.0;
  }
}

std::u16string zvArray::utf16() const {
  if (cls_ != zvCHAR_CLASS) return {};
  return std::u16string(data_as<char16_t>(), numel_);
}

std::string zvArray::utf8() const {
  if (cls_ != zvCHAR_CLASS) return {};
  return tiffgate::utf16_to_utf8(std::u16string_view(data_as<char16_t>(), numel_));
}

const zvArray* zvArray::field(std::string_view name, std::size_t index) const {
  if (cls_ != zvSTRUCT_CLASS || index >= numel_) return nullptr;
  for (std::size_t f = 0; f < field_names_.size(); ++f)
    if (field_names_[f] == name) return &cells_[index * field_names_.size() + f];
  return nullptr;
}

zvArray* zvArray::field(std::string_view name, std::size_t index) {
  return const_cast<zvArray*>(static_cast<const zvArray&>(*this).field(name, index));
}
