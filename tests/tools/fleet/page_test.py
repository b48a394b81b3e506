#!/usr/bin/env python3
"""The page of dtfleet in a browser: the fleet, a device's values, chart, log, faults, self-tests and runs; that it
follows, stays small with many devices, fits a telephone, works by keyboard, and takes texts of devices for nothing
else. page_test.py BUILD [FOLDER FOR SCREENSHOTS]"""
import base64
import subprocess
import sys
import tempfile
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
from browser import Browser, expect

HOSTILE = "</script><script>document.title='x'</script><img src=x onerror=alert(1)>"
ADDRESS = "#device=" + "".join(f"%{byte:02X}" for byte in HOSTILE.encode())


class Page(Browser):
    """The page over a store of so many devices."""
    def serve(self, devices):
        self.server = subprocess.Popen([f"{sys.argv[1]}/tests/dtfleet_page_server", str(devices)], text=True,
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.base = f"http://127.0.0.1:{int(self.server.stdout.readline())}/"
        self.resize(1280)
        self.call("Page.navigate", url=self.base)
        self.until(method="Page.loadEventFired")

    def stop(self):
        self.call("Page.navigate", url="about:blank")
        self.server.stdin.close()
        expect("the server's end", self.server.wait(20), 0)

    def wait(self, what, script, wanted=True):
        """Until the script's value is the one that is wanted."""
        end = time.monotonic() + 30
        while (found := self.do(script)) != wanted and time.monotonic() < end:
            time.sleep(0.05)
        assert found == wanted, f"{what}: {found} instead of {wanted}; trouble: {self.trouble}"

    def show(self, fragment, selector):
        self.do(f"location.hash = {fragment!r}")
        self.wait(fragment, f"$({selector!r}).length > 0")

    def look(self, name):
        self.do("document.fonts.ready")
        expect(f"{name} is too wide", self.do("$(':root')[0].scrollWidth - $(':root')[0].clientWidth"), 0)
        if len(sys.argv) > 2:
            picture = self.call("Page.captureScreenshot", format="png")["data"]
            Path(sys.argv[2], f"{name}.png").write_bytes(base64.b64decode(picture))


def check_fleet(page):
    page.wait("devices", "$('#cells a').length", 40)
    expect("count", page.texts("#counts"), ["40 devices"])
    expect("states", page.texts("#states button:not([hidden])"),
           ["✕ failing 1", "! late 1", "✓ ok 36", "‖ paused 1", "– not asked 1"])
    expect("hostile name", page.texts("#cells b")[0], HOSTILE)
    expect("signs", page.texts("#cells .sign")[:6], list("✓!✕‖–✓"))
    page.look("fleet")
    for filter_, names in (("q=PUMP1003", [f"pump{10030 + i}" for i in range(10)]), ("state=failing", ["pump10002"]),
                           ("group=roof", ["pump10004"]), ("q=nobody", [])):
        page.do(f"location.hash = {filter_!r}")
        page.wait(filter_, "$('#cells b').map((one) => one.textContent).sort()", names)
    expect("a word about nothing", page.do("$('#nothing')[0].hidden"), False)
    page.press("Escape")
    page.wait("cleared", "$('#cells a').length", 40)


def check_keys(page):
    page.press("/")
    expect("search", page.do("document.activeElement.id"), "search")
    page.press("1", "0", "0", "0")
    page.wait("found", "$('#counts')[0].textContent", "9 of 40 devices")
    page.do("$('#cells a[tabindex=\"0\"]')[0].focus()")
    page.press("ArrowRight", "ArrowRight", "ArrowLeft")
    expect("where the keys are", page.do("document.activeElement.dataset.name"), "pump10002")
    assert "malformed 4 times" in page.texts("#reading")[0], page.texts("#reading")
    expect("the focus is seen", page.do("getComputedStyle(document.activeElement).outlineStyle"), "solid")
    page.server.stdin.write("fail pump10002 fail pump10001\n"), page.server.stdin.flush()
    page.wait("follows", "$('#cells .failing[href]').length", 2)
    expect("and keeps the focus", page.do("document.activeElement.dataset.name"), "pump10002")
    page.do("document.activeElement.click()")
    page.wait("opened", "$('#name')[0].textContent", "pump10002")
    page.wait("why", f"$('#facts dd').some((one) => one.textContent.endsWith({HOSTILE!r}))")
    page.press("Escape")
    page.wait("back to what was filtered", "$('#cells a').length", 9)
    page.press("Escape")


def check_device(page):
    page.show(ADDRESS, ".value")
    page.wait("small charts", "$('.value path').length", 2 * 3)
    expect("values", page.texts(".what"), [f"-9223372036854775808 {HOSTILE}", "1420 1/min", HOSTILE, "00 ff (bytes)",
                                           "18446744073709551615 or -1", "gone"])
    page.look("values")
    page.show(ADDRESS + "&tab=log", "#panel td")
    expect("which log", page.texts("#panel option"), ["pump · boots", "pump · 0 · 6"])
    expect("newest lines", page.texts("#panel tbody tr")[:4],
           ["11/23 09:00:00" + HOSTILE, "11/23 09:00:00motor starts", "Lines are missing here.",
            "11/23 09:00:00motor starts"])
    expect("a page of them", page.do("$('#panel tbody tr').length"), 201)
    page.do("$('#panel .wide > button')[0].click()")
    page.wait("older ones", "$('#panel tbody tr').length", 251)
    page.show(ADDRESS + "&tab=faults", "#panel td")
    expect("faults", [row[19:] for row in page.texts("#panel tbody tr")],
           ["pumprun11/23 09:00:00" + HOSTILE, HOSTILE + "register775"])
    page.show(ADDRESS + "&tab=selftests", "#panel td")
    page.wait("self-tests", "$('#panel tbody tr').length", 2)
    page.show(ADDRESS + "&tab=runs", "#panel td")
    page.wait("runs", "$('#panel tbody tr').length", 200)
    assert page.texts("#panel tbody tr")[6].endswith(HOSTILE), "the reason of a failed run"
    expect("elements that a text has made", page.do("$('img, #device script, #fleet script').length"), 0)
    expect("title", page.do("document.title"), f"{HOSTILE} · Fleet")


def check_chart(page):
    page.show(ADDRESS + "&series=1.0", ".plot canvas")
    page.wait("reading", "$('.plot + output')[0].textContent",
              "8,280 values in 23 h, the last one 9007199254740993") # since the first one
    page.look("chart")
    painted = "$('canvas')[0].getContext('2d').getImageData(0, 0, $('canvas')[0].width, $('canvas')[0].height).data"
    expect("painted", page.do(f"{painted}.some((part) => part !== 0)"), True)
    box = page.do("$('.u-over')[0].getBoundingClientRect().toJSON()")
    for kind, share in (("mousePressed", 0.25), ("mouseMoved", 0.5), ("mouseReleased", 0.5)):
        page.call("Input.dispatchMouseEvent", type=kind, button="left", clickCount=1,
                  x=box["left"] + share * box["width"], y=box["top"] + box["height"] / 2)
    span = "(() => { const p = new URLSearchParams(location.hash.slice(1)); return (p.get('to') - p.get('from')) / 3600e6; })()"
    page.wait("zoomed", f"Math.round({span})", 6)
    page.do("$('.plot')[0].focus()")
    page.press("+")
    page.wait("nearer", f"Math.round({span})", 3)
    page.press("Escape")
    page.wait("and out of it", "$('.plot').length", 0)


def check_small_and_dark(page):
    page.resize(360)
    page.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark"}])
    expect("dark", page.do("getComputedStyle(document.body).backgroundColor"), "rgb(18, 22, 29)")
    for name, fragment, selector in (("values", "", ".value"), ("runs", "&tab=runs", "td"), ("log", "&tab=log", "td"),
                                     ("chart", "&series=1.0", ".plot canvas")):
        page.show(ADDRESS + fragment, selector)
        page.look(f"dark-{name}")
    page.show("#", "#cells a")
    page.look("dark-fleet")


def check_many(page):
    page.wait("all are here", "$('#counts')[0].textContent", "10,000 devices")
    assert page.do("$('*').length") < 8000, "elements for what is not in sight"
    page.look("many")
    page.do("$('#window')[0].scrollTop = 1e9")
    page.wait("the last one", "$('#cells b').some((one) => one.textContent === 'pump19999')")
    page.do("location.hash = 'order=state'")
    page.wait("the worst one", "$('#cells [aria-rowindex=\"1\"][aria-colindex=\"1\"] b').map((one) => one.textContent)",
              ["pump10002"])
    page.do("location.hash = 'q=1234'")
    page.wait("search", "$('#counts')[0].textContent", "11 of 10,000 devices")


with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
    page = Page(f"{folder}/profile")
    for devices, *checks in (40, check_fleet, check_keys, check_device, check_chart, check_small_and_dark), (10_000, check_many):
        page.serve(devices)
        for check in checks:
            check(page)
        page.stop()
    expect("trouble", page.trouble, [])
    page.call("Browser.close"), page.process.wait()
    print("the page shows, follows, fits and escapes what it should")
