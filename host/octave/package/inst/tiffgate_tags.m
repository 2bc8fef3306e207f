function out = tiffgate_tags (tag)
  ## T = tiffgate_tags ()
  ## NUMBER = tiffgate_tags (NAME)
  ## NAME = tiffgate_tags (NUMBER)
  ##
  ## The TIFF tags the package knows by name: the module's tag table and the
  ## private tags GDAL_METADATA (42112) and GDAL_NODATA (42113). With no
  ## argument, T is a struct array with fields Number and Name, in number
  ## order. With a name (in any case), its number; with a number, its name.
  ## A tag the package has no name for is named by its number: 65000 is
  ## "Tag65000", and "Tag65000" is 65000.
  ##
  ## Every function of the package takes a tag's name wherever it takes its
  ## number (tiffgate_write's "Tags"), and tiffgate_info names its fields
  ## this way.
  ##
  ## Example:
  ##   tiffgate_tags ("ImageWidth")      # 256
  ##   tiffgate_tags (42113)             # "GDAL_NODATA"
  ##   id = tiffgate ("open", "scan.tif", "r");
  ##   w = tiffgate ("getField", id, tiffgate_tags ("ImageWidth"));
  ##
  ## See also: tiffgate_info, tiffgate_write, tiffgate.

  persistent numbers names;
  if (isempty (numbers))
    [numbers, names] = tiffgate ("__tagNames__");
    [numbers, order] = sort ([numbers, 42112, 42113]);
    names = [names, {"GDAL_METADATA", "GDAL_NODATA"}](order);
  endif
  if (nargin == 0)
    out = struct ("Number", num2cell (numbers), "Name", names);
  elseif (ischar (tag) && isrow (tag))
    k = find (strcmpi (tag, names), 1);
    if (! isempty (k))
      out = numbers(k);
    elseif (! isempty (regexpi (tag, '^Tag\d{1,5}$', "once")) && str2double (tag(4:end)) < 65536)
      out = str2double (tag(4:end));
    else
      error ("tiffgate:tags:unknownName", "tiffgate_tags: no tag is named \"%s\"", tag);
    endif
  elseif (isnumeric (tag) && isscalar (tag) && isreal (tag) && tag == fix (tag) && tag >= 0 && tag < 65536 * 2)
    k = find (numbers == tag, 1);
    if (isempty (k))
      out = sprintf ("Tag%d", tag);
    else
      out = names{k};
    endif
  else
    error ("tiffgate:tags:badTag", "tiffgate_tags: TAG must be a tag's name or number");
  endif
endfunction
