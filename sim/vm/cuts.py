"""Power cuts: what a disk may contain when the power fails, from a log of its writes."""

import concurrent.futures
import os
import random
import struct
import subprocess
import tempfile

SECTOR, PAGE = 512, 4096
MAGIC = 0x6A736677736872
FLUSH, FORCED = 1, 2
SUBSETS = 4  # random ones between two flushes

def count(log):
    """The number of entries so far."""
    with open(log, "rb") as file:
        magic, version, number, size = struct.unpack("<QQQL", file.read(28))
    assert (magic, version, size) == (MAGIC, 1, SECTOR), "not a log of writes"
    return number

def writes(log, atom):
    """(entry, flags, offset, bytes) of each write. The disk writes `atom` bytes at once or none;
    long writes are cut into pages, so that they aren't too many."""
    with open(log, "rb") as file:
        file.seek(SECTOR)
        for entry in range(1, count(log) + 1):
            sector, sectors, flags, private = struct.unpack("<QQQQ", file.read(32))
            file.seek(SECTOR - 32 + private, os.SEEK_CUR)
            data = file.read(sectors * SECTOR)
            step = atom if len(data) <= PAGE else PAGE
            for at in range(0, max(1, len(data)), step):
                yield entry, flags, sector * SECTOR + at, data[at:at + step]

def read_pages(path):
    """The pages of the image that aren't zero."""
    with open(path, "rb") as file:
        pages = ((at, file.read(PAGE)) for at in range(0, os.path.getsize(path), PAGE))
        return {at: page for at, page in pages if page.strip(b"\0")}

def put(pages, changes):
    """A copy of the pages with the changes."""
    pages = dict(pages)
    for offset, data in changes:
        for at in range(0, len(data), SECTOR):
            first, inside = divmod(offset + at, PAGE)
            page = bytearray(pages.get(first * PAGE, bytes(PAGE)))
            page[inside:inside + SECTOR] = data[at:at + SECTOR]
            pages[first * PAGE] = bytes(page)
    return pages

def cuts(image, log, atom, start):
    """(entries passed, pages) of each cut: after each write; and between two flushes, where a disk
    may reorder, without each single write and without random ones."""
    chance = random.Random(17)
    durable, since = read_pages(image), []
    for entry, flags, offset, data in [*writes(log, atom), (count(log) + 1, FLUSH, 0, b"")]:
        if flags & FLUSH and since:
            loose = [each for each in since if not each[2]]
            for missing in [[each] for each in loose] + [
                    [each for each in loose if chance.random() < 0.5] for _ in range(SUBSETS)]:
                if entry > start:
                    yield entry - 1, put(durable, [x[:2] for x in since if x not in missing])
            durable, since = put(durable, [each[:2] for each in since]), []
        if data:
            since.append((offset, data, flags & FORCED))
            if entry > start:
                yield entry, put(durable, [each[:2] for each in since])

def run(*command):
    done = subprocess.run(command, capture_output=True, timeout=60, check=False)
    return done.returncode, done.stdout

def repair_and_read(path, name):
    """What the file contains after the repair that a unit makes; a text says why it can't."""
    with open(path, "rb") as file:
        is_fat = file.read(PAGE)[510:512] == b"\x55\xaa"
    if run(*(["fsck.vfat", "-a"] if is_fat else ["e2fsck", "-p"]), path)[0] > 2:
        return "not repaired"
    if is_fat:
        status, data = run("mcopy", "-n", "-i", path, "::" + name, "-")
        return "missing" if status else data
    found = run("debugfs", "-R", "stat " + name, path)[1]
    return run("debugfs", "-R", "cat " + name, path)[1] if found else "missing"

def sweep(image, log, name, allowed, start, reported):
    """Tries each cut after `start` entries. The file must be one of those that are allowed, and
    after `reported` entries the last. Returns the number of images and what is wrong."""
    atom = SECTOR if open(image, "rb").read(PAGE)[510:512] == b"\x55\xaa" else PAGE
    size = os.path.getsize(image)

    def attempt(cut):
        with tempfile.NamedTemporaryFile(dir="/dev/shm") as file:
            os.truncate(file.name, size)
            for at, page in cut[1].items():
                os.pwrite(file.fileno(), page, at)
            data = repair_and_read(file.name, name)
        if data in (allowed if cut[0] < reported else allowed[-1:]):
            return None
        what = data if isinstance(data, str) else f"{len(data)} bytes"
        return f"cut after write {cut[0]}: {'the old one' if data == allowed[0] else what}"

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        results = list(pool.map(attempt, cuts(image, log, atom, start)))
    return len(results), [each for each in results if each]
