#!/usr/bin/env python3
"""The page that dtctl fcm --html makes, in a browser: what it shows, how it filters and leads to its lines, that it
stays small whatever the file holds, and that it takes texts of a device for nothing else. page_test.py BUILD"""
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
from browser import Browser, expect

NAME = "<script>fault<!--.log"
HOSTILE = '</script><script>document.title="x"</script><img src=x onerror=alert(1)>'


def line(log, fault, stamp, text):
    entries = f"{log} {fault} {stamp}".encode(), f"{log} {fault} {text}".encode()
    return b"".join(struct.pack("<H", len(entry)) + entry for entry in entries)


def value(kind, fault, layout, *numbers, data=b""):
    entry = bytes([len(fault) + 1, kind]) + fault.encode() + struct.pack("<" + layout, *numbers) + data
    return struct.pack("<H", len(entry)) + entry


# Three faults, lines on both sides of a year's end, courses of values, a cut last entry.
LOG = line("log", "pump", "12/31 23:50:00 ", "two İ motors found") + b"".join(
    line("run", "pump", f"01/01 00:{i:02}:00 ", f"motor {i % 3} stops") for i in range(9)) + \
    line("run", "<b>valve", "12/31 23:58:00 ", HOSTILE) + b"".join(
    line("run", "many", f"01/02 01:{i // 60:02}:{i % 60:02} ", "again") for i in range(1200)) + \
    line("run", "many", "01/02 03:00:00 ", "a\ttab\n\u202e\\") + b"\0\0" + b"".join(
    value(3, "pump", "II", 7, 100 + i) + value(1, "pump", "Iq", 8, -i) for i in range(5)) + \
    value(6, "<b>valve", "II", 1, 6, data=b"SN4711") + value(0, "<b>valve", "II", 2, 75) + b"\x0E\0\5"

# Lines, faults, marks, ids and values of an id by the thousand, over all years that there are.
MANY = b"".join(line("run", f"fault{i % 300}", f"{1 + i // 10:04}/06/01 12:00:00", "ab" * (999 if i < 30 else 9))
                for i in range(99_990)) + b"\0\0" + b"".join(
    value(0, "ids", "II", i, i) + value(0, "x", "II", 1, i) for i in range(100_000))


def shows(browser, what, lines, values, *marks):
    expect(what, browser.texts("output#counts, mark"), [f"{lines} lines · {values} values", *marks])


def check_what_is_shown(browser):
    expect("title and totals", browser.texts("head title, header dd"), [f"Fault log {NAME}", "3", "1,212", "12"])
    expect("first rows", browser.texts("#window time")[:3], ["12/31 23:50:00", "12/31 23:58:00", "01/01 00:00:00"])
    expect("lanes", browser.texts(".lane:not([hidden])"), ["all", "pump", "<b>valve", "many"])
    blue = "getImageData(0, 28, one.width, 1).data.some((part, at) => at % 4 === 2 && part === 214)"
    expect("marks", browser.do(f"$('canvas').every((one) => one.getContext('2d').{blue})"), True)
    expect("values", browser.texts(".value .number, .number + small, .last"),
           ["104", "100 to 104", "", "18446744073709551612 (-4)", "-4 to 0", "", "75"])
    assert browser.texts("#damage")[0].startswith("The file is damaged: byte "), "no word of damage"
    browser.resize(360)
    browser.call("Emulation.setEmulatedMedia", features=[{"name": "prefers-color-scheme", "value": "dark"}])
    expect("dark", browser.do("getComputedStyle(document.body).backgroundColor"), "rgb(18, 22, 29)")
    browser.do("$('#window')[0].scrollTop = 1e9")
    expect("last row", browser.texts("#window p")[-1], "a\\ttab\\n\\xe2\\x80\\xae\\\\")
    ends = browser.do("$('#window, #window li:last-child').map((one) => one.getBoundingClientRect().bottom)")
    expect("its end", round(ends[0]), round(ends[1]))
    expect("too wide", browser.do("$(':root').filter((one) => one.scrollWidth > one.clientWidth).length"), 0)


def check_filters(browser):
    for fragment, *shown in (("q=MOTOR+1&from=-1e300&to=1e300", "3 of 1,212", "0 of 12", *["motor 1"] * 3),
                             ("fault=pump&show=run", "9 of 1,212", "0 of 12"),
                             ("fault=pump&fault=%3Cb%3Evalve&show=values&q=4711", "0 of 1,212", "1 of 12", "4711"),
                             ("show=constructor&fault=nobody&q=%0A", "0 of 1,212", "0 of 12")):
        browser.do(f"location.hash = '{fragment}'")
        shows(browser, fragment, *shown)
    expect("nothing", browser.do("$('#nothing')[0].hidden"), False)
    browser.do("location.hash = 'fault=%3Cb%3Evalve'")
    expect("hostile texts", browser.texts("#window b, #window p, img"), ["<b>valve", HOSTILE])
    browser.press("Escape", "/", "u", "n")
    shows(browser, "no word of the records is searched", "1 of 1,212", "5 of 12", "un")
    browser.press("Escape")
    shows(browser, "cleared", "1,212 of 1,212", "12 of 12")


def check_timeline(browser):
    for what, start, end, lines in ("clicked", 0.05, 0.05, "11"), ("dragged", 0, 0.97, "1,211"):
        browser.point(0, start, end)
        shows(browser, what, f"{lines} of 1,212", "12 of 12")
        browser.press("Escape")
    browser.point(3, 0.9828, 0.9828)
    expect("a mark's line", browser.texts("[aria-current] time"), ["01/02 03:00:00"])
    browser.press("ArrowLeft", "+", "+")
    expect("the line before", browser.texts("[aria-current] time"), ["01/02 01:19:59"])
    shows(browser, "nearer", "1,201 of 1,212", "12 of 12")
    browser.press("-", "-")
    expect("and back", browser.do("location.hash"), "")
    browser.press("Escape")


def check_size(browser):
    few = "[$('*').length < 900, document.body.scrollHeight < 5000, $('path')[0].getAttribute('d').length < 5000]"
    expect("few elements, a short page, a short course", browser.do(few), [True] * 3)
    assert 3 <= len(browser.texts("#axis time")) <= 8, "ticks"
    expect("first", browser.texts("#window time")[0], "0001/06/01 12:00:00")
    browser.do("$('#window')[0].scrollTop = 1e9")
    expect("last", browser.texts("#window time")[-1], "9999/06/01 12:00:00")
    browser.press("/", "b")
    assert 0 < browser.do("$('*').length * Math.sign($('mark').length)") < 4000, "many elements with marks, or none"
    shows(browser, "all", "99,990 of 99,990", "0 of 200,000", *browser.texts("mark"))


with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
    browser = Browser(f"{folder}/profile")
    for name, log, status, *checks in (
            (NAME, LOG, 5, check_filters, check_timeline, check_what_is_shown),
            ("large.log", MANY, 0, check_size)):
        browser.resize(1280)
        page, _ = Path(folder, "page.html"), Path(folder, name).write_bytes(log)
        command = [f"{sys.argv[1]}/tools/dtctl", "fcm", "--html", f"{folder}/{name}", "--output", page]
        expect("status", subprocess.run(command, stderr=subprocess.DEVNULL).returncode, status)
        text = page.read_text().replace("http-equiv", "").replace("http://www.w3.org/2000/svg", "")
        assert "default-src 'none'" in text and "http" not in text, "the page may reach out"
        browser.call("Page.navigate", url=f"file://{page}")
        browser.until(method="Page.loadEventFired")
        for check in checks:
            check(browser)
    expect("trouble", browser.trouble, [])
    browser.call("Browser.close"), browser.process.wait()
    print("the page shows, filters, leads and escapes what it should")
