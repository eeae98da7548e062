# SPDX-License-Identifier: Apache-2.0
"""The same transactions with the terminal as a client of the PC/SC daemon, behind the reader's driver.

It runs in a mount namespace of its own (scripts/stages/interop), as tests/pcsc/daemon.py does.
  over_pcsc.py BUILD-FOLDER [unittest's options]
"""
import pathlib
import shutil
import sys
import tempfile
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "pcsc"))
import daemon  # noqa: E402
import transactions  # noqa: E402
from reader import Exchanging, Simulation  # noqa: E402


class PcscCard(Exchanging):
    def __init__(self, card):
        self.card = card

    def transmit(self, command):
        return bytes.fromhex(self.card.transmit(command.hex()))


def through_the_daemon(test, profile, contactless):
    folder = tempfile.mkdtemp(prefix="vorn-interop-", dir="/tmp")
    test.addCleanup(shutil.rmtree, folder)
    simulation = Simulation(str(daemon.BUILD / "vorn"), profile)
    test.addCleanup(simulation.end)
    service = daemon.Daemon(folder, (("VORN", simulation.port, daemon.serial_library()),))
    test.addCleanup(service.stop)
    client = daemon.Client()
    test.addCleanup(client.release)
    return PcscCard(client.connect(daemon.reader("contactless" if contactless else "contact")))


if __name__ == "__main__":
    daemon.place_driver()
    transactions.OneCard.way = staticmethod(through_the_daemon)
    unittest.main(module=transactions, argv=[sys.argv[0], *sys.argv[2:]])
