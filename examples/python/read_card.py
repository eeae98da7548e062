#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Reads a card: read_card.py LIBRARY PORT"""
import sys

import vorn_reader


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: read_card.py LIBRARY PORT")
    library, port = sys.argv[1:]
    try:
        with vorn_reader.Reader(port, library) as reader:
            print("reader", reader.version())
            reader.wait_for_card(20)
            card = reader.information()
            print("card", vorn_reader.masked(card["pan"]))
            print(card)
    except vorn_reader.NoCard:
        sys.exit("Please insert the card.")
    except vorn_reader.CardError as error:
        sys.exit(str(error))


main()
