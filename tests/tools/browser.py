"""Chromium without a window, for tests of pages."""
import json
import os
import subprocess
import sys

FLAGS = ("no-sandbox disable-gpu disable-quic no-first-run disable-background-networking disable-component-update "
         "disable-sync headless remote-debugging-pipe")


def expect(what, found, wanted):
    assert found == wanted, f"{what}: {found} instead of {wanted}"


class Browser:
    """Chromium, driven by its own protocol over two pipes."""
    def __init__(self, profile):
        orders, self.orders = os.pipe()
        self.events, events = os.pipe()
        self.process = subprocess.Popen(
            ["bash", "-c", f'exec chromium "$@" 3<&{orders} 4>&{events}', "-", f"--user-data-dir={profile}",
             *(f"--{flag}" for flag in FLAGS.split())], pass_fds=(orders, events), stderr=subprocess.DEVNULL)
        os.close(orders), os.close(events)
        self.received, self.count, self.session, self.trouble = b"", 0, {}, []
        target = self.call("Target.createTarget", url="about:blank")
        self.session = {"sessionId": self.call("Target.attachToTarget", flatten=True, **target)["sessionId"]}
        for domain in ("Page", "Runtime", "Log"):
            self.call(f"{domain}.enable")

    def until(self, **wanted):
        message = {}
        while not message.items() >= wanted.items():
            while b"\0" not in self.received:
                self.received += os.read(self.events, 1 << 16) or sys.exit("the browser has ended")
            message, self.received = self.received.split(b"\0", 1)
            message = json.loads(message)
            self.trouble += [message] * (message.get("method") in ("Runtime.exceptionThrown", "Log.entryAdded"))
        return message

    def call(self, method, **params):
        self.count += 1
        order = json.dumps({"id": self.count, "method": method, "params": params, **self.session})
        os.write(self.orders, order.encode() + b"\0")
        return self.until(id=self.count)["result"]

    def resize(self, width):
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=900, deviceScaleFactor=1, mobile=False)

    def do(self, script):
        """The script's value, once what it caused has been drawn; $ finds all elements of a selector."""
        return self.call("Runtime.evaluate", awaitPromise=True, returnByValue=True, expression="""(async () => {
            const $ = (selector) => [...document.querySelectorAll(selector)], done = %s; await new Promise((go) =>
            requestAnimationFrame(() => setTimeout(go))); return done ?? null; })()""" % script)["result"]["value"]

    def texts(self, selector):
        return self.do(f"$({selector!r}).map((one) => one.textContent)")

    def press(self, *keys):
        for key in keys:
            self.call("Input.dispatchKeyEvent", type="keyDown", key=key, text=key if len(key) == 1 else "")

    def point(self, lane, start, end):
        """Presses the button in a lane at a share of its width, lets it go at another."""
        box = self.do(f"$('canvas')[{lane}].getBoundingClientRect().toJSON()")
        for kind, share in (("mousePressed", start), ("mouseMoved", end), ("mouseReleased", end)):
            self.call("Input.dispatchMouseEvent", type=kind, button="left", clickCount=1,
                      x=box["left"] + share * box["width"], y=box["top"] + box["height"] / 2)
