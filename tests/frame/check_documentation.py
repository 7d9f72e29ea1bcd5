"""Checks that the public header declares and documents every export and that some test calls it.

A declaration is documented by the comment above it; declarations that follow one another without
a blank line between them share one."""

import pathlib
import re
import sys

from check_exports import listed


def documented(header):
    names = set()
    has_comment = False
    statement = ""
    for line in re.sub(r"/\*.*?\*/", "/**/", header, flags=re.S).splitlines():
        if line == "/**/":
            has_comment = True
        elif not line:
            has_comment = False
        elif line.startswith("ZEBDC_API") or statement:
            statement += line
            if line.endswith(";"):
                name = re.match(r"ZEBDC_API [^(]*?(\w+)\(", statement).group(1)
                if has_comment:
                    names.add(name)
                statement = ""
    return names


def called(folder):
    names = set()
    for path in pathlib.Path(folder).rglob("*.cpp"):
        names |= set(re.findall(r"\b(zeb(?:s|dc)[A-Z]\w+)\b", path.read_text(encoding="utf-8")))
    return names


def main():
    exports_list, header, tests = sys.argv[1:]
    wanted = set(listed(exports_list))
    undocumented = sorted(wanted - documented(pathlib.Path(header).read_text(encoding="utf-8")))
    untested = sorted(wanted - called(tests))
    if undocumented or untested:
        sys.exit(f"not documented: {undocumented}\nnot called by any test: {untested}")
    print(f"{len(wanted)} names, all documented and tested")


if __name__ == "__main__":
    main()
