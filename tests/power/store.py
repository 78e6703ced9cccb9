#!/usr/bin/python3 -B
"""A disk that remembers: a file for a loop device, whose writes and flushes are recorded with their times.

usage: store.py DIRECTORY RECORD BYTES   mounts DIRECTORY, where the file is called "disk"; runs until it is unmounted

A record is a header and the bytes written, or a header with no bytes: a flush, behind which everything before it is
safe. The file needs direct access (losetup --direct-io), so that nothing waits in memory in front of the record.
"""

import errno
import stat
import struct
import sys
import time

HEADER = struct.Struct('<dQI')  # seconds of the monotonic clock, offset, bytes; 0 bytes: a flush
DISK = 2  # inode


def read_record(path):
    """(time, offset, bytes) in order; None for the bytes of a flush."""
    with open(path, 'rb') as file:
        while header := file.read(HEADER.size):
            moment, offset, size = HEADER.unpack(header)
            yield moment, offset, file.read(size) if size else None


def serve(directory, record, size):
    import pyfuse3
    import trio

    class Store(pyfuse3.Operations):
        def __init__(self):
            super().__init__()
            self.disk = bytearray(size)

        def note(self, offset=0, data=b''):
            record.write(HEADER.pack(time.monotonic(), offset, len(data)) + data)

        async def getattr(self, inode, ctx=None):
            entry = pyfuse3.EntryAttributes()
            entry.st_ino = inode
            entry.st_mode = stat.S_IFREG | 0o600 if inode == DISK else stat.S_IFDIR | 0o700
            entry.st_size = size if inode == DISK else 0
            return entry

        async def lookup(self, parent, name, ctx=None):
            if name != b'disk':
                raise pyfuse3.FUSEError(errno.ENOENT)
            return await self.getattr(DISK)

        async def open(self, inode, flags, ctx):
            return pyfuse3.FileInfo(fh=inode, direct_io=True)

        async def read(self, handle, offset, length):
            return bytes(self.disk[offset:offset + length])

        async def write(self, handle, offset, data):
            self.disk[offset:offset + len(data)] = data
            self.note(offset, data)
            return len(data)

        async def fsync(self, handle, datasync):
            self.note()

    pyfuse3.init(Store(), directory, {'fsname=store'})
    trio.run(pyfuse3.main)
    pyfuse3.close(unmount=False)


if __name__ == '__main__':
    with open(sys.argv[2], 'wb') as target:
        serve(sys.argv[1], target, int(sys.argv[3]))
