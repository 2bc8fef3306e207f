## imwrite_tiff (IMG, [MAP,] FILE, ...): imwrite's writer through
## tiffgate_write. A colour map writes a palette image (indices of a double
## image counted from 1, of an integer image from 0); "WriteMode" "append"
## adds a page; "Alpha" adds an alpha sample; other options go to
## tiffgate_write as they are.
function imwrite_tiff (img, varargin)
  map = [];
  if (! ischar (varargin{1}))
    map = varargin{1};
    varargin(1) = [];
  endif
  file = varargin{1};
  options = {};
  k = 2;
  while (k < numel (varargin))
    [name, value] = deal (varargin{k}, varargin{k+1});
    if (ischar (name) && strcmpi (name, "WriteMode"))
      options = [options, {"Append", strcmpi(value, "append")}];
    elseif (ischar (name) && strcmpi (name, "Alpha"))
      img = cat (3, img, cast (value, class (img)));
    else
      options = [options, {name, value}];
    endif
    k += 2;
  endwhile
  if (! isempty (map))
    if (isfloat (img))
      img = uint8 (img - 1);
    endif
    options = [options, {"Photometric", "palette", "ColorMap", pad_map(map, class(img))}];
  endif
  tiffgate_write (file, img, options{:});
endfunction

## A palette image's map has 2^bits entries.
function map = pad_map (map, cls)
  entries = 256;
  if (strcmp (cls, "uint16"))
    entries = 65536;
  endif
  map(end+1:entries, :) = 0;
endfunction
