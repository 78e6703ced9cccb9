#!/usr/bin/python3 -B
"""Fills the disk under the daemon and empties it again, in both modes, with and without onWriteFailure="retry".

usage, in a test device: full.py QUILCAT TIMES
"""

import os
import random
import subprocess
import sys
import time

import kept
import service

DISK = 16 << 20
NODE = 1 << 20  # what the node keeps: some seconds more than the disk is full
TURN = 0.05


class Disk:
    """A small file system, and the file that takes what is free there."""

    def __init__(self, path):
        os.makedirs(path)
        subprocess.run(['mount', '-t', 'tmpfs', '-o', f'size={DISK}', 'none', path], check=True)
        self.ballast = path + '/ballast'

    def fill(self):
        with open(self.ballast, 'ab', buffering=0) as file:
            for size in 1 << 20, 4096:  # the last pages by themselves
                try:
                    while file.write(bytes(size)) == size:
                        pass
                except OSError:
                    pass

    def empty(self):
        os.unlink(self.ballast)


class Case:
    def __init__(self, program, mode, retry, times):
        self.mode, self.retry, self.left, self.fills = mode, retry, times, 0
        self.name = mode + ('-retry' if retry else '')
        self.disk = Disk(f'/data/log/{self.name}')
        self.output = f'/data/log/{self.name}/cat'
        self.node = service.Node(f'/tmp/{self.name}', NODE)
        self.offered = 0
        self.full = False
        self.next = time.monotonic() + random.uniform(0.5, 1.5)
        self.program = program
        self.daemon = None

    def xml(self):
        return service.xml(self.name, self.mode, self.output, self.node.path, 64, 1000, self.retry)

    def start(self):
        self.daemon = service.Daemon(self.program, self.name).wait_until_running()

    def turn(self):
        """Some lines, which the node loses when it has no room, and perhaps the disk fills or empties."""
        self.offered += 20
        self.node.write(20)
        if self.full:
            self.disk.fill()  # the daemon may have given up room
        if time.monotonic() < self.next or (self.left == 0 and not self.full):
            return
        self.full = not self.full
        if self.full:
            self.left -= 1
            self.fills += 1
        else:
            self.disk.empty()
        self.next = time.monotonic() + random.uniform(0.5, 2.5)

    def is_done(self):
        return self.left == 0 and not self.full

    def row(self):
        """After some lines more on a disk with room."""
        self.node.finish(20 if self.retry else 2)  # without "retry" perhaps nobody reads any more
        alive = self.daemon.is_alive()
        status = self.daemon.close()
        log = kept.read(self.mode, self.output)
        row = [self.mode, 'retry' if self.retry else '', self.fills, self.offered,
               self.offered - len(set(log.numbers)), log.repeated(), log.files, log.archives, log.torn,
               'yes' if alive else 'NO', status]
        # Without "retry" a failure loses text, and a plain file ends in the line that had no room.
        good = alive and status == 12 and not log.repeated()
        return row, good and (not self.retry or (row[4] == 0 and log.torn == 0))


def main():
    program, times = sys.argv[1], int(sys.argv[2])
    cases = [Case(program, mode, retry, times) for mode in ('mmap', 'factory') for retry in (True, False)]
    service.configure(*(case.xml() for case in cases))
    for case in cases:
        case.start()
    end = None
    while end is None or time.monotonic() < end:
        for case in cases:
            case.turn()
        time.sleep(TURN)
        if end is None and all(case.is_done() for case in cases):
            end = time.monotonic() + 3
    results = [case.row() for case in cases]
    kept.print_table(['mode', 'onWriteFailure', 'times full', 'lines', 'missing', 'repeated', 'files', 'archives',
                      'torn', 'alive', 'status'], [row for row, _ in results])
    return not all(good for _, good in results)


if __name__ == '__main__':
    sys.exit(main())
