function info = tiffgate_info (file)
  ## INFO = tiffgate_info (FILE)
  ##
  ## Describes every directory of the TIFF file FILE, as a struct array with
  ## one element per directory of the file's main chain, in file order.
  ##
  ## Each element has the fields of the "retrieveMetadata" command:
  ## BitsPerSample, Compression, ImageDepth, ImageLength, ImageWidth,
  ## JPEGColorMode, PhotometricInterpretation, PlanarConfiguration,
  ## RowsPerStrip, SampleFormat, SamplesPerPixel, TileLength, TileWidth,
  ## YCbCrSubsampling, isTiled and numExtraSamples. After them comes one
  ## field for each text tag that any directory holds (DocumentName,
  ## ImageDescription, Make, Model, PageName, Software, DateTime, Artist,
  ## HostComputer, TargetPrinter, Copyright, GeoASCIIParamsTag); a directory
  ## without that tag has '' there.
  ##
  ## Example:
  ##   info = tiffgate_info ("scan.tif");
  ##   printf ("%d pages; page 1 is %d x %d\n", numel (info), ...
  ##           info(1).ImageLength, info(1).ImageWidth);
  ##
  ## See also: tiffgate_read, tiffgate_write, tiffgate.

  if (nargin != 1)
    print_usage ();
  endif
  if (! ischar (file) || ! (isrow (file) || isempty (file)))
    error ("tiffgate:info:badFile", "tiffgate_info: FILE must be a file name");
  endif

  ## The text tags "getField" returns as character rows, in tag order.
  text_tags = {269, "DocumentName"; 270, "ImageDescription"; 271, "Make";
               272, "Model"; 285, "PageName"; 305, "Software";
               306, "DateTime"; 315, "Artist"; 316, "HostComputer";
               337, "TargetPrinter"; 33432, "Copyright";
               34737, "GeoASCIIParamsTag"};

  id = tiffgate ("open", file, "r");
  closer = onCleanup (@() tiffgate ("close", id));

  layouts = {};
  texts = {};
  present = false (1, rows (text_tags));
  while (true)
    layouts{end+1} = tiffgate ("retrieveMetadata", id);
    found = cell (1, rows (text_tags));
    for k = 1:rows (text_tags)
      try
        found{k} = tiffgate ("getField", id, text_tags{k, 1});
        present(k) = true;
      catch err
        ## An absent tag is the only failure expected here.
        if (! strcmp (err.identifier, "Quarn:imagesci:Tiff:tagRetrievalFailed"))
          rethrow (err);
        endif
      end_try_catch
    endfor
    texts{end+1} = found;
    if (tiffgate ("lastDirectory", id))
      break;
    endif
    tiffgate ("readDirectory", id);
  endwhile

  info = [layouts{:}];
  for k = find (present)
    for d = 1:numel (info)
      value = texts{d}{k};
      if (isempty (value))
        value = "";
      endif
      info(d).(text_tags{k, 2}) = value;
    endfor
  endfor
endfunction
