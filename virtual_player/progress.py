"""Says on standard error what the virtual player is doing while its user waits."""

import sys
import threading

INTERVAL = 1  # seconds


class Progress:
    """Called with what begins now, such as "booting the player"; None: nothing that needs waiting for.

    On a terminal it is one line with the seconds since the beginning, which goes when it is over; elsewhere a line
    each, once. For one thread.
    """

    def __init__(self, name, stream=sys.stderr):
        self._name = name
        self._stream = stream
        self._over = threading.Event()
        self._thread = None

    def __call__(self, what):
        self._end()
        if what is None:
            return
        if not self._stream.isatty():
            self._write(f"{self._name}: {what}\n")
            return
        self._over.clear()
        self._thread = threading.Thread(target=self._count, args=(what,), daemon=True)
        self._thread.start()

    def _count(self, what):
        seconds = 0
        while True:
            self._write(f"\r{self._name}: {what}, {seconds} s")
            if self._over.wait(INTERVAL):
                break
            seconds += INTERVAL
        self._write("\r\x1b[K")

    def _end(self):
        if self._thread is not None:
            self._over.set()
            self._thread.join()
            self._thread = None

    def _write(self, text):
        self._stream.write(text)
        self._stream.flush()
