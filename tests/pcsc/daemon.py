#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""The PC/SC daemon with the driver, on simulated readers, asked by everyday clients.

It runs in a mount namespace of its own (scripts/stages/pcsc): its daemon's socket and drivers are nobody else's.
  daemon.py BUILD-FOLDER [unittest's options]
"""

import contextlib
import ctypes
import json
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest

from smartcard import scard

TREE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv[1]).resolve()
DRIVERS = pathlib.Path("/usr/lib/pcsc/drivers")
INSTALLED_CONFIGURATION = pathlib.Path("/run/libifd-vorn")
SOCKET = pathlib.Path("/run/pcscd/pcscd.comm")
PATIENCE = 120  # seconds for what must come; never a measure

DEBIT_ATR = "3BED0000813 1FE4551494E474845444542495430 31A5".replace(" ", "")
PSAM_ATR = "3B6D0000803180650000000000001000 01".replace(" ", "")
FIELD_ANSWER = "0978338802 41424344"
FIELD_ATR = "3B8480014142434401"
SELECT_PSE = "00A404000E315041592E5359532E4444463031"
ACCOUNT_NUMBER = "6229990000710246589"

PCSC = ctypes.CDLL("libpcsclite.so.1")

SLOTS = ["contact", "contactless", "psam1", "psam2", "psam3", "psam4"]


def wait_until(condition, what):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        found = condition()
        if found:
            return found
        time.sleep(0.05)
    raise AssertionError(f"did not come: {what}")


def shipped(name):
    return json.loads((TREE / "sim/profiles/shipped" / f"{name}.json").read_text())


def profile(cards):
    """A profile with the shipped debit card in the contact slot and the field, and the shipped PSAMs."""
    debit = shipped("debit")["cards"][0]
    field = dict(debit, slot="field", contactless_answer=FIELD_ANSWER)
    known = {"contact": debit, "contactless": field}
    known.update({card["slot"]: card for card in shipped("psam")["cards"]})
    return {"cards": [known[name] for name in cards]}


class Simulator:
    """vorn sim, with all that it says in a file."""

    def __init__(self, folder, cards, *options, link=None):
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=folder))
        (self.folder / "cards.json").write_text(json.dumps(cards))
        self.events = self.folder / "events"
        command = [BUILD / "vorn", "sim", self.folder / "cards.json", "-v", *options]
        if link:
            command += ["--link", link]
        with open(self.events, "w") as events:
            self.process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=events, text=True)
        self.port = self.process.stdout.readline().strip()
        self.tty = f"/dev/{self.port}"

    def lines(self):
        return self.events.read_text().splitlines()

    def fall_silent(self):
        """Until SIGCONT. A thread of it may still answer until the last one has heard the signal."""
        self.process.send_signal(signal.SIGSTOP)
        os.waitid(os.P_PID, self.process.pid, os.WSTOPPED)

    def stop(self):
        self.process.send_signal(signal.SIGCONT)
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()


class UsbReader:
    """An emulated USB device with a simulated reader behind it."""

    def __init__(self, folder, cards):
        path = pathlib.Path(tempfile.mkdtemp(dir=folder)) / "cards.json"
        path.write_text(json.dumps(cards))
        self.process = subprocess.Popen([BUILD / "tests/usb/usb_reader", path], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True, env=dict(os.environ, TMPDIR="/tmp"))
        self.directory = self.process.stdout.readline().strip()

    def tell(self, word):
        print(word, file=self.process.stdin, flush=True)
        assert self.process.stdout.readline() == "done\n"

    def stop(self):
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()


class Daemon:
    def __init__(self, folder, entries=(), environment=None, configuration=None):
        self.folder = pathlib.Path(tempfile.mkdtemp(dir=folder))
        folder = self.folder / "reader.conf.d"
        folder.mkdir()
        for number, (name, device, library) in enumerate(entries):
            (folder / str(number)).write_text(
                f'FRIENDLYNAME "{name}"\nDEVICENAME {device}\nLIBPATH {library}\nCHANNELID 1\n')
        shutil.copy(configuration or INSTALLED_CONFIGURATION, folder)
        self.log = self.folder / "log"
        with open(self.log, "w") as log:
            self.process = subprocess.Popen(
                [shutil.which("pcscd", path="/usr/sbin:/sbin:" + os.environ["PATH"]), "-f", "-i", "-c", folder],
                stdout=log, stderr=log, cwd=self.folder, env=dict(os.environ, **(environment or {})))
        wait_until(lambda: SOCKET.exists() or self.process.poll() is not None, "the daemon's socket")

    def alive(self):
        return self.process.poll() is None

    def stop(self, how=signal.SIGTERM):
        if self.alive():
            self.process.send_signal(how)
        self.process.wait()
        for left in (SOCKET, SOCKET.with_name("pcscd.pid")):
            with contextlib.suppress(FileNotFoundError):
                left.unlink()


class Client:
    """One program's context; the calls fail the test unless they succeed."""

    def __init__(self):
        def established():
            result, self.context = scard.SCardEstablishContext(scard.SCARD_SCOPE_SYSTEM)
            return result == scard.SCARD_S_SUCCESS

        wait_until(established, "the daemon's service")

    def readers(self):
        # scard asks for the size and then for the names, and reads what nobody wrote when the last reader goes between.
        names = ctypes.create_string_buffer(4096)
        size = ctypes.c_ulong(len(names))
        result = PCSC.SCardListReaders(ctypes.c_long(self.context), None, names, ctypes.byref(size))
        return sorted(names.raw[:size.value].decode().split("\0")[:-2]) if result == scard.SCARD_S_SUCCESS else []

    def state(self, reader):
        _, states = scard.SCardGetStatusChange(self.context, 0, [(reader, scard.SCARD_STATE_UNAWARE)])
        _, event, atr = states[0]
        return event, bytes(atr).hex().upper()

    def present(self, reader):
        return bool(self.state(reader)[0] & scard.SCARD_STATE_PRESENT)

    def wait_for_card(self, reader):
        wait_until(lambda: self.present(reader), f"a card in {reader}")

    def wait_for_absence(self, reader):
        wait_until(lambda: self.state(reader)[0] & scard.SCARD_STATE_EMPTY, f"no card in {reader}")

    def connect(self, reader, protocol=scard.SCARD_PROTOCOL_T0 | scard.SCARD_PROTOCOL_T1):
        self.wait_for_card(reader)
        result, card, agreed = scard.SCardConnect(self.context, reader, scard.SCARD_SHARE_SHARED, protocol)
        if result != scard.SCARD_S_SUCCESS:
            raise AssertionError(scard.SCardGetErrorMessage(result))
        return Card(card, agreed)

    def release(self):
        scard.SCardReleaseContext(self.context)


class Card:
    def __init__(self, handle, protocol):
        self.handle = handle
        self.protocol = protocol

    def attempt(self, apdu):
        pci = scard.SCARD_PCI_T0 if self.protocol == scard.SCARD_PROTOCOL_T0 else scard.SCARD_PCI_T1
        result, answer = scard.SCardTransmit(self.handle, pci, list(bytes.fromhex(apdu)))
        return result, bytes(answer or []).hex().upper()

    def transmit(self, apdu):
        result, answer = self.attempt(apdu)
        if result != scard.SCARD_S_SUCCESS:
            raise AssertionError(scard.SCardGetErrorMessage(result))
        return answer

    def attribute(self, which):
        result, value = scard.SCardGetAttrib(self.handle, which)
        return bytes(value) if result == scard.SCARD_S_SUCCESS else None

    def disconnect(self, how=scard.SCARD_LEAVE_CARD):
        scard.SCardDisconnect(self.handle, how)


class DaemonTest(unittest.TestCase):
    """Readers, daemons and clients that a test starts are ended behind it."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="vorn-pcsc-", dir="/tmp")
        self.addCleanup(shutil.rmtree, self.folder)

    def simulator(self, cards, *options, **more):
        simulator = Simulator(self.folder, cards, *options, **more)
        self.addCleanup(simulator.stop)
        return simulator

    def daemon(self, *entries, **more):
        daemon = Daemon(self.folder, entries, **more)
        self.addCleanup(daemon.stop)
        return daemon

    def client(self):
        client = Client()
        self.addCleanup(client.release)
        return client

    def whole_reader(self, cards, *options):
        simulator = self.simulator(profile(cards), *options)
        daemon = self.daemon(("VORN", simulator.tty, serial_library()))
        return simulator, daemon, self.client()

    def run_program(self, *command, timeout=PATIENCE):
        result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=timeout,
                                check=False)
        return result.stdout

    def assert_at_rest(self, simulator):
        """Cards are off, and the reader listens at 9600 baud: it tells its version."""

        def cards_are_off():
            on = set()
            for line in simulator.lines():
                if line.startswith("power on "):
                    on.add(line.split()[-1])
                if line.startswith("power off "):
                    on.discard(line.split()[-1])
            return not on

        wait_until(cards_are_off, "cards without power")
        self.assertIn("DK7710", self.run_program(BUILD / "vorn", "device", "--port", simulator.port))


def serial_library():
    return DRIVERS / "serial/libifdvorn.so"


def reader(slot):
    return f"VORN 00 {SLOTS.index(slot):02X}"


class Tty(DaemonTest):
    def test_everyday_programs_find_slots_and_cards(self):
        _, _, client = self.whole_reader(["contact", "contactless", "psam1", "psam2"])
        for slot in ("contact", "contactless", "psam1", "psam2"):
            client.wait_for_card(reader(slot))
        with subprocess.Popen(["pcsc_scan", "-n"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as scan:
            said = ""
            while said.count("Card state:") < len(SLOTS) or said.count("ATR:") < 4:
                line = scan.stdout.readline()
                self.assertTrue(line, said)
                said += line
            scan.terminate()
        for slot in SLOTS:
            self.assertIn(reader(slot), said)
        self.assertEqual(said.count("Card inserted"), 4)
        self.assertEqual(said.count("Card removed"), 2)
        for atr in (DEBIT_ATR, FIELD_ATR, PSAM_ATR):
            self.assertIn(bytes.fromhex(atr).hex(" ").upper(), said)
        listed = self.run_program("opensc-tool", "-l")
        self.assertEqual(listed.count("  Yes  "), 4, listed)
        self.assertEqual(listed.count("  No  "), 2, listed)
        self.assertIn(bytes.fromhex(DEBIT_ATR).hex(":"), self.run_program("opensc-tool", "-r", reader("contact"), "-a"))
        for slot, number in (("contact", "0"), ("contactless", "1")):
            said = self.run_program("opensc-tool", "-c", "default", "-r", number, "-s", SELECT_PSE, "-s", "00B2010C00")
            self.assertEqual(said.count("Received (SW1=0x90, SW2=0x00)"), 2, slot + said)
            self.assertIn("PBOC DEBIT", said)
        # What 61xx announces is the client's to fetch.
        said = self.run_program("opensc-tool", "-c", "default", "-r", "2", "-s", "00A40000023F00")
        self.assertIn("SW1=0x90, SW2=0x00", said)

    def test_a_program_in_java_reads_the_cards(self):
        cards = ["contact", "contactless", "psam1"]
        _, _, client = self.whole_reader(cards)
        for slot in cards:
            client.wait_for_card(reader(slot))
        pse = "6F15840E315041592E5359532E4444463031A503880101"
        said = self.run_program(
            "java", "-Dsun.security.smartcardio.library=libpcsclite.so.1", TREE / "tests/pcsc/SendCommands.java",
            f"{reader('contact')}={SELECT_PSE},00B2010C00,00A4040008A000000333010102",
            f"{reader('contactless')}={SELECT_PSE}",
            f"{reader('psam1')}=00A40000023F00,00B0950000").splitlines()
        listed, answers = said[:len(SLOTS)], said[len(SLOTS):]
        self.assertEqual(listed, [f"{reader(slot)}: {'a card' if slot in cards else 'empty'}" for slot in SLOTS], said)
        contact, field, module = (line.split(": ")[1].split() for line in answers)
        self.assertEqual(contact[:3], ["T=1", DEBIT_ATR, pse + "9000"])
        self.assertIn("A000000333010101", contact[3])
        self.assertEqual(contact[4], "6A82")
        self.assertEqual(field[1:], [FIELD_ATR, pse + "9000"])
        # What 61xx and 6Cxx announce is fetched by Java itself.
        self.assertEqual(module[:2], ["T=0", PSAM_ATR])
        self.assertTrue(module[2].endswith("9000") and len(module[2]) == 2 * 0x17 + 4, module)
        self.assertEqual(module[3], "801234567890000000019000")

    def test_attributes_features_and_protocols(self):
        _, daemon, client = self.whole_reader(["contact", "contactless", "psam1"])
        card = client.connect(reader("contact"))
        self.assertEqual(card.protocol, scard.SCARD_PROTOCOL_T1)
        self.assertEqual(card.attribute(scard.SCARD_ATTR_ATR_STRING).hex().upper(), DEBIT_ATR)
        self.assertEqual(card.attribute(scard.SCARD_ATTR_VENDOR_NAME), b"VORN\0")
        self.assertEqual(card.attribute(scard.SCARD_ATTR_VENDOR_IFD_TYPE), b"DK7710 contact\0")
        self.assertEqual(card.attribute(scard.SCARD_ATTR_MAXINPUT), (261).to_bytes(4, "little"))
        self.assertEqual(card.attribute(scard.SCARD_ATTR_ICC_PRESENCE), b"\2")
        self.assertIsNone(card.attribute(scard.SCARD_ATTR_VENDOR_IFD_SERIAL_NO))
        result, features = scard.SCardControl(card.handle, scard.SCARD_CTL_CODE(3400), [])
        self.assertEqual(result, scard.SCARD_S_SUCCESS)
        self.assertEqual(features[:2], [0x12, 4])
        result, properties = scard.SCardControl(card.handle, int.from_bytes(bytes(features[2:6]), "big"), [])
        self.assertEqual((result, bytes(properties).hex()), (scard.SCARD_S_SUCCESS, "0901000a0400010000"))
        result, _ = scard.SCardControl(card.handle, scard.SCARD_CTL_CODE(1), [])
        self.assertNotEqual(result, scard.SCARD_S_SUCCESS)
        card.disconnect()
        result, _, _ = scard.SCardConnect(client.context, reader("contact"), scard.SCARD_SHARE_SHARED,
                                          scard.SCARD_PROTOCOL_T0)
        self.assertNotEqual(result, scard.SCARD_S_SUCCESS)
        psam = client.connect(reader("psam1"))
        self.assertEqual(psam.protocol, scard.SCARD_PROTOCOL_T0)
        self.assertEqual(psam.attribute(scard.SCARD_ATTR_VENDOR_IFD_TYPE), b"DK7710 PSAM 1\0")
        for protocol in (scard.SCARD_PROTOCOL_T0, scard.SCARD_PROTOCOL_T1):
            field = client.connect(reader("contactless"), protocol)
            self.assertEqual(field.protocol, protocol)
            self.assertTrue(field.transmit(SELECT_PSE).endswith("9000"))
            field.disconnect(scard.SCARD_UNPOWER_CARD)
        self.assertTrue(daemon.alive())

    def test_commands_go_through_as_they_are_and_extended_length_is_refused(self):
        _, daemon, client = self.whole_reader(["contact", "psam1"])
        psam = client.connect(reader("psam1"))
        self.assertEqual(psam.transmit("00A40000023F00"), "6117")
        self.assertEqual(psam.transmit("00B0950000"), "6C0A")
        self.assertEqual(psam.transmit("00B095000A"), "801234567890000000019000")
        result, answer = psam.attempt("00B00000000100")
        self.assertEqual(result, scard.SCARD_E_NOT_TRANSACTED)
        self.assertEqual(answer, "")
        self.assertIn("short APDUs, up to 261 bytes", daemon.log.read_text())
        self.assertEqual(psam.transmit("0084000004"), "5AC30F969000")
        # A reset is one: the module begins its challenges anew.
        result, _ = scard.SCardReconnect(psam.handle, scard.SCARD_SHARE_SHARED, scard.SCARD_PROTOCOL_T0,
                                         scard.SCARD_RESET_CARD)
        self.assertEqual(result, scard.SCARD_S_SUCCESS)
        self.assertEqual(psam.transmit("0084000004"), "5AC30F969000")

    def test_two_clients_send_ten_thousand_commands_at_once(self):
        _, daemon, client = self.whole_reader(["contact", "psam1"])
        for slot in ("contact", "psam1"):
            client.wait_for_card(reader(slot))
        wrong = []

        def work(slot, apdu, answer):
            own = Client()
            card = own.connect(reader(slot))
            for number in range(5000):
                said = card.transmit(apdu)
                if said != answer:
                    wrong.append((slot, number, said))
                    break
            card.disconnect()
            own.release()
            done.append(slot)

        done = []
        pse = "6F15840E315041592E5359532E4444463031A5038801019000 ".strip()
        rows = [("contact", SELECT_PSE, pse), ("psam1", "00B095000A", "801234567890000000019000")]
        threads = [threading.Thread(target=work, args=row) for row in rows]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(wrong, [])
        self.assertEqual(sorted(done), ["contact", "psam1"])
        self.assertTrue(daemon.alive())

    def test_a_card_comes_and_is_pulled(self):
        cards = profile(["contact"])
        cards["cards"][0]["after_ms"] = 3000
        simulator = self.simulator(cards, "--fault", "pull/26")
        self.daemon(("VORN", simulator.tty, serial_library()))
        client = self.client()
        wait_until(lambda: reader("contact") in client.readers(), "the reader")
        name = reader("contact")
        known, _ = client.state(name)
        self.assertTrue(known & scard.SCARD_STATE_EMPTY)
        result, states = scard.SCardGetStatusChange(client.context, PATIENCE * 1000, [(name, known)])
        self.assertEqual(result, scard.SCARD_S_SUCCESS)
        self.assertTrue(states[0][1] & scard.SCARD_STATE_PRESENT)
        card = client.connect(name)
        known, _ = client.state(name)
        result, _ = card.attempt(SELECT_PSE)
        self.assertEqual(result, scard.SCARD_E_NO_SMARTCARD)
        client.wait_for_absence(name)
        self.assertNotEqual(card.attempt(SELECT_PSE)[0], scard.SCARD_S_SUCCESS)

    def test_slots_may_be_readers_with_names_of_their_own(self):
        simulator = self.simulator(profile(["contact", "psam1"]))
        self.daemon(*((f"VORN {slot}", f"{simulator.tty}:{slot}", serial_library()) for slot in SLOTS))
        client = self.client()
        wait_until(lambda: len(client.readers()) == len(SLOTS), "six readers")
        names = {slot: next(n for n in client.readers() if n.startswith(f"VORN {slot} ")) for slot in SLOTS}
        self.assertEqual(client.connect(names["contact"]).attribute(scard.SCARD_ATTR_ATR_STRING).hex().upper(),
                         DEBIT_ATR)
        self.assertEqual(client.connect(names["psam1"]).transmit("00A40000023F00"), "6117")
        self.assertFalse(client.present(names["contactless"]))


class WaysOut(DaemonTest):
    def test_a_daemon_that_is_told_to_end_leaves_the_reader_at_rest(self):
        simulator, daemon, client = self.whole_reader(["contact", "psam1"])
        cards = [client.connect(reader(slot)) for slot in ("contact", "psam1")]
        self.assertTrue(cards[0].transmit(SELECT_PSE).endswith("9000"))
        busy = subprocess.run([BUILD / "vorn", "info", "--port", simulator.port], stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)
        self.assertIn("pcscd", busy.stderr)
        daemon.stop()
        self.assert_at_rest(simulator)

    def test_a_daemon_that_was_killed_is_followed_by_one_that_works(self):
        # The reader still listens at the working speed, and takes what comes at another for garbage.
        simulator, daemon, client = self.whole_reader(["contact"], "--check-speed")
        client.connect(reader("contact"))
        daemon.stop(signal.SIGKILL)
        after = self.daemon(("VORN", simulator.tty, serial_library()))
        client = self.client()
        card = client.connect(reader("contact"))
        self.assertTrue(card.transmit(SELECT_PSE).endswith("9000"))
        after.stop()
        self.assert_at_rest(simulator)

    def test_a_reader_that_falls_silent_leaves_daemon_and_other_readers_at_work(self):
        other = self.simulator(profile(["psam1"]))
        copy = pathlib.Path(self.folder) / "libifdvorn-2.so"
        shutil.copy(serial_library(), copy)
        simulator = self.simulator(profile(["contact"]))
        daemon = self.daemon(("VORN", simulator.tty, serial_library()), ("OTHER", other.tty, copy))
        client = self.client()
        card = client.connect(reader("contact"))
        module = client.connect("OTHER 00 02")
        simulator.fall_silent()
        result, _ = card.attempt(SELECT_PSE)
        self.assertEqual(result, scard.SCARD_E_NOT_TRANSACTED)
        client.wait_for_absence(reader("contact"))
        self.assertEqual(module.transmit("00A40000023F00"), "6117")
        simulator.process.send_signal(signal.SIGCONT)
        card = client.connect(reader("contact"))
        self.assertTrue(card.transmit(SELECT_PSE).endswith("9000"))
        self.assertTrue(daemon.alive())

    def test_a_tty_that_goes_away_and_comes_back_works_again(self):
        link = f"/dev/shm/vorn-pcsc-test-{os.getpid()}"
        simulator = self.simulator(profile(["contact"]), link=link)
        daemon = self.daemon(("VORN", link, serial_library()))
        client = self.client()
        card = client.connect(reader("contact"))
        simulator.process.terminate()
        simulator.process.wait()
        self.assertNotEqual(card.attempt(SELECT_PSE)[0], scard.SCARD_S_SUCCESS)
        client.wait_for_absence(reader("contact"))
        self.simulator(profile(["contact"]), link=link)
        card = client.connect(reader("contact"))
        self.assertTrue(card.transmit(SELECT_PSE).endswith("9000"))
        self.assertTrue(daemon.alive())

    def test_no_file_and_no_log_holds_what_a_card_says(self):
        _, daemon, client = self.whole_reader(["contact"], "--fault", "status=04@9")
        card = client.connect(reader("contact"))
        card.transmit("00A4040008A000000333010101")
        card.attempt("00B2020C00" + ACCOUNT_NUMBER[:18])
        card.attempt("00B2011400")
        daemon.stop()
        self.assertEqual(sorted(p.name for p in daemon.folder.iterdir()), ["log", "reader.conf.d"])
        log = daemon.log.read_text().replace(" ", "")
        self.assertNotIn(ACCOUNT_NUMBER[:10], log)


    def test_the_installed_configuration_names_the_installed_driver_in_both_forms(self):
        simulator = self.simulator(profile(["contact", "psam1"]))
        text = INSTALLED_CONFIGURATION.read_text().replace("/dev/ttyS1", simulator.tty)
        whole, named = text.split("# Six readers")
        for part, names in ((whole, ["VORN DK7710 00 00"]), (named, ["VORN DK7710 contact 00 00"])):
            configuration = pathlib.Path(self.folder) / "configuration"
            configuration.write_text("".join(line[1:] if line.startswith(("#FRIENDLY", "#DEVICE", "#LIBPATH", "#CHANNEL"))
                                             else "" for line in part.splitlines(keepends=True)))
            daemon = self.daemon(configuration=configuration)
            client = self.client()
            wait_until(lambda: len(client.readers()) == len(SLOTS), "six readers")
            self.assertTrue(client.connect(names[0]).transmit(SELECT_PSE).endswith("9000"))
            daemon.stop()


class Usb(DaemonTest):
    def test_a_reader_is_plugged_in_works_and_is_pulled_and_comes_back(self):
        usb = UsbReader(self.folder, profile(["contact", "contactless", "psam1"]))
        self.addCleanup(usb.stop)
        usb.tell("plug")
        daemon = self.daemon(environment={"UMOCKDEV_DIR": usb.directory, "LD_PRELOAD": "libumockdev-preload.so.0"})
        client = self.client()
        names = [f"VORN DK7710 00 {slot:02X}" for slot in range(len(SLOTS))]
        for _ in range(2):
            wait_until(lambda: client.readers() == names, "the reader")
            card = client.connect(names[0])
            self.assertEqual(card.attribute(scard.SCARD_ATTR_ATR_STRING).hex().upper(), DEBIT_ATR)
            self.assertEqual(int.from_bytes(card.attribute(scard.SCARD_ATTR_CHANNEL_ID), "little") >> 16, 0x20)
            for _ in range(200):
                self.assertTrue(card.transmit(SELECT_PSE).endswith("9000"))
            self.assertEqual(client.connect(names[2]).transmit("00A40000023F00"), "6117")
            self.assertTrue(client.connect(names[1]).transmit(SELECT_PSE).endswith("9000"))
            usb.tell("unplug")
            wait_until(lambda: client.readers() == [], "a daemon without a reader")
            self.assertNotEqual(card.attempt(SELECT_PSE)[0], scard.SCARD_S_SUCCESS)
            self.assertTrue(daemon.alive())
            usb.tell("plug")


def place_driver():
    """Where the daemon looks for it, as it is installed."""
    if not os.path.ismount(DRIVERS) or not os.path.ismount("/run"):
        sys.exit("daemon.py: only in a mount namespace of its own: scripts/stages/pcsc")
    with tempfile.TemporaryDirectory(dir="/tmp") as folder:
        subprocess.run(["cmake", "--install", BUILD, "--component", "pcsc", "--prefix", folder + "/usr"], check=True,
                       stdout=subprocess.DEVNULL)
        shutil.copytree(folder + str(DRIVERS), DRIVERS, dirs_exist_ok=True)
        shutil.copy(folder + "/usr/etc/reader.conf.d/libifd-vorn", INSTALLED_CONFIGURATION)


if __name__ == "__main__":
    place_driver()
    unittest.main(argv=[sys.argv[0], *sys.argv[2:]], verbosity=2)
