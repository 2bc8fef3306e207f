## The package's functions, which exist in Octave alone: tiffgate_read over
## page 1 of every valid corpus file (class from the manifest's layout,
## samples against tifffile's decode in REFERENCE.csv), its options;
## tiffgate_write's classes, layouts, compressions, predictors, pages and
## tags, read back and decoded by tifffile; tiffgate_info and tiffgate_tags
## against tifffile's reading of the same files; imread, imwrite and imfinfo
## through tiffgate_imformats.

function octave_functions_test ()
  state = warning ("off", "all");
  restore = onCleanup (@() warning (state));
  [dir, cleanup] = tg_scratch ();
  check_corpus ();
  check_read_options ();
  check_writes (dir);
  check_write_options (dir);
  check_info_and_tags (dir);
  check_imformats (dir);
  printf ("octave_functions_test: passed\n");
endfunction

## Page 1 of every valid file reads, in the class its layout gives, and
## equals tifffile's decode where tifffile decodes it (contiguous YCbCr,
## which tiffgate_read converts to RGB, excepted; 16-bit floating point
## against the 24-bit file of the same picture below). Nothing stays open.
function check_corpus ()
  rows = tg_python (["import csv\n" ...
                     "m = {r['file']: r for r in csv.DictReader(open(sys.argv[1] + '/MANIFEST.csv'))}\n" ...
                     "ref = {r['file']: r for r in csv.DictReader(open(sys.argv[1] + '/REFERENCE.csv')) if r['directory'] == '0'}\n" ...
                     "print(json.dumps([dict(r, sha256=ref.get(f, {}).get('sha256', '')) for f, r in m.items()" ...
                     " if not f.startswith('malformed/')]))"], getenv ("TIFFGATE_CORPUS"));
  assert (numel (rows), 183);
  matched = 0;
  for k = 1:numel (rows)
    r = rows(k);
    name = tg_corpus (r.file);
    img = tiffgate_read (name);
    assert (class (img), expected_class (r), r.file);
    ## tifffile's digest of 16-bit floating point is of the half-precision bytes.
    half = strncmp (r.sample_format, "float", 5) && sscanf (r.bits_per_sample, "%d", 1) == 16;
    if (! isempty (r.sha256) && ! strncmp (r.photometric, "YCbCr", 5) && ! half)
      assert (tg_sha256 (img, strncmp (r.planar, "separate", 8)), r.sha256, r.file);
      matched++;
    endif
  endfor
  assert (matched, 98);  # every file with a digest but the exceptions above
  corpus = fileparts (tg_corpus (rows(1).file));
  assert (! any (strncmp (tg_open_files (), corpus, numel (corpus))));
  ## The same picture at other depths: each sample the 32-bit one's value
  ## scaled to its range, to within one step of it.
  base = double (tiffgate_read (tg_corpus ("imagetiff-flower-minisblack-32.tif"))) / (2^32 - 1);
  for bits = [2 4 12 24]
    img = tiffgate_read (tg_corpus (sprintf ("imagetiff-flower-minisblack-%02d.tif", bits)));
    assert (max (abs (double (img(:)) / (2^bits - 1) - base(:))) <= 1 / (2^min (bits, 8) - 1) + 1e-9);
  endfor
  half = tiffgate_read (tg_corpus ("libtiffnet-tiger-float16-strip.tif"));
  assert (tiffgate_read (tg_corpus ("libtiffnet-tiger-float24-strip.tif")), half, 2^-10);
endfunction

function cls = expected_class (r)
  bits = sscanf (r.bits_per_sample, "%d", 1);  # "1 (default)" when the tag is absent
  if (strncmp (r.photometric, "YCbCr", 5) && strncmp (r.planar, "contig", 6))
    cls = "uint8";  # through libtiff's RGBA conversion
  elseif (strncmp (r.photometric, "Log", 3))
    cls = "single";
  elseif (bits == 1)
    cls = "logical";
  elseif (strncmp (r.sample_format, "float", 5))
    cls = {"single", "double"}{1 + (bits == 64)};
  else
    prefix = {"uint", "int"}{1 + (strncmp (r.sample_format, "int", 3) && any (bits == [8 16 32 64]))};
    cls = sprintf ("%s%d", prefix, 2^max (3, nextpow2 (bits)));
  endif
endfunction

function check_read_options ()
  name = tg_corpus ("imagetiff-multipage-8b.tiff");
  page2 = tiffgate_read (name, 2);
  assert (tiffgate_read (name, 2, "rgba")(:, :, 1), page2);
  assert (tiffgate_read (name, 2, "Threads", 1), tiffgate_read (name, 2, "Threads", 3));
  assert (tiffgate_read (name, 2, "Region", {[2 5], [3 3]}), page2(2:5, 3));
  rgb = tg_corpus ("libtiff-rgb-3c-8b.tiff");
  rgba = tiffgate_read (rgb, "rgba");
  assert (rgba(:, :, 1:3), tiffgate_read (rgb));
  assert (all (rgba(:, :, 4)(:) == 255));
  ## A palette image's map, as getField gives it; none for others.
  [img, map] = tiffgate_read (tg_corpus ("libtiff-palette-1c-8b.tiff"));
  id = tiffgate ("open", tg_corpus ("libtiff-palette-1c-8b.tiff"), "r");
  assert (map, tiffgate ("getField", id, 320));
  tiffgate ("close", id);
  assert (size (map), [256 3]);
  [~, none] = tiffgate_read (rgb);
  assert (none, []);
  ## YCbCr as planes, Y near the luma of the RGB libtiff converts it to.
  ycc = tg_corpus ("libtiffnet-ycbcr41-contig-08.tif");
  [Y, Cb, Cr] = tiffgate_read (ycc);
  converted = double (tiffgate_read (ycc));
  assert (size (Cb), ceil (size (Y) ./ [1 4]));
  luma = converted(:, :, 1) * 0.299 + converted(:, :, 2) * 0.587 + converted(:, :, 3) * 0.114;
  assert (mean (abs (double (Y(:)) - luma(:))) < 3);
  assert (tiffgate_read (ycc), imread (ycc));  # Octave's reader converts as libtiff does
  bad = {{42}, "tiffgate:read:badFile"; {name, 0}, "tiffgate:read:badArgument";
         {name, 4}, "Quarn:imagesci:Tiff:unableToChangeDir"; {name, "Region", {[0 2], [1 1]}}, "tiffgate:read:region";
         {name, "Region", [1 2]}, "tiffgate:read:region"; {name, "Threads", 0}, "tiffgate:read:threads";
         {"/nonexistent.tif"}, "Quarn:imagesci:Tiff:unableToOpenFile"};
  for k = 1:rows (bad)
    tg_expect_error (@() tiffgate_read (bad{k, 1}{:}), bad{k, 2});
  endfor
  tg_expect_error (@() three_outputs (name), "tiffgate:read:notYCbCr");
endfunction

function three_outputs (name)
  [~, ~, ~] = tiffgate_read (name);
endfunction

## Every class with 1, 3 and 4 samples, in strips and tiles that end
## part-filled, under the lossless compressions; back through tiffgate_read
## and as tifffile decodes them, with the tags tifffile finds.
function check_writes (dir)
  classes = {"logical", "uint8", "int8", "uint16", "int16", "uint32", "int32", "single", "double"};
  layouts = {{"RowsPerStrip", 8}, {"TileSize", [16 32]}, {"PlanarConfiguration", "separate", "RowsPerStrip", 16}};
  compressions = {"none", 1; "deflate", 8; "packbits", 32773};
  written = {};
  for c = classes
    for S = [1 3 4](1:(1 + 2 * ! strcmp (c{1}, "logical")))
      img = sample_image (c{1}, 37, 45, S);
      for k = 1:2 + (S > 1)  # one sample has no separate planes
        name = fullfile (dir, sprintf ("%s-%d-%d.tif", c{1}, S, k));
        compression = compressions(1 + mod (numel (written), 3), :);
        tiffgate_write (name, img, layouts{k}{:}, "Compression", compression{1});
        assert (isequaln (tiffgate_read (name), img), name);
        written(end+1, :) = {name, img, k == 3 && S > 1, compression{2}};
      endfor
    endfor
  endfor
  decoded = tg_tifffile (written(:, 1).');
  for k = 1:rows (written)
    [name, img, planes, compression] = written{k, :};
    d = decoded{k};
    assert (d.sha256, tg_sha256 (img, planes), name);
    assert (d.tags.Compression, compression);
    signed = any (strcmp (class (img), {"int8", "int16", "int32"}));
    assert (d.tags.PhotometricInterpretation, 1 + (size (img, 3) >= 3 && ! signed));
  endfor
  ## A file from Octave's own writer reads as Octave reads it.
  rgb = sample_image ("uint8", 50, 70, 3);
  imwrite (rgb, fullfile (dir, "imwrite.tif"));
  assert (tiffgate_read (fullfile (dir, "imwrite.tif")), rgb);
endfunction

function check_write_options (dir)
  name = fullfile (dir, "options.tif");
  ## Pages of a stack, one sample and three; with a predictor, and the
  ## codecs beyond setField's list.
  stack = sample_image ("uint16", 20, 30, 5);
  tiffgate_write (name, stack, "Pages", true, "Compression", "zstd", "Predictor", "horizontal");
  info = tiffgate_info (name);
  assert ([numel(info), info(1).Compression, info(1).Predictor], [5 50000 2]);
  assert (tiffgate_read (name, 4), stack(:, :, 4));
  colour = sample_image ("single", 12, 10, 2 * 3);
  colour = reshape (colour, 12, 10, 3, 2);
  tiffgate_write (name, colour, "Pages", true, "Compression", "lzma", "Predictor", "float");
  assert (isequaln (tiffgate_read (name, 2), colour(:, :, :, 2)));
  smooth = repmat (uint8 (1:200), 100, 1);
  plain = fullfile (dir, "plain.tif");
  tiffgate_write (plain, smooth, "Compression", "deflate");
  tiffgate_write (name, smooth, "Compression", "deflate", "Predictor", "horizontal");
  assert (stat (name).size < stat (plain).size);
  tiffgate_write (name, sample_image ("uint8", 16, 16, 3), "Compression", "webp");
  assert (size (tiffgate_read (name)), [16 16 3]);
  bits = sample_image ("logical", 21, 13, 1);
  for c = {"ccittfax3", "ccittfax4"}
    tiffgate_write (name, bits, "Compression", c{1});
    assert (tiffgate_read (name), bits);
  endfor
  ## JPEG: smooth content within a few levels, as Octave's reader sees it.
  [x, y] = meshgrid (1:64, 1:48);
  gray = uint8 (128 + 60 * sin (x / 9) .* cos (y / 7));
  tiffgate_write (name, gray, "Compression", "jpeg", "JPEGQuality", 95);
  assert (mean (abs (double (tiffgate_read (name)(:)) - double (gray(:)))) < 3);
  assert (tiffgate_read (name), imread (name));
  ## Palette, BigTIFF, appended pages.
  map = [linspace(0, 1, 256).', linspace(1, 0, 256).', repmat(0.5, 256, 1)];
  tiffgate_write (name, gray, "Photometric", "palette", "ColorMap", map, "BigTIFF", true);
  tiffgate_write (name, gray(1:8, :), "Append", true);
  [back, got] = tiffgate_read (name);
  assert (back, gray);
  assert (abs (got - map) <= 1 / 65535);
  d = tg_tifffile ({name});
  assert ([numel(d), d{1}.bigtiff, d{1}.tags.PhotometricInterpretation], [2 1 3]);
  assert (d{2}.sha256, tg_sha256 (gray(1:8, :)));
  ## Refusals, each before the file is touched.
  tiffgate_write (name, uint8 (magic (4)));
  before = stat (name).size;
  refused = {{int8(ones(4, 4, 3)), "Photometric", "RGB"}, "Quarn:imagesci:Tiff:badValue";
             {uint8(1), "TileSize", [8 8]}, "Quarn:imagesci:Tiff:badTileDimension";
             {int8(gray), "Compression", "jpeg"}, "tiffgate:write:badCompression";
             {gray, "Compression", "ccittfax4"}, "tiffgate:write:badCompression";
             {gray, "Compression", "webp"}, "tiffgate:write:badCompression";
             {gray, "Predictor", "float", "Compression", "lzw"}, "tiffgate:write:badPredictor";
             {gray, "Predictor", "horizontal"}, "tiffgate:write:badPredictor";
             {gray, "Tags", {"NoSuchTag", 1}}, "tiffgate:tags:unknownName";
             {uint8(1), "Photometric", "palette"}, "tiffgate:write:noColorMap";
             {zeros(2, 2, 2, 2)}, "tiffgate:write:badImage";
             {int64(1)}, "tiffgate:write:badImage"};
  for r = 1:rows (refused)
    tg_expect_error (@() tiffgate_write (name, refused{r, 1}{:}), refused{r, 2});
    tg_expect_error (@() tiffgate_write (name, refused{r, 1}{:}, "Append", true), refused{r, 2});
  endfor
  assert (stat (name).size, before);
  assert (tiffgate_read (name), uint8 (magic (4)));
endfunction

## tiffgate_info against tifffile: the pages, the file's facts, and every
## tag tifffile finds under the name tiffgate_tags gives it; tags by name
## and private tags both ways.
function check_info_and_tags (dir)
  name = fullfile (dir, "geo.tif");
  keys = [1 1 0 4; 1024 0 1 1; 1025 0 1 1; 3072 0 1 32660; 2057 34736 1 0];
  img = sample_image ("int16", 24, 32, 1);
  tiffgate_write (name, img, "Tags", {"ModelPixelScaleTag", [30 30 0]; 33922, [0 0 0 350807.4 5316081.3 0];
                                      "GeoKeyDirectoryTag", keys; "GeoDoubleParamsTag", 298.257223563;
                                      "GDAL_NODATA", "-9999"; "GDAL_METADATA", "<GDALMetadata/>";
                                      "ImageDescription", "described"});
  tiffgate_write (name, img(1:4, :), "Append", true, "BigTIFF", true);
  files = {name, tg_corpus("imagetiff-multipage-8b.tiff"), tg_corpus("libtiffnet-gray-jpeg-wang.tiff"), ...
           tg_corpus("imagetiff-subsubifds.tif"), tg_corpus("golang-tiled-64-deflate.tiff")};
  decoded = tg_tifffile (files);
  for f = files
    pages = decoded(cellfun (@(d) strcmp (d.file, f{1}), decoded));
    info = tiffgate_info (f{1});
    assert (numel (info), numel (pages), f{1});
    assert ({info(1).Filename, info(1).FileSize, info(end).Page, info(1).ByteOrder, info(1).BigTIFF},
            {f{1}, stat(f{1}).size, numel(pages), "little-endian", pages{1}.bigtiff});
    for d = 1:numel (pages)
      for t = fieldnames (pages{d}.tags).'
        number = pages{d}.tags.(t{1});
        ours = tiffgate_tags (tifffile_code (t{1}));
        assert (isfield (info, ours), [f{1} " " ours]);
      endfor
      assert ([info(d).ImageLength, info(d).ImageWidth], [pages{d}.tags.ImageLength, pages{d}.tags.ImageWidth]);
    endfor
  endfor
  info = tiffgate_info (name);
  assert ({info(1).GDAL_NODATA, info(1).GDAL_METADATA, info(1).ImageDescription, info(1).GeoKeyDirectoryTag},
          {"-9999", "<GDALMetadata/>", "described", keys});
  assert (info(2).GDAL_NODATA, []);
  assert ({tiffgate_tags("ImageWidth"), tiffgate_tags(256), tiffgate_tags(65000), tiffgate_tags("tag65000")},
          {256, "ImageWidth", "Tag65000", 65000});
  assert (numel (tiffgate_tags ()), 104);
  ## A chain that loops: the directories before it, and a warning.
  warning ("on", "tiffgate:info:brokenChain");
  lastwarn ("");
  info = tiffgate_info (tg_corpus ("malformed/libtiff-ifd-loop-to-first.tif"));
  [~, id] = lastwarn ();
  assert ({numel(info) >= 1, id}, {true, "tiffgate:info:brokenChain"});
endfunction

## tifffile's tag names to numbers, through its own table (a name it
## gives two numbers stands for the smaller).
function code = tifffile_code (name)
  persistent table;
  if (isempty (table))
    table = tg_python (["print(json.dumps({v: k for k, v in sorted(tifffile.TIFF.TAGS.items(), reverse=True)" ...
                        " if isinstance(v, str)}))"]);
  endif
  code = table.(name);
endfunction

function check_imformats (dir)
  before = imformats ("tif");
  tiffgate_imformats ("on");
  name = fullfile (dir, "im.tif");
  rgb = sample_image ("uint8", 20, 30, 3);
  imwrite (rgb, name);
  imwrite (rgb(end:-1:1, :, :), name, "WriteMode", "append");
  assert (imread (name, 2), rgb(end:-1:1, :, :));
  assert (size (imread (name, "Frames", "all")), [20 30 3 2]);
  assert (imread (name, "PixelRegion", {[2 2 10], [5 7]}), rgb(2:2:10, 5:7, :));
  info = imfinfo (name);
  assert ({numel(info), info(1).Width, info(1).Height, info(1).BitDepth, info(1).ColorType, info(1).Format},
          {2, 30, 20, 24, "truecolor", "tif"});
  assert (class (imread (tg_corpus ("imagetiff-flower-minisblack-12.tif"))), "uint16");  # never rescaled
  tiffgate_imformats ("off");
  assert (imformats ("tif"), before);
  tg_expect_error (@() tiffgate_imformats ("maybe"), "tiffgate:imformats:badState");
endfunction

## Values over the class's whole range, extremes included.
function img = sample_image (cls, M, N, S)
  rand ("seed", M * N * S);
  switch (cls)
    case "logical"
      img = rand (M, N, S) > 0.5;
    case {"single", "double"}
      img = cast ((rand (M, N, S) - 0.5) * 1e6, cls);
      img(1:3) = [NaN, Inf, -Inf];
    otherwise
      img = cast (floor (double (intmin (cls)) + (double (intmax (cls)) - double (intmin (cls)) + 1) * rand (M, N, S)), cls);
      img(1:2) = [intmin(cls), intmax(cls)];
  endswitch
endfunction
