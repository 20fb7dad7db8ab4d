"""A chip profile in proportion to a table: grown_profile.py PROFILE ROUTES

PROFILE suits 2 million routes and is never exceeded. Rows of tables stay powers of two, NHI tiles whole; neither falls
below what the shortest prefixes need."""

import json
import sys

FULL = 2_000_000
LEAST_ROWS = 16


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        profile = json.load(file)
    share = int(sys.argv[2]) / FULL
    for family in (profile["ipv4"], profile["ipv6"]):
        for table in family["tables"]:
            # The next power of two upwards.
            rows = max(LEAST_ROWS, round(table["rows"] * share))
            table["rows"] = min(table["rows"], 1 << (rows - 1).bit_length())
        tiles = family["nhi"]["tiles"]
        family["nhi"]["tiles"] = min(tiles, max(4, round(tiles * share)))
    json.dump(profile, sys.stdout)


main()
