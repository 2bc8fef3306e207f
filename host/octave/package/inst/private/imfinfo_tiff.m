## INFO = imfinfo_tiff (FILE): imfinfo's fields for every page, from
## tiffgate_info, followed by tiffgate_info's own.
function info = imfinfo_tiff (file, varargin)
  pages = tiffgate_info (file);
  s = dir (file);
  colour = {0, "grayscale"; 1, "grayscale"; 2, "truecolor"; 3, "indexed"; 5, "CMYK"; 6, "truecolor"};
  info = struct ("Filename", canonicalize_file_name (file), "FileModDate", s.date, "FileSize", s.bytes,
                 "Format", "tif", "FormatVersion", "", "Width", {pages.ImageWidth},
                 "Height", {pages.ImageLength}, "BitDepth", [], "ColorType", "");
  for k = 1:numel (pages)
    p = pages(k);
    info(k).BitDepth = double (p.BitsPerSample) * double (p.SamplesPerPixel);
    row = find ([colour{:, 1}] == p.PhotometricInterpretation, 1);
    info(k).ColorType = "grayscale";
    if (! isempty (row))
      info(k).ColorType = colour{row, 2};
    endif
    for f = fieldnames (p).'
      if (! isfield (info, f{1}))
        info(k).(f{1}) = p.(f{1});
      endif
    endfor
  endfor
endfunction
