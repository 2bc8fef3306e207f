#pragma once
/// UTF-8 and UTF-16 conversions shared by the module and its hosts.

#include <string>
#include <string_view>

namespace tiffgate {

/// UTF-16 to UTF-8; an unpaired surrogate becomes U+FFFD.
std::string utf16_to_utf8(std::u16string_view text);
/// UTF-8 to UTF-16; a byte that begins no well-formed sequence becomes the
/// character of the same code (read as Latin-1).
std::u16string utf8_to_utf16(std::string_view text);

}  // namespace tiffgate
