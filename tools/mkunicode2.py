#!/usr/bin/env python3
"""Writes "unicode2.ref", the conversion tables of the legacy charsets.

    mkunicode2.py OUTPUT

The file: a 16-byte header (header size, entry size, unused, entry count;
32-bit little-endian), a directory of 40-byte entries (the charset's name in
16 UTF-16 units, NUL-padded; the offset of its pair list; its pair count),
then the pair lists: 16-bit Unicode value, 16-bit code value, little-endian.
A reader applies the pairs in file order, the later pair winning in both
directions, so a charset's round-trip pair for a code is written last.

Code values stand in the form the converters look them up in:
  - the double-byte sets that the internal form designates with 94x94 codes
    (JISX0208, JISX0212, GB2312, KSC5601, the CNS planes): 7-bit, 0x2121
    to 0x7E7E;
  - BigFive, KSC5601U (EUC-KR bytes), KSC5601_1992 (Johab): the bytes as
    they stand, high * 256 + low;
  - single-byte sets: the byte, with the ASCII range included.
Characters beyond the Basic Multilingual Plane have no place in a 16-bit
pair and are left out.

Sources, all from Debian packages (see SOURCES below):
  - glibc's charmaps, /usr/share/i18n/charmaps (package locales);
  - Perl's Encode tables (package perl): GB 12345, and the Macintosh
    charsets, which are Apple's published tables, except MacEurope (glibc's
    agrees with Apple's) and MacUkrainian (Perl's decodes no byte). glibc's
    MACINTOSH and MAC-IS predate Apple's current tables (0xC6 is U+0394
    there, not U+2206, and MAC-IS has MacRoman's dagger at 0xA0 where
    Icelandic has U+00DD);
  - Python's codecs: the Windows Thai code page;
  - ICU's converters through uconv (package icu-devtools): ISCII.
Charsets without a published table on Debian get no entry: the converters
then treat them as having no characters. They are listed in MISSING.
"""

import codecs
import gzip
import os
import re
import struct
import subprocess
import sys

CHARMAPS = "/usr/share/i18n/charmaps"

# name in the charset table: (kind, source, form)
#   kind "charmap": a glibc charmap; "perl": a Perl Encode name; "python": a
#   Python codec; "uconv": an ICU converter name.
#   form "byte": one-byte codes; "7bit": two-byte codes less 0x8080;
#   "native": two-byte codes as they stand; "euc-g3": EUC-JP's three-byte
#   codes after 0x8F, less 0x8080; "cns2": EUC-TW's plane 2 (8E A2 hi lo),
#   less 0x8080.
SOURCES = {
    "GB2312": ("charmap", "GB2312", "7bit"),
    "GB12345": ("perl", "gb12345-raw", "7bit"),
    "BigFive": ("charmap", "BIG5", "native"),
    "CNS01": ("charmap", "EUC-TW", "7bit"),
    "CNS02": ("charmap", "EUC-TW", "cns2"),
    "JISX0208": ("charmap", "EUC-JP", "7bit"),
    "JISX0212": ("charmap", "EUC-JP", "euc-g3"),
    "KSC5601": ("charmap", "EUC-KR", "7bit"),
    "ISO8859_2": ("charmap", "ISO-8859-2", "byte"),
    "ISO8859_3": ("charmap", "ISO-8859-3", "byte"),
    "ISO8859_4": ("charmap", "ISO-8859-4", "byte"),
    "ISO8859_5": ("charmap", "ISO-8859-5", "byte"),
    "ISO8859_6": ("charmap", "ISO-8859-6", "byte"),
    "ISO8859_7": ("charmap", "ISO-8859-7", "byte"),
    "ISO8859_8": ("charmap", "ISO-8859-8", "byte"),
    "ISO8859_9": ("charmap", "ISO-8859-9", "byte"),
    "WinCP_Turk": ("charmap", "CP1254", "byte"),
    "WinCP_EE": ("charmap", "CP1250", "byte"),
    "WinCP_Cyrl": ("charmap", "CP1251", "byte"),
    "WinCP_Greek": ("charmap", "CP1253", "byte"),
    "WinCP_Arab": ("charmap", "CP1256", "byte"),
    "WinCP_Hebr": ("charmap", "CP1255", "byte"),
    "DOSCP_437": ("charmap", "IBM437", "byte"),
    "DOSCP_850": ("charmap", "IBM850", "byte"),
    "DOSCP_852": ("charmap", "IBM852", "byte"),
    "DOSCP_857": ("charmap", "IBM857", "byte"),
    "DOSCP_861": ("charmap", "IBM861", "byte"),
    "DOSCP_863": ("charmap", "IBM863", "byte"),
    "DOSCP_865": ("charmap", "IBM865", "byte"),
    "IBMCP_869": ("charmap", "IBM869", "byte"),
    "IBMCP_855": ("charmap", "IBM855", "byte"),
    "IBMCP_864": ("charmap", "IBM864", "byte"),
    "tis620_2529": ("charmap", "TIS-620", "byte"),
    "WinCP_Thai": ("python", "cp874", "byte"),
    "WinCP_ANSI": ("charmap", "CP1252", "byte"),
    "MacArabic": ("perl", "MacArabic", "byte"),
    "MacCroation": ("perl", "MacCroatian", "byte"),
    "MacCyrillic": ("perl", "MacCyrillic", "byte"),
    "MacDingbats": ("perl", "MacDingbats", "byte"),
    "MacEurope": ("charmap", "MAC-CENTRALEUROPE", "byte"),
    "MacGreek": ("perl", "MacGreek", "byte"),
    "MacHebrew": ("perl", "MacHebrew", "byte"),
    "MacIcelandic": ("perl", "MacIcelandic", "byte"),
    "MacRomanian": ("perl", "MacRomanian", "byte"),
    "MacRoman": ("perl", "MacRoman", "byte"),
    "MacSymbol": ("perl", "MacSymbol", "byte"),
    "MacThai": ("perl", "MacThai", "byte"),
    "MacTurkish": ("perl", "MacTurkish", "byte"),
    "MacUkrainian": ("charmap", "MAC-UK", "byte"),
    "cp1257": ("charmap", "CP1257", "byte"),
    "KSC5601U": ("charmap", "EUC-KR", "native"),
    "KSC5601_1992": ("charmap", "JOHAB", "native"),
    "ISCII_Devanagar": ("uconv", "ISCII,version=0", "byte"),
    "ISCII_Bengali": ("uconv", "ISCII,version=1", "byte"),
    "ISCII_Gurmukhi": ("uconv", "ISCII,version=2", "byte"),
    "ISCII_Gujarati": ("uconv", "ISCII,version=3", "byte"),
    "ISCII_Oriya": ("uconv", "ISCII,version=4", "byte"),
    "ISCII_Tamil": ("uconv", "ISCII,version=5", "byte"),
    "ISCII_Telugu": ("uconv", "ISCII,version=6", "byte"),
    "ISCII_Kannada": ("uconv", "ISCII,version=7", "byte"),
    "ISCII_Malayalam": ("uconv", "ISCII,version=8", "byte"),
    "koi8": ("charmap", "KOI8-R", "byte"),
}

# Charsets of the table with no published mapping on Debian, and those built
# into the library itself.
MISSING = ["GB7489", "GB7590", "GBHAN", "GB8565", "CNS14", "KSC5657", "JISC6226",
           "IBMCP_1040", "IBMCP_1041", "IBMCP_1043", "VO_Thai", "ArabicUC", "IBM1046",
           "MacJapanese"]
BUILT_IN = ["Unicode", "ISO8859_1", "JIS_Roman", "GB_Roman", "HW_Katakana"]

ENTRY = struct.Struct("<32sII")


def charmap_pairs(name, form):
    """(unicode, code) in the charmap's order. A line marked %IRREVERSIBLE%
    only decodes: its pair goes first, so that the code's reversible pair,
    written later, is the one a character encodes to."""
    path = os.path.join(CHARMAPS, name + ".gz")
    line_re = re.compile(r"^(%IRREVERSIBLE%)?<U([0-9A-Fa-f]{4,8})>\s+((?:/x[0-9A-Fa-f]{2})+)")
    irreversible = []
    pairs = []
    # Some charmaps have no "CHARMAP" line: a mapping line counts wherever it
    # stands before "END CHARMAP".
    with gzip.open(path, "rt", encoding="latin-1") as f:
        for line in f:
            if line.startswith("END CHARMAP"):
                break
            m = line_re.match(line)
            if not m:
                continue
            uni = int(m.group(2), 16)
            data = bytes(int(h, 16) for h in m.group(3).split("/x")[1:])
            code = code_of(data, form)
            if code is not None and 0 < uni <= 0xFFFF:
                (irreversible if m.group(1) else pairs).append((uni, code))
    return irreversible + round_trip_last(pairs)


def code_of(data, form):
    if form == "byte":
        return data[0] if len(data) == 1 else None
    if form == "7bit":
        if len(data) == 2 and data[0] >= 0xA1 and data[1] >= 0xA1:
            return ((data[0] << 8) | data[1]) - 0x8080
        return None
    if form == "native":
        return (data[0] << 8) | data[1] if len(data) == 2 else None
    if form == "euc-g3":
        if len(data) == 3 and data[0] == 0x8F:
            return ((data[1] << 8) | data[2]) - 0x8080
        return None
    if form == "cns2":
        if len(data) == 4 and data[0] == 0x8E and data[1] == 0xA2:
            return ((data[2] << 8) | data[3]) - 0x8080
        return None
    raise ValueError(form)


def byte_table_pairs(decode):
    """Pairs of a one-byte charset from a function that decodes one byte (or None).

    An ASCII byte (0x20 to 0x7F) that the source leaves without a character
    reads as itself. Apple's right-to-left sets are the case: their tables
    give the ASCII punctuation twice, once for each direction, and the
    published form maps only the right-to-left copy in the high half, which
    stays the one the character encodes to."""
    pairs = []
    for b in range(1, 256):
        uni = decode(b)
        if uni is not None and 0 < uni <= 0xFFFF:
            pairs.append((uni, b))
    pairs += [(b, b) for b in range(0x20, 0x80) if decode(b) is None]
    return pairs


def perl_pairs(name, form):
    """Pairs of a Perl Encode table: each byte of a one-byte set, or each
    94x94 code (0x2121 to 0x7E7E) of a raw double-byte one."""
    if form == "byte":
        codes = "1..255"
    else:
        codes = "map { my $h = $_; map { $h * 256 + $_ } 0x21..0x7E } 0x21..0x7E"
    script = ('use Encode; my $e = Encode::find_encoding($ARGV[0]) or die; '
              'for my $c (' + codes + ') { '
              'my $in = $c > 255 ? chr($c >> 8) . chr($c & 255) : chr($c); '
              'my $s = $e->decode($in, Encode::FB_QUIET); '
              'print "$c ", (length($s) == 1 ? ord($s) : 0), "\\n"; }')
    out = subprocess.run(["perl", "-e", script, name], check=True, stdout=subprocess.PIPE,
                         text=True).stdout
    table = {}
    for line in out.split("\n"):
        if line:
            c, u = map(int, line.split())
            if u and u != 0xFFFD:
                table[c] = u
    if form == "byte":
        return byte_table_pairs(table.get)
    return [(u, c) for c, u in sorted(table.items()) if u <= 0xFFFF]


def python_pairs(codec):
    def decode(b):
        try:
            s = bytes([b]).decode(codec)
        except UnicodeDecodeError:
            return None
        return ord(s) if len(s) == 1 else None
    return byte_table_pairs(decode)


def uconv_pairs(converter):
    # Each byte alone, preceded by a newline so that state from one byte
    # never reaches the next; bytes that give more or less than one
    # character, or a substitute, have no pair.
    data = b"".join(bytes([b, 0x0A]) for b in range(1, 256) if b != 0x0A)
    out = subprocess.run(["uconv", "-f", converter, "-t", "UTF-16LE", "--callback", "skip"],
                         input=data, check=True, stdout=subprocess.PIPE).stdout
    text = out.decode("utf-16-le")
    pieces = text.split("\n")
    table = {}
    for b, piece in zip([b for b in range(1, 256) if b != 0x0A], pieces):
        if len(piece) == 1 and piece != "\ufffd" and piece != "\x1a":
            table[b] = ord(piece)
    table[0x0A] = 0x0A
    return byte_table_pairs(table.get)


def pairs_for(kind, source, form):
    if kind == "charmap":
        pairs = charmap_pairs(source, form)
    elif kind == "perl":
        pairs = round_trip_last(perl_pairs(source, form))
    elif kind == "python":
        pairs = round_trip_last(python_pairs(source))
    elif kind == "uconv":
        pairs = round_trip_last(uconv_pairs(source))
    else:
        raise ValueError(kind)
    if form == "byte":
        # The C0 controls and DEL are themselves in every one-byte charset,
        # also where a source leaves them out.
        have = {code for _, code in pairs}
        pairs = [(c, c) for c in list(range(1, 32)) + [127] if c not in have] + pairs
    return pairs


def round_trip_last(pairs):
    """Keeps file order, but puts the pair a code decodes to after the other
    pairs of that code, and the pair a character encodes to after the other
    pairs of that character: the first listed of each wins the round trip."""
    first_of_code = {}
    first_of_uni = {}
    for uni, code in pairs:
        first_of_code.setdefault(code, uni)
        first_of_uni.setdefault(uni, code)
    preferred = [(u, c) for u, c in pairs if first_of_code[c] == u and first_of_uni[u] == c]
    others = [(u, c) for u, c in pairs if not (first_of_code[c] == u and first_of_uni[u] == c)]
    return others + preferred


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    tables = []
    for name, (kind, source, form) in SOURCES.items():
        tables.append((name, pairs_for(kind, source, form)))
    header_size, entry_size = 16, ENTRY.size
    offset = header_size + entry_size * len(tables)
    directory = b""
    lists = b""
    for name, pairs in tables:
        encoded = name.encode("utf-16-le")
        assert len(name) <= 16, name
        directory += ENTRY.pack(encoded.ljust(32, b"\0"), offset + len(lists), len(pairs))
        lists += b"".join(struct.pack("<HH", u, c) for u, c in pairs)
    out = struct.pack("<IIII", header_size, entry_size, 0, len(tables)) + directory + lists
    tmp = sys.argv[1] + ".tmp"
    with open(tmp, "wb") as f:
        f.write(out)
    os.replace(tmp, sys.argv[1])


if __name__ == "__main__":
    main()
