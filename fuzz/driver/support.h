#pragma once
/// What both drivers share: a scratch directory, the corpus, a checked
/// gateway call, and the budget that keeps one input's work bounded.

#include "fuzz/driver/drivers.h"
#include "files/files.h"
#include "host/embedded/session.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

typedef struct tiff TIFF;

namespace tiffgate::fuzz {

using embedded::Array;
using embedded::CallResult;

/// A directory of this process's own under the temporary directory,
/// created on first use and removed with its files at exit.
const std::string& scratch_dir();
/// The corpus of real files: $TIFFGATE_CORPUS, else ../shared/corpus
/// beside the sources.
std::string corpus_dir();

/// The libtiff handle an identifier names while its file is open, else null.
inline TIFF* handle_of(const Array& id) { return registered_handle(id.at<std::uint64_t>(0)); }

/// An operand in one line: class, extents and the first few values.
std::string describe(const Array& a);

/// Gateway calls with the checks that hold after any call, whatever the
/// operands: an error is a kind of the catalogue, never a foreign
/// exception; "open" yields a registered identifier never issued before;
/// an identifier that names no open file is refused (badFileId,
/// invalidFileId, argumentOutOfBounds for a number no identifier can be;
/// "close" may succeed) and leaves every open file as it was. Every
/// identifier opened is kept, and finish() closes them all and checks the
/// registry.
/// With TIFFGATE_FUZZ_TRACE set, every call and its outcome go to stderr.
class Session {
 public:
  explicit Session(RunReport& report) : report_(report) {}
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  CallResult call(std::string_view word, std::vector<Array> operands, int nOutputs = 1);
  /// The raw form: the command word, if any, is among the inputs.
  CallResult call_inputs(const std::vector<Array>& inputs, int nOutputs = 1);

  /// Every identifier "open" returned during this input, in order.
  const std::vector<Array>& opened() const { return opened_; }

  void skip() { ++report_.skipped; }
  void step() { ++report_.steps; }
  void problem(std::string text) { report_.problems.push_back(std::move(text)); }

  /// Closes every identifier opened; then nothing may be left in the
  /// registry, and a registry-checked command must refuse every one of them.
  void finish();

 private:
  void check(std::string_view word, const CallResult& result);

  RunReport& report_;
  std::vector<Array> opened_;
};

/// The buffers a data command makes the module allocate for the current
/// directory, sized as libtiff sizes them.
enum class Demand { Strip, Tile, RgbaImage, RgbaStrip, RgbaTile, Image };
std::uint64_t demand_bytes(TIFF* tif, Demand what);

/// Bytes of chunk buffers and rasters one input may have the module (and
/// libtiff under it) allocate. A file can claim strips of any size (the
/// corpus has one of 171 GB). The module refuses only what exceeds the
/// machine's memory, far above what a fuzzing run may use, so the drivers
/// leave larger calls out: a run measures the module, not the machine. The limits take every valid corpus
/// file but the largest scanned pages whole, and keep an input under about
/// a second under the sanitizers.
class Budget {
 public:
  static constexpr std::uint64_t kPerCall = 32u << 20;
  static constexpr std::uint64_t kPerInput = 128u << 20;

  /// Whether a call needing these bytes fits; if so, they are spent.
  bool take(std::uint64_t bytes) {
    if (bytes > kPerCall || bytes > left_) return false;
    left_ -= bytes;
    return true;
  }

 private:
  std::uint64_t left_ = kPerInput;
};

}  // namespace tiffgate::fuzz
