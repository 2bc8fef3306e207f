#include "core/libtiff_messages.h"

#include "core/host.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

using Recorded = tiffgate::LibtiffMessages::Message;

// A malformed file can make libtiff complain once per strip; past this many
// messages in one call the rest are counted, not kept.
constexpr std::size_t kMaxRecorded = 64;

// One record per thread: the threads of a whole-image read each capture
// what libtiff says about their own handle.
std::vector<Recorded>& record() {
  thread_local std::vector<Recorded> messages;
  return messages;
}
std::size_t& dropped() {
  thread_local std::size_t count = 0;
  return count;
}

void keep(bool is_error, const char* module, const char* format, va_list arguments) {
  if (record().size() >= kMaxRecorded) {
    ++dropped();
    return;
  }
  char buffer[1024];
  std::vsnprintf(buffer, sizeof buffer, format ? format : "", arguments);
  std::string text = module && *module ? std::string(module) + ": " + buffer : std::string(buffer);
  record().push_back({is_error, std::move(text)});
}

}  // namespace

extern "C" void ZKTIFFerrHandler(const char* module, const char* format, va_list arguments) {
  keep(true, module, format, arguments);
}

extern "C" void ZKTIFFwarnHandler(const char* module, const char* format, va_list arguments) {
  keep(false, module, format, arguments);
}

void ZKTIFFinitializeErrorStack() {
  record().clear();
  dropped() = 0;
}

void ZKTIFFcheckErrorAsWarning() {
  // Move the record out first: a host warning may re-enter the module.
  std::vector<Recorded> messages;
  messages.swap(record());
  const std::size_t more = dropped();
  dropped() = 0;
  for (const Recorded& m : messages)
    zvWarning(m.is_error ? tiffgate::kLibtiffErrorId : tiffgate::kLibtiffWarningId, m.text);
  if (more > 0)
    zvWarning(tiffgate::kLibtiffWarningId, std::to_string(more) + " more libtiff messages were not kept");
}

namespace tiffgate {

LibtiffMessages take_libtiff_messages() {
  LibtiffMessages taken;
  taken.kept.swap(record());
  taken.dropped = dropped();
  dropped() = 0;
  return taken;
}

void add_libtiff_messages(LibtiffMessages&& messages) {
  for (Recorded& m : messages.kept) {
    if (record().size() >= kMaxRecorded)
      ++dropped();
    else
      record().push_back(std::move(m));
  }
  dropped() += messages.dropped;
}

}  // namespace tiffgate
