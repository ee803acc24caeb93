#!/usr/bin/python3
"""A panel in a web browser: colours, and a calibration by mouse. browser.py BENCH [PICTURE]"""
import base64
import json
import re
import subprocess
import sys
import tempfile
import time
import urllib.request

import websocket

BENCH = sys.argv[1]
PATIENCE = 60


def wait_for(what, condition):
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        found = condition()
        if found:
            return found
        time.sleep(0.1)
    sys.exit(f"browser.py: waited {PATIENCE} s for {what}")


def start(programs, *command, **options):
    programs.append(subprocess.Popen(command, **options))
    return programs[-1]


def file_text(path):
    try:
        with open(path, encoding="utf-8") as file:
            return file.read()
    except FileNotFoundError:
        return ""


class Page:
    def __init__(self, port):
        pages = json.load(urllib.request.urlopen(f"http://127.0.0.1:{port}/json"))
        page = next(page for page in pages if page["type"] == "page")
        self.socket = websocket.create_connection(page["webSocketDebuggerUrl"], timeout=PATIENCE,
                                                  suppress_origin=True)
        self.count = 0

    def ask(self, method, **params):
        self.count += 1
        self.socket.send(json.dumps({"id": self.count, "method": method, "params": params}))
        while True:
            answer = json.loads(self.socket.recv())
            if answer.get("id") == self.count:
                return answer.get("result", {})

    def evaluate(self, script):
        return self.ask("Runtime.evaluate", expression=script, returnByValue=True).get(
            "result", {}).get("value")

    def pixel(self, x, y):
        return self.evaluate("(() => { const c = document.querySelector('#panel canvas');"
                             "return c && [...c.getContext('2d')"
                             f".getImageData({x}, {y}, 1, 1).data]"
                             ".slice(0, 3).join(); })()")

    def click(self, x, y):
        box = json.loads(self.evaluate(
            "JSON.stringify(document.querySelector('#panel canvas').getBoundingClientRect())"))
        at = {"x": box["left"] + (x + 0.5) * box["width"] / 800,
              "y": box["top"] + (y + 0.5) * box["height"] / 480, "button": "left", "clickCount": 1}
        for kind in ("mousePressed", "mouseReleased"):
            self.ask("Input.dispatchMouseEvent", type=kind, **at)
            time.sleep(0.2)


def main(folder, programs):
    out = folder + "/out"
    with open(out, "w", encoding="utf-8") as file:
        start(programs, BENCH, "panel", "--browser", "--level", "t1", "--folder", folder + "/panel",
              stdout=file, stdin=subprocess.DEVNULL)
    url = wait_for("the address", lambda: re.search(r"http://\S+", file_text(out)))[0]
    subprocess.check_call([BENCH, "power", "on", "--panel", folder + "/panel"])
    start(programs, "chromium", "--headless=new", "--no-sandbox", "--remote-debugging-port=0",
          "--window-size=1000,700", "--user-data-dir=" + folder + "/chromium", url,
          stderr=subprocess.DEVNULL)
    page = Page(wait_for("chromium",
                         lambda: file_text(folder + "/chromium/DevToolsActivePort")).split()[0])
    send = [BENCH, "send", "--port", folder + "/panel/ttyO1", "--timeout", "60000"]
    for code, colour in ("9504", "255,0,0"), ("9506", "0,0,255"):
        subprocess.check_call(send + [code], stdout=subprocess.DEVNULL)
        wait_for(colour, lambda: page.pixel(400, 240) == colour)
    calibration = start(programs, *send, "9000", stdout=subprocess.PIPE, text=True)
    for margin, ink in (100, "0,0,0"), (50, "0,0,255"):
        for x, y in ((margin, margin), (800 - margin, margin), (800 - margin, 480 - margin),
                     (margin, 480 - margin), (400, 240)):
            wait_for(f"the target at {x}, {y}",
                     lambda: page.pixel(x, y) == ink and page.pixel(x + 6, y + 6) != ink)
            time.sleep(0.4)  # closer touches are taken for a bounce
            if margin == 50 and x == 400 and len(sys.argv) > 2:
                with open(sys.argv[2], "wb") as file:
                    file.write(base64.b64decode(page.ask("Page.captureScreenshot")["data"]))
            page.click(x, y)
    if ":00900070\\r\\n" not in calibration.communicate(timeout=PATIENCE)[0]:
        sys.exit("browser.py: the calibration did not pass")


with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as temporary:
    started = []
    try:
        main(temporary, started)
    finally:
        for program in reversed(started):
            program.terminate()
            program.wait()
