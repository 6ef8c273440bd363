"""A virtual machine with a real kernel, the unit's disk and its media, and a shell in it."""

import atexit
import contextlib
import json
import os
import signal
import socket
import subprocess
import sys
import time

BOOT_SECONDS = {"kvm": 20, "tcg": 200}  # even where /dev/kvm exists, it may not work
ANSWER_SECONDS = 200  # the longest command
CONTROLLER_PORT = 4917

def plain(path, **options):
    return {"driver": "raw", **options, "file": {"driver": "file", "filename": path}}

def logged(path, log):
    """Each write and each flush of the image is appended to the log, too."""
    with open(log, "wb"):
        return {"driver": "blklogwrites", "file": plain(path), "log-super-update-interval": 1,
                "log": {"driver": "file", "filename": log}}

def failing(path, sectors):
    """Writes to the sectors fail."""
    rule = {"event": "none", "iotype": "write", "errno": 5}
    return {"driver": "blkdebug", "image": plain(path),
            "inject-error": [{**rule, "sector": each} for each in sectors]}

class Machine:
    def __init__(self, folder, disk, console=False):
        """Boots the kernel in the folder. `disk` is a node as above."""
        self.folder, self.media, self.number = folder, set(), 0
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        words = "console=ttyS0 quiet panic=-1 usb-storage.delay_use=0" + console * " shell"
        options = ["-m", "512", "-smp", "2", "-nodefaults", "-no-reboot", "-display", "none",
                   "-kernel", f"{folder}/vmlinuz", "-initrd", f"{folder}/initramfs",
                   "-append", words,
                   "-serial", "mon:stdio" if console else f"file:{folder}/console.log",
                   "-serial", f"unix:{folder}/control,server=on,wait=off",
                   "-qmp", f"unix:{folder}/monitor,server=on,wait=off",
                   "-nic", "user,model=virtio-net-pci,restrict=on,"
                   f"hostfwd=tcp:127.0.0.1:{self.port}-:{CONTROLLER_PORT}",
                   "-object", "throttle-group,id=slow,x-bps-write=25000",
                   "-blockdev", json.dumps({"node-name": "disk", **disk}),
                   "-blockdev", json.dumps({"node-name": "fd", **plain(f"{folder}/floppy.img")})]
        for device in ("virtio-blk,drive=disk", "floppy,drive=fd", "qemu-xhci", "virtio-scsi"):
            options += ["-device", device]
        atexit.register(self.kill)
        signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
        for accelerator in list(BOOT_SECONDS):
            with open(f"{folder}/qemu.log", "w", encoding="utf-8") as log:
                self.process = subprocess.Popen(
                    ["qemu-system-x86_64", "-accel", accelerator, *options], stderr=log,
                    stdin=None if console else subprocess.DEVNULL)
            try:
                self.monitor = self.connect("monitor", BOOT_SECONDS[accelerator])
                self.control = self.connect("control", BOOT_SECONDS[accelerator])
                while self.control.readline().strip() != "ready":
                    if self.process.poll() is not None:
                        raise OSError("qemu has ended")
                self.order("qmp_capabilities")
                return self.link.settimeout(ANSWER_SECONDS)
            except OSError:
                self.kill()
                BOOT_SECONDS.pop(accelerator)
        raise TimeoutError(f"the machine doesn't boot; see {folder}/qemu.log")

    def connect(self, name, seconds):
        self.link, deadline = socket.socket(socket.AF_UNIX), time.monotonic() + seconds
        while self.link.connect_ex(f"{self.folder}/{name}") != 0 and time.monotonic() < deadline:
            if self.process.poll() is not None:
                break
            time.sleep(0.05)
        self.link.settimeout(seconds)
        return self.link.makefile("rw", errors="replace")

    def order(self, command, **arguments):
        """A command of qemu's monitor."""
        self.monitor.write(json.dumps({"execute": command, "arguments": arguments}) + "\n")
        self.monitor.flush()
        while "return" not in (answer := json.loads(self.monitor.readline())):
            if "error" in answer:
                raise RuntimeError(answer["error"]["desc"])

    def sh(self, command):
        """Runs the command in the machine. Returns its output if it succeeds."""
        self.control.write(command + "\n")
        self.control.flush()
        text = ""
        while not (line := self.control.readline()).startswith("== "):
            if not line:
                raise EOFError("the machine has ended")
            text += line
        if line.strip() != "== 0":
            raise RuntimeError(f"{command}: {text} status {line[3:]}")
        return text

    def until(self, condition, seconds=60):
        self.sh(f"i=0; until {condition}; do [ $((i+=1)) -lt {seconds * 10} ] || exit 1;"
                " sleep 0.1; done")

    def plug(self, node, device="sda", driver="usb-storage"):
        """Plugs a medium in, and waits for its device. Returns what `pull` takes."""
        self.number += 1
        name = f"medium{self.number}"
        self.order("blockdev-add", **{"node-name": name, **node})
        self.order("device_add", driver=driver, drive=name, id=name)
        self.media.add(name)
        self.until(f"[ -b /dev/{device} ]")
        return name

    def pull(self, name):
        self.media.discard(name)
        self.order("device_del", id=name)
        deadline = time.monotonic() + 20
        while time.monotonic() < deadline:
            with contextlib.suppress(RuntimeError):  # it is still in use
                return self.order("blockdev-del", **{"node-name": name})
            time.sleep(0.1)
        raise TimeoutError(f"{name} is still in use")

    @contextlib.contextmanager
    def inserted(self, node, device="sda", place="usb", options="rw", driver="usb-storage"):
        name = self.plug(node, device, driver)
        try:
            self.sh(f"mount -o {options} /dev/{device} /mnt/{place}")
            yield name
        finally:
            self.sh("umount -a -t vfat,iso9660; true")
            for each in list(self.media):
                self.pull(each)

    def kill(self):
        """The power cut."""
        self.process.kill()
        self.process.wait()
