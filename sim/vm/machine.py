"""A virtual machine with a real kernel, the unit's disk and its media, and a shell in it."""

import atexit
import json
import os
import socket
import subprocess
import time

BOOT_SECONDS = {"kvm": 60, "tcg": 150}  # /dev/kvm may exist and not work
CONTROLLER_PORT = 4917


class Lines:
    """Lines over a UNIX socket of qemu, each awaited for a limited time."""

    def __init__(self, path, deadline):
        self.socket, self.rest = socket.socket(socket.AF_UNIX), b""
        while self.socket.connect_ex(path) != 0:
            if time.monotonic() > deadline:
                raise TimeoutError(path)
            time.sleep(0.05)

    def write(self, text):
        self.socket.sendall(text.encode() + b"\n")

    def read(self, deadline):
        while b"\n" not in self.rest:
            self.socket.settimeout(max(0.01, deadline - time.monotonic()))
            data = self.socket.recv(65536)
            if not data:
                raise EOFError("the machine has ended")
            self.rest += data
        line, self.rest = self.rest.split(b"\n", 1)
        return line.decode(errors="replace").rstrip("\r")


def plain(path, **options):
    return {"driver": "raw", **options, "file": {"driver": "file", "filename": path}}


def logged(path, log):
    """Appends each write and each flush of the image to the log, too."""
    with open(log, "wb"):
        return {"driver": "blklogwrites", "file": plain(path), "log-super-update-interval": 1,
                "log": {"driver": "file", "filename": log}}


def failing(path, sectors):
    """Writes to the sectors fail."""
    return {"driver": "blkdebug", "image": plain(path),
            "inject-error": [{"event": "none", "iotype": "write", "errno": 5, "sector": each}
                             for each in sectors]}


class Machine:
    def __init__(self, folder, disk, floppy, log="console.log", words=""):
        """Boots the kernel in the folder. `disk` and `floppy` are nodes as above."""
        self.folder, self.nodes = folder, 0
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.port = probe.getsockname()[1]
        options = ["-m", "512", "-smp", "2", "-nodefaults", "-no-user-config", "-no-reboot"]
        options += ["-display", "none", "-kernel", f"{folder}/vmlinuz"]
        options += ["-initrd", f"{folder}/initramfs", "-append", "console=ttyS0 quiet panic=-1 "
                    "usb-storage.delay_use=0 " + words]
        options += ["-serial", f"file:{folder}/{log}" if log else "mon:stdio"]
        options += ["-serial", f"unix:{folder}/control,server=on,wait=off"]
        options += ["-qmp", f"unix:{folder}/monitor,server=on,wait=off"]
        for name, node in (("disk", disk), ("floppy", floppy)):
            options += ["-blockdev", json.dumps({"node-name": name, **node})]
        for device in ("virtio-blk-pci,drive=disk", "floppy,drive=floppy", "qemu-xhci,id=usb",
                       "virtio-scsi-pci,id=scsi"):
            options += ["-device", device]
        options += ["-nic", "user,model=virtio-net-pci,restrict=on,hostfwd=tcp:127.0.0.1:"
                    f"{self.port}-:{CONTROLLER_PORT}"]
        atexit.register(self.kill)
        for accelerator in ["kvm", "tcg"] if os.access("/dev/kvm", os.W_OK) else ["tcg"]:
            self.process = subprocess.Popen(
                ["qemu-system-x86_64", "-accel", accelerator, *options],
                stdin=subprocess.DEVNULL if log else None, stderr=open(f"{folder}/qemu.log", "w"))
            try:
                return self.connect(time.monotonic(), accelerator)
            except (TimeoutError, EOFError, OSError):
                self.kill()
        raise TimeoutError(f"the machine doesn't boot; see {folder}/{log}")

    def connect(self, started, accelerator):
        deadline = started + BOOT_SECONDS[accelerator]
        self.monitor = Lines(f"{self.folder}/monitor", deadline)
        self.control = Lines(f"{self.folder}/control", deadline)
        self.monitor.read(deadline)
        self.order("qmp_capabilities")
        while self.control.read(deadline) != "ready":
            pass
        self.started = f"booted with {accelerator} in {time.monotonic() - started:.0f} s"

    def order(self, command, **arguments):
        """A command of qemu's monitor, with its answer."""
        self.monitor.write(json.dumps({"execute": command, "arguments": arguments}))
        while True:
            answer = json.loads(self.monitor.read(time.monotonic() + 30))
            if "error" in answer:
                raise RuntimeError(answer["error"]["desc"])
            if "return" in answer:
                return answer["return"]

    def sh(self, command, seconds=60):
        """Runs the command in the machine. Returns its output if it succeeds."""
        self.control.write(command)
        lines, deadline = [], time.monotonic() + seconds
        while not (line := self.control.read(deadline)).startswith("== "):
            lines.append(line)
        if line != "== 0":
            raise RuntimeError(f"{command}: {' '.join(lines)} (status {line[3:]})")
        return "\n".join(lines)

    def until(self, condition, seconds=60):
        self.sh(f"i=0; until {condition}; do [ $((i+=1)) -lt {seconds * 10} ] || exit 1;"
                " sleep 0.1; done", seconds + 30)

    def plug(self, node, device="sda", driver="usb-storage", bus="usb.0"):
        """Plugs a medium in, and waits for its device. Returns what `pull` takes."""
        self.nodes += 1
        name = f"medium{self.nodes}"
        self.order("blockdev-add", **{"node-name": name, **node})
        self.order("device_add", driver=driver, drive=name, id=name, bus=bus)
        self.until(f"[ -b /dev/{device} ]")
        return name

    def pull(self, name):
        self.order("device_del", id=name)
        for attempt in range(100):
            try:
                return self.order("blockdev-del", **{"node-name": name})
            except RuntimeError:  # still in use
                time.sleep(0.1)
        raise TimeoutError(f"{name} is still in use")

    def kill(self):
        """The power cut."""
        self.process.kill()
        self.process.wait()
        for name in ("monitor", "control"):
            if os.path.exists(f"{self.folder}/{name}"):
                os.unlink(f"{self.folder}/{name}")
