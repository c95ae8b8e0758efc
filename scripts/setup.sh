#!/usr/bin/env bash
# Installs what is missing, builds the library and the vosys tool, and runs
# vosys on the bundled sample data.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DVOSYS_BUILD_TESTS=OFF
cmake --build build -j"$(nproc)"

echo
echo "== vosys format -f samples/messages.tsv"
build/bin/vosys format -f samples/messages.tsv
echo
echo "== vosys format '%5.2f and \$1' 3.14159 x"
build/bin/vosys format '%5.2f and $1' 3.14159 x
echo
echo "== vosys error -1015 4096"
build/bin/vosys error -1015 4096
echo
echo "== vosys error and text: a message with its values, in English and in French (English where"
echo "   French has no text), and texts by number and by name"
build/bin/vosys error -1102 samples/ortho.tif
build/bin/vosys --lang fra error -1102 samples/ortho.tif
build/bin/vosys --lang fra error -1110
build/bin/vosys text 9501
build/bin/vosys --lang fra text 9501
build/bin/vosys text text-encoding.KOI-8
echo
echo "== vosys chars 'Åﬁ가١'"
build/bin/vosys chars 'Åﬁ가١'
echo
echo "== vosys encodings"
build/bin/vosys encodings
echo
echo "== vosys convert: sample text to a legacy encoding and back, checked byte for byte"
for pair in "russian KOI-8" "greek ISO-8859-7" "japanese Shift-JIS" "chinese GB-2312" \
            "korean KSC-5601" "mixed ISO-2022"; do
  set -- $pair
  build/bin/vosys convert -f UTF8 -t "$2" "samples/$1.txt" > "build/$1.$2"
  build/bin/vosys convert -f "$2" -t UTF8 "build/$1.$2" | cmp - "samples/$1.txt"
  printf '%-9s %-11s %4d bytes, back to UTF-8 unchanged: ' "$1" "$2" "$(wc -c < "build/$1.$2")"
  build/bin/vosys convert -f "$2" -t UTF8 "build/$1.$2"
done
echo
echo "== vosys path: the texts of samples/paths.txt in PC, Mac and Unix syntax"
mapfile -t paths < samples/paths.txt
build/bin/vosys path "${paths[@]}"
echo
echo "== vosys grep: lines of the samples that match, the match marked"
build/bin/vosys grep -i 'ЕЩЁ|ψυχ[α-ω]+|[:digit:]+' samples/*.txt
echo
echo "== vosys bidi and shape: mixed-direction sample lines in visual order, Arabic shaped"
build/bin/vosys bidi -f samples/bidi.txt
build/bin/vosys shape 'بلا سلام'
echo
echo "== vosys ini: the bundled settings file, copied to a temporary folder, read and changed"
settings=$(mktemp -d)
cp samples/settings.ini "$settings/"
build/bin/vosys ini get "$settings/settings.ini" Mosaic Description
build/bin/vosys ini set "$settings/settings.ini" Display Gamma 2.20000
build/bin/vosys ini set "$settings/settings.ini" Survey Pilot 'Ana Pérez'
build/bin/vosys ini list "$settings/settings.ini"
rm -rf "$settings"
echo
echo "== vosys xml: the sample catalogue written out indented, then its identifiers"
build/bin/vosys xml samples/catalog.xml
build/bin/vosys xml --ids samples/catalog.xml
echo
echo "== vosys rsrc: the resources of a classic Mac resource fork, by type and by id"
build/bin/vosys rsrc samples/survey.rsrc TEXT
build/bin/vosys rsrc samples/survey.rsrc 'STR ' -16396
echo
echo "== vosys date: the dates of samples/dates.tsv read by their formats, in every form"
grep -v '^#' samples/dates.tsv | while IFS=$'\t' read -r format text; do
  if [ "$format" = - ]; then
    TZ=EST5EDT,M3.2.0,M11.1.0 build/bin/vosys date "$text"
  else
    TZ=EST5EDT,M3.2.0,M11.1.0 build/bin/vosys date --format "$format" "$text"
  fi
  echo
done
echo "== vosys color: the colours of samples/colors.txt in every packed form"
while read -r colour; do
  echo "-- $colour"
  build/bin/vosys color "$colour"
done < samples/colors.txt
