#pragma once
/// Tag number to tag name: the universe of tags the tag commands consider.

#include <cstdint>
#include <map>
#include <string>

namespace tiffgate {

/// The table of known tags, built once on first use.
const std::map<std::uint32_t, std::string>& TagNameTable();

/// The name of tag; raises unrecognizedTagNumber for a number not in the table.
std::string tagName(std::uint32_t tag);

}  // namespace tiffgate
