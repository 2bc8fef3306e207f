## -*- texinfo -*-
## @deftypefn  {} {@var{result} =} tiffgate (@var{command}, @var{operand}, @dots{})
##
## TIFF files through libtiff: one command word and its operands per call.
##
## @example
## @group
## v = tiffgate ("getVersion")                 libtiff's version text
## id = tiffgate ("open", file, mode)          mode as libtiff takes it: "r", "r+",
##                                             "w", "w8" (BigTIFF), "a", ...
## tiffgate ("close", id)
## n = tiffgate ("currentDirectory", id)       directory number, from 1
## tf = tiffgate ("lastDirectory", id)
## tiffgate ("setDirectory", id, index)        index counted from 0
## tiffgate ("setSubDirectory", id, offset)    a SubIFD offset of the current directory
## tiffgate ("readDirectory", id)              on to the next directory
## tiffgate ("writeDirectory", id)
## tiffgate ("rewriteDirectory", id)
## n = tiffgate ("numberOfStrips", id)
## n = tiffgate ("numberOfTiles", id)
## tf = tiffgate ("isTiled", id)
## value = tiffgate ("getField", id, tag)      tags by number, e.g. 256 ImageWidth
## tiffgate ("setField", id, tag, value)       PhotometricInterpretation (262) first,
##                                             then BitsPerSample, SamplesPerPixel,
##                                             SampleFormat, Compression, ...
## s = tiffgate ("retrieveMetadata", id)       the layout of the current directory
## a = tiffgate ("readEncodedStrip", id, strip)      strip and tile numbers from 0
## a = tiffgate ("readEncodedTile", id, tile)
## [y, cb, cr] = tiffgate ("readEncodedStrip", id, strip)    YCbCr directories
## r = tiffgate ("readRGBAImage", id)          4 x width x length uint8, bottom row first
## r = tiffgate ("readRGBAStrip", id, row)
## r = tiffgate ("readRGBATile", id, column, row)
## tiffgate ("writeEncodedStrip", id, strip, a)      or (id, strip, y, cb, cr)
## tiffgate ("writeEncodedTile", id, tile, a)        or (id, tile, y, cb, cr)
## n = tiffgate ("computeStrip", id, row)      or (id, row, sample); the answer from 1
## n = tiffgate ("computeTile", id, [row column])    or (id, [row column], sample)
## @end group
## @end example
##
## Samples come as logical (1 bit), uint8/int8, uint16/int16, uint32/int32,
## single or double arrays, M x N or M x N x S.
##
## Every failure is an error with an identifier such as
## @code{Quarn:imagesci:Tiff:badFileId}, to catch with try/catch and
## @code{err.identifier}. libtiff's own messages, and files closed because
## they were left open when Octave clears the module, come as warnings
## (see @code{lastwarn}).
##
## @seealso{tiffgate_read, tiffgate_write, tiffgate_info}
## @end deftypefn

## This file carries the help text of tiffgate.oct, which
## lies beside it and is what Octave calls.
function varargout = tiffgate (varargin)
  error ("tiffgate:notBuilt", "tiffgate: tiffgate.oct is missing beside %s", mfilename ("fullpath"));
endfunction
