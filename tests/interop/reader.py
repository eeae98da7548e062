# SPDX-License-Identifier: Apache-2.0
"""A card in a reader, over the reader's line (docs/reader-protocol.md): frames on a tty at 9600 baud."""
import os
import select
import subprocess
import termios
import time
import tty

ANSWER_SECONDS = 60  # an answer comes at once; a busy machine may take its time


class ReaderError(Exception):
    pass


class Simulation:
    """`vorn sim PROFILE` while it runs."""

    def __init__(self, vorn, profile):
        self.process = subprocess.Popen([vorn, "sim", profile], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                        text=True)
        self.port = "/dev/" + self.process.stdout.readline().strip()

    def end(self):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()


class Exchanging:
    """Does what 61xx and 6Cxx ask for, around `transmit`, which sends a command as it stands."""

    def exchange(self, command):
        """The data and the status word."""
        response = self.transmit(command)
        if response[-2] == 0x6C:
            has_data = len(command) > 5
            header = command[:5 + command[4]] if has_data else command[:4]
            return self.exchange(header + response[-1:])
        if response[-2] == 0x61:
            return self.exchange(bytes([0x00, 0xC0, 0x00, 0x00, response[-1]]))
        return response[:-2], response[-2] << 8 | response[-1]


class Card(Exchanging):
    """The card in the contact slot or in the field, powered."""

    def __init__(self, port, contactless=False):
        self.line = os.open(port, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(self.line)
        settings = termios.tcgetattr(self.line)
        settings[4] = settings[5] = termios.B9600
        termios.tcsetattr(self.line, termios.TCSANOW, settings)
        self.slot = 0xFF if contactless else 0x00
        self.answer_to_reset = self._ask(bytes([0x32, 0x24, 0x01, 0x80]) if contactless
                                         else bytes([0x32, 0x22, 0x01, 0x80, 0x00]))

    def close(self):
        self._ask(bytes([0x32, 0x25, 0, 0]) if self.slot == 0xFF else bytes([0x32, 0x23, 0]))
        os.close(self.line)

    def transmit(self, command):
        return self._ask(bytes([0x32, 0x26, self.slot]) + command)

    def _ask(self, content):
        check = 0
        for byte in content:
            check ^= byte
        inner = len(content).to_bytes(2, "big") + content + bytes([check])
        os.write(self.line, b"\x02" + bytes(0x30 + half for byte in inner for half in (byte >> 4, byte & 15)) + b"\x03")
        answer = self._frame()
        if answer[1] != 0:
            raise ReaderError("the reader answers with status %02X" % answer[1])
        return answer[2:]

    def _frame(self):
        received = b""
        end = time.monotonic() + ANSWER_SECONDS
        while not received.endswith(b"\x03"):
            if not select.select([self.line], [], [], max(0, end - time.monotonic()))[0]:
                raise ReaderError("the reader does not answer")
            received += os.read(self.line, 4096)
        halves = [byte - 0x30 for byte in received[1:-1]]
        inner = bytes(high << 4 | low for high, low in zip(halves[::2], halves[1::2]))
        return inner[2:-1]
