function paths = tg_open_files ()
  ## PATHS = tg_open_files (): the files this process holds open, as the
  ## kernel sees them.
  [status, out] = system (sprintf ("ls -l /proc/%d/fd", getpid ()));
  if (status != 0)
    error ("tiffgate:test", "cannot list open files");
  endif
  paths = regexp (out, "-> (/[^\n]*)", "tokens");
  paths = cellfun (@(t) t{1}, paths, "UniformOutput", false);
endfunction
