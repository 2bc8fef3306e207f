#include "fuzz/driver/arrays.h"

#include "fuzz/driver/program.h"

#include <algorithm>  // std::max_element
#include <cstring>
#include <iterator>
#include <limits>

namespace tiffgate::fuzz {

void set_small(Array& a, std::size_t i, std::uint8_t v) {
  switch (a.class_id()) {
    case zvLOGICAL_CLASS: store<zvLogical>(a, i, (v & 1) != 0); break;
    case zvCHAR_CLASS: store<char16_t>(a, i, static_cast<char16_t>(0x20 + v % 95)); break;
    case zvDOUBLE_CLASS: store<double>(a, i, v); break;
    case zvSINGLE_CLASS: store<float>(a, i, v); break;
    case zvINT8_CLASS: store<std::int8_t>(a, i, static_cast<std::int8_t>(v)); break;
    case zvUINT8_CLASS: store<std::uint8_t>(a, i, v); break;
    case zvINT16_CLASS: store<std::int16_t>(a, i, v); break;
    case zvUINT16_CLASS: store<std::uint16_t>(a, i, v); break;
    case zvINT32_CLASS: store<std::int32_t>(a, i, v); break;
    case zvUINT32_CLASS: store<std::uint32_t>(a, i, v); break;
    case zvINT64_CLASS: store<std::int64_t>(a, i, v); break;
    case zvUINT64_CLASS: store<std::uint64_t>(a, i, v); break;
    default: break;
  }
}

Array shaped(zvClassID cls, Array::Dims dims) {
  const std::size_t cap = cls == zvCELL_CLASS || cls == zvSTRUCT_CLASS ? kMaxCells : kMaxElements;
  const auto count = [&] {
    std::size_t n = 1;
    for (std::size_t d : dims) n = d == 0 ? 0 : (n > cap ? n : n * d);
    return n;
  };
  while (count() > cap) *std::max_element(dims.begin(), dims.end()) = 1;
  return Array(cls, std::move(dims));
}

void fill_specials(Array& a) {
  static constexpr float kFloats[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                                      -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::max(),
                                      -0.0f, std::numeric_limits<float>::denorm_min()};
  static constexpr zvLogical kLogicals[] = {true, false};
  static constexpr char16_t kUnits[] = {0xD800, 0xDFFF, 0xFFFF, 0, u'+'};
  static constexpr std::uint8_t kBytes[] = {0xFF, 0x80, 0x7F, 0x00, 0x01};
  switch (a.class_id()) {
    case zvDOUBLE_CLASS: cycle(a, program::kSpecials); break;
    case zvSINGLE_CLASS: cycle(a, kFloats); break;
    case zvLOGICAL_CLASS: cycle(a, kLogicals); break;
    case zvCHAR_CLASS: cycle(a, kUnits); break;
    default:
      // Every byte of an integer alike: 0xFF.. is -1 or the greatest
      // unsigned value, 0x80.. the least signed one, and so on.
      for (std::size_t i = 0; i < a.numel(); ++i)
        std::memset(static_cast<std::uint8_t*>(a.data()) + i * a.element_size(), kBytes[i % std::size(kBytes)],
                    a.element_size());
  }
}


}  // namespace tiffgate::fuzz
