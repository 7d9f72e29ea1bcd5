"""Checks the include law: which folder of the library may include which.

The same table stands, with its reasons, in docs/architecture.md.
"""

import pathlib
import re
import sys

SHARED = {"frame", "kernels"}

# folder -> the other folders that it may include
ALLOWED = {
    "frame": {"kernels"},
    "kernels": {"frame/bytes.h", "frame/compiler.h", "frame/substitution_tables.h"},
    "checksum": SHARED,
    "deflate": SHARED | {"checksum"},
    # One record type and one pair type serve encoder and decoder.
    "inflate": SHARED | {"checksum", "deflate/format.h", "deflate/lz77_record.h"},
    "huffman": SHARED | {"checksum"},
    "bzip2": SHARED | {"checksum"},
    "lz": SHARED | {"checksum"},
}


def may_include(folder, target):
    target_folder = target.split("/")[0]
    if target_folder == folder:
        return True
    return any(target_folder == rule or target == rule or target.startswith(rule + "/")
               or target.startswith(rule + ".h") for rule in ALLOWED[folder])


def main():
    source = pathlib.Path(sys.argv[1])
    broken = []
    checked = 0
    for path in sorted(source.glob("*/**/*")):
        if path.suffix not in {".cpp", ".h", ".inc", ".S"}:
            continue
        folder = path.relative_to(source).parts[0]
        for target in re.findall(r'^\s*#\s*include\s*"([^"]+)"', path.read_text(), re.M):
            checked += 1
            if "/" not in target:
                if path.suffix != ".S":
                    broken.append(f"{path}: {target} is named without its folder")
            elif not may_include(folder, target):
                broken.append(f"{path}: {folder} may not include {target}")
    if broken or checked == 0:
        sys.exit("\n".join(broken) or "found no includes")
    print(f"{checked} includes keep the law")


if __name__ == "__main__":
    main()
