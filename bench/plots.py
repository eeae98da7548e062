# SPDX-License-Identifier: Apache-2.0
"""The plots of docs/performance.md: bars of parts, drawn as SVG."""
import os
import statistics

COLOURS = ["#4c72b0", "#dd8452", "#55a868", "#c44e52", "#8172b3"]
LABEL, WIDTH, ROW, TOP = 200, 520, 24, 64


def text(x, y, words, anchor="start", size=12, weight="normal"):
    return '<text x="%g" y="%g" font-size="%d" font-weight="%s" text-anchor="%s">%s</text>' % (
        x, y, size, weight, anchor, words)


def bars(title, parts, rows, unit):
    """rows: (label, [a value for each part], what stands behind the bar)"""
    longest = max(sum(values) for _, values, _ in rows)
    height = TOP + ROW * len(rows) + 30
    lines = ['<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d" font-family="sans-serif">' % (
        LABEL + WIDTH + 170, height), '<rect width="100%" height="100%" fill="white"/>',
        text(10, 22, title, size=15, weight="bold")]
    x = LABEL
    for colour, part in zip(COLOURS, parts):
        lines.append('<rect x="%g" y="36" width="12" height="12" fill="%s"/>' % (x, colour))
        lines.append(text(x + 17, 46, part))
        x += 40 + 7 * len(part)
    for i, (label, values, behind) in enumerate(rows):
        y = TOP + ROW * i
        lines.append(text(LABEL - 8, y + 14, label, "end"))
        x = LABEL
        for colour, value in zip(COLOURS, values):
            width = WIDTH * value / longest
            lines.append('<rect x="%.1f" y="%g" width="%.1f" height="%d" fill="%s"/>' % (x, y, width, ROW - 6, colour))
            x += width
        lines.append(text(x + 6, y + 14, behind))
    lines.append(text(LABEL, height - 10, unit, size=11))
    return "\n".join(lines + ["</svg>"]) + "\n"


def median(found, key):
    return statistics.median(record[key] for record in found)


def call_times(details):
    rows = []
    for name, found in details.items():
        if name.startswith("tty/"):
            line, pauses, processor, whole = (1000 * median(found, key)
                                              for key in ("line", "pauses", "processor", "seconds"))
            asking = max(whole - line - pauses - processor, 0)
            rows.append((name[4:], [line, pauses, asking, processor], "%.0f ms" % whole))
    parts = ["bytes on the line", "pauses of the protocol", "between two questions", "processor"]
    return bars("Where the time of a call goes, at 38400 baud", parts, rows, "milliseconds") if rows else None


def exchange_times(figures):
    rows = []
    for size in ("60", "255"):
        found = figures.details.get("exchange/" + size)
        if found:
            bare = median(found, "bare_us")
            # What the link and the log take in the exchange, by what they take alone.
            whole, link, logs = (median(found, key) for key in ("ratio", "link", "logs"))
            share = whole / (link + logs)
            rows.append((size + " bytes back", [link * share * bare, logs * share * bare],
                         "%.1f times the bare loop" % whole))
            rows.append(("bare loop", [bare, 0], "%.1f us" % bare))
    return bars("Processor time of one exchange", ["link", "log entries"], rows, "microseconds") if rows else None


def counted(figures, group, title, unit):
    rows = []
    parts = ["link", "logs", "rest"]
    for size in ("60", "255"):
        names = ["%s/%s bytes back, %s" % (group, size, part) for part in parts]
        if all(name in figures.rows for name in names):
            values = [max(statistics.median(figures.rows[name]["samples"]), 0) for name in names]
            rows.append((size + " bytes back", values, "%.0f" % sum(values)))
    return bars(title, parts, rows, unit) if rows else None


def draw(figures, directory):
    plots = {
        "call-times.svg": call_times(figures.details),
        "exchange-time.svg": exchange_times(figures),
        "exchange-calls.svg": counted(figures, "system calls", "System calls of one exchange", "calls"),
        "exchange-instructions.svg": counted(figures, "instructions", "Instructions of one exchange, outside the kernel",
                                             "instructions"),
    }
    for name, picture in plots.items():
        if picture is not None:
            with open(os.path.join(directory, name), "w") as file:
                file.write(picture)
