## tiffgate_octave_bench (OCT_DIR, [SIDE, [REPEATS]])
##
## Times tiffgate_read against Octave's imread on a SIDE x SIDE RGB uint8
## image (default 8192) stored uncompressed and with Deflate, and
## tiffgate_write against imwrite, all in one run, and prints a Markdown
## table of medians of REPEATS runs (default 3) with the ratio Octave /
## tiffgate (above 1: tiffgate is faster). One more row per case measures
## the host itself: every strip through the public read or write command,
## assembled (or cut) in Octave as a script would, with tiffgate.oct from
## OCT_DIR.
## scripts/bench.sh octave runs it (docs/PERFORMANCE.md).

function tiffgate_octave_bench (oct_dir, side, repeats)
  if (nargin < 2)
    side = 8192;
  endif
  if (nargin < 3)
    repeats = 3;
  endif
  dir = tempname (bench_root ());
  mkdir (dir);
  cleanup = onCleanup (@() remove_tree (dir));

  ## Smooth colour ramps with some noise: Deflate finds something to do.
  [x, y] = meshgrid (single (1:side), single (1:side));
  noise = single (randi ([0 15], side, side));
  img = uint8 (cat (3, mod (x / 8 + noise, 256), mod (y / 8 + noise, 256), mod ((x + y) / 16, 256)));
  clear x y noise
  files = {fullfile(dir, "plain.tif"), fullfile(dir, "deflate.tif")};
  compressions = {"none", "deflate"};
  for k = 1:2
    imwrite (img, files{k}, "Compression", compressions{k});
  endfor
  addpath (oct_dir);
  assert (isequal (tiffgate_read (files{1}), img) && isequal (tiffgate_read (files{2}), img));
  out = fullfile (dir, "out.tif");

  printf ("Image %d x %d x 3 uint8 (%.0f MiB), median of %d runs, CPU time.\n\n", side, side,
          numel (img) / 2^20, repeats);
  printf ("| case | tiffgate | Octave | Octave / tiffgate | target |\n|---|---:|---:|---:|---:|\n");
  targets = [8, 4];
  names = {"uncompressed", "Deflate"};
  for k = 1:2
    ours = median_time (@() tiffgate_read (files{k}), repeats);
    theirs = median_time (@() imread (files{k}), repeats);
    row (sprintf ("read, %s: tiffgate_read / imread", names{k}), ours, theirs, targets(k));
    row (sprintf ("read, %s: strips assembled in Octave, oct-file", names{k}),
         median_time (@() read_by_strips (files{k}), repeats), theirs);
  endfor
  for k = 1:2
    ours = median_time (@() tiffgate_write (out, img, "Compression", compressions{k}), repeats);
    theirs = median_time (@() imwrite (img, out, "Compression", compressions{k}), repeats);
    row (sprintf ("write, %s: tiffgate_write / imwrite", names{k}), ours, theirs, 4);
    row (sprintf ("write, %s: strips cut in Octave, oct-file", names{k}),
         median_time (@() write_by_strips (out, img, compressions{k}), repeats), theirs);
  endfor
endfunction

## What a script does without the helpers' internal entry: each strip read
## with the public command and put into a preallocated image.
function img = read_by_strips (file)
  id = tiffgate ("open", file, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  L = tiffgate ("getField", id, 257);
  W = tiffgate ("getField", id, 256);
  rows_per_strip = tiffgate ("getField", id, 278);
  img = zeros (L, W, 3, "uint8");
  for s = 0:ceil (L / rows_per_strip) - 1
    r = s * rows_per_strip;
    block = tiffgate ("readEncodedStrip", id, s);
    img(r + (1:rows (block)), :, :) = block;
  endfor
endfunction

## The same for writing: strips of about 64 KiB, as tiffgate_write makes them.
function write_by_strips (file, img, compression)
  [L, W, S] = size (img);
  rows_per_strip = max (1, floor (65536 / (W * S)));
  id = tiffgate ("open", file, "w");
  closer = onCleanup (@() tiffgate ("close", id));
  tags = [262 2; 256 W; 257 L; 258 8; 277 S; 284 1; 259 compression_code(compression); 278 rows_per_strip];
  for k = 1:rows (tags)
    tiffgate ("setField", id, tags(k, 1), tags(k, 2));
  endfor
  for s = 0:ceil (L / rows_per_strip) - 1
    rr = s * rows_per_strip + 1 : min ((s + 1) * rows_per_strip, L);
    tiffgate ("writeEncodedStrip", id, s, img(rr, :, :));
  endfor
  tiffgate ("writeDirectory", id);
endfunction

function code = compression_code (compression)
  code = 1 + 7 * strcmp (compression, "deflate");
endfunction

## CPU time, as in the other benchmarks: the machines are shared, and
## waiting for a core is not the code's time. Octave's imread and imwrite
## run in one thread, as tiffgate does.
function seconds = median_time (fn, repeats)
  seconds = zeros (1, repeats);
  for k = 1:repeats
    start = cputime ();
    fn ();
    seconds(k) = cputime () - start;
  endfor
  seconds = median (seconds);
endfunction

function row (what, ours, theirs, target)
  if (nargin < 4)
    printf ("| %s | %.3f s | %.3f s | %.1f | |\n", what, ours, theirs, theirs / ours);
  else
    printf ("| %s | %.3f s | %.3f s | %.1f | >= %d %s |\n", what, ours, theirs, theirs / ours, target,
            verdict (theirs / ours >= target));
  endif
endfunction

function text = verdict (met)
  if (met)
    text = "ok";
  else
    text = "MISSED";
  endif
endfunction

## /dev/shm when there is one: the files are read from memory, so that the
## disk is not what is measured.
function root = bench_root ()
  root = getenv ("TIFFGATE_BENCH_DIR");
  if (isempty (root))
    if (exist ("/dev/shm", "dir"))
      root = "/dev/shm";
    else
      root = tempdir ();
    endif
  endif
endfunction

function remove_tree (dir)
  confirm_recursive_rmdir (false, "local");
  [~] = rmdir (dir, "s");
endfunction
