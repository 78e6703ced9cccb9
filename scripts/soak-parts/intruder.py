#!/usr/bin/python3 -B
"""A process of group system that may write in the log directories tries to gain root's files.

usage, in a test device: intruder.py QUILCAT SECONDS

Two services, one in each mode, rotate as fast as they can. As user 2000 and group 1000, which owns their directories,
processes watch these by inotify and put links, pipes, directories and files of their own where the daemon is about to
open, rename or pack, and empty what it has open. Beside the logs lie files and directories of root's, which nobody but
root may change, and a text that nobody but root may read.
"""

import ctypes
import glob
import os
import random
import select
import shutil
import subprocess
import sys
import time

import kept
import service

INTRUDER, SYSTEM = 2000, 1000
EVENTS = 0x100 | 0x80 | 0x40 | 0x20  # IN_CREATE, IN_MOVED_TO, IN_MOVED_FROM, IN_OPEN
SECRET = 'the secret of root'
TREASURE = '/data/treasure'
FILES = {f'{TREASURE}/secret': 0o600, f'{TREASURE}/public': 0o644, f'{TREASURE}/closed/inner': 0o600}
DIRECTORIES = {f'{TREASURE}/closed': 0o700, TREASURE: 0o755}
SERVICES = {'mmap': '/data/log/mmap/cat', 'factory': '/data/log/factory/cat'}
TRIES_WITHOUT_EVENT = 0.005


def lay_out_treasure():
    for directory in reversed(DIRECTORIES):
        os.makedirs(directory)
    for path, mode in FILES.items():
        with open(path, 'w') as file:
            file.write(SECRET + path)
        os.chmod(path, mode)
    for path, mode in DIRECTORIES.items():
        os.chmod(path, mode)


def treasure():
    """All that the intruder must not change: names, contents, owners, modes and the inodes' times but of reading."""
    found = {}
    for directory, directories, files in os.walk(TREASURE):
        for path in [directory] + [f'{directory}/{name}' for name in directories + files]:
            status = os.lstat(path)
            content = open(path).read() if os.path.isfile(path) else sorted(os.listdir(path))
            found[path] = (status.st_mode, status.st_uid, status.st_gid, status.st_ino, status.st_nlink, status.st_size,
                           status.st_mtime_ns, status.st_ctime_ns, str(content))
    return found


class Intruder:
    """In a process of its own. Most of what it tries fails; it counts what succeeds."""

    def __init__(self, mode, output, seed):
        self.mode, self.output, self.directory = mode, output, os.path.dirname(output)
        self.seed, self.random = seed, random.Random(seed)
        self.done = 0

    def run(self, seconds):
        os.setgroups([])
        os.setresgid(SYSTEM, SYSTEM, SYSTEM)
        os.setresuid(INTRUDER, INTRUDER, INTRUDER)
        os.umask(0)
        libc = ctypes.CDLL(None)
        watch = libc.inotify_init1(os.O_NONBLOCK)
        libc.inotify_add_watch(watch, self.directory.encode(), EVENTS)
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            names = []
            if select.select([watch], [], [], TRIES_WITHOUT_EVENT)[0]:
                names = [name for name in event_names(os.read(watch, 4096)) if name]
            for path in [f'{self.directory}/{name}' for name in names[-2:]] + [self.usual_place()]:
                self.done += self.attempt(self.take_place, path)
        return self.done

    def attempt(self, action, *arguments):
        try:
            action(*arguments)
            return True
        except OSError:
            return False

    def usual_place(self):
        o = self.output
        if self.mode == 'mmap':
            newest = (glob.glob(f'{o}.I*') or [o])[-1]
            return self.random.choice([o, o + '.1', newest])
        return self.random.choice([o, o + '.1', o + '.5', o + '_tmp', o + '_tmp', o + '-0.tar.gz', o + '-1.tar.gz'])

    def take_place(self, path):
        """Moves away or empties what stands there, and puts something else in its place."""
        if self.random.random() < 0.2:
            os.truncate(path, self.random.choice([0, 100, 1 << 20]))
            return
        if os.path.lexists(path):
            self.random.choice([self.move_away, self.move_away, os.unlink])(path)
        if self.random.random() < 0.7:  # else the daemon gets on
            self.random.choice([self.link] * 3 + [self.hard_link, self.own_file, os.mkfifo, self.lay_trap])(path)

    def move_away(self, path):
        target = f'{self.directory}/away-{self.seed}-{self.random.randrange(20)}'
        self.attempt(self.clear, target)  # a directory that is not empty takes no other
        os.rename(path, target)

    def clear(self, directory):
        """Not by shutil.rmtree, which waits at a fifo that came in the directory's place."""
        for name in os.listdir(directory):
            os.unlink(f'{directory}/{name}')

    def target(self):
        return self.random.choice(list(FILES) + [f'{TREASURE}/new', f'{TREASURE}/closed/new', TREASURE, '/etc/passwd',
                                                 f'{TREASURE}/closed'])

    def link(self, path):
        os.symlink(self.target(), path)

    def hard_link(self, path):
        os.link(self.random.choice([f'{TREASURE}/public', f'{self.directory}/away-0-0']), path)

    def own_file(self, path):
        with open(path, 'x') as file:
            file.write('planted\n')

    def lay_trap(self, path):
        """A directory with links under all names that the daemon uses in its own."""
        os.mkdir(path, 0o777)
        base = os.path.basename(self.output)
        for name in ['unfinished.tar.gz', 'packed.tar.gz'] + [f'{base}.{number}' for number in range(1, 6)]:
            os.symlink(self.target(), f'{path}/{name}')


def event_names(events):
    """struct inotify_event: three words, then the length of the name, then the name."""
    at = 0
    while at < len(events):
        length = int.from_bytes(events[at + 12:at + 16], sys.byteorder)
        yield events[at + 16:at + 16 + length].rstrip(b'\0').decode(errors='replace')
        at += 16 + length


def spawn(mode, output, seed, seconds):
    """A pipe that gives the number of successful tries."""
    reading, writing = os.pipe()
    if os.fork() == 0:
        try:
            os.write(writing, str(Intruder(mode, output, seed).run(seconds)).encode())
        finally:
            os._exit(0)
    os.close(writing)
    return reading


def read_secret(directory):
    """Files below a log directory that hold the secret, though nobody put a link there that leads to it."""
    found = 0
    for path in (f'{where}/{name}' for where, _, names in os.walk(directory) for name in names):
        if os.path.islink(path) or not os.path.isfile(path):
            continue
        with open(path, 'rb') as file:
            data = file.read()
        if data[:2] == b'\x1f\x8b':
            data = subprocess.run(['zcat', path], capture_output=True).stdout
        found += SECRET.encode() in data
    return found


def goes_on(mode, output, daemon, node):
    """With the intruder gone and its things cleared away, lines reach the log again, and the daemon closes."""
    for entry in os.scandir(os.path.dirname(output)):
        shutil.rmtree(entry) if entry.is_dir(follow_symlinks=False) else os.unlink(entry)
    service.wait_for(lambda: node.write(1), 5)
    node.finish()
    time.sleep(2)
    first = node.written
    service.wait_for(lambda: node.write(100), 5)
    node.finish()
    status = daemon.close()
    return set(range(first, first + 100)) <= set(kept.read(mode, output).numbers), status


def main():
    program, seconds = sys.argv[1], int(sys.argv[2])
    lay_out_treasure()
    before = treasure()
    nodes = {mode: service.Node(f'/tmp/{mode}') for mode in SERVICES}
    service.configure(*(service.xml(mode, mode, output, nodes[mode].path, 2, 10, retry=True)
                        for mode, output in SERVICES.items()))
    daemons = {mode: service.Daemon(program, mode).wait_until_running() for mode in SERVICES}
    intruders = {mode: [spawn(mode, SERVICES[mode], seed, seconds) for seed in range(2)] for mode in SERVICES}
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        for node in nodes.values():
            node.write(10)
        time.sleep(0.005)
    rows = []
    for mode, output in SERVICES.items():
        tries = sum(int(os.read(pipe, 20) or 0) for pipe in intruders[mode])
        leaked = read_secret(os.path.dirname(output))
        alive = daemons[mode].is_alive()
        resumed, status = goes_on(mode, output, daemons[mode], nodes[mode])
        rows.append([mode, seconds, tries, nodes[mode].written, leaked, 'yes' if alive else 'NO',
                     'yes' if resumed else 'NO', status])
    after = treasure()
    kept.print_table(['mode', 's', 'successful tries', 'lines', 'files with the secret', 'alive', 'goes on', 'status'],
                     rows)
    changed = sorted(path for path in before.keys() | after.keys() if before.get(path) != after.get(path))
    print(f"root's files and directories that changed or appeared: {len(changed)}", *changed)
    for path in changed:
        print(path, before.get(path), after.get(path), sep='\n  ', file=sys.stderr)
    return bool(changed) or any(row[4] or row[5:] != ['yes', 'yes', 12] for row in rows)


if __name__ == '__main__':
    sys.exit(main())
