#!/usr/bin/env python3
"""The page that dtctl fcm --html makes, in a browser: what it shows, how it filters, and that it takes
texts of a device for nothing else. page_test.py BUILD
"""
import struct
import subprocess
import sys
import tempfile
from html.parser import HTMLParser
from pathlib import Path

DTCTL = f"{sys.argv[1]}/tools/dtctl"
NAME = "<script>fault<!--.log"
HOSTILE = '</script><script>document.title="x"</script><img src=x onerror=alert(1)>'


def line(log, fault, stamp, text):
    texts = [f"{log} {fault} {part}".encode() for part in (stamp + " ", text)]
    return b"".join(struct.pack("<H", len(one)) + one for one in texts)


def value(kind, fault, layout, *numbers, data=b""):
    entry = bytes([len(fault) + 1, kind]) + fault.encode() + struct.pack("<" + layout, *numbers) + data
    return struct.pack("<H", len(entry)) + entry


def fault_log():
    """Three faults, lines on both sides of a year's end, courses of values, a cut last entry."""
    log = line("log", "pump", "12/31 23:50:00", "two motors found")
    log += b"".join(line("run", "pump", f"01/01 00:{i:02}:00", f"motor {i % 3} stops") for i in range(9))
    log += line("run", "<b>valve", "12/31 23:58:00", HOSTILE)
    log += b"".join(line("run", "many", f"01/02 01:{i // 60:02}:{i % 60:02}", "again") for i in range(600))
    log += b"\0\0"
    for i in range(5):
        log += value(3, "pump", "II", 7, 100 + i) + value(1, "pump", "Iq", 8, -i)
    log += value(6, "<b>valve", "II", 1, 6, data=b"SN4711") + value(0, "<b>valve", "II", 2, 75)
    return log + b"\x0E\0\5"


class Page(HTMLParser):
    """The elements of a page, each with its attributes and the text inside."""

    def __init__(self, dom):
        super().__init__()
        self.elements, self.open = [], []
        self.feed(dom)

    def handle_starttag(self, tag, attributes):
        self.elements.append({"tag": tag, "text": "", "inside": [one.get("id") for one in self.open],
                              **dict(attributes)})
        if tag not in ("meta", "input", "img"):
            self.open.append(self.elements[-1])

    def handle_endtag(self, tag):
        while self.open and self.open.pop()["tag"] != tag:
            pass

    def handle_data(self, data):
        for one in self.open:
            one["text"] += data

    def all(self, tag, inside=None, **wanted):
        return [one for one in self.elements if one["tag"] == tag and (not inside or inside in one["inside"])
                and all(one.get(name) == what for name, what in wanted.items())]

    def texts(self, *what, **wanted):
        return [one["text"] for one in self.all(*what, **wanted)]


def browse(path, fragment="", width=1280):
    with tempfile.TemporaryDirectory() as profile:
        done = subprocess.run(
            ["chromium", "--headless=new", "--no-sandbox", "--disable-gpu", f"--user-data-dir={profile}",
             f"--window-size={width},900", "--virtual-time-budget=2000", "--dump-dom",
             f"file://{path}#{fragment}"], capture_output=True, text=True, timeout=60, check=True)
    return Page(done.stdout)


def expect(what, found, wanted):
    assert found == wanted, f"{what}: {found} instead of {wanted}"


def check_everything(page):
    expect("title", page.texts("title")[0], f"Fault log {NAME}")
    expect("totals", page.texts("dd"), ["3", "611", "12"])
    expect("counts", page.texts("output"), ["12 of 12", "611 of 611"])
    expect("rows", len(page.all("li")), 500)
    expect("more", page.texts("button", "lines"), ["Show all 611 lines"])
    expect("first rows", page.texts("time", "lines")[:3],
           ["12/31 23:50:00", "12/31 23:58:00", "01/01 00:00:00"])
    expect("marks", [len(page.all("line", "timeline", **{"class": log})) for log in ("init", "run")], [1, 610])
    expect("charts", len(page.all("path", "values", **{"class": "last"})), 2)
    expect("numbers", page.texts("span", "values", **{"class": "number"}),
           ["104", "18446744073709551612 (-4)", "75"])
    assert page.texts("p", id="damage")[0].startswith("The file is damaged: byte "), "no word of damage"


def check_hostile(page):
    """A device's texts are there, and are nothing but texts."""
    assert HOSTILE in page.texts("p", "lines"), "the text is not shown"
    assert "<b>valve" in page.texts("b", "lines"), "the name is not shown"
    expect("images", page.all("img"), [])
    expect("scripts", len(page.all("script")), 2)


def check_filters(path):
    page = browse(path, "q=MOTOR+1")
    expect("searched", page.texts("output"), ["0 of 12", "3 of 611"])
    expect("found", page.texts("mark"), ["motor 1"] * 3)
    page = browse(path, "fault=pump&show=run")
    expect("a fault's run log", page.texts("output"), ["0 of 12", "9 of 611"])
    expect("pressed", [one["value"] for one in page.all("button", **{"aria-pressed": "true"})],
           ["run", "pump"])
    page = browse(path, "fault=pump&fault=%3Cb%3Evalve&show=values&q=4711")
    expect("values", page.texts("output"), ["1 of 12", "0 of 611"])
    page = browse(path, "q=nowhere")
    assert "hidden" not in page.all("p", id="nothing")[0], "silent about nothing"


def check_width(path, text):
    """Nothing sticks out to the right in a narrow window."""
    measured = path.with_name("measured.html")
    measured.write_text(text + "<script>document.title = document.documentElement.scrollWidth + ' ' +"
                        "document.documentElement.clientWidth</script>")
    inner, outer = browse(measured, width=360).texts("title")[0].split()
    expect("width", inner, outer)
    assert int(outer) <= 500, "the window is not narrow"


with tempfile.TemporaryDirectory() as folder:
    path = Path(folder) / "fault.html"
    path.with_name(NAME).write_bytes(fault_log())
    made = subprocess.run([DTCTL, "fcm", "--html", path.with_name(NAME), "--output", path],
                          capture_output=True)
    expect("status of a cut file", made.returncode, 5)
    text = path.read_text()
    assert "default-src 'none'" in text and "http" not in text.replace("http-equiv", "").replace(
        "http://www.w3.org/2000/svg", ""), "the page may reach out"
    page = browse(path)
    check_everything(page)
    check_hostile(browse(path, "fault=%3Cb%3Evalve"))
    check_filters(path)
    check_width(path, text)
    print("the page shows, filters and escapes what it should")
