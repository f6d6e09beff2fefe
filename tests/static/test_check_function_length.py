# SPDX-License-Identifier: MIT
"""The function length check counts what it should."""

import check_function_length


def lengths(text):
    return [(line, length) for line, length, _ in check_function_length.functions(text.splitlines())]


def body_of(text):
    return next(check_function_length.functions(text.splitlines()))[2]


def test_a_function_counts_from_its_signature_to_its_brace():
    text = "namespace {\n\nint f(int a,\n      int b) {\n  if (a) {\n    return b;\n  }\n  return 0;\n}\n\n}\n"
    assert lengths(text) == [(3, 7)]


def test_a_member_function_counts_and_its_class_does_not():
    assert lengths("struct S {\n  int f() {\n    return 1;\n  }\n};\n") == [(2, 3)]


def test_two_functions_are_two():
    assert lengths("void f() {\n  g();\n}\n\nvoid g() {\n}\n") == [(1, 3), (5, 2)]


def test_a_table_and_an_enum_are_no_functions():
    assert lengths("constexpr int kTable[] = {\n    1,\n};\nenum E : int {\n  kA,\n};\n") == []


def test_one_switch_is_flat_and_a_switch_among_statements_is_not():
    flat = "int f(int a) {\n  switch (a) {\n    case 1:\n      return 2;\n  }\n  return 0;\n}\n"
    assert check_function_length.is_flat_switch(body_of(flat))
    assert not check_function_length.is_flat_switch(body_of(flat.replace("  return 0;", "  g();\n  h();\n  return 0;")))


def test_a_long_function_fails_the_check(tmp_path, monkeypatch, capsys):
    source = tmp_path / "src" / "a.cpp"
    source.parent.mkdir()
    monkeypatch.setattr("sys.argv", ["check", str(tmp_path)])
    source.write_text("void f() {\n" + "  g();\n" * 58 + "}\n", encoding="utf-8")
    assert check_function_length.main() == 0
    source.write_text("void f() {\n" + "  g();\n" * 59 + "}\n", encoding="utf-8")
    assert check_function_length.main() == 1
    assert capsys.readouterr().out == "src/a.cpp:1: a function of 61 lines (at most 60)\n"
