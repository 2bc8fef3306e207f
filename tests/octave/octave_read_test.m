## tiffgate_read over the corpus of real files, against tifffile's
## independent decode (REFERENCE.csv): every directory either reads exactly
## as tifffile reads it, or is refused with the module's own error for the
## layouts it does not read; YCbCr directories as planes and as RGB.

function octave_read_test ()
  check_corpus ();
  check_ycbcr ();
  check_rgba ();
  check_errors ();
  printf ("octave_read_test: passed\n");
endfunction

function check_corpus ()
  state = warning ("off", "Quarn:imagesci:Tiff:libtiffWarning");
  restore = onCleanup (@() warning (state));
  reference = tg_python (["import csv\n" ...
                          "print(json.dumps([r for r in csv.DictReader(open(sys.argv[1])) if r['sha256']]))"],
                         fullfile (getenv ("TIFFGATE_CORPUS"), "REFERENCE.csv"));
  manifest = manifest_by_file ();
  classes = struct ("bool", "logical", "uint8", "uint8", "int8", "int8", "uint16", "uint16",
                    "int16", "int16", "uint32", "uint32", "int32", "int32", "float32", "single",
                    "float64", "double");
  matched = 0;
  for k = 1:numel (reference)
    r = reference(k);
    m = manifest.(tg_key (r.file));
    if (strncmp (m.photometric, "YCbCr", 5))
      continue;  # tifffile gives YCbCr as stored, tiffgate_read as RGB: see check_ycbcr
    endif
    name = tg_corpus (r.file);
    directory = str2double (r.directory) + 1;
    refused = refusal (m);
    if (! isempty (refused))
      tg_expect_error (@() tiffgate_read (name, directory), refused);
      continue;
    endif
    img = tiffgate_read (name, directory);
    assert (class (img), classes.(r.dtype), r.file);
    separate = strncmp (m.planar, "separate", 8);
    assert (tg_sha256 (img, separate), r.sha256, sprintf ("%s, directory %d", r.file, directory));
    matched++;
  endfor
  assert (matched >= 100);
  ## Nothing stays open, read or refused.
  corpus = fileparts (tg_corpus (reference(1).file));
  assert (! any (strncmp (tg_open_files (), corpus, numel (corpus))));
endfunction

## The module's refusals, from the layout the manifest records: 64-bit
## integers, 16-bit floating point, no photometric interpretation.
function id = refusal (m)
  id = "";
  bits = str2double (m.bits_per_sample);
  if (bits == 64 && ! strncmp (m.sample_format, "float", 5))
    id = "Quarn:imagesci:Tiff:sampleFormatMustBeIeeeFpFor64Bits";
  elseif (bits == 16 && strncmp (m.sample_format, "float", 5))
    id = "Quarn:imagesci:Tiff:badSampleFormatBitsPerSampleCombination";
  elseif (strcmp (m.photometric, "(absent)"))
    id = "Quarn:imagesci:Tiff:tagRetrievalFailed";
  endif
endfunction

## YCbCr as planes: Y is the luma of the RGB libtiff converts the directory
## to, the chroma planes are subsampled as the file's tags say (tifffile).
function check_ycbcr ()
  state = warning ("off", "Quarn:imagesci:Tiff:libtiffWarning");
  restore = onCleanup (@() warning (state));
  names = {"libtiff-quad-tile.jpg.tiff", "pillow-ycbcr-jpeg-1x1-tiled.tif", "imagetiff-pics-ycbcr-cat.tif", ...
           "libtiffnet-ycbcr-contig-08.tif", "libtiffnet-ycbcr12-contig-08.tif", ...
           "libtiffnet-ycbcr41-contig-08.tif", "libtiffnet-ycbcr44-contig-08.tif"};
  files = cellfun (@tg_corpus, names, "UniformOutput", false);
  decoded = tg_tifffile (files);
  for k = 1:numel (files)
    tags = decoded{k}.tags;
    if (isfield (tags, "YCbCrSubSampling"))  # tifffile's spelling
      h = tags.YCbCrSubSampling(1);
      v = tags.YCbCrSubSampling(2);
    else
      [h, v] = deal (2);  # the TIFF default
    endif
    [L, W] = deal (tags.ImageLength, tags.ImageWidth);
    rgb = tiffgate_read (files{k});
    assert (class (rgb), "uint8");
    assert (size (rgb), [L W 3]);
    assert (isequal (rgb, imread (files{k})), names{k});  # Octave's reader converts as libtiff does
    [Y, Cb, Cr] = tiffgate_read (files{k});
    assert (size (Y), [L W]);
    assert (size (Cb), [ceil(L / v), ceil(W / h)]);
    assert (size (Cr), size (Cb));
    rgb = double (rgb);
    luma = 0.299 * rgb(:, :, 1) + 0.587 * rgb(:, :, 2) + 0.114 * rgb(:, :, 3);
    assert (mean (abs (double (Y(:)) - luma(:))) < 3, names{k});
  endfor
  ## Separate YCbCr planes are not read as planes.
  tg_expect_error (@() tiffgate_read_planes (tg_corpus ("libtiffnet-ycbcr-separate-08.tif")),
                   "Quarn:imagesci:Tiff:unsupportedYCbCrConfiguration");
endfunction

function tiffgate_read_planes (name)
  [~, ~, ~] = tiffgate_read (name);
endfunction

function check_rgba ()
  name = tg_corpus ("libtiff-rgb-3c-8b.tiff");
  rgb = tiffgate_read (name);
  rgba = tiffgate_read (name, "rgba");
  assert (class (rgba), "uint8");
  assert (rgba(:, :, 1:3), rgb);  # top-down, as the image
  assert (all (rgba(:, :, 4)(:) == 255));
  gray = tiffgate_read (tg_corpus ("libtiff-minisblack-1c-8b.tiff"), 1, "RGBA");
  assert (isequal (gray(:, :, 1), gray(:, :, 2), gray(:, :, 3),
                   tiffgate_read (tg_corpus ("libtiff-minisblack-1c-8b.tiff"))));
  ## Page 2 of a multi-page file.
  name = tg_corpus ("imagetiff-multipage-8b.tiff");
  assert (tiffgate_read (name, 2, "rgba")(:, :, 1), tiffgate_read (name, 2));
endfunction

function check_errors ()
  [dir, cleanup] = tg_scratch ();
  tg_expect_error (@() tiffgate_read (fullfile (dir, "missing.tif")), "Quarn:imagesci:Tiff:unableToOpenFile");
  name = tg_corpus ("imagetiff-multipage-8b.tiff");
  tg_expect_error (@() tiffgate_read (name, 4), "Quarn:imagesci:Tiff:unableToChangeDir");
  tg_expect_error (@() tiffgate_read (name, 0), "tiffgate:read:badArgument");
  tg_expect_error (@() tiffgate_read (name, 1.5), "tiffgate:read:badArgument");
  tg_expect_error (@() tiffgate_read (name, "grey"), "tiffgate:read:badArgument");
  tg_expect_error (@() tiffgate_read (42), "tiffgate:read:badFile");
  tg_expect_error (@() tiffgate_read_planes (name), "tiffgate:read:notYCbCr");
  assert (! any (strcmp (tg_open_files (), name)));
endfunction

function manifest = manifest_by_file ()
  manifest = tg_python (["import csv\n" ...
                         "import re\nkey = lambda n: 'f_' + re.sub(r'[^A-Za-z0-9_]', '_', n)\n" ...
                         "print(json.dumps({key(r['file']): r for r in csv.DictReader(open(sys.argv[1]))}))"],
                        fullfile (getenv ("TIFFGATE_CORPUS"), "MANIFEST.csv"));
endfunction
