#!/usr/bin/python3
"""Checks the page harness (open_page.py) on small hand-made pages.

    open_page_test.py

Without a chromium on the PATH the test is skipped (exit status 77) on a
developer's machine, but fails where the environment variable CI is set:
CI installs the browser (tools/install_deps.sh --browser), so a missing one
there is a fault, not a reason to pass.
"""

import json
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
HARNESS = os.path.join(HERE, "open_page.py")
SKIP = 77
# The folder of the harness's temporary profiles.
TMP = [None]

failures = []
checks = 0


def check(name, ok, detail=""):
    global checks
    checks += 1
    if ok:
        print("ok   " + name)
    else:
        failures.append(name)
        print("FAIL " + name + (": " + detail if detail else ""))


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)


def page(body, head=""):
    return ('<!DOCTYPE html>\n<html><head><meta charset="utf-8"><title>test page</title>%s</head>'
            "<body>%s</body></html>\n" % (head, body))


def run(page_path, *options, timeout=60):
    """Runs the harness as CI does: a bare environment, standard input
    closed; its temporary profiles go below the test's folder. Returns
    (status, summary or None, stderr, seconds)."""
    env = {"PATH": os.environ.get("PATH", "/usr/bin:/bin"), "CI": "true", "LANG": "C.UTF-8", "TMPDIR": TMP[0]}
    started = time.monotonic()
    process = subprocess.Popen(
        [sys.executable, HARNESS, *options, page_path],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env,
        # Standard input closed, not merely empty.
        preexec_fn=lambda: os.close(0))
    out, err = process.communicate(timeout=timeout)
    seconds = time.monotonic() - started
    try:
        summary = json.loads(out)
    except ValueError:
        summary = None
    return process.returncode, summary, err.decode(errors="replace"), seconds


def png_size(path):
    with open(path, "rb") as f:
        head = f.read(24)
    if head[:8] != b"\x89PNG\r\n\x1a\n":
        return None
    return struct.unpack(">II", head[16:24])


def main():
    if not shutil.which("chromium"):
        if os.environ.get("CI"):
            print("FAIL chromium is not on the PATH; CI installs it with tools/install_deps.sh --browser")
            return 1
        print("SKIP chromium is not on the PATH (tools/install_deps.sh --browser installs it); "
              "with CI set this test fails instead")
        return SKIP

    work = tempfile.mkdtemp(prefix="open page test.")
    TMP[0] = os.path.join(work, "tmp")
    os.mkdir(TMP[0])
    try:
        # A folder name with a blank, as CI's clone has.
        site = os.path.join(work, "a site")

        # A clean page whose script adds rows to a table once the DOM is
        # there; the rows are in the dump, the picture is taken.
        write(os.path.join(site, "clean", "index.html"),
              page('<table id="rows"></table>', '<script src="assets/rows.js"></script>'))
        write(os.path.join(site, "clean", "assets", "rows.js"),
              'document.addEventListener("DOMContentLoaded", () => {\n'
              '  const table = document.getElementById("rows");\n'
              '  for (let i = 0; i < 3; ++i) {\n'
              '    const row = table.insertRow();\n'
              '    row.setAttribute("data-row", "row " + i);\n'
              '    row.insertCell().textContent = "cell " + i;\n'
              "  }\n"
              "});\n")
        dom = os.path.join(work, "dom.html")
        shot = os.path.join(work, "shot.png")
        status, summary, err, _ = run(os.path.join(site, "clean", "index.html"), "--dom", dom, "--screenshot", shot)
        check("clean page: status 0", status == 0, err)
        check("clean page: no fault", summary is not None and summary["faults"] == [], repr(summary))
        check("clean page: nothing on stderr", err == "", err)
        check("clean page: a load time", summary is not None and isinstance(summary["load_ms"], float)
              and summary["load_ms"] > 0)
        check("clean page: both files requested, by their file URLs",
              summary is not None and [u.rsplit("/", 2)[-2:] for u in summary["requests"]]
              == [["clean", "index.html"], ["assets", "rows.js"]], repr(summary and summary["requests"]))
        text = open(dom, encoding="utf-8").read() if os.path.exists(dom) else ""
        check("clean page: the rows the script added are in the DOM",
              all('data-row="row %d"' % i in text for i in range(3)) and "<td>cell 2</td>" in text, text)
        check("clean page: a picture of the viewport, 1400 x 900", png_size(shot) == (1400, 900), repr(png_size(shot)))

        # The whole page, taller than the viewport.
        write(os.path.join(site, "tall", "index.html"), page('<div style="height:2500px">tall</div>'))
        status, _, err, _ = run(os.path.join(site, "tall", "index.html"), "--screenshot", shot, "--full-page",
                                "--width", "800")
        size = png_size(shot)
        check("tall page: status 0", status == 0, err)
        check("tall page: the picture holds the whole page", size is not None and size[0] == 800 and size[1] >= 2500,
              repr(size))

        # Anything on the console fails.
        for name, script in (("log", 'console.log("hello", 42);'),
                             ("warning", 'console.warn("careful");'),
                             ("exception", 'null.property;')):
            write(os.path.join(site, name, "index.html"), page("", "<script>%s</script>" % script))
            status, summary, err, _ = run(os.path.join(site, name, "index.html"))
            check("%s: status 1" % name, status == 1, err)
            check("%s: the message is reported" % name, summary is not None and len(summary["console"]) == 1,
                  repr(summary))
            if name == "log":
                check("console.log's text", "hello 42" in err, err)

        # Requests that leave the folder fail, and are not answered.
        write(os.path.join(site, "remote", "index.html"), page('<img src="http://example.invalid/x.png">'))
        status, summary, err, _ = run(os.path.join(site, "remote", "index.html"))
        check("remote picture: status 1", status == 1, err)
        check("remote picture: the request is named", summary is not None
              and summary["outside"] == ["http://example.invalid/x.png"], repr(summary))
        write(os.path.join(site, "secret.js"), 'document.title = "read";\n')
        write(os.path.join(site, "outside", "index.html"), page("", '<script src="../secret.js"></script>'))
        dom_outside = os.path.join(work, "outside.html")
        status, summary, err, _ = run(os.path.join(site, "outside", "index.html"), "--dom", dom_outside)
        check("file outside the folder: status 1", status == 1, err)
        check("file outside the folder: named", summary is not None and len(summary["outside"]) == 1
              and summary["outside"][0].endswith("/secret.js"), repr(summary))
        check("file outside the folder: never read",
              os.path.exists(dom_outside) and "<title>test page</title>" in open(dom_outside).read())

        # Links: every one must lead to a file in the folder.
        write(os.path.join(site, "links", "pictures", "day one.png"), "not really a picture")
        write(os.path.join(site, "links", "index.html"),
              page('<a href="pictures/day%20one.png#top">day one</a> <a href="#here" id="here">here</a>'
                   '<svg width="10" height="10"><image href="pictures/day%20one.png" width="1" height="1"/></svg>'))
        status, summary, err, _ = run(os.path.join(site, "links", "index.html"), "--links")
        check("links that resolve: status 0", status == 0, err)
        check("links that resolve: all counted", summary is not None and summary.get("links") == 3, repr(summary))
        write(os.path.join(site, "broken", "index.html"),
              page('<a href="pictures/missing.png">missing</a> <a href="../links/index.html">elsewhere</a>'))
        status, summary, err, _ = run(os.path.join(site, "broken", "index.html"), "--links")
        check("broken links: status 1", status == 1, err)
        check("broken links: both named", err.count("link to no file in the page's folder") == 2
              and "missing.png" in err and "links/index.html" in err, err)

        # A page that never ends loading: the timeout ends it, and the
        # browser with it.
        write(os.path.join(site, "endless", "index.html"), page("", "<script>for (;;) {}</script>"))
        status, summary, err, seconds = run(os.path.join(site, "endless", "index.html"), "--timeout", "4")
        check("endless page: status 1", status == 1, err)
        check("endless page: timeout reported", "within 4 s" in err or "timeout" in err, err)
        check("endless page: ends soon after the timeout", seconds < 20, "%.1f s" % seconds)

        # A missing page is a usage fault.
        status, summary, err, _ = run(os.path.join(site, "nothing.html"))
        check("missing page: status 2 and one line", status == 2 and err.count("\n") == 1, err)

        # No browser outlives a run: none is left whose command line names a
        # profile below this test's folder.
        time.sleep(0.5)
        left = []
        for pid in os.listdir("/proc"):
            if not pid.isdigit():
                continue
            try:
                with open("/proc/%s/cmdline" % pid, "rb") as f:
                    args = f.read()
            except OSError:
                continue
            if TMP[0].encode() in args:
                left.append(pid)
        check("no browser left running", left == [], repr(left))
        check("every temporary profile removed", os.listdir(TMP[0]) == [], repr(os.listdir(TMP[0])))
    finally:
        shutil.rmtree(work, ignore_errors=True)

    print("%d checks, %d failed" % (checks, len(failures)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
