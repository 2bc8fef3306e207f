function varargout = tiffgate_read (file, varargin)
  ## IMG = tiffgate_read (FILE)
  ## IMG = tiffgate_read (FILE, DIR)
  ## [Y, CB, CR] = tiffgate_read (FILE, DIR)
  ## IMG = tiffgate_read (..., "rgba")
  ##
  ## Reads the whole image of directory DIR (counted from 1, default 1) of
  ## the TIFF file FILE, assembled from its strips or tiles.
  ##
  ## IMG has the class the module gives for the directory's samples: logical
  ## for 1 bit per sample, uint8/int8, uint16/int16, uint32/int32 after the
  ## sample format, single for 32-bit and double for 64-bit floating point.
  ## It is M x N for one sample per pixel and M x N x S for S samples; an
  ## image stored as separate planes is assembled into the third dimension
  ## all the same. A palette image gives its indices.
  ##
  ## A YCbCr directory is read as its three planes as stored with
  ## [Y, CB, CR] = tiffgate_read (...): Y is M x N, CB and CR are the
  ## subsampled chroma planes. Read with one output, a YCbCr directory is
  ## converted to RGB by libtiff: an M x N x 3 uint8 image.
  ##
  ## With the option "rgba", the image is read through libtiff's RGBA
  ## conversion, whatever its photometric interpretation, and IMG is the
  ## M x N x 4 uint8 image (red, green, blue, alpha) in top-down row order.
  ##
  ## Errors from the module keep their identifiers, for example
  ## Quarn:imagesci:Tiff:unableToOpenFile or
  ## Quarn:imagesci:Tiff:unableToChangeDir for a directory past the last.
  ##
  ## Example:
  ##   img = tiffgate_read ("photo.tif");
  ##   page2 = tiffgate_read ("scan.tif", 2);
  ##   [y, cb, cr] = tiffgate_read ("video.tif");
  ##
  ## See also: tiffgate_info, tiffgate_write, tiffgate.

  if (nargin < 1 || nargin > 3)
    print_usage ();
  endif
  if (! ischar (file) || ! (isrow (file) || isempty (file)))
    error ("tiffgate:read:badFile", "tiffgate_read: FILE must be a file name");
  endif
  [dir, rgba] = parse_arguments (varargin);
  if (nargout > 1 && (rgba || nargout != 3))
    error ("tiffgate:read:outputs",
           "tiffgate_read: give one output, or three for the Y, Cb and Cr planes");
  endif

  id = tiffgate ("open", file, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  tiffgate ("setDirectory", id, dir - 1);

  if (rgba)
    varargout{1} = read_rgba (id);
    return;
  endif
  meta = tiffgate ("retrieveMetadata", id);
  if (meta.ImageDepth > 1)
    error ("tiffgate:read:volume",
           "tiffgate_read: directory %d is a volume (ImageDepth %d), which is not read as one image",
           dir, meta.ImageDepth);
  endif
  if (meta.ImageLength == 0 || meta.ImageWidth == 0)
    error ("tiffgate:read:emptyImage", "tiffgate_read: directory %d has no pixels", dir);
  endif

  if (meta.PhotometricInterpretation == 6)
    if (nargout == 3)
      [varargout{1:3}] = read_ycbcr (id, meta);
    else
      rgba = read_rgba (id);
      varargout{1} = rgba(:, :, 1:3);
    endif
  elseif (nargout == 3)
    error ("tiffgate:read:notYCbCr",
           "tiffgate_read: directory %d is not YCbCr; read it with one output", dir);
  else
    varargout{1} = read_samples (id, meta);
  endif
endfunction

function [dir, rgba] = parse_arguments (args)
  dir = 1;
  rgba = false;
  for k = 1:numel (args)
    a = args{k};
    if (ischar (a) && strcmpi (a, "rgba"))
      rgba = true;
    elseif (isnumeric (a) && isscalar (a) && isreal (a) && a == fix (a) && a >= 1 && a <= 65536)
      dir = double (a);
    else
      error ("tiffgate:read:badArgument",
             "tiffgate_read: DIR must be a directory number from 1, and the only option is \"rgba\"");
    endif
  endfor
endfunction

## libtiff's RGBA raster is 4 x width x length with the bottom row first.
function img = read_rgba (id)
  raster = tiffgate ("readRGBAImage", id);
  img = permute (raster, [3 2 1]);
  img = img(end:-1:1, :, :);
endfunction

## Every strip or tile of every plane, put where it belongs. The module cuts
## the last strip and the edge tiles to the image; its whole-image entry
## clips rows and columns as well, so that a file whose chunk count
## disagrees with its size cannot make the image grow. It reads each chunk
## with the module's own read command and places it straight into the
## image, which is allocated once.
function img = read_samples (id, meta)
  chunk_layout (meta);  # a directory whose chunks have no size is refused here
  img = tiffgate ("__readImage__", id);
endfunction

## Y, Cb and Cr of a contiguous YCbCr directory. Chunks start on multiples
## of the subsampling factors, so a chunk's chroma goes to its origin
## divided by them.
function [Y, Cb, Cr] = read_ycbcr (id, meta)
  L = meta.ImageLength;
  W = meta.ImageWidth;
  h = meta.YCbCrSubsampling(1);
  v = meta.YCbCrSubsampling(2);
  [command, chunk_rows, chunk_columns] = chunk_layout (meta);
  across = ceil (W / chunk_columns);
  down = ceil (L / chunk_rows);
  CL = ceil (L / v);
  CW = ceil (W / h);

  Y = [];
  for r = 0:down-1
    for c = 0:across-1
      [y, cb, cr] = tiffgate (command, id, r * across + c);
      if (isempty (Y))
        Y = zeros (L, W, class (y));
        Cb = zeros (CL, CW, class (cb));
        Cr = zeros (CL, CW, class (cr));
      endif
      r0 = r * chunk_rows;
      c0 = c * chunk_columns;
      m = min (rows (y), L - r0);
      n = min (columns (y), W - c0);
      Y(r0 + (1:m), c0 + (1:n)) = y(1:m, 1:n);
      cr0 = floor (r0 / v);
      cc0 = floor (c0 / h);
      m = min (rows (cb), CL - cr0);
      n = min (columns (cb), CW - cc0);
      Cb(cr0 + (1:m), cc0 + (1:n)) = cb(1:m, 1:n);
      Cr(cr0 + (1:m), cc0 + (1:n)) = cr(1:m, 1:n);
    endfor
  endfor
endfunction

## The read command and the extent of one strip or tile.
function [command, chunk_rows, chunk_columns] = chunk_layout (meta)
  if (meta.isTiled)
    [command, chunk_rows, chunk_columns] = deal ("readEncodedTile", meta.TileLength, meta.TileWidth);
  else
    [command, chunk_rows, chunk_columns] = deal ("readEncodedStrip", meta.RowsPerStrip, meta.ImageWidth);
  endif
  if (chunk_rows == 0 || chunk_columns == 0)
    error ("tiffgate:read:badLayout", "tiffgate_read: the directory gives its strips or tiles no size");
  endif
endfunction
