function tiffgate_write (file, img, varargin)
  ## tiffgate_write (FILE, IMG)
  ## tiffgate_write (FILE, IMG, NAME, VALUE, ...)
  ##
  ## Writes the image IMG (M x N, or M x N x S for S samples per pixel) to the
  ## TIFF file FILE as a new directory, replacing the file unless "Append" is
  ## given.
  ##
  ## The class of IMG gives the sample layout: logical 1 bit; uint8 and int8
  ## 8 bits; uint16 and int16 16 bits; uint32, int32 and single 32 bits;
  ## double 64 bits; signed classes as signed integers, single and double as
  ## IEEE floating point.
  ##
  ## Options (names and text values in any case):
  ##   "Compression"   "none" (default), "lzw", "deflate", "packbits",
  ##                   "jpeg" (uint8 with 1 or 3 samples), "ccittfax3" or
  ##                   "ccittfax4" (logical images), "zstd", "lzma", or
  ##                   "webp" (uint8 with 3 or 4 samples), the last three
  ##                   where this libtiff build has their codecs.
  ##   "Predictor"     "none" (default), "horizontal" (integer samples) or
  ##                   "float" (single and double), for "lzw", "deflate",
  ##                   "zstd" and "lzma": differences between neighbouring
  ##                   samples, which compress better.
  ##   "JPEGQuality"   1 to 100, for "jpeg" (libtiff's default otherwise).
  ##   "TileSize"      [TL TW]: write tiles of TL rows and TW columns, both
  ##                   multiples of 16.
  ##   "RowsPerStrip"  N: write strips of N rows. Without either, strips of
  ##                   about 64 KiB are written (for "jpeg", tiles of up to
  ##                   256 x 256 when the image's sides are not multiples
  ##                   of 16, which JPEG strips require, or when it is
  ##                   stored as YCbCr, whose planes libtiff 4.5 reads back
  ##                   scrambled from JPEG strips; for "deflate", a
  ##                   strip height that divides the image's length, or
  ##                   tiles, since libtiff 4.5 can misread a last Deflate
  ##                   strip that is padded past the image: a warning says
  ##                   so when "RowsPerStrip" asks for one).
  ##   "Photometric"   "minisblack", "miniswhite", "rgb", "separated" (CMYK),
  ##                   "palette" (with "ColorMap"), "ycbcr" (with "jpeg": an
  ##                   RGB image that libtiff stores as YCbCr), "cielab",
  ##                   "icclab" or "itulab". The default follows the third
  ##                   dimension: 1 minisblack, 3 rgb, 4 rgb with an alpha
  ##                   sample, any other count minisblack with the further
  ##                   samples as extra samples. Signed integer images are
  ##                   always minisblack by default, since only minisblack and
  ##                   miniswhite images may hold signed samples.
  ##   "ColorMap"      the colour map of a palette image: 2^bits x 3 doubles
  ##                   from 0 to 1.
  ##   "PlanarConfiguration"  "contig" (default) or "separate" (one plane
  ##                   per sample).
  ##   "Append"        true: add the directory to the end of FILE (a new
  ##                   file if there is none), making a multi-page file.
  ##   "BigTIFF"       true: write a BigTIFF file (ignored when appending to
  ##                   a file that exists, which keeps its own format).
  ##   "Pages"         true: IMG is a stack, each page a directory of its
  ##                   own: M x N x P for one sample per pixel, M x N x S x P
  ##                   for S samples.
  ##   "Tags"          further tags as a cell array of {tag, value} pairs (an
  ##                   N x 2 cell array, or a cell array of two-element cell
  ##                   arrays), each tag by number or by name (see
  ##                   tiffgate_tags), each value as the "setField" command
  ##                   takes it, or as text for GDAL_METADATA and
  ##                   GDAL_NODATA; for example
  ##                   {"ModelPixelScaleTag", [0.5 0.5 0]; "GDAL_NODATA", "0"}.
  ##
  ## Errors from the module keep their identifiers (Quarn:imagesci:Tiff:...).
  ## When writing a new file fails, the incomplete file is deleted. Before
  ## an existing file is replaced or appended to, the directory is tried on
  ## a scratch file, so that a refused image leaves that file as it was.
  ##
  ## Example:
  ##   tiffgate_write ("out.tif", uint8 (magic (64)), "Compression", "deflate");
  ##   tiffgate_write ("pages.tif", rgb, "Append", true, "TileSize", [64 64]);
  ##   tiffgate_write ("stack.tif", uint16 (rand (64, 64, 10) * 1000), "Pages", true);
  ##
  ## See also: tiffgate_read, tiffgate_info, tiffgate.

  if (nargin < 2)
    print_usage ();
  endif
  if (! ischar (file) || ! isrow (file))
    error ("tiffgate:write:badFile", "tiffgate_write: FILE must be a file name");
  endif
  opts = parse_options (varargin);
  if (! (isnumeric (img) || islogical (img)) || ! isreal (img) || issparse (img)
      || isempty (img) || ndims (img) > 3 + opts.pages)
    error ("tiffgate:write:badImage",
           "tiffgate_write: IMG must be a non-empty real M x N or M x N x S numeric or logical array%s",
           ifelse_text (opts.pages, " (M x N x P or M x N x S x P with \"Pages\")"));
  endif
  if (opts.pages)
    ## One directory a page: the last dimension of a stack.
    if (ndims (img) == 4)
      pages = num2cell (img, [1 2 3]);
    else
      pages = num2cell (img, [1 2]);
    endif
    args = [varargin, {"Pages", false}];
    for k = 1:numel (pages)
      tiffgate_write (file, pages{k}, args{:}, "Append", opts.append || k > 1);
    endfor
    return;
  endif
  [bits, sample_format] = sample_layout (class (img));
  check_codec (opts, class (img), size (img, 3));
  [L, W, S] = size (img);
  [photometric, extra] = photometric_of (opts.photometric, class (img), S, opts.compression);
  if (photometric == 3 && isempty (opts.colormap))
    error ("tiffgate:write:noColorMap", "tiffgate_write: a palette image needs \"ColorMap\"");
  endif
  [tile, rows_per_strip] = chunk_layout (opts, L, W, S, bits);

  appending = opts.append && exist (file, "file") == 2;
  if (appending)
    mode = "a";
  elseif (opts.bigtiff)
    mode = "w8";
  else
    mode = "w";
  endif

  write = @(name, mode, chunks) write_file (name, mode, img, opts, photometric, extra, bits,
                                            sample_format, tile, rows_per_strip, chunks);
  if (exist (file, "file") == 2)
    ## Opening replaces the file, and when appending, libtiff writes a
    ## directory refused half-way as the file closes, spoiling the pages
    ## before it. So the tags and a first chunk are tried on a scratch file
    ## first: the module's checks fail there, if anywhere.
    write ([tempname() ".tif"], "w", 1);
  endif
  write (file, mode, Inf);
endfunction

## Writes the directory into NAME opened with MODE, CHUNKS strips or tiles
## of it at most, and deletes a new file that fails (and every scratch file).
function write_file (name, mode, img, opts, photometric, extra, bits, sample_format, tile,
                     rows_per_strip, chunks)
  [L, W, S] = size (img);
  id = tiffgate ("open", name, mode);
  try
    set_tags (id, opts, photometric, extra, bits, sample_format, L, W, S, tile, rows_per_strip);
    ## Every strip or tile of every plane (CHUNKS of them at most), numbered
    ## as libtiff numbers them, each cut from the image and written with the
    ## module's own write command.
    tiffgate ("__writeImage__", id, img, chunks);
    if (isfinite (chunks))
      tiffgate ("close", id);
      [~] = unlink (name);
      return;
    endif
    tiffgate ("writeDirectory", id);
  catch err
    tiffgate ("close", id);
    if (mode(1) == "w")
      [~] = unlink (name);
    endif
    rethrow (err);
  end_try_catch
  tiffgate ("close", id);
endfunction

function opts = parse_options (args)
  opts = struct ("compression", 1, "quality", [], "tilesize", [], "rowsperstrip", [],
                 "photometric", "", "colormap", [], "planar", 1, "append", false,
                 "bigtiff", false, "tags", {{}}, "predictor", 1, "pages", false);
  if (mod (numel (args), 2) != 0)
    error ("tiffgate:write:badOption", "tiffgate_write: options come in NAME, VALUE pairs");
  endif
  for k = 1:2:numel (args)
    name = args{k};
    value = args{k+1};
    if (! ischar (name))
      error ("tiffgate:write:badOption", "tiffgate_write: option names are text");
    endif
    switch (lower (name))
      case "compression"
        opts.compression = lookup_word (value, name, {"none", 1; "lzw", 5; "deflate", 8;
                                                      "packbits", 32773; "jpeg", 7; "ccittfax3", 3;
                                                      "ccittfax4", 4; "lzma", 34925; "zstd", 50000;
                                                      "webp", 50001});
      case "predictor"
        opts.predictor = lookup_word (value, name, {"none", 1; "horizontal", 2; "float", 3});
      case "pages"
        opts.pages = true_or_false (value, name);
      case "jpegquality"
        opts.quality = positive_integer (value, name, 100);
      case "tilesize"
        if (! isnumeric (value) || numel (value) != 2 || any (value < 1) || any (value != fix (value)))
          error ("tiffgate:write:badOption", "tiffgate_write: \"TileSize\" must be [TL TW]");
        endif
        opts.tilesize = double (value(:).');
      case "rowsperstrip"
        opts.rowsperstrip = positive_integer (value, name, 2^32 - 1);
      case "photometric"
        opts.photometric = lookup_word (value, name, {"miniswhite", 0; "minisblack", 1; "rgb", 2;
                                                      "palette", 3; "separated", 5; "ycbcr", 6;
                                                      "cielab", 8; "icclab", 9; "itulab", 10});
      case "colormap"
        opts.colormap = value;
      case "planarconfiguration"
        opts.planar = lookup_word (value, name, {"contig", 1; "separate", 2});
      case "append"
        opts.append = true_or_false (value, name);
      case "bigtiff"
        opts.bigtiff = true_or_false (value, name);
      case "tags"
        opts.tags = tag_pairs (value);
      otherwise
        error ("tiffgate:write:badOption", "tiffgate_write: unknown option \"%s\"", name);
    endswitch
  endfor
  if (! isempty (opts.tilesize) && ! isempty (opts.rowsperstrip))
    error ("tiffgate:write:badOption", "tiffgate_write: give \"TileSize\" or \"RowsPerStrip\", not both");
  endif
endfunction

function code = lookup_word (value, name, table)
  if (ischar (value))
    k = find (strcmpi (value, table(:, 1)), 1);
    if (! isempty (k))
      code = table{k, 2};
      return;
    endif
  endif
  error ("tiffgate:write:badOption", "tiffgate_write: \"%s\" must be one of: %s", name,
         strjoin (table(:, 1).', ", "));
endfunction

function n = positive_integer (value, name, largest)
  if (! isnumeric (value) || ! isscalar (value) || ! isreal (value) || value != fix (value)
      || value < 1 || value > largest)
    error ("tiffgate:write:badOption", "tiffgate_write: \"%s\" must be an integer from 1 to %d",
           name, largest);
  endif
  n = double (value);
endfunction

function tf = true_or_false (value, name)
  if (! (islogical (value) || isnumeric (value)) || ! isscalar (value))
    error ("tiffgate:write:badOption", "tiffgate_write: \"%s\" must be true or false", name);
  endif
  tf = logical (value);
endfunction

## {tag, value; ...} or {{tag, value}, ...} as an N x 2 cell array.
function pairs = tag_pairs (value)
  if (iscell (value) && ! isempty (value) && all (cellfun (@iscell, value(:))))
    value = vertcat (cellfun (@(p) reshape (p, 1, []), value(:), "UniformOutput", false){:});
  endif
  if (! iscell (value) || (! isempty (value) && columns (value) != 2))
    error ("tiffgate:write:badOption", "tiffgate_write: \"Tags\" must hold {tag number, value} pairs");
  endif
  for k = 1:rows (value)
    tag = value{k, 1};
    if (ischar (tag))
      value{k, 1} = tiffgate_tags (tag);
    elseif (! isnumeric (tag) || ! isscalar (tag))
      error ("tiffgate:write:badOption", "tiffgate_write: tags in \"Tags\" are names or numbers");
    endif
  endfor
  pairs = value;
endfunction

## The data each compression and predictor takes, refused here with a
## clear message rather than by libtiff half-way through a file.
function check_codec (opts, cls, S)
  c = opts.compression;
  if (c == 7 && ! (strcmp (cls, "uint8") && any (S == [1 3])))
    error ("tiffgate:write:badCompression", "tiffgate_write: \"jpeg\" takes uint8 images of 1 or 3 samples");
  elseif (any (c == [3 4]) && ! (islogical_class (cls) && S == 1))
    error ("tiffgate:write:badCompression", "tiffgate_write: \"ccittfax3\" and \"ccittfax4\" take logical images");
  elseif (c == 50001 && ! (strcmp (cls, "uint8") && any (S == [3 4])))
    error ("tiffgate:write:badCompression", "tiffgate_write: \"webp\" takes uint8 images of 3 or 4 samples");
  endif
  floating = any (strcmp (cls, {"single", "double"}));
  if (opts.predictor != 1 && ! any (c == [5 8 34925 50000]))
    error ("tiffgate:write:badPredictor", "tiffgate_write: a predictor goes with lzw, deflate, zstd or lzma");
  elseif ((opts.predictor == 3) != floating && opts.predictor != 1 || (opts.predictor == 2 && islogical_class (cls)))
    error ("tiffgate:write:badPredictor",
           "tiffgate_write: \"horizontal\" is for integer samples, \"float\" for single and double");
  endif
endfunction

function tf = islogical_class (cls)
  tf = strcmp (cls, "logical");
endfunction

function text = ifelse_text (condition, text)
  if (! condition)
    text = "";
  endif
endfunction

## Bits per sample and SampleFormat (1 unsigned, 2 signed, 3 floating point).
function [bits, sample_format] = sample_layout (cls)
  switch (cls)
    case "logical", bits = 1;  sample_format = 1;
    case "uint8",   bits = 8;  sample_format = 1;
    case "int8",    bits = 8;  sample_format = 2;
    case "uint16",  bits = 16; sample_format = 1;
    case "int16",   bits = 16; sample_format = 2;
    case "uint32",  bits = 32; sample_format = 1;
    case "int32",   bits = 32; sample_format = 2;
    case "single",  bits = 32; sample_format = 3;
    case "double",  bits = 64; sample_format = 3;
    otherwise
      error ("tiffgate:write:badImage", "tiffgate_write: images of class %s cannot be written", cls);
  endswitch
endfunction

## The photometric interpretation and the ExtraSamples values (0 unspecified,
## 2 unassociated alpha) for S samples.
function [photometric, extra] = photometric_of (requested, cls, S, compression)
  signed = any (strcmp (cls, {"int8", "int16", "int32"}));
  if (isempty (requested))
    if (S == 3 && ! signed)
      requested = 2;
    elseif (S == 4 && ! signed)
      requested = 2;
    else
      requested = 1;
    endif
  endif
  photometric = requested;
  extra = [];
  switch (photometric)
    case {0, 1}
      extra = zeros (1, S - 1);
    case 2
      if (S < 3)
        error ("tiffgate:write:badPhotometric", "tiffgate_write: an RGB image needs 3 samples or more");
      endif
      extra = [2, zeros(1, S - 4)](1:S-3);
    case 3
      if (S != 1)
        error ("tiffgate:write:badPhotometric", "tiffgate_write: a palette image has one sample");
      endif
    case 5
      extra = zeros (1, max (S - 4, 0));
    case 6
      ## Raw YCbCr needs its planes apart; with JPEG, libtiff converts RGB.
      if (compression != 7 || S != 3)
        error ("tiffgate:write:badPhotometric",
               "tiffgate_write: \"ycbcr\" is written from an RGB image with \"jpeg\" compression");
      endif
  endswitch
endfunction

## Tiles [TL TW], or rows per strip. Default strips hold about 64 KiB; JPEG
## strips need the image's sides and the strip height in multiples of 16.
function [tile, rows_per_strip] = chunk_layout (opts, L, W, S, bits)
  tile = opts.tilesize;
  rows_per_strip = opts.rowsperstrip;
  deflate = opts.compression == 8;
  if (! isempty (rows_per_strip) && deflate && mod (L, rows_per_strip) != 0)
    warning ("tiffgate:write:paddedDeflateStrip",
             ["tiffgate_write: the last Deflate strip holds rows past the image, " ...
              "which libtiff 4.5 can misread; a RowsPerStrip that divides %d avoids it"], L);
  endif
  if (! isempty (tile) || ! isempty (rows_per_strip))
    return;
  endif
  default_tile = [min(256, 16 * ceil(L / 16)), min(256, 16 * ceil(W / 16))];
  jpeg = opts.compression == 7;
  ## JPEG strips need sides in multiples of 16. YCbCr goes into tiles too:
  ## libtiff 4.5 returns the planes of a YCbCr JPEG strip scrambled.
  if (jpeg && (mod (L, 16) != 0 || mod (W, 16) != 0 || isequal (opts.photometric, 6)))
    tile = default_tile;
    return;
  endif
  if (opts.planar == 2)
    S = 1;
  endif
  row_bytes = ceil (W * S * bits / 8);
  rows_per_strip = min (L, max (1, floor (65536 / row_bytes)));
  if (jpeg)
    rows_per_strip = max (16, 16 * floor (rows_per_strip / 16));
  elseif (deflate && mod (L, rows_per_strip) != 0)
    ## The module writes every strip whole, the last one padded past the
    ## image, and libtiff 4.5 can misread such a last Deflate strip.
    divisor = find (mod (L, 1:rows_per_strip) == 0, 1, "last");
    if (2 * divisor >= rows_per_strip)
      rows_per_strip = divisor;
    else
      [tile, rows_per_strip] = deal (default_tile, []);
    endif
  endif
endfunction

## Tags in the order the module checks them against each other:
## PhotometricInterpretation first, BitsPerSample before SamplesPerPixel and
## SampleFormat, Compression before the JPEG settings.
function set_tags (id, opts, photometric, extra, bits, sample_format, L, W, S, tile, rows_per_strip)
  put = @(tag, value) tiffgate ("setField", id, tag, double (value));
  put (262, photometric);
  put (256, W);
  put (257, L);
  put (258, bits);
  put (277, S);
  put (339, sample_format);
  put (284, opts.planar);
  if (! isempty (extra))
    put (338, extra);
  endif
  if (any (opts.compression == [34925 50000 50001]))
    tiffgate ("__setTag__", id, 259, opts.compression);  # schemes outside setField's list
  else
    put (259, opts.compression);
  endif
  if (opts.predictor != 1)
    put (317, opts.predictor);
  endif
  if (opts.compression == 7)
    if (photometric == 6)
      put (65538, 1);  # JPEGColorMode RGB: libtiff turns the RGB samples into YCbCr
    endif
    if (! isempty (opts.quality))
      put (65537, opts.quality);
    endif
  endif
  if (isempty (tile))
    put (278, rows_per_strip);
  else
    put (322, tile(2));
    put (323, tile(1));
  endif
  if (photometric == 3)
    tiffgate ("setField", id, 320, opts.colormap);
  endif
  for k = 1:rows (opts.tags)
    if (any (opts.tags{k, 1} == [42112 42113]))
      tiffgate ("__setTag__", id, opts.tags{k, 1}, opts.tags{k, 2});
    else
      tiffgate ("setField", id, opts.tags{k, 1}, opts.tags{k, 2});
    endif
  endfor
endfunction
