#!/usr/bin/python3 -B
"""Power cuts: ext4 on a disk that records writes and flushes, and what is readable when the power comes back.

usage, as root in a mount and a process namespace of its own: power.py ROOT QUILCAT CUTS SECONDS

The daemon writes for SECONDS, in each mode with and without syncSeconds. Then the disk is made as it would have been
at CUTS random moments of each kind: with all blocks written by then, or with random ones missing of those that no flush
had made safe. Each disk is mounted, so that the kernel replays the journal, and read; a daemon is started on it
and has to go on; the file system is checked.
"""

import concurrent.futures
import os
import random
import subprocess
import sys
import tempfile
import time

import kept
import store

SIZE = 32 << 20
BLOCK = 4096
SETTLED = 45  # seconds: more than the kernel leaves anything unwritten
# At random moments, all blocks written by then; among the blocks of random writes, in order; at random writes, some of
# the blocks that no flush had made safe yet.
KINDS = ('in-order', 'amid-writes', 'dropped')
CASES = [(mode, sync) for mode in ('mmap', 'factory') for sync in (0, 5)]


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout.strip()


def device(root, data, *arguments):
    """power-device.py in a test device that has `data` as its /data."""
    return subprocess.Popen([f'{root}/tests/test-device', f'{root}/scripts/soak-parts/power-device.py', *arguments],
                            env={**os.environ, 'TEST_DEVICE_BUILD': root, 'TEST_DEVICE_DATA': data})


class Recording:
    """A daemon at work on a disk of its own."""

    def __init__(self, work, mode, sync):
        self.mode, self.sync = mode, sync
        self.path = f'{work}/{mode}-{sync}'
        self.record, self.data = self.path + '/record', self.path + '/data'
        for directory in 'store', 'data':
            os.makedirs(f'{self.path}/{directory}')
        self.store = subprocess.Popen([os.path.dirname(__file__) + '/store.py', self.path + '/store', self.record,
                                       str(SIZE)])
        disk = self.path + '/store/disk'
        while not os.path.exists(disk):
            time.sleep(0.01)
        loop = run('losetup', '-f', '--show', '--direct-io=on', disk)
        run('mkfs.ext4', '-q', '-b', str(BLOCK), '-E', 'nodiscard,lazy_itable_init=0,lazy_journal_init=0', loop)
        run('mount', loop, self.data)
        run('losetup', '-d', loop)  # goes when it is unmounted, whatever ends this process

    def start(self, root, program, seconds):
        self.begin, self.end = time.monotonic(), time.monotonic() + seconds
        self.process = device(root, self.data, 'load', program, self.mode, str(self.sync), str(seconds))

    def finish(self):
        if self.process.wait() != 0:
            raise RuntimeError('the load ended by itself')
        self.release()

    def release(self):
        run('umount', self.data)
        # The loop device lets go of its file some time after.
        while subprocess.run(['umount', self.path + '/store'], capture_output=True).returncode != 0:
            time.sleep(0.05)
        self.store.wait()


def disks(record, moments):
    """For each moment in order: the disk as far as a flush made it safe, and the (offset, block) written since."""
    safe, pending, records = bytearray(SIZE), [], store.read_record(record)
    following = next(records, None)
    for moment in moments:
        while following is not None and following[0] <= moment:
            _, offset, data = following
            if data is None:
                apply(safe, pending)
                pending = []
            else:
                pending += [(offset + at, data[at:at + BLOCK]) for at in range(0, len(data), BLOCK)]
            following = next(records, None)
        yield moment, safe, pending


def apply(disk, blocks):
    for offset, data in blocks:
        disk[offset:offset + len(data)] = data


class Cuts:
    """What one kind of cut left in one case."""

    def __init__(self, case, root, program, kind):
        self.case, self.root, self.program, self.kind = case, root, program, kind
        self.seconds = []
        self.torn = self.missing = self.repeated = self.damaged = self.not_resumed = 0

    def survivors(self, pending):
        """Those of the blocks since the last flush that reach the disk."""
        if self.kind == 'amid-writes':
            return pending[:random.randint(0, len(pending))]
        if self.kind == 'dropped':
            share = random.random()
            return [block for block in pending if random.random() < share]
        return pending

    def add(self, moment, disk):
        name = f'{self.kind}-{len(self.seconds)}'
        image, mounted = f'{self.case.path}/{name}.image', f'{self.case.path}/{name}'
        with open(image, 'wb') as file:
            file.write(disk)
        os.mkdir(mounted)
        run('mount', '-o', 'loop', image, mounted)
        try:
            good = self.examine(moment, mounted)
        finally:
            run('umount', mounted)
        while run('losetup', '-j', image):  # the test device that had it goes by and by
            time.sleep(0.01)
        damaged = subprocess.run(['e2fsck', '-fn', image], capture_output=True).returncode != 0
        self.damaged += damaged
        if damaged or not good:
            self.keep(disk, name)
        os.unlink(image)

    def keep(self, disk, name):
        """The disk as the cut left it."""
        os.makedirs(f'{self.root}/build/soak', exist_ok=True)
        with open(f'{self.root}/build/soak/{self.case.mode}-{self.case.sync}-{name}.image', 'wb') as file:
            file.write(disk)

    def examine(self, moment, mounted):
        """False: the daemon could not go on here, or text that was there is gone."""
        output = mounted + '/log/power/cat'
        log = kept.read(self.case.mode, output)
        self.seconds.append(moment - (log.times[-1] if log.times else self.case.begin))
        self.torn += log.torn
        self.missing += log.missing()
        self.repeated += log.repeated()
        resumed = device(self.root, mounted, 'resume', self.program, self.case.mode, str(self.case.sync)).wait() == 0
        after = kept.read(self.case.mode, output)
        # The first new line may stand right behind a broken one.
        good = (resumed and set(log.numbers) <= set(after.numbers) and
                after.numbers[-9:] == list(range(10**6 + 1, 10**6 + 10)))
        self.not_resumed += not good
        return good

    def row(self):
        return [self.case.mode, self.case.sync or '', self.kind, len(self.seconds), kept.median(self.seconds),
                max(self.seconds), self.torn, self.missing, self.repeated, self.not_resumed, self.damaged]


def cut(case, root, program, count):
    kinds = [Cuts(case, root, program, kind) for kind in KINDS]
    first = case.begin + SETTLED
    writes = [moment for moment, _, data in store.read_record(case.record) if data and first < moment < case.end]
    moments = sorted([(random.uniform(first, case.end), kinds[0]) for _ in range(count)] +
                     [(random.choice(writes), kind) for kind in kinds[1:] for _ in range(count)],
                     key=lambda pair: pair[0])
    states = disks(case.record, (moment for moment, _ in moments))
    for (_, kind), (moment, safe, pending) in zip(moments, states):
        disk = bytearray(safe)
        apply(disk, kind.survivors(pending))
        kind.add(moment, disk)
    return kinds


def main():
    root, program, count, seconds = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4])
    with tempfile.TemporaryDirectory() as work:
        run('mount', '-t', 'tmpfs', 'none', work)
        cases = [Recording(work, mode, sync) for mode, sync in CASES]
        for case in cases:
            case.start(root, program, seconds + SETTLED)
        for case in cases:
            case.finish()
        with concurrent.futures.ThreadPoolExecutor() as pool:
            cuts = [kind for kinds in pool.map(lambda case: cut(case, root, program, count), cases) for kind in kinds]
        run('umount', work)
    kept.print_table(['mode', 'syncSeconds', 'cuts', 'number', 'median s lost', 'most s lost', 'torn', 'missing',
                      'repeated', 'not resumed', 'file systems damaged'], [kind.row() for kind in cuts])
    ordered = [kind for kind in cuts if kind.kind != 'dropped']
    return any(kind.missing for kind in ordered) or any(kind.not_resumed or kind.damaged for kind in cuts)


if __name__ == '__main__':
    sys.exit(main())
