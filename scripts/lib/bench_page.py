"""Writes the pictures in docs/performance/, and the figures of docs/performance.md."""

import html
import json
import math
import os
import platform
import re
import subprocess
import textwrap
import time

PICTURES_IN = "docs/performance"
PAGE = "docs/performance.md"
REASONS = "bench/reasons.json"
LIBRARY, FLOOR = "libtavo", "floor"
LIMIT = 1.05  # times the floor; above it an operation needs a reason

# Each picture: its file, its title, and the prefixes of the names of its operations.
PICTURES = [
    ("json", "JSON", ("json",)),
    ("dispatch", "Dispatching requests", ("dispatch",)),
    ("text", "Log, texts and times", ("log", "split", "time ", "100,000")),
    ("messages", "Sockets, MQTT, inotify", ("500 socket", "MQTT", "10,000")),
    ("processes", "Running programs", ("execute",)),
    ("files", "Files", ("list", "copy")),
    ("crypto", "AES and base64", ("AES", "base64")),
]

# Text and lines change with the reader's colour scheme; the bars are readable on both backgrounds.
STYLE = """
text { font: 12px system-ui, -apple-system, 'Segoe UI', 'DejaVu Sans', sans-serif; fill: #1f2328; }
.title { font-size: 15px; font-weight: 600; }
.operation { font-weight: 600; }
.soft { fill: #59636e; }
.value { fill: #59636e; paint-order: stroke; stroke: #ffffff; stroke-width: 3; }
.grid { stroke: #d1d9e0; stroke-width: 1; }
.one { stroke: #59636e; stroke-width: 1.5; }
.range { stroke: #1f2328; stroke-width: 1.5; }
.back { fill: #ffffff; }
.c0 { fill: #0969da; stroke: #0969da; } .c1 { fill: #818b98; stroke: #818b98; }
.c2 { fill: #d1770f; stroke: #d1770f; } .c3 { fill: #2da44e; stroke: #2da44e; }
.line { fill: none; stroke-width: 2.5; }
@media (prefers-color-scheme: dark) {
text { fill: #f0f6fc; } .soft { fill: #9198a1; } .grid { stroke: #3d444d; } .one { stroke: #9198a1; }
.range { stroke: #f0f6fc; }
.value { fill: #9198a1; stroke: #0d1117; }
.back { fill: #0d1117; } .c0 { fill: #4493f8; stroke: #4493f8; } .c1 { fill: #9198a1; stroke: #9198a1; }
}
"""

BAR, GAP, NAME_WIDTH, PANEL_WIDTH, VALUE_WIDTH = 13, 3, 250, 300, 56


def document(width, height, title, parts):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" '
            f'height="{height}" role="img" aria-label="{html.escape(title)}">\n<style>{STYLE}</style>\n'
            f'<rect class="back" width="{width}" height="{height}" rx="6"/>\n' + "\n".join(parts) + "\n</svg>\n")


def text(x, y, content, kind="", anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}" text-anchor="{anchor}">{html.escape(content)}</text>'


def shown(ratio):
    return f"{ratio:.2f}" if ratio < 10 else f"{ratio:.0f}"


def sides_of(ratios):
    """The library, the floor, then the peers by name."""
    return [LIBRARY, FLOOR, *sorted(set(ratios) - {LIBRARY})]


def quartiles_of(figure):
    """Of a time, the quartiles over all rounds; of instructions, the same number three times."""
    return figure if isinstance(figure, list) else [figure] * 3


def panel(parts, left, top, title, rows, domain):
    """One set of bars; `rows` are (y, operation's ratios by side)."""
    first, last = math.log10(domain[0]), math.log10(domain[1])
    at = lambda ratio: left + (math.log10(ratio) - first) / (last - first) * PANEL_WIDTH
    bottom = rows[-1][0] + (BAR + GAP) * len(sides_of(rows[-1][1])) if rows else top
    parts.append(text(left, top - 22, title, "soft"))
    for power in range(round(first), round(last) + 1):
        x = at(10.0 ** power)
        parts.append(f'<line class="{"one" if power == 0 else "grid"}" x1="{x:.1f}" x2="{x:.1f}" y1="{top}" y2="{bottom}"/>')
        parts.append(text(x, top - 6, f"{10.0 ** power:g}", "soft", "middle"))
    for y, ratios in rows:
        for index, side in enumerate(sides_of(ratios)):
            low, ratio, high = quartiles_of(ratios.get(side, 1.0))
            line = y + index * (BAR + GAP)
            end = max(at(ratio), left + 1)
            parts.append(f'<rect class="c{min(index, 3)}" stroke="none" x="{left}" y="{line}" width="{end - left:.1f}" height="{BAR}" rx="2"/>')
            if at(high) - at(low) >= 2:
                middle = line + BAR / 2
                parts.append(f'<line class="range" x1="{at(low):.1f}" x2="{at(high):.1f}" y1="{middle}" y2="{middle}"/>')
            parts.append(text(max(end, at(high)) + 4, line + BAR - 2, shown(ratio), "value"))


def bars(title, timed, counted):
    """A picture of all its operations, with a panel for the time and one for the instructions."""
    drawn = [ratio for table in (timed, counted) for ratios in table.values()
             for figure in ratios.values() for ratio in quartiles_of(figure)]
    domain = (10.0 ** min(-1, math.floor(math.log10(min(drawn)))), 10.0 ** max(1, math.ceil(math.log10(max(drawn)))))
    parts, rows = [], {}
    top = 78
    y = top + 8
    for operation, ratios in timed.items():
        rows[operation] = y
        parts.append(text(16, y + BAR - 2, operation, "operation"))
        y += (BAR + GAP) * len(sides_of(ratios)) + 14
    panels = [("time, times the floor (log scale; line: quartiles)", timed),
              ("instructions, times the floor (log scale)", counted)]
    left = 16 + NAME_WIDTH
    for operation, ratios in timed.items():
        for index, side in enumerate(sides_of(ratios)):
            line = rows[operation] + index * (BAR + GAP)
            parts.append(text(left + 150, line + BAR - 2, side, "soft", "end"))
    left += 160
    for name, table in panels:
        panel(parts, left, top, name, [(rows[operation], ratios) for operation, ratios in table.items()], domain)
        left += PANEL_WIDTH + VALUE_WIDTH
    parts.insert(0, text(16, 28, title, "title"))
    return document(left, y + 4, f"{title}: library, floor and peers", parts)


def curve(figures):
    """Milliseconds by MiB in use, both on log scales."""
    width, height, left, top, right, bottom = 760, 400, 70, 60, 600, 340
    sizes = [int(size) for size in figures]
    values = [value for ways in figures.values() for value in ways.values()]
    low, high = math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))
    x_at = lambda size: left + math.log2(size / sizes[0]) / math.log2(sizes[-1] / sizes[0]) * (right - left)
    y_at = lambda value: bottom - (math.log10(value) - low) / (high - low) * (bottom - top)
    parts = [text(16, 28, "Starting a program that does nothing, by the memory that the caller has in use", "title")]
    for power in range(low, high + 1):
        y = y_at(10.0 ** power)
        parts += [f'<line class="grid" x1="{left}" x2="{right}" y1="{y:.1f}" y2="{y:.1f}"/>',
                  text(left - 8, y + 4, f"{10.0 ** power:g} ms", "soft", "end")]
    for size in sizes:
        parts += [f'<line class="grid" x1="{x_at(size):.1f}" x2="{x_at(size):.1f}" y1="{top}" y2="{bottom}"/>',
                  text(x_at(size), bottom + 20, f"{size} MiB", "soft", "middle")]
    taken = []
    for index, way in enumerate(figures[str(sizes[0])]):
        kind = f"c{(0, 2, 3)[index]}"
        points = [(x_at(size), y_at(figures[str(size)][way])) for size in sizes]
        parts.append(f'<polyline class="line {kind}" style="fill:none" points="' +
                     " ".join(f"{x:.1f},{y:.1f}" for x, y in points) + '"/>')
        parts += [f'<circle class="{kind}" cx="{x:.1f}" cy="{y:.1f}" r="3.5"/>' for x, y in points]
        label = points[-1][1] + 4
        while any(abs(label - other) < 16 for other in taken):
            label += 4
        taken.append(label)
        parts.append(text(right + 12, label, way, "operation"))
    return document(width, height, "Time to start a program by memory in use", parts)


def table(timed, rounds, counted):
    lines = ["| operation | time | quartiles | rounds | instructions | peers: time, instructions |",
             "|---|---:|---:|---:|---:|---|"]
    for operation, ratios in timed.items():
        count = counted[operation]
        peers = [f"{side} {shown(ratios[side][1])}, {shown(count[side])}" for side in sides_of(ratios)[2:]]
        low, middle, high = ratios[LIBRARY]
        lines.append(f"| {operation} | {shown(middle)} | {shown(low)} to {shown(high)} | {rounds[operation]} | {shown(count[LIBRARY])} | {'; '.join(peers)} |")
    return "\n".join(lines)


def reasons():
    """Reasons by measure ("time" or "instructions") and operation."""
    with open(REASONS) as file:
        return json.load(file)


def above(timed, counted):
    """A list of the operations above the limit, each with its reason, and those without one.

    An operation with only its upper quartile above the limit is in the list if it has a reason.
    """
    known, lines, unexplained = reasons(), [], []

    def explain(operation, what, reason):
        lines.append(f"- **{operation}**, {what}: {reason or 'the cause is not known'}.")
        if not reason:
            unexplained.append(f"{operation}, {what}")

    # Three decimals: a ratio of 1.051 would read as the limit itself.
    for operation, ratios in timed.items():
        low, middle, high = ratios[LIBRARY]
        count = counted[operation][LIBRARY]
        reason = known["time"].get(operation)
        if middle > LIMIT or (high > LIMIT and reason):
            explain(operation, f"time {middle:.3f}, quartiles {low:.3f} to {high:.3f}", reason)
        if count > LIMIT:
            explain(operation, f"instructions {count:.3f}", known["instructions"].get(operation))
    if not lines:
        lines = [f"No operation took more than {LIMIT} times the time or the instructions of its floor."]
    wrapped = [textwrap.fill(line, 100, subsequent_indent="  ", break_on_hyphens=False) for line in lines]
    return "\n".join(wrapped), unexplained


def curve_table(figures):
    ways = list(next(iter(figures.values())))
    lines = ["| in use | " + " | ".join(ways) + " |", "|---:|" + "---:|" * len(ways)]
    for size, times in figures.items():
        lines.append(f"| {size} MiB | " + " | ".join(f"{times[way]:.2f} ms" for way in ways) + " |")
    return "\n".join(lines)


def output_of(*command):
    return subprocess.run(command, capture_output=True, text=True).stdout.strip()


def machine():
    """What the figures were made on, and how busy it was."""
    processor = platform.machine()
    with open("/proc/cpuinfo") as info:
        found = re.search(r"^model name\s*:\s*(.*)$", info.read(), re.MULTILINE)
        processor = found[1] if found else processor
    release = platform.freedesktop_os_release()["PRETTY_NAME"]
    compiler = output_of("c++", "--version").splitlines()[0]
    load = os.getloadavg()
    line = (f"Made on {time.strftime('%Y-%m-%d', time.gmtime())}: {processor}, {os.cpu_count()} processors, {release}, "
            f"{compiler}. Load averages at the end: {load[0]:.1f}, {load[1]:.1f}, {load[2]:.1f}.")
    return textwrap.fill(line, 100)


def replaced(page, marker, content):
    pattern = re.compile(f"(<!-- {marker} -->\n).*?(<!-- end -->)", re.DOTALL)
    if not pattern.search(page):
        raise SystemExit(f"{PAGE} has no place for '{marker}'")
    return pattern.sub(lambda found: found[1] + content + "\n" + found[2], page)


def write(timed, rounds, counted, forks, machine):
    """Returns the operations above the limit that have no reason."""
    os.makedirs(PICTURES_IN, exist_ok=True)
    for name, title, beginnings in PICTURES:
        chosen = {operation: ratios for operation, ratios in timed.items() if operation.startswith(beginnings)}
        with open(f"{PICTURES_IN}/{name}.svg", "w") as picture:
            picture.write(bars(title, chosen, {operation: counted[operation] for operation in chosen}))
    with open(f"{PICTURES_IN}/fork.svg", "w") as picture:
        picture.write(curve(forks))

    explained, unexplained = above(timed, counted)
    with open(PAGE) as file:
        page = file.read()
    page = replaced(page, "machine", machine)
    page = replaced(page, "figures", table(timed, rounds, counted))
    page = replaced(page, "above", explained)
    page = replaced(page, "forks", curve_table(forks))
    with open(PAGE, "w") as file:
        file.write(page)
    return unexplained
