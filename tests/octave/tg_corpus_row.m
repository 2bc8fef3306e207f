function row = tg_corpus_row (table, file, directory)
  ## ROW = tg_corpus_row (TABLE, FILE [, DIRECTORY]): the row of the corpus's
  ## MANIFEST, REFERENCE or LIBTIFF_CHUNKS table for FILE (and DIRECTORY), as
  ## a struct of text fields.
  if (nargin < 3)
    directory = "";
  endif
  rows = tg_python (["import csv\n" ...
                     "r = [x for x in csv.DictReader(open(sys.argv[1])) if x['file'] == sys.argv[2]" ...
                     " and (sys.argv[3] == '' or x['directory'] == sys.argv[3])]\n" ...
                     "print(json.dumps(r))"],
                    fullfile (getenv ("TIFFGATE_CORPUS"), [table ".csv"]), file, num2str (directory));
  if (numel (rows) != 1)
    error ("tiffgate:test", "%s.csv has %d rows for %s", table, numel (rows), file);
  endif
  row = rows(1);
endfunction
