"""The declarations for ctypes agree with include/qrx.h."""

import ctypes
import os
import re
import unittest
from ctypes import POINTER

from qrx import _library

HEADER = os.path.join(os.path.dirname(__file__), "..", "..", "include", "qrx.h")

NUMBERS = {
    "int": ctypes.c_int,
    "qrx_status": ctypes.c_int,
    "size_t": ctypes.c_size_t,
    "uint32_t": ctypes.c_uint32,
    "uint64_t": ctypes.c_uint64,
    "qrx_allocator": _library.Allocator,
}
HANDLES = {"qrx_reader", "qrx_writer", "qrx_codec"}


def read_header() -> str:
    """Returns the header without comments and preprocessor conditions, in single spaces."""
    with open(HEADER, encoding="ascii") as file:
        return re.sub(r"/\*.*?\*/", " ", file.read(), flags=re.DOTALL)


def c_type(declaration: str) -> object:
    """Returns the ctypes type of a declaration, such as "const void* src"."""
    words = declaration.replace("*", " * ").replace("const", "").split()
    stars = words.count("*")
    names = [word for word in words if word != "*"]
    base = names[0]
    if stars == 0:
        return None if base == "void" else NUMBERS[base]
    if base == "char":
        return ctypes.c_char_p
    if base == "void" or base in HANDLES:
        return ctypes.c_void_p if stars == 1 else POINTER(ctypes.c_void_p)
    return POINTER({**NUMBERS, **_library.STRUCTURES}[base])


def arguments(declarations: str) -> list:
    parts = [part.strip() for part in declarations.split(",")]
    return [] if parts == ["void"] else [c_type(part) for part in parts]


class Header(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        cls.header = read_header()

    def test_status_values(self) -> None:
        body = re.search(r"typedef enum qrx_status \{(.*?)\}", self.header, re.DOTALL).group(1)
        values = {name: int(value) for name, value in re.findall(r"QRX_(\w+) = (\d+)\b", body)}
        self.assertGreater(len(values), 15)
        self.assertEqual(values, {status.name: status.value for status in _library.Status})

    def test_macro_values(self) -> None:
        macros = dict(re.findall(r"#define QRX_(\w+)[ \t]+(\w+)[ \t]*$", self.header, re.MULTILINE))
        macros.pop("API", None)
        self.assertGreater(len(macros), 10)
        for name, value in macros.items():
            number = 2**64 - 1 if value == "UINT64_MAX" else int(value.rstrip("u"), 0)
            self.assertEqual(getattr(_library, name), number, name)

    def test_structures(self) -> None:
        found = re.findall(r"typedef struct (\w+) \{(.*?)\} \1;", self.header, re.DOTALL)
        self.assertEqual({name for name, _ in found}, set(_library.STRUCTURES))
        for name, body in found:
            fields = _library.STRUCTURES[name]._fields_
            declarations = [part.strip() for part in body.split(";") if part.strip()]
            self.assertEqual(len(fields), len(declarations), name)
            for (field, kind), declaration in zip(fields, declarations):
                with self.subTest(structure=name, field=field):
                    self.check_field(field, kind, declaration)

    def check_field(self, field: str, kind: type, declaration: str) -> None:
        function = re.fullmatch(r"(.*?)\(\*(\w+)\)\((.*)\)", declaration, re.DOTALL)
        if function is None:
            self.assertEqual(re.search(r"(\w+)$", declaration).group(1), field)
            self.assertIs(c_type(declaration), kind)
            return
        result, name, parameters = function.groups()
        self.assertEqual(name, field)
        self.assertIs(kind._restype_, c_type(result))
        self.assertEqual(list(kind._argtypes_), arguments(parameters))

    def test_functions(self) -> None:
        found = re.findall(r"QRX_API ([^;(]*?)(qrx_\w+)\(([^)]*)\);", self.header)
        self.assertEqual({name for _, name, _ in found}, set(_library.FUNCTIONS))
        for result, name, parameters in found:
            with self.subTest(function=name):
                declared_result, declared_arguments = _library.FUNCTIONS[name]
                self.assertIs(declared_result, c_type(result))
                self.assertEqual(list(declared_arguments), arguments(parameters))

    def test_every_function_is_declared(self) -> None:
        names = set(re.findall(r"\b(qrx_\w+)\(", self.header))
        self.assertEqual(names, set(_library.FUNCTIONS))


if __name__ == "__main__":
    unittest.main()
