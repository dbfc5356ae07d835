#!/usr/bin/env python3
"""Syntax-checks every macOS-only source of the repository on a Linux machine.

Each Objective-C++ file (and each macOS-only C++ file and header) is compiled
with clang -fsyntax-only as Objective-C++ with ARC, against Debian's GNUstep
AppKit/Foundation headers, the Qt headers, and the declaration shims next to
this script (Apple and Sparkle API that GNUstep does not have). Warnings are
errors, with the warning flags of the macOS build. Nothing links and nothing
runs: this catches what the compiler front end can see, no more.

Files are found by pattern, so a new adapter is checked without a list edit:
  platform/mac/**/*.{mm,m,cpp,h}
  anywhere else (outside build trees): *.mm, *.m, *_mac.cpp, *_mac.h
The number of files checked is printed; finding none is a failure.

With --expect-failures, every file given must fail to compile, with the
diagnostic its "// expect: TEXT" line names: the check's proof that it still
catches what it is there to catch.

Usage: compile_check.py --source-root DIR [--clang PATH]
                        [--qt-include DIR]... [--only FILE]... [--expect-failures]
"""
import argparse
import os
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
SHIMS = HERE / "shims"

# The macOS build's warning flags (top-level CMakeLists.txt), made errors.
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wnon-virtual-dtor", "-Werror"]

# shims: declarations, not sources; must_fail: the check's own fixtures.
SKIP_DIRS = {".git", "build", "shims", "must_fail"}


def find_sources(root):
    found = set()
    mac = root / "platform" / "mac"
    if mac.is_dir():
        for path in mac.rglob("*"):
            if path.suffix in (".mm", ".m", ".cpp", ".h") and not _skipped(path, root):
                found.add(path)
    for dirpath, dirnames, filenames in os.walk(root):
        dirnames[:] = [d for d in dirnames
                       if d not in SKIP_DIRS and not d.startswith("build")]
        for name in filenames:
            if name.endswith((".mm", ".m", "_mac.cpp", "_mac.h")):
                found.add(pathlib.Path(dirpath) / name)
    return sorted(found)


def _skipped(path, root):
    parts = path.relative_to(root).parts
    return any(p in SKIP_DIRS for p in parts)


def expectation(path):
    for line in path.read_text(encoding="utf-8").splitlines():
        if line.startswith("// expect: "):
            return line[len("// expect: "):].strip()
    return None


def gnustep_headers():
    for candidate in ("/usr/include/GNUstep", "/usr/local/include/GNUstep"):
        if (pathlib.Path(candidate) / "AppKit" / "AppKit.h").is_file():
            return candidate
    return None


def objc_runtime_headers():
    # GNUstep on Debian is built on GCC's libobjc, whose objc/objc.h lives in
    # GCC's own include directory.
    gcc = shutil.which("gcc")
    if not gcc:
        return None
    out = subprocess.run([gcc, "-print-file-name=include"], capture_output=True, text=True)
    path = pathlib.Path(out.stdout.strip())
    return str(path) if (path / "objc" / "objc.h").is_file() else None


def command(clang, root, qt_includes, gnustep, objc):
    cmd = [clang, "-fsyntax-only", "-x", "objective-c++", "-std=c++20",
           # ARC needs a modern runtime; GNUstep's headers are those of the
           # GCC runtime, so the shims supply the few modern declarations.
           "-fobjc-runtime=gnustep-2.0", "-fobjc-arc", "-fblocks", "-fobjc-exceptions",
           "-DGNUSTEP", "-DGNUSTEP_BASE_LIBRARY=1", "-DGNU_GUI_LIBRARY=1", "-DGNU_RUNTIME=1",
           "-fPIC", "-fno-color-diagnostics"]
    cmd += WARNINGS
    cmd += ["-I", str(root)]
    # Shims first so that their wrappers see GNUstep's headers through
    # #include_next; all of these stand for the SDK, hence system headers.
    cmd += ["-isystem", str(SHIMS)]
    cmd += ["-isystem", gnustep, "-isystem", objc]
    for inc in qt_includes:
        cmd += ["-isystem", inc]
    cmd += ["-include", str(SHIMS / "darwin_prelude.h")]
    return cmd


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--source-root", required=True)
    parser.add_argument("--clang", default="clang++-14")
    parser.add_argument("--qt-include", action="append", default=[])
    parser.add_argument("--qt-includes", default="",
                        help="Qt include directories, separated by ':'")
    parser.add_argument("--only", action="append", default=[],
                        help="check these files instead of the repository's")
    parser.add_argument("--expect-failures", action="store_true",
                        help="every file must fail with the diagnostic its '// expect:' names")
    args = parser.parse_args()

    root = pathlib.Path(args.source_root).resolve()
    clang = shutil.which(args.clang)
    gnustep = gnustep_headers()
    objc = objc_runtime_headers()
    missing = [name for name, value in (("clang (" + args.clang + ")", clang),
                                        ("GNUstep headers (libgnustep-gui-dev)", gnustep),
                                        ("GCC Objective-C runtime headers", objc)) if not value]
    if missing:
        print("macOS compile check: missing " + ", ".join(missing) + "; run tools/install-deps")
        return 1

    # The compiler's own system directories stay where the compiler puts them
    # (re-adding /usr/include with -isystem breaks libstdc++'s #include_next).
    qt_includes = []
    for inc in args.qt_include + args.qt_includes.split(":"):
        if inc and inc not in ("/usr/include", "/usr/local/include") and inc not in qt_includes:
            qt_includes.append(inc)
    files = [pathlib.Path(f).resolve() for f in args.only]
    if not files:
        files = (sorted((HERE / "must_fail").glob("*.mm")) if args.expect_failures
                 else find_sources(root))
    if not files:
        print("macOS compile check: no macOS source found under " + str(root))
        return 1

    base = command(clang, root, qt_includes, gnustep, objc)
    failed = []
    for path in files:
        try:
            shown = path.relative_to(root)
        except ValueError:
            shown = path
        if path.suffix == ".h":
            # A header is checked the way a source file uses it.
            proc = subprocess.run(base + ["-"], input='#include "%s"\n' % path,
                                  capture_output=True, text=True)
        else:
            proc = subprocess.run(base + [str(path)], capture_output=True, text=True)
        output = (proc.stdout + proc.stderr).strip()
        if args.expect_failures:
            expected = expectation(path)
            if not expected:
                failed.append(str(shown))
                print("FAIL %s: no '// expect:' line" % shown)
            elif proc.returncode == 0 or expected not in output:
                failed.append(str(shown))
                print("FAIL %s: expected a failure with %r, got:" % (shown, expected))
                print(output or "(no diagnostics)")
            else:
                print("ok   %s (fails as expected)" % shown)
            continue
        if proc.returncode != 0 or output:
            failed.append(str(shown))
            print("FAIL %s" % shown)
            if output:
                print(output)
        else:
            print("ok   %s" % shown)

    print("macOS compile check: %d file(s) checked, %d failed" % (len(files), len(failed)))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
