"""Settings files read by the library and by Python's configparser, on the
texts where the two formats agree: "=" only, "#" comment lines, no
interpolation, no indented continuation lines, no duplicate sections or
keys, ASCII names. Generated files are read field by field through the
library's C interface and compared with configparser's view; then random
writes and deletions through the library change the file, and configparser
must read the result as a model of those changes says.

    python_configparser_test.py LIBRARY SCRATCH
"""

import configparser
import ctypes
import os
import random
import sys
import tempfile

INIOPEN_FullPath = 0x20
INITYPE_String = 11

NAME_CHARS = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_.-"
VALUE_WORDS = ["alpha", "x=y", "a#b", "[br]", "path/to/file", "1.5", "é€", "", "two words",
               "tab\there", "; semi", "=lead"]


def name(rng, used):
    while True:
        n = "".join(rng.choice(NAME_CHARS) for _ in range(rng.randint(1, 12)))
        if n[0] not in "[#;" and n.lower() not in used and n.lower() != "default":
            used.add(n.lower())
            return n


def value(rng):
    words = [rng.choice(VALUE_WORDS) for _ in range(rng.randint(0, 3))]
    return " ".join(w for w in words).strip()


def generate(rng):
    """A file text and its sections: [(section, {key: value})]."""
    lines, sections, used = [], [], set()
    for _ in range(rng.randint(1, 6)):
        section = name(rng, used)
        keys, fields = set(), {}
        if rng.random() < 0.3:
            lines.append("# a comment [not] a=section")
        lines.append("[%s]" % section)
        for _ in range(rng.randint(1, 8)):
            key = name(rng, keys)
            val = value(rng)
            fields[key] = val
            sep = rng.choice(["=", " = ", "=  ", " ="])
            lines.append(key + sep + val + rng.choice(["", " ", "\t"]))
            if rng.random() < 0.2:
                lines.append("")
            if rng.random() < 0.1:
                lines.append("# comment between fields")
        sections.append((section, fields))
    end = rng.choice(["\n", "\r\n"]) if rng.random() < 0.9 else None
    text = (end or "\n").join(lines) + (end or "")
    return text, sections


def parse(path):
    cp = configparser.ConfigParser(delimiters=("=",), comment_prefixes=("#",),
                                   inline_comment_prefixes=None, interpolation=None,
                                   strict=True, empty_lines_in_values=False,
                                   default_section="\x00none")
    with open(path, encoding="utf-8", newline="") as f:
        cp.read_file(f)
    return {s: dict(cp[s]) for s in cp.sections()}


class Library:
    def __init__(self, path):
        self.lib = ctypes.CDLL(path)
        self.libc = ctypes.CDLL(None)
        self.libc.free.argtypes = [ctypes.c_void_p]
        L = self.lib
        L.IniOpen.argtypes = [ctypes.c_char_p, ctypes.POINTER(ctypes.c_void_p), ctypes.c_ulong]
        L.IniClose.argtypes = [ctypes.c_void_p]
        L.IniReadStringAlloc.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p,
                                         ctypes.POINTER(ctypes.c_void_p), ctypes.c_int]
        L.IniWriteString.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p,
                                     ctypes.c_int, ctypes.c_char_p]
        L.IniDeleteField.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p]
        L.IniDeleteGroup.argtypes = [ctypes.c_void_p, ctypes.c_char_p]

    def open(self, path):
        h = ctypes.c_void_p()
        rc = self.lib.IniOpen(path.encode(), ctypes.byref(h), INIOPEN_FullPath)
        assert rc == 0, "IniOpen %s: %d" % (path, rc)
        return h

    def read(self, h, section, key):
        out = ctypes.c_void_p()
        n = self.lib.IniReadStringAlloc(h, section.encode(), key.encode(), ctypes.byref(out),
                                        INITYPE_String)
        if n < 0:
            return None
        text = ctypes.string_at(out, n).decode("utf-8")
        self.libc.free(out)
        return text


def main():
    lib = Library(sys.argv[1])
    folder = tempfile.mkdtemp(dir=sys.argv[2])
    rng = random.Random(2024)
    files = edits = 0
    for round_ in range(300):
        text, sections = generate(rng)
        path = os.path.join(folder, "f%d.ini" % round_)
        with open(path, "w", encoding="utf-8", newline="") as f:
            f.write(text)
        oracle = parse(path)
        h = lib.open(path)
        for section, fields in sections:
            for key in fields:
                got = lib.read(h, section, key)
                # configparser keeps the section's case and lowers the key.
                want = oracle[section][key.lower()]
                assert got == want, (path, section, key, got, want)
                # Names compare ignoring case in both.
                assert lib.read(h, section.swapcase(), key.upper()) == want
            assert lib.read(h, section, "no such key") is None
        files += 1

        # Changes through the library, against a model.
        model = {s.lower(): (s, {k.lower(): v for k, v in f.items()}) for s, f in sections}
        used = {s.lower() for s, _ in sections}
        for _ in range(rng.randint(1, 15)):
            op = rng.random()
            if op < 0.5 and model:
                skey = rng.choice(sorted(model))
                section, fields = model[skey]
                key = rng.choice(sorted(fields)) if fields and rng.random() < 0.6 else \
                    name(rng, set(fields))
                val = value(rng)
                assert lib.lib.IniWriteString(h, section.encode(), key.encode(), INITYPE_String,
                                              val.encode()) == 0
                fields[key.lower()] = val
            elif op < 0.7:
                section = name(rng, used)
                key = name(rng, set())
                val = value(rng)
                assert lib.lib.IniWriteString(h, section.encode(), key.encode(), INITYPE_String,
                                              val.encode()) == 0
                model[section.lower()] = (section, {key.lower(): val})
            elif op < 0.9 and model:
                skey = rng.choice(sorted(model))
                section, fields = model[skey]
                if fields:
                    key = rng.choice(sorted(fields))
                    assert lib.lib.IniDeleteField(h, section.encode(), key.encode()) == 0
                    del fields[key]
                if not fields:
                    # A header left without fields may end the text, where
                    # the store takes it as absent (its own quirk): the
                    # name isn't used again.
                    del model[skey]
            elif model:
                skey = rng.choice(sorted(model))
                section, fields = model[skey]
                if fields:  # a group without fields is a header whose deletion is our own
                    assert lib.lib.IniDeleteGroup(h, section.encode()) == 0
                    del model[skey]
            edits += 1
        lib.lib.IniClose(h)
        after = parse(path)
        got = {s.lower(): {k: v for k, v in f.items()} for s, f in after.items()}
        want = {k: f for k, (_, f) in model.items() if f}
        got = {k: f for k, f in got.items() if f}
        assert got == want, (path, got, want)
        os.unlink(path)
    os.rmdir(folder)
    print("%d files read as configparser reads them; %d changes agree" % (files, edits))


if __name__ == "__main__":
    main()
