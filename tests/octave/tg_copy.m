function tg_copy (from, to)
  ## tg_copy (FROM, TO): copies a file into a new, writable file (copyfile
  ## would keep the corpus files' read-only mode).
  in = fopen (from, "rb");
  bytes = fread (in, Inf, "uint8=>uint8");
  fclose (in);
  out = fopen (to, "wb");
  if (out < 0)
    error ("tiffgate:test", "cannot write %s", to);
  endif
  fwrite (out, bytes, "uint8");
  fclose (out);
endfunction
