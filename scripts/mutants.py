#!/usr/bin/env python3
"""Plays the planted faults of scripts/mutants.tsv against the test suite, one at a time.

The tree is copied into BUILD_DIR/mutants/src (files that did not change keep their time stamps,
so the build there stays incremental) and built in BUILD_DIR/mutants/build. For each fault the
copy of its file is changed, only the daemon and the test binaries that the fault's tests run are
rebuilt, those tests run until the first failure, and the file is put back, whatever happens,
Ctrl-C included. The working tree itself is never written. A fault is caught when a test fails.
"""

import argparse
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
# Not tests of the daemon's behaviour, or minutes long with nothing a fault here would change.
EXCLUDED = re.compile(r"^(bench\.|fuzz\.|format$|tput\.command$)")
TEST_BINARIES = {"tarvo_unit_tests", "tarvo_e2e_tests", "tarvo_emulator_tests", "tarvo-emu"}


class Mutant:
    def __init__(self, name, path, tests, old, new):
        self.name, self.path, self.tests, self.old, self.new = name, path, tests, old, new


def unescape(text):
    return re.sub(r"\\(.)", lambda m: "\n" if m.group(1) == "n" else m.group(1), text)


def load(list_path):
    mutants = []
    with open(list_path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            line = line.rstrip("\n")
            if not line or line.startswith("#"):
                continue
            fields = line.split("\t")
            if len(fields) != 5:
                sys.exit(f"{list_path}:{number}: five tab-separated fields expected")
            name, path, tests, old, new = fields
            mutants.append(Mutant(name, path, tests, unescape(old), unescape(new)))
    return mutants


def sync_copy(source_dir):
    """Mirrors the tracked files of the working tree into source_dir."""
    tracked = subprocess.run(["git", "ls-files", "-z"], cwd=ROOT, check=True,
                             capture_output=True).stdout.decode().split("\0")
    tracked = {path for path in tracked if path and os.path.isfile(os.path.join(ROOT, path))}
    for path in tracked:
        src, dst = os.path.join(ROOT, path), os.path.join(source_dir, path)
        with open(src, "rb") as f:
            data = f.read()
        if os.path.exists(dst):
            with open(dst, "rb") as f:
                if f.read() == data:
                    continue
        os.makedirs(os.path.dirname(dst), exist_ok=True)
        shutil.copy2(src, dst)
    for dirpath, _, files in os.walk(source_dir):
        for name in files:
            path = os.path.relpath(os.path.join(dirpath, name), source_dir)
            if path not in tracked:
                os.remove(os.path.join(dirpath, name))


def run(command, timeout, **kwargs):
    """Runs a command in a process group of its own, killed whole on timeout or interruption."""
    process = subprocess.Popen(command, start_new_session=True, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True, **kwargs)
    try:
        output, _ = process.communicate(timeout=timeout)
        return process.returncode, output
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        output, _ = process.communicate()
        return None, output
    except BaseException:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        raise


def test_binaries(build_dir):
    """Each test's name and the binary that runs it."""
    listing = subprocess.run(["ctest", "--show-only=json-v1"], cwd=build_dir, check=True,
                             capture_output=True, text=True).stdout
    binaries = {}
    for test in json.loads(listing)["tests"]:
        # A script's test names the binary it drives among its arguments.
        names = [os.path.basename(part) for part in test.get("command") or [""]]
        binaries[test["name"]] = next((name for name in names if name in TEST_BINARIES), names[0])
    return binaries


def build(build_dir, targets, jobs, timeout):
    code, output = run(["cmake", "--build", build_dir, "-j", str(jobs), "--target", *targets],
                       timeout)
    return code == 0, output


def play(mutant, source_dir, build_dir, binaries, args):
    path = os.path.join(source_dir, mutant.path)
    if not os.path.isfile(path):
        return "stale", "no such file"
    with open(path, encoding="utf-8") as f:
        original = f.read()
    if original.count(mutant.old) != 1:
        return "stale", f"text found {original.count(mutant.old)} times"
    # A suite renamed or moved into scenarios leaves an alternative that selects nothing.
    unmatched = [part for part in mutant.tests.split("|")
                 if not any(re.search(part, name) for name in binaries)]
    if unmatched:
        return "stale", "no test matches " + ", ".join(unmatched)
    selected = sorted(name for name in binaries
                      if re.search(mutant.tests, name) and not EXCLUDED.search(name))
    if not selected:
        return "stale", "no test selected"
    targets = {"tarvo"} | {binaries[name] for name in selected if binaries[name] in TEST_BINARIES}
    try:
        with open(path, "w", encoding="utf-8") as f:
            f.write(original.replace(mutant.old, mutant.new))
        built, output = build(build_dir, sorted(targets), args.jobs, args.timeout)
        if not built:
            return "no-build", output.strip().splitlines()[-1] if output.strip() else ""
        pattern = "^(" + "|".join(re.escape(name) for name in selected) + ")$"
        code, output = run(["ctest", "-R", pattern, "--stop-on-failure", "-j", str(args.jobs),
                            "--timeout", "120"], args.timeout, cwd=build_dir)
        if code == 0:
            return "MISSED", f"{len(selected)} tests passed"
        if code is None:
            return "caught", "timed out"
        first = re.search(r"Test\s+#\d+: (\S+) [ .]*\*+\s*(?:Failed|Timeout|Exception)", output)
        return "caught", first.group(1) if first else "ctest failed"
    finally:
        with open(path, "w", encoding="utf-8") as f:
            f.write(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--list", default=os.path.join(ROOT, "scripts", "mutants.tsv"))
    parser.add_argument("--build-dir", default=os.path.join(ROOT, "build"))
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--timeout", type=int, default=600, help="seconds per fault")
    parser.add_argument("--only", help="play only the faults whose name matches this pattern")
    parser.add_argument("--record", help="also write the results to this file")
    args = parser.parse_args()
    # Ctrl-C and a termination are both an interruption: every planted fault is taken out before
    # the exit. SIGINT is set too, as a shell leaves it ignored for a command run in background.
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, signal.default_int_handler)

    mutants = load(args.list)
    if args.only:
        mutants = [m for m in mutants if re.search(args.only, m.name)]
    work = os.path.join(os.path.abspath(args.build_dir), "mutants")
    source_dir, build_dir = os.path.join(work, "src"), os.path.join(work, "build")
    os.makedirs(source_dir, exist_ok=True)
    sync_copy(source_dir)
    if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
        configure = ["cmake", "-S", source_dir, "-B", build_dir, "-DCMAKE_BUILD_TYPE=RelWithDebInfo"]
        if shutil.which("ccache"):
            configure.append("-DCMAKE_CXX_COMPILER_LAUNCHER=ccache")
        subprocess.run(configure, check=True, stdout=subprocess.DEVNULL)
    built, output = build(build_dir, ["tarvo", *sorted(TEST_BINARIES)], args.jobs, None)
    if not built:
        sys.exit("the unchanged tree does not build:\n" + output)
    binaries = test_binaries(build_dir)

    lines = []
    counts = {}
    for mutant in mutants:
        started = time.monotonic()
        verdict, detail = play(mutant, source_dir, build_dir, binaries, args)
        counts[verdict] = counts.get(verdict, 0) + 1
        line = f"{verdict:8} {mutant.name:36} {time.monotonic() - started:5.0f}s  {detail}"
        print(line, flush=True)
        lines.append(line)
    played = counts.get("caught", 0) + counts.get("MISSED", 0)
    total = f"caught {counts.get('caught', 0)} of {played}"
    if played:
        total += f" ({100 * counts.get('caught', 0) // played}%)"
    others = ", ".join(f"{n} {v}" for v, n in sorted(counts.items()) if v not in ("caught", "MISSED"))
    if others:
        total += f"; not played: {others}"
    print(total)
    if args.record:
        with open(args.record, "w", encoding="utf-8") as f:
            f.write("\n".join(lines + [total]) + "\n")
    return 0 if counts.get("stale", 0) == 0 and counts.get("no-build", 0) == 0 else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit("interrupted; every planted fault was taken out")
