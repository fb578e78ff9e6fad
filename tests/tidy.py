#!/usr/bin/env python3
"""Checks the habits of the house that a machine can check. Prints each finding as file:line: text; exits 1 if there is one.

A line that has to break a habit says why in a comment that holds the word `tidy-allow`.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FILES = sorted(
    ROOT / name
    for name in subprocess.run(
        ["git", "ls-files", "--cached", "--others", "--exclude-standard"],
        cwd=ROOT, capture_output=True, text=True, check=True).stdout.splitlines()
    if (ROOT / name).is_file())
CODE = [f for f in FILES if f.suffix in {".cpp", ".h", ".c", ".def"}]
FINDINGS = []

FILE_LINES_MAX = 900
FUNCTION_LINES_MAX = 70
COLUMNS_MAX = 110

# Layers of the engine, lowest first; a folder may include its own and lower ones.
LAYERS = ["base", "store", "formula", "note", "collection", "fulltext", "api"]

LINE_RULES = [
    # (pattern, applies to path, text)
    (re.compile(r"\t"), lambda p: p.suffix in {".cpp", ".h", ".c", ".def"}, "tab"),
    (re.compile(r"[ \t]+$"), lambda p: True, "trailing blanks"),
    (re.compile(r"\b(TODO|FIXME|XXX|HACK)\b"), lambda p: p.name != "tidy.py", "marker of unfinished work"),
    (re.compile(r"(?<![\w.])/(?:work|home|root|usr/local)/\w"), lambda p: p.name != "tidy.py", "absolute path"),
    (re.compile(r"\bgoto\b"), lambda p: p.suffix in {".cpp", ".h"}, "goto"),
    (re.compile(r"^\s*#\s*define\b.*\b(return|goto|malloc|calloc|new)\b"), lambda p: p.suffix in {".cpp", ".h"},
     "a macro hides a return, a jump or an allocation"),
    (re.compile(r"reinterpret_cast<\s*(const\s+)?(u?int(16|32|64)_t|double|TIMEDATE)(\s+const)?\s*\*>"),
     lambda p: under(p, "engine") or under(p, "kavrin"), "stored bytes through a cast pointer"),
    (re.compile(r"(?<![\w:.>])(time|rand|srand)\s*\(\s*(nullptr|NULL|0|)\s*\)|random_device|system_clock::now|\bsecure_getenv\(|"
                r"(?<![\w:.>])getenv\("),
     lambda p: under(p, "engine") and p.parent.name != "base", "clock, random numbers and environment have one seam each"),
    (re.compile(r"\b(ifstream|ofstream|fstream|fopen)\b|(?<![\w:.>])::?open\("),
     lambda p: under(p, "engine") and p.parent.name not in {"base"}, "a file opened outside its seam"),
    (re.compile(r"(?<![\w.:>])\bnew\s+[A-Za-z_:]|(?<![\w.:>=] )(?<!= )\bdelete\s+[A-Za-z_*(]|\bdelete\[\]"),
     lambda p: under(p, "engine") and p.suffix in {".cpp", ".h"}, "every resource is a value: no new, no delete"),
    (re.compile(r"\b(GTEST_SKIP|DISABLED_)"), lambda p: under(p, "tests") and p.name != "tidy.py", "a test that does not test"),
    (re.compile(r"\b[Ss]pecification\b|\bspec\.md\b|\bParts? \d+\.\d+\b"), lambda p: p.name != "tidy.py",
     "speaks of a document that is not part of the project"),
]


def under(path, folder):
    return path.relative_to(ROOT).parts[0] == folder


def find(path, line, text):
    FINDINGS.append(f"{path.relative_to(ROOT)}:{line}: {text}")


def strip_comment(line):
    """The code of a line: strings emptied, a line comment cut."""
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    return line.split("//")[0]


def check_lines(path):
    prose = path.suffix in {".md", ".txt"}
    try:
        lines = path.read_text(encoding="utf-8").splitlines()
    except UnicodeDecodeError:
        return
    is_code = path in CODE
    for number, line in enumerate(lines, 1):
        if "tidy-allow" in line:
            continue
        if is_code and len(line) > COLUMNS_MAX:
            find(path, number, f"{len(line)} columns, at most {COLUMNS_MAX}")
        for pattern, applies, text in LINE_RULES:
            if prose and text == "trailing blanks" or not applies(path):
                continue
            whole = text.startswith(("marker", "speaks", "absolute", "trailing", "tab"))
            if pattern.search(line if whole else strip_comment(line)):
                find(path, number, text)
    if is_code and len(lines) > FILE_LINES_MAX and path.suffix != ".def":
        find(path, len(lines), f"a file of {len(lines)} lines, at most {FILE_LINES_MAX}")


def check_functions(path):
    """A function is a brace at the end of an unindented line, up to the next unindented closing brace."""
    start = None
    body = []
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        code = strip_comment(line)
        if start is None and re.match(r"^[A-Za-z_\[].*\)\s*(const\s*)?(noexcept\s*)?\{\s*$|^ {4,}.*\)\s*(const\s*)?\{\s*$", code) \
                and not code.startswith(("namespace", "extern")) and (not code.startswith(" ") or not body):
            if not code.startswith(" "):
                start, body = number, []
        elif start is not None and line.startswith("}"):
            cases = sum(1 for text in body if re.match(r"\s*case .*:.*(return|break);", text))
            if number - start > FUNCTION_LINES_MAX and cases < len(body) / 2:
                find(path, start, f"a function of {number - start} lines, at most {FUNCTION_LINES_MAX}")
            start, body = None, []
        elif start is not None:
            body.append(line)


def check_layers():
    for path in CODE:
        parts = path.relative_to(ROOT).parts
        if parts[0] != "engine" or parts[1] not in LAYERS:
            continue
        own = LAYERS.index(parts[1])
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            match = re.match(r'\s*#include "(\w+)/', line)
            if match and match.group(1) in LAYERS and LAYERS.index(match.group(1)) > own:
                find(path, number, f"{parts[1]} includes {match.group(1)}: includes point down only")


def check_included():
    """A header that no file includes is a file that nobody builds."""
    texts = {path: path.read_text(encoding="utf-8") for path in CODE}
    for path in CODE:
        if path.suffix in {".h", ".def"} and path.name not in {"kavrin.h", "brynd.h"}:
            needle = re.compile(r'#\s*include\s+["<](?:[\w./]*/)?' + re.escape(path.name) + r'[">]')
            if not any(needle.search(text) for other, text in texts.items() if other != path):
                find(path, 1, "a header that no file includes")


def check_tests():
    """Tests are named after the module they test."""
    library = {path.stem for path in (ROOT / "kavrin").glob("*.cpp")}
    engine = {f"{path.parent.name}_{path.stem}" for path in (ROOT / "engine").glob("*/**/*.cpp")}
    folders = {path.name for path in (ROOT / "engine").iterdir() if path.is_dir()}
    whole = {"contract", "fault", "allocation", "kill", "process"}  # tests of all modules together
    for path in sorted((ROOT / "tests").glob("*_test.cpp")):
        stem = path.stem.removesuffix("_test")
        if not any(name.startswith(stem) or stem.startswith(name) for name in library | whole):
            find(path, 1, "a test source without its module")
    for path in sorted((ROOT / "tests/engine").glob("*_test.cpp")):
        stem = path.stem.removesuffix("_test")
        if stem not in engine and stem.split("_")[0] not in folders:
            find(path, 1, "a test source without its module")


def declared(folder, prefix):
    names = set()
    for path in (ROOT / folder).glob("*.h"):
        names |= set(re.findall(rf"\b({prefix}[A-Z]\w*|_KVInit)\s*\(", path.read_text(encoding="utf-8")))
    return names


def check_contract():
    """Each exported function stands in the table that the contract and fault sweeps walk."""
    table = "".join(path.read_text(encoding="utf-8") for path in (ROOT / "tests/kit").glob("contract*.cpp"))
    for path in (ROOT / "kavrin/include").glob("kavrin*.h"):
        for name in re.findall(r"^KVAPI\b[^;(]*?\b(KV[A-Z]\w*|_KVInit)\s*\(", path.read_text(encoding="utf-8"), re.M):
            if not re.search(rf"\b{name}\b", table):
                find(path, 1, f"{name} is missing in the contract table")


def main():
    for path in FILES:
        if path.suffix in {".gz", ".xz", ".png", ".svg"} or "seeds" in path.parts or "data" in path.parts or path.name == "LICENSE":
            continue
        check_lines(path)
        if path.suffix == ".cpp":
            check_functions(path)
    check_layers()
    check_included()
    check_tests()
    check_contract()
    for finding in FINDINGS:
        print(finding)
    print(f"tidy: {len(FILES)} files, {len(FINDINGS)} findings")
    return 1 if FINDINGS else 0


if __name__ == "__main__":
    sys.exit(main())
