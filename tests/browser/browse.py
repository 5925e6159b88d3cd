#!/usr/bin/env python3
"""Opens a directory of velserve in a headless Chromium and follows each of its links:
browse.py VELSERVE [SCREENSHOT]

Chromium is driven through chromedriver, which speaks the WebDriver protocol: JSON over HTTP."""
import atexit
import base64
import http.client
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

LONG = 60

# Names that need care in HTML, in a URL or in both, with what the files say.
FILES = {
    "plain.txt": "plain",
    "two words.txt": "two words",
    " leading and trailing .txt": "blanks",
    "quotes ' and \".txt": "quotes",
    "&<>#?%.txt": "special",
    "&amp;.txt": "not an ampersand",
    "%41.txt": "not an A",
    "a+b=c;d,e.txt": "delimiters",
    "javascript:alert(1).txt": "no script",
    "\\back\\slash.txt": "backslashes",
    "<b>bold<!--.txt": "no markup",
    "gr\u00fc\u00dfe \u20ac \u65e5\u672c\u8a9e \U0001f600.txt": "far away",
    "e\u0301 decomposed.txt": "two characters",
    "long " + "name " * 40 + ".txt": "long",
    "large.txt": "x" * 3_000_000,
}
DIRECTORY = "z directory & more"


def fail(text):
    sys.exit(f"browse: {text}")


def need(name):
    path = shutil.which(name, path=os.environ.get("PATH", "") + ":/usr/sbin:/usr/bin")
    return path or fail(f"there is no program {name}: ./dev test browser installs it")


def start(*arguments, **options):
    """Starts a child with its own process group, all of which ends with this program."""
    process = subprocess.Popen(arguments, start_new_session=True, text=True, **options)

    def end():
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()

    atexit.register(end)
    return process


def first_match(stream, pattern):
    """What the pattern finds in the first line that has it."""
    for line in stream:
        if match := re.search(pattern, line):
            return match[1]
    return fail(f"a program ended without saying {pattern}")


class Browser:
    """A session of WebDriver."""

    def __init__(self, profile):
        driver = start(
            need("chromedriver"),
            "--port=0",
            f"--log-path={profile}/chromedriver.log",
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
        )
        port = int(first_match(driver.stdout, r"started successfully on port (\d+)"))
        self.connection = http.client.HTTPConnection("127.0.0.1", port, timeout=LONG)
        self.path = ""
        arguments = ["--headless", "--disable-gpu", "--disable-quic", "--no-first-run"]
        arguments += ["--disable-background-networking", "--disable-component-update"]
        arguments += ["--disable-sync", "--window-size=1000,900", f"--user-data-dir={profile}/data"]
        if os.geteuid() == 0:
            arguments.append("--no-sandbox")
        options = {"binary": need("chromium"), "args": arguments}
        capabilities = {"alwaysMatch": {"goog:chromeOptions": options}}
        session = self.call("POST", "/session", {"capabilities": capabilities})
        self.path = "/session/" + session["sessionId"]

    def call(self, method, path, body=None):
        data = None if body is None else json.dumps(body)
        self.connection.request(method, self.path + path, data)
        value = json.loads(self.connection.getresponse().read())["value"]
        if isinstance(value, dict) and "error" in value:
            fail(f"{method} {path}: {value['error']}: {value['message']}")
        return value

    def go(self, url):
        self.call("POST", "/url", {"url": url})

    def url(self):
        return self.call("GET", "/url")

    def back(self):
        self.call("POST", "/back", {})

    def run(self, script, *arguments):
        return self.call("POST", "/execute/sync", {"script": script, "args": list(arguments)})

    def screenshot(self, filename):
        picture = base64.b64decode(self.call("GET", "/screenshot"))
        pathlib.Path(filename).write_bytes(picture)

    def click(self, number):
        """Clicks the link of this number as a user would, and waits for what it leads to."""
        elements = self.call("POST", "/elements", {"using": "css selector", "value": "td a"})
        (element,) = elements[number].values()
        before = self.url()
        self.call("POST", f"/element/{element}/click", {})
        end = time.monotonic() + LONG
        while self.url() == before or self.run("return document.readyState") != "complete":
            if time.monotonic() > end:
                fail("a link leads nowhere")
            time.sleep(0.01)

    def close(self):
        self.call("DELETE", "")


LINKS = """return [...document.querySelectorAll("td a")].map(
    a => [a.textContent, a.innerText, a.getBoundingClientRect().height])"""
BODY = "return document.body.textContent"
HEADING = "return document.querySelector('h1').textContent"
TAGS = """return [...new Set([...document.body.querySelectorAll("*")].map(e => e.localName))]"""


class Check:
    """Counts what is checked, and stops at the first that is not as expected."""

    def __init__(self):
        self.count = 0

    def equal(self, what, got, expected):
        self.count += 1
        if got != expected:
            fail(f"{what}:\n  got      {got!r:.300}\n  expected {expected!r:.300}")

    def true(self, what, value):
        self.equal(what, bool(value), True)


def check_listing(browser, check, title, names):
    """Checks that a page lists these names, each to be seen; returns its links."""
    check.equal("title", browser.call("GET", "/title"), title)
    check.equal("heading", browser.run(HEADING), title)
    links = browser.run(LINKS)
    check.equal("names", [link[0] for link in links], names)
    for text, seen, height in links:
        check.equal("what is seen of a name", seen, text)
        check.true(f"{text!r} has room", height > 0)
    check.equal("no scripts", browser.run("return document.scripts.length"), 0)
    # What a name says must not become a tag: the page has those of its own alone.
    check.equal("tags", sorted(browser.run(TAGS)), ["a", "h1", "table", "tbody", "td", "tr"])
    return links


def browse(browser, check, base, site, screenshot):
    browser.go(base)
    # Directories first, and then by bytes; a directory has a slash.
    names = [DIRECTORY + "/"] + sorted(FILES, key=os.fsencode)
    check_listing(browser, check, "/", names)
    browser.screenshot(screenshot)

    for number, name in enumerate(names):
        browser.click(number)
        if name.endswith("/"):
            check_listing(browser, check, "/" + name, ["../", "inner & file.txt"])
            browser.click(1)
            check.equal("content of the inner file", browser.run(BODY), "inner")
            browser.back()
            browser.click(0)
            check.equal("the way up", browser.url(), base)
        else:
            check.equal(f"content of {name!r}", browser.run(BODY), FILES[name])
            check.true("on this server", browser.url().startswith(base))
            browser.back()
        check.equal("back again", browser.url(), base)

    browser.go(base + "none")
    check.equal("missing file", browser.run(HEADING), "404 Not Found")


def main():
    if len(sys.argv) not in (2, 3):
        fail("usage: browse.py VELSERVE [SCREENSHOT]")
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    velserve = os.path.abspath(sys.argv[1])
    root = pathlib.Path(__file__).resolve().parents[2]
    screenshot = sys.argv[2] if len(sys.argv) == 3 else root / "build" / "browser.png"
    check = Check()
    with tempfile.TemporaryDirectory(prefix="velbrowse") as directory:
        site = pathlib.Path(directory) / "site"
        inner = site / DIRECTORY
        inner.mkdir(parents=True)
        (inner / "inner & file.txt").write_text("inner")
        for name, content in FILES.items():
            (site / name).write_text(content)
        log = open(f"{directory}/log", "w")
        server = start(velserve, "-p", "0", str(site), stdout=subprocess.PIPE, stderr=log)
        base = first_match(server.stdout, r"(http://[0-9.:]+/)")
        browser = Browser(directory)
        browse(browser, check, base, site, screenshot)
        browser.close()
        server.terminate()
        check.equal("exit code of the server", server.wait(LONG), 0)
        statuses = re.findall(r"\] GET (\S+) (\d+) ", pathlib.Path(log.name).read_text())
        bad = {target for target, status in statuses if status != "200"}
        check.equal("requests that failed", bad - {"/favicon.ico"}, {"/none"})
    print(f"browse: {check.count} checks passed; the page: {screenshot}")


if __name__ == "__main__":
    main()
