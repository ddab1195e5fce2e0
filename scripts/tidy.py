#!/usr/bin/env python3
"""clang-tidy over the project, or over the files named: tidy.py [FILE...]

A file that was clean is not looked at again until something changes: the file, anything it includes, its compile flags,
the checks, clang-tidy itself or this script. That is remembered in ${XDG_CACHE_HOME:-~/.cache}/kvx/tidy, for all
checkouts. Findings are never remembered.

Needs build/mingw-clang-ubtrap and build/native-sanitize to be configured. A source that both compile is checked as the
first does it. Test sources are checked in the batches they are compiled in, without
the static analyzer, which follows GoogleTest's macros down every path and takes longer than all else together, and
without what clang-tidy looks for in a main file only.
"""

import concurrent.futures
import functools
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILDS = [ROOT / "build/mingw-clang-ubtrap", ROOT / "build/native-sanitize"]
DATABASE = BUILDS[0] / "tidy"
TIDY = "clang-tidy-22"  # earlier ones also look through the system's headers, which takes more than twice as long
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache") / "kvx/tidy"
NOT_READABLE = {"bench/manifest_speed.cpp"}  # this clang refuses RapidJSON's headers
KEPT_SECONDS = 30 * 24 * 3600
INCLUDED_TEST = re.compile(r'^#include "(tests/.*\.cpp)"$', re.M)


class Unit:
    """What one run of clang-tidy looks at: a source, or a batch of test sources."""

    def __init__(self, entry, sources):
        self.path = pathlib.Path(entry["file"])
        self.folder = entry["directory"]
        self.command = shlex.split(entry["command"])
        self.sources = sources
        self.is_test = sources[0].startswith("tests/")
        self.is_batch = str(self.path.relative_to(ROOT)) not in sources

    def name(self):
        return " ".join(self.sources)

    def tidy_command(self):
        options = ["--quiet", "-p", str(DATABASE)]
        if self.is_test:
            options.append("--checks=-clang-analyzer-*,-bugprone-suspicious-include")
        if self.is_batch:
            # A batch is none of the files that have findings; they are what it includes.
            options += [f"--config-file={ROOT}/tests/.clang-tidy", f"--header-filter={header_filter()}"]
        return [TIDY, *options, str(self.path)]


@functools.cache
def header_filter():
    pattern = re.search(r"^HeaderFilterRegex: '(.*)\\\.h\$'$", (ROOT / ".clang-tidy").read_text(), re.M).group(1)
    return pattern + r"\.(h|cpp)$"


def sha256(*texts):
    digest = hashlib.sha256()
    for text in texts:
        digest.update(hashlib.sha256(text if isinstance(text, bytes) else text.encode()).digest())
    return digest.hexdigest()


def without_root(text):
    return text.replace(str(ROOT), "")


def file_digest(path):
    try:
        return sha256(pathlib.Path(path).read_bytes())
    except OSError:
        return "missing"


system_file_digest = functools.cache(file_digest)  # does not change during a run


def included_digest(path):
    return file_digest(ROOT / path) if not path.startswith("/") else system_file_digest(path)


@functools.cache
def rules_digest():
    """The checks and those who carry them out."""
    version = subprocess.run([TIDY, "--version"], capture_output=True, text=True, check=True).stdout
    rules = sorted(path for path in git_files(".clang-tidy", "*/.clang-tidy"))
    return sha256(version, file_digest(__file__), *(f"{rule} {file_digest(ROOT / rule)}" for rule in rules))


def git_files(*patterns):
    command = ["git", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others", "--exclude-standard", *patterns]
    names = subprocess.run(command, capture_output=True, text=True, check=True).stdout.split("\0")
    return sorted({name for name in names if name and (ROOT / name).exists()})


# ---- Memory ----------------------------------------------------------------------------------------------------------
# includes/KEY lists what a unit with these flags and this text included when it was last clean, and clean/KEY exists for
# each state of all of that in which it was clean.


def unit_key(unit):
    flags = [without_root(argument) for argument in unit.command + unit.tidy_command()]
    return sha256(rules_digest(), json.dumps(flags), file_digest(unit.path))


def state_key(key, includes):
    return sha256(key, *(f"{path} {included_digest(path)}" for path in includes))


def remembered_includes(key):
    try:
        return json.loads((CACHE / "includes" / key).read_text())
    except (OSError, ValueError):
        return None


def found_includes(unit):
    """The compiler's list, with paths below the project's folder relative to it; None when it does not compile."""
    command = [argument for argument in unit.command if argument != "-c"]
    if "-o" in command:
        at = command.index("-o")
        del command[at : at + 2]
    run = subprocess.run([*command, "-M"], cwd=unit.folder, capture_output=True, text=True)
    if run.returncode != 0:
        return None
    paths = re.split(r"(?<!\\)\s+", run.stdout.split(":", 1)[1].replace("\\\n", " "))
    full = {os.path.normpath(os.path.join(unit.folder, path.replace("\\ ", " "))) for path in paths if path}
    return sorted(path.removeprefix(f"{ROOT}/") for path in full)


def is_clean_state(state):
    try:
        os.utime(CACHE / "clean" / state)
        return True
    except OSError:
        return False


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    new = path.with_name(f"{path.name}.{os.getpid()}")
    new.write_text(text)
    new.rename(path)


def forget_old_entries():
    limit = time.time() - KEPT_SECONDS
    for path in CACHE.glob("*/*"):
        try:
            if path.stat().st_mtime < limit:
                path.unlink()
        except FileNotFoundError:
            pass


# ---- Checking --------------------------------------------------------------------------------------------------------


def is_remembered(unit):
    key = unit_key(unit)
    includes = remembered_includes(key)
    if includes is None or not is_clean_state(state_key(key, includes)):
        return False
    os.utime(CACHE / "includes" / key)
    return True


def check(unit):
    """Runs clang-tidy; returns its findings, empty when there are none."""
    key = unit_key(unit)
    includes = found_includes(unit)
    state = None if includes is None else state_key(key, includes)
    if state is not None and is_clean_state(state):
        write(CACHE / "includes" / key, json.dumps(includes))
        return ""
    run = subprocess.run(unit.tidy_command(), cwd=unit.folder, capture_output=True, text=True)
    if run.returncode != 0 or run.stdout.strip():
        # The count of what it passed over in other people's headers is no finding.
        notes = [line for line in run.stderr.splitlines() if not re.match(r"\d+ (warning|error)s?.* (generated|treated)", line)]
        return "\n".join([run.stdout.strip(), *notes]).strip() or f"clang-tidy ended with {run.returncode}: {unit.name()}"
    # Whoever edits a file meanwhile gets it checked again.
    if state is not None and state == state_key(unit_key(unit), includes):
        write(CACHE / "includes" / key, json.dumps(includes))
        write(CACHE / "clean" / state, "")
    return ""


def units_of_the_builds():
    units = []
    known = set()
    for build in BUILDS:
        for entry in json.loads((build / "compile_commands.json").read_text()):
            path = pathlib.Path(entry["file"])
            if not path.is_relative_to(ROOT):
                continue
            sources = INCLUDED_TEST.findall(path.read_text()) if path.is_relative_to(build) else [str(path.relative_to(ROOT))]
            if sources and not known.issuperset(sources):
                units.append(Unit(entry, sources))
                known.update(sources)
    return units


def write_database(units):
    """One command for each unit: clang-tidy looks at a file as often as it is compiled."""
    entries = [{"directory": unit.folder, "file": str(unit.path), "arguments": unit.command} for unit in units]
    write(DATABASE / "compile_commands.json", json.dumps(entries))


def wanted_units(names):
    wanted = {os.path.relpath(os.path.abspath(name), ROOT) for name in names} or set(git_files("*.cpp")) - NOT_READABLE
    all_units = units_of_the_builds()
    write_database(all_units)
    units = [unit for unit in all_units if wanted.intersection(unit.sources)]
    left = wanted.difference(*(unit.sources for unit in units))
    if left:
        sys.exit("tidy.py: no target compiles " + ", ".join(sorted(left)))
    return units


def main():
    names = sys.argv[1:]
    if names and names[0].startswith("-"):
        sys.exit(__doc__)
    units = wanted_units(names)
    changed = [unit for unit in units if not is_remembered(unit)]
    changed.sort(key=lambda unit: -len(unit.sources))  # the longest first
    print(f"{len(units)} units, {len(units) - len(changed)} of them known to be clean", flush=True)
    failed = False
    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        for job in concurrent.futures.as_completed([pool.submit(check, unit) for unit in changed]):
            findings = job.result()
            if findings:
                print(findings, flush=True)
                failed = True
    forget_old_entries()
    sys.exit(1 if failed else 0)


main()
