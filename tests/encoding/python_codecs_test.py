"""The one-byte charsets against Python's codecs, through the library's C
interface: every byte of each table decodes as the codec decodes it, every
character the codec writes as one byte encodes to that byte, and the
converters of the registry give the same for the whole repertoire in one
text. Python is a second oracle beside glibc's iconv, and the only one on
Debian for most of the Macintosh sets.

    python_codecs_test.py LIBRARY
"""

import ctypes
import sys

# (charset number, registry name, Python codec)
SETS = [
    (16, "ISO-8859-2", "iso8859_2"), (17, "ISO-8859-3", "iso8859_3"),
    (18, "ISO-8859-4", "iso8859_4"), (19, "ISO-8859-5", "iso8859_5"),
    (20, "ISO-8859-6", "iso8859_6"), (21, "ISO-8859-7", "iso8859_7"),
    (22, "ISO-8859-8", "iso8859_8"), (23, "ISO-8859-9", "iso8859_9"),
    (28, "CP1254", "cp1254"), (29, "CP1250", "cp1250"), (30, "CP1251", "cp1251"),
    (31, "CP1253", "cp1253"), (32, "CP1256", "cp1256"), (33, "CP1255", "cp1255"),
    (34, "DOSCP437", "cp437"), (35, "DOSCP850", "cp850"), (36, "DOSCP852", "cp852"),
    (37, "DOSCP857", "cp857"), (38, "DOSCP861", "cp861"), (39, "DOSCP863", "cp863"),
    (40, "DOSCP865", "cp865"), (41, "CP869", "cp869"), (42, "CP855", "cp855"),
    (43, None, "cp864"), (47, None, "tis_620"), (50, "WinANSI", "cp1252"),
    (52, "MacArabic", "mac_arabic"), (53, "MacCroatian", "mac_croatian"),
    (54, "MacCyrillic", "mac_cyrillic"), (56, "MacCentEurope", "mac_latin2"),
    (57, "MacGreek", "mac_greek"), (59, "MacIcelandic", "mac_iceland"),
    (61, "MacRomanian", "mac_romanian"), (62, "MacRoman", "mac_roman"),
    (65, "MacTurkish", "mac_turkish"), (66, "MacUkrainian", "mac_cyrillic"),
    (67, None, "cp1257"), (80, "KOI-8", "koi8_r"),
]

# Where our tables differ from the codec on purpose: (charset, byte).
#  - TIS-620 comes from glibc's table, which (like glibc's converter) leaves
#    0x80-0x9F without the C1 controls that Python gives them.
#  - MacUkrainian is glibc's table, which has the currency sign at 0xFF;
#    Python's nearest codec, MacCyrillic, has Apple's later euro sign there.
DIFFERENT = {(47, b) for b in range(0x80, 0xA0)} | {(66, 0xFF)}


def codec_char(byte, codec):
    try:
        text = bytes([byte]).decode(codec)
    except UnicodeDecodeError:
        return None
    return text if len(text) == 1 else None


def main():
    lib = ctypes.CDLL(sys.argv[1])
    libc = ctypes.CDLL(None)
    libc.free.argtypes = [ctypes.c_void_p]
    lib.MucInitConversion.argtypes = [ctypes.POINTER(ctypes.c_void_p), ctypes.c_char_p, ctypes.c_int]
    lib.MucStopConversion.argtypes = [ctypes.c_void_p]
    lib.MucConvertToUnicode.argtypes = [ctypes.c_void_p, ctypes.c_char_p,
                                        ctypes.POINTER(ctypes.c_void_p)]
    lib.MucConvertFromUnicode.argtypes = [ctypes.c_void_p, ctypes.c_void_p,
                                          ctypes.POINTER(ctypes.c_void_p)]

    def convert(name, decode, data):
        conv = ctypes.c_void_p()
        assert lib.MucInitConversion(ctypes.byref(conv), name.encode(), 1) == 0, name
        out = ctypes.c_void_p()
        if decode:
            n = lib.MucConvertToUnicode(conv, data, ctypes.byref(out))
            result = ctypes.string_at(out, 2 * n).decode("utf-16-le") if n >= 0 else None
        else:
            units = ctypes.create_string_buffer(data.encode("utf-16-le") + b"\0\0")
            n = lib.MucConvertFromUnicode(conv, units, ctypes.byref(out))
            result = ctypes.string_at(out, n) if n >= 0 else None
        libc.free(out)
        lib.MucStopConversion(conv)
        assert result is not None, "%s: %d" % (name, n)
        return result

    failures = []
    bytes_compared = chars_compared = 0
    for charset, name, codec in SETS:
        # The table, byte by byte and character by character.
        decoded = []
        for b in range(1, 256):
            want = codec_char(b, codec)
            got = lib.MucCharsetToUnicode(b, charset)
            if (charset, b) not in DIFFERENT and got != (ord(want) if want else 0):
                failures.append("%s byte %02X: %04X, codec %s" % (codec, b, got, want and "%04X" % ord(want)))
            decoded.append(want if want and (charset, b) not in DIFFERENT else None)
            bytes_compared += 1
        repertoire = []
        for u in range(0x20, 0xFFFE):
            if 0xD800 <= u < 0xE000:
                continue
            try:
                code = chr(u).encode(codec)
            except UnicodeEncodeError:
                continue
            if len(code) != 1 or (charset, code[0]) in DIFFERENT:
                continue
            got = lib.MucUnicodeToCharset(u, charset)
            if got != code[0]:
                failures.append("%s U+%04X: %02X, codec %02X" % (codec, u, got, code[0]))
            # The encoders write a space as itself, also where the table has
            # it elsewhere (MacArabic's right-to-left space at 0xA0).
            if u != 0x20:
                repertoire.append(chr(u))
            chars_compared += 1
        if name is None:
            continue
        # The registry's converter on all bytes at once, and on the whole
        # repertoire in one text.
        text = bytes(b for b in range(1, 256) if decoded[b - 1])
        want = "".join(c for c in decoded if c)
        if convert(name, True, text) != want:
            failures.append("%s: decoding all bytes differs" % name)
        whole = "".join(repertoire)
        got, want = convert(name, False, whole), whole.encode(codec)
        if got != want:
            at = next((i for i in range(min(len(got), len(want))) if got[i] != want[i]), None)
            failures.append("%s: encoding the repertoire differs at %s (U+%04X)"
                            % (name, at, ord(whole[at]) if at is not None else 0))

    for f in failures[:40]:
        print(f)
    print("%d bytes and %d characters compared in %d charsets, %d differences"
          % (bytes_compared, chars_compared, len(SETS), len(failures)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
