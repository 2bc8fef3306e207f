#pragma once
/// The handlers of the strip, tile and RGBA reads and writes and of the
/// chunk indices. Each stores its result in outputs[0] (the YCbCr reads fill
/// 0 to 2); tif is the open file that operands[0] names, checked by the
/// dispatcher before the handler runs.

#include "core/host.h"

typedef struct tiff TIFF;

namespace tiffgate {

void handle_read_encoded_strip(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_read_encoded_tile(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_read_rgba_image(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_read_rgba_strip(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_read_rgba_tile(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_write_encoded_strip(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_write_encoded_tile(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_compute_strip(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_compute_tile(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);

}  // namespace tiffgate
