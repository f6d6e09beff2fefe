# SPDX-License-Identifier: MIT
"""The line length check sees what it should."""

import check_line_length


def breaches(tmp_path, name, text):
    file = tmp_path / name
    file.parent.mkdir(parents=True)
    file.write_text(text, encoding="utf-8")
    return [(str(path), number) for path, number, _ in check_line_length.breaches(tmp_path)]


def test_a_line_of_120_columns_is_right_and_one_more_is_too_long(tmp_path):
    assert breaches(tmp_path, "src/tables/a.cpp", "x" * 120 + "\n" + "y" * 121 + "\n") == [("src/tables/a.cpp", 2)]


def test_a_column_is_a_character_and_not_a_byte(tmp_path):
    assert breaches(tmp_path, "tests/static/a.py", "ä" * 120 + "\n") == []


def test_other_folders_and_kinds_of_files_are_not_looked_at(tmp_path):
    assert breaches(tmp_path, "src/config/a.bin", "x" * 200) == []
    assert breaches(tmp_path, "elsewhere/a.cpp", "x" * 200) == []


def test_this_tree_is_clean():
    assert list(check_line_length.breaches(check_line_length.ROOT)) == []
