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
  messages = [script ".err"];
  [status, out] = system (["/usr/bin/python3 " script args{:} " 2>" messages]);
  unlink (script);
  fid = fopen (messages);
  complaints = fread (fid, Inf, "*char").';
  fclose (fid);
  unlink (messages);
  if (status != 0)
    error ("tiffgate:test", "python failed:\n%s%s", out, complaints);
  endif
  value = jsondecode (out);
endfunction
