# SPDX-License-Identifier: MIT
"""The mutants that tools/dev/mutate.py tries."""

import pathlib

import mutant_tests
import mutants
import pytest


def made(source):
    """The source as each of its mutants has it."""
    return [source[:each.start] + each.replacement + source[each.end:]
            for each in mutants.token_mutants("a.cpp", source)]


@pytest.mark.parametrize("text, changed", [
    ('"a b"', '"X b"'), ('"X"', '"Y"'), ('"\\tgo"', '"\\tXo"'), ('"%s.local"', '"%s.Xocal"'), ('"%-5.*ld %u"', None),
    ('"  "', None), ('""', None), ('"\\x1b["', None), ('"\\\\n"', '"\\\\X"')])
def test_a_text_has_another_letter_and_never_only_other_blanks(text, changed):
    assert mutants.string_mutant(text) == changed


@pytest.mark.parametrize("source, changed", [
    ("x = 9;", ["x = 10;"]), ("x = 0x1F;", ["x = 32;"]), ("x = 010;", ["x = 9;"]), ("x = 20'000U;", ["x = 20001U;"]),
    ("a && b", ["a || b"]), ("a < b", ["a <= b"]), ("void f(T&& x)", []), ("T<int> x", []), ("f(true)", ["f(false)"])])
def test_a_constant_or_a_condition_is_changed_at_one_place(source, changed):
    assert made(source) == changed


def test_a_trace_keeps_its_text_and_an_error_does_not():
    source = '  f();\n  log_message(LOG_DEBUG,\n              "text");\n  log_message(LOG_ERR, "text");\n'
    texts = [each for each in mutants.token_mutants("a.cpp", source) if each.kind == "text"]
    assert [mutants.is_trace(source, each) for each in texts] == [True, False]


def test_every_folder_of_the_sources_has_tests_that_can_notice():
    folders = {path.name for path in pathlib.Path(mutants.ROOT, "src").iterdir() if path.is_dir()}
    assert folders == set(mutant_tests.PROGRAMS)


def test_every_known_equivalent_is_a_mutant_of_today():
    mutants.without_equivalents(list(mutants.all_mutants(mutants.ROOT, mutant_tests.FOLDERS)))
