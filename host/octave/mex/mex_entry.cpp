// Octave's entry into the module: mexFunction forwards to zulFunction and is
// the one place where C++ exceptions meet Octave. Nothing foreign may leave
// it: Octave takes its own exceptions and nothing else.

#include "host/host.h"
#include "host/msgid.h"
#include "host/octave/guard.h"
#include "host/octave/mex/mex_host.h"

#include <octave/quit.h>  // octave::execution_exception and its kin

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

namespace tiffgate::octave_host {
namespace {

/// The inputs as the module may see them: sparse arrays made full (their
/// data holds only the nonzeros, fewer than their element count says),
/// complex values refused (the module has no use for an imaginary part).
std::vector<const zvArray*> module_inputs(int nrhs, const mxArray* prhs[]) {
  std::vector<const zvArray*> inputs;
  inputs.reserve(static_cast<std::size_t>(std::max(nrhs, 0)));
  for (int i = 0; i < nrhs; ++i) {
    const mxArray* input = prhs[i];
    if (mxIsComplex(input))
      throw complex_operand(i);
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

}  // namespace

}  // namespace tiffgate::octave_host

void zulAtExit(void (*function)()) {
  tiffgate::octave_host::add_at_exit(function);
  // Octave keeps one exit function per MEX file; ours runs the whole list.
  mexAtExit(tiffgate::octave_host::run_at_exit);
}

void mexFunction(int nlhs, mxArray* plhs[], int nrhs, const mxArray* prhs[]) {
  using namespace tiffgate::octave_host;
  FailureText failure;
  if (guarded([&] { call_module(nlhs, plhs, nrhs, prhs); }, failure)) return;
  // Reported here, outside the handlers: the exception and everything the
  // module owned are gone by now.
  report_error(failure.identifier, failure.message);
}
