# SPDX-License-Identifier: MIT
"""Tables and charts of a run, put into a page that has a place for them:

    <!-- bench: forgeries -->
    <!-- /bench -->

What stands between the two lines is replaced; a scenario that the run has not measured keeps what it has. The charts go
into a folder beside the page, called like it.
"""

import re
import shutil

from .results import tables_of


def fill_in(page, results, modules, charts):
    text = page.read_text(encoding="utf-8")
    folder = page.with_suffix("")
    for module in modules:
        if module.NAME not in results:
            continue
        parts = [_origin(results), tables_of(module, results)]
        for chart in (path for path in charts if path.stem == module.NAME):
            shutil.copy(chart, folder / chart.name)
            parts.append(f"![{module.NAME}]({folder.name}/{chart.name})\n")
        text = _replace(text, module.NAME, "\n".join(parts))
    page.write_text(text, encoding="utf-8")


def _origin(results):
    machine = results["machine"]
    effort = ", a short run" if results["quick"] else ""
    return (f"{machine['date'][:10]}, {machine['commit']}, {machine['cores']} cores, Linux "
            f"{machine['kernel']}{effort}.\n")


def _replace(text, name, content):
    place = re.compile(rf"(<!-- bench: {re.escape(name)} -->\n).*?(<!-- /bench -->)", re.DOTALL)
    assert place.search(text), f"docs/performance.md has no place for {name}"
    return place.sub(lambda found: f"{found[1]}\n{content}\n{found[2]}", text)
