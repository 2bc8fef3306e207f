## tiffgate_info against tifffile's reading of the same corpus files: one
## element per directory of the main chain, the layout fields, and the text
## tags that any directory holds ('' where a directory lacks one).

function octave_info_test ()
  state = warning ("off", "Quarn:imagesci:Tiff:libtiffWarning");
  restore = onCleanup (@() warning (state));
  layout_fields = {"BitsPerSample", "Compression", "ImageDepth", "ImageLength", "ImageWidth", ...
                   "JPEGColorMode", "PhotometricInterpretation", "PlanarConfiguration", ...
                   "RowsPerStrip", "SampleFormat", "SamplesPerPixel", "TileLength", "TileWidth", ...
                   "YCbCrSubsampling", "isTiled", "numExtraSamples"};
  ## tifffile's names of the text tags; ours say GeoASCIIParamsTag.
  text_tags = {"DocumentName", "ImageDescription", "Make", "Model", "PageName", "Software", ...
               "DateTime", "Artist", "HostComputer", "TargetPrinter", "Copyright", "GeoAsciiParamsTag"};
  names = {"imagetiff-multipage-8b.tiff", "imagetiff-pics-dscf0013.tif", "libtiffnet-gray-jpeg-wang.tiff", ...
           "imagetiff-subsubifds.tif", "libgeotiff-byte.tif", "golang-tiled-64-deflate.tiff", ...
           "libtiff-minisblack-2c-8b-alpha.tiff"};
  files = cellfun (@tg_corpus, names, "UniformOutput", false);
  decoded = tg_tifffile (files);
  chunks = tg_python (["import csv\n" ...
                       "import re\nkey = lambda n: 'f_' + re.sub(r'[^A-Za-z0-9_]', '_', n)\n" ...
                       "print(json.dumps({key(r['file'] + '_' + r['directory']): int(r['chunks'])" ...
                       " for r in csv.DictReader(open(sys.argv[1]))}))"],
                      fullfile (getenv ("TIFFGATE_CORPUS"), "LIBTIFF_CHUNKS.csv"));
  for k = 1:numel (files)
    pages = decoded(cellfun (@(d) strcmp (d.file, files{k}), decoded));
    info = tiffgate_info (files{k});
    assert (numel (info), numel (pages), names{k});
    present = text_tags(cellfun (@(t) any (cellfun (@(p) isfield (p.tags, t), pages)), text_tags));
    expected_fields = [layout_fields, strrep(present, "GeoAsciiParamsTag", "GeoASCIIParamsTag")];
    assert (fieldnames (info).', expected_fields, names{k});
    for d = 1:numel (pages)
      tags = pages{d}.tags;
      assert (info(d).ImageWidth, tags.ImageWidth);
      assert (info(d).ImageLength, tags.ImageLength);
      assert (info(d).BitsPerSample, tags.BitsPerSample(1));
      assert (info(d).SamplesPerPixel, field_or (tags, "SamplesPerPixel", 1));
      assert (info(d).Compression, field_or (tags, "Compression", 1));
      assert (info(d).PhotometricInterpretation, tags.PhotometricInterpretation);
      assert (info(d).isTiled, isfield (tags, "TileWidth"));
      if (info(d).isTiled)
        assert ([info(d).TileLength, info(d).TileWidth], [tags.TileLength, tags.TileWidth]);
        assert (info(d).RowsPerStrip, 0);
      else
        ## libtiff may cut one large strip into several (and tifffile not):
        ## the strip height must give libtiff's strip count.
        planes = plane_count (info(d));
        strips = chunks.(tg_key (sprintf ("%s_%d", names{k}, d - 1)));
        assert (ceil (info(d).ImageLength / info(d).RowsPerStrip) * planes, strips);
      endif
      assert (info(d).numExtraSamples, numel (field_or (tags, "ExtraSamples", [])));
      for t = present
        ours = strrep (t{1}, "GeoAsciiParamsTag", "GeoASCIIParamsTag");
        ## tifffile trims the blanks that libtiff returns as they stand.
        assert (strtrim (info(d).(ours)), strtrim (field_or (tags, t{1}, "")),
                sprintf ("%s %d %s", names{k}, d, t{1}));
      endfor
    endfor
  endfor

  tg_expect_error (@() tiffgate_info (tg_corpus ("libtiffnet-tiger-float24-strip.tif")(1:end-1)),
                   "Quarn:imagesci:Tiff:unableToOpenFile");
  tg_expect_error (@() tiffgate_info (7), "tiffgate:info:badFile");
  corpus = fileparts (files{1});
  assert (! any (strncmp (tg_open_files (), corpus, numel (corpus))));
  printf ("octave_info_test: passed\n");
endfunction

function planes = plane_count (info)
  planes = 1;
  if (info.PlanarConfiguration == 2)
    planes = info.SamplesPerPixel;
  endif
endfunction

function value = field_or (s, name, default)
  if (isfield (s, name))
    value = s.(name);
  else
    value = default;
  endif
endfunction
