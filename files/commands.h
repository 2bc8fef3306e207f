#pragma once
/// The handlers of "open", "close", the directory commands and the file
/// queries. Each stores its result in outputs[0]; tif is the open file that
/// operands[0] names, checked by the dispatcher before the handler runs.

#include "core/host.h"

typedef struct tiff TIFF;

namespace tiffgate {

void handle_open(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_close(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_current_directory(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_last_directory(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_set_directory(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_set_sub_directory(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_read_directory(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_write_directory(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_rewrite_directory(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_number_of_strips(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_number_of_tiles(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_is_tiled(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);

}  // namespace tiffgate
