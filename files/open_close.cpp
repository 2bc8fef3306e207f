#include "files/files.h"
#include "core/convert.h"
#include "core/errors.h"
#include "files/commands.h"
#include "core/text.h"

#include <tiffio.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <string>

namespace tiffgate {

FileRegistry& open_file_registry() {
  static FileRegistry registry;
  return registry;
}

namespace {
/// The mode each open handle was opened with: a whole-image read opens the
/// file again the same way (strip chopping depends on it).
std::map<TIFF*, std::string>& open_modes() {
  static std::map<TIFF*, std::string> modes;
  return modes;
}
}  // namespace

std::string open_mode(TIFF* handle) {
  const auto it = open_modes().find(handle);
  return it == open_modes().end() ? std::string() : it->second;
}

// Identifiers are not the handles' addresses, and every command checks them
// against the registry before libtiff sees anything. A file's identifier used
// after "close" would otherwise hand libtiff freed memory, or name whatever
// file later got the same address, and take the host process down. This goes
// further than checking only the directory commands' identifiers, on purpose.
//
// Each identifier is above the one before and at least the monotonic clock
// in nanoseconds: a module unloaded and loaded again starts from the clock,
// past every identifier its earlier life issued, so no identifier is ever
// issued twice in a process.
zvArray* register_file(TIFF* handle) {
  static std::uint64_t last = 0;
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  const auto clock = static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
  const std::size_t dims[2] = {1, 1};
  zvArray* id = zvCreateUninitNumericArray(2, dims, zvUINT64_CLASS);
  last = std::max(last + 1, clock);
  *static_cast<std::uint64_t*>(zvGetData(id)) = last;
  open_file_registry().emplace(last, handle);
  return id;
}

namespace {

/// The registered handle an identifier names, or null. badFileId for 0,
/// whatever its class: an empty, text or zero operand is the same slip.
TIFF* lookup(const zvArray* id) {
  if (zvGetNumberOfElements(id) == 0) raise(Tiff::badFileId());
  const bool identifier = zvGetClassID(id) == zvUINT64_CLASS && zvGetNumberOfElements(id) == 1;
  const std::uint64_t value = identifier ? *static_cast<const std::uint64_t*>(zvGetData(id))
                                         : convert<std::uint64_t>(element_as_double(id, 0));
  if (value == 0) raise(Tiff::badFileId());
  return identifier ? registered_handle(value) : nullptr;
}

}  // namespace

TIFF* registered_handle(std::uint64_t id) {
  const auto it = open_file_registry().find(id);
  return it == open_file_registry().end() ? nullptr : it->second;
}

TIFF* open_file(const zvArray* id) {
  TIFF* handle = lookup(id);
  if (handle == nullptr) raise(Tiff::invalidFileId());
  return handle;
}

TIFF* open_file_or_null(const zvArray* id) { return lookup(id); }

void close_file(TIFF* handle) {
  auto& registry = open_file_registry();
  for (auto it = registry.begin(); it != registry.end(); ++it) {
    if (it->second == handle) {
      registry.erase(it);
      break;
    }
  }
  open_modes().erase(handle);
  TIFFClose(handle);
}

void close_files_at_exit() {
  auto& registry = open_file_registry();
  if (registry.empty()) return;
  for (const auto& [id, handle] : registry) {
    const char* name = TIFFFileName(handle);
    warn(Tiff::closingFileHandle(name ? name : ""));
    TIFFClose(handle);
  }
  // The handles are dead now; forgetting them keeps a host that loads the
  // module again from closing them twice.
  registry.clear();
  open_modes().clear();
}

void handle_open(zvArray* outputs[], int, const zvArray* operands[], TIFF*) {
  if (zvGetClassID(operands[0]) != zvCHAR_CLASS) raise(Tiff::argumentWasNotChar("file"));
  if (zvGetClassID(operands[1]) != zvCHAR_CLASS) raise(Tiff::argumentWasNotChar("access mode"));
  const std::u16string name = zvArrayToUtf16(operands[0]);
  const std::string mode = zvArrayToNarrow(operands[1]);
  installTagExtender();
  // Linux file names are bytes; UTF-8 is the file system's narrow form.
  const std::string path = utf16_to_utf8(name);
  // A NUL cannot be part of a file name; passed on, it would cut the name
  // short and open whatever file the part before it names.
  if (path.find('\0') != std::string::npos) raise(Tiff::unableToOpenFile(name));
  TIFF* handle = TIFFOpen(path.c_str(), mode.c_str());
  if (handle == nullptr) raise(Tiff::unableToOpenFile(name));
  outputs[0] = register_file(handle);
  open_modes()[handle] = mode;
}

// Already closed or never ours: the dispatcher hands a null handle, and
// nothing is done.
void handle_close(zvArray*[], int, const zvArray*[], TIFF* tif) {
  if (tif != nullptr) close_file(tif);
}

}  // namespace tiffgate
