# SPDX-License-Identifier: MIT
"""The check of the RFC table finds what it is for, and nothing else."""

import check_rfc_table
import pytest

FILES = {
    "src/mdns/querier.cpp": "void take_turn(int now) {}\n",
    "src/mdns/zone.h": "enum class Claim { shared };\n",
    "src/dnssd/sockets.cpp": "",
    "tests/mdns/querier_test.cpp": "TEST_F(Querier, AsksOnce) {}\n\nTEST_F(Querier, AsksAgainAndAgain) {}\n",
    "tests/dnssd/names_test.cpp": "TEST(Names, AreText) {}\n",
    "tests/dnssd/test_links.py": "def test_one_protocol_is_enough(link):\n    pass\n",
}


def breaches(tmp_path, where, test):
    """What the check says about a table with one row."""
    row = f"| 5.2 | A rule. | {where} | {test} |"
    head = ["# Title", "| Section | What it asks | Where | Test |", "|---|---|---|---|"]
    table = "\n".join([*head, row, "", "Text.", ""])
    for name, content in {**FILES, "docs/rfc6762.md": table}.items():
        path = tmp_path / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(content, encoding="utf-8")
    return [f"{path}:{number}: {text}" for path, number, text in check_rfc_table.breaches(tmp_path)]


@pytest.mark.parametrize("where", [
    "`querier.cpp`", "`querier.cpp` (take_turn): every time; a socket: `src/dnssd/sockets.cpp`",
    "`zone.h` (Claim::shared)", "`querier.cpp` (of a kind)", "does not apply: no such thing",
    "not met: there is a reason", "not met in part: `querier.cpp` has one"])
def test_files_and_functions_that_exist_and_reasons_are_fine(tmp_path, where):
    assert breaches(tmp_path, where, "–") == []


@pytest.mark.parametrize("where, text", [
    ("`asker.cpp`", "there is no asker.cpp"),
    ("`sockets.cpp`", "there is no sockets.cpp"),  # it is in another folder
    ("`src/dnssd/querier.cpp`", "there is no src/dnssd/querier.cpp"),
    ("`querier.cpp`; the rest: `zone.h` (Claim::unique)", "there is no Claim::unique in zone.h"),
    ("`querier.cpp` (take_turn, take)", "there is no take in querier.cpp"),
    ("somewhere", "says neither where the rule is kept nor why it is not"),
    ("", "says neither where the rule is kept nor why it is not")])
def test_what_does_not_exist_is_a_breach(tmp_path, where, text):
    assert breaches(tmp_path, where, "–") == [f"docs/rfc6762.md:4: section 5.2: {text}"]


@pytest.mark.parametrize("test", [
    "`querier_test.cpp`: Querier.AsksOnce, Querier.AsksAgainAndAgain", "`names_test.cpp`: Names.AreText",
    "`test_links.py`: one_protocol_is_enough; `querier_test.cpp`: Querier.AsksOnce"])
def test_tests_that_exist_are_fine(tmp_path, test):
    assert breaches(tmp_path, "`querier.cpp`", test) == []


@pytest.mark.parametrize("test, text", [
    ("`asker_test.cpp`: Querier.AsksOnce", "there is no asker_test.cpp in tests/mdns or tests/dnssd"),
    ("`querier_test.cpp`: Querier.AsksOnce, Querier.Asks", "there is no Querier.Asks in querier_test.cpp"),
    ("`querier_test.cpp`: Asker.AsksOnce", "there is no Asker.AsksOnce in querier_test.cpp"),
    ("`test_links.py`: one_protocol", "there is no one_protocol in test_links.py"),
    ("not tested", "'not tested' is not a file and its tests"),
    ("", "'' is not a file and its tests")])
def test_tests_that_do_not_exist_are_a_breach(tmp_path, test, text):
    assert breaches(tmp_path, "`querier.cpp`", test) == [f"docs/rfc6762.md:4: section 5.2: {text}"]


def test_a_row_without_all_its_cells_is_a_breach(tmp_path):
    assert breaches(tmp_path, "`querier.cpp`", "– | more") == ["docs/rfc6762.md:4: the row has 5 cells, not 4"]
