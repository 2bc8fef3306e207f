#include "tags/tag_read.h"

#include "core/errors.h"

#include <algorithm>
#include <limits>

namespace tiffgate {

void checkTagRetrieval(int result, const std::string& name) {
  if (result == 0) raise(Tiff::tagRetrievalFailed(name));
}

bool is_anonymous_field(TIFF* tif, std::uint32_t tag) {
  const TIFFField* field = TIFFFindField(tif, tag, TIFF_ANY);
  return field != nullptr && TIFFFieldIsAnonymous(field);
}

void require_known_field(TIFF* tif, std::uint32_t tag) {
  if (is_anonymous_field(tif, tag)) raise(Tiff::unableToReadTag(static_cast<detail::Int>(tag)));
}

std::uint16_t u16_defaulted(TIFF* tif, std::uint32_t tag) {
  std::uint16_t value = 0;
  TIFFGetFieldDefaulted(tif, tag, &value);
  return value;
}

std::uint64_t strile_entries_held(TIFF* tif, std::uint64_t wanted) {
  // libtiff's counts (strips, tiles) follow the image dimensions, which can
  // change after the arrays were sized; the arrays' own length is only
  // known to the per-entry accessor, which reports an index past it.
  // Bisect for that length: `held` entries are known to exist, and no more
  // than `most`.
  std::uint64_t held = 0;
  std::uint64_t most = std::min<std::uint64_t>(wanted, std::numeric_limits<std::uint32_t>::max());
  while (held < most) {
    const std::uint64_t count = held + (most - held + 1) / 2;
    int error = 0;
    TIFFGetStrileOffsetWithErr(tif, static_cast<std::uint32_t>(count - 1), &error);
    if (error)
      most = count - 1;
    else
      held = count;
  }
  return held;
}

std::vector<std::string> split_ink_names(const char* buffer, std::size_t names_held,
                                         std::size_t inks) {
  std::vector<std::string> names(inks);
  const char* name = buffer;
  for (std::size_t i = 0; i < std::min(inks, names_held) && name != nullptr; ++i) {
    names[i] = name;
    name += names[i].size() + 1;
  }
  return names;
}

}  // namespace tiffgate
