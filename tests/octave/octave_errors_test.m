## Errors reach Octave as errors with the module's identifier and the
## catalogue's text as it stands, catchable with try/catch.

function octave_errors_test ()
  check_command_words ();
  check_operand_counts ();
  check_open_errors ();
  check_adapter_errors ();
  check_error_leaves_state ();
  printf ("octave_errors_test: passed\n");
endfunction

function check_command_words ()
  id = "Quarn:imagesci:Tiff:InvalidOperation";
  tg_expect_error (@() tiffgate ("Close", 1), id, "'Close' is not a valid operation.");
  tg_expect_error (@() tiffgate ("CLOSE", 1), id, "'CLOSE' is not a valid operation.");
  tg_expect_error (@() tiffgate ("close ", 1), id, "'close ' is not a valid operation.");
  tg_expect_error (@() tiffgate ("clos", 1), id);
  tg_expect_error (@() tiffgate (["close" char(0)], 1), id);
  tg_expect_error (@() tiffgate (), id, "'' is not a valid operation.");
  tg_expect_error (@() tiffgate (5), id, "'' is not a valid operation.");
  tg_expect_error (@() tiffgate ({"close"}), id);
  ## A word given as a column is the same characters.
  v = tiffgate ("getVersion".');
  assert (strncmp (v, "LIBTIFF", 7));
  ## The catch block sees a full error object.
  try
    tiffgate ("noSuchCommand");
  catch err
    assert (err.identifier, id);
    assert (err.message, "'noSuchCommand' is not a valid operation.");
  end_try_catch
  assert (lasterr (), "'noSuchCommand' is not a valid operation.");
endfunction

## Operand limits of the 25 commands (command word not counted).
function check_operand_counts ()
  limits = {"close", 1, 1; "computeStrip", 2, 3; "computeTile", 2, 3;
            "currentDirectory", 1, 1; "getField", 2, 2; "getVersion", 0, 0;
            "isTiled", 1, 1; "lastDirectory", 1, 1; "numberOfStrips", 1, 1;
            "numberOfTiles", 1, 1; "open", 2, 2; "readDirectory", 1, 1;
            "readEncodedStrip", 2, 2; "readEncodedTile", 2, 3; "readRGBAImage", 1, 1;
            "readRGBAStrip", 2, 2; "readRGBATile", 3, 3; "rewriteDirectory", 1, 1;
            "retrieveMetadata", 1, 1; "setDirectory", 2, 2; "setField", 3, 3;
            "setSubDirectory", 2, 2; "writeDirectory", 1, 1; "writeEncodedStrip", 3, 5;
            "writeEncodedTile", 3, 5};
  assert (rows (limits), 25);
  for k = 1:rows (limits)
    [word, least, most] = limits{k, :};
    for n = [least - 1, most + 1]
      if (n < 0)
        continue;
      endif
      operands = num2cell (zeros (1, n));
      tg_expect_error (@() tiffgate (word, operands{:}), "Quarn:imagesci:validate:wrongNumberOfInputs",
                       "Wrong number of input arguments.");
    endfor
  endfor
endfunction

function check_open_errors ()
  id = "Quarn:imagesci:Tiff:argumentWasNotChar";
  tg_expect_error (@() tiffgate ("open", 1, "r"), id, "The file argument must be a character array.");
  tg_expect_error (@() tiffgate ("open", "a.tif", 1), id, "The access mode argument must be a character array.");
  tg_expect_error (@() tiffgate ("open", 1, 1), id, "The file argument must be a character array.");
  tg_expect_error (@() tiffgate ("open", {"a.tif"}, "r"), id);
  [dir, cleanup] = tg_scratch ();
  missing = fullfile (dir, "missing.tif");
  tg_expect_error (@() tiffgate ("open", missing, "r"), "Quarn:imagesci:Tiff:unableToOpenFile",
                   sprintf ("Unable to open TIFF file '%s'.", missing));
  ## libtiff refuses the mode; the module passes it on unexamined.
  tg_expect_error (@() tiffgate ("open", fullfile (dir, "new.tif"), "q"), "Quarn:imagesci:Tiff:unableToOpenFile");
  tg_expect_error (@() tiffgate ("open", dir, "r"), "Quarn:imagesci:Tiff:unableToOpenFile");
  ## Not a TIFF file at all.
  text = fullfile (dir, "text.tif");
  fid = fopen (text, "w");
  fputs (fid, "not a TIFF file\n");
  fclose (fid);
  tg_expect_error (@() tiffgate ("open", text, "r"), "Quarn:imagesci:Tiff:unableToOpenFile");
endfunction

## What the adapter refuses itself, before the module sees it.
function check_adapter_errors ()
  tg_expect_error (@() tiffgate ("setDirectory", 1 + 2i, 0), "tiffgate:complexOperand",
                   "Argument 2 is complex; tiffgate takes real values only.");
  tg_expect_error (@() tiffgate (complex ("getVersion" + 0)), "tiffgate:complexOperand");
  ## A sparse operand is read as the full array it stands for.
  tg_expect_error (@() tiffgate ("close", sparse (0)), "Quarn:imagesci:Tiff:badFileId");
  tg_expect_error (@() tiffgate ("currentDirectory", sparse (7)), "Quarn:imagesci:Tiff:invalidFileId");
endfunction

## A failed call leaves the open files as they were.
function check_error_leaves_state ()
  id = tiffgate ("open", tg_corpus ("imagetiff-multipage-8b.tiff"), "r");
  closer = onCleanup (@() tiffgate ("close", id));
  tiffgate ("setDirectory", id, 1);
  for k = 1:50
    try
      tiffgate ("setDirectory", id, 99);
    catch
    end_try_catch
  endfor
  ## libtiff leaves the directory it failed to reach as it pleases; the
  ## handle still answers and moves on request.
  tiffgate ("setDirectory", id, 2);
  assert (tiffgate ("currentDirectory", id), 3);
  assert (tiffgate ("lastDirectory", id));
endfunction
