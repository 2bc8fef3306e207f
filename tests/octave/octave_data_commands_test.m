## The tag and image-data commands from Octave: classes, shapes and values
## of their results, checked against tifffile and the corpus tables.

function octave_data_commands_test ()
  state = warning ("off", "Quarn:imagesci:Tiff:libtiffWarning");
  restore = onCleanup (@() warning (state));
  names = {"libtiff-minisblack-1c-8b.tiff", "golang-tiled-64-deflate.tiff", "libtiff-miniswhite-1c-1b.tiff", ...
           "imagetiff-flower-rgb-planar-16.tif", "libtiff-quad-tile.jpg.tiff", "libgeotiff-byte.tif", ...
           "libtiff-palette-1c-8b.tiff"};
  files = cell2struct (cellfun (@tg_corpus, names, "UniformOutput", false),
                       {"gray", "tiled", "bilevel", "planar", "ycbcr", "geo", "palette"}, 2);
  decoded = tg_tifffile (struct2cell (files).');
  decoded = decoded(cellfun (@(d) d.directory == 0, decoded))(:).';
  tags = cell2struct (cellfun (@(d) d.tags, decoded, "UniformOutput", false), fieldnames (files), 2);
  check_retrieve_metadata (files, tags);
  check_get_field (files, tags);
  check_strips (files, tags);
  check_tiles (files, tags);
  check_rgba (files, tags);
  check_compute (files, tags);
  check_writes ();
  printf ("octave_data_commands_test: passed\n");
endfunction

function check_retrieve_metadata (files, tags)
  id = tiffgate ("open", files.gray, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  m = tiffgate ("retrieveMetadata", id);
  assert (isstruct (m) && isequal (size (m), [1 1]));
  assert (fieldnames (m).', {"BitsPerSample", "Compression", "ImageDepth", "ImageLength", "ImageWidth", ...
                             "JPEGColorMode", "PhotometricInterpretation", "PlanarConfiguration", ...
                             "RowsPerStrip", "SampleFormat", "SamplesPerPixel", "TileLength", "TileWidth", ...
                             "YCbCrSubsampling", "isTiled", "numExtraSamples"});
  for f = setdiff (fieldnames (m).', {"YCbCrSubsampling", "isTiled"})
    assert (class (m.(f{1})), "double");
    assert (size (m.(f{1})), [1 1]);
  endfor
  assert ([m.ImageWidth, m.ImageLength, m.BitsPerSample], ...
          [tags.gray.ImageWidth, tags.gray.ImageLength, tags.gray.BitsPerSample]);
  assert (m.RowsPerStrip, tags.gray.RowsPerStrip);
  assert ([m.TileWidth, m.TileLength, m.JPEGColorMode], [0 0 0]);
  assert (class (m.isTiled), "logical");
  assert (! m.isTiled);
  assert (class (m.YCbCrSubsampling), "double");
  assert (size (m.YCbCrSubsampling), [0 0]);

  yc = tiffgate ("open", files.ycbcr, "r");
  yc_closer = onCleanup (@() tiffgate ("close", yc));
  m = tiffgate ("retrieveMetadata", yc);
  assert (m.YCbCrSubsampling, tags.ycbcr.YCbCrSubSampling(:).');
  assert ([m.TileWidth, m.TileLength, m.RowsPerStrip], [tags.ycbcr.TileWidth, tags.ycbcr.TileLength, 0]);
  assert (m.isTiled);
  assert (m.PhotometricInterpretation, 6);
endfunction

function check_get_field (files, tags)
  id = tiffgate ("open", files.gray, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  width = tiffgate ("getField", id, 256);
  assert (class (width), "double");
  assert (width, tags.gray.ImageWidth);
  offsets = tiffgate ("getField", id, 273);
  assert (class (offsets), "uint64");
  assert (offsets, uint64 (tags.gray.StripOffsets(:).'));
  assert (tiffgate ("getField", id, 279), uint64 (tags.gray.StripByteCounts(:).'));
  tg_expect_error (@() tiffgate ("getField", id, 315), "Quarn:imagesci:Tiff:tagRetrievalFailed",
                   "Unable to retrieve tag Artist.");
  tg_expect_error (@() tiffgate ("getField", id, 0), "Quarn:imagesci:Tiff:unrecognizedTagNumber");

  geo = tiffgate ("open", files.geo, "r");
  geo_closer = onCleanup (@() tiffgate ("close", geo));
  assert (tiffgate ("getField", geo, 33550), tags.geo.ModelPixelScaleTag(:).');
  tie = tiffgate ("getField", geo, 33922);
  assert (tie, reshape (tags.geo.ModelTiepointTag, 6, []).');
  keys = tiffgate ("getField", geo, 34735);
  assert (keys, reshape (tags.geo.GeoKeyDirectoryTag, 4, []).');
  text = tiffgate ("getField", geo, 34737);
  assert (ischar (text) && rows (text) == 1);
  assert (text, tags.geo.GeoAsciiParamsTag);

  pal = tiffgate ("open", files.palette, "r");
  pal_closer = onCleanup (@() tiffgate ("close", pal));
  map = tiffgate ("getField", pal, 320);
  assert (size (map), [256 3]);
  assert (map, tags.palette.ColorMap.' / 65535, 1e-12);
endfunction

## Every strip as a piece of the image tifffile decodes; the last one cut.
function check_strips (files, tags)
  id = tiffgate ("open", files.gray, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  [L, W, rps] = deal (tags.gray.ImageLength, tags.gray.ImageWidth, tags.gray.RowsPerStrip);
  n = tiffgate ("numberOfStrips", id);
  assert (n, ceil (L / rps));
  img = zeros (L, W, "uint8");
  for s = 0:n-1
    strip = tiffgate ("readEncodedStrip", id, s);
    assert (class (strip), "uint8");
    assert (size (strip), [min(rps, L - s * rps), W]);
    img(s * rps + (1:rows (strip)), :) = strip;
  endfor
  assert (tg_sha256 (img), tg_corpus_row ("REFERENCE", "libtiff-minisblack-1c-8b.tiff", 0).sha256);
  tg_expect_error (@() tiffgate ("readEncodedStrip", id, n), "Quarn:imagesci:Tiff:badStripNumber");

  bilevel = tiffgate ("open", files.bilevel, "r");
  bilevel_closer = onCleanup (@() tiffgate ("close", bilevel));
  strip = tiffgate ("readEncodedStrip", bilevel, 0);
  assert (class (strip), "logical");
  assert (columns (strip), tags.bilevel.ImageWidth);

  planar = tiffgate ("open", files.planar, "r");
  planar_closer = onCleanup (@() tiffgate ("close", planar));
  strips = tiffgate ("numberOfStrips", planar);
  assert (mod (strips, 3), 0);  # one set of strips per plane
  last_red = tiffgate ("readEncodedStrip", planar, strips / 3 - 1);
  first_green = tiffgate ("readEncodedStrip", planar, strips / 3);
  assert (class (first_green), "uint16");
  assert (ndims (first_green), 2);
  rps = min (tags.planar.RowsPerStrip, tags.planar.ImageLength);  # the tag may exceed the length
  assert (rows (last_red), tags.planar.ImageLength - (strips / 3 - 1) * rps);
  assert (rows (first_green), rps);
endfunction

function check_tiles (files, tags)
  id = tiffgate ("open", files.tiled, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  t = tags.tiled;
  across = ceil (t.ImageWidth / t.TileWidth);
  down = ceil (t.ImageLength / t.TileLength);
  assert (tiffgate ("numberOfTiles", id), across * down);
  S = t.SamplesPerPixel;
  first = tiffgate ("readEncodedTile", id, 0);
  assert (size (first, 1:3), [t.TileLength, t.TileWidth, S]);
  edge = tiffgate ("readEncodedTile", id, across * down - 1);
  assert (size (edge, 1:3), [t.ImageLength - (down - 1) * t.TileLength, ...
                             t.ImageWidth - (across - 1) * t.TileWidth, S]);
  ## The third operand is accepted and ignored.
  assert (isequal (tiffgate ("readEncodedTile", id, 0, "ignored"), first));
  tg_expect_error (@() tiffgate ("readEncodedTile", id, across * down), "Quarn:imagesci:Tiff:badTileNumber");
  tg_expect_error (@() tiffgate ("readEncodedStrip", id, 0), "Quarn:imagesci:Tiff:strippedOperationOnTiledImage");

  ## YCbCr: three outputs, whatever number Octave asks for.
  yc = tiffgate ("open", files.ycbcr, "r");
  yc_closer = onCleanup (@() tiffgate ("close", yc));
  [y, cb, cr] = tiffgate ("readEncodedTile", yc, 0);
  h = tags.ycbcr.YCbCrSubSampling(1);
  v = tags.ycbcr.YCbCrSubSampling(2);
  TL = tags.ycbcr.TileLength;
  TW = tags.ycbcr.TileWidth;
  assert ({class(y), size(y), size(cb), size(cr)}, {"uint8", [TL TW], [TL/v TW/h], [TL/v TW/h]});
  assert (isequal (tiffgate ("readEncodedTile", yc, 0), y));
endfunction

## RGBA rasters: 4 x width x rows, bottom row first.
function check_rgba (files, tags)
  id = tiffgate ("open", files.gray, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  [L, W, rps] = deal (tags.gray.ImageLength, tags.gray.ImageWidth, tags.gray.RowsPerStrip);
  raster = tiffgate ("readRGBAImage", id);
  assert (class (raster), "uint8");
  assert (size (raster), [4 W L]);
  img = squeeze (raster(1, :, end:-1:1)).';
  assert (tg_sha256 (img), tg_corpus_row ("REFERENCE", "libtiff-minisblack-1c-8b.tiff", 0).sha256);
  assert (all (raster(4, :) == 255));
  strip = tiffgate ("readRGBAStrip", id, 0);
  assert (size (strip), [4 W rps]);

  tiled = tiffgate ("open", files.tiled, "r");
  tiled_closer = onCleanup (@() tiffgate ("close", tiled));
  tile = tiffgate ("readRGBATile", tiled, 0, 0);
  assert (class (tile), "uint8");
  assert (size (tile), [4 tags.tiled.TileWidth tags.tiled.TileLength]);
endfunction

## 1-based chunk numbers of a pixel.
function check_compute (files, tags)
  id = tiffgate ("open", files.gray, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  rps = tags.gray.RowsPerStrip;
  n = tiffgate ("computeStrip", id, rps);
  assert (class (n), "double");
  assert (n, 2);
  assert (tiffgate ("computeStrip", id, 0), 1);
  assert (tiffgate ("computeStrip", id, 1e9), ceil (tags.gray.ImageLength / rps));
  tg_expect_error (@() tiffgate ("computeStrip", id, 0, 0), "Quarn:imagesci:Tiff:sampleParameterNotAllowedInChunkyCase");

  tiled = tiffgate ("open", files.tiled, "r");
  tiled_closer = onCleanup (@() tiffgate ("close", tiled));
  t = tags.tiled;
  across = ceil (t.ImageWidth / t.TileWidth);
  r = t.TileLength + 1;
  c = 2 * t.TileWidth;
  assert (tiffgate ("computeTile", tiled, [r c]), floor (r / t.TileLength) * across + floor (c / t.TileWidth) + 1);
endfunction

## A file built tag by tag and chunk by chunk, read back by tifffile; and a
## file left open with its directory unwritten, finished at unload.
function check_writes ()
  [dir, cleanup] = tg_scratch ();
  data = uint8 (reshape (0:199, 10, 20));
  packet = "<x:xmpmeta>Gr\xC3\xBC\xC3\x9Fe \xE6\xBC\xA2\xE5\xAD\x97</x:xmpmeta>";  # UTF-8 bytes
  bits = logical (mod (reshape (1:200, 10, 20), 3) == 0);
  names = {fullfile(dir, "strips.tif"), fullfile(dir, "tiles.tif"), fullfile(dir, "bits.tif"), fullfile(dir, "left.tif")};
  for k = 1:4
    id = tiffgate ("open", names{k}, "w");
    tiffgate ("setField", id, 262, 1);
    tiffgate ("setField", id, 256, 20);
    tiffgate ("setField", id, 257, 10);
    tiffgate ("setField", id, 258, 8 - 7 * (k == 3));
    tiffgate ("setField", id, 277, 1);
    tiffgate ("setField", id, 259, 1);
    if (k == 1)
      tiffgate ("setField", id, 700, packet);
    endif
    if (k == 2)
      tiffgate ("setField", id, 322, 16);
      tiffgate ("setField", id, 323, 16);
      tiffgate ("writeEncodedTile", id, 0, data(:, 1:16));
      tiffgate ("writeEncodedTile", id, 1, data(:, 17:20));
    else
      tiffgate ("setField", id, 278, 4);
      img = {data, data, bits, data}{k};
      for s = 0:2
        tiffgate ("writeEncodedStrip", id, s, img(s * 4 + 1:min(s * 4 + 4, 10), :));
      endfor
    endif
    assert (tiffgate ("getField", id, 256), 20);
    if (k < 4)
      tiffgate ("writeDirectory", id);
      tiffgate ("close", id);
    endif
  endfor
  lastwarn ("", "");
  clear tiffgate  # "left.tif" is still open: closing writes its directory
  assert (lastwarn (), sprintf ("Closing TIFF file '%s', which was left open.", names{4}));
  decoded = tg_tifffile (names);
  assert (cellfun (@(d) d.sha256, decoded(:).', "UniformOutput", false),
          {tg_sha256(data), tg_sha256(data), tg_sha256(bits), tg_sha256(data)});

  ## Oversized data: cut to the strip, with a warning.
  id = tiffgate ("open", fullfile (dir, "cut.tif"), "w");
  closer = onCleanup (@() tiffgate ("close", id));
  for tag = {262, 1; 256, 20; 257, 10; 258, 8; 277, 1; 278, 4}.'
    tiffgate ("setField", id, tag{:});
  endfor
  lastwarn ("", "");
  tiffgate ("writeEncodedStrip", id, 0, data);
  [~, warned] = lastwarn ();
  assert (warned, "Quarn:imagesci:Tiff:dataLengthExceedsRowsPerStrip");
  tg_expect_error (@() tiffgate ("writeEncodedStrip", id, 3, data), "Quarn:imagesci:Tiff:stripNumberTooLarge");

  reader = tiffgate ("open", names{1}, "r");
  reader_closer = onCleanup (@() tiffgate ("close", reader));
  ## XMLPacket: the bytes as characters, one each, as they went in.
  back = tiffgate ("getField", reader, 700);
  assert (class (back), "char");
  assert (size (back), [1 numel(packet)]);
  assert (double (back), double (packet));
  written = tg_python (["t = tifffile.TiffFile(sys.argv[1])\n" ...
                        "print(json.dumps(list(t.pages[0].tags['XMP'].value)))"], names{1});
  assert (written(:).', double (packet));
  tg_expect_error (@() tiffgate ("setField", reader, 270, "x"), "Quarn:imagesci:Tiff:cannotWriteInReadMode");
  fresh = tiffgate ("open", fullfile (dir, "order.tif"), "w");
  fresh_closer = onCleanup (@() tiffgate ("close", fresh));
  tg_expect_error (@() tiffgate ("setField", fresh, 259, 5), "Quarn:imagesci:Tiff:tagRetrievalBeforeWriteFailed");
endfunction
