#!/usr/bin/env python3
"""Compiles a text resource source into a binary text resource file.

    mkresfile.py SOURCE OUTPUT [LANGUAGE]

LANGUAGE, three characters, goes into the header; by default it is the
source's file name without its extension ("enu" for enu.txt).

The source is UTF-8 text, one entry a line:

    # a comment line; blank lines are skipped too
    -1102<TAB>File not found:\\n$1
    1700<TAB>second
    text-encoding.KOI-8<TAB>Cyrillic (KOI8-R)
    label:Open<TAB>Open

An entry is a key, one or more tabs, and the text. The key is a number
(the id, -2147483648 to 2147483647, 0 excepted) or a name of the text set,
or of another set with "label:", "title:", "help:" (or "text:") in front.
Names are at most 127 bytes of UTF-8 and hold no tab. The text runs to the
end of the line, with the escapes \\n (line feed), \\t (tab), \\\\ (a
backslash) and \\uXXXX (a UTF-16 unit). A text that must begin or end with
a blank is written in double quotes, with \\" for a quote inside; so is a
text that begins with a quote.

The file (all integers little-endian, offsets from the start of the file):

    0    signature "Larkspindle text resource file", a zero and a pad byte
    32   language code, three characters and a zero
    36   version 1, reserved 0, units of the longest text record (with its
         terminator), the number of numeric sets (3)
    52   three numeric sets (ids below 0, 0 to 99999, 100000 and above):
         first id, count, offset of the address table
    88   the number of name sets (4)
    92   four name sets (text, label, title, help): count, name block
         length, name block offset, name offset table offset, text address
         table offset
    172  the tables, the name blocks, then the text records

An address table holds one int32 per id from the first id on: the offset of
the id's text record, 0 for an id without text. A name block holds the
set's names sorted by their bytes, each with a zero byte; the name offset
table where each begins; the text address table the offset of each name's
text record. A text record is an int16 n and n UTF-16 units, the last a
zero. Equal texts share one record.
"""

import os
import struct
import sys

SIGNATURE = b"Larkspindle text resource file\0\0"
HEADER_SIZE = 172
SETS = {"text": 0, "label": 1, "title": 2, "help": 3}
NUMERIC_RANGES = ((-(2 ** 31), -1), (0, 99999), (100000, 2 ** 31 - 1))
NAME_MAX = 127


class SourceError(Exception):
    pass


def unescape(text, where):
    """The text of an entry, quotes and escapes resolved, as UTF-16 units."""
    quoted = text.startswith('"')
    i, end = (1, None) if quoted else (0, len(text))
    out = []
    while i < len(text):
        c = text[i]
        if quoted and c == '"':
            if i != len(text) - 1:
                raise SourceError(f'{where}: write a quote inside a quoted text as \\"')
            end = i
            break
        if c != "\\":
            out.append(c)
            i += 1
            continue
        e = text[i + 1:i + 2]
        if e == "n":
            out.append("\n")
        elif e == "t":
            out.append("\t")
        elif e in ("\\", '"'):
            out.append(e)
        elif e == "u":
            digits = text[i + 2:i + 6]
            if len(digits) != 4 or any(d not in "0123456789abcdefABCDEF" for d in digits):
                raise SourceError(f"{where}: \\u takes four hexadecimal digits")
            out.append(chr(int(digits, 16)))
            i += 4
        else:
            raise SourceError(f"{where}: unknown escape \\{e}")
        i += 2
    if end is None:
        raise SourceError(f"{where}: a quoted text must end with a quote")
    units = "".join(out).encode("utf-16-le", "surrogatepass")
    units = struct.unpack(f"<{len(units) // 2}H", units)
    if 0 in units:
        raise SourceError(f"{where}: a text can't hold a zero unit")
    if len(units) + 1 > 0x7FFF:
        raise SourceError(f"{where}: the text is longer than a record holds")
    return units


def parse(path):
    """The entries of a source: {id: units} and [{name: units}] x 4."""
    numbers = {}
    names = [{} for _ in SETS]
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            where = f"{path}:{number}"
            line = line.rstrip("\n").rstrip("\r")
            if not line.strip() or line.startswith("#"):
                continue
            key, tab, text = line.partition("\t")
            if not tab or not key:
                raise SourceError(f"{where}: a key, a tab and a text are expected")
            text = text.lstrip("\t")
            units = unescape(text, where)
            try:
                ident = int(key, 10)
            except ValueError:
                ident = None
            if ident is not None:
                if ident == 0 or not -(2 ** 31) <= ident < 2 ** 31:
                    raise SourceError(f"{where}: the id {ident} can't be used")
                if ident in numbers:
                    raise SourceError(f"{where}: the id {ident} is given twice")
                numbers[ident] = units
                continue
            set_name, colon, name = key.partition(":")
            if colon and set_name in SETS:
                index = SETS[set_name]
            else:
                index, name = 0, key
            raw = name.encode("utf-8")
            if not raw or len(raw) > NAME_MAX or b"\0" in raw:
                raise SourceError(f"{where}: a name takes 1 to {NAME_MAX} bytes")
            if raw in names[index]:
                raise SourceError(f"{where}: the name {name!r} is given twice")
            names[index][raw] = units
    return numbers, names


class Layout:
    """Offsets handed out one behind the other from the end of the header."""

    def __init__(self):
        self.end = HEADER_SIZE
        self.parts = []

    def add(self, data):
        offset = self.end
        self.parts.append(data)
        self.end += len(data)
        return offset


def compile_file(numbers, names, language):
    # Equal texts share a record.
    texts = []
    for units in list(numbers.values()) + [u for s in names for u in s.values()]:
        if units not in texts:
            texts.append(units)
    longest = max((len(u) + 1 for u in texts), default=1)

    # The ids of each numeric set, holes included; the names of each name
    # set in byte order.
    numeric = []
    for low, high in NUMERIC_RANGES:
        ids = sorted(i for i in numbers if low <= i <= high)
        first = ids[0] if ids else 0
        numeric.append((first, [numbers.get(i) for i in range(first, ids[-1] + 1)] if ids else []))
    named = [(sorted(entries), entries) for entries in names]

    # The tables come first, so the records' offsets are known before the
    # tables are written.
    tables = sum(4 * len(slots) for _, slots in numeric)
    tables += sum(sum(len(n) + 1 for n in order) + 8 * len(order) for order, _ in named)
    records, at = {}, HEADER_SIZE + tables
    for units in texts:
        if units not in records:
            records[units] = at
            at += 2 + 2 * (len(units) + 1)

    def int32s(values):
        return struct.pack(f"<{len(values)}i", *values)

    layout = Layout()
    numeric_headers = []
    for first, slots in numeric:
        table = int32s([records[t] if t is not None else 0 for t in slots])
        numeric_headers.append((first, len(slots), layout.add(table) if slots else 0))
    name_headers = []
    for order, entries in named:
        if not order:
            name_headers.append((0, 0, 0, 0, 0))
            continue
        block = b"".join(n + b"\0" for n in order)
        offsets = [0]
        for n in order[:-1]:
            offsets.append(offsets[-1] + len(n) + 1)
        name_headers.append((len(order), len(block), layout.add(block), layout.add(int32s(offsets)),
                             layout.add(int32s([records[entries[n]] for n in order]))))
    assert layout.end == HEADER_SIZE + tables
    for units in texts:
        assert records[units] == layout.end
        layout.add(struct.pack(f"<h{len(units) + 1}H", len(units) + 1, *units, 0))

    header = SIGNATURE + language.encode("ascii") + b"\0"
    header += struct.pack("<4i", 1, 0, longest, 3)
    for h in numeric_headers:
        header += struct.pack("<3i", *h)
    header += struct.pack("<i", 4)
    for h in name_headers:
        header += struct.pack("<5i", *h)
    assert len(header) == HEADER_SIZE
    return header + b"".join(layout.parts)


def main(argv):
    if len(argv) not in (3, 4):
        sys.stderr.write(__doc__)
        return 2
    source, output = argv[1], argv[2]
    language = argv[3] if len(argv) == 4 else os.path.splitext(os.path.basename(source))[0]
    if len(language) != 3 or not language.isascii() or not language.isalnum():
        sys.stderr.write(f"mkresfile: the language code {language!r} isn't three letters\n")
        return 2
    try:
        numbers, names = parse(source)
    except (SourceError, UnicodeDecodeError) as e:
        sys.stderr.write(f"mkresfile: {e}\n")
        return 1
    data = compile_file(numbers, names, language)
    if len(data) > 2 ** 31 - 1:
        sys.stderr.write("mkresfile: the texts don't fit in a resource file\n")
        return 1
    temp = output + ".tmp"
    with open(temp, "wb") as f:
        f.write(data)
    os.replace(temp, output)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
