#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that includes run one way (see docs/architecture.md): platform < state < runtime < tables < proxy < config <
main; that mdns stands on nothing, and dnssd on mdns alone; that the library's own folders are layers as well; and that
no two subjects of a folder (x.h and x.cpp are one) include each other, not even by way of others.

check_layering.py [ROOT]: prints each breach as file:line: text; exit status 1 when there is one.
"""

import pathlib
import re
import sys

from sources import cpp_files, report

LAYERS = ("platform", "state", "runtime", "tables", "proxy", "config")

# A C interface is met in few places: who may include which system header (first match decides; others are free for
# all).
SYSTEM_HEADERS = (
    (re.compile(r"dns_sd(_figures)?\.h$"), {"dnssd", "runtime", "proxy"}),
    (re.compile(r"ini\.h$"), {"platform", "tools"}),
    (re.compile(r"(uthash|utarray)\.h$"), {"platform"}),
    (re.compile(r"CLI/|nlohmann/"), {"tools"}),
)

# A tool that foretells what the library will take or ask for asks the library's own code, and so does one that reads
# messages.
OF_THE_LIBRARY_FOR_TOOLS = {"dnssd/base/names.h", "dnssd/base/receive_buffer.h", "mdns/wire/name.h",
                            "mdns/wire/reader.h", "mdns/wire/writer.h"}

# The library's own folders, and what each of them may include.
OF_THE_LIBRARY = {"mdns": {"mdns"}, "dnssd": {"dnssd", "mdns"}}

# What stands inside each of them, lowest first: folders and single files.
LAYERS_INSIDE = {
    "mdns": ("wire", "mdns.h", "state", "schedule", "store", "exchange", "link.cpp"),
    "dnssd": ("base", "state", "links", "operations", "dnssd.h", "dnssd.cpp", "api.cpp", "figures.cpp"),
}

# What those outside may include of mdns.
INTERFACE_OF_MDNS = re.compile(r"mdns/(mdns\.h|wire/\w+\.h)$")

_INCLUDE = re.compile(r'\s*#\s*include\s*([<"])([^>"]+)[>"]')


# The scanners are shared with programs that are not the daemon, so they stand on nothing of it.
SCANNERS = re.compile(r"config/(\w+_scanner|quoted_value)\.(h|cpp)$")


def breach_inside(path, folder, target, header):
    """The same for a file of the library."""
    if target not in OF_THE_LIBRARY[folder]:
        return f"{folder} includes nothing of the rest"
    if target != folder:
        return None if INTERFACE_OF_MDNS.match(header) else "it is inside mdns"
    layers = LAYERS_INSIDE[folder]
    place, its_place = path.parts[path.parts.index(folder) + 1], header.split("/")[1]
    for name in (place, its_place):
        if name not in layers:
            return f"'{name}' is no layer of {folder}"
    return f"{place} is below {its_place}" if layers.index(its_place) > layers.index(place) else None


def breach(path, folder, quoted, header):
    """Why the file may not include this header, or None."""
    if not quoted:
        for pattern, folders in SYSTEM_HEADERS:
            if pattern.match(header):
                return None if folder in folders else f"<{header}> belongs to {', '.join(sorted(folders)) or 'nobody'}"
        return None
    target = header.split("/")[0]
    if folder in OF_THE_LIBRARY:
        return breach_inside(path, folder, target, header)
    if target in OF_THE_LIBRARY:
        if folder == "tools" and header in OF_THE_LIBRARY_FOR_TOOLS:
            return None
        return "the rest knows of the DNS-SD library only <dns_sd.h>"
    if SCANNERS.search(path.as_posix()) and not SCANNERS.match(header):
        return "a scanner needs nothing of the daemon"
    if target not in LAYERS:
        return f"no folder of src is called '{target}'" if folder != "tools" else None
    if folder in LAYERS and LAYERS.index(target) > LAYERS.index(folder):
        return f"{folder} is below {target}"
    return None


def circles(includes):
    """(file, line number, text) of the includes that lead back to their own subject; `includes` has (file, line number,
    subject, included subject) of each include within a folder."""
    reached = {}
    for _, _, subject, included in includes:
        reached.setdefault(subject, set()).add(included)
    grows = True
    while grows:
        grows = False
        for subject, others in reached.items():
            further = set().union(*(reached.get(other, set()) for other in others)) - others
            grows = grows or bool(further)
            others |= further
    for file, number, subject, included in includes:
        if subject in reached.get(included, set()):
            yield file, number, f'includes "{included}.h", which includes it in turn'


def breaches(root):
    """(file, line number, text) of every breach below root/src and root/tools."""
    inside = []
    for path in cpp_files(root, ("src", "tools")):
        relative = path.relative_to(root)
        folder = "tools" if relative.parts[0] == "tools" else relative.parts[1] if len(relative.parts) > 2 else "main"
        subject = relative.with_suffix("").relative_to(relative.parts[0]).as_posix()
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
            include = _INCLUDE.match(line)
            if include:
                reason = breach(relative, folder, include[1] == '"', include[2])
                if reason:
                    yield relative, number, f'includes "{include[2]}": {reason}'
                included = include[2].removesuffix(".h")
                if include[1] == '"' and included != subject:
                    inside.append((relative, number, subject, included))
    yield from circles(inside)


if __name__ == "__main__":
    sys.exit(report(breaches))
