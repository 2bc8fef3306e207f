#pragma once
/// The handlers of "getField", "setField" and "retrieveMetadata". Each
/// stores its result in outputs[0]; tif is the open file that operands[0]
/// names, checked by the dispatcher before the handler runs.

#include "core/host.h"

typedef struct tiff TIFF;

namespace tiffgate {

void handle_get_field(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_set_field(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_retrieve_metadata(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);

}  // namespace tiffgate
