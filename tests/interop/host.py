# SPDX-License-Identifier: Apache-2.0
"""The issuer's host: verifies cryptograms, answers them and signs scripts, with the issuer keys of a profile."""
import warnings

with warnings.catch_warnings():
    warnings.simplefilter("ignore")
    from cryptography.hazmat.primitives.ciphers import Cipher, algorithms, modes

COVERED = (0x9F02, 0x9F03, 0x9F1A, 0x95, 0x5F2A, 0x9A, 0x9C, 0x9F37, 0x82, 0x9F36)


def triple_des(key, data):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        encryptor = Cipher(algorithms.TripleDES(key), modes.ECB()).encryptor()
    return encryptor.update(data) + encryptor.finalize()


def inverse_triple_des(key, data):
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")
        decryptor = Cipher(algorithms.TripleDES(key), modes.ECB()).decryptor()
    return decryptor.update(data) + decryptor.finalize()


def combine(left, right):
    return bytes(a ^ b for a, b in zip(left, right))


def mac(key, data):
    """ISO/IEC 9797-1 algorithm 3, padding method 2."""
    data += b"\x80"
    data += bytes(-len(data) % 8)
    left, right = key[:8] * 2, key[8:] * 2
    chain = bytes(8)
    for at in range(0, len(data), 8):
        chain = triple_des(left, combine(chain, data[at:at + 8]))
    return triple_des(left, inverse_triple_des(right, chain))


def card_key(master, pan, sequence):
    y = bytes.fromhex((pan + sequence).rjust(16, "0")[-16:])
    return triple_des(master, y) + triple_des(master, combine(y, b"\xFF" * 8))


def session_key(key, counter):
    return triple_des(key, bytes(6) + counter) + triple_des(key, bytes(6) + combine(counter, b"\xFF\xFF"))


class Host:
    def __init__(self, keys, card):
        """keys: mk_ac and mk_mac of the profile; card: the objects that the terminal sends."""
        pan = card[0x5A].hex().upper().rstrip("F")
        sequence = card.get(0x5F34, b"\0").hex()
        self.cards = {name: card_key(bytes.fromhex(keys[name]), pan, sequence) for name in ("mk_ac", "mk_mac")}

    def verifies(self, values, cryptogram):
        key = session_key(self.cards["mk_ac"], values[0x9F36])
        covered = b"".join(values[tag] for tag in COVERED) + values[0x9F10][3:7]
        return mac(key, covered) == cryptogram

    def answer(self, counter, cryptogram, code):
        """The value of 91: response cryptogram and response code."""
        key = session_key(self.cards["mk_ac"], counter)
        return triple_des(key, combine(cryptogram, code + bytes(6))) + code

    def script_command(self, header, data, counter, cryptogram):
        whole = header + bytes([len(data) + 4])
        key = session_key(self.cards["mk_mac"], counter)
        return whole + data + mac(key, whole + counter + cryptogram + data)[:4]
