## File names beyond ASCII: Octave's UTF-8 text reaches "open" as UTF-16
## and comes back as the same UTF-8 in messages.

function octave_utf8_test ()
  [dir, cleanup] = tg_scratch ();
  ## Two-, three- and four-byte characters; the last is a UTF-16 pair.
  names = {"Grüße.tif", "漢字 テスト.tif", "\xF0\x9F\x93\xB7 photo.tif"};
  source = tg_corpus ("imagetiff-multipage-8b.tiff");
  for k = 1:numel (names)
    name = fullfile (dir, names{k});
    tg_copy (source, name);
    id = tiffgate ("open", name, "r");
    assert (sum (strcmp (tg_open_files (), name)), 1);
    tiffgate ("setDirectory", id, 2);
    assert (tiffgate ("currentDirectory", id), 3);
    tiffgate ("close", id);

    ## Back out in the error message, byte for byte.
    missing = fullfile (dir, ["missing " names{k}]);
    tg_expect_error (@() tiffgate ("open", missing, "r"), "Quarn:imagesci:Tiff:unableToOpenFile",
                     sprintf ("Unable to open TIFF file '%s'.", missing));
  endfor

  ## A new file under such a name, and its name in the unload warning.
  written = fullfile (dir, ["new " names{3}]);
  tiffgate ("open", written, "w");
  assert (exist (written, "file"), 2);
  lastwarn ("", "");
  clear tiffgate
  [msg, id] = lastwarn ();
  assert (id, "Quarn:imagesci:Tiff:closingFileHandle");
  assert (msg, sprintf ("Closing TIFF file '%s', which was left open.", written));

  ## Bytes that are not UTF-8 name no file the module can reach: a stray
  ## byte is read as the Latin-1 character of its code, and the open fails
  ## cleanly with that name.
  latin1 = [dir "/caf" char(233) ".tif"];  # fullfile refuses text that is not UTF-8
  tg_copy (source, latin1);
  err = tg_expect_error (@() tiffgate ("open", latin1, "r"), "Quarn:imagesci:Tiff:unableToOpenFile");
  assert (! isempty (strfind (err.message, ["caf" "\xC3\xA9" ".tif"])));
  printf ("octave_utf8_test: passed\n");
endfunction
