## pkg install puts the .m files of src/ with the package's functions and
## tiffgate.oct in the folder for this architecture. Octave shows the help
## of an oct-file from a .m file beside it, so tiffgate.m goes there.
function post_install (desc)
  help_file = fullfile (desc.dir, "tiffgate.m");
  oct = dir (fullfile (desc.archprefix, "*", "tiffgate.oct"));
  if (isempty (oct) || exist (help_file, "file") != 2)
    error ("tiffgate:install", "tiffgate: the build left no tiffgate.oct or tiffgate.m");
  endif
  [ok, msg] = movefile (help_file, oct(1).folder);
  if (! ok)
    error ("tiffgate:install", "tiffgate: cannot move tiffgate.m beside tiffgate.oct: %s", msg);
  endif
endfunction
