#!/usr/bin/env python3
"""Compares what the analyzer makes of the same texts on both systems: compare.py COUNT LINUX_PROGRAM WINDOWS_PROGRAM WINE

The programs are dom_texts, WINE is scripts/wine.sh. Prints a table in Markdown. A text of which the systems make
something different must have one of the traits below, which wine's MSXML takes otherwise than the documented one, or in
a way that its documentation leaves open, and must give the same on both once that trait has been taken from it. Any
other is printed, with what each system makes of it, and the exit status is 1.
"""
import itertools
import subprocess
import sys
import tempfile

# In the words of dom_texts, with what the table says of it.
TRAITS = {
    "encoding": "wine refuses wide text for some of the encodings that its declaration names",
    "prefix": "wine takes names whose prefix nobody declared, and drops the prefix",
    "cdata": "wine joins neighbouring CDATA sections",
    "lineend": "wine drops a line end, or makes it a space, where two texts of an element with others in it meet",
}
MOST_SHOWN = 5


class Programs:
    def __init__(self, linux, windows, wine):
        self.commands = {"Linux": [linux], "Windows": [wine, "run", windows]}

    def run(self, *arguments, seeds=()):
        """What each program prints, by system. Both run at a time."""
        files = {system: tempfile.TemporaryFile() for system in self.commands}
        given = {system: tempfile.TemporaryFile() for system in self.commands}
        running = {}
        for system, command in self.commands.items():
            given[system].write("".join(f"{seed}\n" for seed in seeds).encode())
            given[system].seek(0)
            running[system] = subprocess.Popen([*command, *arguments], stdin=given[system], stdout=files[system])
        for system, process in running.items():
            if process.wait() != 0:
                sys.exit(f"compare.py: the {system} program ended with {process.returncode}")
        texts = {}
        for system, file in files.items():
            file.seek(0)
            texts[system] = file.read()
        texts["Windows"] = texts["Windows"].replace(b"\r\n", b"\n")
        return texts

    def different(self, *arguments, seeds=()):
        """The seeds of which they make different things, and all lines of the Linux program, in fields."""
        lines = {system: [line.split() for line in text.decode().splitlines()]
                 for system, text in self.run(*arguments, seeds=seeds).items()}
        if not lines["Linux"] or [line[0] for line in lines["Linux"]] != [line[0] for line in lines["Windows"]]:
            sys.exit("compare.py: the programs did not print the same seeds")
        return [linux[0] for linux, windows in zip(lines["Linux"], lines["Windows"]) if linux != windows], lines["Linux"]


def explain(programs, seeds):
    """How many texts each set of traits explains, the smaller sets first, and the seeds that none does."""
    counts = {(trait,): 0 for trait in TRAITS}
    for size in range(1, len(TRAITS) + 1):
        for traits in itertools.combinations(TRAITS, size):
            if seeds:
                without = itertools.chain.from_iterable(("--without", trait) for trait in traits)
                left, _ = programs.different(*without, "-", seeds=seeds)
                counts[traits] = len(seeds) - len(left)
                seeds = left
    return counts, seeds


def main():
    programs = Programs(*sys.argv[2:5])
    seeds, lines = programs.different("1", sys.argv[1])
    counts, unexplained = explain(programs, seeds)
    documents = [int(line[2]) for line in lines if line[2] != "-"]
    print("| texts | count |")
    print("|---|---|")
    print(f"| compared | {len(lines)} |")
    print(f"| of these reports, with {sum(documents)} records | {len(documents)} |")
    print(f"| no reports on Linux | {len(lines) - len(documents)} |")
    print(f"| that gave the same records and trace lines | {len(lines) - len(seeds)} |")
    for traits, count in counts.items():
        if count or len(traits) == 1:
            print(f"| different: {'; '.join(TRAITS[trait] for trait in traits)} | {count} |")
    print(f"| different for another reason | {len(unexplained)} |")
    for seed in unexplained[:MOST_SHOWN]:
        for system, text in programs.run("--show", "-", seeds=[seed]).items():
            print(f"--- {system}\n{text.decode(errors='replace')}", file=sys.stderr)
    return 1 if unexplained else 0


sys.exit(main())
