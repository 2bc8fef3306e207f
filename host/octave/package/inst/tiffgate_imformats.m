function tiffgate_imformats (state)
  ## tiffgate_imformats ("on")
  ## tiffgate_imformats ("off")
  ##
  ## With "on", Octave's imread, imwrite and imfinfo read, write and describe
  ## TIFF files (extensions tif and tiff) through this package: imread
  ## returns every sample as stored in its exact class (tiffgate_read),
  ## imfinfo the fields of tiffgate_info with imfinfo's own (Filename,
  ## FileModDate, FileSize, Format, Width, Height, BitDepth, ColorType).
  ## imread takes a page number, "Index" or "Frames" (a page, pages, or
  ## "all") and "PixelRegion" ({[FIRST LAST], [FIRST LAST]}, a step in
  ## the middle allowed); imwrite takes a colour map, "WriteMode"
  ## ("overwrite" or "append"), "Compression", "Alpha", and tiffgate_write's
  ## options. With "off", imformats is as it was before "on".
  ##
  ## Example:
  ##   tiffgate_imformats ("on");
  ##   img = imread ("scan.tif", "Index", 2);
  ##   info = imfinfo ("scan.tif");
  ##   tiffgate_imformats ("off");
  ##
  ## See also: imformats, tiffgate_read, tiffgate_write, tiffgate_info.

  persistent saved;
  if (nargin != 1 || ! ischar (state) || ! any (strcmpi (state, {"on", "off"})))
    error ("tiffgate:imformats:badState", "tiffgate_imformats: give \"on\" or \"off\"");
  endif
  if (strcmpi (state, "off"))
    if (! isempty (saved))
      imformats ("update", "tif", saved);
      saved = [];
      munlock ();
    endif
    return;
  endif
  if (! isempty (saved))
    return;  # already on
  endif
  before = imformats ("tif");
  ours = before;
  ours.read = @imread_tiff;
  ours.write = @imwrite_tiff;
  ours.info = @imfinfo_tiff;
  try
    imformats ("update", "tif", ours);
  catch err
    imformats ("update", "tif", before);
    error ("tiffgate:imformats:failed", "tiffgate_imformats: imformats refused the registration: %s",
           err.message);
  end_try_catch
  saved = before;
  mlock ();  # keeps what to restore while registered
endfunction
