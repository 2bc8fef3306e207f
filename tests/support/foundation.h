#pragma once
/// Test support for the gateway, file and directory tests: identifiers as
/// the host sees them, the handle behind a file identifier, raw file bytes,
/// and files with a particular quirk, all written with libtiff directly.

#include "host/embedded/session.h"
#include "core/msgid.h"
#include "support/tiff_files.h"

#include <tiffio.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tiffgate::testing {

/// "Quarn:imagesci:validate:<name>".
inline std::string validate_id(const std::string& name) { return "Quarn:imagesci:validate:" + name; }

/// What a direct (handler-free) call raised: its identifier and arguments;
/// an empty identifier when it raised nothing.
struct Raised {
  std::string id;
  std::vector<Quarn::MsgArg> arguments;
};
template <class F>
Raised raised(F&& f) {
  try {
    f();
  } catch (const Quarn::IMsgIDException& e) {
    return {e.GetID(), e.GetBaseMsgIDObj().arguments()};
  }
  return {};
}

std::vector<unsigned char> file_bytes(const std::string& path);
void write_file_bytes(const std::string& path, const std::vector<unsigned char>& bytes);

/// Where the 12-byte entry of `tag` starts in the first directory of a
/// classic little-endian TIFF file's bytes (what libtiff writes on this
/// machine). Throws when the bytes are not such a file or lack the entry.
std::size_t first_ifd_entry(const std::vector<unsigned char>& bytes, std::uint16_t tag);

/// A file of `count` stripped 8 x 2 grey directories in which directory
/// `tagged` (0-based) also carries private tag 65000, which no reader knows.
void write_file_with_private_tag(const std::string& path, int count, int tagged);

/// Rewrites the value of the first directory's SubIFD entry (a classic,
/// little-endian file with one SubIFD, as libtiff writes it here).
void patch_first_subifd(const std::string& path, std::uint32_t offset);

/// Points the descriptor under a libtiff handle at a read-only descriptor of
/// the same file, so that libtiff's next write fails.
void make_writes_fail(TIFF* tif, const std::string& path);

}  // namespace tiffgate::testing
