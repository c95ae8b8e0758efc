#!/usr/bin/env python3
"""Writes the class tables of Indic reordering as C++ source.

    mkindic.py UNICODE_DIR OUTPUT.cpp

UNICODE_DIR holds the Unicode Character Database (Debian package
unicode-data): IndicSyllabicCategory.txt, IndicPositionalCategory.txt and
UnicodeData.txt. One class word per code point of each script's block (see
vosystem/indic.h for the bits):

  syllabic category                         class
  Consonant, Consonant_Dead,                4 consonant, or 5 if its canonical
  Consonant_Placeholder,                      decomposition ends in a nukta;
  Consonant_With_Stacker                      with the consonant flag
  Nukta                                     6
  Virama                                    8
  Vowel_Independent                         3
  Vowel_Dependent                           7, with its place (below)
  Bindu, Visarga, Cantillation_Mark,        2 if written to the right of the
  Gemination_Mark, Syllable_Modifier,         base (positional Right), else 1;
  Pure_Killer, Consonant_Medial               marks only (Mn, Mc)
  anything else (digits, avagraha,          0
  the dot reph U+0D4E, spacing signs)

A pure killer (Malayalam's vertical-bar and circular viramas) never forms a
conjunct, so it ends the syllable as a mark, not as a virama would.

The place of a dependent vowel comes from its positional category: Left is
written before the base, Right after it, Top above, Bottom below; of a
compound place the first of Left, Right, Top, Bottom that it names counts.
A length mark (its name says LENGTH MARK) has only the length flag. A vowel
whose full canonical decomposition is a row of its script's split table
carries that row's number; every row must find its vowel. Malayalam's AU
(U+0D4C) is a left-and-right vowel without a row: it goes before the base.

Which consonants have reph, vattu, below-base and post-base forms is no
property of the Unicode data but of the scripts' writing: FORMS lists them.
"""

import os
import sys

IS_CONSONANT = 0x80000000
REPH = 0x40000000
VATTU = 0x20000000
BELOW_BASE = 0x10000000
POST_BASE = 0x08000000
MATRA_PRE = 0x04000000
MATRA_BELOW = 0x02000000
MATRA_ABOVE = 0x01000000
MATRA_POST = 0x00800000
LENGTH_MARK = 0x00400000
SPLIT_SHIFT = 16

# tag, first, last, scriptFlags, split rows.
SCRIPTS = [
    ("deva", 0x0900, 0x0970, 0x20007FFF, []),
    ("beng", 0x0980, 0x09FA, 0x40007FFF, [(0x09C7, 0x09BE), (0x09C7, 0x09D7)]),
    ("punj", 0x0A00, 0x0A74, 0x00007FFF, []),
    ("gujr", 0x0A80, 0x0AEF, 0x00007FFF, []),
    ("orya", 0x0B00, 0x0B70, 0x40007FFF,
     [(0x0B47, 0x0B56), (0x0B47, 0x0B3E), (0x0B47, 0x0B57)]),
    ("taml", 0x0B80, 0x0BF2, 0x10007FFF,
     [(0x0BC6, 0x0BBE), (0x0BC7, 0x0BBE), (0x0BC6, 0x0BD7)]),
    ("telu", 0x0C00, 0x0C6F, 0x80000003, [(0x0C46, 0x0C56)]),
    ("knda", 0x0C80, 0x0CEF, 0x80000003,
     [(0x0CBF, 0x0CD5), (0x0CC6, 0x0CD5), (0x0CC6, 0x0CD6), (0x0CC6, 0x0CC2),
      (0x0CC6, 0x0CC2, 0x0CD5)]),
    ("mlym", 0x0D00, 0x0D6F, 0x00007FFF, [(0x0D46, 0x0D3E), (0x0D47, 0x0D3E)]),
]

# The consonant forms, by script. "*" stands for every other consonant of
# the script.
#   Devanagari, Gujarati: ra has reph and the below-base vattu (rakar).
#   Bengali: ra as there; ba-phala below the base, ya-phala after it.
#   Gurmukhi: ra, ha and va subjoin below (no reph); yakash-ya after.
#   Oriya: ra as Devanagari; ya and yya after the base; every other
#     consonant subjoins below, so the base is the cluster's first.
#   Tamil: no conjunct forms; the pre-base vowel fix-up places its vowels.
#   Telugu, Kannada: every consonant has a below-base form (the base search
#     stops after three); Kannada's ra is reph, and after the base.
#   Malayalam: ya and va after the base, la below it.
FORMS = {
    "deva": {0x0930: REPH | VATTU | BELOW_BASE},
    "beng": {0x09B0: REPH | VATTU | BELOW_BASE, 0x09AC: BELOW_BASE, 0x09AF: POST_BASE},
    "punj": {0x0A30: VATTU | BELOW_BASE, 0x0A39: BELOW_BASE, 0x0A35: BELOW_BASE,
             0x0A2F: POST_BASE},
    "gujr": {0x0AB0: REPH | VATTU | BELOW_BASE},
    "orya": {0x0B30: REPH | VATTU | BELOW_BASE, 0x0B2F: POST_BASE, 0x0B5F: POST_BASE,
             "*": BELOW_BASE},
    "taml": {},
    "telu": {"*": BELOW_BASE},
    "knda": {0x0CB0: REPH | POST_BASE, "*": BELOW_BASE},
    "mlym": {0x0D2F: POST_BASE, 0x0D35: POST_BASE, 0x0D32: BELOW_BASE},
}

CONSONANTS = {"Consonant", "Consonant_Dead", "Consonant_Placeholder", "Consonant_With_Stacker"}
MARKS = {"Bindu", "Visarga", "Cantillation_Mark", "Gemination_Mark", "Syllable_Modifier",
         "Pure_Killer", "Consonant_Medial"}


def fail(why):
    sys.exit("mkindic: " + why)


def read_property(path):
    """code point -> value, for the BMP."""
    values = {}
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.split("#", 1)[0].strip()
            if not line:
                continue
            cps, value = (part.strip() for part in line.split(";"))
            first, _, last = cps.partition("..")
            for cp in range(int(first, 16), int(last or first, 16) + 1):
                if cp <= 0xFFFF:
                    values[cp] = value
    return values


def read_unicode_data(path):
    """code point -> (name, category, canonical decomposition or None)."""
    chars = {}
    with open(path, encoding="utf-8") as f:
        for line in f:
            fields = line.rstrip("\n").split(";")
            if len(fields) < 6:
                continue
            cp = int(fields[0], 16)
            decomposition = fields[5].split()
            canonical = ([int(u, 16) for u in decomposition]
                         if decomposition and not decomposition[0].startswith("<") else None)
            chars[cp] = (fields[1], fields[2], canonical)
    return chars


def full_decomposition(cp, chars):
    entry = chars.get(cp)
    if not entry or not entry[2]:
        return [cp]
    return [u for part in entry[2] for u in full_decomposition(part, chars)]


def vowel_place(positional):
    for word, flag in (("Left", MATRA_PRE), ("Right", MATRA_POST), ("Top", MATRA_ABOVE),
                       ("Bottom", MATRA_BELOW)):
        if word in positional.split("_"):
            return flag
    return 0


def class_word(cp, tag, syllabic, positional, chars, split_rows):
    name, category, canonical = chars.get(cp, ("", "Cn", None))
    isc = syllabic.get(cp, "Other")
    ipc = positional.get(cp, "NA")
    if isc in CONSONANTS:
        nukta = canonical and syllabic.get(canonical[-1]) == "Nukta"
        forms = FORMS[tag].get(cp, FORMS[tag].get("*", 0))
        return IS_CONSONANT | forms | (5 if nukta else 4)
    if isc == "Nukta":
        return 6
    if isc == "Virama":
        return 8
    if isc == "Vowel_Independent":
        return 3
    if isc == "Vowel_Dependent":
        if "LENGTH MARK" in name:
            return LENGTH_MARK | 7
        word = vowel_place(ipc) | 7
        pieces = tuple(full_decomposition(cp, chars))
        if pieces in split_rows:
            word |= (split_rows.index(pieces) + 1) << SPLIT_SHIFT
        return word
    if isc in MARKS and category in ("Mn", "Mc"):
        return 2 if ipc == "Right" else 1
    return 0


def main():
    if len(sys.argv) != 3:
        fail("usage: mkindic.py UNICODE_DIR OUTPUT.cpp")
    source, output = sys.argv[1:]
    syllabic = read_property(os.path.join(source, "IndicSyllabicCategory.txt"))
    positional = read_property(os.path.join(source, "IndicPositionalCategory.txt"))
    chars = read_unicode_data(os.path.join(source, "UnicodeData.txt"))
    out = ["// Generated by tools/mkindic.py from the Unicode Character Database; do not edit.",
           '#include "scripts/indic_tables.h"', "", "namespace {", ""]
    tables = []
    for tag, first, last, flags, rows in SCRIPTS:
        words = [class_word(cp, tag, syllabic, positional, chars, rows)
                 for cp in range(first, last + 1)]
        for number, row in enumerate(rows, 1):
            if not any(w >> SPLIT_SHIFT & 0xF == number for w in words):
                fail("%s: no vowel decomposes to split row %d" % (tag, number))
        out.append("constexpr CHARCLASS k%sClasses[] = {" % tag.capitalize())
        for i in range(0, len(words), 6):
            out.append("    " + ", ".join("0x%08X" % w for w in words[i:i + 6]) + ",")
        out.append("};")
        split = "nullptr"
        if rows:
            split = "k%sSplit" % tag.capitalize()
            padded = ", ".join("{%s}" % ", ".join("0x%04X" % u for u in (row + (0, 0))[:3])
                               for row in rows)
            out.append("constexpr unsigned short %s[][3] = {%s};" % (split, padded))
        out.append("")
        tables.append("const INDICCLASSTABLE %sClassTable = {0x%04X, 0x%04X, 0x%08X, k%sClasses, %s};"
                      % (tag, first, last, flags, tag.capitalize(), split))
    out += ["}  // namespace", ""] + tables
    with open(output + ".tmp", "w", encoding="utf-8") as f:
        f.write("\n".join(out) + "\n")
    os.replace(output + ".tmp", output)


if __name__ == "__main__":
    main()
