## [IMG, MAP, ALPHA] = imread_tiff (FILE, ...): imread's reader through
## tiffgate_read. Pages by number, "Index" or "Frames" (several pages are
## stacked in the fourth dimension), "PixelRegion" with an optional step;
## an RGB image's alpha sample comes apart, as imread gives it.
function [img, map, alpha] = imread_tiff (file, varargin)
  pages = 1;
  region = {};
  k = 1;
  while (k <= numel (varargin))
    a = varargin{k};
    if (isnumeric (a))
      pages = a;
    elseif (ischar (a) && any (strcmpi (a, {"Index", "Frames"})) && k < numel (varargin))
      k++;
      pages = varargin{k};
    elseif (ischar (a) && strcmpi (a, "PixelRegion") && k < numel (varargin))
      k++;
      region = varargin{k};
    else
      error ("tiffgate:imread:badArgument", "imread: tiffgate reads no option \"%s\"", num2str (a));
    endif
    k++;
  endwhile
  info = [];
  if (ischar (pages) && strcmpi (pages, "all"))
    info = tiffgate_info (file);
    pages = 1:numel (info);
  endif
  steps = [1 1];
  read_region = {};
  if (! isempty (region))
    if (! iscell (region) || numel (region) != 2)
      error ("tiffgate:imread:badArgument", "imread: \"PixelRegion\" is {ROWS, COLS}");
    endif
    for d = 1:2
      r = double (region{d});
      if (numel (r) == 3)
        steps(d) = r(2);
        r = r([1 3]);
      endif
      read_region{d} = r;
    endfor
  endif
  img = [];
  for p = 1:numel (pages)
    args = {pages(p)};
    if (! isempty (read_region))
      args = [args, {"Region", read_region}];
    endif
    [page, map] = tiffgate_read (file, args{:});
    page = page(1:steps(1):end, 1:steps(2):end, :);
    img = cat (4, img, page);
  endfor
  alpha = [];
  if (isempty (info))
    info = tiffgate_info (file);
  endif
  first = info(pages(1));
  if (first.PhotometricInterpretation == 2 && size (img, 3) == 4 && first.numExtraSamples == 1)
    alpha = img(:, :, 4, :);
    img = img(:, :, 1:3, :);
  endif
endfunction
