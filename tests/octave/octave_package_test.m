## The Octave package: pkg install builds the oct-file from the package's
## own sources with mkoctfile, into a prefix of its own; after pkg load the
## module and the host-side functions are there and answer.

function octave_package_test ()
  tarball = getenv ("TIFFGATE_PACKAGE");
  assert (exist (tarball, "file"), 2);
  assert (isempty (which ("tiffgate")));  # nothing from the build tree
  [dir, cleanup] = tg_scratch ();
  prefix = fullfile (dir, "packages");
  pkg ("prefix", prefix, prefix);
  pkg ("local_list", fullfile (dir, "local_list"));
  pkg ("global_list", fullfile (dir, "global_list"));

  pkg ("install", "-local", tarball);
  installed = pkg ("list");
  assert (numel (installed), 1);
  assert (installed{1}.name, "tiffgate");
  assert (! isempty (regexp (tarball, ["tiffgate-" installed{1}.version "\\.tar\\.gz$"], "once")));

  pkg ("load", "tiffgate");
  for name = {"tiffgate", "tiffgate_info", "tiffgate_read", "tiffgate_write"}
    assert (strncmp (which (name{1}), prefix, numel (prefix)), ["not installed: " name{1}]);
  endfor
  assert (! isempty (regexp (which ("tiffgate"), '\.oct$', "once")));
  help_text = evalc ("help tiffgate_read");
  assert (! isempty (strfind (help_text, "[Y, CB, CR] = tiffgate_read (FILE, DIR)")));
  ## The oct-file's help comes from the tiffgate.m that post_install put beside it.
  help_text = evalc ("help tiffgate");
  assert (! isempty (strfind (help_text, "tiffgate (\"readEncodedStrip\", id, strip)")));

  ## The installed module at work.
  name = tg_corpus ("imagetiff-multipage-8b.tiff");
  id = tiffgate ("open", name, "r");
  tiffgate ("setDirectory", id, 2);
  assert (tiffgate ("currentDirectory", id), 3);
  assert (tiffgate ("lastDirectory", id));
  tiffgate ("close", id);
  tg_expect_error (@() tiffgate ("currentDirectory", id), "Quarn:imagesci:Tiff:invalidFileId");

  clear tiffgate
  pkg ("unload", "tiffgate");
  pkg ("uninstall", "-local", "tiffgate");
  assert (isempty (pkg ("list")));
  printf ("octave_package_test: passed\n");
endfunction
