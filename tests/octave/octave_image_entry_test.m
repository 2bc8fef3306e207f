## The module's whole-image entries under the helpers: every chunk placed
## where libtiff numbers it, clipped to the image, contiguous and separate,
## strips and tiles, checked against tifffile; each chunk still checked by
## the module's own command; the entries' operands refused with the
## module's kinds.

function octave_image_entry_test ()
  [dir, cleanup] = tg_scratch ();
  X = pattern (10, 7, 3);
  ## Strips of 4 rows (4, 4, 2) and 16 x 16 tiles that overhang the image,
  ## written by tifffile.
  layouts = {"a, rowsperstrip=4", "a, tile=(16, 16)", "a.transpose(2, 0, 1), tile=(16, 16), planarconfig='separate'"};
  for k = 1:numel (layouts)
    name = fullfile (dir, sprintf ("read-%d.tif", k));
    tg_python (["a = numpy.fromfunction(lambda r, c, s: (r * 7 + c * 3 + s * 50) % 256, (10, 7, 3)).astype('uint8')\n" ...
                "tifffile.imwrite(sys.argv[1], " layouts{k} ", photometric='rgb')\n" ...
                "print('null')"], name);
    id = tiffgate ("open", name, "r");
    assert (tiffgate ("__readImage__", id), X);
    tiffgate ("close", id);
  endfor
  check_write (dir, X);
  check_refusals (fullfile (dir, "read-1.tif"), X);
  printf ("octave_image_entry_test: passed\n");
endfunction

## The same formula as the Python above, counting rows, columns, samples from 0.
function X = pattern (L, W, S)
  [c, r, s] = meshgrid (0:W-1, 0:L-1, 0:S-1);
  X = uint8 (mod (r * 7 + c * 3 + s * 50, 256));
endfunction

## Strips and tiles cut from the image, contiguous and as separate planes,
## decoded by tifffile; a count of 1 writes the first strip only.
function check_write (dir, X)
  layouts = {[284 1; 278 3], [284 2; 278 3], [284 1; 322 16; 323 16]};
  for k = 1:numel (layouts)
    name = fullfile (dir, sprintf ("written-%d.tif", k));
    id = tiffgate ("open", name, "w");
    tags = [262 2; 256 7; 257 10; 258 8; 277 3; layouts{k}];
    for t = 1:rows (tags)
      tiffgate ("setField", id, tags(t, 1), tags(t, 2));
    endfor
    tiffgate ("__writeImage__", id, X, Inf);
    tiffgate ("close", id);
    decoded = tg_tifffile ({name}){1};
    assert (decoded.sha256, tg_sha256 (X, layouts{k}(1, 2) == 2));
  endfor

  name = fullfile (dir, "first.tif");
  id = tiffgate ("open", name, "w");
  tags = [262 1; 256 7; 257 10; 258 8; 277 1; 278 5];
  for t = 1:rows (tags)
    tiffgate ("setField", id, tags(t, 1), tags(t, 2));
  endfor
  tiffgate ("__writeImage__", id, X(:, :, 2), 1);
  assert (tiffgate ("readEncodedStrip", id, 0), X(1:5, :, 2));
  tiffgate ("close", id);
  counts = tg_python ("t = tifffile.TiffFile(sys.argv[1])\nprint(json.dumps(list(t.pages[0].tags['StripByteCounts'].value)))", name);
  assert (counts(:).', [35 0]);
endfunction

function check_refusals (name, X)
  id = tiffgate ("open", name, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  kind = @(k) ["Quarn:imagesci:" k];
  tg_expect_error (@() tiffgate ("__readImage__", id, 1), kind ("validate:wrongNumberOfInputs"));
  tg_expect_error (@() tiffgate ("__readImage__", 0), kind ("Tiff:badFileId"));
  tg_expect_error (@() tiffgate ("__writeImage__", id, X), kind ("validate:wrongNumberOfInputs"));
  for count = {-Inf, 0, 1.5, NaN, 2^32, "all", [1 2]}
    tg_expect_error (@() tiffgate ("__writeImage__", id, X, count{1}), kind ("validate:argumentOutOfBounds"));
  endfor
  ## The image is refused as the write command refuses it.
  for image = {"text", {X}, uint16(X)}
    tg_expect_error (@() tiffgate ("__writeImage__", id, image{1}, Inf),
                     lasterror_id (@() tiffgate ("writeEncodedStrip", id, 0, image{1})));
  endfor
endfunction

function id = lasterror_id (fn)
  try
    fn ();
    error ("tiffgate:test", "expected an error");
  catch err
    id = err.identifier;
  end_try_catch
endfunction
