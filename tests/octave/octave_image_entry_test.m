## The oct-file's internal whole-image entries, under the helpers: chunks
## placed where the grid says, clipped to the image, what a chunk does not
## cover zeroed; every chunk still checked by the module's own command; the
## entries' own operands refused with tiffgate:badInternalCall.

function octave_image_entry_test ()
  [dir, cleanup] = tg_scratch ();
  name = fullfile (dir, "strips.tif");
  ## 10 x 7 x 3 in strips of 4 rows (4, 4, 2), written by tifffile.
  X = pattern (10, 7, 3);
  tg_python (["a = numpy.fromfunction(lambda r, c, s: (r * 7 + c * 3 + s * 50) % 256, (10, 7, 3))\n" ...
              "tifffile.imwrite(sys.argv[1], a.astype('uint8'), photometric='rgb', rowsperstrip=4)\n" ...
              "print('null')"], name);
  check_read_grid (name, X);
  check_write (dir, X);
  check_refusals (name, X);
  printf ("octave_image_entry_test: passed\n");
endfunction

## The same formula as the Python above, counting rows, columns, samples from 0.
function X = pattern (L, W, S)
  [c, r, s] = meshgrid (0:W-1, 0:L-1, 0:S-1);
  X = uint8 (mod (r * 7 + c * 3 + s * 50, 256));
endfunction

function check_read_grid (name, X)
  id = tiffgate ("open", name, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  read = @(size, chunk) tiffgate ("__readImage__", id, "readEncodedStrip", size, chunk, false);
  assert (read ([10 7 3], [4 7]), X);
  ## Slots of 8 rows hold strips of 4: rows 4 to 7 of each slot are zero,
  ## and the second slot is cut to the image's last 2 rows.
  expected = zeros (10, 7, 3, "uint8");
  expected(1:4, :, :) = X(1:4, :, :);
  expected(9:10, :, :) = X(5:6, :, :);
  assert (read ([10 7 3], [8 7]), expected);
  ## Narrower than the file: columns past the image's 5 are dropped.
  assert (read ([10 5 3], [4 7]), X(:, 1:5, :));
  ## Slots of 2 rows ask for 5 strips of a file with 3: the module refuses
  ## the fourth as it refuses it alone.
  err = tg_expect_error (@() read ([10 7 3], [2 7]), lasterror_id (@() tiffgate ("readEncodedStrip", id, 3)));
  assert (strncmp (err.identifier, "Quarn:imagesci:Tiff:", 20));
endfunction

function id = lasterror_id (fn)
  try
    fn ();
    error ("tiffgate:test", "expected an error");
  catch err
    id = err.identifier;
  end_try_catch
endfunction

## Strips cut from the image, contiguous and as separate planes, decoded by
## tifffile; a count of 1 writes the first strip only.
function check_write (dir, X)
  configs = {1, 2};
  for k = 1:2
    name = fullfile (dir, sprintf ("written-%d.tif", k));
    id = tiffgate ("open", name, "w");
    tags = [262 2; 256 7; 257 10; 258 8; 277 3; 284 configs{k}; 278 3];
    for t = 1:rows (tags)
      tiffgate ("setField", id, tags(t, 1), tags(t, 2));
    endfor
    tiffgate ("__writeImage__", id, "writeEncodedStrip", X, [3 7], configs{k} == 2, Inf);
    tiffgate ("close", id);
    decoded = tg_tifffile ({name}){1};
    assert (decoded.sha256, tg_sha256 (X, configs{k} == 2));
  endfor

  name = fullfile (dir, "first.tif");
  id = tiffgate ("open", name, "w");
  tags = [262 1; 256 7; 257 10; 258 8; 277 1; 278 5];
  for t = 1:rows (tags)
    tiffgate ("setField", id, tags(t, 1), tags(t, 2));
  endfor
  tiffgate ("__writeImage__", id, "writeEncodedStrip", X(:, :, 2), [5 7], false, 1);
  assert (tiffgate ("readEncodedStrip", id, 0), X(1:5, :, 2));
  tiffgate ("close", id);
  counts = tg_python ("t = tifffile.TiffFile(sys.argv[1])\nprint(json.dumps(list(t.pages[0].tags['StripByteCounts'].value)))", name);
  assert (counts(:).', [35 0]);
endfunction

function check_refusals (name, X)
  id = tiffgate ("open", name, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  bad = "tiffgate:badInternalCall";
  tg_expect_error (@() tiffgate ("__readImage__", id, "readEncodedStrip", [10 7 3], [4 7]), bad);
  tg_expect_error (@() tiffgate ("__readImage__", id, "close", [10 7 3], [4 7], false), bad);
  tg_expect_error (@() tiffgate ("__readImage__", id, "readEncodedStrip", [10 7], [4 7], false), bad);
  for size = {[0 7 3], [NaN 7 3], [10 7.5 3], [10 -7 3], [10 Inf 3], {10, 7, 3}, "abc"}
    tg_expect_error (@() tiffgate ("__readImage__", id, "readEncodedStrip", size{1}, [4 7], false), bad);
  endfor
  tg_expect_error (@() tiffgate ("__readImage__", id, "readEncodedStrip", [10 7 3], [4 7], 2), bad);
  tg_expect_error (@() tiffgate ("__readImage__", id, "readEncodedStrip", [10 7 3], [4 7], 1 + 1i),
                   "tiffgate:complexOperand");
  ## The file identifier is the module's to check.
  tg_expect_error (@() tiffgate ("__readImage__", 0, "readEncodedStrip", [10 7 3], [4 7], false),
                   "Quarn:imagesci:Tiff:badFileId");
  ## Writing: the image must be numeric or logical data of 2 or 3 dimensions.
  for image = {"text", zeros(2, 2, 2, 2, "uint8"), {X}, uint8([])}
    tg_expect_error (@() tiffgate ("__writeImage__", id, "writeEncodedStrip", image{1}, [4 7], false, Inf), bad);
  endfor
  tg_expect_error (@() tiffgate ("__writeImage__", id, "readEncodedStrip", X, [4 7], false, Inf), bad);
  tg_expect_error (@() tiffgate ("__writeImage__", id, "writeEncodedStrip", X, [4 7], false, -Inf), bad);
  ## A file open for reading: the module refuses the write of the first chunk.
  tg_expect_error (@() tiffgate ("__writeImage__", id, "writeEncodedStrip", X, [4 7], false, Inf),
                   lasterror_id (@() tiffgate ("writeEncodedStrip", id, 0, X(1:4, :, :))));
endfunction
