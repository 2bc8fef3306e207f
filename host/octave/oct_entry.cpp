// Octave's entry into the module: the function tiffgate
// forwards to zulFunction and is the one place where C++ exceptions meet
// Octave. Nothing foreign may leave it: Octave takes its own exceptions and
// nothing else.
//
// The function object is our own subclass of Octave's, so that the at-exit
// list runs when Octave clears the function or exits.

#include "core/host.h"
#include "core/msgid.h"
#include "host/octave/adapter.h"
#include "host/octave/oct_array.h"

#include <octave/defun-dld.h>
#include <octave/ov-dld-fcn.h>
#include <octave/quit.h>  // octave::execution_exception and its kin

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <new>
#include <string>
#include <vector>

namespace tiffgate::octave_host {
namespace {

/// Copies text into a fixed buffer, cut to fit: the buffer must outlive the
/// exception the text came from, and must need no destructor, because
/// Octave's error routine does not return.
template <std::size_t N>
void copy_text(char (&buffer)[N], const char* text) {
  std::snprintf(buffer, N, "%s", text ? text : "");
}

/// A failure's identifier and text, in fixed buffers: they outlive the
/// exception and need no destructor when Octave's error routine leaves.
struct FailureText {
  char identifier[128] = "";
  char message[4096] = "";
};

/// Runs `body`. Octave's own exceptions (an error, Ctrl-C, exit) pass
/// through; any other failure is written to `failure` and false returned,
/// for the caller to report once every handler has unwound.
template <class Body>
bool guarded(Body&& body, FailureText& failure) {
  try {
    body();
    return true;
  } catch (const octave::execution_exception&) {
    throw;  // Octave's own error (a warning made an error, out of memory, ...)
  } catch (const octave::interrupt_exception&) {
    throw;
  } catch (const octave::exit_exception&) {
    throw;
  } catch (const Quarn::IMsgIDException& error) {
    copy_text(failure.identifier, error.GetID());
    // Every carrier is also a std::exception whose what() is the rendered text.
    const auto* standard = dynamic_cast<const std::exception*>(&error);
    copy_text(failure.message, standard ? standard->what() : "");
  } catch (const OperandError& error) {
    copy_text(failure.identifier, error.identifier);
    copy_text(failure.message, error.message.c_str());
  } catch (const std::bad_alloc&) {
    copy_text(failure.identifier, kOutOfMemoryId);
    copy_text(failure.message, "Out of memory.");
  } catch (const std::exception& error) {
    copy_text(failure.identifier, kInternalErrorId);
    copy_text(failure.message, error.what());
  } catch (...) {
    copy_text(failure.identifier, kInternalErrorId);
    copy_text(failure.message, "An unknown exception reached the host.");
  }
  return false;
}


/// Releases every array of the call when it ends, error or not; a call
/// made from inside another (none today) leaves the outer call's arrays.
class CallScope {
 public:
  CallScope() : mark_(arena().mark()) {}
  ~CallScope() { arena().release_to(mark_); }
  CallScope(const CallScope&) = delete;
  CallScope& operator=(const CallScope&) = delete;

 private:
  std::size_t mark_;
};

octave_value_list call_module(const octave_value_list& args, int nargout) {
  CallScope scope;
  const int nargin = args.length();
  // Complex values are refused before anything runs (the module has no use
  // for an imaginary part).
  for (int i = 0; i < nargin; ++i)
    if (args(i).iscomplex()) throw complex_operand(i);

  std::vector<const zvArray*> inputs;
  inputs.reserve(static_cast<std::size_t>(nargin));
  for (int i = 0; i < nargin; ++i) inputs.push_back(wrap_operand(args(i)));
  // Three slots at least: every handler stores into slot 0 and the YCbCr
  // reads fill 0 to 2, whatever Octave asked for.
  std::vector<zvArray*> slots(static_cast<std::size_t>(std::max(nargout, 3)), nullptr);
  zulFunction(nargout, slots.data(), nargin, inputs.data());
  const int kept = std::max(nargout, 1);  // Octave always has room for "ans"
  octave_value_list out;
  for (int i = 0; i < kept && slots[static_cast<std::size_t>(i)] != nullptr; ++i)
    out(i) = value_of(slots[static_cast<std::size_t>(i)]);
  return out;
}

octave_value_list tiffgate_entry(const octave_value_list& args, int nargout) {
  octave_value_list out;
  FailureText failure;
  if (guarded([&] { out = call_module(args, nargout); }, failure)) return out;
  // Reported here, outside the handlers: the exception and everything the
  // module owned are gone by now.
  report_error(failure.identifier, failure.message);
}

/// The first block of "##" lines of the file, without the leaders: the
/// help text of tiffgate.m.
std::string help_of(const std::string& file) {
  std::ifstream in(file);
  std::string help, line;
  while (std::getline(in, line) && line.compare(0, 2, "##") == 0)
    help += line.substr(line.compare(0, 3, "## ") == 0 ? 3 : 2) + "\n";
  return help;
}

/// Octave's function object for tiffgate. Octave destroys it when it clears
/// the function ('clear tiffgate', 'clear all') and when it exits: the
/// at-exit list runs then, while Octave can still show its warnings. Its
/// help is that of tiffgate.m beside the oct-file, read when first asked
/// for (Octave asks the function object, and never the file, for an
/// oct-file's help).
class TiffgateFunction final : public octave_dld_function {
 public:
  using octave_dld_function::octave_dld_function;
  ~TiffgateFunction() override { run_at_exit(); }

  std::string doc_string(const std::string& = "") const override {
    if (!help_read_) {
      std::string file = get_shlib().file_name();
      file = file.substr(0, file.rfind('.')) + ".m";
      help_ = help_of(file);
      help_read_ = true;
    }
    return help_;
  }

 private:
  mutable std::string help_;
  mutable bool help_read_ = false;
};

}  // namespace
}  // namespace tiffgate::octave_host

void zulAtExit(void (*function)()) { tiffgate::octave_host::add_at_exit(function); }

// What DEFUN_DLD would write, but for the function object's class. Octave
// looks the installer up by this name when it loads tiffgate.oct.
extern "C" OCTAVE_EXPORT octave_function* Gtiffgate(const octave::dynamic_library& library, bool relative) {
  check_version(OCTAVE_API_VERSION, "tiffgate");
  auto* function = new tiffgate::octave_host::TiffgateFunction(tiffgate::octave_host::tiffgate_entry, library,
                                                               "tiffgate", "");
  if (relative) function->mark_relative();
  return function;
}
