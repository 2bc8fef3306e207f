## tiffgate_octave_bench ([SIDE])
##
## Times tiffgate_read against Octave's imread on a large RGB image stored
## uncompressed and with Deflate, and tiffgate_write against imwrite, all in
## one run, and prints each time and the ratio tiffgate / Octave (below 1:
## tiffgate is faster). The image is SIDE x SIDE x 3 uint8 (default 4096).
## Not a test: run it by hand on a quiet machine, with tiffgate.mex and the
## package's inst/ folder on the path:
##
##   octave-cli --eval "addpath('build/octave', 'host/octave/package/inst', \
##                      'bench/octave'); tiffgate_octave_bench"

function tiffgate_octave_bench (side)
  if (nargin < 1)
    side = 4096;
  endif
  repeats = 3;
  dir = tempname ();
  mkdir (dir);
  cleanup = onCleanup (@() remove_tree (dir));

  ## Smooth colour ramps with some noise: Deflate finds something to do.
  [x, y] = meshgrid (single (1:side), single (1:side));
  noise = single (randi ([0 15], side, side));
  img = uint8 (cat (3, mod (x / 8 + noise, 256), mod (y / 8 + noise, 256), mod ((x + y) / 16, 256)));
  plain = fullfile (dir, "plain.tif");
  deflated = fullfile (dir, "deflate.tif");
  imwrite (img, plain, "Compression", "none");
  imwrite (img, deflated, "Compression", "deflate");
  assert (isequal (tiffgate_read (plain), img) && isequal (imread (deflated), img));

  printf ("image %d x %d x 3 uint8 (%.0f MiB); best of %d runs\n", side, side, numel (img) / 2^20, repeats);
  printf ("%-28s %10s %10s %8s\n", "", "tiffgate", "Octave", "ratio");
  report ("read, uncompressed", best (@() tiffgate_read (plain), repeats), best (@() imread (plain), repeats));
  report ("read, Deflate", best (@() tiffgate_read (deflated), repeats), best (@() imread (deflated), repeats));
  out = fullfile (dir, "out.tif");
  report ("write, uncompressed", best (@() tiffgate_write (out, img), repeats),
          best (@() imwrite (img, out, "Compression", "none"), repeats));
  report ("write, Deflate", best (@() tiffgate_write (out, img, "Compression", "deflate"), repeats),
          best (@() imwrite (img, out, "Compression", "deflate"), repeats));
endfunction

function seconds = best (fn, repeats)
  seconds = Inf;
  for k = 1:repeats
    start = tic ();
    fn ();
    seconds = min (seconds, toc (start));
  endfor
endfunction

function report (what, ours, theirs)
  printf ("%-28s %9.3fs %9.3fs %8.2f\n", what, ours, theirs, ours / theirs);
endfunction

function remove_tree (dir)
  confirm_recursive_rmdir (false, "local");
  [~] = rmdir (dir, "s");
endfunction
