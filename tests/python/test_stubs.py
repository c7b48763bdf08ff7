#!/usr/bin/env python3
"""The type stubs and the docstrings say what the module has.

usage: test_stubs.py FOLDER_OF_THE_PACKAGE
"""

import ast
import inspect
import pathlib
import re
import sys
import unittest

sys.path.insert(0, sys.argv[1])

import korvane
import korvane.batch

PACKAGE = pathlib.Path(korvane.__file__).parent


def stubs(name):
    """What a stub file declares: names, of functions their parameters, of classes their members."""
    def of(body):
        declared = {}
        for node in body:
            if isinstance(node, ast.FunctionDef):
                arguments = node.args
                declared[node.name] = [a.arg for a in (*arguments.posonlyargs, *arguments.args, *arguments.kwonlyargs)]
            elif isinstance(node, ast.ClassDef):
                declared[node.name] = of(node.body)
            elif isinstance(node, ast.AnnAssign):
                declared[node.target.id] = None
        return declared

    return of(ast.parse((PACKAGE / name).read_text()).body)


def parameters(function):
    """Of Python's functions by their signature, of compiled ones by the first line of their docstring."""
    try:
        return list(inspect.signature(function).parameters)
    except ValueError:
        inner = re.match(r"\w+\((.*)\) -> ", function.__doc__.splitlines()[0]).group(1)
        return [word for word in re.findall(r"(?:^|, )(\w+)(?=:|=)", inner)]


class Stubs(unittest.TestCase):
    def compare(self, declared, thing, where):
        for name, what in declared.items():
            if name.startswith("__") and name != "__version__":
                continue
            self.assertTrue(hasattr(thing, name), f"{where}.{name} is in the stubs alone")
            member = getattr(thing, name)
            if isinstance(what, dict):
                self.compare_class(what, member, f"{where}.{name}")
            elif isinstance(what, list) and not name.startswith("__"):
                self.assertEqual([p for p in parameters(member) if p not in ("self", "named", "options")],
                                 [p for p in what if p != "self"], f"{where}.{name}")

    def compare_class(self, declared, thing, where):
        fields = {name for name, what in declared.items() if what is None}
        if issubclass(thing, BaseException):
            return
        self.compare({name: what for name, what in declared.items() if name not in fields}, thing, where)
        present = {name for name in vars(thing) if not name.startswith("_")}
        self.assertEqual({name for name in declared if not name.startswith("_")} ^ present, set(), where)

    def test_every_public_name_has_a_stub_as_it_is(self):
        declared = stubs("__init__.pyi")
        aliases = {"Path", "Vector", "Progress", "Policy", "Level", "Keys"}
        self.assertEqual(set(korvane.__all__) ^ (set(declared) - aliases), set())
        self.compare({name: what for name, what in declared.items() if name not in aliases}, korvane, "korvane")
        declared = stubs("batch.pyi")
        self.assertEqual(set(korvane.batch.__all__) ^ set(declared), set())
        self.compare(declared, korvane.batch, "korvane.batch")

    def test_help_reads_like_a_manual(self):
        for name in korvane.__all__:
            thing = getattr(korvane, name)
            if not callable(thing):
                continue
            said = inspect.getdoc(thing) or ""
            self.assertGreater(len(said), 30, name)
            if inspect.isclass(thing):
                for member, value in vars(thing).items():
                    if callable(value) and not member.startswith("_") and not issubclass(thing, BaseException):
                        self.assertTrue(inspect.getdoc(value), f"{name}.{member}")
        for name in ("find", "load", "from_array", "read", "convert", "draw", "build_medium", "phantom", "Peer", "Receiver",
                     "Volume", "Series", "Found", "DataSet", "Tls"):
            self.assertRegex(inspect.getdoc(getattr(korvane, name)), r"\n\n {4}\S", f"{name} has no example")
        for name in ("load", "slice", "export", "save_dicom"):
            owner = korvane.Series if name == "load" else korvane.Volume
            self.assertRegex(inspect.getdoc(getattr(owner, name)), r"\n\n {4}\S", f"{name} has no example")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
