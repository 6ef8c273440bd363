"""The unit in a virtual machine: a real kernel, the unit's disk, media, the piano, the program."""

import atexit
import json
import socket
import subprocess

SECONDS = 300  # for the boot and for the longest command, without hardware virtualization

def node(image, kind=""):
    """qemu's description of an image as a block device."""
    plain = {"driver": "raw", "file": {"driver": "file", "filename": image, "locking": "off"}}
    if kind == "with bad sectors":
        rule = {"event": "none", "iotype": "write", "errno": 5, "sector": 555}
        return {"driver": "blkdebug", "image": plain, "inject-error": [rule]}
    if kind == "pulled meanwhile":  # slow enough for it
        return {"driver": "throttle", "throttle-group": "slow", "file": plain}
    if kind == "logged":  # each write and each flush is appended to a log, too
        open(image + ".log", "wb").close()
        return {"driver": "blklogwrites", "file": plain, "log": node(image + ".log")}
    return {"read-only": kind == "protected", **plain}

class Unit:
    def __init__(self, has_console):
        self.media, self.number, self.serving = {}, 0, None
        self.port = socket.create_server(("127.0.0.1", 0)).getsockname()[1]  # free again at once
        (control, far_control), (monitor, far_monitor) = socket.socketpair(), socket.socketpair()
        ends = far_control.fileno(), far_monitor.fileno()
        options = f"""-accel tcg -m 512 -smp 2 -nodefaults -no-reboot -display none
            -kernel vmlinuz -initrd initramfs -chardev socket,id=monitor,fd={ends[1]}
            -mon monitor,mode=control -chardev socket,id=control,fd={ends[0]}
            -device virtio-serial -device virtserialport,chardev=control
            -serial {"mon:stdio" if has_console else "file:console.log"}
            -nic user,model=virtio-net-pci,restrict=on,hostfwd=tcp:127.0.0.1:{self.port}-:4917
            -object throttle-group,id=slow,x-bps-write=50000 -device virtio-blk,drive=disk
            -drive if=floppy,format=raw,file=floppy.img -device qemu-xhci -device virtio-scsi"""
        with far_control, far_monitor:
            self.process = subprocess.Popen(
                ["qemu-system-x86_64", *options.split(),
                 "-append", "console=ttyS0 loglevel=3 panic=-1 usb-storage.delay_use=0",
                 "-blockdev", json.dumps({"node-name": "disk", **node("disk.img", "logged")})],
                pass_fds=ends)
        atexit.register(self.process.kill)
        control.settimeout(SECONDS)
        self.control, self.monitor = control.makefile("rw"), monitor.makefile("rw")
        assert self.control.readline() == "ready\n", "the machine doesn't boot; see console.log"
        self.order("qmp_capabilities")

    def order(self, command, **arguments):
        """A command of qemu's monitor."""
        self.monitor.write(json.dumps({"execute": command, "arguments": arguments}) + "\n")
        self.monitor.flush()
        while "return" not in (answer := json.loads(self.monitor.readline())):
            assert "error" not in answer, f"{command}: {answer}"

    def sh(self, command):
        """Runs the command in the machine. Returns its output if it succeeds."""
        self.control.write(f"( {command} ) </dev/null 2>&1; echo == $?\n")
        self.control.flush()
        text = ""
        while not (line := self.control.readline()).startswith("== "):
            assert line, f"the machine has ended: {command}"
            text += line
        assert line == "== 0\n", f"{command}: {text} status {line[3:]}"
        return text

    def until(self, condition):
        self.sh(f"end=$(($(date +%s) + {SECONDS - 60})); until {condition}; do sleep 0.1; "
                "[ $(date +%s) -lt $end ] || exit; done")

    def insert(self, image, kind="", device="sda", place="usb", options="rw"):
        """A medium, which is mounted. The floppy is in its drive. Linux flushes only sticks with a
        cache, such as a SCSI disk; it is for the power cuts."""
        if device != "fd0":
            self.number += 1
            name = self.media[device] = f"medium{self.number}"
            disk = "scsi-hd" if kind == "logged" else "usb-storage"
            driver = "scsi-cd" if device == "sr0" else disk
            self.order("blockdev-add", **{"node-name": name, **node(image, kind)})
            self.order("device_add", driver=driver, drive=name, id=name)
        self.until(f"[ -b /dev/{device} ]")
        self.sh(f"mount -o {options} /dev/{device} /mnt/{place}")

    def pull(self):
        """All media, which stay mounted."""
        for device, name in self.media.items():
            self.order("device_del", id=name)
            self.until(f"[ ! -b /dev/{device} ]")
        self.media = {}

    def clean(self):
        """Pulls all media, and writes what there is for the disk."""
        self.pull()
        self.sh("umount -a -t vfat,iso9660; sync")

    def start_piano(self, *options):
        """A piano without a program. Its flash has the new parameters."""
        running, self.serving = "pidof diag_server simpiano", None
        self.sh(f"kill $({running}); rm -f /sim/midi.log; true")
        self.until(f"! {running}")
        self.sh("simpiano --root / --load /usr/local/new.bin@90040000 --allow-gaps "
                f"--save /usr/local/flash.bin {' '.join(options)} >/tmp/piano 2>&1 &")
        self.until("grep -q ready /tmp/piano")

    def serve(self, words, start="exec"):
        """A server with these words, whose read-back has failed, so that it serves."""
        if self.serving != words or start != "exec":
            self.start_piano("--bad-checksum-at", "90040000")
            self.sh(f"({start} diag_server {words}) >/dev/null 2>&1 &")
            self.ask("version")  # waits for the end of the read-back
            self.serving = words

    def start_asking(self, command):
        return subprocess.Popen(
            ["../release/diagctl", "--port", str(self.port), "--wait", "90", command],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def ask(self, command):
        """What the controller receives."""
        return self.start_asking(command).communicate(timeout=SECONDS)[0]
