#!/usr/bin/env python3
"""Runs clang-tidy over the sources that a build folder compiles and whose path matches a pattern.

    tidy.py [--fresh] BUILD_FOLDER PATTERN

A file that passed before is left out if nothing that clang-tidy sees has changed. That is the text of
the file and of every header that it includes (also the system's), its compile commands, every
.clang-tidy, clang-tidy itself and this script. A hash of all this is kept in the user's cache folder
for each file that passed. So a changed header checks every file that includes it, and changed flags
check everything. With --fresh, everything is checked.

Checking only what differs from an earlier commit would not do. A clone doesn't say which of its
commits was checked last, and several may land at once. A commit that nobody has checked would then
count as good. So a machine that has checked nothing checks everything.
"""
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

ROOT = str(pathlib.Path(__file__).resolve().parent.parent)
CACHE = pathlib.Path(os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache")
PASSED = CACHE / "orvane" / "tidy"
KEPT_SECONDS = 90 * 24 * 3600


def digest(*paths):
    return [hashlib.sha256(pathlib.Path(path).read_bytes()).hexdigest() for path in paths]


def commands_of(build, pattern):
    """Writes the compile commands of the matching sources into a folder for clang-tidy. Precompiled
    headers are left out, because another compiler made them, and so is an option that clang doesn't
    know. Returns the folder, and the commands of each source."""
    text = (build / "compile_commands.json").read_text()
    text = re.sub(r"-Winvalid-pch -include \S*|-fno-gnu-unique", "", text)
    entries = [e for e in json.loads(text) if re.search(pattern, e["file"])]
    folder = build / "tidy"
    folder.mkdir(exist_ok=True)
    (folder / "compile_commands.json").write_text(json.dumps(entries))
    commands = collections.defaultdict(list)
    for entry in entries:
        commands[entry["file"]].append(entry["command"])
    return folder, commands


def included_files(folder):
    """Returns the files that each command reads, keyed by the object that the command makes."""
    scanner = shutil.which("clang-scan-deps") or shutil.which("clang-scan-deps-14")
    rules = subprocess.run(
        [scanner, f"-compilation-database={folder}/compile_commands.json"],
        check=True, stdout=subprocess.PIPE, text=True).stdout
    lines = rules.replace("\\\n", " ").splitlines()
    return {target: files.split() for target, _, files in (line.partition(": ") for line in lines)}


def keys(commands_of_file, folder):
    """Returns, for each file, a hash of everything on which its result depends."""
    tool = shutil.which("clang-tidy")
    shared = digest(tool, __file__, *sorted(pathlib.Path(ROOT).rglob(".clang-tidy")))
    shared.append(subprocess.check_output([tool, "--version"], text=True))
    read = included_files(folder)
    contents = {}
    result = {}
    for file, commands in commands_of_file.items():
        parts = list(shared)
        for command in commands:
            parts.append(command)
            for name in read[re.search(r" -o (\S+)", command)[1]]:
                if name not in contents:
                    contents[name] = digest(name)[0]
                parts.append(f"{name} {contents[name]}")
        text = "\n".join(parts).replace(ROOT, ".")
        result[file] = hashlib.sha256(text.encode()).hexdigest()
    return result


def check(file, folder):
    return subprocess.run(["clang-tidy", "-quiet", "-p", folder, file], text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)


def main():
    arguments = [a for a in sys.argv[1:] if a != "--fresh"]
    build, pattern = pathlib.Path(arguments[0]), arguments[1]
    folder, commands = commands_of(build, pattern)
    if not commands:
        sys.exit(f"tidy: no source matches {pattern}")

    PASSED.mkdir(parents=True, exist_ok=True)
    for old in PASSED.iterdir():
        if time.time() - old.stat().st_mtime > KEPT_SECONDS:
            old.unlink(missing_ok=True)
    key_of = keys(commands, folder)
    wanted = [file for file, key in key_of.items()
              if "--fresh" in sys.argv or not (PASSED / key).exists()]
    for file in commands.keys() - set(wanted):
        (PASSED / key_of[file]).touch()
    print(f"tidy: {len(wanted)} of {len(commands)} files to check; "
          "the others have passed as they are", flush=True)

    failed = False
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        runs = {pool.submit(check, file, folder): file for file in wanted}
        for done, run in enumerate(concurrent.futures.as_completed(runs), 1):
            file, result = runs[run], run.result()
            print(f"[{done}/{len(wanted)}] {os.path.relpath(file, ROOT)}", flush=True)
            if result.returncode == 0 and not re.search(r": (warning|error): ", result.stdout):
                (PASSED / key_of[file]).touch()
            else:
                print(result.stdout, flush=True)
                failed = True
    sys.exit(1 if failed else 0)


main()
