#pragma once
/// What every command runs inside, whether it comes through zulFunction or
/// an internal entry of a host: libtiff's messages are collected, a number
/// the converters cannot represent is the caller's argumentOutOfBounds, and
/// after success libtiff's messages are shown as warnings.

#include "core/errors.h"
#include "core/host.h"
#include "core/libtiff_messages.h"

#include <boost/numeric/conversion/converter.hpp>
#include <tiffio.h>

typedef struct tiff TIFF;

namespace tiffgate {

/// The signature of every command's handler. operands are the inputs after
/// the command word; a result goes to outputs[0] (the YCbCr reads fill 0 to
/// 2); tif is the open file that operands[0] names, checked by the
/// dispatcher before the handler runs (null for the commands that take no
/// file, and for "close" of a file no longer open).
using CommandHandler = void(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);

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
