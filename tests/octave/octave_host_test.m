## What the Octave host adds to the module: each command's result in its
## Octave class and shape, errors and warnings as Octave's own with the
## module's identifiers, files closed when the module is cleared or Octave
## exits, and file names beyond ASCII. What the commands compute is the
## embedded host's tests' business.

function octave_host_test ()
  state = warning ("off", "Quarn:imagesci:Tiff:libtiffWarning");
  restore = onCleanup (@() warning (state));
  check_output_classes ();
  check_errors ();
  check_warnings ();
  check_unload ();
  check_utf8 ();
  printf ("octave_host_test: passed\n");
endfunction

## Rows: file, command and operands (the file's identifier goes first), the
## class, and the size from the file's tags as tifffile reads them.
function check_output_classes ()
  names = struct ("gray", "libtiff-minisblack-1c-8b.tiff", "tiled", "golang-tiled-64-deflate.tiff",
                  "bilevel", "libtiff-miniswhite-1c-1b.tiff", "planar", "imagetiff-flower-rgb-planar-16.tif",
                  "ycbcr", "libtiff-quad-tile.jpg.tiff", "geo", "libgeotiff-byte.tif",
                  "palette", "libtiff-palette-1c-8b.tiff");
  keys = fieldnames (names).';
  decoded = tg_tifffile (cellfun (@(k) tg_corpus (names.(k)), keys, "UniformOutput", false));
  decoded = decoded(cellfun (@(d) d.directory == 0, decoded));
  for k = 1:numel (keys)
    tags.(keys{k}) = decoded{k}.tags;
    ids.(keys{k}) = tiffgate ("open", tg_corpus (names.(keys{k})), "r");
  endfor
  closer = onCleanup (@() close_all (ids));
  strip = @strip_size;
  table = {
    "gray",    {"currentDirectory"},       "double",  @(t) [1 1];
    "gray",    {"lastDirectory"},          "logical", @(t) [1 1];
    "gray",    {"isTiled"},                "logical", @(t) [1 1];
    "gray",    {"numberOfStrips"},         "double",  @(t) [1 1];
    "tiled",   {"numberOfTiles"},          "double",  @(t) [1 1];
    "gray",    {"computeStrip", 0},        "double",  @(t) [1 1];
    "tiled",   {"computeTile", [1 1]},     "double",  @(t) [1 1];
    "gray",    {"getField", 256},          "double",  @(t) [1 1];
    "gray",    {"getField", 273},          "uint64",  @(t) [1 numel(t.StripOffsets)];
    "geo",     {"getField", 33922},        "double",  @(t) [numel(t.ModelTiepointTag) / 6, 6];
    "geo",     {"getField", 34735},        "double",  @(t) [numel(t.GeoKeyDirectoryTag) / 4, 4];
    "geo",     {"getField", 34737},        "char",    @(t) [1 numel(t.GeoAsciiParamsTag)];
    "palette", {"getField", 320},          "double",  @(t) [256 3];
    "gray",    {"readEncodedStrip", 0},    "uint8",   strip;
    "bilevel", {"readEncodedStrip", 0},    "logical", strip;
    "planar",  {"readEncodedStrip", 0},    "uint16",  strip;
    "tiled",   {"readEncodedTile", 0},     "uint8",   @(t) [t.TileLength, t.TileWidth, t.SamplesPerPixel];
    "ycbcr",   {"readEncodedTile", 0},     "uint8",   @(t) [t.TileLength, t.TileWidth];  # Y alone
    "gray",    {"readRGBAImage"},          "uint8",   @(t) [4, t.ImageWidth, t.ImageLength];
    "gray",    {"readRGBAStrip", 0},       "uint8",   @(t) [4, t.ImageWidth, t.RowsPerStrip];
    "tiled",   {"readRGBATile", 0, 0},     "uint8",   @(t) [4, t.TileWidth, t.TileLength];
    "gray",    {"retrieveMetadata"},       "struct",  @(t) [1 1]};
  for r = 1:rows (table)
    [key, call, cls, shape] = table{r, :};
    value = tiffgate (call{1}, ids.(key), call{2:end});
    what = sprintf ("%s on %s", call{1}, key);
    expect ({class(value), size(value)}, {cls, shape(tags.(key))}, what);
  endfor
  assert (class (ids.gray), "uint64");

  ## A YCbCr chunk gives three planes, however many outputs Octave asks for.
  [y, cb, cr] = tiffgate ("readEncodedTile", ids.ycbcr, 0);
  sub = tags.ycbcr.YCbCrSubSampling;
  assert ({size(cb), size(cr)}, repmat ({size(y) ./ [sub(2) sub(1)]}, 1, 2));
  ## retrieveMetadata: scalars are doubles, isTiled logical, no subsampling outside YCbCr.
  m = tiffgate ("retrieveMetadata", ids.gray);
  for f = setdiff (fieldnames (m).', {"YCbCrSubsampling", "isTiled"})
    expect ({class(m.(f{1})), size(m.(f{1}))}, {"double", [1 1]}, f{1});
  endfor
  assert ({class(m.isTiled), class(m.YCbCrSubsampling), size(m.YCbCrSubsampling)}, {"logical", "double", [0 0]});

  ## Samples land where Octave indexes them: the strips and the RGBA raster
  ## (bottom row first) of the grey image hash as its reference decode.
  t = tags.gray;
  img = zeros (t.ImageLength, t.ImageWidth, "uint8");
  for s = 0:tiffgate ("numberOfStrips", ids.gray) - 1
    img(s * t.RowsPerStrip + (1:min(t.RowsPerStrip, t.ImageLength - s * t.RowsPerStrip)), :) = ...
      tiffgate ("readEncodedStrip", ids.gray, s);
  endfor
  reference = decoded{1}.sha256;  # tifffile's decode of the grey image
  assert (tg_sha256 (img), reference);
  raster = tiffgate ("readRGBAImage", ids.gray);
  assert (tg_sha256 (squeeze (raster(1, :, end:-1:1)).'), reference);
  assert (tiffgate ("getField", ids.palette, 320), tags.palette.ColorMap.' / 65535, 1e-12);
endfunction

function expect (observed, expected, what)
  if (! isequal (observed, expected))
    error ("tiffgate:test", "%s: got %s, expected %s", what, disp (observed), disp (expected));
  endif
endfunction

function close_all (ids)
  for f = fieldnames (ids).'
    tiffgate ("close", ids.(f{1}));
  endfor
endfunction

## A strip's rows by columns; without RowsPerStrip the image is one strip.
function shape = strip_size (t)
  rps = t.ImageLength;
  if (isfield (t, "RowsPerStrip"))
    rps = min (t.RowsPerStrip, rps);
  endif
  shape = [rps, t.ImageWidth];
endfunction

## Errors: the module's identifier and text, catchable, with lasterr set;
## what the adapter refuses before the module sees it; a failed call leaves
## the open file as it was.
function check_errors ()
  invalid = "Quarn:imagesci:Tiff:InvalidOperation";
  table = {{"Close", 1},              invalid, "'Close' is not a valid operation.";
          {"close ", 1},             invalid, "'close ' is not a valid operation.";
          {["close" char(0)], 1},    invalid, "";
          {},                        invalid, "'' is not a valid operation.";
          {5},                       invalid, "'' is not a valid operation.";
          {{"close"}},               invalid, "";
          {"getVersion", 1},         "Quarn:imagesci:validate:wrongNumberOfInputs", "Wrong number of input arguments.";
          {"open", 1, "r"},          "Quarn:imagesci:Tiff:argumentWasNotChar", "The file argument must be a character array.";
          {"close", uint64(0)},      "Quarn:imagesci:Tiff:badFileId", "Invalid TIFF file identifier.";
          {"setDirectory", 1 + 2i, 0}, "tiffgate:complexOperand", "Argument 2 is complex; tiffgate takes real values only.";
          {complex("getVersion" + 0)}, "tiffgate:complexOperand", "";
          {"close", sparse(0)},      "Quarn:imagesci:Tiff:badFileId", "";  # sparse is read as full
          {"currentDirectory", sparse(7)}, "Quarn:imagesci:Tiff:invalidFileId", ""};
  for r = 1:rows (table)
    [call, id, message] = table{r, :};
    if (isempty (message))
      tg_expect_error (@() tiffgate (call{:}), id);
    else
      tg_expect_error (@() tiffgate (call{:}), id, message);
      assert (lasterr (), message);
    endif
  endfor
  assert (strncmp (tiffgate ("getVersion".'), "LIBTIFF", 7));  # a column word is the same word

  id = tiffgate ("open", tg_corpus ("imagetiff-multipage-8b.tiff"), "r");
  closer = onCleanup (@() tiffgate ("close", id));
  tiffgate ("setDirectory", id, 1);
  for k = 1:50
    try
      tiffgate ("setDirectory", id, 99);
    catch err
      assert (err.identifier, "Quarn:imagesci:Tiff:unableToChangeDir");
    end_try_catch
  endfor
  tiffgate ("setDirectory", id, 2);
  assert (tiffgate ("currentDirectory", id), 3);
endfunction

## libtiff's warnings reach Octave's warning routine: lastwarn sees them,
## warning ("off") silences them, warning ("error") makes them errors
## without harm to the module.
function check_warnings ()
  file = tg_corpus ("twelvemonkeys-g4-5pages.tif");  # a tag libtiff warns about
  id = "Quarn:imagesci:Tiff:libtiffWarning";
  state = warning ("on", id);
  restore = onCleanup (@() warning (state));
  lastwarn ("", "");
  tiffgate ("close", tiffgate ("open", file, "r"));
  [msg, warned] = lastwarn ();
  assert ({warned, ! isempty(strfind (msg, "292"))}, {id, true});

  warning ("off", id);
  lastwarn ("before", "tiffgate:test");
  tiffgate ("close", tiffgate ("open", file, "r"));
  [~, warned] = lastwarn ();
  assert (warned, "tiffgate:test");

  warning ("error", id);
  before = numel (tg_open_files ());
  tg_expect_error (@() tiffgate ("open", file, "r"), id);
  warning ("off", id);
  assert (strncmp (tiffgate ("getVersion"), "LIBTIFF", 7));
  ## The file was open when the warning came: it stays registered until
  ## the module is cleared, which closes it with a warning.
  assert (numel (tg_open_files ()), before + 1);
  lastwarn ("", "");
  clear tiffgate
  assert (lastwarn (), sprintf ("Closing TIFF file '%s', which was left open.", file));
  assert (numel (tg_open_files ()), before);
endfunction

## Files left open are closed when the module is cleared, in ascending order
## of identifier, each after a warning naming it; a file being written gets
## its directory. The same when the user made that warning an error, and
## when Octave exits.
function check_unload ()
  [dir, cleanup] = tg_scratch ();
  read_name = tg_corpus ("libtiff-minisblack-1c-8b.tiff");
  write_name = fullfile (dir, "left.tif");
  data = uint8 (reshape (0:199, 10, 20));
  ids = [tiffgate("open", read_name, "r"), tiffgate("open", write_name, "w")];
  for tag = {262, 1; 256, 20; 257, 10; 258, 8; 277, 1; 278, 10}.'
    tiffgate ("setField", ids(2), tag{:});
  endfor
  tiffgate ("writeEncodedStrip", ids(2), 0, data);
  names = {read_name, write_name};
  out = evalc ("clear tiffgate");
  [~, order] = sort (ids);
  shown = regexp (out, "warning: (Closing TIFF file [^\n]*)", "tokens");
  assert (cellfun (@(t) t{1}, shown, "UniformOutput", false),
          cellfun (@(n) sprintf ("Closing TIFF file '%s', which was left open.", n), names(order),
                   "UniformOutput", false));
  assert (sum (ismember (tg_open_files (), names)), 0);
  assert (tg_tifffile ({write_name}){1}.sha256, tg_sha256 (data));
  ## Loaded again: the old identifiers are dead; with nothing open, nothing is said.
  tg_expect_error (@() tiffgate ("currentDirectory", ids(1)), "Quarn:imagesci:Tiff:invalidFileId");
  lastwarn ("", "");
  clear tiffgate
  assert (lastwarn (), "");

  tiffgate ("open", read_name, "r");
  state = warning ("error", "Quarn:imagesci:Tiff:closingFileHandle");
  clear tiffgate
  warning (state);
  assert (sum (strcmp (tg_open_files (), read_name)), 0);

  name = fullfile (dir, "left open.tif");
  script = sprintf ("addpath('%s'); tiffgate('open', '%s', 'w'); disp('exiting')",
                    fileparts (which ("tiffgate")), name);
  cli = getenv ("TIFFGATE_OCTAVE_CLI");
  if (isempty (cli))
    cli = fullfile (OCTAVE_HOME (), "bin", "octave-cli");
  endif
  [status, out] = system (sprintf ("'%s' --no-gui --norc --no-history --quiet --eval \"%s\" 2>&1", cli, script));
  assert (status, 0);
  assert (! isempty (strfind (out, "exiting")));
  assert (! isempty (strfind (out, sprintf ("warning: Closing TIFF file '%s', which was left open.", name))));
endfunction

## Octave's UTF-8 names reach the file system and come back in messages byte
## for byte; bytes that are not UTF-8 are read as Latin-1 and fail cleanly.
function check_utf8 ()
  [dir, cleanup] = tg_scratch ();
  source = tg_corpus ("imagetiff-multipage-8b.tiff");
  for name = {"Grüße.tif", "漢字 テスト.tif", "\xF0\x9F\x93\xB7 photo.tif"}  # 2, 3 and 4 bytes
    path = fullfile (dir, name{1});
    tg_copy (source, path);
    id = tiffgate ("open", path, "r");
    assert (sum (strcmp (tg_open_files (), path)), 1);
    tiffgate ("close", id);
    missing = fullfile (dir, ["missing " name{1}]);
    tg_expect_error (@() tiffgate ("open", missing, "r"), "Quarn:imagesci:Tiff:unableToOpenFile",
                     sprintf ("Unable to open TIFF file '%s'.", missing));
  endfor
  latin1 = [dir "/caf" char(233) ".tif"];  # fullfile refuses text that is not UTF-8
  tg_copy (source, latin1);
  err = tg_expect_error (@() tiffgate ("open", latin1, "r"), "Quarn:imagesci:Tiff:unableToOpenFile");
  assert (! isempty (strfind (err.message, ["caf" "\xC3\xA9" ".tif"])));
  ## XMLPacket: UTF-8 bytes in, one character each, out as they went in.
  packet = "<x:xmpmeta>Gr\xC3\xBC\xC3\x9Fe \xE6\xBC\xA2</x:xmpmeta>";
  name = fullfile (dir, "xmp.tif");
  tiffgate_write (name, uint8 (1), "Tags", {700, packet});
  id = tiffgate ("open", name, "r");
  closer = onCleanup (@() tiffgate ("close", id));
  assert (double (tiffgate ("getField", id, 700)), double (packet));
endfunction
