"""Compares the names that a built library exports with the list of exports."""

import re
import subprocess
import sys


def listed(path):
    with open(path) as file:
        return re.findall(r"^ZEBDC_EXPORT\w*\((\w+)\)", file.read(), re.M)


def exported_by_elf(library):
    out = subprocess.run(["nm", "-D", "--defined-only", library],
                         check=True, capture_output=True, text=True).stdout
    return [line.split()[-1].split("@")[0] for line in out.splitlines()]


def exported_by_pe(library):
    out = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", library],
                         check=True, capture_output=True, text=True).stdout
    table = out.split("[Ordinal/Name Pointer] Table", 1)[1]
    return re.findall(r"^\s*\[\s*\d+\]\s+(?:\+base\[\s*\d+\]\s+)?(?:[0-9a-f]{4}\s+)?(\w+)\s*$",
                      table, re.M)


def main():
    library, exports_list = sys.argv[1:]
    wanted = listed(exports_list)
    is_pe = library.endswith(".dll")
    found = exported_by_pe(library) if is_pe else exported_by_elf(library)
    if len(wanted) != len(set(wanted)):
        sys.exit("a name is listed twice")
    missing = sorted(set(wanted) - set(found))
    extra = sorted(set(found) - set(wanted))
    if missing or extra:
        sys.exit(f"not exported: {missing}\nexported but not listed: {extra}")
    print(f"{len(found)} names, as listed")


if __name__ == "__main__":
    main()
