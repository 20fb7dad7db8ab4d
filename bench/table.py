"""Result lines of RouteBench and the peers as one Markdown table: table.py [--cpu] FILE

A rate is the median of the runs in thousands of routes a second (least-most); with --cpu, a second
of the process's own CPU time, which others on the machine disturb less. A ratio is the median rate
of the client driven by batches over the row's, of the same family, order and number of routes; where
it did not run, that of the library."""

import json
import statistics
import sys
from collections import defaultdict

OPS = ("insert", "update", "delete")
OURS = ("tarnlet_batches", "tarnlet_library")


def read(path, by_cpu):
    """Lines by (family, order, routes), then name, then operation."""
    groups = defaultdict(lambda: defaultdict(lambda: defaultdict(list)))
    with open(path, encoding="utf-8") as file:
        for line in map(json.loads, file):
            if by_cpu and line["cpu_seconds"] > 0:
                line["rate"] = line["routes"] / line["cpu_seconds"]
            group = groups[line["family"], line["order"], line["routes"]]
            group[line["name"]][line["op"]].append(line)
    return groups


def median(lines, field):
    return statistics.median(line[field] for line in lines)


def rate(lines):
    thousands = [line["rate"] / 1000 for line in lines]
    text = f"{statistics.median(thousands):,.0f}"
    if len(thousands) > 1:
        text += f" ({min(thousands):,.0f}-{max(thousands):,.0f})"
    return text


def busy(ops):
    """The least share of a phase's time in which its process had a core."""
    return min(line["cpu_seconds"] / line["seconds"] for lines in ops.values() for line in lines)


def row(family, order, routes, name, ops, ours):
    cells = [family, order, f"{routes:,}", name]
    cells += [rate(ops[op]) for op in OPS]
    for op in OPS:
        ratio = median(ours[op], "rate") / median(ops[op], "rate") if ours else None
        cells.append("-" if ratio is None or ops is ours else f"{ratio:.2f}")
    cells.append(f"{median(ops['insert'], 'bytes_per_route'):,.0f}")
    cells.append(f"{busy(ops):.2f}")
    unserved = sum(line["unserved"] for lines in ops.values() for line in lines)
    cells.append(f"{unserved:,}")
    return "| " + " | ".join(cells) + " |"


def main():
    by_cpu = sys.argv[1:2] == ["--cpu"]
    paths = sys.argv[2:] if by_cpu else sys.argv[1:]
    if len(paths) != 1:
        sys.exit("usage: table.py [--cpu] FILE, where FILE holds lines of RouteBench and the peers")
    print(
        "| family | order | routes | name | insert k/s | update k/s | delete k/s "
        "| ours ÷ it: insert | update | delete | bytes/route | CPU/wall | unserved |"
    )
    print("|---|---|--:|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|")
    for (family, order, routes), names in sorted(read(paths[0], by_cpu).items()):
        whole = {name: ops for name, ops in names.items() if routes and all(ops[op] for op in OPS)}
        ours = next((whole[name] for name in OURS if name in whole), None)
        for name, ops in whole.items():
            print(row(family, order, routes, name, ops, ours))


main()
