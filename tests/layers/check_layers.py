#!/usr/bin/env python3
"""Fails when a folder of the program includes a header of a folder above it
(or beside it on the same level), which would let the layers grow into one
another. The levels, bottom to top: compat; package, starter, texts; install;
ui; app (the entry point, which builds the wizard)."""
import pathlib, re, sys

LEVEL = {"compat": 0, "package": 1, "starter": 1, "texts": 1, "install": 2, "ui": 3, "app": 4}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([a-z_]+)/[^"]+"', re.M)


def violations(root):
    for folder, level in LEVEL.items():
        for source in sorted((root / folder).rglob("*")):
            if source.suffix not in (".h", ".cpp"):
                continue
            for target in INCLUDE.findall(source.read_text(encoding="utf-8", errors="replace")):
                if target in LEVEL and target != folder and LEVEL[target] >= level:
                    yield f"{source.relative_to(root)} includes {target}/ (level {LEVEL[target]} >= {level})"


def self_test():
    """The check itself must catch an upward and a sideways include."""
    import tempfile
    with tempfile.TemporaryDirectory() as tmp:
        root = pathlib.Path(tmp)
        for name, text in {"install/a.cpp": '#include "ui/x.h"\n#include "compat/y.h"\n',
                           "package/b.h": ' # include "starter/z.h"\n',
                           "ui/c.cpp": '#include "install/a.h"\n'}.items():
            (root / name).parent.mkdir(parents=True, exist_ok=True)
            (root / name).write_text(text)
        found = list(violations(root))
        assert sorted(f.split()[0] for f in found) == ["install/a.cpp", "package/b.h"], found


def main():
    self_test()
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    found = list(violations(root))
    for line in found:
        print(line)
    print(f"{len(LEVEL)} folders checked, {len(found)} upward includes")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
