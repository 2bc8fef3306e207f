"""Writes TIFF files with tifffile in every layout it can write without
extra codecs, for the round-trip tests to read through the module.

    tifffile_write.py OUTDIR

Prints one line per page written, in the format of tifffile_pages.py:

    file  key  dtype  shape  compression  data

data names a file holding the array written, in C order, little-endian,
bool as one byte per element. Shapes follow tifffile: length x width,
x samples when contiguous, samples x length x width for separate planes.
"""
import os
import sys

import numpy
import tifffile

rng = numpy.random.default_rng(20240607)
COMPRESSION = {None: 1, "zlib": 8, "deflate": 32946, "lzma": 34925}


def values(dtype, shape):
    dtype = numpy.dtype(dtype)
    if dtype == bool:
        return rng.integers(0, 2, shape).astype(bool)
    if dtype.kind == "f":
        return (rng.standard_normal(shape) * 1000).astype(dtype)
    info = numpy.iinfo(dtype)
    return rng.integers(info.min, info.max, shape, dtype=dtype, endpoint=True)


class Out:
    def __init__(self, outdir):
        self.outdir = outdir

    def record(self, path, key, a, compression):
        name = os.path.join(self.outdir, "%s.%s.expected" % (os.path.basename(path), key))
        with open(name, "wb") as f:
            f.write(numpy.ascontiguousarray(a).astype(a.dtype.newbyteorder("<"), copy=False).tobytes())
        shape = "x".join(str(n) for n in a.shape)
        print("\t".join([path, key, a.dtype.name, shape, str(COMPRESSION[compression]), name]))

    def file(self, name, pages, **writer):
        """pages: (array, keyword arguments of TiffWriter.write) in order."""
        path = os.path.join(self.outdir, name)
        with tifffile.TiffWriter(path, **writer) as tw:
            for d, (a, kw) in enumerate(pages):
                tw.write(a, metadata=None, **kw)
                self.record(path, str(d), a, kw.get("compression"))


def main(outdir):
    out = Out(outdir)
    grey = dict(photometric="minisblack")
    rgb = dict(photometric="rgb")
    layouts = [
        (values("u1", (23, 17)), dict(grey, rowsperstrip=5)),
        (values("i1", (23, 17)), dict(grey, compression="zlib")),
        (values("u2", (11, 19, 3)), dict(rgb, compression="zlib", predictor=True, rowsperstrip=4)),
        (values("i2", (21, 37)), dict(grey, tile=(16, 16))),
        (values("u4", (9, 13, 4)), dict(rgb, extrasamples=["unassalpha"], rowsperstrip=4)),
        (values("i4", (10, 10)), dict(grey, compression="lzma")),
        (values("f4", (3, 12, 7)), dict(rgb, planarconfig="separate", rowsperstrip=5)),
        (values("f8", (33, 18)), dict(grey, tile=(16, 16), compression="deflate")),
        (values(bool, (13, 21)), dict(grey, rowsperstrip=4)),
        (values("u1", (20, 35)), dict(grey, tile=(16, 32), compression="zlib")),
        (values("u2", (3, 40, 24)), dict(rgb, planarconfig="separate", tile=(16, 16))),
        (values("u1", (8, 9, 2)), dict(grey, extrasamples=["unassalpha"])),
        (values("i2", (3, 17, 5)), dict(grey, planarconfig="separate", compression="zlib", predictor=True)),
    ]
    palette = values("u1", (12, 10))
    colormap = values("u2", (3, 256))
    layouts.append((palette, dict(photometric="palette", colormap=colormap)))
    out.file("little.tif", layouts)
    out.file("big-endian.tif", layouts[:8], byteorder=">")
    out.file("bigtiff.tif", layouts[3:11], bigtiff=True)
    # SubIFDs: two reduced images after the first one.
    path = os.path.join(outdir, "subifds.tif")
    with tifffile.TiffWriter(path) as tw:
        pages = [values("u1", (32, 24, 3)), values("u1", (16, 12, 3)), values("u1", (8, 6, 3))]
        tw.write(pages[0], photometric="rgb", subifds=2, metadata=None)
        for p in pages[1:]:
            tw.write(p, photometric="rgb", subfiletype=1, compression="zlib", metadata=None)
        out.record(path, "0", pages[0], None)
        out.record(path, "0.0", pages[1], "zlib")
        out.record(path, "0.1", pages[2], "zlib")
    # Layouts the module refuses by design.
    for name, dtype in (("float16.tif", "f2"), ("uint64.tif", "u8"), ("int64.tif", "i8")):
        out.file(name, [(values(dtype, (6, 5)), dict(grey))])


if __name__ == "__main__":
    main(sys.argv[1])
