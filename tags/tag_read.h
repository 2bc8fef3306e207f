#pragma once
/// Guarded reads of the current directory's tags, shared by the commands
/// that look at tags already set.

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tiffgate {

/// Raises tagRetrievalFailed(name) when a libtiff tag read returned 0.
void checkTagRetrieval(int result, const std::string& name);

/// libtiff knows the tag only from the file itself (an anonymous field):
/// it then takes and hands back the value as a count and a pointer
/// whatever the tag is. Codec tags (Predictor, Group3Options ...) in a file
/// whose compression does not define them become such fields.
bool is_anonymous_field(TIFF* tif, std::uint32_t tag);

/// Raises unableToReadTag(tag) for an anonymous field: reading it with the
/// tag's own argument types would write past them.
void require_known_field(TIFF* tif, std::uint32_t tag);

/// TIFFGetField for a tag whose absence is an error: tagRetrievalFailed(name).
template <class... Destinations>
void get_tag_checked(TIFF* tif, std::uint32_t tag, const std::string& name,
                     Destinations*... destinations) {
  require_known_field(tif, tag);
  checkTagRetrieval(TIFFGetField(tif, tag, destinations...), name);
}

/// A uint16 tag, or libtiff's default for it (TIFFGetFieldDefaulted).
std::uint16_t u16_defaulted(TIFF* tif, std::uint32_t tag);

/// Entries of each ColorMap or TransferFunction table for a BitsPerSample:
/// 1 << bits, the shift count taken modulo 32 as a 32-bit shift (and
/// libtiff's own table length) would.
inline std::uint32_t table_entries(std::uint16_t bits) { return std::uint32_t{1} << (bits % 32u); }

/// The first `wanted` entries of the strip or tile offset and byte-count
/// arrays that libtiff holds, as many of them as exist.
std::uint64_t strile_entries_held(TIFF* tif, std::uint64_t wanted);

/// The `inks` names of an InkNames buffer that holds `names_held`
/// NUL-terminated names back to back: the names that are there, then empty
/// texts. Nothing past the last held name is read.
std::vector<std::string> split_ink_names(const char* buffer, std::size_t names_held,
                                         std::size_t inks);

}  // namespace tiffgate
