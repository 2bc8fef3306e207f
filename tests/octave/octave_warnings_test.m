## Warnings reach Octave's warning routine with their identifiers: lastwarn
## sees them, warning('off', id) silences them, and warning('error', id)
## turns them into errors without harm to the module.

function octave_warnings_test ()
  ## caspian carries a private tag (42112) that libtiff warns about on open.
  file = tg_corpus ("imagetiff-pics-caspian.tif");
  id = "Quarn:imagesci:Tiff:libtiffWarning";

  lastwarn ("", "");
  h = tiffgate ("open", file, "r");
  [msg, warned] = lastwarn ();
  assert (warned, id);
  assert (! isempty (strfind (msg, "42112")));
  tiffgate ("close", h);

  ## Silenced: lastwarn keeps what it had.
  state = warning ("off", id);
  lastwarn ("before", "tiffgate:test");
  h = tiffgate ("open", file, "r");
  [~, warned] = lastwarn ();
  assert (warned, "tiffgate:test");
  tiffgate ("close", h);
  warning (state);

  ## Made an error: the call fails with the warning's identifier, and the
  ## module answers the next call.
  warning ("error", id);
  before = numel (tg_open_files ());
  tg_expect_error (@() tiffgate ("open", file, "r"), id);
  warning ("on", id);
  v = tiffgate ("getVersion");
  assert (strncmp (v, "LIBTIFF", 7));
  ## The file had been opened when the warning came; it stays registered
  ## until the module is unloaded, which closes it with a warning.
  assert (numel (tg_open_files ()), before + 1);
  lastwarn ("", "");
  clear tiffgate
  [msg, warned] = lastwarn ();
  assert (warned, "Quarn:imagesci:Tiff:closingFileHandle");
  assert (msg, sprintf ("Closing TIFF file '%s', which was left open.", file));
  assert (numel (tg_open_files ()), before);

  ## A successful call issues no warning of its own.
  lastwarn ("", "");
  h = tiffgate ("open", tg_corpus ("libtiff-minisblack-1c-8b.tiff"), "r");
  tiffgate ("close", h);
  [~, warned] = lastwarn ();
  assert (warned, "");
  printf ("octave_warnings_test: passed\n");
endfunction
