#pragma once
/// The catch-all both Octave adapters put around a module call.

#include "host/msgid.h"
#include "host/octave/adapter.h"

#include <octave/quit.h>  // octave::execution_exception and its kin

#include <exception>
#include <new>

namespace tiffgate::octave_host {

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

}  // namespace tiffgate::octave_host
