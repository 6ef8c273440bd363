"""What the program does on a real kernel. Each scenario prints a line."""

import os
import re
import sys
import time
from pathlib import Path

from cuts import read_file, run, sweep
from unit import Unit

TOOL = "../release/diagctl"
DISK_FILE, MEDIUM_FILE = "/lib/diag/csp_param.hex", "csp_param.rlg"
LOG = "/usr/local/lib/diag/diagserver.log"
DONE, ERROR, NO_ROOM = "Copy Success.", "Copy error.", "Free Disk space error."
FILLINGS = {"full": {"a": "new.hex", "b": "firmware.bin"},
            "with three free entries": {f"F{each}": "five" for each in range(507)}}
KILOBYTES = {12: 1440, 16: 16384, 32: 34816}  # of a stick

def make_disk():
    """The unit's disk with parameters, older ones and firmware, each in all forms."""
    run("bash", "-c", "rm -rf disk*; mkdir -p disk/{cwd,lib/diag}; touch disk/none.{hex,rlg}; "
        "printf 12345 >disk/five")
    for file, size in ("disk/new", 0x60000), ("disk/old", 0x60000), ("disk/firmware", 0x30000):
        Path("seed").write_bytes(os.urandom(size // 4).ljust(size, b"\xff"))
        run("../../sim/mkfirmware", "--from", "seed", "--binary", file + ".bin", file + ".hex")
        run(TOOL, "convert", file + ".hex", file + ".rlg")
    run("mke2fs", "-q", "-t", "ext4", "-b", "4096", "-d", "disk", "disk.img", "32M")

def make_stick(fat, files, start=0, image="stick.img"):
    """A stick with the files {name there: name here}, in a partition if `start` isn't 0."""
    run("rm", "-f", image)
    run("mkfs.vfat", "-C", "-F", f"{fat}", "-s", "1", "--offset", f"{start}", image,
        f"{KILOBYTES[fat]}")
    if start:
        run("sh", "-c", f"echo {start},,e | sfdisk -q {image}")
    for target, source in files.items():
        run("mcopy", "-i", f"{image}@@{start * 512}", f"disk/{source}", "::" + target)
    return image

def require(image, file, expected):
    """The file in the image has the data of this one."""
    found = "found" + Path(file).suffix
    Path(found).write_bytes(read_file(image, file))
    run(TOOL, "diff", found, f"disk/{expected}.hex")

def require_firmware(unit):
    """The piano's flash begins 0x40000 bytes before the firmware and the parameters."""
    unit.clean()
    flash, firmware = read_file("disk.img", "/flash.bin"), Path("disk/firmware.bin").read_bytes()
    assert flash[0x40000:].startswith(firmware), "the flash isn't the firmware"

def expect(unit, words, command, expected):
    unit.serve(words)
    assert expected in (text := unit.ask(command)), f"{command}: {text[-80:]}"

def update(unit, words):
    unit.start_piano()
    unit.sh(f"diag_server {words and '--strict --verify'} -f /usr/local/firmware.hex >/dev/null")
    require_firmware(unit)

def read_back(unit, words):
    unit.start_piano()
    unit.sh(f"rm -f csp_param.hex; diag_server {words} >/dev/null")
    unit.clean()
    require("disk.img", "/cwd/csp_param.hex", "new")

def find(unit, words, device, place, form):
    name, firmware = f"csp_prog.{form}", f"firmware.{form}"
    run("genisoimage", "-R", "-graft-points", "-o", "cd.img", f"{name}=disk/{firmware}")
    image = "cd.img" if device == "sr0" else make_stick(32, {name: firmware})
    unit.insert(image, "protected", device, place)
    expect(unit, words, "find-update", "KVT 2.00")
    if (place, form) == ("usb", "hex"):
        expect(unit, words, "update", "CSP Update Success.")
        require_firmware(unit)

def file_names(unit):
    """A name is UTF-8 where no option is given, and Shift JIS with utf8=0."""
    name = "\u30c6\u30b9\u30c8.hex"
    stick = make_stick(16, {name: "firmware.hex"})
    for option, encoding in ("utf8=1", "utf-8"), ("utf8=0", "shift_jis"):
        octal = "".join(f"\\{byte:03o}" for byte in name.encode(encoding))
        unit.insert(stick, options="codepage=932,iocharset=sjis," + option)
        assert "KVT 2.00" in unit.sh(f"diag_server -v -f \"/mnt/usb/$(printf '{octal}')\"")
        unit.clean()

def copy(unit, words, command, fat, special, default_answer, strict_answer):
    expected = strict_answer if words else default_answer
    source, target = ("new", "old") if command == "backup" else ("old", "new")
    start, device = (2048, "sda1") if special == "with a partition table" else (0, "sda")
    stick = make_stick(fat, {MEDIUM_FILE: target + ".rlg", **FILLINGS.get(special, {})}, start)
    unit.serve(words)
    unit.sh(f"cp /usr/local/{source}.hex /usr/local{DISK_FILE}")
    unit.insert(stick, special, device, options="ro" if special == "mounted twice" else "rw")
    if special == "mounted twice":
        unit.sh("mount -o ro /dev/sda /mnt/other")
    if special in ("pulled before", "inserted again as sdb"):
        unit.pull()
    if special == "inserted again as sdb":
        unit.insert(stick, device="sdb")
    copying = unit.start_asking(command)
    if special == "pulled meanwhile":
        unit.until("awk '{exit ($7 < 100)}' /sys/block/sda/stat")  # sectors written
        unit.pull()
    text = copying.communicate()[0]
    unit.clean()
    assert (expected or "") in text, f"expected {expected}, received {text}"
    if words and expected == ERROR:
        assert ERROR not in unit.sh(f"tail -n 1 {LOG}"), "no reason in the log"
    if expected:
        Path("partition.img").write_bytes(Path(stick).read_bytes()[start * 512:])
        target = ("disk.img", DISK_FILE) if command == "restore" else ("partition.img", MEDIUM_FILE)
        require(*target, "new" if expected == DONE else "old")

def kernel(unit):
    """What the simulated unit's tests expect of its calls."""
    stick = make_stick(16, {"file": "five"})
    parts = Path("../../tests/unit/kernel.txt").read_text("utf-8").split("\n\n")
    for device, part in zip(("sda", "sdb"), parts):
        unit.pull()
        unit.insert(stick, device=device)
        unit.sh("umount /mnt/usb")
        calls = [line for line in part.splitlines() if line[0] != "#"]
        words = " ".join(f"'{call.split(' = ')[0]}'" for call in calls)
        found = unit.sh(f"probe {words}").splitlines()
        assert found == calls, set(found) - set(calls)

def limits(unit):
    """The capabilities, devices and limits of the packaged service."""
    service = Path("../../packaging/diag_server.service.in").read_text("utf-8")
    rules = {"/dev/PciDsp rw": "c $((0x$(stat -c %t /dev/PciDsp))):0 rw", "/dev/sda rw": "b 8:0 rw",
             "block-sd rw": "b 8:* rw"}
    allowed = [f"c 1:{minor} rw" for minor in (3, 5, 7, 8, 9)]
    allowed += [rules[each] for each in re.findall("^DeviceAllow=(.*)", service, re.M)]
    kept = re.search("CapabilityBoundingSet=CAP_(.*)", service)[1].lower().replace(" cap_", ",+")
    files = re.search("LimitNOFILE=(.*)", service)[1]
    unit.sh("mount -t cgroup -o devices none /cgroup; mkdir /cgroup/service; cd /cgroup/service; "
            "echo a >devices.deny" + "".join(f'; echo "{each}" >devices.allow' for each in allowed))
    unit.serve("--strict", f"echo 0 >/cgroup/service/cgroup.procs; umask 077; ulimit -n {files}; "
               f"exec /bin/setpriv --no-new-privs --bounding-set -all,+{kept}")
    copy(unit, "--strict", "backup", 16, "", DONE, DONE)
    copy(unit, "--strict", "restore", 16, "", DONE, DONE)
    assert unit.sh("grep -c 'dsp on' /sim/midi.log") == "1\n", "no power device"
    unit.serving = None

def cut(unit, over, command, fat):
    """Every power cut during a strict read-back, restore or backup. On the stick, the work file's
    entry is in an earlier sector of the directory than the target's: it is where P3 was."""
    image, file, form, on_disk, on_stick = "disk.img", DISK_FILE, ".hex", over, "new"
    if command == "backup":
        image, file, form, on_disk, on_stick = "stick.img", MEDIUM_FILE, ".rlg", "new", over
    files = {f"P{each}": "none.rlg" for each in range(16)}
    make_stick(fat, {**files, MEDIUM_FILE: on_stick + ".rlg"})
    run("mdel", "-i", "stick.img", "::P3", *["::" + MEDIUM_FILE] if on_stick == "none" else [])
    unit.serve("--strict")
    unit.insert("stick.img", "logged")
    if command == "read":
        unit.sh("echo @faults >/sim/say")  # the piano has none any more
        unit.serving = None  # the server ends after it
    unit.sh(f"cd /usr/local; cp {on_disk}.hex .{DISK_FILE}; "
            f"[ -s {on_disk}.hex ] || rm .{DISK_FILE}; : >{LOG}; sync; sync")
    run("cp", image, "base.img")
    start = os.path.getsize(image + ".log")
    asking = unit.start_asking(command)
    unit.until(f"grep -q ' Success' {LOG}")
    reported = os.path.getsize(image + ".log")
    asking.wait()
    unit.sh("umount /mnt/usb; sync")
    old = Path("disk", over + form).read_bytes()
    right = sweep("base.img", image + ".log", file, old, start, reported)
    assert all(right), f"{right.count(False)} of {len(right)} images are wrong"
    require(image, file, "new")
    return f"{len(right)} images"

# command, FAT, what is special, answer (None: not promised), answer with --strict
COPIES = [*[("backup", fat, "", DONE, DONE) for fat in KILOBYTES],
          *[("restore", fat, "", DONE, DONE) for fat in KILOBYTES],
          ("backup", 16, "protected", ERROR, ERROR),
          ("restore", 16, "protected", DONE, DONE),
          ("backup", 12, "full", NO_ROOM, NO_ROOM),
          ("backup", 16, "with three free entries", DONE, NO_ROOM),
          ("backup", 16, "pulled before", ERROR, ERROR),
          ("backup", 16, "pulled meanwhile", None, ERROR),
          ("backup", 16, "inserted again as sdb", ERROR, DONE),
          ("backup", 16, "with bad sectors", None, ERROR),
          ("backup", 16, "with a partition table", ERROR, DONE),
          ("backup", 16, "mounted twice", ERROR, ERROR),
          ("restore", 16, "mounted twice", DONE, DONE)]
FINDS = [("sda", "usb", "hex"), ("sda", "usb", "rlg"), ("sr0", "cdrom", "hex"),
         ("sr0", "cdrom", "rlg"), ("fd0", "floppy", "rlg")]
CUTS = [("read", 16), ("restore", 16), ("backup", 16), ("backup", 32)]
IN_BOTH_MODES = [("version", expect, "version", "1.00\n"), ("read-back", read_back),
                 ("update", update),
                 *[(f"find {row[2]} on {row[1]}", find, *row) for row in FINDS],
                 *[(f"{row[0]} on FAT{row[1]} {row[2]}".rstrip(), copy, *row) for row in COPIES]]
SCENARIOS = [*[(f"{row[0]} {words}", row[1], words, *row[2:])
               for words in ("", "--strict") for row in IN_BOTH_MODES],
             ("calls of the simulated unit", kernel),
             ("file names in both encodings", file_names), ("the service's limits", limits),
             *[(f"cut: {row[0]} over {over} on FAT{row[1]}", cut, over, *row)
               for over in ("old", "none") for row in CUTS]]
QUICK = ("calls|limits|(version|read-back|update|floppy|FAT16) --strict|"
         "(restore|backup) over old on FAT16")

def run_scenarios(unit, pattern):
    """Those whose names contain the pattern."""
    counts = {"passed": 0, "FAILED": 0}
    for name, function, *arguments in SCENARIOS:
        if not re.search(pattern, name):
            continue
        started = time.monotonic()
        try:
            unit.clean()
            result, details = "passed", function(unit, *arguments) or ""
        except Exception as error:  # one that can't run has failed, too
            result, details = "FAILED", f"{type(error).__name__}: {str(error)[:300]}"
        counts[result] += 1
        print(f"{time.monotonic() - started:6.1f} s  {name}: {result} {details}", flush=True)
    print(counts["passed"], "passed,", counts["FAILED"], "failed")
    sys.exit(counts["FAILED"] > 0 or counts["passed"] == 0)

def show(unit):
    """A unit with a stick, until its console ends."""
    unit.serve("")
    unit.insert(make_stick(16, {"csp_prog.hex": "firmware.hex"}))
    unit.sh(f"cp /usr/local/new.hex /usr/local{DISK_FILE}")
    print("\r\nThe stick at /mnt/usb: build/machine/stick.img\r\nThe controller: "
          f"build/release/diagctl --port {unit.port} find-update\r\n", flush=True)
    sys.exit(unit.process.wait())

make_disk()
make_stick(12, {"csp_prog.rlg": "firmware.rlg"}, image="floppy.img")
wanted = sys.argv[1]
machine = Unit(has_console=wanted == "--shell")
if wanted == "--shell":
    show(machine)
run_scenarios(machine, QUICK if wanted == "--quick" else re.escape(wanted))
