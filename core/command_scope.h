#pragma once
/// What every command runs inside, whether it comes through zulFunction or
/// an internal entry of a host: libtiff's messages are collected, a number
/// the converters cannot represent is the caller's argumentOutOfBounds, and
/// after success libtiff's messages are shown as warnings.

#include "core/errors.h"
#include "core/libtiff_messages.h"

#include <boost/numeric/conversion/converter.hpp>
#include <tiffio.h>

namespace tiffgate {

template <class Body>
void as_command(Body&& body) {
  TIFFSetErrorHandler(ZKTIFFerrHandler);
  TIFFSetWarningHandler(ZKTIFFwarnHandler);
  ZKTIFFinitializeErrorStack();
  try {
    body();
  } catch (const boost::numeric::bad_numeric_cast&) {
    raise(validate::argumentOutOfBounds());
  }
  ZKTIFFcheckErrorAsWarning();
}

}  // namespace tiffgate
