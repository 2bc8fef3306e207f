"""Decodes every page of the TIFF files named on the command line with
tifffile, SubIFDs included, for the round-trip tests to compare with the
arrays they wrote through the module.

    tifffile_pages.py OUTDIR FILE...

For each page one line, fields separated by tabs:

    file  key  dtype  shape  compression  data

key is "2" for main page 2, "0.1" for SubIFD 1 of page 0; dtype is numpy's
name (bool for 1-bit data); shape its dimensions joined by "x"; data the
name of a file in OUTDIR holding the decoded array in C order,
little-endian, bool as one byte per element, or "error: ..." when tifffile
cannot decode the page (dtype and shape are then what the page declares).
"""
import logging
import os
import sys
import warnings

import numpy
import tifffile


def page_line(page, path, key, outdir):
    shape = "x".join(str(n) for n in page.shape)
    fields = [path, key, numpy.dtype(page.dtype).name, shape, str(int(page.compression))]
    try:
        a = page.asarray()
        le = numpy.ascontiguousarray(a).astype(a.dtype.newbyteorder("<"), copy=False)
        name = os.path.join(outdir, "%s.%s.bin" % (os.path.basename(path), key))
        with open(name, "wb") as f:
            f.write(le.tobytes())
        fields[2:4] = [a.dtype.name, "x".join(str(n) for n in a.shape)]
        fields.append(name)
    except Exception as exc:  # noqa: BLE001 - reported as data
        fields.append("error: %s" % exc)
    print("\t".join(fields))


def main(outdir, paths):
    logging.disable(logging.CRITICAL)
    warnings.simplefilter("ignore")
    for path in paths:
        with tifffile.TiffFile(path) as tf:
            for d, page in enumerate(tf.pages):
                page_line(page, path, str(d), outdir)
                for s, offset in enumerate(page.subifds or ()):
                    tf.filehandle.seek(offset)
                    page_line(tifffile.TiffPage(tf, index=(d, s)), path, "%d.%d" % (d, s), outdir)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2:])
