"""What the program does on a real kernel. Each scenario prints a line."""

import hashlib
import os
import shutil
import struct
import subprocess
import sys
import threading
import time

import cuts
from machine import Machine, failing, logged, plain

FOLDER, ACTION = sys.argv[1], "".join(sys.argv[2:])
TOOL = "build/release/diagctl"
DISK_FILE, MEDIUM_FILE = "/usr/local/lib/diag/csp_param.hex", "csp_param.rlg"
DONE, ERROR, NO_ROOM = "Copy Success.", "Copy error.", "Free Disk space error."
SECTORS = {12: 2880, 16: 32768, 32: 69632}
PROTECTED, PULLED, PULLED_LATE, SWAPPED, BAD, PARTITION, MOUNTED_TWICE, FULL = range(8)

# name, command, FAT, what is special, answer, answer with --strict, the target with --strict
COPIES = [(f"{command} on FAT{fat}", command, fat, None, DONE, DONE, "new")
          for command in ("backup", "restore") for fat in SECTORS] + [
    ("backup to a protected stick", "backup", 16, PROTECTED, ERROR, ERROR, "old"),
    ("restore from a protected stick", "restore", 16, PROTECTED, DONE, DONE, "new"),
    ("backup to a full stick", "backup", 12, FULL, NO_ROOM, NO_ROOM, "old"),
    ("backup to a stick pulled before", "backup", 16, PULLED, ERROR, ERROR, "old"),
    ("backup to a stick pulled meanwhile", "backup", 16, PULLED_LATE, None, ERROR, "old"),
    ("backup to a stick inserted again as sdb", "backup", 16, SWAPPED, ERROR, DONE, "new"),
    ("backup to a stick with bad sectors", "backup", 16, BAD, None, ERROR, "old"),
    ("backup to a stick with a partition table", "backup", 16, PARTITION, ERROR, DONE, "new"),
    ("backup to a stick mounted twice", "backup", 16, MOUNTED_TWICE, ERROR, ERROR, "old"),
    ("restore from a stick mounted twice", "restore", 16, MOUNTED_TWICE, DONE, DONE, "new")]
FINDS = [("usb", "hex"), ("usb", "rlg"), ("cdrom", "hex"), ("cdrom", "rlg"), ("floppy", "rlg")]
FLASH_OFFSET = 0x40000  # of the parameters, and of the firmware made here
passed, failed = [], []


def run(*command, **options):
    return subprocess.run(command, check=True, capture_output=True, timeout=200, **options).stdout


def path(name):
    return f"{FOLDER}/{name}"


def content(name):
    with open(path(name), "rb") as file:
        return file.read()


def check(is_right, what):
    if not is_right:
        raise AssertionError(what)


def scenario(name, action, *arguments):
    started, result = time.monotonic(), "passed"
    try:
        result += f" {action(*arguments) or ''}"
        passed.append(name)
    except Exception as error:  # a scenario that can't run has failed, too
        result = f"FAILED: {type(error).__name__} {str(error)[:300]}"
        failed.append(name)
    print(f"{time.monotonic() - started:6.1f} s  {name}: {result}", flush=True)


def make_files():
    """The piano's parameters, old ones, firmware; and the unit's disk with them."""
    shutil.rmtree(path("disk"), ignore_errors=True)
    os.makedirs(path("disk/lib/diag"))
    os.makedirs(path("disk/cwd"))
    for name, size, version in (("new", 0x60000, ""), ("old", 0x60000, ""), ("fw", 0x30000, "KVT 2.00")):
        with open("/dev/urandom", "rb") as source, open(path("seed"), "wb") as seed:
            seed.write(source.read(size // 4) + b"\xff" * (size - size // 4))
        run("sim/mkfirmware", "--from", path("seed"), "--version", version, "--record", "32",
            "--binary", path(name + ".bin"), path(name + ".hex"))
        run(TOOL, "--force", "convert", path(name + ".hex"), path(name + ".rlg"))
        shutil.copy(path(name + ".hex"), path("disk"))
    shutil.copy(path("new.bin"), path("disk"))
    open(path("empty"), "wb").close()
    make_disk()
    image = make_image("floppy.img", SECTORS[12], "mkfs.vfat")
    run("mcopy", "-i", image, path("fw.rlg"), "::csp_prog.rlg")


def make_disk():
    make_image("disk.img", 65536, "mkfs.ext4", "-q", "-b", "4096", "-d", path("disk"))


def make_image(name, sectors, *command):
    if os.path.exists(path(name)):
        os.unlink(path(name))
    with open(path(name), "wb") as file:
        file.truncate(sectors * cuts.SECTOR)
    run(*command, path(name))
    return path(name)


def make_stick(fat, files):
    """A stick with the files {name there: name here}."""
    image = make_image("stick.img", SECTORS[fat], "mkfs.vfat", "-F", str(fat), "-s", "1")
    for target, source in files.items():
        run("mcopy", "-i", image, path(source), "::" + target, env={**os.environ, "LC_ALL": "C.UTF-8"})
    return image


class Unit(Machine):
    """The machine with the piano and the program in it."""

    def piano(self, *options):
        self.sh("! pidof diag_server simpiano >/dev/null || kill $(pidof diag_server simpiano)")
        self.until("! pidof diag_server simpiano >/dev/null")
        self.sh("simpiano --root / --load /usr/local/new.bin@90040000 --save /usr/local/flash.bin "
                + " ".join(options) + " >/tmp/piano 2>&1 &")
        self.until("grep -q ready /tmp/piano")

    def serve(self, words, start="exec"):
        """A server whose read-back has failed, so that it serves the controller."""
        self.piano("--allow-gaps --bad-checksum-at 90040000")
        self.sh(f"({start} diag_server {words}) >/dev/null 2>/tmp/errors &")
        check("KVT : Update the Service Center." in self.ask("version"), "no version")

    def ask(self, command):
        """The lines that the controller receives."""
        done = subprocess.run([TOOL, "--port", str(self.port), "--wait", "90", command],
                              capture_output=True, timeout=240, text=True, check=False)
        return (done.stdout + done.stderr).splitlines()

    def has(self, file, name, skip=0):
        """The file in the machine is this one; of the flash, the part at the firmware's address."""
        size = len(content(name))
        digest = self.sh(f"tail -c +{skip + 1} {file} | head -c {size} | md5sum").split()[0]
        return digest == hashlib.md5(content(name)).hexdigest()

    def eject(self, medium):
        self.sh("for each in usb usb other cdrom floppy; do umount /mnt/$each 2>/dev/null; done;"
                " cd /; true")
        if medium:
            self.pull(medium)


def update(unit, words):
    unit.piano("--allow-gaps")
    unit.sh(f"timeout 150 diag_server {words} -f /usr/local/fw.hex >/tmp/out 2>&1", 160)
    check(unit.has("/usr/local/flash.bin", "fw.bin", FLASH_OFFSET), "the flash differs")


def read_back(unit, words):
    unit.piano()
    unit.sh(f"rm -f csp_param.hex; timeout 150 diag_server {words} >/tmp/out 2>&1", 160)
    check(unit.has("csp_param.hex", "new.hex"), "csp_param.hex differs from the flash")


def find(unit, place, form):
    name = "csp_prog." + form
    medium, device = None, "fd0"
    if place == "usb":
        medium, device = unit.plug(plain(make_stick(32, {name: "fw." + form}))), "sda"
    elif place == "cdrom":
        run("genisoimage", "-quiet", "-R", "-graft-points", "-o", path("cd.iso"),
            f"{name}={path('fw.' + form)}")
        device = "sr0"
        medium = unit.plug(plain(path("cd.iso"), **{"read-only": True}), device, "scsi-cd", "scsi.0")
    try:
        unit.sh(f"mount -o ro /dev/{device} /mnt/{place}")
        check("KVT 2.00" in unit.ask("find-update"), "not found")
        if place == "floppy":
            check("CSP Update Success." in unit.ask("update"), "not updated")
            check(unit.has("/usr/local/flash.bin", "fw.bin", FLASH_OFFSET), "the flash differs")
    finally:
        unit.eject(medium)


def names(unit):
    """A file's name is UTF-8 as the kernel mounts by default, and Shift JIS with utf8=0."""
    medium = unit.plug(plain(make_stick(16, {"\u30c6\u30b9\u30c8.hex": "fw.hex"})))
    try:
        for option, name in (("utf8=1", "\\343\\203\\206\\343\\202\\271\\343\\203\\210"),
                             ("utf8=0", "\\203\\145\\203\\130\\203\\147")):
            unit.sh(f"mount -t vfat -o codepage=932,iocharset=sjis,{option} /dev/sda /mnt/usb")
            out = unit.sh(f"diag_server -v -f \"$(printf '/mnt/usb/{name}.hex')\"; umount /mnt/usb")
            check("KVT 2.00" in out, f"no version with {option}: {out}")
    finally:
        unit.eject(medium)


def copy(unit, strict, name, command, fat, special, answer, strict_answer, after):
    expected = strict_answer if strict else answer
    is_backup, device = command == "backup", "sda"
    image = make_stick(fat, {MEDIUM_FILE: "old.rlg" if is_backup else "new.rlg",
                             **({"a": "new.hex", "b": "old.bin"} if special == FULL else {})})
    node = plain(image, **{"read-only": special == PROTECTED})
    if special == BAD:
        node = failing(image, range(550, 560))
    elif special == PARTITION:
        device = "sda1"
        table = struct.pack("<446xBxxxBxxxLL48xH", 0, 6, 2048, SECTORS[fat], 0xAA55)
        with open(path("parted.img"), "wb") as file:
            file.write(table.ljust(2048 * cuts.SECTOR, b"\0") + content("stick.img"))
        node = plain(path("parted.img"))
    elif special == PULLED_LATE:
        node = {"driver": "throttle", "throttle-group": "slow", "file": node}
    unit.sh(f"cp /usr/local/{'new' if is_backup else 'old'}.hex {DISK_FILE}")
    medium = unit.plug(node)
    try:
        unit.until(f"[ -b /dev/{device} ]")
        ways = "-o ro" if special in (PROTECTED, MOUNTED_TWICE) else ""
        unit.sh(f"mount -t vfat {ways} /dev/{device} /mnt/usb")
        if special == MOUNTED_TWICE:
            unit.sh("mount -t vfat -o ro /dev/sda /mnt/other")
        if special in (PULLED, SWAPPED):
            unit.pull(medium)
            medium = None
        if special == SWAPPED:
            medium = unit.plug(node, "sdb")
            unit.sh("mount -t vfat /dev/sdb /mnt/usb")
        if special == PULLED_LATE:
            threading.Timer(2, unit.pull, [medium]).start()
            medium = None
        lines = unit.ask(command)
        if medium:  # at once, as a technician would
            unit.pull(medium)
            medium = None
        check(expected in lines if expected else lines, f"expected {expected}, received {lines}")
        if strict and expected == ERROR:
            check(ERROR not in unit.sh("tail -n 1 /usr/local/lib/diag/diagserver.log"), "no reason")
        if not strict and expected != DONE:
            return
        if is_backup:
            if special == PARTITION:
                with open(image, "wb") as file:
                    file.write(content("parted.img")[2048 * cuts.SECTOR:])
            right = cuts.repair_and_read(image, MEDIUM_FILE) == content(after + ".rlg")
        else:
            right = unit.has(DISK_FILE, after + ".hex")
        check(right, f"the target isn't the {after} one")
    finally:
        unit.eject(medium)


def limits(unit):
    """The packaged service's capabilities, devices and limits, without systemd."""
    with open("packaging/diag_server.service", encoding="utf-8") as file:
        unit_file = dict.fromkeys(file.read().splitlines())
    find_all = lambda key: [line.split("=", 1)[1] for line in unit_file if line.startswith(key + "=")]
    devices = ["c 1:3 rw", "c 1:5 rw", "c 1:7 rw", "c 1:8 rw", "c 1:9 rw"]
    for device, access in map(str.split, find_all("DeviceAllow")):
        if device == "block-sd":
            devices.append(f"b 8:* {access}")
        elif device != "/dev/sda":  # not there now, and among the former
            numbers = unit.sh(f"stat -c '%t %T' {device}").split()
            devices.append("c {}:{} {}".format(*(int(each, 16) for each in numbers), access))
    kept = "".join(",+" + each[4:].lower() for each in find_all("CapabilityBoundingSet")[0].split())
    unit.sh("mount -t cgroup -o devices none /cgroup; mkdir /cgroup/service; cd /cgroup/service; "
            "echo a >devices.deny; " + "".join(f"echo '{d}' >devices.allow; " for d in devices))
    unit.serve("--strict", "echo 0 >/cgroup/service/cgroup.procs; umask 077; ulimit -n "
               f"{find_all('LimitNOFILE')[0]}; exec /bin/setpriv --no-new-privs --bounding-set -all{kept}")
    check(unit.sh("grep -c 'dsp on' /sim/midi.log") != "0", "no power device")
    copy(unit, True, *COPIES[1])
    copy(unit, True, *COPIES[4])


def cut_read_back(unit, old):
    unit.piano()
    unit.sh(f"{old_file(old, 'csp_param.hex')}; rm /usr/local/lib/diag/*.log; sync; sync")
    start = cuts.count(path("disk.log"))
    unit.sh("diag_server --strict >/tmp/out 2>&1 &")
    unit.until("grep -q 'CSP Read Success' /usr/local/lib/diag/diagserver.log", 150)
    reported = cuts.count(path("disk.log"))
    unit.until("! pidof diag_server >/dev/null")
    return sweep(unit, "disk", "/cwd/csp_param.hex", old, "new.hex", start, reported)


def cut_restore(unit, old):
    medium = unit.plug(plain(make_stick(16, {MEDIUM_FILE: "new.rlg"})))
    try:
        unit.sh(f"mount -t vfat -o ro /dev/sda /mnt/usb; {old_file(old, DISK_FILE)}; sync; sync")
        start = cuts.count(path("disk.log"))
        check(DONE in unit.ask("restore"), "not restored")
        reported = cuts.count(path("disk.log"))
        return sweep(unit, "disk", "/lib/diag/csp_param.hex", old, "new.hex", start, reported)
    finally:
        unit.eject(medium)


def cut_backup(unit, fat, old):
    """The work file's entry is in an earlier sector of the directory than that of the file."""
    image = make_stick(fat, {f"P{each}": "empty" for each in range(16)})
    if old:
        run("mcopy", "-i", image, path(old), "::" + MEDIUM_FILE)
    run("mdel", "-i", image, "::P3")
    shutil.copy(image, path("stick.base"))
    medium = unit.plug(logged(image, path("stick.log")))
    try:
        # Linux doesn't flush a USB stick unless it is told that the stick has a cache.
        unit.sh("for each in /sys/class/scsi_disk/*; do if [ -e $each/device/block/sda ]; then "
                "echo temporary write back >$each/cache_type; fi; done; "
                f"mount -t vfat /dev/sda /mnt/usb; cp /usr/local/new.hex {DISK_FILE}; sync")
        start = cuts.count(path("stick.log"))
        check(DONE in unit.ask("backup"), "not copied")
        reported = cuts.count(path("stick.log"))
        return sweep(unit, "stick", MEDIUM_FILE, old, "new.rlg", start, reported)
    finally:
        unit.eject(medium)


def old_file(old, target):
    return f"cp /usr/local/{old} {target}" if old else f"rm -f {target}"


def sweep(unit, image, name, old, new, start, reported):
    unit.sh("sync; umount /mnt/usb 2>/dev/null; sync")
    # Where there was no copy an empty one is as good, since a restore refuses it.
    before = [content(old)] if old else ["missing", b""]
    images, wrong = cuts.sweep(path(image + ".base"), path(image + ".log"), name,
                               [*before, content(new)], start, reported)
    check(not wrong, f"{len(wrong)} of {images} images: {wrong[:3]}")
    return f"{images} images"


def power_cut(unit):
    """Right after the success of a restore."""
    medium = unit.plug(plain(make_stick(16, {MEDIUM_FILE: "new.rlg"})))
    unit.sh(f"mount -t vfat /dev/sda /mnt/usb; cp /usr/local/old.hex {DISK_FILE}; sync")
    check(DONE in unit.ask("restore"), f"not restored {medium}")
    unit.kill()
    check(cuts.repair_and_read(path("disk.img"), "/lib/diag/csp_param.hex") == content("new.hex"),
          "the restored file is lost")


def run_all(quick):
    unit = Unit(FOLDER, plain(path("disk.img")), plain(path("floppy.img")))
    unit.order("object-add", **{"qom-type": "throttle-group", "id": "slow",
                                "limits": {"bps-write": 25000}})
    print(f"The machine {unit.started}.", flush=True)
    for words in ("",) if quick else ("", "--strict"):
        scenario(f"read-back {words}", read_back, unit, words)
        scenario(f"update {words}", update, unit, words and words + " --verify")
        scenario(f"version {words}", unit.serve, words)
        for place, form in FINDS[-1:] if quick else FINDS:
            scenario(f"find {form} on {place} {words}", find, unit, place, form)
        for row in COPIES[1::3] if quick else COPIES:
            scenario(f"{row[0]} {words}", copy, unit, words, *row)
    scenario("file names in both encodings", names, unit)
    scenario("the service's limits", limits, unit)
    unit.kill()


def run_cuts(quick):
    make_disk()
    shutil.copy(path("disk.img"), path("disk.base"))
    unit = Unit(FOLDER, logged(path("disk.img"), path("disk.log")), plain(path("floppy.img")))
    for old in ("old",) if quick else ("old", ""):
        over = f" over {old}" if old else " without an old file"
        if not quick:
            scenario("cut: read-back" + over, cut_read_back, unit, old and "old.hex")
    scenario("version", unit.serve, "--strict")
    for old in ("old",) if quick else ("old", ""):
        over = f" over {old}" if old else " without an old file"
        scenario("cut: restore" + over, cut_restore, unit, old and "old.hex")
        for fat in (16,) if quick else SECTORS:
            scenario(f"cut: backup on FAT{fat}" + over, cut_backup, unit, fat, old and "old.rlg")
    scenario("power cut after a restore", power_cut, unit)


def shell():
    unit = Unit(FOLDER, plain(path("disk.img")), plain(path("floppy.img")), log=None, words="shell")
    unit.plug(plain(make_stick(16, {"csp_prog.hex": "fw.hex"})))
    unit.sh(f"mount -t vfat /dev/sda /mnt/usb; cp /usr/local/new.hex {DISK_FILE}")
    print(f"\r\nThe controller: {TOOL} --port {unit.port} --wait 60 find-update\r\n"
          f"The stick: {path('stick.img')}, mounted at /mnt/usb\r\n", flush=True)
    unit.serve("")
    unit.process.wait()


make_files()
if ACTION == "--shell":
    shell()
else:
    for part in (run_all, run_cuts):
        part(ACTION == "--quick")
    print(f"{len(passed)} passed, {len(failed)} failed")
    sys.exit(bool(failed))
