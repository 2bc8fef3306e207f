#pragma once
/// The handler of every command, one per row of the command table; each
/// has the signature of `Handler` (command_table.h).

#include "gateway/command_table.h"

namespace tiffgate {

void handle_get_version(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
// files/
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
// tags/
void handle_get_field(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_set_field(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
void handle_retrieve_metadata(zvArray* outputs[], int nOperands, const zvArray* operands[], TIFF* tif);
// imagedata/
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
