function info = tiffgate_info (file)
  ## INFO = tiffgate_info (FILE)
  ##
  ## Describes every directory of the TIFF file FILE, as a struct array with
  ## one element per directory of the file's main chain, in file order.
  ##
  ## Each element has the fields Filename, FileSize, Page (from 1),
  ## ByteOrder ("little-endian" or "big-endian") and BigTIFF; then the fields
  ## of the "retrieveMetadata" command (BitsPerSample, Compression,
  ## ImageDepth, ImageLength, ImageWidth, JPEGColorMode,
  ## PhotometricInterpretation, PlanarConfiguration, RowsPerStrip,
  ## SampleFormat, SamplesPerPixel, TileLength, TileWidth, YCbCrSubsampling,
  ## isTiled, numExtraSamples; [] where the directory lacks what they need);
  ## then one field for every tag that any directory holds, named as
  ## tiffgate_tags names it (a tag without a name as Tag65000), with the
  ## value "getField" gives ([] in a directory without the tag, or where
  ## the module does not read it). Tags outside the module's table
  ## (GDAL_NODATA, say, or private tags) come as text or a row of numbers.
  ##
  ## A directory chain that breaks off (a loop, or an offset past the end)
  ## gives the directories read before it, with a warning
  ## (tiffgate:info:brokenChain).
  ##
  ## Example:
  ##   info = tiffgate_info ("scan.tif");
  ##   printf ("%d pages; page 1 is %d x %d\n", numel (info), ...
  ##           info(1).ImageLength, info(1).ImageWidth);
  ##
  ## See also: tiffgate_read, tiffgate_tags, tiffgate_write, tiffgate.

  if (nargin != 1)
    print_usage ();
  endif
  if (! ischar (file) || ! (isrow (file) || isempty (file)))
    error ("tiffgate:info:badFile", "tiffgate_info: FILE must be a file name");
  endif

  id = tiffgate ("open", file, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  [order, big] = header_of (file);
  layout_fields = {"BitsPerSample", "Compression", "ImageDepth", "ImageLength", "ImageWidth", ...
                   "JPEGColorMode", "PhotometricInterpretation", "PlanarConfiguration", "RowsPerStrip", ...
                   "SampleFormat", "SamplesPerPixel", "TileLength", "TileWidth", "YCbCrSubsampling", ...
                   "isTiled", "numExtraSamples"};
  base = cell2struct (cell (numel (layout_fields), 1), layout_fields, 1);
  pages = {};
  tags = {};
  while (true)
    page = base;
    try
      page = tiffgate ("retrieveMetadata", id);
    catch
      ## A directory the layout record cannot describe (no
      ## PhotometricInterpretation, say) still lists its tags.
    end_try_catch
    pages{end+1} = page;
    tags{end+1} = tags_of (id);
    if (tiffgate ("lastDirectory", id))
      break;
    endif
    try
      tiffgate ("readDirectory", id);
    catch err
      warning ("tiffgate:info:brokenChain",
               "tiffgate_info: %s: the directory chain breaks off after directory %d (%s)",
               file, numel (pages), err.message);
      break;
    end_try_catch
  endwhile

  ## Every tag any directory holds, in tag order.
  held = unique ([cellfun(@(t) t.numbers, tags, "UniformOutput", false){:}]);
  names = arrayfun (@tiffgate_tags, held, "UniformOutput", false);
  s = dir (file);
  info = struct ("Filename", file, "FileSize", s.bytes, "Page", num2cell (1:numel (pages)),
                 "ByteOrder", order, "BigTIFF", big);
  for d = 1:numel (pages)
    for f = layout_fields
      info(d).(f{1}) = pages{d}.(f{1});
    endfor
    for k = find (! ismember (names, layout_fields))
      at = find (tags{d}.numbers == held(k), 1);
      value = [];
      if (! isempty (at))
        value = tags{d}.values{at};
      endif
      info(d).(names{k}) = value;
    endfor
  endfor
endfunction

## The tags the current directory holds and their values.
function t = tags_of (id)
  t.numbers = tiffgate ("__listTags__", id);
  t.values = cell (size (t.numbers));
  for k = 1:numel (t.numbers)
    try
      t.values{k} = tiffgate ("getField", id, t.numbers(k));
    catch err
      if (strcmp (err.identifier, "Quarn:imagesci:Tiff:unrecognizedTagNumber"))
        t.values{k} = tiffgate ("__tagValue__", id, t.numbers(k));
      endif
    end_try_catch
  endfor
endfunction

## The byte order and format from the file's first four bytes.
function [order, big] = header_of (file)
  fid = fopen (file, "rb");
  header = fread (fid, 4, "uint8=>double").';
  fclose (fid);
  order = "little-endian";
  if (isequal (header(1:2), [77 77]))
    order = "big-endian";
  endif
  big = any (header(3:4) == 43);
endfunction
