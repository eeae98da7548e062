# SPDX-License-Identifier: Apache-2.0
"""Data objects and lists of them (EMV Book 3, 5.4 and Annex B)."""


def parse(data):
    """The objects of one level: pairs of tag and value."""
    objects = []
    at = 0
    while at < len(data):
        start = at
        at += 1
        if data[start] & 0x1F == 0x1F:
            while data[at] & 0x80:
                at += 1
            at += 1
        tag = int.from_bytes(data[start:at], "big")
        length = data[at]
        at += 1
        if length > 0x80:
            count = length & 0x7F
            length = int.from_bytes(data[at:at + count], "big")
            at += count
        if at + length > len(data):
            raise ValueError("an object runs past its end")
        objects.append((tag, data[at:at + length]))
        at += length
    return objects


def is_constructed(tag):
    return (tag if tag < 0x100 else tag >> (8 * ((tag.bit_length() - 1) // 8))) & 0x20 != 0


def flatten(data):
    """All primitive objects, those in templates too."""
    result = []
    for tag, value in parse(data):
        result += flatten(value) if is_constructed(tag) else [(tag, value)]
    return result


def encode(tag, value):
    length = bytes([len(value)]) if len(value) < 0x80 else bytes([0x81, len(value)])
    return tag.to_bytes((tag.bit_length() + 7) // 8, "big") + length + value


def entries(dol):
    """A data object list: pairs of tag and length."""
    result = []
    at = 0
    while at < len(dol):
        start = at
        at += 1
        if dol[start] & 0x1F == 0x1F:
            while dol[at] & 0x80:
                at += 1
            at += 1
        result.append((int.from_bytes(dol[start:at], "big"), dol[at]))
        at += 1
    return result


NUMERIC = {0x9F02, 0x9F03, 0x9F1A, 0x5F2A, 0x9A, 0x9C, 0x9F21}


def fill(dol, values):
    """EMV Book 3, 5.4: what is longer is cut, what is shorter filled up; numbers at their left end."""
    data = b""
    for tag, length in entries(dol):
        value = values.get(tag, b"")
        if tag in NUMERIC:
            value = value[-length:].rjust(length, b"\0")
        else:
            value = value[:length].ljust(length, b"\0")
        data += value
    return data
