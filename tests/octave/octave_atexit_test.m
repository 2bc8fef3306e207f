## Files left open are closed when Octave clears the module, and when
## Octave exits, each after a closingFileHandle warning naming it, in
## ascending order of identifier; the module loads again afterwards.

function octave_atexit_test ()
  check_clear ();
  check_clear_with_warning_as_error ();
  check_exit ();
  printf ("octave_atexit_test: passed\n");
endfunction

function check_clear ()
  [dir, cleanup] = tg_scratch ();
  read_name = tg_corpus ("libtiff-minisblack-1c-8b.tiff");
  write_name = fullfile (dir, "written.tif");
  ids = [tiffgate("open", read_name, "r"), tiffgate("open", write_name, "w")];
  names = {read_name, write_name};
  assert (sum (ismember (tg_open_files (), names)), 2);

  out = evalc ("clear tiffgate");
  [~, order] = sort (ids);
  expected = cellfun (@(n) sprintf ("Closing TIFF file '%s', which was left open.", n),
                      names(order), "UniformOutput", false);
  shown = regexp (out, "warning: (Closing TIFF file [^\n]*)", "tokens");
  shown = cellfun (@(t) t{1}, shown, "UniformOutput", false);
  assert (shown, expected);
  assert (sum (ismember (tg_open_files (), names)), 0);

  ## Loaded again: the old identifiers are dead, new ones work.
  tg_expect_error (@() tiffgate ("currentDirectory", ids(1)), "Quarn:imagesci:Tiff:invalidFileId");
  id = tiffgate ("open", read_name, "r");
  assert (tiffgate ("currentDirectory", id), 1);
  tiffgate ("close", id);
  ## Nothing open, nothing said.
  lastwarn ("", "");
  clear tiffgate
  assert (lastwarn (), "");
endfunction

## The closer goes on when the user made its warning an error.
function check_clear_with_warning_as_error ()
  names = {tg_corpus("libtiff-minisblack-1c-8b.tiff"), tg_corpus("imagetiff-multipage-8b.tiff")};
  tiffgate ("open", names{1}, "r");
  tiffgate ("open", names{2}, "r");
  state = warning ("error", "Quarn:imagesci:Tiff:closingFileHandle");
  clear tiffgate
  warning (state);
  assert (sum (ismember (tg_open_files (), names)), 0);
endfunction

## A second Octave leaves a file open and exits.
function check_exit ()
  [dir, cleanup] = tg_scratch ();
  name = fullfile (dir, "left open.tif");
  script = sprintf ("addpath('%s'); tiffgate('open', '%s', 'w'); disp('exiting')",
                    fileparts (which ("tiffgate")), name);
  [status, out] = system (sprintf ("'%s' --no-gui --norc --no-history --quiet --eval \"%s\" 2>&1",
                                   octave_cli (), script));
  assert (status, 0);
  assert (! isempty (strfind (out, "exiting")));
  assert (! isempty (strfind (out, sprintf ("warning: Closing TIFF file '%s', which was left open.", name))));
endfunction

function cli = octave_cli ()
  cli = getenv ("TIFFGATE_OCTAVE_CLI");
  if (isempty (cli))
    cli = fullfile (OCTAVE_HOME (), "bin", "octave-cli");
  endif
endfunction
