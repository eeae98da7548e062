# SPDX-License-Identifier: Apache-2.0
"""What the cards answered to the library, as a parser that is not this project's reads it, and as the tool and the
library read it.

    /usr/bin/python3 tests/interop/trees.py BUILD-FOLDER FOLDER-OF-THE-PARSER [unittest's options]
"""
import ctypes
import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
COMMANDS = (["info", "--verify"], ["sale", "--amount", "12.50"], ["sale", "--amount", "0.50"],
            ["sale", "--amount", "99999.00"], ["log"])
PROFILES = ("debit", "credit", "multi", "contactless", "psam", "wallet", "flawed-hash")
ANSWER, COMMAND = "Outdata----------------------", "Indata----------------------"


def answers_in(log):
    """The data of every answer to a command, without the status word."""
    dump, found = None, []
    for line in log.splitlines() + [""]:
        if ANSWER in line and "capdu" in line:
            dump = b""
            found.append(dump)
        elif ANSWER in line or COMMAND in line:
            dump = None
        elif dump is not None:
            try:
                dump += bytes.fromhex(line)
                found[-1] = dump
            except ValueError:
                dump = None
    return [answer[:-2] for answer in found if len(answer) > 2]


def record(vorn):
    answers = set()
    with tempfile.TemporaryDirectory() as folder:
        for profile in PROFILES:
            logs = pathlib.Path(folder, profile)
            for command in COMMANDS:
                # Not every card does everything; what it answered stands in the log all the same.
                subprocess.run([vorn, *command, "--sim", profile, "--log-dir", logs], stdout=subprocess.DEVNULL,
                               stderr=subprocess.DEVNULL, check=False)
            answers.update(answers_in((logs / "ICC_COMM_VORN.log").read_text(encoding="latin-1")))
    return sorted(answers)


def others_trees(parser, answers):
    lines = "".join(answer.hex() + "\n" for answer in answers)
    done = subprocess.run(["node", HERE / "parse_objects.js", parser], input=lines, stdout=subprocess.PIPE, text=True,
                          check=True)
    return [json.loads(line) for line in done.stdout.splitlines()]


def tools_tree(vorn, answer):
    done = subprocess.run([vorn, "decode", "--as", "tlv", "--json", "--show", answer.hex()], stdout=subprocess.PIPE,
                          stderr=subprocess.DEVNULL, text=True, check=False)
    document = json.loads(done.stdout)
    return None if document["problem"] else [plain(item) for item in document["objects"]]


def plain(item):
    """One object of the tool's; its words are left out."""
    first = int(item["name"][:2], 16)
    if first & 0x20:
        return {"tag": item["name"], "objects": [plain(inner) for inner in item.get("objects", [])]}
    return {"tag": item["name"], "value": item["value"]}


def in_order(objects):
    for one in objects:
        yield one
        yield from in_order(one.get("objects", []))


class Trees(unittest.TestCase):
    def test_the_tool_reads_the_same_objects(self):
        for answer, tree in zip(ANSWERS, OTHERS):
            self.assertEqual(tools_tree(VORN, answer), tree, answer.hex())

    def test_the_library_finds_the_same_values(self):
        library = ctypes.CDLL(str(BUILD / "ICC_COMM_VORN.so"))
        library.vrdk_findtag.restype = ctypes.c_void_p
        for answer, tree in zip(ANSWERS, OTHERS):
            first = {}
            for one in in_order(tree or []):
                first.setdefault(one["tag"], one)
            for name, one in first.items():
                tag = bytes.fromhex(name)
                found = library.vrdk_findtag(tag, len(tag), answer, len(answer))
                self.assertTrue(found, name + " in " + answer.hex())
                if "value" in one:
                    value, length = (ctypes.c_ubyte * 256)(), ctypes.c_ubyte()
                    library.vrdk_GetTagData(len(tag), ctypes.c_void_p(found), value, ctypes.byref(length))
                    self.assertEqual(bytes(value[:length.value]).hex().upper(), one["value"], name)

    def test_what_was_recorded_is_worth_comparing(self):
        tags = {one["tag"] for tree in OTHERS for one in in_order(tree or [])}
        for tag in ("6F", "A5", "70", "77", "80", "8E", "90", "9F46", "9F4B", "BF0C"):
            self.assertIn(tag, tags)


if __name__ == "__main__":
    BUILD = pathlib.Path(sys.argv[1]).resolve()
    VORN = BUILD / "vorn"
    ANSWERS = record(VORN)
    OTHERS = others_trees(sys.argv[2], ANSWERS)
    print(f"{len(ANSWERS)} different answers, {sum(len(answer) for answer in ANSWERS)} bytes,"
          f" {sum(1 for tree in OTHERS for _ in in_order(tree or []))} data objects", flush=True)
    unittest.main(argv=[sys.argv[0], *sys.argv[3:]])
