#include "core/text.h"

#include <cstdint>

namespace tiffgate {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void append_utf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

void append_utf16(std::u16string& out, char32_t c) {
  if (c < 0x10000) {
    out += static_cast<char16_t>(c);
  } else {
    c -= 0x10000;
    out += static_cast<char16_t>(0xD800 + (c >> 10));
    out += static_cast<char16_t>(0xDC00 + (c & 0x3FF));
  }
}

}  // namespace

std::string utf16_to_utf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    } else if (c >= 0xD800 && c < 0xE000) {
      c = kReplacement;
    }
    append_utf8(out, c);
  }
  return out;
}

std::u16string utf8_to_utf16(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  std::size_t i = 0;
  while (i < text.size()) {
    const auto b = static_cast<std::uint8_t>(text[i]);
    std::size_t extra = 0;
    char32_t c = 0;
    char32_t least = 0;
    if (b < 0x80) {
      c = b;
    } else if ((b & 0xE0) == 0xC0) {
      extra = 1, c = b & 0x1F, least = 0x80;
    } else if ((b & 0xF0) == 0xE0) {
      extra = 2, c = b & 0x0F, least = 0x800;
    } else if ((b & 0xF8) == 0xF0) {
      extra = 3, c = b & 0x07, least = 0x10000;
    } else {
      append_utf16(out, b);  // a stray byte: see below
      ++i;
      continue;
    }
    bool ok = i + extra < text.size();
    for (std::size_t k = 1; ok && k <= extra; ++k) {
      const auto t = static_cast<std::uint8_t>(text[i + k]);
      if ((t & 0xC0) != 0x80) ok = false;
      else c = (c << 6) | (t & 0x3F);
    }
    // Text read from a file may be in another 8-bit encoding (Latin-1, Mac
    // Roman, ...): a byte that begins no well-formed sequence stands for the
    // character of its own code, so that nothing of it is lost.
    if (!ok || c < least || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) {
      append_utf16(out, b);
      ++i;
      continue;
    }
    append_utf16(out, c);
    i += extra + 1;
  }
  return out;
}

}  // namespace tiffgate
