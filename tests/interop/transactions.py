# SPDX-License-Identifier: Apache-2.0
"""Whole transactions of the small terminal and a host of its own with every payment card that comes with the tool.

    /usr/bin/python3 tests/interop/transactions.py build
"""
import datetime
import json
import pathlib
import sys
import unittest

import offline
from host import Host
from objects import fill
from reader import Card, Simulation
from terminal import AAC, ARQC, TC, Terminal, mandatory_missing

TREE = pathlib.Path(__file__).resolve().parents[2]
VORN = None

# The test authority, as docs/simulated-card.md prints it.
RID, INDEX = bytes.fromhex("A000000333"), 0x80


def test_authority():
    text = (TREE / "docs/simulated-card.md").read_text()
    modulus = text.split("| modulus | ")[1].split(" ")[0]
    today = datetime.date.today()
    return offline.Authentication({(RID, INDEX): (bytes.fromhex(modulus), b"\x03")},
                                  {(RID, INDEX, bytes.fromhex("0010BA"))}, (today.year, today.month))


def issuer_keys(profile):
    return json.loads((TREE / "sim/profiles/shipped" / (profile + ".json")).read_text())["issuer"]["keys"]


DEBIT, CREDIT, CASH = (bytes.fromhex("A00000033301010" + digit) for digit in "126")
# Profile, application, the method that a terminal chooses.
CARDS = (("debit", DEBIT, "CDA"), ("credit", CREDIT, "SDA"), ("multi", DEBIT, "DDA"), ("multi", CREDIT, "none"),
         ("multi", CASH, "DDA"), ("contactless", DEBIT, "CDA"))


def on_the_line(test, profile, contactless):
    simulation = Simulation(VORN, profile)
    test.addCleanup(simulation.end)
    card = Card(simulation.port, contactless)
    test.addCleanup(card.close)
    return card


class OneCard(unittest.TestCase):
    way = staticmethod(on_the_line)  # over_pcsc.py goes another

    def insert(self, profile):
        self.profile = profile
        self.contactless = profile == "contactless"
        self.card = self.way(self, profile, self.contactless)

    def start(self, aid, amount=12345, **options):
        terminal = Terminal(self.card, test_authority(), amount, **options)
        self.assertIn(aid, terminal.directory(self.contactless))
        terminal.begin(aid)
        return terminal

    def first(self, aid, amount=12345, **options):
        """Up to the first cryptogram: the terminal, and the cryptogram's kind."""
        terminal = self.start(aid, amount, **options)
        self.assertEqual(mandatory_missing(terminal), [])
        terminal.authenticate()
        terminal.restrict()
        terminal.verify_holder()
        terminal.manage_risk()
        kind = terminal.generate(terminal.decide(), 0x8C)
        self.host = Host(issuer_keys(self.profile), terminal.objects)
        return terminal, kind

    def verified(self, terminal):
        return self.host.verifies(terminal.values, terminal.cryptogram)

    def answer(self, terminal, code):
        return self.host.answer(terminal.values[0x9F36], terminal.cryptogram, code)


class Transactions(OneCard):
    def on_each_card(self, check):
        for profile, aid, method in CARDS:
            with self.subTest(profile=profile, aid=aid.hex()):
                self.insert(profile)
                try:
                    check(aid, method)
                finally:
                    self.doCleanups()

    def test_the_best_offline_method_holds(self):
        def check(aid, method):
            terminal, _ = self.first(aid)
            self.assertEqual((terminal.method, terminal.failure), (method, ""))
            self.assertEqual(terminal.verification[0], 0x80 if method == "none" else 0)
        self.on_each_card(check)

    def test_an_approved_one_goes_online_and_ends_with_a_tc(self):
        def check(aid, _):
            terminal, kind = self.first(aid)
            self.assertEqual(kind, ARQC)
            self.assertTrue(self.verified(terminal), "the ARQC")
            self.assertEqual(terminal.complete(b"00", self.answer(terminal, b"00")), TC)
            self.assertTrue(self.verified(terminal), "the TC")
            self.assertEqual(terminal.verification[4], 0)
        self.on_each_card(check)

    def test_a_declined_one_ends_with_an_aac(self):
        def check(aid, _):
            terminal, _ = self.first(aid)
            self.assertEqual(terminal.complete(b"51", self.answer(terminal, b"51")), AAC)
            self.assertTrue(self.verified(terminal))
        self.on_each_card(check)

    def test_a_referral_that_nobody_approves_ends_with_an_aac(self):
        def check(aid, _):
            terminal, _ = self.first(aid)
            self.assertEqual(terminal.complete(b"01", self.answer(terminal, b"01")), AAC)
            self.assertEqual(terminal.verification[4], 0, "the answer itself is the issuer's")
        self.on_each_card(check)

    def test_a_wrong_answer_is_no_approval(self):
        def check(aid, _):
            terminal, _ = self.first(aid)
            wrong = bytearray(self.answer(terminal, b"00"))
            wrong[0] ^= 1
            self.assertEqual(terminal.complete(b"00", bytes(wrong)), AAC)
            self.assertEqual(terminal.verification[4], 0x40, "issuer authentication failed")
        self.on_each_card(check)

    def test_without_an_answer_there_is_no_approval(self):
        def check(aid, _):
            terminal, _ = self.first(aid)
            self.assertEqual(terminal.complete(b"00"), AAC)
        self.on_each_card(check)


class Scripts(OneCard):
    def test_a_script_sets_the_limits_of_the_electronic_cash(self):
        for profile, aid in (("debit", DEBIT), ("multi", CASH)):
            with self.subTest(profile=profile):
                self.insert(profile)
                terminal, _ = self.first(aid)
                first, counter = terminal.cryptogram, terminal.values[0x9F36]
                value = bytes.fromhex("000000123400")
                right = self.host.script_command(bytes.fromhex("84DA9F77"), value, counter, first)
                other = self.host.script_command(bytes.fromhex("84DA9F78"), value, counter, bytes(8))
                self.assertEqual(terminal.complete(b"00", self.answer(terminal, b"00"), (right, other)), TC)
                self.assertEqual(terminal.script_results, [0x9000, 0x6988], "the second is of another transaction")
                self.assertEqual(terminal.send("80CA9F77")[-6:], value)
                self.doCleanups()

    def test_a_script_blocks_the_application(self):
        self.insert("debit")
        terminal, _ = self.first(DEBIT)
        block = self.host.script_command(bytes.fromhex("841E0000"), b"", terminal.values[0x9F36], terminal.cryptogram)
        terminal.complete(b"00", self.answer(terminal, b"00"), (block,))
        self.assertEqual(terminal.script_results, [0x9000])
        self.assertEqual(terminal.send("00A40400", DEBIT, expected=False)[1], 0x6283)


class Offline(OneCard):
    def test_electronic_cash_is_paid_offline(self):
        """It asks for no PIN: the list of the holder's rules is not gone through."""
        self.insert("debit")
        terminal = self.start(DEBIT, 1000, floor_limit=5000, cash=True)
        self.host = Host(issuer_keys("debit"), terminal.objects)
        terminal.authenticate()
        terminal.restrict()
        terminal.manage_risk()
        self.assertEqual(terminal.decide(), TC)
        self.assertEqual(terminal.generate(TC, 0x8C), TC)
        self.assertTrue(self.verified(terminal))
        self.assertEqual((terminal.method, terminal.failure), ("CDA", ""))
        self.assertEqual(terminal.objects[0x9F74], b"ECC001")
        self.assertEqual(terminal.send("80CA9F79")[-6:].hex(), "000000034680")

    def test_a_pin_is_verified_by_the_card(self):
        self.insert("debit")
        terminal = self.start(DEBIT)
        self.assertEqual(terminal.verify_pin("654321"), 0x63C2)
        self.assertEqual(terminal.verify_pin("123456"), 0x9000)
        self.assertEqual(terminal.send("80CA9F17")[-1], 3)


class Contactless(OneCard):
    def tap(self, amount, qualifiers="26000080"):
        self.insert("contactless")
        terminal = self.start(DEBIT, amount, qualifiers=qualifiers)
        self.host = Host(issuer_keys("contactless"), terminal.objects)
        terminal.values.update({tag: terminal.objects[tag] for tag in (0x9F36, 0x9F10)})
        terminal.cryptogram = terminal.objects[0x9F26]
        return terminal

    def test_a_payment_is_over_with_one_answer(self):
        for qualifiers, version_1 in (("26000080", True), ("26000000", False)):
            terminal = self.tap(1500, qualifiers)
            self.assertEqual(terminal.objects[0x9F27][0], TC)
            self.assertTrue(self.verified(terminal))
            key = terminal.authentication.card_key(terminal.aid, terminal.objects, terminal.static_data)
            covered = fill(bytes.fromhex("9F37049F02065F2A02" if version_1 else "9F3704"), terminal.values)
            covered += terminal.objects[0x9F69] if version_1 else b""
            offline.check_dynamic(key, terminal.objects[0x9F4B], covered)
            self.assertEqual(terminal.send("80CA9F79")[-6:].hex(), "000000028500")
            self.doCleanups()

    def test_a_large_one_goes_online(self):
        terminal = self.tap(50000)
        self.assertEqual(terminal.objects[0x9F27][0], ARQC)
        self.assertTrue(self.verified(terminal))
        self.assertEqual(terminal.send("80CA9F79")[-6:].hex(), "000000030000")


class Flawed(OneCard):
    # Profile, method, what fails.
    FLAWS = (("authority", "authority"), ("hash", "hash"), ("expired", "expired"), ("revoked", "revoked"),
             ("card-hash", "hash"), ("data", "hash"), ("cda", "form"))

    def test_each_is_found_and_told_to_the_issuer(self):
        for name, why in self.FLAWS:
            with self.subTest(name=name):
                self.insert("flawed-" + name)
                terminal, _ = self.first(DEBIT)
                self.assertEqual(terminal.failure, why)
                self.assertEqual(terminal.verification[0], 0x04, "CDA failed")
                self.doCleanups()

    def test_a_wrong_dynamic_signature_is_found(self):
        self.insert("flawed-dda")
        terminal = self.start(DEBIT)
        terminal.key = terminal.authentication.card_key(terminal.aid, terminal.objects, terminal.static_data)
        with self.assertRaises(offline.Failed):
            terminal.check_signature()

    def test_changed_records_are_found_by_their_signature(self):
        self.insert("flawed-data")
        terminal = self.start(DEBIT)
        with self.assertRaises(offline.Failed):
            terminal.authentication.check_static(terminal.aid, terminal.objects, terminal.static_data)


if __name__ == "__main__":
    VORN = str(pathlib.Path(sys.argv.pop(1)) / "vorn")
    unittest.main()
