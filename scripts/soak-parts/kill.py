#!/usr/bin/python3 -B
"""Kills the daemon with SIGKILL at random moments, starts it again, and looks at what is there.

usage, in a test device: kill.py QUILCAT KILLS   so many in each mode under full load, and a tenth under a trickle
"""

import os
import random
import shutil
import signal
import sys
import time

import kept
import service

OUTPUT = '/data/log/%s/cat'


class Figures:
    """Of all kills in one mode under one load."""

    def __init__(self, mode, load):
        self.mode, self.load = mode, load
        self.kills = self.lines = self.torn = self.missing = self.repeated = self.wrong_ends = 0
        self.seconds = []

    def add(self, killed_at, before, after, status):
        """What was there right after a kill, and what after the next start was closed."""
        self.kills += 1
        self.lines += len(before.numbers)
        self.torn += before.torn
        self.missing += before.missing() + missing_behind(before, after)
        self.repeated += after.repeated()
        self.wrong_ends += status != 12
        lost = not before.numbers or after.numbers[len(before.numbers)] != before.numbers[-1] + 1
        self.seconds.append(killed_at - before.times[-1] if before.numbers and lost else 0.0)

    def row(self):
        return [self.mode, self.load, self.kills, self.lines, f'{kept.median(self.seconds):.2f}',
                f'{max(self.seconds):.2f}', self.torn, self.missing, self.repeated, self.wrong_ends]


def missing_behind(before, after):
    """Lines that were there and went with the next start, and lines that this start missed itself."""
    went = len(set(before.numbers) - set(after.numbers))
    own = after.numbers[len(before.numbers):]
    return went + (own[-1] - own[0] + 1 - len(own) if own else 0)


def finish(program, name, node):
    """The next start takes what the node kept, and some lines more."""
    daemon = service.Daemon(program, name).wait_until_running()
    service.wait_for(lambda: node.write(50), 20)
    node.finish()
    return daemon.close()


def kill_under_full_load(program, figures, rotate):
    """Fed as fast as it reads."""
    shutil.rmtree('/data/log', ignore_errors=True)
    output, killed_at = OUTPUT % 'full', []
    node = service.Node('/tmp/node')
    service.configure(service.xml('full', figures.mode, output, node.path, rotate))
    daemon = service.Daemon(program, 'full')
    service.wait_for(daemon.is_running, 20)

    def kill(*_):
        os.kill(daemon.pid, signal.SIGKILL)
        killed_at.append(time.monotonic())

    signal.signal(signal.SIGALRM, kill)
    signal.setitimer(signal.ITIMER_REAL, random.uniform(0.001, 0.25))
    while not killed_at:
        node.write(100)
    daemon.process.wait()
    before = kept.read(figures.mode, output)
    status = finish(program, 'full', node)
    figures.add(killed_at[0], before, kept.read(figures.mode, output), status)
    node.close()


def kill_under_trickle(program, figures, count):
    """Twenty lines a second: what is lost then is what waits for the timer. All at a time, each at its own moment."""
    shutil.rmtree('/data/log', ignore_errors=True)
    names = [f'trickle{i}' for i in range(count)]
    nodes = {name: service.Node(f'/tmp/{name}') for name in names}
    service.configure(*(service.xml(name, figures.mode, OUTPUT % name, nodes[name].path) for name in names))
    daemons = {name: service.Daemon(program, name) for name in names}
    for daemon in daemons.values():
        daemon.wait_until_running()
    start = time.monotonic()
    moments = {name: start + random.uniform(1, 16) for name in names}
    killed_at = {}
    while len(killed_at) < count:
        for name in names:
            if name not in killed_at and time.monotonic() > moments[name]:
                daemons[name].kill()
                killed_at[name] = time.monotonic()
            nodes[name].write()
        time.sleep(0.05)
    for name in names:
        before = kept.read(figures.mode, OUTPUT % name)
        status = finish(program, name, nodes[name])
        figures.add(killed_at[name], before, kept.read(figures.mode, OUTPUT % name), status)
        nodes[name].close()


def main():
    program, kills = sys.argv[1], int(sys.argv[2])
    rows = []
    for mode in 'mmap', 'factory':
        full = Figures(mode, 'full')
        for i in range(kills):
            kill_under_full_load(program, full, (16, 256, 4096)[i % 3])
        rows.append(full)
        trickle = Figures(mode, '20 lines/s')
        left = max(1, kills // 10)
        while left > 0:
            kill_under_trickle(program, trickle, min(left, 25))
            left -= 25
        rows.append(trickle)
    kept.print_table(['mode', 'load', 'kills', 'lines', 'median s lost', 'most s lost', 'torn', 'missing',
                      'repeated', 'not closed with 12'], [figures.row() for figures in rows])
    return any(figures.missing or figures.repeated or figures.wrong_ends for figures in rows)


if __name__ == '__main__':
    sys.exit(main())
