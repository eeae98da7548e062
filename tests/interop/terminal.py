# SPDX-License-Identifier: Apache-2.0
"""A payment terminal in small, written from EMV's books 1 to 4 alone: nothing in it knows the project's own cards."""
import datetime
import os

import offline
from objects import encode, fill, flatten, parse

# Terminal verification results, bits counted from the first byte's highest.
NOT_AUTHENTICATED, STATIC_FAILED, DYNAMIC_FAILED, COMBINED_FAILED = (0, 0x80), (0, 0x40), (0, 0x08), (0, 0x04)
EXPIRED, NOT_YET, NOT_ALLOWED, OTHER_VERSION = (1, 0x40), (1, 0x20), (1, 0x10), (1, 0x80)
HOLDER_FAILED, ONLINE_PIN = (2, 0x80), (2, 0x04)
ABOVE_FLOOR_LIMIT = (3, 0x80)
ISSUER_FAILED = (4, 0x40)

AAC, TC, ARQC = 0x00, 0x40, 0x80
MANDATORY = (0x5A, 0x5F24, 0x8C, 0x8D)
TERMINAL_ACTIONS = {"denial": bytes.fromhex("0010000000"), "online": bytes.fromhex("F870F8F800"),
                    "default": bytes.fromhex("F870F8F800")}


class Refused(Exception):
    """The card refused a command that a transaction cannot do without."""


class Terminal:
    def __init__(self, card, authentication, amount, floor_limit=0, cash=False, qualifiers="C4000080"):
        self.card, self.authentication, self.floor_limit = card, authentication, floor_limit
        today = datetime.date.today()
        self.verification = bytearray(5)
        self.lists = b""
        self.method = "none"
        self.failure = ""
        self.static_data = b""
        self.key = None
        self.values = {
            0x9F02: bytes.fromhex("%012d" % amount), 0x9F03: bytes(6), 0x9F1A: b"\x01\x56", 0x5F2A: b"\x01\x56",
            0x9A: bytes.fromhex(today.strftime("%y%m%d")), 0x9F21: b"\x12\x00\x00", 0x9C: b"\0",
            0x9F37: os.urandom(4), 0x9F66: bytes.fromhex(qualifiers), 0x9F7A: bytes([cash]), 0x95: bytes(5),
            0x9F33: bytes.fromhex("E0F8C8"), 0x9F35: b"\x22", 0x9F4E: b"INTEROP".ljust(20)}

    def note(self, place):
        byte, bit = place
        self.verification[byte] |= bit
        self.values[0x95] = bytes(self.verification)

    def send(self, header, data=b"", expected=True):
        command = bytes.fromhex(header) + (bytes([len(data)]) + data if data else b"\0")
        if data and header[:4] in ("00A4", "80A8", "80AE", "0088"):
            command += b"\0"
        answer, status = self.card.exchange(command)
        if expected and status != 0x9000:
            raise Refused("%s: %04X" % (header, status))
        return answer if expected else (answer, status)

    # -------------------------------------------------------------- Book 1, 12: selection

    def directory(self, contactless=False):
        """The card's applications: identifier and priority, the most wanted first."""
        name = b"2PAY.SYS.DDF01" if contactless else b"1PAY.SYS.DDF01"
        found = self._list(name, contactless)
        return [aid for _, aid in sorted(found, key=lambda entry: entry[0] or 16)]

    def _list(self, name, contactless):
        answer = self.send("00A40400", name)
        records = [answer] if contactless else self._records_of(dict(flatten(answer))[0x88][0])
        found = []
        for record in records:
            for entry in self._templates(record, 0x61):
                objects = dict(flatten(entry))
                if 0x9D in objects:
                    found += self._list(objects[0x9D], contactless)
                    self.send("00A40400", name)
                elif 0x4F in objects:
                    found.append((objects.get(0x87, b"\0")[0] & 0x0F, objects[0x4F]))
        return found

    def _templates(self, data, wanted):
        result = []
        for tag, value in parse(data):
            if tag == wanted:
                result.append(value)
            elif tag in (0x6F, 0x70, 0xA5, 0xBF0C):
                result += self._templates(value, wanted)
        return result

    def _records_of(self, sfi):
        number, records = 1, []
        while True:
            answer, status = self.send("00B2%02X%02X" % (number, sfi << 3 | 4), expected=False)
            if status != 0x9000:
                return records
            records.append(answer)
            number += 1

    # -------------------------------------------------------------- Book 3, 10.1 and 10.2: data

    def begin(self, aid):
        self.aid = aid
        information = dict(flatten(self.send("00A40400", aid)))
        options = fill(information.get(0x9F38, b""), self.values)
        self.lists = options
        self.answer = self.send("80A80000", b"\x83" + bytes([len(options)]) + options)
        (tag, value), = parse(self.answer)
        self.objects = {} if tag == 0x80 else dict(flatten(self.answer))
        self.profile, locator = ((value[:2], value[2:]) if tag == 0x80
                                 else (self.objects[0x82], self.objects.get(0x94, b"")))
        self.values[0x82] = self.profile
        self._read(locator)

    def _read(self, locator):
        for at in range(0, len(locator), 4):
            sfi, first, last, marked = locator[at] >> 3, *locator[at + 1:at + 4]
            for number in range(first, last + 1):
                record = self.send("00B2%02X%02X" % (number, sfi << 3 | 4))
                (tag, content), = parse(record)
                if tag != 0x70:
                    raise ValueError("a record without its template")
                for name, value in flatten(record):
                    if name in self.objects:
                        raise ValueError("the object %X comes twice" % name)
                    self.objects[name] = value
                if number < first + marked:
                    self.static_data += content if sfi <= 10 else record
        if self.objects.get(0x9F4A) == b"\x82":
            self.static_data += self.profile

    # -------------------------------------------------------------- Book 3, 10.3: offline data authentication

    def authenticate(self):
        """The best method that the card offers. CDA is decided with the cryptogram."""
        bits = self.profile[0]
        try:
            if bits & 0x01:
                self.method = "CDA"
                self.key = self.authentication.card_key(self.aid, self.objects, self.static_data)
            elif bits & 0x20:
                self.method = "DDA"
                self._dynamic()
            elif bits & 0x40:
                self.method = "SDA"
                self.authentication.check_static(self.aid, self.objects, self.static_data)
            else:
                self.note(NOT_AUTHENTICATED)
        except (offline.Failed, KeyError) as failure:
            self._authentication_failed(str(failure))

    def _authentication_failed(self, why):
        self.failure = self.failure or why
        self.note({"CDA": COMBINED_FAILED, "DDA": DYNAMIC_FAILED, "SDA": STATIC_FAILED}[self.method])

    def _dynamic(self):
        self.key = self.authentication.card_key(self.aid, self.objects, self.static_data)
        self.check_signature()

    def check_signature(self):
        """INTERNAL AUTHENTICATE."""
        data = fill(self.objects.get(0x9F49, b"\x9F\x37\x04"), self.values)
        (tag, value), = parse(self.send("00880000", data))
        offline.check_dynamic(self.key, value if tag == 0x80 else dict(parse(value))[0x9F4B], data)

    # -------------------------------------------------------------- Book 3, 10.4 to 10.6: restrictions, holder, risk

    def restrict(self):
        if self.objects.get(0x9F08, b"\x00\x30") != b"\x00\x30":
            self.note(OTHER_VERSION)
        if self.objects.get(0x5F25, b"\0") > self.values[0x9A]:
            self.note(NOT_YET)
        if self.objects[0x5F24] < self.values[0x9A]:
            self.note(EXPIRED)
        if not self.objects.get(0x9F07, b"\xFF\x00")[0] & 0x04:
            self.note(NOT_ALLOWED)

    def verify_holder(self):
        """The first rule of the list whose condition holds: enciphered PIN online, signature, or nothing."""
        rules = self.objects.get(0x8E, b"")[8:]
        for at in range(0, len(rules), 2):
            method = rules[at] & 0x3F
            if rules[at + 1] in (0x00, 0x03):
                if method == 0x02:
                    self.note(ONLINE_PIN)
                return method
        self.note(HOLDER_FAILED)
        return None

    def verify_pin(self, digits):
        """Offline, enciphered with the card's key; the status word."""
        key = self.authentication.card_key(self.aid, self.objects, self.static_data)
        challenge = self.send("00840000")
        return self.send("00200088", offline.encipher_pin(key, digits, challenge), expected=False)[1]

    def manage_risk(self):
        if int(self.values[0x9F02].hex()) > self.floor_limit:
            self.note(ABOVE_FLOOR_LIMIT)

    # -------------------------------------------------------------- Book 3, 10.7 and on: cryptograms

    def actions(self, name, tag):
        issuer = self.objects.get(tag, b"\0\0\0\0\0" if name == "denial" else b"\xFF\xFF\xFF\xFF\xFF")
        return any(mine & (theirs | ours) for mine, theirs, ours
                   in zip(self.verification, issuer, TERMINAL_ACTIONS[name]))

    def decide(self):
        if self.actions("denial", 0x9F0E):
            return AAC
        return ARQC if self.actions("online", 0x9F0F) else TC

    def generate(self, kind, dol):
        """The kind of cryptogram that the card gave."""
        data = fill(self.objects[dol], self.values)
        self.lists += data
        combined = self.key is not None and self.method == "CDA" and kind != AAC
        answer = self.send("80AE%02X00" % (kind | (0x10 if combined else 0)), data)
        (tag, value), = parse(answer)
        if tag == 0x80:
            given = {0x9F27: value[:1], 0x9F36: value[1:3], 0x9F26: value[3:11], 0x9F10: value[11:]}
        else:
            given = dict(parse(value))
        if 0x9F4B in given:
            self._check_combined(value, given)
        self.values.update({tag: given[tag] for tag in (0x9F36, 0x9F10)})
        self.cryptogram = given[0x9F26]
        return given[0x9F27][0] & 0xC0

    def _check_combined(self, value, given):
        rest = b"".join(encode(tag, content) for tag, content in parse(value) if tag != 0x9F4B)
        try:
            given[0x9F26] = offline.check_combined(self.key, given[0x9F4B], self.values[0x9F37], given[0x9F27],
                                                   self.lists, rest)
        except offline.Failed as failure:
            given[0x9F26] = b""
            self._authentication_failed(str(failure))

    def complete(self, code, issuer_answer=None, scripts=()):
        """Hands over the issuer's answer; the kind of the second cryptogram."""
        self.values[0x8A] = code
        if issuer_answer is not None:
            status = self.send("00820000", issuer_answer, expected=False)[1]
            if status != 0x9000:
                self.note(ISSUER_FAILED)
        kind = self.generate(TC if code == b"00" else AAC, 0x8D)
        self.script_results = [self.card.exchange(command)[1] for command in scripts]
        return kind


def mandatory_missing(terminal):
    return [tag for tag in MANDATORY if tag not in terminal.objects]

