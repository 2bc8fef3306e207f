## The file and directory commands from Octave: results of the documented
## classes and shapes, checked against the corpus tables and tifffile.

function octave_files_test ()
  check_get_version ();
  check_directory_walk ();
  check_queries ();
  check_sub_directories ();
  check_close ();
  check_rewrite ();
  printf ("octave_files_test: passed\n");
endfunction

function check_get_version ()
  v = tiffgate ("getVersion");
  assert (ischar (v) && rows (v) == 1);
  [~, version] = system ("pkg-config --modversion libtiff-4");
  assert (strncmp (v, ["LIBTIFF, Version " strtrim(version)], 17 + numel (strtrim (version))));
  tg_expect_error (@() tiffgate ("getVersion", 1), "Quarn:imagesci:validate:wrongNumberOfInputs");
endfunction

function check_directory_walk ()
  name = "imagetiff-multipage-8b.tiff";
  count = str2double (tg_corpus_row ("MANIFEST", name).directories);
  assert (count, 3);
  id = tiffgate ("open", tg_corpus (name), "r");
  closer = onCleanup (@() tiffgate ("close", id));
  assert (class (id), "uint64");
  assert (size (id), [1 1]);
  assert (id != 0);

  n = tiffgate ("currentDirectory", id);
  assert (class (n), "double");
  assert (n, 1);
  last = tiffgate ("lastDirectory", id);
  assert (class (last), "logical");
  assert (size (last), [1 1]);
  assert (! last);

  walked = 1;
  while (! tiffgate ("lastDirectory", id))
    tiffgate ("readDirectory", id);
    walked++;
    assert (tiffgate ("currentDirectory", id), walked);
  endwhile
  assert (walked, count);
  tg_expect_error (@() tiffgate ("readDirectory", id), "Quarn:imagesci:Tiff:unableToReadDir",
                   "Unable to read the next directory.");

  tiffgate ("setDirectory", id, 0);
  assert (tiffgate ("currentDirectory", id), 1);
  tiffgate ("setDirectory", id, count - 0.5);  # truncated toward zero
  assert (tiffgate ("currentDirectory", id), count);
  tiffgate ("setDirectory", id, uint8 (1));
  assert (tiffgate ("currentDirectory", id), 2);
  tg_expect_error (@() tiffgate ("setDirectory", id, count), "Quarn:imagesci:Tiff:unableToChangeDir",
                   sprintf ("Unable to change to directory %d.", count + 1));
  tg_expect_error (@() tiffgate ("setDirectory", id, 65536), "Quarn:imagesci:validate:argumentOutOfBounds",
                   "An argument is out of bounds for its data type.");
  tg_expect_error (@() tiffgate ("setDirectory", id, -1), "Quarn:imagesci:validate:argumentOutOfBounds");
  tg_expect_error (@() tiffgate ("setDirectory", id), "Quarn:imagesci:validate:wrongNumberOfInputs");
endfunction

## Strip and tile counts as libtiff reports them in the corpus tables.
function check_queries ()
  for name = {"libtiff-minisblack-1c-8b.tiff", "imagetiff-pics-quad-tile.tif"}
    name = name{1};
    tiled = ! strcmp (tg_corpus_row ("MANIFEST", name).tiled, "no");  # "no" or "TWxTL"
    chunks = str2double (tg_corpus_row ("LIBTIFF_CHUNKS", name, 0).chunks);
    id = tiffgate ("open", tg_corpus (name), "r");
    closer = onCleanup (@() tiffgate ("close", id));
    is_tiled = tiffgate ("isTiled", id);
    assert (class (is_tiled), "logical");
    assert (is_tiled, tiled);
    strips = tiffgate ("numberOfStrips", id);
    tiles = tiffgate ("numberOfTiles", id);
    assert (class (strips), "double");
    assert (class (tiles), "double");
    assert (size (tiles), [1 1]);
    if (tiled)
      assert (tiles, chunks);
    else
      assert (strips, chunks);
    endif
    assert (tiffgate ("lastDirectory", id));
  endfor
endfunction

## SubIFD offsets as tifffile reads them; only listed offsets are followed.
function check_sub_directories ()
  name = tg_corpus ("imagetiff-subsubifds.tif");
  expected = tg_python (["t = tifffile.TiffFile(sys.argv[1])\n" ...
                         "i, p = next((i, p) for i, p in enumerate(t.pages) if p.subifds)\n" ...
                         "t.filehandle.seek(p.subifds[0])\n" ...
                         "sub = tifffile.TiffPage(t, index=len(t.pages))\n" ...
                         "print(json.dumps({'directory': i, 'offsets': list(p.subifds)," ...
                         " 'strips': len(sub.dataoffsets), 'tiled': sub.is_tiled}))"], name);
  id = tiffgate ("open", name, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  offset = uint64 (expected.offsets(1));
  tg_expect_error (@() tiffgate ("setSubDirectory", id, offset), "Quarn:imagesci:Tiff:noSubDirectories",
                   "The current directory has no SubIFDs.");
  tiffgate ("setDirectory", id, expected.directory);
  tg_expect_error (@() tiffgate ("setSubDirectory", id, offset + 2), "Quarn:imagesci:Tiff:noSuchSubDirectory");
  tiffgate ("setSubDirectory", id, offset);
  assert (tiffgate ("isTiled", id), logical (expected.tiled));
  assert (tiffgate ("numberOfStrips", id), expected.strips);
  ## Back to the main chain; the offset given as a double works as well.
  tiffgate ("setDirectory", id, expected.directory);
  tiffgate ("setSubDirectory", id, double (offset));
  assert (tiffgate ("numberOfStrips", id), expected.strips);
endfunction

function check_close ()
  id = tiffgate ("open", tg_corpus ("libtiff-minisblack-1c-8b.tiff"), "r");
  held = @() sum (strcmp (tg_open_files (), tg_corpus ("libtiff-minisblack-1c-8b.tiff")));
  assert (held (), 1);
  tiffgate ("close", id);
  assert (held (), 0);
  tiffgate ("close", id);  # closing twice is silent
  tiffgate ("close", uint64 (12345));  # and so is closing what was never open
  tg_expect_error (@() tiffgate ("currentDirectory", id), "Quarn:imagesci:Tiff:invalidFileId",
                   "The file identifier does not refer to an open TIFF file.");
  tg_expect_error (@() tiffgate ("close", uint64 (0)), "Quarn:imagesci:Tiff:badFileId",
                   "Invalid TIFF file identifier.");
  tg_expect_error (@() tiffgate ("close", 0), "Quarn:imagesci:Tiff:badFileId");
endfunction

## "rewriteDirectory" on a writable copy; tifffile still reads the same image.
function check_rewrite ()
  [dir, cleanup] = tg_scratch ();
  name = "libtiff-minisblack-1c-8b.tiff";
  copy = fullfile (dir, "copy.tif");
  tg_copy (tg_corpus (name), copy);
  id = tiffgate ("open", copy, "r+");
  tiffgate ("rewriteDirectory", id);
  tiffgate ("close", id);
  digest = tg_python (["a = tifffile.imread(sys.argv[1])\n" ...
                       "import hashlib\n" ...
                       "print(json.dumps(hashlib.sha256(a.astype(a.dtype.newbyteorder('<')).tobytes()).hexdigest()))"],
                      copy);
  assert (digest, tg_corpus_row ("REFERENCE", name, 0).sha256);
  assert (stat (copy).size > stat (tg_corpus (name)).size);  # the directory went to the end
endfunction
