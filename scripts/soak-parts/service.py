"""The daemon under load, in a test device: its configuration, its process, and the node that it streams."""

import array
import fcntl
import os
import signal
import subprocess
import termios
import time

CONFIGURATION = '/system/etc/quilcat_config.xml'
F_SETPIPE_SZ = 1031


def xml(name, mode, output, node, rotate=4096, files=1000, retry=False, sync=0):
    """A service with one group that streams `node`; `rotate` in KiB of text."""
    style = "monitor_node' onWriteFailure='retry" if retry else 'monitor_node'
    return (f"<quilcat name='{name}'><logRotateSizeKBytes value='{rotate}'/><maxCompressdFiles value='{files}'/>"
            f"<writeMode value='{mode}'/><syncSeconds value='{sync}'/><quilcatGroup><logStyle value='{style}'/>"
            f"<outputFilePath value='{output}'/><inputNodeSet><dataPath value='{node}'/></inputNodeSet>"
            "</quilcatGroup></quilcat>")


def configure(*services):
    with open(CONFIGURATION, 'w') as file:
        file.write('<c>' + ''.join(services) + '</c>')


class Node:
    """A fifo with numbered lines that carry the time; like the kernel's node it keeps what nobody has read yet."""

    def __init__(self, path, capacity=1 << 16):
        os.mkfifo(path)
        self.path = path
        self.fd = os.open(path, os.O_RDWR | os.O_NONBLOCK)  # reading too: it has a writer and a reader at any time
        fcntl.fcntl(self.fd, F_SETPIPE_SZ, capacity)
        self.written = 0
        self.pending = b''

    def write(self, count=1):
        """The next `count` lines. False: there is no room, and they are not written."""
        self.pending = self.pending[self.put(self.pending):]
        if self.pending:
            return False
        now = time.monotonic()
        text = ''.join(f'<6>[{n}] {now:.3f} {"a" * (n % 40)} end\n' for n in range(self.written, self.written + count))
        data = text.encode()
        size = self.put(data)
        if size == 0:
            return False
        self.pending = data[size:]  # the rest of what was begun goes first the next time
        self.written += count
        return True

    def put(self, data):
        try:
            return os.write(self.fd, data)
        except BlockingIOError:
            return 0

    def finish(self, seconds=20):
        """Ends a line that was begun, and waits until everything is read. False: it was not in that time."""

        def drained():
            self.pending = self.pending[self.put(self.pending):]
            return not self.pending and self.unread() == 0

        return wait_for(drained, seconds)

    def unread(self):
        size = array.array('i', [0])
        fcntl.ioctl(self.fd, termios.FIONREAD, size)
        return size[0]

    def close(self):
        os.close(self.fd)
        os.unlink(self.path)


class Daemon:
    def __init__(self, program, name):
        self.name = name
        self.errors = open(f'/tmp/{name}.errors', 'ab')
        self.process = subprocess.Popen([program, '-b', name], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=self.errors)
        self.pid = self.process.pid

    def is_running(self):
        """It has taken its title, which it does when its collector stands, and can be closed."""
        try:
            with open(f'/proc/{self.pid}/cmdline', 'rb') as title, open(f'/proc/{self.pid}/status') as status:
                caught = next(line for line in status if line.startswith('SigCgt')).split()[1]
                return title.read().strip(b'\0') == self.name.encode() and int(caught, 16) >> 11 & 1
        except (OSError, StopIteration):
            return False

    def wait_until_running(self):
        if not wait_for(self.is_running, 20):
            raise RuntimeError(f'{self.name} did not start, see its standard error')
        return self

    def is_alive(self):
        return self.process.poll() is None

    def kill(self):
        self.process.kill()
        self.process.wait()

    def close(self):
        """SIGUSR2; the exit status, or None when the daemon has to be killed after 20 seconds."""
        self.process.send_signal(signal.SIGUSR2)
        try:
            return self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.kill()
            return None


def wait_for(condition, seconds):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.003)
    return True
