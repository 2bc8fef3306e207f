function varargout = tiffgate_read (file, varargin)
  ## IMG = tiffgate_read (FILE)
  ## IMG = tiffgate_read (FILE, DIR)
  ## [IMG, MAP] = tiffgate_read (...)
  ## [Y, CB, CR] = tiffgate_read (FILE, DIR)
  ## IMG = tiffgate_read (..., "rgba")
  ## IMG = tiffgate_read (..., "Region", {ROWS, COLS})
  ## IMG = tiffgate_read (..., "Threads", N)
  ##
  ## Reads the whole image of directory DIR (counted from 1, default 1) of
  ## the TIFF file FILE, assembled from its strips or tiles.
  ##
  ## IMG holds every sample as stored, never rescaled, in the narrowest
  ## class that holds it: logical for 1 bit per sample, uint8 for 2 to 8
  ## bits (int8 for signed 8-bit samples), uint16 for 9 to 16 bits, uint32
  ## for 17 to 32, uint64 or int64 for 64-bit integers, single for 16-,
  ## 24- and 32-bit floating point (and LogL and LogLuv, as libtiff's
  ## floating point), double for 64-bit floating point. It is M x N for one
  ## sample per pixel and M x N x S for S samples; an image stored as
  ## separate planes (separate YCbCr planes included) is assembled into the
  ## third dimension all the same. A palette image gives its indices, and
  ## MAP its colour map (N x 3, from 0 to 1; [] for other images).
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
  ## "Region", {ROWS, COLS} reads only rows ROWS(1) to ROWS(2) and columns
  ## COLS(1) to COLS(2) (counted from 1, inclusive): IMG is that part of the
  ## image, and only the strips or tiles that meet it are decoded.
  ##
  ## The strips or tiles of the image are decoded on "Threads", N threads
  ## (default: one per processor, at most one per strip or tile); the image
  ## is the same whatever N.
  ##
  ## Errors from the module keep their identifiers, for example
  ## Quarn:imagesci:Tiff:unableToOpenFile or
  ## Quarn:imagesci:Tiff:unableToChangeDir for a directory past the last.
  ##
  ## Example:
  ##   img = tiffgate_read ("photo.tif");
  ##   page2 = tiffgate_read ("scan.tif", 2);
  ##   [y, cb, cr] = tiffgate_read ("video.tif");
  ##   corner = tiffgate_read ("big.tif", "Region", {[1 256], [1 256]});
  ##
  ## See also: tiffgate_info, tiffgate_write, tiffgate.

  if (nargin < 1)
    print_usage ();
  endif
  if (! ischar (file) || ! (isrow (file) || isempty (file)))
    error ("tiffgate:read:badFile", "tiffgate_read: FILE must be a file name");
  endif
  [dir, rgba, region, threads] = parse_arguments (varargin);
  if (nargout > 3 || (nargout == 3 && (rgba || ! isempty (region))))
    error ("tiffgate:read:outputs",
           "tiffgate_read: give one output, two for a palette's colour map, or three for the Y, Cb and Cr planes of a whole image");
  endif

  id = tiffgate ("open", file, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  tiffgate ("setDirectory", id, dir - 1);

  ## A directory without PhotometricInterpretation reads as libtiff's
  ## decoders read it, as MinIsBlack; its extent comes from its tags.
  try
    meta = tiffgate ("retrieveMetadata", id);
  catch err
    if (! strcmp (err.identifier, "Quarn:imagesci:Tiff:tagRetrievalFailed"))
      rethrow (err);
    endif
    meta = struct ("PhotometricInterpretation", 1, "PlanarConfiguration", 1,
                   "ImageLength", tiffgate ("getField", id, 257), "ImageWidth", tiffgate ("getField", id, 256));
  end_try_catch
  if (! isempty (region))
    region = check_region (region, meta);
  endif
  ycbcr = meta.PhotometricInterpretation == 6 && meta.PlanarConfiguration == 1;
  if (nargout == 3 && ! ycbcr)
    error ("tiffgate:read:notYCbCr",
           "tiffgate_read: directory %d is not contiguous YCbCr; read it with one output", dir);
  endif
  if (rgba)
    varargout{1} = cut (read_rgba (id), region);
  elseif (ycbcr && nargout == 3)
    [varargout{1:3}] = read_ycbcr (id, meta);
  elseif (ycbcr)
    rgba = cut (read_rgba (id), region);
    varargout{1} = rgba(:, :, 1:3);
  else
    ## Separate YCbCr planes come as the samples they are.
    varargout{1} = tiffgate ("__readImage__", id, threads, region);
  endif
  if (nargout == 2)
    varargout{2} = [];
    if (meta.PhotometricInterpretation == 3)
      varargout{2} = tiffgate ("getField", id, 320);
    endif
  endif
endfunction

function [dir, rgba, region, threads] = parse_arguments (args)
  dir = 1;
  rgba = false;
  region = [];
  threads = 0;
  k = 1;
  while (k <= numel (args))
    a = args{k};
    if (ischar (a) && strcmpi (a, "rgba"))
      rgba = true;
    elseif (ischar (a) && any (strcmpi (a, {"Region", "Threads"})))
      if (k == numel (args))
        error ("tiffgate:read:badArgument", "tiffgate_read: option \"%s\" needs a value", a);
      endif
      k++;
      if (strcmpi (a, "Region"))
        region = args{k};
        if (! (iscell (region) && numel (region) == 2))
          error ("tiffgate:read:region", "tiffgate_read: \"Region\" must be {ROWS, COLS}, each [FIRST LAST]");
        endif
      else
        threads = args{k};
        if (! (isnumeric (threads) && isscalar (threads) && isreal (threads) && threads == fix (threads)
               && threads >= 1 && threads <= 4096))
          error ("tiffgate:read:threads", "tiffgate_read: \"Threads\" must be a whole number from 1");
        endif
        threads = double (threads);
      endif
    elseif (isnumeric (a) && isscalar (a) && isreal (a) && a == fix (a) && a >= 1 && a <= 65536)
      dir = double (a);
    else
      error ("tiffgate:read:badArgument",
             "tiffgate_read: DIR must be a directory number from 1; the options are \"rgba\", \"Region\" and \"Threads\"");
    endif
    k++;
  endwhile
endfunction

## {ROWS, COLS} as [first last first last], inside the image and not empty.
function r = check_region (region, meta)
  r = zeros (1, 4);
  extent = [meta.ImageLength, meta.ImageWidth];
  names = {"rows", "columns"};
  for d = 1:2
    v = region{d};
    if (! (isnumeric (v) && isreal (v) && numel (v) == 2 && all (v == fix (v))))
      error ("tiffgate:read:region", "tiffgate_read: \"Region\" must be {ROWS, COLS}, each [FIRST LAST]");
    endif
    if (v(1) < 1 || v(2) < v(1) || v(2) > extent(d))
      error ("tiffgate:read:region",
             "tiffgate_read: region %s [%d %d] are not within 1 to %d, first to last",
             names{d}, v(1), v(2), extent(d));
    endif
    r(2*d-1:2*d) = double (v(:)');
  endfor
endfunction

## The region of an image read whole.
function img = cut (img, region)
  if (! isempty (region))
    img = img(region(1):region(2), region(3):region(4), :);
  endif
endfunction

## libtiff's RGBA raster is 4 x width x length with the bottom row first.
function img = read_rgba (id)
  raster = tiffgate ("readRGBAImage", id);
  img = permute (raster, [3 2 1]);
  img = img(end:-1:1, :, :);
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
