"""What a log holds, by a reader that shares no code with the daemon."""

import io
import os
import re
import tarfile
import zlib

# How each member begins: gzip, deflate, no flags, no time, best compression, Unix.
MEMBER = bytes.fromhex('1f8b0800000000000203')
LONGEST_MEMBER = 1 << 17
LINE = re.compile(rb'(?:\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )<6>\[(\d+)\] (\d+\.\d{3}) (a*) end')
NOTE = re.compile(rb'\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} quilcat: .*')


class Kept:
    """The lines of an output, oldest first.

    numbers, times   of each whole line
    torn             files, or members of an archive, that have a break: anything between whole members but a tail of
                     zeros; zero bytes or a broken line in plain text; an archive that cannot be read to its end
    broken_lines     what is neither a line of the feeder nor a note of the daemon
    """

    def __init__(self):
        self.numbers = []
        self.times = []
        self.torn = 0
        self.files = 0
        self.archives = 0
        self.broken_lines = 0
        self.notes = 0

    def missing(self):
        """Lines that are not there, before the last that is."""
        return len(set(range(max(self.numbers) + 1)) - set(self.numbers)) if self.numbers else 0

    def repeated(self):
        return len(self.numbers) - len(set(self.numbers))

    def take(self, text):
        """Lines of a text that begins and ends where a line does. False: it has a broken one."""
        *lines, rest = text.split(b'\n')
        whole = not rest
        self.broken_lines += not whole
        for line in lines:
            match = LINE.fullmatch(line)
            if match and len(match[3]) == int(match[1]) % 40:
                self.numbers.append(int(match[1]))
                self.times.append(float(match[2]))
            elif NOTE.fullmatch(line):
                self.notes += 1
            else:
                self.broken_lines += 1
                whole = False
        return whole


def read_mapped(output):
    """All indexed files of an output. Their order is that of their names: no soak makes a thousand."""
    kept = Kept()
    directory, base = os.path.split(output)
    for name in sorted(os.listdir(directory)):
        if name.startswith(base + '.I') and os.path.isfile(f'{directory}/{name}'):
            kept.files += 1
            with open(f'{directory}/{name}', 'rb') as file:
                text, whole = decode(file.read())
            kept.torn += not (kept.take(text) and whole)
    return kept


def decode(data):
    """The text of the whole members in a mapped file, and whether there is nothing else but zeros at the end."""
    pieces, at, whole = [], 0, True
    while at < len(data):
        if data.startswith(MEMBER, at):
            stream = zlib.decompressobj(31)
            part = data[at:at + LONGEST_MEMBER]
            try:
                text = stream.decompress(part)
            except zlib.error:
                text = b''
            if stream.eof:
                pieces.append(text)
                at += len(part) - len(stream.unused_data)
                continue
        elif not data[at:].strip(b'\0'):
            break
        whole = False
        at = data.find(MEMBER, at + 1)
        if at < 0:
            break
    return b''.join(pieces), whole


def read_factory(output):
    """Archives, rotated files and the live file of an output, also those that wait in its packing directory."""
    kept = Kept()
    base, packing = os.path.basename(output), output + '_tmp/'
    archives = [f'{output}-{number}.tar.gz' for number in range(999, -1, -1)]
    packed = packing + 'packed.tar.gz'
    for path in archives + [packed]:
        if os.path.isfile(path):
            read_archive(kept, path)
    waiting = [] if os.path.isfile(packed) else [f'{packing}{base}.{number}' for number in range(5, 0, -1)]
    for path in waiting + [f'{output}.{number}' for number in range(5, 0, -1)] + [output]:
        if os.path.isfile(path):
            kept.files += 1
            with open(path, 'rb') as file:
                kept.torn += not kept.take(file.read())
    return kept


def read_archive(kept, path):
    kept.archives += 1
    try:
        with open(path, 'rb') as file:
            stream = zlib.decompressobj(31)
            data = stream.decompress(file.read())
        kept.torn += not stream.eof
        with tarfile.open(fileobj=io.BytesIO(data)) as archive:
            for member in sorted(archive, key=lambda entry: entry.name, reverse=True):
                kept.torn += not kept.take(archive.extractfile(member).read())
    except (zlib.error, tarfile.TarError):
        kept.torn += 1


def read(mode, output):
    if not os.path.isdir(os.path.dirname(output)):
        return Kept()
    return read_mapped(output) if mode == 'mmap' else read_factory(output)


def median(values):
    values = sorted(values)
    return values[len(values) // 2] if values else 0


def print_table(titles, rows):
    """As Markdown, for docs/log-files.md."""
    rows = [[f'{cell:.1f}' if isinstance(cell, float) else str(cell) for cell in row] for row in [titles] + rows]
    widths = [max(len(row[column]) for row in rows) for column in range(len(titles))]
    rows.insert(1, ['-' * width for width in widths])
    for row in rows:
        print('| ' + ' | '.join(cell.ljust(width) for cell, width in zip(row, widths)) + ' |')
