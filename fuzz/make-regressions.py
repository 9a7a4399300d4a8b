#!/usr/bin/env python3
"""Writes the regression inputs kept under fuzz/regressions/ (run from the repository root)."""
import struct


def binary_list(objects):
    """A binary list of encoded objects (object 0 on top), two-byte offsets and references."""
    s = b"bplist00"
    offsets = []
    for o in objects:
        offsets.append(len(s))
        s += o
    table = len(s)
    for off in offsets:
        s += struct.pack(">H", off)
    trailer = bytearray(32)
    trailer[6] = 2
    trailer[7] = 2
    trailer[14:16] = struct.pack(">H", len(objects))
    trailer[30:32] = struct.pack(">H", table)
    return s + bytes(trailer)


def ref(i):
    return struct.pack(">H", i)


def write(path, data):
    with open(path, "wb") as f:
        f.write(data if isinstance(data, bytes) else data.encode())


R = "fuzz/regressions/"
write(R + "property_list/xml-raw-nul-in-string.plist", b"<plist><string>a\0b</string></plist>")
write(R + "property_list/binary-nul-in-string.bplist", binary_list([b"\xA1" + ref(1), b"\x53a\0b"]))
write(R + "property_list/binary-nul-in-key.bplist",
      binary_list([b"\xD1" + ref(1) + ref(2), b"\x52k\0", b"\x09"]))
# Arrays that each reference the next level twice, 40 levels: 2^40 leaves from < 1 KB.
write(R + "property_list/binary-reference-bomb.bplist",
      binary_list([b"\xA2" + ref(i + 1) + ref(i + 1) for i in range(40)] + [b"\x09"]))
write(R + "predicate/huge-index.txt", "a[99999999999999999999]")
# A 10 KB internal entity referenced 200 times: 2 MB of expansion from an 11 KB file.
bomb = ('<?xml version="1.0"?>\n<!DOCTYPE plist [<!ENTITY big "' + "x" * 10240 + '">]>\n'
        "<plist><dict><key>List of Rolls</key><array><dict><key>RollName</key><string>"
        + "&big;" * 200 + "</string></dict></array></dict></plist>\n")
write(R + "photo_parser/entity-bomb-2mb.xml", bomb)
write(R + "itunes_parser/entity-bomb-2mb.xml", bomb)
write(R + "itunes_parser/raw-nul.xml", b"<plist><dict><key>Tracks</key><dict><key>1</key><dict>"
      b"<key>Location</key><string>a\0b</string></dict></dict></dict></plist>")
