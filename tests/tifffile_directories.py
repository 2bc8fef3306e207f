"""Every directory of the TIFF files named on the command line, as tifffile
finds them (the main chain, and the SubIFDs of each directory, depth first),
for the corpus tests to hold the module against.

    tifffile_directories.py [--decode-subifds] FILE...

Output, one record per line, fields separated by tabs:

    F  file
    D  key                      directory: "2" main directory 2, "0.1" SubIFD 1
                                of main directory 0, "0.1.0" a SubIFD of that
    T  code  type  count  values
    R  shape  dtype  sha256     (--decode-subifds: a SubIFD as tifffile decodes
                                it; the hash is of the C-order little-endian
                                array, bool as one byte per element)
    E  text                     tifffile could not read or decode

Tag values come from the file's bytes, not from tifffile's interpretation:
text, byte and undefined values as hexadecimal bytes; numbers in decimal,
a rational as its quotient.
"""
import hashlib
import logging
import sys
import warnings

import numpy
import tifffile

NUMERIC = {1: "u1", 3: "u2", 4: "u4", 6: "i1", 8: "i2", 9: "i4", 11: "f4", 12: "f8",
           13: "u4", 16: "u8", 17: "i8", 18: "u8"}
TEXT = {2, 7}  # ASCII, UNDEFINED
BLOCKS = {700, 33723, 34377, 34675}  # XMLPacket, IPTC, Photoshop, ICC: bytes whatever their type
RATIONAL = {5: "u4", 10: "i4"}
MAX_DEPTH = 4


def raw_value(tf, tag):
    fh = tf.filehandle
    size = tag.valuebytecount
    fh.seek(tag.valueoffset)
    return fh.read(size)


def value_text(tf, tag):
    raw = raw_value(tf, tag)
    order = tf.byteorder
    if tag.dtype in TEXT or tag.code in BLOCKS:
        return raw.hex()
    if tag.dtype in RATIONAL:
        pairs = numpy.frombuffer(raw, order + RATIONAL[tag.dtype]).astype(float).reshape(-1, 2)
        with numpy.errstate(divide="ignore", invalid="ignore"):
            return " ".join(repr(float(v)) for v in pairs[:, 0] / pairs[:, 1])
    if tag.dtype in NUMERIC:
        return " ".join(repr(v) for v in numpy.frombuffer(raw, order + NUMERIC[tag.dtype]).tolist())
    return "?"


def decode(page):
    a = page.asarray()
    le = numpy.ascontiguousarray(a).astype(a.dtype.newbyteorder("<"), copy=False)
    return "x".join(str(n) for n in a.shape), a.dtype.name, hashlib.sha256(le.tobytes()).hexdigest()


def directory(tf, page, key, depth, subifds):
    print("D\t" + key)
    for tag in page.tags.values():
        print("T\t%d\t%d\t%d\t%s" % (tag.code, tag.dtype, tag.count, value_text(tf, tag)))
    if subifds and "." in key:
        try:
            print("R\t%s\t%s\t%s" % decode(page))
        except Exception as exc:  # noqa: BLE001 - every failure is data here
            print("E\tdecode %s: %s" % (key, exc))
    if depth >= MAX_DEPTH or not page.subifds:
        return
    for i, offset in enumerate(page.subifds):
        try:
            tf.filehandle.seek(offset)
            sub = tifffile.TiffPage(tf, index=tuple(int(k) for k in (key + "." + str(i)).split(".")))
        except Exception as exc:  # noqa: BLE001
            print("E\tSubIFD %s.%d: %s" % (key, i, exc))
            continue
        directory(tf, sub, "%s.%d" % (key, i), depth + 1, subifds)


def main(args):
    subifds = "--decode-subifds" in args
    logging.disable(logging.CRITICAL)
    warnings.simplefilter("ignore")
    for path in (a for a in args if not a.startswith("--")):
        print("F\t" + path)
        try:
            with tifffile.TiffFile(path) as tf:
                for d, page in enumerate(tf.pages):
                    directory(tf, page, str(d), 0, subifds)
        except Exception as exc:  # noqa: BLE001
            print("E\t%s" % exc)
        sys.stdout.flush()


if __name__ == "__main__":
    main(sys.argv[1:])
