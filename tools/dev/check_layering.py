#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Checks that includes run one way (see docs/architecture.md): platform < state < runtime < tables < proxy < config <
main; and that mdns stands on nothing, and dnssd on mdns alone.

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
OF_THE_LIBRARY_FOR_TOOLS = {"dnssd/names.h", "dnssd/receive_buffer.h", "mdns/name.h", "mdns/reader.h", "mdns/writer.h"}

# The library's own folders, and what each of them may include.
OF_THE_LIBRARY = {"mdns": {"mdns"}, "dnssd": {"dnssd", "mdns"}}

_INCLUDE = re.compile(r'\s*#\s*include\s*([<"])([^>"]+)[>"]')


# The scanners are shared with programs that are not the daemon, so they stand on nothing of it.
SCANNERS = re.compile(r"config/(\w+_scanner|quoted_value)\.(h|cpp)$")


def breach(path, folder, quoted, header):
    """Why the file may not include this header, or None."""
    if not quoted:
        for pattern, folders in SYSTEM_HEADERS:
            if pattern.match(header):
                return None if folder in folders else f"<{header}> belongs to {', '.join(sorted(folders)) or 'nobody'}"
        return None
    target = header.split("/")[0]
    if folder in OF_THE_LIBRARY:
        return None if target in OF_THE_LIBRARY[folder] else f"{folder} includes nothing of the rest"
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


def breaches(root):
    """(file, line number, text) of every breach below root/src and root/tools."""
    for path in cpp_files(root, ("src", "tools")):
        relative = path.relative_to(root)
        folder = "tools" if relative.parts[0] == "tools" else relative.parts[1] if len(relative.parts) > 2 else "main"
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
            include = _INCLUDE.match(line)
            if include:
                reason = breach(path, folder, include[1] == '"', include[2])
                if reason:
                    yield relative, number, f'includes "{include[2]}": {reason}'


if __name__ == "__main__":
    sys.exit(report(breaches))
