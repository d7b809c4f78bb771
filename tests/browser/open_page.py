#!/usr/bin/python3
"""Opens one local HTML page in headless Chromium and checks how it loads.

    open_page.py [options] PAGE.html

Chromium is driven through its DevTools protocol on a pipe
(--remote-debugging-pipe): the commands go to the browser on its file
descriptor 3, the answers and events come back on its descriptor 4, each a
JSON object ended by a NUL byte. No port is opened and no network is used.

The page is opened from file://. Every console message (console.* calls,
uncaught exceptions, the browser's own log entries) and every request the
page makes is recorded; a request outside the page's folder (another folder,
http:, https:, ...) is refused and counts as a fault. After the load event
the DOM (document.documentElement.outerHTML) may be written to a file, every
link and picture checked to lead to a file in the page's folder (--links),
and a PNG screenshot taken.

Standard output gets one JSON object: the load time in milliseconds, the
console messages, the requests and the faults. The exit status is 0 when the
page loaded in time with an empty console and no request outside its folder,
1 when it did not, 2 when the browser could not be run. Chromium runs in a
temporary profile in its own process group, which is killed at the end in
every case, timeout included.
"""

import argparse
import base64
import json
import os
import queue
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse
import urllib.request

# Schemes that never leave the page: they name no file and no host.
LOCAL_SCHEMES = ("data:", "blob:", "about:")


def ensure_standard_fds():
    """With standard input closed (as CI runs tests), the first pipe would
    take descriptor 0 and be mistaken for it; /dev/null fills the hole."""
    for fd in (0, 1, 2):
        try:
            os.fstat(fd)
        except OSError:
            null = os.open(os.devnull, os.O_RDWR)
            if null != fd:
                os.dup2(null, fd)
                os.close(null)


def find_browser(explicit):
    if explicit:
        return explicit
    for name in ("chromium", "chromium-browser"):
        path = shutil.which(name)
        if path:
            return path
    return None


class Browser:
    """A headless Chromium on a DevTools pipe."""

    def __init__(self, program, profile, width, height):
        to_browser_r, self._to_browser = os.pipe()
        self._from_browser, from_browser_w = os.pipe()
        self._log_path = os.path.join(profile, "browser.log")
        args = [
            program,
            "--headless=new",
            "--remote-debugging-pipe",
            "--user-data-dir=" + os.path.join(profile, "data"),
            "--no-first-run",
            "--no-default-browser-check",
            "--disable-gpu",
            "--disable-extensions",
            "--disable-background-networking",
            "--disable-component-update",
            "--disable-default-apps",
            "--disable-sync",
            "--disable-breakpad",
            "--disable-crash-reporter",
            "--disable-dev-shm-usage",
            "--mute-audio",
            "--hide-scrollbars",
            # No network at all: every host name fails to resolve and no
            # proxy is looked for.
            "--host-resolver-rules=MAP * ~NOTFOUND",
            "--no-proxy-server",
            "--window-size=%d,%d" % (width, height),
            "about:blank",
        ]
        if os.geteuid() == 0:
            # The sandbox refuses to run as root.
            args.insert(1, "--no-sandbox")
        # CI runs without HOME: the browser gets one of its own.
        env = dict(os.environ)
        env["HOME"] = profile
        # Its shared memory files too, in a folder removed at the end.
        env["TMPDIR"] = profile
        env["XDG_CONFIG_HOME"] = os.path.join(profile, "config")
        env["XDG_CACHE_HOME"] = os.path.join(profile, "cache")
        env.pop("DISPLAY", None)
        env.pop("WAYLAND_DISPLAY", None)

        def pipes_as_3_and_4():
            # Copies first: a pipe end may already be descriptor 3 or 4,
            # where dup2 onto itself would keep its close-on-exec flag.
            reading, writing = os.dup(to_browser_r), os.dup(from_browser_w)
            os.dup2(reading, 3)
            os.dup2(writing, 4)
            os.close(reading)
            os.close(writing)

        self._log = open(self._log_path, "wb")
        self.process = subprocess.Popen(
            args,
            stdin=subprocess.DEVNULL,
            stdout=self._log,
            stderr=self._log,
            env=env,
            close_fds=False,
            preexec_fn=pipes_as_3_and_4,
            start_new_session=True,
        )
        os.close(to_browser_r)
        os.close(from_browser_w)
        self._next_id = 0
        self._answers = {}
        self.events = queue.Queue()
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        self._lock = threading.Condition()

    def _read(self):
        buffer = b""
        while True:
            try:
                chunk = os.read(self._from_browser, 1 << 16)
            except OSError:
                chunk = b""
            if not chunk:
                self.events.put(None)
                with self._lock:
                    self._lock.notify_all()
                return
            buffer += chunk
            while b"\0" in buffer:
                message, buffer = buffer.split(b"\0", 1)
                try:
                    decoded = json.loads(message)
                except ValueError:
                    continue
                if "id" in decoded:
                    with self._lock:
                        self._answers[decoded["id"]] = decoded
                        self._lock.notify_all()
                else:
                    self.events.put(decoded)

    def send(self, method, params=None, session=None):
        """Sends a command; returns its id."""
        self._next_id += 1
        message = {"id": self._next_id, "method": method, "params": params or {}}
        if session:
            message["sessionId"] = session
        data = json.dumps(message).encode() + b"\0"
        while data:
            written = os.write(self._to_browser, data)
            data = data[written:]
        return self._next_id

    def wait_answer(self, command_id, deadline):
        with self._lock:
            while command_id not in self._answers:
                left = deadline - time.monotonic()
                if left <= 0 or not self._reader.is_alive():
                    raise TimeoutError("no answer from the browser")
                self._lock.wait(min(left, 0.2))
            answer = self._answers.pop(command_id)
        if "error" in answer:
            raise RuntimeError("browser refused: %s" % answer["error"].get("message"))
        return answer.get("result", {})

    def call(self, method, params=None, session=None, deadline=None):
        return self.wait_answer(self.send(method, params, session), deadline)

    def log_tail(self):
        try:
            with open(self._log_path, "rb") as f:
                return f.read()[-2000:].decode(errors="replace")
        except OSError:
            return ""

    def kill(self):
        """Ends the browser and every process it started (its own group)."""
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except (ProcessLookupError, PermissionError):
            pass
        try:
            self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            pass
        # The group's other processes are reaped by init: wait until they
        # are gone, so that none outlives this program.
        give_up = time.monotonic() + 10
        while time.monotonic() < give_up:
            try:
                os.killpg(self.process.pid, 0)
            except (ProcessLookupError, PermissionError):
                break
            time.sleep(0.05)
        for fd in (self._to_browser, self._from_browser):
            try:
                os.close(fd)
            except OSError:
                pass
        self._log.close()


def text_of_console_call(params):
    parts = []
    for arg in params.get("args", []):
        if "value" in arg:
            parts.append(str(arg["value"]))
        else:
            parts.append(arg.get("description", arg.get("type", "")))
    return " ".join(parts)


def text_of_exception(params):
    details = params.get("exceptionDetails", {})
    exception = details.get("exception", {})
    return exception.get("description") or details.get("text", "exception")


class PageWatch:
    """What a page did while loading: its console and its requests."""

    def __init__(self, folder_url):
        self.folder_url = folder_url
        self.console = []
        self.requests = []
        self.outside = []
        self.loaded = False

    def inside(self, url):
        if url.startswith(LOCAL_SCHEMES):
            return True
        return url.startswith(self.folder_url)

    def note_request(self, url):
        # A refused request is seen twice: sent, and held back.
        if url not in self.requests:
            self.requests.append(url)
        if not self.inside(url) and url not in self.outside:
            self.outside.append(url)


def handle_event(browser, session, watch, event):
    method = event.get("method")
    params = event.get("params", {})
    if method == "Runtime.consoleAPICalled":
        watch.console.append({"source": "console." + params.get("type", ""), "text": text_of_console_call(params)})
    elif method == "Runtime.exceptionThrown":
        watch.console.append({"source": "exception", "text": text_of_exception(params)})
    elif method == "Log.entryAdded":
        entry = params.get("entry", {})
        text = entry.get("text", "")
        if entry.get("url"):
            text += " (" + entry["url"] + ")"
        watch.console.append({"source": "log." + entry.get("level", ""), "text": text})
    elif method == "Network.requestWillBeSent":
        watch.note_request(params.get("request", {}).get("url", ""))
    elif method == "Fetch.requestPaused":
        url = params.get("request", {}).get("url", "")
        if watch.inside(url):
            browser.send("Fetch.continueRequest", {"requestId": params["requestId"]}, session)
        else:
            watch.note_request(url)
            browser.send("Fetch.failRequest", {"requestId": params["requestId"], "errorReason": "BlockedByClient"},
                         session)
    elif method == "Page.loadEventFired":
        watch.loaded = True


def pump(browser, session, watch, until, deadline):
    """Handles events until `until()` holds; False on timeout or when the
    browser is gone."""
    while not until():
        left = deadline - time.monotonic()
        if left <= 0:
            return False
        try:
            event = browser.events.get(timeout=min(left, 0.2))
        except queue.Empty:
            continue
        if event is None:
            return False
        if event.get("sessionId") == session:
            handle_event(browser, session, watch, event)
    return True


def call_pumping(browser, session, watch, method, params, deadline):
    """A command on the page whose answer may wait for paused requests that
    only the event loop lets go."""
    command_id = browser.send(method, params, session)
    answer = {}

    def answered():
        try:
            answer["result"] = browser.wait_answer(command_id, time.monotonic())
            return True
        except TimeoutError:
            return False

    if not pump(browser, session, watch, answered, deadline):
        raise TimeoutError("%s did not end in time" % method)
    return answer["result"]


# Every link and picture of the page, as the browser resolves them.
LINKS_EXPRESSION = (
    "Array.from(document.querySelectorAll('a[href], img[src], image[href], link[href], script[src]'))"
    ".map(e => e.href && e.href.baseVal !== undefined ? new URL(e.href.baseVal, document.baseURI).href"
    " : (e.href || e.src))")


def check_links(browser, session, watch, report, deadline):
    """Every link and picture must lead to a file in the page's folder
    (fragments and queries aside); a link to another place of the page
    itself is fine."""
    found = call_pumping(browser, session, watch, "Runtime.evaluate",
                         {"expression": LINKS_EXPRESSION, "returnByValue": True}, deadline)
    links = found["result"].get("value") or []
    report["links"] = len(links)
    broken = []
    for url in links:
        bare = url.split("#", 1)[0].split("?", 1)[0]
        if not watch.inside(bare) or not bare.startswith("file:"):
            broken.append(url)
            continue
        path = urllib.request.url2pathname(urllib.parse.urlparse(bare).path)
        if not os.path.isfile(path):
            broken.append(url)
    for url in sorted(set(broken)):
        report["faults"].append("link to no file in the page's folder: " + url)


def open_page(args, browser, page_path, report):
    deadline = time.monotonic() + args.timeout
    page_url = urllib.parse.urljoin("file:", urllib.request.pathname2url(page_path))
    folder_url = urllib.parse.urljoin("file:", urllib.request.pathname2url(os.path.dirname(page_path) + "/"))
    watch = PageWatch(folder_url)
    report["url"] = page_url

    target = browser.call("Target.createTarget", {"url": "about:blank"}, deadline=deadline)
    session = browser.call("Target.attachToTarget", {"targetId": target["targetId"], "flatten": True},
                           deadline=deadline)["sessionId"]
    for domain in ("Page", "Runtime", "Log", "Network"):
        browser.call(domain + ".enable", session=session, deadline=deadline)
    # Every request stops until it is let go: those outside the folder never
    # are.
    browser.call("Fetch.enable", {"patterns": [{"urlPattern": "*"}]}, session=session, deadline=deadline)
    browser.call("Emulation.setDeviceMetricsOverride",
                 {"width": args.width, "height": args.height, "deviceScaleFactor": 1, "mobile": False},
                 session=session, deadline=deadline)

    started = time.monotonic()
    navigated = call_pumping(browser, session, watch, "Page.navigate", {"url": page_url}, deadline)
    if navigated.get("errorText"):
        report["faults"].append("the page did not open: " + navigated["errorText"])
    elif not pump(browser, session, watch, lambda: watch.loaded, deadline):
        report["faults"].append("no load event within %g s" % args.timeout)
    else:
        report["load_ms"] = round((time.monotonic() - started) * 1000.0, 1)
        # Scripts may still add to the page in tasks queued at load; one
        # frame and one task later they have run.
        call_pumping(browser, session, watch, "Runtime.evaluate",
                     {"expression": "new Promise(r => requestAnimationFrame(() => setTimeout(r, 0)))",
                      "awaitPromise": True}, deadline)
        if args.dom:
            dom = call_pumping(browser, session, watch, "Runtime.evaluate",
                               {"expression": "document.documentElement.outerHTML", "returnByValue": True},
                               deadline)
            with open(args.dom, "w", encoding="utf-8") as f:
                f.write(dom["result"]["value"])
        if args.links:
            check_links(browser, session, watch, report, deadline)
        if args.screenshot:
            shot = {"format": "png"}
            if args.full_page:
                metrics = call_pumping(browser, session, watch, "Page.getLayoutMetrics", {}, deadline)
                size = metrics.get("cssContentSize") or metrics["contentSize"]
                shot["captureBeyondViewport"] = True
                shot["clip"] = {"x": 0, "y": 0, "width": max(1, min(size["width"], 16384)),
                                "height": max(1, min(size["height"], 16384)), "scale": 1}
            picture = call_pumping(browser, session, watch, "Page.captureScreenshot", shot, deadline)
            with open(args.screenshot, "wb") as f:
                f.write(base64.b64decode(picture["data"]))
        # Messages that arrive with the last commands' answers.
        pump(browser, session, watch, lambda: False, min(deadline, time.monotonic() + 0.1))

    report["console"] = watch.console
    report["requests"] = watch.requests
    report["outside"] = watch.outside
    for message in watch.console:
        report["faults"].append("console (%s): %s" % (message["source"], message["text"]))
    for url in watch.outside:
        report["faults"].append("request outside the page's folder: " + url)


def main():
    ensure_standard_fds()
    parser = argparse.ArgumentParser(description="Opens a local page in headless Chromium and checks it.")
    parser.add_argument("page", help="the HTML file")
    parser.add_argument("--dom", help="write the DOM after loading to this file")
    parser.add_argument("--screenshot", help="write a PNG screenshot to this file")
    parser.add_argument("--full-page", action="store_true", help="the screenshot holds the whole page")
    parser.add_argument("--links", action="store_true",
                        help="every link and picture (a, img, SVG image, link, script) must lead to a file in "
                             "the page's folder")
    parser.add_argument("--width", type=int, default=1400, help="viewport width (default 1400)")
    parser.add_argument("--height", type=int, default=900, help="viewport height (default 900)")
    parser.add_argument("--timeout", type=float, default=30.0, help="seconds for the whole check (default 30)")
    parser.add_argument("--browser", help="the Chromium program (default: chromium on the PATH)")
    args = parser.parse_args()

    page_path = os.path.realpath(args.page)
    report = {"page": args.page, "load_ms": None, "faults": []}
    if not os.path.isfile(page_path):
        print("open_page: no such page: %s" % args.page, file=sys.stderr)
        return 2
    program = find_browser(args.browser)
    if not program:
        print("open_page: chromium is not on the PATH (install it with tools/install_deps.sh --browser)",
              file=sys.stderr)
        return 2

    profile = tempfile.mkdtemp(prefix="open-page.")
    browser = None
    status = 0
    try:
        browser = Browser(program, profile, args.width, args.height)
        try:
            open_page(args, browser, page_path, report)
        except TimeoutError as e:
            report["faults"].append("timeout after %g s: %s" % (args.timeout, e))
        except RuntimeError as e:
            report["faults"].append(str(e))
            report["browser_log"] = browser.log_tail()
        status = 1 if report["faults"] else 0
    except OSError as e:
        print("open_page: can't run %s: %s" % (program, e), file=sys.stderr)
        status = 2
    finally:
        if browser:
            browser.kill()
        shutil.rmtree(profile, ignore_errors=True)
    if status != 2:
        json.dump(report, sys.stdout, indent=1)
        sys.stdout.write("\n")
        for fault in report["faults"]:
            print("open_page: " + fault, file=sys.stderr)
    return status


if __name__ == "__main__":
    sys.exit(main())
