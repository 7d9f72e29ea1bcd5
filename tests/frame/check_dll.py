"""Checks what a program takes on when it loads the built DLL on Windows.

- It imports the three functions of the core library by name, and for the rest only what the
  system's own DLLs have: no run-time library of a compiler is to be shipped with it.
- It may be put anywhere in memory, and none of its code is writable.
"""

import re
import subprocess
import sys

CORE_LIBRARY = "zebcore-8.2.dll"
CORE_FUNCTIONS = {"zebGetEnabledCpuFeatures", "zebMalloc", "zebFree"}
SYSTEM_LIBRARIES = {"kernel32.dll", "msvcrt.dll", "ucrtbase.dll"}

problems = []


def check(condition, message):
    if not condition:
        problems.append(message)


def imports(text):
    """DLL -> names. Each DLL's table ends with an empty line."""
    found = {}
    for name, table in re.findall(r"DLL Name: (\S+)\n(.*?)\n\s*\n", text, re.S):
        found[name] = set(re.findall(r"^\s*[0-9a-f]+\s+(?:\d+|<none>)\s+(\w+)\s*$", table, re.M))
    return found


def check_imports(text):
    found = imports(text)
    check(found.get(CORE_LIBRARY) == CORE_FUNCTIONS,
          f"imports {sorted(found.get(CORE_LIBRARY, ()))} from the core library")
    others = {name for name in found if name.lower() not in SYSTEM_LIBRARIES | {CORE_LIBRARY}}
    check(not others, f"needs {sorted(others)}")


def main():
    objdump, library = sys.argv[1:]
    text = subprocess.run([objdump, "-p", library], check=True, capture_output=True,
                          text=True).stdout
    headers = subprocess.run([objdump, "-h", library], check=True, capture_output=True,
                             text=True).stdout
    check_imports(text)
    for trait in ("DYNAMIC_BASE", "NX_COMPAT", "HIGH_ENTROPY_VA"):
        check(trait in text, f"lacks {trait}")
    check(re.search(r"^Magic\s+020b\b", text, re.M), "is no 64-bit library")
    for name, flags in re.findall(r"^\s*\d+ (\S+).*\n\s+(.*)$", headers, re.M):
        check("CODE" not in flags or "READONLY" in flags, f"has writable code in {name}")
    if problems:
        sys.exit("\n".join(f"{library} {problem}" for problem in problems))
    print(f"{library} loads as it should")


if __name__ == "__main__":
    main()
