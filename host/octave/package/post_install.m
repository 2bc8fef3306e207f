## pkg install puts the .m files of src/ with the package's functions and
## tiffgate.mex in the folder for this architecture. Octave shows the help
## of a MEX file from a .m file beside it, so tiffgate.m goes there.
function post_install (desc)
  help_file = fullfile (desc.dir, "tiffgate.m");
  mex = dir (fullfile (desc.archprefix, "*", "tiffgate.mex"));
  if (isempty (mex) || exist (help_file, "file") != 2)
    error ("tiffgate:install", "tiffgate: the build left no tiffgate.mex or tiffgate.m");
  endif
  [ok, msg] = movefile (help_file, mex(1).folder);
  if (! ok)
    error ("tiffgate:install", "tiffgate: cannot move tiffgate.m beside tiffgate.mex: %s", msg);
  endif
endfunction
