# SPDX-License-Identifier: Apache-2.0
"""Offline data authentication as a terminal does it (EMV Book 2, 5 to 7)."""
import hashlib
import os


class Failed(Exception):
    pass


def require(condition, what):
    if not condition:
        raise Failed(what)


def recover(signature, key, data_format):
    modulus, exponent = key
    require(len(signature) == len(modulus), "length")
    number = pow(int.from_bytes(signature, "big"), int.from_bytes(exponent, "big"), int.from_bytes(modulus, "big"))
    block = number.to_bytes(len(modulus), "big")
    require(block[0] == 0x6A and block[-1] == 0xBC and block[1] == data_format, "form")
    return block[1:-21], block[-21:-1]


def require_hash(data, expected):
    require(hashlib.sha1(data).digest() == expected, "hash")


def certified_key(content, hashed, holder_size, remainder, exponent, static_data, today):
    """The key in a certificate, its holder and its serial number."""
    at = 1 + holder_size
    month, year = (int(content[at + i:at + i + 1].hex()) for i in range(2))
    serial = content[at + 2:at + 5]
    algorithms, size = content[at + 5:at + 7], content[at + 7]
    require(content[at + 8] == len(exponent), "exponent")
    modulus = content[at + 9:at + 9 + size - len(remainder)] + remainder
    require_hash(content + remainder + exponent + static_data, hashed)
    require(((2000 if year < 50 else 1900) + year, month) >= today, "expired")
    require(algorithms == b"\x01\x01" and len(modulus) == size, "algorithm")
    return (modulus, exponent), content[1:1 + holder_size].hex().upper().rstrip("F"), serial


class Authentication:
    """authorities: keys by RID and index; revoked: RID, index and serial number of issuers' certificates."""

    def __init__(self, authorities, revoked, today):
        self.authorities, self.revoked, self.today = authorities, revoked, today

    def issuer_key(self, aid, card):
        place = (aid[:5], card.get(0x8F, b"\0")[0])
        require(place in self.authorities, "authority")
        content, hashed = recover(card[0x90], self.authorities[place], 0x02)
        key, holder, serial = certified_key(content, hashed, 4, card.get(0x92, b""), card[0x9F32], b"", self.today)
        require(card[0x5A].hex().startswith(holder), "issuer")
        require(place + (serial,) not in self.revoked, "revoked")
        return key

    def check_static(self, aid, card, static_data):
        content, hashed = recover(card[0x93], self.issuer_key(aid, card), 0x03)
        require_hash(content + static_data, hashed)

    def card_key(self, aid, card, static_data):
        content, hashed = recover(card[0x9F46], self.issuer_key(aid, card), 0x04)
        key, holder, _ = certified_key(content, hashed, 10, card.get(0x9F48, b""), card[0x9F47], static_data, self.today)
        require(card[0x5A].hex().upper().rstrip("F") == holder, "account")
        return key


def check_dynamic(key, signature, terminal_data):
    """The card's own data in the signature."""
    content, hashed = recover(signature, key, 0x05)
    require_hash(content + terminal_data, hashed)
    return content[3:3 + content[2]]


def check_combined(key, signature, unpredictable, information, lists, answer):
    """answer: the objects of the response, in their order, without the signature."""
    data = check_dynamic(key, signature, unpredictable)
    rest = data[1 + data[0]:]
    require(rest[:1] == information, "decision")
    require(rest[9:29] == hashlib.sha1(lists + answer).digest(), "transaction")
    return rest[1:9]


def encipher_pin(key, digits, challenge):
    block = bytes.fromhex(("2%X" % len(digits) + digits).ljust(16, "F"))
    modulus, exponent = key
    plain = b"\x7F" + block + challenge
    plain += os.urandom(len(modulus) - len(plain))
    number = pow(int.from_bytes(plain, "big"), int.from_bytes(exponent, "big"), int.from_bytes(modulus, "big"))
    return number.to_bytes(len(modulus), "big")
