"""Runs programs in a terminal."""

import fcntl
import os
import pty
import re
import struct
import subprocess
import termios
import threading

ERASE = "\r\x1b[K"


class Terminal:
    """Runs a program whose standard error, and output if wanted, is a terminal."""

    def __init__(self, arguments, stdin=b"", columns=80, kind="xterm", stdout=subprocess.PIPE, no_color="1"):
        master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        read = []
        reader = threading.Thread(target=self.read_all, args=(master, read))
        reader.start()
        finished = subprocess.run(
            arguments, input=stdin, stdout=slave if stdout == "terminal" else stdout, stderr=slave,
            env={**os.environ, "TERM": kind, "NO_COLOR": no_color}, timeout=100)
        os.close(slave)
        reader.join()
        os.close(master)
        self.status = finished.returncode
        self.written = b"".join(read).decode().replace("\r\n", "\n")

    @staticmethod
    def read_all(master, read):
        while True:
            try:
                piece = os.read(master, 65536)
            except OSError:  # Nobody writes any more.
                return
            read.append(piece)

    def statuses(self):
        """Everything that stood in the last line, in its order."""
        return [text for text in re.split(r"\r\x1b\[K|\n", self.written) if " of " in text]

    def lines(self):
        """What is left to be seen in the end."""
        return [line.split(ERASE)[-1] for line in self.written.split("\n")]
