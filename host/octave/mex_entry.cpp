// Octave's entry into the module: mexFunction forwards to zulFunction and is
// the one place where C++ exceptions meet Octave. Nothing foreign may leave
// it: Octave takes its own exceptions and nothing else.

#include "host/host.h"
#include "host/msgid.h"
#include "host/octave/octave_host.h"

#include <octave/quit.h>  // octave::execution_exception and its kin

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

namespace tiffgate::octave_host {
namespace {

/// Identifiers of the failures that are not the module's kinds.
constexpr const char* kOutOfMemoryId = "tiffgate:outOfMemory";
constexpr const char* kInternalErrorId = "tiffgate:internalError";
constexpr const char* kComplexOperandId = "tiffgate:complexOperand";

/// A failure found by the adapter itself, before the module is called.
struct OperandError {
  const char* identifier;
  std::string message;
};

struct AtExitState {
  std::vector<void (*)()> functions;
  bool running = false;
};

AtExitState& at_exit_state() {
  static AtExitState state;
  return state;
}

/// The inputs as the module may see them: sparse arrays made full (their
/// data holds only the nonzeros, fewer than their element count says),
/// complex values refused (the module has no use for an imaginary part).
std::vector<const zvArray*> module_inputs(int nrhs, const mxArray* prhs[]) {
  std::vector<const zvArray*> inputs;
  inputs.reserve(static_cast<std::size_t>(std::max(nrhs, 0)));
  for (int i = 0; i < nrhs; ++i) {
    const mxArray* input = prhs[i];
    if (mxIsComplex(input))
      throw OperandError{kComplexOperandId, "Argument " + std::to_string(i + 1) +
                                                " is complex; tiffgate takes real values only."};
    inputs.push_back(zv(full_of(input)));
  }
  return inputs;
}

void call_module(int nlhs, mxArray* plhs[], int nrhs, const mxArray* prhs[]) {
  std::vector<const zvArray*> inputs = module_inputs(nrhs, prhs);
  // Three slots at least: every handler stores into slot 0 and the YCbCr
  // reads fill 0 to 2, whatever Octave asked for. Slots not handed back are
  // released by Octave when the call ends.
  std::vector<zvArray*> slots(static_cast<std::size_t>(std::max(nlhs, 3)), nullptr);
  zulFunction(nlhs, slots.data(), nrhs, inputs.data());
  const int kept = std::max(nlhs, 1);  // Octave always has room for "ans"
  for (int i = 0; i < kept; ++i) plhs[i] = mx(slots[static_cast<std::size_t>(i)]);
}

/// Copies text into a fixed buffer, cut to fit: the buffer must outlive the
/// exception the text came from, and must need no destructor, because
/// Octave's error routine does not return.
template <std::size_t N>
void copy_text(char (&buffer)[N], const char* text) {
  std::snprintf(buffer, N, "%s", text ? text : "");
}

}  // namespace

void issue_warning(const char* identifier, const std::string& message) {
  if (!at_exit_state().running) {
    report_warning(identifier, message.c_str());
    return;
  }
  try {
    report_warning(identifier, message.c_str());
  } catch (...) {
    // warning('error', ...) made this an error; the closer must still go on.
  }
}

void run_at_exit() {
  AtExitState& state = at_exit_state();
  std::vector<void (*)()> functions;
  functions.swap(state.functions);
  state.running = true;
  for (auto* function : functions) {
    try {
      function();
    } catch (...) {
      // Octave is unloading the file: there is nobody left to report to.
    }
  }
  state.running = false;
}

}  // namespace tiffgate::octave_host

void zulAtExit(void (*function)()) {
  auto& functions = tiffgate::octave_host::at_exit_state().functions;
  if (std::find(functions.begin(), functions.end(), function) == functions.end())
    functions.push_back(function);
  // Octave keeps one exit function per MEX file; ours runs the whole list.
  mexAtExit(tiffgate::octave_host::run_at_exit);
}

void mexFunction(int nlhs, mxArray* plhs[], int nrhs, const mxArray* prhs[]) {
  using namespace tiffgate::octave_host;
  char identifier[128] = "";
  char message[4096] = "";
  try {
    call_module(nlhs, plhs, nrhs, prhs);
    return;
  } catch (const octave::execution_exception&) {
    throw;  // Octave's own error (a warning made an error, out of memory, ...)
  } catch (const octave::interrupt_exception&) {
    throw;
  } catch (const octave::exit_exception&) {
    throw;
  } catch (const Quarn::IMsgIDException& error) {
    copy_text(identifier, error.GetID());
    // Every carrier is also a std::exception whose what() is the rendered text.
    const auto* standard = dynamic_cast<const std::exception*>(&error);
    copy_text(message, standard ? standard->what() : "");
  } catch (const OperandError& error) {
    copy_text(identifier, error.identifier);
    copy_text(message, error.message.c_str());
  } catch (const std::bad_alloc&) {
    copy_text(identifier, kOutOfMemoryId);
    copy_text(message, "Out of memory.");
  } catch (const std::exception& error) {
    copy_text(identifier, kInternalErrorId);
    copy_text(message, error.what());
  } catch (...) {
    copy_text(identifier, kInternalErrorId);
    copy_text(message, "An unknown exception reached the host.");
  }
  // Reported here, outside the handlers: the exception and everything the
  // module owned are gone by now.
  report_error(identifier, message);
}
