# SPDX-License-Identifier: Apache-2.0
"""A card reader through ICC_COMM_VORN.so: results as exceptions, account data masked.

    with vorn_reader.Reader("ttyS1") as reader:
        reader.wait_for_card(20)
        print(reader.information())

The library writes two log files with card data in clear to the working directory: begin with private_directory().
"""
import contextlib
import ctypes
import os
import threading
from ctypes import POINTER, byref, c_char_p, c_int, create_string_buffer

# The capacities of the header ICC_COMM_VORN.h.
ATR_CAPACITY = 989
RESPONSE_CAPACITY = 989
USER_INFO_CAPACITY = 6169
DEVICE_TEXT_CAPACITY = 300

FIELDS = {
    "A": "pan", "B": "track2", "C": "ec_balance", "D": "ec_balance_limit", "E": "expiry", "F": "ec_single_limit",
    "G": "pan_sequence", "H": "atc", "I": "document_type", "J": "document_number", "K": "name", "L": "name_extended",
}
SECRET = {"pan", "track2", "document_number", "name", "name_extended"}


class CardError(Exception):
    """A call did not return 0; `result` is what it returned."""

    def __init__(self, call, result):
        super().__init__("%s: %s (%d)" % (call, self.__doc__.rstrip("."), result))
        self.call, self.result = call, result


class PortError(CardError):
    """the port could not be opened"""


class NoCard(CardError):
    """no card in time, or it was taken away"""


class ReaderSilent(CardError):
    """the reader does not answer"""


class CardMute(CardError):
    """there is a card, but it does not answer"""


class NoApplication(CardError):
    """no application that could be used on the card"""


class CardRefused(CardError):
    """the card or the reader refused a command"""


ERRORS = {-2: NoCard, -3: PortError, -9: NoCard, -10: CardRefused, -11: ReaderSilent, -25: CardMute,
          -26: NoApplication, -27: NoApplication, -28: CardRefused}


def masked(digits):
    """An account number as it may be shown."""
    return "*" * (len(digits) - 4) + digits[-4:] if len(digits) > 4 else "*" * len(digits)


def private_directory(path):
    """Goes to a directory that only this user can enter, and makes it when it is not there."""
    os.umask(0o077)
    os.makedirs(path, mode=0o700, exist_ok=True)
    os.chmod(path, 0o700)
    os.chdir(path)


class Card(dict):
    """The fields of a card. What identifies it or its holder is not shown when the whole is printed."""

    def __repr__(self):
        return repr({name: masked(text) if name == "pan" else "***" if name in SECRET and text else text
                     for name, text in self.items()})

    __str__ = __repr__


def fields_of(record):
    """Letter, three digits giving the characters that follow, those characters."""
    card, at = Card(), 0
    while at < len(record):
        length = int(record[at + 1:at + 4])
        if at + 4 + length > len(record) or record[at] not in FIELDS:
            raise ValueError("not a card record")
        card[FIELDS[record[at]]] = record[at + 4:at + 4 + length]
        at += 4 + length
    return card


class Reader:
    """One reader. Calls of all readers of a process come one after the other: the library has one link."""

    _one_call = threading.Lock()

    def __init__(self, port, library="ICC_COMM_VORN.so"):
        self._port = os.fsencode(port)
        self._library = ctypes.CDLL(library)
        common = [c_char_p, c_char_p, c_int, c_int]
        for name, more in {
            "IC_PowerOn": [c_int, c_int, c_char_p],
            "IC_PowerOff": [c_int, c_int],
            "IC_SendAPDU": [c_int, c_int, c_char_p, c_char_p],
            "IC_GetInfo": [POINTER(c_int), c_char_p, c_char_p, POINTER(c_int), c_char_p],
        }.items():
            function = getattr(self._library, name)
            function.argtypes, function.restype = common + more, c_int
        self._library.GetDevInfo.argtypes, self._library.GetDevInfo.restype = [c_char_p] * 4, c_int

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with contextlib.suppress(CardError):
            self._call("IC_PowerOff", 0, 1, 0)

    def _checked(self, name, result):
        if result != 0:
            raise ERRORS.get(result, CardError)(name, result)

    def _call(self, name, seconds, *arguments):
        with self._one_call:
            result = getattr(self._library, name)(self._port, b"", 9600, seconds, *arguments)
        self._checked(name, result)

    def wait_for_card(self, seconds):
        """Powers the user's card, contact first, then contactless; its answer to reset in hex."""
        atr = create_string_buffer(ATR_CAPACITY)
        self._call("IC_PowerOn", seconds, 1, 0, atr)
        return atr.value.decode("ascii")

    def send(self, command):
        """A command to the powered card, in hex; its response, empty unless the status is 9000."""
        response = create_string_buffer(RESPONSE_CAPACITY)
        self._call("IC_SendAPDU", 0, 1, 0, command.encode("ascii"), response)
        return response.value.decode("ascii")

    def information(self, aid=""):
        """The card's fields. Waits without a bound where no card is: call wait_for_card first."""
        record = create_string_buffer(USER_INFO_CAPACITY)
        card_type, length = c_int(3), c_int(0)
        self._call("IC_GetInfo", 20, byref(card_type), aid.encode("ascii"), b"ABCDEFGHIJKL", byref(length), record)
        return fields_of(record.raw[:length.value - 1].decode("ascii"))  # the NUL is counted

    def version(self):
        """What the reader says of itself; not over USB."""
        version, date, serial = (create_string_buffer(DEVICE_TEXT_CAPACITY) for _ in range(3))
        with self._one_call:
            result = self._library.GetDevInfo(self._port, version, date, serial)
        self._checked("GetDevInfo", result)
        return version.value.decode("ascii", "replace")
