#include "files/files.h"
#include "gateway/convert.h"
#include "gateway/errors.h"
#include "gateway/handlers.h"
#include "gateway/text.h"

#include <tiffio.h>

#include <string>

namespace tiffgate {

std::set<TIFF*>& open_file_registry() {
  static std::set<TIFF*> registry;
  return registry;
}

TIFF* basic_file_id(const zvArray* id) {
  std::uint64_t value = 0;
  if (zvGetNumberOfElements(id) > 0) {
    // The identifier is meant to be uint64; any other class is read by
    // value, so that an empty, text or zero operand is a clean badFileId.
    value = zvGetClassID(id) == zvUINT64_CLASS ? *static_cast<const std::uint64_t*>(zvGetData(id))
                                               : convert<std::uint64_t>(element_as_double(id, 0));
  }
  if (value == 0) raise(Tiff::badFileId());
  return reinterpret_cast<TIFF*>(static_cast<std::uintptr_t>(value));
}

TIFF* registered_file_id(const zvArray* id, const CommandEntry& entry) {
  TIFF* handle = basic_file_id(id);
  if (entry.code != 0 && open_file_registry().count(handle) == 0) raise(Tiff::invalidFileId());
  return handle;
}

zvArray* make_file_id(TIFF* handle) {
  const std::size_t dims[2] = {1, 1};
  zvArray* id = zvCreateUninitNumericArray(2, dims, zvUINT64_CLASS);
  *static_cast<std::uint64_t*>(zvGetData(id)) = reinterpret_cast<std::uintptr_t>(handle);
  return id;
}

void close_files_at_exit() {
  auto& registry = open_file_registry();
  if (registry.empty()) return;
  for (TIFF* handle : registry) {
    const char* name = TIFFFileName(handle);
    warn(Tiff::closingFileHandle(name ? name : ""));
    TIFFClose(handle);
  }
  // The handles are dead now; forgetting them keeps a host that loads the
  // module again from closing them twice.
  registry.clear();
}

TG_HANDLER(handle_open) {
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
  open_file_registry().insert(handle);
  outputs[0] = make_file_id(handle);
}

TG_HANDLER(handle_close) {
  TIFF* handle = registered_file_id(operands[0], entry);
  auto& registry = open_file_registry();
  const auto it = registry.find(handle);
  if (it == registry.end()) return;  // already closed or never ours: nothing to do
  TIFFClose(handle);
  registry.erase(it);
}

}  // namespace tiffgate
