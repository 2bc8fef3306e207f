function value = tg_python (code, varargin)
  ## VALUE = tg_python (CODE, ARG...): runs CODE with the system's Python,
  ## which has tifffile and numpy, with the arguments in sys.argv[1:]; CODE
  ## prints one JSON value, returned decoded. A second reader of TIFF files,
  ## independent of libtiff and of the module.
  args = cellfun (@(a) [" '" strrep(a, "'", "'\\''") "'"], varargin, "UniformOutput", false);
  script = [tempname() ".py"];
  fid = fopen (script, "w");
  fputs (fid, ["import json, sys\nimport numpy, tifffile\n" code "\n"]);
  fclose (fid);
  [status, out] = system (["/usr/bin/python3 " script args{:} " 2>&1"]);
  unlink (script);
  if (status != 0)
    error ("tiffgate:test", "python failed:\n%s", out);
  endif
  value = jsondecode (out);
endfunction
