function path = tg_corpus (name)
  ## PATH = tg_corpus (NAME): a file of the shared corpus of real TIFF files,
  ## as the kernel names it (no "..", no links), to compare with open files.
  root = getenv ("TIFFGATE_CORPUS");
  if (isempty (root))
    error ("tiffgate:test", "TIFFGATE_CORPUS is not set");
  endif
  [path, status] = canonicalize_file_name (fullfile (root, name));
  if (status != 0)
    error ("tiffgate:test", "corpus file %s is missing", fullfile (root, name));
  endif
endfunction
