#!/usr/bin/env bash
# The commands of dtfleet, on a simulated fleet in a network of its own: fleet.sh DTFLEET
# shellcheck disable=SC2317 # until_true calls
set -u
if [ -z "${FLEET_ALONE:-}" ]; then
    for flags in -rn -n; do
        unshare $flags true 2>/dev/null && FLEET_ALONE=1 exec unshare $flags "$0" "$@"
    done
    echo "fleet.sh: no network of its own is allowed here"
    exit 77
fi
dtfleet=$1
here=$(dirname "$(readlink -f "$0")")
# shellcheck source-path=SCRIPTDIR source=../../tools/completion/dt
. "$here/../../tools/completion/dt"
work=$(mktemp -d)
failed=0
pids=()
trap 'kill "${pids[@]}" 2>/dev/null; wait; rm -rf "$work"' EXIT
cd "$work" || exit 1
ip link set lo up || exit 1
export DTFLEET_CONFIG=$work/fleet.toml

fails() {
    echo "fleet.sh: $*"
    failed=1
}

# What a command prints has a text.
shows() {
    local text=$1 said
    shift
    said=$("$dtfleet" "$@" 2>&1) || fails "$*: status $?"
    grep -q -e "$text" <<<"$said" || fails "$*: ${said:0:300} instead of $text"
}

# Ends with a status and one text on standard error.
refuses() {
    local status=$1 text=$2 said
    shift 2
    said=$(timeout 60 "$dtfleet" "$@" 2>&1 >/dev/null)
    [[ $? = "$status" && $said == "dtfleet: "*"$text"* ]] || fails "$*: $said instead of $text"
}

# Until a command succeeds; a machine that hangs ends it.
until_true() {
    local tenth
    for ((tenth = 0; tenth < 600; ++tenth)); do
        "$@" >/dev/null 2>&1 && return
        sleep 0.1
    done
    fails "never: $*"
}

sql() { sqlite3 -readonly "${2:-fleet.db}" "$1"; }
has_rows() { [ "$(sql "$1")" -gt "${2:-0}" ]; }

configure() {
    cat >fleet.toml <<END
interval = "1s"
include = ["devices.toml", "more.toml"]
limits = { silence = "2s" }
[web]
bind = "127.0.0.1:8098"
[[group]]
name = "hall 2"
metrics = true
[[series]]
collector = "pump"
key = 0
name = "speed"
$1
END
}

start_service() {
    "$dtfleet" run 2>>journal &
    pids+=($!)
    until_true test -S dtfleet.sock
}

# One mistake among 100,000 lines is told with its line, and nothing is written.
seq -f '%06.0f' 100000 | sed 's/.*/pump&,10.1&,,hall 2/; s/1\(..\)\(..\)\(..\),,/1\1.\2.\3,,/; s/\.0\([0-9]\)/.\1/g
    1s/^/name,address,port,groups\n/; 77777s/,,/,70000,/' >devices.csv
refuses 5 "devices.csv:77778: port: must be" import devices.csv --output devices.toml --config none.toml
[ ! -e devices.toml ] || fails "import writes a configuration with a mistake"
printf 'name,address,groups\n"a ""b""",127.1.9.9,hall 2\nfar,127.1.9.8,"hall 2; spare"\n' >devices.csv

"$dtfleet" simulate 20 --seconds 600 --inventory devices.toml >simulated &
pids+=($!)
until_true test -s devices.toml
touch more.toml
configure 'signed = true'
"$dtfleet" import devices.csv --output more.toml 2>said || fails "import: $(cat said)"
grep -q "2 devices; new groups: spare" said || fails "import said $(cat said)"
shows "22 devices in 2 groups" check
refuses 1 "there is no database" status
refuses 2 "made and migrated by dtfleet run" migrate
refuses 2 "from a file to a server" move fleet.db
refuses 1 "none.toml: No such file" status --config none.toml
echo 'database = "postgresql:///fleet?host=/nowhere"' >server.toml
server="the database: connection to server"
ldd "$dtfleet" | grep -q libpq || server="built without libpq"
refuses 1 "$server" migrate --config server.toml
start_service
until_true has_rows "select count(distinct device) from value_flat" 19

# Looking. What is shown is what SQL has.
until_true sh -c "'$dtfleet' status --format table | grep 'a \"b\".*unanswered'"
shows '"device":"sim000003","state":"ok"' status
shows '^device,address,port' devices --format csv
[ "$("$dtfleet" devices --group 'hall 2' --names | xargs -d '\n')" = 'a "b" far' ] || fails "--group"
shows '"status":"whole"' history sim000003 --limit 1
shows 'pump.*speed' compare speed --format table
shows '"device":"sim000003".*"value":' compare speed
refuses 2 "there is no device 'nobody'" history nobody
refuses 2 "no device has sent a key 'nothing'" compare nothing
# The rules for alerts are about metrics that there are.
python3 -c 'import urllib.request as u; print(u.urlopen("http://127.0.0.1:8098/metrics").read().decode())' >metrics
for name in $(grep -o 'dtfleet_[a-z_]*' "$here/../../docs/fleet/alerts.yml" | sort -u); do
    grep -q "^${name}[ {]" metrics || fails "no metric $name"
done

# Who is being asked anyway is not asked twice.
asks() { "$dtfleet" ask "$@" 2>&1 | grep '"outcome":"whole"'; }
until_true asks sim000003
until_true asks sim000003 --selftest
asks_in_vain() { "$dtfleet" ask far 2>&1 | grep "far: unanswered: no connection came"; }
until_true asks_in_vain

# Files are added beside the service, once.
python3 - <<'END'
import struct

open("fcm.log", "wb").write(b"\0\0" + b"\x0e\0\5\3pump" + struct.pack("<II", 7, 100))
sent = bytes.fromhex("10000000 00000000 01000000 a1020000 0c000000 02000000 02000000")
with open("visit.pcap", "wb") as capture:
    capture.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 101))
    for host in 1, 2:
        packet = struct.pack(">BBHIBBHBBBBIHHIIBBHI", 0x45, 0, 40 + len(sent), 0, 64, 6, 0, 127, 9, 0, host,
                             0x0A000001, 4000, 9098, 1, 0, 0x50, 0x11, 65535, 0) + sent
        capture.write(struct.pack("<IIII", 100, 0, len(packet), len(packet)) + packet)
END
shows "^1 new lines" import-faults sim000003 fcm.log
shows "^0 new lines" import-faults sim000003 fcm.log
refuses 5 "fleet.toml: byte " import-faults sim000003 fleet.toml
refuses 2 "there is no device 'nobody'" import-faults nobody fcm.log
for _ in 1 2; do
    shows "^1 whole runs, 0 broken; 1 left out.*: 127.9.0.2 (1)$" import-capture visit.pcap --map 127.9.0.1=sim000003
done
[ "$(sql 'select count(*) from collection where time = 100000000')" = 1 ] || fails "a capture is imported twice"
refuses 2 "'127.9=far' is not ADDRESS=DEVICE" import-capture visit.pcap --map 127.9=far
refuses 5 "fcm.log" import-capture fcm.log --map 127.9.0.1=far

# What completes the last word of a command line.
completes() {
    COMP_WORDS=("$dtfleet" "${@:2}")
    COMP_CWORD=$(($# - 1))
    _dt "$dtfleet" "${COMP_WORDS[-1]}" "${COMP_WORDS[-2]}"
    [ "${COMPREPLY[*]}" = "$1" ] || fails "completion of ${*:2}: ${COMPREPLY[*]}"
}
completes "history" hi
completes "sim000010 sim000011 sim000012 sim000013 sim000014 sim000015 sim000016 sim000017 sim000018 sim000019" ask sim00001
completes "sim000007" export --follow --device sim000007
completes "table" status --format ta

completes "sim000007" import-capture visit.pcap --map 127.1.0.1 = sim000007
completes "visit.pcap" import-capture --map 127.1.0.1 = sim000007 vis

# Reload: a mistake keeps what there was.
configure 'signd = true'
refuses 5 "fleet.toml:13: " reload
until_true asks sim000004
configure 'signed = true'
"$dtfleet" reload || fails "reload"

# Changes, by the service.
shows "2 devices" pause "hall 2" --until 1h
shows '"device":"far","state":"paused"' status
shows "2 devices" pause "hall 2" --until now
refuses 2 "'soon' is no time" pause far --until soon
refuses 5 "in the configuration" forget sim000005
sed -i 's/"sim000005"/"five"/; s/"sim000006"/"six"/' devices.toml
history=$(sql "select count(*) from value_flat where device = 'sim000005'")
"$dtfleet" rename sim000005 five || fails "rename"
"$dtfleet" reload || fails "reload"
has_rows "select count(*) from value_flat where device = 'five'" $((history - 1)) || fails "rename loses history"
until_true has_rows "select count(*) from value_flat where device = 'six'"
refuses 5 "six: there is a device of that name, with a history" rename five six
"$dtfleet" forget sim000006 || fails "forget"
refuses 2 "there is no device 'sim000006'" history sim000006
"$dtfleet" accept five || fails "accept"
"$dtfleet" check --accept-clock || fails "check --accept-clock"

# Exports have exactly what the database has, also while it grows; --follow ends when it is told to.
"$dtfleet" backup copy.db || fails "backup"
refuses 1 "copy.db" backup copy.db
"$dtfleet" export --follow --format csv --device sim000007 --output followed &
follower=$!
has_followed() { [ "$(cut -d, -f1 followed | sort -u | wc -l)" -gt 4 ]; }
until_true has_followed
kill -INT $follower
wait $follower || fails "export --follow: status $?"
kill "${pids[1]}"
wait "${pids[1]}" || fails "the service ends with $?"
[ "$(stat -c %a fleet.db)" = 640 ] || fails "the database's mode is $(stat -c %a fleet.db)"
"$dtfleet" export >export.jsonl
"$dtfleet" export --format csv --csv-raw >export.csv
"$dtfleet" export --format csv --device sim000007 >one.csv
"$dtfleet" export --format influx >export.influx
cmp <(head -n "$(wc -l <followed)" one.csv) followed || fails "what was followed is not what is stored"
python3 - <<'END' || fails "an export is not exact"
import csv, json, sqlite3

kinds = {"int": "number", "long": "number", "string": "bytes", "buffer": "bytes"}

def stored():
    names = "run, device, time, status, command, collector, section, key, ordinal, type, number, bytes"
    for row in sqlite3.connect("file:fleet.db?mode=ro", uri=True).execute(f"select {names} from value_flat"):
        run, device, time, status, command, collector, section, key, ordinal, kind, number, data = row
        run = run.hex() if isinstance(run, bytes) else run
        collector = collector.decode() if isinstance(collector, bytes) else collector
        value = number % 2**64 if number is not None else data
        yield run, device, time, status, command, collector, section, key, ordinal, kind, value

def value_of(kind, row):
    if kind == "gone":
        return None
    if kinds[kind] == "number":
        return int(row["value"])
    return bytes.fromhex(row["hex"]) if "hex" in row else row["text"].encode()

def lines():
    for row in map(json.loads, open("export.jsonl")):
        yield (*(row[name] for name in ("run", "device", "time", "status", "command", "collector", "section",
                                        "key", "ordinal", "type")), value_of(row["type"], row))

def cells():
    for row in csv.DictReader(open("export.csv", newline="")):
        row[{"decimal": "value", "hex": "hex", "text": "text"}.get(row["encoding"], "")] = row["value"]
        if row["encoding"] == "hex": row.pop("text", None)
        yield (row["run"], row["device"], int(row["time"]), row["status"], int(row["command"]), row["collector"],
               int(row["section"]), int(row["key"]), int(row["ordinal"]), row["type"], value_of(row["type"], row))

truth = sorted(stored(), key=repr)
assert len(truth) > 1000 and {row[9] for row in truth} >= {"int", "string"}
for name, found in ("JSON", lines()), ("CSV", cells()):
    found = sorted(found, key=repr)
    for ours, theirs in zip(truth, found):
        assert ours == theirs, (name, ours, theirs)
    assert len(found) == len(truth), (name, len(found), len(truth))
assert len(open("export.influx").readlines()) == sum(row[9] != "gone" for row in truth)
END

# The same without a service: it takes what was done when it comes back.
shows "^1 device$" pause five --until 1h
"$dtfleet" rename five "number five" || fails "rename without a service"
refuses 2 "is in the configuration" forget six
shows '"device":"number five","state":"paused"' status
shows "nothing is wrong" check
cp copy.db broken.db && sqlite3 broken.db "delete from value where id % 7 = 0"
sed -i '1i database = "broken.db"' fleet.toml
refuses 5 "broken.db: " check
refuses 4 "no dtfleet is running there" reload
kill "${pids[0]}"
wait "${pids[0]}" || fails "simulate: status $?"
grep -q ' runs served' simulated || fails "simulate says $(cat simulated)"
exit $failed
