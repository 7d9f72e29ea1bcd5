"""Checks what a program takes on when it loads the built library.

- It needs the C library and the core library and nothing else, the C++ run time least of all.
- It imports the three functions of the core library and a few string functions of the C library:
  nothing that allocates, locks, prints or ends the program.
- Of its functions only the ...InitAlloc exports reach the allocating function, only the ...Free exports
  the releasing one, and none the function that is asked at load.
- Its only writable variables are the two choices made at load. Everything else is constant, or made
  read-only by the loader before any code runs.
- Loading it means relative relocations and the addresses of the imports, one constructor, no patched
  code, no resolver functions, no thread-local storage, no executable stack. Nothing of its own is
  looked up by name, so that no other library can take its place.
"""

import collections
import re
import subprocess
import sys

NEEDED = {"libc.so.6", "libzebcore-8.2.so"}
CORE_FUNCTIONS = {"zebGetEnabledCpuFeatures", "zebMalloc", "zebFree"}
STRING_FUNCTIONS = {"memcpy", "memmove", "memset", "memcmp", "memchr", "bcmp"}
# Weak references of the compiler's start files; they resolve to nothing or to harmless clean-up.
START_FILES = {"__cxa_finalize", "__gmon_start__", "_ITM_deregisterTMCloneTable",
               "_ITM_registerTMCloneTable"}
LOAD_TIME_CHOICES = {"zebdcVariantIndex", "zebdc::kernels::activeTier"}
# Of the start files: the flag of their destructor and the library's own handle.
START_FILE_VARIABLES = {"completed.0", "__dso_handle", "__TMC_END__"}
RELOCATIONS = {"R_X86_64_RELATIVE", "R_X86_64_GLOB_DAT", "R_X86_64_JUMP_SLOT"}
# frame_dummy of the start files and the library's load hook.
CONSTRUCTORS = 2

problems = []


def check(condition, message):
    if not condition:
        problems.append(message)


def readelf(library, *options):
    return subprocess.run(["readelf", "-W", *options, library],
                          check=True, capture_output=True, text=True).stdout


def check_dynamic_section(library):
    text = readelf(library, "-d")
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", text))
    check(needed <= NEEDED, f"needs {sorted(needed - NEEDED)}")
    check("libzebcore-8.2.so" in needed, "does not name the core library")
    check("TEXTREL" not in text, "has relocations in its code")
    check("NOW" in text, "binds its imports late")


def dynamic_symbols(library):
    """The names that the library imports, and those that it exports."""
    imported, exported = set(), set()
    for line in readelf(library, "--dyn-syms").splitlines():
        fields = line.split()
        if len(fields) >= 8 and fields[0][:-1].isdigit():
            (imported if fields[6] == "UND" else exported).add(fields[7].split("@")[0])
    return imported, exported


def check_imports(imported):
    allowed = CORE_FUNCTIONS | STRING_FUNCTIONS | START_FILES
    check(imported <= allowed, f"imports {sorted(imported - allowed)}")
    check(CORE_FUNCTIONS <= imported,
          f"has its own {sorted(CORE_FUNCTIONS - imported)} instead of the core library's")


def callers(library):
    """Function -> the functions that call it or jump to it."""
    found = collections.defaultdict(set)
    text = subprocess.run(["objdump", "-d", "--no-show-raw-insn", library],
                          check=True, capture_output=True, text=True).stdout
    pattern = r"^[0-9a-f]+ <([^>]+)>:$|\s(?:call|j\w+)\s+[0-9a-f]+ <([^>+]+)"
    function = None
    for begin, target in re.findall(pattern, text, re.M):
        if begin:
            function = begin
        else:
            found[target].add(function)
    return found


def entries_that_reach(target, calls):
    """The exports whose entries lead to a function by any chain of direct calls."""
    reached = {target}
    new = [target]
    while new:
        more = calls[new.pop()] - reached
        reached |= more
        new += more
    return {match[1] for match in (re.match(r"zebdcEntry_(\w+)", name) for name in reached) if match}


def check_use_of_core_library(library, exported):
    calls = callers(library)
    allowed = {"zebMalloc": {name for name in exported if "InitAlloc" in name},
               "zebFree": {name for name in exported if re.search(r"Free(_|$)", name)},
               "zebGetEnabledCpuFeatures": set()}
    for function, wanted in allowed.items():
        check(calls[function + "@plt"], f"seems never to call {function}")
        found = entries_that_reach(function + "@plt", calls)
        check(found == wanted, f"calls {function} in {sorted(found - wanted)}"
                               f" and not in {sorted(wanted - found)}")


def sections(library):
    """Number -> (name, size, flags)."""
    found = {}
    pattern = r"^\s*\[\s*(\d+)\]\s+(\S+)\s+\S+\s+[0-9a-f]+\s+[0-9a-f]+\s+([0-9a-f]+)\s+\S+\s+(\w*)"
    for number, name, size, flags in re.findall(pattern, readelf(library, "-S"), re.M):
        found[int(number)] = (name, int(size, 16), flags)
    return found


def check_variables(library, all_sections):
    writable = {number: section for number, section in all_sections.items()
                if section[0] in {".data", ".bss"}}
    others = [name for name, _, flags in all_sections.values()
              if "W" in flags and name not in {".data", ".bss", ".data.rel.ro", ".init_array",
                                               ".fini_array", ".dynamic", ".got", ".got.plt"}]
    check(not others, f"has writable sections {others}")
    check(not any("T" in flags for _, _, flags in all_sections.values()),
          "has thread-local storage")

    variables = set()
    pattern = r"^\s*\d+:\s+[0-9a-f]+\s+(\S+)\s+(\w+)\s+\w+\s+\w+\s+(\w+)\s*(.*)$"
    mapping = subprocess.run(["readelf", "-W", "-s", "--demangle", library],
                             check=True, capture_output=True, text=True).stdout
    for size, kind, section, name in re.findall(pattern, mapping, re.M):
        if section.isdigit() and int(section) in writable and kind == "OBJECT":
            variables.add(name)
    check(LOAD_TIME_CHOICES <= variables,
          f"the symbol table lacks {sorted(LOAD_TIME_CHOICES - variables)}: is it stripped?")
    extra = variables - LOAD_TIME_CHOICES - START_FILE_VARIABLES
    check(not extra, f"has the writable variables {sorted(extra)}")
    # No more room than the named variables take, whatever symbols say.
    total = sum(size for _, size, _ in writable.values())
    check(total <= 32, f"has {total} bytes of writable data")


def check_relocations(library, imported):
    table = readelf(library, "-r")
    kinds = set(re.findall(r"\s(R_X86_64_\w+)\s", table))
    kinds = {"R_X86_64_JUMP_SLOT" if kind.startswith("R_X86_64_JUMP_SLO") else kind
             for kind in kinds}
    check(kinds <= RELOCATIONS, f"has relocations of the kinds {sorted(kinds - RELOCATIONS)}")
    named = set(re.findall(r"R_X86_64_\w+ +[0-9a-f]+ +(\w+)", table))
    check(named <= imported, f"looks up {sorted(named - imported)} by name")


def check_segments(library):
    text = readelf(library, "-l")
    check("GNU_RELRO" in text, "leaves relocated constants writable")
    stack = re.search(r"GNU_STACK(?:\s+0x[0-9a-f]+){5}\s+(\w+)", text)
    check(stack is not None and "E" not in stack[1], "asks for an executable stack")


def main():
    library = sys.argv[1]
    all_sections = sections(library)
    check_dynamic_section(library)
    imported, exported = dynamic_symbols(library)
    check_imports(imported)
    check_use_of_core_library(library, exported)
    check_variables(library, all_sections)
    check_relocations(library, imported)
    check_segments(library)
    constructors = sum(size for name, size, _ in all_sections.values() if name == ".init_array")
    check(constructors == 8 * CONSTRUCTORS, f"has {constructors // 8} constructors")
    if problems:
        sys.exit("\n".join(f"{library} {problem}" for problem in problems))
    print(f"{library} loads as it should")


if __name__ == "__main__":
    main()
