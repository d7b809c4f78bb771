#!/usr/bin/env python3
"""Line coverage per source directory from a gcc --coverage build.

Usage: coverage_summary.py <build-dir> <dir>...

Runs plain gcov (JSON output on standard output) over every .gcda file of the
build, merges the lines of each source file over all objects that compiled it
(a header counts once, a line is covered when any object ran it), and prints
the covered and executable lines of each named source directory.
"""
import collections
import json
import os
import subprocess
import sys


def gcov_reports(build_dir):
    by_dir = collections.defaultdict(list)
    for root, _, files in os.walk(build_dir):
        for f in files:
            if f.endswith(".gcda"):
                by_dir[root].append(os.path.join(root, f))
    for obj_dir, gcdas in sorted(by_dir.items()):
        out = subprocess.run(["gcov", "--json-format", "--stdout", "-o", obj_dir] + sorted(gcdas),
                             cwd=obj_dir, capture_output=True, text=True, check=True).stdout
        for text in out.splitlines():
            text = text.strip()
            if text:
                yield json.loads(text)


def main():
    build_dir = os.path.abspath(sys.argv[1])
    source_dir = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    wanted = sys.argv[2:]
    lines = collections.defaultdict(dict)  # source file -> line -> covered
    for report in gcov_reports(build_dir):
        cwd = report.get("current_working_directory", build_dir)
        for f in report["files"]:
            path = os.path.realpath(os.path.join(cwd, f["file"]))
            rel = os.path.relpath(path, source_dir)
            if rel.startswith(".."):
                continue
            seen = lines[rel]
            for line in f["lines"]:
                n = line["line_number"]
                seen[n] = seen.get(n, False) or line["count"] > 0
    total_cov = total_all = 0
    for d in wanted:
        cov = exe = 0
        for rel, seen in lines.items():
            if rel.startswith(d.rstrip("/") + "/"):
                exe += len(seen)
                cov += sum(1 for c in seen.values() if c)
        total_cov += cov
        total_all += exe
        pct = 100.0 * cov / exe if exe else 0.0
        print(f"{d + '/':<12} {cov:6d} of {exe:6d} lines  {pct:5.1f}%")
    pct = 100.0 * total_cov / total_all if total_all else 0.0
    print(f"{'total':<12} {total_cov:6d} of {total_all:6d} lines  {pct:5.1f}%")


if __name__ == "__main__":
    main()
