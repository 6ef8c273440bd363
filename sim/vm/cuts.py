"""Power cuts: what a disk may contain when the power fails, from a log of its writes."""

import concurrent.futures
import os
import random
import struct
import subprocess
import tempfile

SECTOR, PAGE = 512, 4096
FLUSH = 1  # flag of an entry: all writes before it are durable
SUBSETS = 4  # random ones between two flushes

def run(*command, check=True):
    return subprocess.run(command, check=check, capture_output=True, timeout=200)

def read_file(image, file, changes=()):
    """What the file contains after the (offset, bytes) were written and the image was repaired as
    on a unit: nothing if it is missing, None if the repair fails. On the unit's disk, its path
    begins with a slash."""
    with tempfile.NamedTemporaryFile(dir="/dev/shm") as copy:
        run("cp", image, copy.name)  # keeps the holes
        for offset, data in changes:
            os.pwrite(copy.fileno(), data, offset)
        repair, read = ("fsck.vfat", "-a"), ("mcopy", "-n", "-i", copy.name, "::" + file, "-")
        if file.startswith("/"):
            repair, read = ("e2fsck", "-p"), ("debugfs", "-R", "cat " + file, copy.name)
        if run(*repair, copy.name, check=False).returncode > 2:
            return None
        return run(*read, check=False).stdout

def cuts(log, start, atom):
    """(size of the log, its writes that are on the disk) of each cut: after each write; and between
    two flushes, where a disk may reorder, without each single write and without random ones. The
    disk makes writes of `atom` bytes whole or not at all; long ones are cut into pages."""
    chance, durable, since = random.Random(17), [], []
    with open(log, "rb") as file:
        file.seek(start)
        while True:
            size, header = file.tell(), file.read(SECTOR)
            sector, sectors, flags = struct.unpack_from("<QQQ", header) if header else (0, 0, FLUSH)
            if flags & FLUSH:
                for missing in [[each] for each in since] + [
                        [each for each in since if chance.random() < 0.5] for _ in range(SUBSETS)]:
                    yield size, durable + [each for each in since if each not in missing]
                durable, since = durable + since, []
            if not header:
                return
            data = file.read(sectors * SECTOR)
            step = atom if len(data) <= PAGE else PAGE
            for at in range(0, len(data), step):
                since.append((sector * SECTOR + at, data[at:at + step]))
                yield file.tell(), durable + since

def sweep(base, log, file, old, start, reported):
    """Tries each cut from `start` on, where the disk was `base`: the file must be `old` or the new
    one, and from `reported` on the new one. Returns for each image whether it was right."""
    images = list(cuts(log, start, PAGE if file.startswith("/") else SECTOR))
    new = read_file(base, file, images[-1][1])

    def is_right(image):
        size, changes = image
        return read_file(base, file, changes) in ([new] if size >= reported else [old, new])

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return list(pool.map(is_right, images))
