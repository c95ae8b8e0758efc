#!/usr/bin/env python3
"""Runs the benchmarks and prints throughput tables with ratios.

UTF converters: each of our functions on each kernel, in MB/s and as a
ratio to the SSSE3 kernel of the same run, beside ICU (u_strFromUTF8 /
u_strToUTF8); then the widest kernel against ICU and, on ASCII, against
memcpy of the same buffer. VOSTRING:
against std::u16string and icu::UnicodeString. Character database: lookups,
decomposition and composition against ICU's properties and normalizers, and
the time to load the table.

    bench/report.py [BENCH_DIR] [--repetitions N] [--stat best|median]

BENCH_DIR holds utf_bench, vostring_bench, ucdata_bench and encoding_bench (default:
build-rel/bench under the source tree). Each benchmark runs N times in one process; the table shows
the best (default) or the median throughput of the runs, which keeps a busy
machine from skewing the ratios.
"""

import argparse
import json
import os
import statistics
import subprocess
import sys
from collections import defaultdict

UTF_OURS = {
    "utf8_to_utf16": ["ConvertUTF8toUTF16", "MucConvertUTF8ToUnicode"],
    "utf16_to_utf8": ["ConvertUTF16toUTF8", "MucConvertUnicodeToUTF8"],
}
UTF_OTHERS = ["icu", "icu_malloc", "iconv", "memcpy"]
UTF_SIZES = ["1K", "64K", "4M"]
CORPORA = ["ascii", "latin", "cyrillic", "cjk", "emoji", "mixed"]
KERNELS = ["scalar", "sse2", "ssse3", "avx2", "avx512"]


def run_benchmark(binary, repetitions, extra):
    cmd = [binary, "--benchmark_format=json",
           "--benchmark_repetitions=%d" % repetitions] + extra
    out = subprocess.run(cmd, check=True, stdout=subprocess.PIPE,
                         stderr=subprocess.DEVNULL, text=True).stdout
    if not out.strip():  # nothing matched the filter
        return {}
    runs = defaultdict(list)
    for entry in json.loads(out)["benchmarks"]:
        if entry.get("run_type", "iteration") != "iteration" or entry.get("error_occurred"):
            continue
        runs[entry["run_name"]].append(entry["bytes_per_second"])
    return runs


def summarize(runs, stat):
    pick = max if stat == "best" else statistics.median
    return {name: pick(values) for name, values in runs.items()}


def gbps(value):
    return "%7.2f" % (value / 1e9) if value else "      -"


def ratio(a, b):
    return "%6.2fx" % (a / b) if a and b else "     -"


def print_table(header, rows):
    widths = [max(len(str(r[i])) for r in [header] + rows) for i in range(len(header))]

    def line(r):
        return "  ".join(str(c).rjust(w) for c, w in zip(r, widths))

    print(line(header))
    print("  ".join("-" * w for w in widths))
    for r in rows:
        print(line(r))
    print()


def mbps(value):
    return "%7.0f" % (value / 1e6) if value else "      -"


def utf_kernel_report(results):
    # Every kernel the processor has, and SSSE3 after one call of each wide
    # kernel (which must leave the registers clean), as ratios to SSSE3.
    for direction, ours in UTF_OURS.items():
        for function in ours:
            kernels = [k for k in KERNELS + ["ssse3_after_avx2", "ssse3_after_avx512"]
                       if any(name.startswith("%s/%s:%s/" % (direction, function, k))
                              for name in results)]
            if not kernels:
                continue
            other = "icu" if function == ours[0] else "icu_malloc"
            header = (["corpus", "size"] + kernels + [other] +
                      ["%s/ssse3" % k for k in kernels if k != "ssse3"] + ["%s/ssse3" % other])
            rows = []
            for corpus in CORPORA:
                for size in UTF_SIZES:
                    def get(impl):
                        return results.get("%s/%s/%s/%s" % (direction, impl, corpus, size))
                    base = get("%s:ssse3" % function)
                    values = [get("%s:%s" % (function, k)) for k in kernels]
                    row = [corpus, size] + [mbps(v) for v in values] + [mbps(get(other))]
                    row += [ratio(v, base) for k, v in zip(kernels, values) if k != "ssse3"]
                    row += [ratio(get(other), base)]
                    rows.append(row)
            print("%s, %s: MB/s of UTF-8 text by kernel, and ratios to SSSE3" % (direction, function))
            print_table(header, rows)


def utf_report(results):
    utf_kernel_report(results)
    # The widest kernel: the stream converter is compared with ICU into a
    # buffer made once, the heap function (a fresh result per call) with ICU
    # into a buffer the caller mallocs per call.
    widest = next((k for k in reversed(KERNELS)
                   if any(":%s/" % k in name for name in results)), None)
    for direction, functions in UTF_OURS.items():
        ours = ["%s:%s" % (f, widest) for f in functions]
        header = (["corpus", "size"] + ["stream", "heap"] + UTF_OTHERS +
                  ["stream/icu", "heap/icu_malloc", "stream/memcpy"])
        rows = []
        for corpus in CORPORA:
            for size in UTF_SIZES:
                def get(impl):
                    return results.get("%s/%s/%s/%s" % (direction, impl, corpus, size))
                row = [corpus, size] + [gbps(get(i)) for i in ours + UTF_OTHERS]
                row += [ratio(get(ours[0]), get("icu")), ratio(get(ours[1]), get("icu_malloc")),
                        ratio(get(ours[0]), get("memcpy")) if corpus == "ascii" else ""]
                rows.append(row)
        print("%s: throughput in GB/s of UTF-8 text, %s kernel (stream = %s, heap = %s)"
              % (direction, widest, functions[0], functions[1]))
        print_table(header, rows)


def vostring_report(results):
    cases = defaultdict(dict)
    for name, value in results.items():
        op, impl, length = name.split("/")
        cases[(op.replace("vostring_", ""), int(length))][impl] = value
    header = ["operation", "length", "vosys", "std", "icu", "vosys/std", "vosys/icu"]
    rows = []
    for (op, length), v in sorted(cases.items()):
        rows.append([op, length, gbps(v.get("vosys")), gbps(v.get("std")), gbps(v.get("icu")),
                     ratio(v.get("vosys"), v.get("std")), ratio(v.get("vosys"), v.get("icu"))])
    print("VOSTRING: throughput in GB/s of UTF-16 text")
    print_table(header, rows)


def ucdata_report(results):
    cases = defaultdict(dict)
    for name, value in results.items():
        op, impl, corpus = name.split("/")
        cases[(op.replace("ucdata_", ""), corpus)][impl] = value
    header = ["operation", "input", "vosys", "icu", "vosys/icu"]
    rows = [[op, corpus, gbps(v.get("vosys")), gbps(v.get("icu")),
             ratio(v.get("vosys"), v.get("icu"))] for (op, corpus), v in cases.items()]
    print("Character database: throughput in GB/s of UTF-16 text (loads: of the file)")
    print_table(header, rows)


ENCODINGS = ["ISO-8859-1", "CP1251", "MacRoman", "Shift-JIS", "EUC", "GB-2312", "Big5",
             "KSC-5601", "UTF8"]
ENCODING_SIZES = ["1K", "64K", "1M"]


def encoding_report(results):
    # A fresh result per call for all three; MB/s of the encoded text.
    for direction in ["decode", "encode"]:
        header = ["encoding", "size", "vosys", "iconv", "icu", "vosys/iconv", "vosys/icu"]
        rows = []
        for encoding in ENCODINGS:
            for size in ENCODING_SIZES:
                def get(impl):
                    return results.get("%s/%s/%s/%s" % (direction, impl, encoding, size))
                rows.append([encoding, size, gbps(get("vosys")), gbps(get("iconv")), gbps(get("icu")),
                             ratio(get("vosys"), get("iconv")), ratio(get("vosys"), get("icu"))])
        print("%s: throughput in GB/s of the encoded text" % direction)
        print_table(header, rows)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("bench_dir", nargs="?",
                        default=os.path.join(here, "..", "build-rel", "bench"))
    parser.add_argument("--repetitions", type=int, default=3)
    parser.add_argument("--stat", choices=["best", "median"], default="best")
    parser.add_argument("--min-time", default="0.2",
                        help="seconds per benchmark run (--benchmark_min_time)")
    parser.add_argument("--filter", default=None,
                        help="only the benchmarks matching this (--benchmark_filter)")
    args = parser.parse_args()
    extra = ["--benchmark_min_time=%s" % args.min_time]
    if args.filter:
        extra.append("--benchmark_filter=%s" % args.filter)

    found = False
    for name, report in [("utf_bench", utf_report), ("vostring_bench", vostring_report),
                         ("ucdata_bench", ucdata_report), ("encoding_bench", encoding_report)]:
        binary = os.path.join(args.bench_dir, name)
        if not os.access(binary, os.X_OK):
            print("%s: not built in %s" % (name, args.bench_dir), file=sys.stderr)
            continue
        found = True
        report(summarize(run_benchmark(binary, args.repetitions, extra), args.stat))
    return 0 if found else 1


if __name__ == "__main__":
    sys.exit(main())
