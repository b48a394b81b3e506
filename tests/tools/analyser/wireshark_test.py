#!/usr/bin/env python3
"""The Wireshark dissector and dtctl decode against real exchanges of the example device, captured on
the loopback of a network namespace, and against bytes that make no sense.

wireshark_test.py BUILD DISSECTOR, in a network namespace of its own
"""
import json
import random
import socket
import struct
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as xml
from pathlib import Path

BUILD, DISSECTOR = Path(sys.argv[1]), sys.argv[2]
DTCTL = str(BUILD / "tools/dtctl")
SETTINGS = Path(__file__).parents[3] / "examples/settings.ini"
TEMPORARY = tempfile.TemporaryDirectory()
WORK = Path(TEMPORARY.name)
running = []


def run(*command, status=0):
    done = subprocess.run(command, capture_output=True, text=True, timeout=60)
    assert status in (done.returncode, None), f"{command}: status {done.returncode}\n{done.stderr}"
    return done.stdout


def start(*command, **how):
    running.append(subprocess.Popen(command, **how))
    return running[-1]


def expect(what, found, wanted):
    assert found == wanted, f"{what}:\n{found}\ninstead of\n{wanted}"


def wait_for(what, ready):
    for _ in range(200):
        if ready():
            return
        time.sleep(0.05)
    raise AssertionError(f"{what} does not come")


# ---- the exchanges

def exchange(capture):
    """Lets the device be asked while its network is captured; returns what dtctl printed live."""
    # Messages of a kilobyte do not fit into one segment here. The device is watched at another address, too.
    for change in ("link set lo mtu 600 up", "link set lo gso_max_segs 1", "address add 192.0.2.1/24 dev lo",
                   "route add default dev lo src 192.0.2.1"):
        run("ip", *change.split())
    dumpcap = start("dumpcap", "-q", "-i", "lo", "-w", str(capture), stderr=subprocess.PIPE, text=True)
    heard = next((line for line in dumpcap.stderr if line.startswith("File:")), None)
    assert heard, "nothing can be captured here; dumpcap needs the right to"
    start(DTCTL, "config", str(SETTINGS), stdout=subprocess.DEVNULL)
    wait_for("the configuration server", lambda: ":2327 " in Path("/proc/net/udp").read_text())
    device = start(str(BUILD / "examples/device"), "127.0.0.1", "192.0.2.1", stdout=subprocess.DEVNULL)
    wait_for("the device", lambda: ":238B " in Path("/proc/net/udp").read_text())
    live = run(DTCTL, "collect", "--device", "127.0.0.1", "--sequence", "70", "--json")
    live += run(DTCTL, "selftest", "--device", "127.0.0.1", "--json")
    watched(device)
    socket.socket(type=socket.SOCK_DGRAM).sendto(b"done", ("127.0.0.1", 9))
    wait_for("the capture's end", lambda: run("tshark", "-r", str(capture), "-Y", "udp.dstport == 9",
                                              status=None))
    dumpcap.terminate()
    dumpcap.wait()
    return live


def watched(device):
    """dtctl collect --watch goes on until it is interrupted, whatever becomes of the device."""
    values = WORK / "watched.csv"
    values.touch()
    watch = start(DTCTL, "collect", "--device", "192.0.2.1", "--watch", "0.2", "--times", "--csv",
                  "--output", str(values), stderr=subprocess.PIPE, text=True)
    wait_for("a third run", lambda: values.read_text().count(",report,2,0,11,") >= 3)
    device.kill()
    for _ in range(2):  # the first failure may be a run that was under way
        next(line for line in watch.stderr if line.startswith("dtctl: 192.0.2.1 does not answer"))
    watch.terminate()
    expect("the watch's status", watch.wait(), 0)
    lines = values.read_text().splitlines()
    expect("headings", [line for line in lines if line.startswith("time,")], lines[:1])


# ---- what the dissector makes of them

def dissect(capture, *options):
    """The packets, each a list of the dissector's top entries."""
    tree = xml.fromstring(run("tshark", "-X", f"lua_script:{DISSECTOR}", "-r", str(capture), "-T", "pdml",
                              *options))
    return [(packet, packet.findall("./proto")) for packet in tree.findall("packet")]


def fields(node, name):
    return node.findall(f".//field[@name='{name}']")


def number(node, name):
    return int(fields(node, name)[0].get("show"))


def text(node, name):
    found = fields(node, name)
    return bytes.fromhex(found[0].get("value", "")).decode() if found else None


def value_of(frame, identity):
    """One frame as the object that dtctl prints for its value; nothing for a piece."""
    if fields(frame, "dt_collect.last")[0].get("show") not in ("1", "True"):
        return None
    if fields(frame, "dt_collect.tested"):
        return {"identity": identity, "collector": text(frame, "dt_collect.tested"), "type": "selftest"}
    names = {"1": "int", "2": "long", "3": "string", "4": "buffer"}
    kind = names[fields(frame, "dt_collect.kind")[0].get("show")]
    value = {"identity": identity, "collector": fields(frame, "dt_collect.collector")[0].get("show")}
    value |= {name: number(frame, f"dt_collect.{name}") for name in ("index", "section", "key")}
    value["type"] = kind
    if kind == "int":
        value["value"] = number(frame, "dt_collect.int")
    elif kind == "long":
        value["value"] = fields(frame, "dt_collect.long")[0].get("show")
    elif kind == "string":
        value["text"] = text(frame, "dt_collect.text")
    else:
        value["hex"] = fields(frame, "dt_collect.data")[0].get("value", "")
    return value


def dissected_values(packets):
    values, identity = [], None
    for _, protos in packets:
        for message in (proto for proto in protos if proto.get("name") == "dt_collect"):
            for opening in fields(message, "dt_collect.identity"):
                identity = opening.get("value")
            for frame in fields(message, "dt_collect.frame"):
                values.append(value_of(frame, identity))
    return [value for value in values if value]


def check_values(capture, live):
    packets = dissect(capture)
    wanted = [json.loads(line) for line in live.splitlines()]
    expect("the device's address", {value.pop("device") for value in wanted}, {"127.0.0.1"})
    found = dissected_values(packets)[:len(wanted)]
    for i, value in enumerate(wanted):
        expect(f"value {i}", found[i:i + 1], [value])
    texts = [value["text"] for value in wanted if "text" in value]
    again = dissected_values(dissect(capture, "-2", "-R", "dt_collect.text"))  # without the pieces before
    expect("texts again", [value["text"] for value in again if "text" in value][:len(texts)], texts)
    whole = [packet for packet, _ in packets]
    assert any(fields(packet, "dt_collect.piece") for packet in whole), "nothing came in pieces"
    assert any(fields(packet, "tcp.reassembled.length") for packet in whole), "nothing was cut"
    expect("malformed", [fields(packet, "dt_collect.malformed") for packet in whole if
                         fields(packet, "dt_collect.malformed")], [])


def check_others(capture):
    packets = [packet for packet, _ in dissect(capture)]
    commands = [packet for packet in packets if fields(packet, "dt_command.port")]
    opened = [packet for packet in packets if fields(packet, "dt_collect.identity")]
    for i, (command, sequence) in enumerate([(0, 70), (3, 0)]):
        expect("command", [number(commands[i], f"dt_command.{name}") for name in
                           ("length", "command", "sequence")], [16, command, sequence])
        expect("port", number(commands[i], "dt_command.port"), number(opened[i], "tcp.dstport"))
    expect("sequence", number(opened[0], "dt_collect.sequence"), 70)
    directory = next(packet for packet in packets if fields(packet, "dt_collect.entry"))
    expect("directory", [(number(entry, "dt_collect.entry.index"), text(entry, "dt_collect.entry.name"))
                         for entry in fields(directory, "dt_collect.entry")],
           [(0, "pump"), (1, "meter"), (2, "report"), (3, "logs")])
    asked = [packet for packet in packets if fields(packet, "dt_config.group")]
    expect("requests", [tuple(text(packet, f"dt_config.{name}") for name in ("group", "key", "default"))
                        for packet in asked],
           [("device", "name", "pump controller"), ("pump", "speed_limit", "3000"),
            ("pump", "pressure_limit", "2500")])
    replies = [packet for packet in packets if fields(packet, "dt_config.value")]
    expect("replies", [(text(packet, "dt_config.value"), number(packet, "dt_config.request"))
                       for packet in replies],
           [("pump station 7", number(asked[0], "num")), ("2900", number(asked[1], "num"))])


# ---- bytes that make no sense

def frame(protocol, header, payload, source=(9, 4000), target=(1, 47000)):
    size = 20 + len(header) + 4 + len(payload)
    ip = struct.pack(">BBHIBBHBBBBBBBB", 0x45, 0, size, 0, 64, protocol, 0, 10, 0, 0, source[0],
                     10, 0, 0, target[0])
    return ip + struct.pack(">HH", source[1], target[1]) + header + payload


def udp(payload, source, target):
    return frame(17, struct.pack(">HH", 8 + len(payload), 0), payload, (9, source), (1, target))


def tcp(payload, sequence, port):
    return frame(6, struct.pack(">IIBBHHH", sequence, 1, 0x50, 0x18, 65535, 0, 0), payload, (9, port))


def write_capture(path, frames):
    with path.open("wb") as out:
        out.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 101))
        for i, (one, kept) in enumerate(frames):
            out.write(struct.pack("<IIII", i, 0, min(kept, len(one)), len(one)) + one[:kept])


def message(kind, payload, length=None):
    return struct.pack("<III", 12 + len(payload) if length is None else length, kind, 1) + payload


def mutated(data):
    data = bytearray(data)
    for _ in range(random.choice((0, 1, 1, 2, 5))):
        at = random.randrange(len(data))
        data[at] = random.choice((0, 1, 4, 0x7F, 0x83, 0xFF, random.randrange(256)))
    return bytes(data[:random.choice((len(data), len(data), random.randrange(len(data) + 1)))])


def hostile_frames():
    piece = struct.pack("<BIIIH", 4, 0, 0, 7, 1009) + bytes(1009)
    opening = message(0, b"\1\2\0\0")
    stream = [message(1, struct.pack("<IH", 0, 4) + b"pump"), message(2, b""),
              message(2, struct.pack("<BIIII", 0x81, 0, 0, 7, 5) + struct.pack("<BIIIQ", 0x82, 9, 1, 2, 3)),
              message(2, piece), message(2, b"\x84" + piece[1:13] + b"\2\0ab"),
              message(2, struct.pack("<BIIIH", 0x83, 0xFFFF, 0, 0, 0))]
    for port in range(42000, 42500):
        data = opening + b"".join(mutated(part) for part in random.sample(stream, 4))
        sequence = 1
        while data:
            size = random.randrange(8, 1400)
            yield tcp(data[:size], sequence, port), random.choice((65535, 65535, 65535, 60))
            sequence, data = sequence + len(data[:size]), data[size:]
    for source, target, data in [(44000, 9099, struct.pack("<IIiI", 16, 1, 0, 5000)),
                                 (8998, 8999, b"=>config net mtu 1500"), (45000, 8998, b"1400\xFF")] * 100:
        yield udp(mutated(data), source, target), 65535


def check_hostile():
    capture = WORK / "hostile.pcap"
    random.seed(1)
    write_capture(capture, hostile_frames())
    for options in ([], ["-2"]):
        shown = run("tshark", "-X", f"lua_script:{DISSECTOR}", "-r", str(capture), "-V", *options)
        assert "Lua Error" not in shown, shown[shown.index("Lua Error"):][:300]
        assert "Malformed Packet" not in shown
    found = [fields(packet, f"dt_{name}.malformed") for packet, _ in dissect(capture)
             for name in ("command", "collect", "config")]
    assert sum(1 for one in found if one) > 300, "hardly anything was found malformed"
    run(DTCTL, "decode", str(capture), status=5)


# ---- captures that are not whole

def replayed(path, status, *options):
    """What dtctl decode prints of a capture behind the heading, and what it says."""
    done = subprocess.run([DTCTL, "decode", path, "--csv", "--times", *options], capture_output=True, text=True)
    expect("status", done.returncode, status)
    return done.stdout.splitlines()[1:], done.stderr


def check_replay():
    path = WORK / "made.pcap"
    collection = (message(0, b"\xA1\2\0\0") + message(1, struct.pack("<IH", 0, 4) + b"pump")
                  + message(2, struct.pack("<BIIII", 0x81, 0, 0, 7, 100)) + message(2, b""))
    first, second = (f"1970-01-01T00:00:0{i}Z,10.0.0.9,a102,pump,0,0,7,int,decimal,100" for i in (0, 1))
    write_capture(path, [(tcp(collection, 1, port), 65535) for port in (42000, 42001)])
    expect("two runs", replayed(path, 0), ([first, second], ""))
    path.write_bytes(path.read_bytes()[:-1])
    values, said = replayed(path, 5)
    expect("a file that stops inside the second run's only frame", values, [first])
    assert "truncated" in said, said
    cut = len(collection) - 12
    write_capture(path, [(tcp(collection[:cut], 1, 42000), 65535), (tcp(b"more", cut + 3, 42000), 65535)])
    expect("a run that lacks a piece", replayed(path, 5), ([first], (
        "dtctl: run 1 in the capture, from 10.0.0.9: message 4, byte 0: the stream ends without the empty "
        "data message that ends a run (the capture lacks what follows)\n")))
    piece = message(2, struct.pack("<BIIIH", 4, 0, 0, 7, 1009) + bytes(1009))
    pieces = [tcp(piece, 17 + i * len(piece), 42000) for i in range(1040)]  # more than 1 MiB
    write_capture(path, [(one, 65535) for one in [tcp(message(0, b"\xA1\2\0\0"), 1, 42000)] + pieces])
    assert "the last piece of the buffer" in replayed(path, 5)[1]
    assert "message 1041, byte 12: the buffer of index 0, section 0, key 7 is longer than 1048576 bytes" in \
        replayed(path, 5, "--max-value", "1")[1]
    write_capture(path, [])
    assert "no collection in this capture" in replayed(path, 5)[1]
    path.write_bytes(b"no capture")
    replayed(path, 5)


try:
    check_replay()
    capture = WORK / "exchange.pcapng"
    live = exchange(capture)
    replayed = run(DTCTL, "decode", str(capture), "--json")
    assert live and replayed.startswith(live), "dtctl decode shows something else than was live"
    check_values(capture, live)
    check_others(capture)
    check_hostile()
    print(f"{live.count(chr(10))} values, live, from the capture and dissected alike")
finally:
    for process in running:
        process.kill()
