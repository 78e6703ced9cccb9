#!/usr/bin/python3 -B
"""The part of power.py that runs in a test device, whose /data is the disk.

usage: power-device.py load QUILCAT MODE SYNC SECONDS   twenty lines a second for that time
       power-device.py resume QUILCAT MODE SYNC         a start and ten lines; status 0 when it closes with 12
"""

import sys
import time

import service


def main():
    what, program, mode, sync = sys.argv[1:5]
    node = service.Node('/tmp/node')
    service.configure(service.xml('power', mode, '/data/log/power/cat', node.path, 64, 1000, sync=int(sync)))
    daemon = service.Daemon(program, 'power').wait_until_running()
    if what == 'resume':
        node.written = 10**6
        node.write(10)
        return not (node.finish() and daemon.close() == 12)
    end = time.monotonic() + float(sys.argv[5])
    while time.monotonic() < end:
        node.write()
        time.sleep(0.05)
    return not daemon.is_alive()


if __name__ == '__main__':
    sys.exit(main())
