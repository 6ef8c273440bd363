"""What the program does on a real kernel. Each scenario prints a line."""

import hashlib
import os
import shutil
import subprocess
import sys
import threading
import time

import cuts
from machine import Machine, failing, logged, plain

FOLDER, OPTION, ONLY = sys.argv[1:]
QUICK = OPTION == "--quick"
TOOL = "build/release/diagctl"
LOGS = "/usr/local/lib/diag"
DISK_FILE, MEDIUM_FILE = LOGS + "/csp_param.hex", "csp_param.rlg"
DONE, ERROR, NO_ROOM = "Copy Success.", "Copy error.", "Free Disk space error."
SECTORS = {12: 2880, 16: 32768, 32: 69632}
FLASH_OFFSET = 0x40000  # of the parameters; the firmware made here begins there, too
FINDS = [("usb", "hex"), ("usb", "rlg"), ("cdrom", "hex"), ("cdrom", "rlg"), ("floppy", "rlg")]

# name, command, FAT, what is special, answer (None: not promised), answer with --strict
COPIES = [(f"{command} on FAT{fat}", command, fat, "", DONE, DONE)
          for fat in SECTORS for command in ("backup", "restore")] + [
    ("backup to a protected stick", "backup", 16, "protected", ERROR, ERROR),
    ("restore from a protected stick", "restore", 16, "protected", DONE, DONE),
    ("backup to a full stick", "backup", 12, "full", NO_ROOM, NO_ROOM),
    ("backup to a stick pulled before", "backup", 16, "pulled", ERROR, ERROR),
    ("backup to a stick pulled meanwhile", "backup", 16, "pulled late", None, ERROR),
    ("backup to a stick inserted again as sdb", "backup", 16, "swapped", ERROR, DONE),
    ("backup to a stick with bad sectors", "backup", 16, "bad", None, ERROR),
    ("backup to a stick with a partition table", "backup", 16, "parted", ERROR, DONE),
    ("backup to a stick mounted twice", "backup", 16, "twice", ERROR, ERROR),
    ("restore from a stick mounted twice", "restore", 16, "twice", DONE, DONE)]
passed, failed = [], []

def run(*command):
    return subprocess.run(command, check=True, capture_output=True, timeout=200,
                          env={**os.environ, "LC_ALL": "C.UTF-8"}).stdout

def path(name):
    return f"{FOLDER}/{name}"

def content(name):
    with open(path(name), "rb") as file:
        return file.read()

def scenario(name, action, *arguments):
    if ONLY not in name and action.__name__ != "serve":  # the server is needed by the others
        return
    started = time.monotonic()
    try:
        result = f"passed {action(*arguments) or ''}"
        passed.append(name)
    except Exception as error:  # one that can't run has failed, too
        result = f"FAILED {type(error).__name__}: {str(error)[:300]}"
        failed.append(name)
    print(f"{time.monotonic() - started:6.1f} s  {name}: {result}", flush=True)

def make_image(name, sectors, *command):
    with open(path(name), "wb") as file:
        file.truncate(sectors * cuts.SECTOR)
    run(*command, path(name))
    return path(name)

def make_stick(fat, files, start=0, name="stick.img"):
    """A stick with the files {name there: name here}, in a partition if `start` isn't 0."""
    image = make_image(name, start + SECTORS[fat], "true")
    if start:
        subprocess.run(["sfdisk", "-q", image], input=b"%d,,e" % start, check=True)
    run("mkfs.vfat", "-F", str(fat), "-s", "1", "--offset", str(start), image,
        str(SECTORS[fat] // 2))
    for target, source in files.items():
        run("mcopy", "-i", f"{image}@@{start * cuts.SECTOR}", path(source), "::" + target)
    return image

def make_disk():
    return make_image("disk.img", 65536, "mkfs.ext4", "-q", "-b", "4096", "-d", path("disk"))

def make_files():
    """The piano's parameters, old ones, firmware, and the unit's disk with them."""
    shutil.rmtree(path("disk"), ignore_errors=True)
    os.makedirs(path("disk/lib/diag"))
    os.makedirs(path("disk/cwd"))
    for name, size in (("new", 0x60000), ("old", 0x60000), ("fw", 0x30000)):
        with open(path("seed"), "wb") as seed:
            seed.write(os.urandom(size // 4).ljust(size, b"\xff"))
        run("sim/mkfirmware", "--from", path("seed"), "--version", "KVT 2.00", "--record", "32",
            "--binary", path(name + ".bin"), path(name + ".hex"))
        run(TOOL, "--force", "convert", path(name + ".hex"), path(name + ".rlg"))
        shutil.copy(path(name + ".hex"), path("disk"))
    shutil.copy(path("new.bin"), path("disk"))
    make_disk()
    make_image("empty", 0, "true")
    make_stick(12, {"csp_prog.rlg": "fw.rlg"}, name="floppy.img")

class Unit(Machine):
    """The machine with the piano and the program in it."""

    def piano(self, *options):
        running = "pidof diag_server simpiano >/tmp/pids"
        self.sh(f"! {running} || kill $(cat /tmp/pids)")
        self.until(f"! {running}")
        self.sh("rm -f /sim/midi.log; simpiano --root / --load /usr/local/new.bin@90040000 "
                f"--save /usr/local/flash.bin --allow-gaps {' '.join(options)} >/tmp/piano 2>&1 &")
        self.until("grep -q ready /tmp/piano")

    def serve(self, words, start="exec"):
        """A server whose read-back has failed, so that it serves the controller."""
        self.piano("--bad-checksum-at", "90040000")
        self.sh(f"({start} /bin/diag_server {words}) >/dev/null 2>&1 &")
        assert "1.00" in (lines := self.ask("version")), f"no version: {lines}"

    def ask(self, command):
        """The lines that the controller receives."""
        done = subprocess.run([TOOL, "--port", str(self.port), "--wait", "90", command],
                              capture_output=True, timeout=240, text=True, check=False)
        return (done.stdout + done.stderr).splitlines()

    def require(self, file, name, skip=0):
        """The file in the machine must be this one, of the flash the part with the firmware."""
        data = content(name)
        found = self.sh(f"tail -c +{skip + 1} {file} | head -c {len(data)} | md5sum").split()[0]
        assert found == hashlib.md5(data).hexdigest(), f"{file} isn't {name}"

    def disk_file(self, name):
        self.sh("sync")
        shutil.copy(path("disk.img"), path("copy.img"))
        return cuts.repair_and_read(path("copy.img"), name)

def update(unit, words):
    unit.piano()
    unit.sh(f"timeout 150 diag_server {words} -f /usr/local/fw.hex >/tmp/out 2>&1")
    unit.require("/usr/local/flash.bin", "fw.bin", FLASH_OFFSET)

def read_back(unit, words):
    unit.piano()
    unit.sh(f"rm -f csp_param.hex; timeout 150 diag_server {words} >/tmp/out 2>&1")
    with open(path("readback.hex"), "wb") as file:
        file.write(unit.disk_file("/cwd/csp_param.hex"))
    run(TOOL, "diff", path("readback.hex"), path("new.hex"))

def find(unit, place, form):
    name, way = "csp_prog." + form, ("fd0", place)
    if place == "floppy":
        unit.sh("mount /dev/fd0 /mnt/floppy")
        assert "KVT 2.00" in unit.ask("find-update"), "not found"
        unit.sh("umount /mnt/floppy")  # a copy would take it for its medium
        assert "CSP Update Success." in unit.ask("update"), "not updated"
        return unit.require("/usr/local/flash.bin", "fw.bin", FLASH_OFFSET)
    if place == "cdrom":
        run("genisoimage", "-quiet", "-R", "-graft-points", "-o", path("cd.iso"),
            f"{name}={path('fw.' + form)}")
        node, way = plain(path("cd.iso"), **{"read-only": True}), ("sr0", place, "ro", "scsi-cd")
    else:
        node, way = plain(make_stick(32, {name: "fw." + form})), ()
    with unit.inserted(node, *way):
        assert "KVT 2.00" in unit.ask("find-update"), "not found"

def names(unit):
    """A name is UTF-8 where nothing else is said, and Shift JIS with utf8=0."""
    name, ways = "\u30c6\u30b9\u30c8.hex", {"utf8=1": "utf-8", "utf8=0": "shift_jis"}
    for option, encoding in ways.items():
        with unit.inserted(plain(make_stick(16, {name: "fw.hex"})),
                           options="codepage=932,iocharset=sjis," + option):
            octal = "".join(f"\\{byte:03o}" for byte in name.encode(encoding))
            assert "KVT 2.00" in unit.sh(f"diag_server -v -f \"/mnt/usb/$(printf '{octal}')\"")

def copy(unit, strict, name, command, fat, special, answer, strict_answer):
    answer = strict_answer if strict else answer
    source, target = ("new.hex", "old.rlg") if command == "backup" else ("old.hex", "new.rlg")
    full = {"a": "new.hex", "b": "old.bin"} if special == "full" else {}
    start = 2048 if special == "parted" else 0
    image = make_stick(fat, {MEDIUM_FILE: target, **full}, start)
    node = plain(image, **{"read-only": special == "protected"})
    if special == "bad":
        node = failing(image, range(550, 560))
    if special == "pulled late":
        node = {"driver": "throttle", "throttle-group": "slow", "file": node}
    unit.sh(f"cp /usr/local/{source} {DISK_FILE}")
    with unit.inserted(node, "sda1" if start else "sda",
                       options="ro" if special in ("protected", "twice") else "rw") as medium:
        if special == "twice":
            unit.sh("mount -o ro /dev/sda /mnt/other")
        if special in ("pulled", "swapped"):
            unit.pull(medium)
        if special == "swapped":
            medium = unit.plug(node, "sdb")
            unit.sh("mount /dev/sdb /mnt/usb")
        if special == "pulled late":
            threading.Timer(2, unit.pull, [medium]).start()
        lines = unit.ask(command)
        if medium in unit.media:  # as soon as the technician may
            unit.pull(medium)
    assert answer in lines if answer else lines, f"expected {answer}, received {lines}"
    if strict and answer == ERROR:
        assert ERROR not in unit.sh(f"tail -n 1 {LOGS}/diagserver.log"), "no reason in the log"
    after = "new" if answer == DONE else "old"
    if command == "restore":
        unit.require(DISK_FILE, after + ".hex")
    elif strict or answer in (DONE, NO_ROOM):
        found = run("mcopy", "-i", f"{image}@@{start * cuts.SECTOR}", "::" + MEDIUM_FILE, "-")
        assert found == content(after + ".rlg"), f"the file on the stick isn't the {after} one"

def limits(unit):
    """The capabilities, devices and limits of the packaged service."""
    settings = {}
    with open("packaging/diag_server.service.in", encoding="utf-8") as file:
        for key, _, value in (line.strip().partition("=") for line in file):
            settings.setdefault(key, []).append(value)
    devices = [f"c 1:{minor} rw" for minor in (3, 5, 7, 8, 9)] + ["b 8:* rw"]
    assert "block-sd rw" in settings["DeviceAllow"] and "/dev/PciDsp rw" in settings["DeviceAllow"]
    devices.append("c %d:%d rw" % tuple(
        int(each, 16) for each in unit.sh("stat -c '%t %T' /dev/PciDsp").split()))
    kept = ",".join("+" + each[4:].lower() for each in settings["CapabilityBoundingSet"])
    unit.sh("mount -t cgroup -o devices none /cgroup && mkdir /cgroup/service && "
            "cd /cgroup/service && echo a >devices.deny" + "".join(f" && echo '{d}' >devices.allow" for d in devices))
    unit.serve("--strict", "echo 0 >/cgroup/service/cgroup.procs; umask 077; ulimit -n "
               f"{settings['LimitNOFILE'][0]}; "
               f"exec /bin/setpriv --no-new-privs --bounding-set -all,{kept}")
    assert unit.sh("grep -c 'dsp on' /sim/midi.log").strip() == "1", "no power device"
    for row in COPIES[:2]:
        copy(unit, True, *row)

def cut(unit, command, fat, old):
    """Every power cut during a strict read-back, restore or backup. On the stick, the work file's
    entry is in an earlier sector of the directory than the target's, but not with FAT12: there an
    entry of the table may be in two sectors, and half of it may lead into the old file's chain.
    The repair then cuts the file whose name comes second, whatever the program does."""
    place, file, form = {"read-back": ("disk", "/cwd/csp_param.hex", "hex"),
                         "restore": ("disk", "/lib/diag/csp_param.hex", "hex"),
                         "backup": ("stick", MEDIUM_FILE, "rlg")}[command]
    image, log = path(place + ".img"), path(place + ".log")
    old = old and f"old.{form}"
    stick = make_stick(fat, {f"P{each}": "empty" for each in range(16)})
    if command == "restore" or old:
        content_there = path(old if command == "backup" else "new.rlg")
        run("mcopy", "-i", stick, content_there, "::" + MEDIUM_FILE)
    if fat != 12:
        run("mdel", "-i", stick, "::P3")
    if place == "stick":
        shutil.copy(stick, path("stick.base"))
    if command == "read-back":
        unit.piano()
    with unit.inserted(logged(stick, log) if place == "stick" else plain(stick)):
        # Linux doesn't flush a stick unless it hears that the stick has a cache.
        unit.sh("for each in /sys/class/scsi_disk/*; do if [ -e $each/device/block/sda ]; then "
                "echo temporary write back >$each/cache_type; fi; done; rm -f csp_param.hex; "
                + (f"cp /usr/local/{old} /usr/local{file}; " if form == "hex" and old else
                   f"rm -f /usr/local{file}; " if form == "hex" else
                   f"cp /usr/local/new.hex {DISK_FILE}; ") + "sync; sync")
        start = cuts.count(log)
        if command == "read-back":
            unit.sh(f"rm -f {LOGS}/diagserver.log; diag_server --strict >/tmp/out 2>&1 &")
            unit.until(f"grep -q 'Read Success' {LOGS}/diagserver.log", 150)
        else:
            assert DONE in (lines := unit.ask(command)), f"{lines}"
        reported = cuts.count(log)
        unit.sh("sync; umount /mnt/usb; sync")
        new = unit.disk_file(file) if command == "read-back" else content("new." + form)
        if command == "read-back":
            with open(path("readback.hex"), "wb") as saved:
                saved.write(new)
            run(TOOL, "diff", path("readback.hex"), path("new.hex"))
        # Where there was no file an empty one does no harm, since a restore refuses it.
        allowed = [content(old)] if old else ["missing", b""]
        images, wrong = cuts.sweep(path(place + ".base"), log, file, [*allowed, new], start,
                                   reported)
    assert not wrong, f"{len(wrong)} of {images} images: {wrong[:3]}"
    return f"{images} images"

def power_cut(unit):
    """Right after the success of a restore."""
    unit.plug(plain(make_stick(16, {MEDIUM_FILE: "new.rlg"})))
    unit.sh(f"mount /dev/sda /mnt/usb; cp /usr/local/old.hex {DISK_FILE}; sync")
    assert DONE in unit.ask("restore"), "not restored"
    unit.kill()
    found = cuts.repair_and_read(path("disk.img"), "/lib/diag/csp_param.hex")
    assert found == content("new.hex"), "the restored file is lost"

def run_scenarios():
    unit = Unit(FOLDER, plain(path("disk.img")))
    for words in ("--strict",) if QUICK else ("", "--strict"):
        scenario(f"read-back {words}", read_back, unit, words)
        scenario(f"update {words}", update, unit, words and words + " --verify")
        scenario(f"version {words}", unit.serve, words)
        for row in FINDS[-1:] if QUICK else FINDS:
            scenario(f"find {row[1]} on {row[0]} {words}", find, unit, *row)
        for row in COPIES[:2] if QUICK else COPIES:
            scenario(f"{row[0]} {words}", copy, unit, words, *row)
    scenario("file names in both encodings", names, unit)
    scenario("the service's limits", limits, unit)
    unit.kill()

def run_cuts():
    shutil.copy(make_disk(), path("disk.base"))
    unit = Unit(FOLDER, logged(path("disk.img"), path("disk.log")))
    for old, over in (("old", "an old file"),) if QUICK else (("old", "an old file"), ("", "none")):
        if not QUICK:
            scenario(f"cut: read-back over {over}", cut, unit, "read-back", 16, old)
        scenario("cut: version", unit.serve, "--strict")
        scenario(f"cut: restore over {over}", cut, unit, "restore", 16, old)
        for fat in (16,) if QUICK else SECTORS:
            scenario(f"cut: backup on FAT{fat} over {over}", cut, unit, "backup", fat, old)
    scenario("cut: right after a restore", power_cut, unit)

def run_shell():
    unit = Unit(FOLDER, plain(path("disk.img")), console=True)
    unit.plug(plain(make_stick(16, {"csp_prog.hex": "fw.hex"})))
    unit.sh(f"mount /dev/sda /mnt/usb; cp /usr/local/new.hex {DISK_FILE}")
    unit.serve("")
    print(f"\r\nThe controller: {TOOL} --port {unit.port} find-update\r\n"
          f"The stick at /mnt/usb: {path('stick.img')}\r\n", flush=True)
    unit.process.wait()

make_files()
if OPTION == "--shell":
    run_shell()
else:
    if not ONLY.startswith("cut"):
        run_scenarios()
    run_cuts()
    print(f"{len(passed)} passed, {len(failed)} failed")
    sys.exit(bool(failed))
