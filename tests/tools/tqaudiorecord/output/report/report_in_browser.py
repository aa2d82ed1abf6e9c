#!/usr/bin/env python3
"""Opens the page of a report in a real browser, plays it and says what does not hold.

  report_in_browser.py PAGE LANES [SCREENSHOT]

LANES names the lanes that the page has to show, the mix first, with commas between them. The browser
is driven through chromedriver; pages are opened from the disk. Ends with 0 when all held.
"""

import base64
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import urllib.request

PATIENCE = 60  # seconds, for a busy machine

# Looks 50 times a second how far each playing sound is from the first that is heard.
SAMPLER = """
window.tqSamples = [];
setInterval(() => {
    const all = [...document.querySelectorAll('audio')].filter((a) => !a.paused && a.readyState >= 3 && !a.ended);
    const heard = all.find((a) => !a.muted);
    if (heard) {
        const at = (a) => Number(a.dataset.at) + a.currentTime;
        window.tqSamples.push({time: at(heard), count: all.length,
                               apart: Math.max(...all.map((a) => Math.abs(at(a) - at(heard))))});
    }
}, 20);
"""


class Browser:
    def __init__(self, folder):
        log = open(os.path.join(folder, "driver.log"), "w+")
        home = dict(os.environ, HOME=folder, XDG_CACHE_HOME=folder, XDG_CONFIG_HOME=folder)
        self.driver = subprocess.Popen(["chromedriver", "--port=0"], stdout=log, stderr=log, env=home)
        self.address = None
        self.session = None
        until = time.monotonic() + PATIENCE
        while self.address is None:
            found = re.search(r"started successfully on port (\d+)", open(log.name).read())
            if found:
                self.address = "http://127.0.0.1:" + found.group(1)
            elif time.monotonic() > until or self.driver.poll() is not None:
                self.end()
                sys.exit("chromedriver did not start: " + open(log.name).read())
            else:
                time.sleep(0.05)
        arguments = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--window-size=1280,1700", "--user-data-dir=" + os.path.join(folder, "profile")]
        answer = self.ask("POST", "/session", {"capabilities": {"alwaysMatch": {
            "browserName": "chrome", "goog:chromeOptions": {"args": arguments}}}})
        self.session = "/session/" + answer["sessionId"]

    def ask(self, method, path, body=None):
        data = None if body is None else json.dumps(body).encode()
        request = urllib.request.Request(self.address + path, data, {"Content-Type": "application/json"},
                                         method=method)
        with urllib.request.urlopen(request, timeout=3 * PATIENCE) as answer:
            return json.load(answer)["value"]

    def end(self):
        if self.session:
            try:
                self.ask("DELETE", self.session)
            except OSError:
                pass
        self.driver.terminate()
        self.driver.wait()

    def open(self, page):
        self.ask("POST", self.session + "/url", {"url": "file://" + os.path.abspath(page)})

    def run(self, script):
        return self.ask("POST", self.session + "/execute/sync", {"script": script, "args": []})

    def click(self, selector):
        found = self.ask("POST", self.session + "/element", {"using": "css selector", "value": selector})
        self.ask("POST", self.session + "/element/" + next(iter(found.values())) + "/click", {})

    def press(self, key):
        actions = [{"type": kind, "value": key} for kind in ("keyDown", "keyUp")]
        self.ask("POST", self.session + "/actions",
                 {"actions": [{"type": "key", "id": "keys", "actions": actions}]})

    def shows(self, condition):
        until = time.monotonic() + PATIENCE
        while not self.run("return Boolean(" + condition + ");"):
            if time.monotonic() > until:
                return False
            time.sleep(0.05)
        return True

    def screenshot(self, path):
        with open(path, "wb") as file:
            file.write(base64.b64decode(self.ask("GET", self.session + "/screenshot")))


class Checks:
    def __init__(self, browser):
        self.browser = browser
        self.failures = []

    def holds(self, what, condition):
        if not self.browser.shows(condition):
            self.failures.append(what + "\n    " + condition)

    def equal(self, what, script, expected):
        got = self.browser.run("return " + script + ";")
        if got != expected:
            self.failures.append("%s: %r, not %r" % (what, got, expected))


def sound(lane):
    return "document.querySelectorAll('.lane')[%d].querySelector('audio')" % lane


def look(checks, lanes):
    checks.equal("lanes", "[...document.querySelectorAll('.lane h3')].map((e) => e.textContent)", lanes)
    checks.holds("every spectrogram is there",
                 "[...document.querySelectorAll('.levels img')].every((e) => e.naturalWidth === 1200)")
    checks.equal("waveforms with something in them",
                 "[...document.querySelectorAll('.wave .peak')].filter((e) => e.getTotalLength() > 100).length",
                 len(lanes))
    checks.holds("every sound is found and known",
                 "[...document.querySelectorAll('audio')].every((e) => e.readyState >= 1 && e.duration > 0.5)")
    checks.equal("notes of what cannot be played",
                 "[...document.querySelectorAll('.note')].map((e) => e.textContent).join('')", "")
    checks.equal("what is loaded from elsewhere",
                 "performance.getEntriesByType('resource').map((e) => e.name)"
                 ".filter((name) => !/^(file|data):/.test(name))", [])
    checks.equal("the mix alone is heard",
                 "[...document.querySelectorAll('audio')].map((e) => e.muted)", [False] + [True] * (len(lanes) - 1))


def play(checks, browser, lanes):
    browser.run(SAMPLER)
    browser.click("#play")
    checks.holds("the time goes on", sound(0) + ".currentTime > 1")
    checks.holds("the shown time follows", "document.getElementById('time').textContent >= '0:01'")
    checks.holds("several play in step, some time after the start",
                 "window.tqSamples.some((s) => s.count > 1 && s.time > 0.5 && s.apart < 0.05)")
    # A key plays and pauses; the arrow goes five seconds back, here to the begin.
    if browser.run("return " + sound(0) + ".paused;"):
        browser.click("#play")
        checks.holds("it plays again", "!" + sound(0) + ".paused")
    browser.run("document.activeElement.blur();")
    browser.press(" ")
    checks.holds("a key pauses all", "[...document.querySelectorAll('audio')].every((e) => e.paused)")
    browser.press("\ue011")  # Home
    checks.equal("a key goes to the begin", "document.getElementById('time').textContent.split(' ')[0]", "0:00.0")
    browser.press("\ue014")  # right
    checks.holds("a key goes on by five seconds", "Number(document.getElementById('seek').value) > 3")

    # Mute and solo, by mouse and by key.
    browser.click(".lane:nth-of-type(2) .solo")
    checks.equal("one alone is heard", "[...document.querySelectorAll('audio')].map((e) => e.muted)",
                 [index != 1 for index in range(len(lanes))])
    browser.press("1")
    checks.equal("solo by its number", sound(0) + ".muted", False)
    browser.press("1")
    browser.click(".lane:nth-of-type(2) .solo")
    browser.click(".lane:nth-of-type(3) .mute")
    checks.equal("what is not muted is heard", sound(2) + ".muted", False)
    browser.run("document.querySelectorAll('.lane')[2].focus();")
    browser.press("m")
    checks.equal("a key mutes what has the focus", sound(2) + ".muted", True)
    checks.equal("and says so", "document.querySelectorAll('.lane .mute')[2].getAttribute('aria-pressed')", "true")
    # Into the middle of a picture.
    browser.press("\ue011")
    browser.click(".lane .plots")
    checks.holds("a click into a picture goes there",
                 "Math.abs(document.getElementById('seek').value / document.getElementById('seek').max - 0.5) < 0.05")


def main():
    page, lanes = sys.argv[1], sys.argv[2].split(",")
    folder = tempfile.mkdtemp(prefix="tq-browser-")
    browser = Browser(folder)
    try:
        checks = Checks(browser)
        browser.open(page)
        look(checks, lanes)
        if len(sys.argv) > 3:
            browser.screenshot(sys.argv[3])
        play(checks, browser, lanes)
        # Without its files the page says so, and still shows all.
        lonely = os.path.join(folder, "lonely.html")
        shutil.copy(page, lonely)
        browser.open(lonely)
        checks.holds("missing files are named",
                     "[...document.querySelectorAll('.note')].every((e) => e.textContent.includes('not where it was'))")
    finally:
        browser.end()
        shutil.rmtree(folder, ignore_errors=True)
    for failure in checks.failures:
        print("does not hold: " + failure)
    return 1 if checks.failures else 0


if __name__ == "__main__":
    sys.exit(main())
