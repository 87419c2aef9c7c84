#!/usr/bin/env python3
"""What gcovr has counted, for people: a table of the files, then each line and each branch that was not reached.

    coverage_report.py COVERAGE.json     made by gcovr --json; run in the folder that its file names start from
"""

import json
import pathlib
import sys


def counts(numbers):
    """How many there are, and how many of them were reached."""
    return len(numbers), sum(number > 0 for number in numbers)


def share(total, reached):
    if total == 0:
        return "-"
    # Never rounded up to a 100 that is none.
    return f"{reached * 1000 // total / 10:.1f}"


def row(name, lines, branches):
    return f"{name:<44}{lines[0]:>6}{lines[1]:>9}{share(*lines):>7}{branches[0]:>10}{branches[1]:>9}{share(*branches):>7}"


def branch_counts(line):
    return [branch["count"] for branch in line["branches"]]


def code_of(entry):
    return [line for line in entry["lines"] if not line.get("gcovr/noncode") and not line.get("gcovr/excluded")]


def print_table(files):
    print(f"{'file':<44}{'lines':>6}{'reached':>9}{'%':>7}{'branches':>10}{'taken':>9}{'%':>7}")
    all_lines, all_branches = [], []
    for name, lines in files.items():
        reached = [line["count"] for line in lines]
        branches = [count for line in lines for count in branch_counts(line)]
        print(row(name, counts(reached), counts(branches)))
        all_lines += reached
        all_branches += branches
    print(row("all of src/", counts(all_lines), counts(all_branches)))


def print_unreached(files):
    unreached, partly = [], []
    for name, lines in files.items():
        source = pathlib.Path(name).read_text(encoding="utf-8").splitlines()
        for line in lines:
            number = line["line_number"]
            text = source[number - 1].strip()
            branches, taken = counts(branch_counts(line))
            if line["count"] == 0:
                unreached.append(f"{name}:{number}: {text}")
            elif taken < branches:
                partly.append(f"{name}:{number}: {branches - taken} of {branches}: {text}")
    print("\nLines not reached:", *(unreached or ["none"]), sep="\n")
    print("\nBranches not taken, in lines that were reached:", *(partly or ["none"]), sep="\n")


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    report = json.loads(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8"))
    files = {entry["file"]: code_of(entry) for entry in sorted(report["files"], key=lambda entry: entry["file"])}
    files = {name: lines for name, lines in files.items() if lines}
    if not files:
        sys.exit("coverage_report: nothing of src/ was measured")
    print("\nCoverage of src/ as compiled on this platform. Branches are those of the lines that were reached, without those")
    print("that only an exception takes.\n")
    print_table(files)
    print_unreached(files)


if __name__ == "__main__":
    main()
