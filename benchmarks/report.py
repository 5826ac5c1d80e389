#!/usr/bin/env python3
"""Runs the benchmarks of a build and prints their tables. With --write, measures everything and writes the results: tables into
docs/performance.md, every row into docs/performance.tsv, the plot into docs/performance.svg, and the summary into README.md.
"""
import argparse
import datetime
import json
import math
import platform
import re
import statistics
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
DOCUMENT = ROOT / "docs/performance.md"
README = ROOT / "README.md"
DATA = ROOT / "docs/performance.tsv"
PLOT = ROOT / "docs/performance.svg"

# The goals: the start of a benchmark's name, then the highest ratio with the system's yield and without it.
GOALS = [
    ("request/floor/services:1", 1.03, 1.04),
    ("request/one of one/services:100000", 1.10, 1.10),
    ("address/by hand, take all segments", 1.2, 1.2),
    ("context/bare look-ups, get", 1.2, 1.2),
]
INSTRUCTIONS_GOAL = 1.05
COUNTS = (1000, 11000)
# A process's memory layout shifts its ratios too, so several processes are measured.
PROCESSES = 3
REPETITIONS = 3


def run_once(program, out):
    done = subprocess.run(
        [program, f"--benchmark_out={out}", "--benchmark_out_format=json", "--benchmark_min_time=0.2",
         f"--benchmark_repetitions={REPETITIONS}", "--benchmark_enable_random_interleaving=true"],
        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    if done.returncode != 0:
        raise SystemExit(f"{program.name} failed:\n{done.stderr}")
    found = json.loads(out.read_text())
    rounds = {}
    for entry in found["benchmarks"]:
        if entry["run_type"] != "iteration":
            continue
        if entry.get("error_occurred"):
            raise SystemExit(f"{entry['name']}: {entry['error_message']}")
        name = entry["run_name"].replace("/real_time", "")
        rounds.setdefault(name, []).append(
            (entry["repetition_index"], entry.get("ns", entry["real_time"]), entry.get("baseline_ns"),
             entry.get("ratio")))
    # Benchmarks on several threads can't alternate with their baseline, so their repetitions serve as rounds.
    for name in [name for name in rounds if name.startswith("threads/framework")]:
        floor = {index: time for index, time, _, _ in rounds.pop(name.replace("framework", "floor"))}
        rounds[name.replace("threads/framework", "request/floor")] = [
            (index, time, floor[index], time / floor[index]) for index, time, _, _ in rounds.pop(name)]
    return found["context"], rounds


def run(program, out):
    """The median of each benchmark over all repetitions of all processes."""
    out.parent.mkdir(exist_ok=True)
    rounds = {}
    for _ in range(PROCESSES):
        context, measured = run_once(program, out)
        for name, repetitions in measured.items():
            rounds.setdefault(name, []).extend(repetitions)
    medians = {}
    for name, measured in rounds.items():
        columns = list(zip(*measured))[1:]
        medians[name] = [statistics.median(column) if column[0] is not None else None for column in columns]
    return context, medians


def count(folder):
    """Instructions and allocations per request, for the framework and for the floor."""
    counted = {}
    for kind in ("framework", "floor"):
        totals = []
        for requests in COUNTS:
            done = subprocess.run(
                ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", folder / "instructions", kind,
                 str(requests)], check=True, capture_output=True, text=True)
            totals.append(int(re.search(r"Collected : (\d+)", done.stderr).group(1)))
        counted[kind] = (totals[1] - totals[0]) / (COUNTS[1] - COUNTS[0]), float(done.stdout)
    return counted


def table(head, rows):
    rows = [head] + [[str(cell) for cell in row] for row in rows]
    widths = [max(len(row[i]) for row in rows) for i in range(len(head))]
    lines = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |" for row in rows]
    lines.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join(lines)


def code(name):
    """A name in code font."""
    return f"`{name}`"


def verdict(ratio, goal):
    return f"at most {goal:.2f}: {'met' if round(ratio, 2) <= goal else 'MISSED'}"


def nanoseconds(value):
    return f"{value:.0f}" if value >= 100 else f"{value:.1f}"


def goals(with_yield, without):
    rows = []
    for part, first, second in GOALS:
        for name in sorted(with_yield, key=order):
            if name == part or name.startswith(part + "/"):
                rows.append([code(name), f"{with_yield[name][2]:.3f}", verdict(with_yield[name][2], first),
                             f"{without[name][2]:.3f}", verdict(without[name][2], second)])
    return table(["benchmark", "with yield", "goal", "without", "goal"], rows)


def order(name):
    """Sorts numbers in names by value."""
    return [int(part) if part.isdigit() else part for part in re.split(r"(\d+)", name)]


COLUMNS = ["benchmark", "ns", "baseline ns", "ratio", "stubbed ns", "stubbed baseline ns", "stubbed ratio"]


def every(with_yield, without):
    """The rows below COLUMNS. Without a baseline, its fields and the ratio's are empty."""
    rows = []
    for name in sorted(with_yield, key=order):
        row = [name]
        for ns, baseline, ratio in (with_yield[name], without[name]):
            row += [nanoseconds(ns), *(["", ""] if ratio is None else [nanoseconds(baseline), f"{ratio:.3f}"])]
        rows.append(row)
    return rows


def tab_separated(rows):
    return "".join("\t".join(row) + "\n" for row in rows)


def instructions(counted):
    (ours, allocations), (floor, floor_allocations) = counted["framework"], counted["floor"]
    ratio = ours / floor
    return table(["", "framework", "floor", "ratio", "goal"],
                 [["instructions", f"{ours:,.1f}", f"{floor:,.1f}", f"{ratio:.3f}", verdict(ratio, INSTRUCTIONS_GOAL)],
                  ["allocations, including the caller's message", f"{allocations:g}", f"{floor_allocations:g}", "", ""]])


def summary(with_yield, without, counted, peers):
    """The README's table."""
    request = "request/floor/services:1"
    others = [(name.split(": ")[1], ns) for name, (ns, *_) in peers.items()
              if name.startswith("worker thread") and "mutex" not in name]
    threads = "; ".join(f"{name} {ns / 1000:.1f} µs" for name, ns in sorted(others, key=lambda other: other[1]))
    return table(["", ""], [
        ["a request and its reply, in process",
         f"{with_yield[request][2]:.2f} times the same steps written by hand: {with_yield[request][0] / 1000:.1f} µs"],
        ["the same, with a stub in place of `sched_yield`", f"{without[request][2]:.2f} times"],
        ["allocations per request", f"{counted['framework'][1] - 1:g} in addition to the caller's message"],
        ["a request to one of 100,000 services, compared with the only service",
         f"{with_yield['request/one of one/services:100000'][2]:.2f} times as long"],
        ["answered by another thread, on one processor", threads]])


def machine(context):
    model = re.search(r"model name\s*: (.*)", Path("/proc/cpuinfo").read_text())
    system = re.search(r'PRETTY_NAME="(.*)"', Path("/etc/os-release").read_text())
    rows = [["date", datetime.date.today().isoformat()],
            ["processor", f"{model.group(1) if model else platform.machine()}, {context['num_cpus']} processors"],
            ["system", f"{system.group(1)}, Linux {platform.release()}, {platform.libc_ver()[0]} {platform.libc_ver()[1]}"],
            ["compiler", context["compiler"]], ["Boost", context["boost"].replace("_", ".")]]
    return table(["", "measured on"], rows)


def plot(with_yield, without):
    """Three panels: nanoseconds per request by services, segments and threads."""
    width, height, left, top = 250, 190, 60, 40
    parts = ['<svg xmlns="http://www.w3.org/2000/svg" width="960" height="310" font-family="sans-serif" font-size="12">',
             '<rect width="960" height="310" fill="white"/>']
    lines = [(with_yield, 0, "#1f5fa8", "", "framework, with the yield"), (with_yield, 1, "#1f5fa8", "4 3", "floor"),
             (without, 0, "#b8501e", "", "framework, without the yield"), (without, 1, "#b8501e", "4 3", "floor")]
    for panel, key in enumerate(("services", "segments", "threads")):
        x0 = left + panel * (width + left)
        names = sorted((name for name in with_yield if re.fullmatch(rf"request/floor/{key}:\d+", name)), key=order)
        step = 50 * math.ceil(max(medians[name][column] for medians, column, *_ in lines for name in names) / 200)
        highest = 4 * step
        at_x = [x0 + width * i / max(1, len(names) - 1) for i in range(len(names))]
        parts.append(f'<text x="{x0}" y="{top - 14}" font-weight="bold">ns per request, by {key}</text>')
        for tick in range(5):
            y = top + height * (1 - tick / 4)
            parts.append(f'<line x1="{x0}" y1="{y:.1f}" x2="{x0 + width}" y2="{y:.1f}" stroke="#ddd"/>')
            parts.append(f'<text x="{x0 - 6}" y="{y + 4:.1f}" text-anchor="end">{step * tick:,}</text>')
        for x, name in zip(at_x, names):
            parts.append(f'<text x="{x:.1f}" y="{top + height + 18}" text-anchor="middle">{re.sub("000$", "k", name.split(":")[1])}</text>')
        for medians, column, colour, dashes, _ in lines:
            points = " ".join(f"{x:.1f},{top + height * (1 - medians[name][column] / highest):.1f}"
                              for x, name in zip(at_x, names))
            parts.append(f'<polyline points="{points}" fill="none" stroke="{colour}" stroke-width="2" '
                         f'stroke-dasharray="{dashes}"/>')
    for i, (_, _, colour, dashes, label) in enumerate(lines):
        x = left + i * 220
        parts.append(f'<line x1="{x}" y1="288" x2="{x + 30}" y2="288" stroke="{colour}" stroke-width="2" '
                     f'stroke-dasharray="{dashes}"/><text x="{x + 38}" y="292">{label}</text>')
    return "\n".join(parts + ["</svg>", ""])


def write(path, sections):
    """Replaces the text between each section's two markers."""
    text = path.read_text()
    for name, section in sections.items():
        begin, end = f"<!-- measured: {name} -->", f"<!-- end of {name} -->"
        before, rest = text.split(begin, 1)
        text = f"{before}{begin}\n{section}\n{end}{rest.split(end, 1)[1]}"
    path.write_text(text)
    print(f"\nWritten: {path.relative_to(ROOT)}")


def main():
    arguments = argparse.ArgumentParser(description=__doc__)
    arguments.add_argument("folder", type=Path, help="the folder with the built benchmarks")
    arguments.add_argument("--instructions", action="store_true", help="also count instructions with callgrind")
    arguments.add_argument("--peers", action="store_true", help="also measure alternatives")
    arguments.add_argument("--write", action="store_true", help="measure everything and write the results")
    asked = arguments.parse_args()

    results = asked.folder / "results"
    context, with_yield = run(asked.folder / "benchmarks", results / "with-yield.json")
    _, without = run(asked.folder / "benchmarks_without_yield", results / "without-yield.json")
    sections = {"machine": machine(context), "goals": goals(with_yield, without)}
    if asked.instructions or asked.write:
        counted = count(asked.folder)
        sections["instructions"] = instructions(counted)
    if asked.peers or asked.write:
        peers = run(asked.folder / "peers", results / "peers.json")[1]
        sections["peers"] = table(["setup", "ns"], [[code(name), f"{peers[name][0]:,.0f}"]
                                                   for name in sorted(peers, key=lambda name: peers[name][0])])
    rows = every(with_yield, without)
    print("\n\n".join([*sections.values(), table(COLUMNS, rows)]))
    if asked.write:
        write(DOCUMENT, sections)
        write(README, {"summary": summary(with_yield, without, counted, peers)})
        DATA.write_text(tab_separated([COLUMNS, *rows]))
        PLOT.write_text(plot(with_yield, without))


if __name__ == "__main__":
    main()
