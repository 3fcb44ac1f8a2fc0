"""The version of the package, which is that of the library it was made for."""

__version__ = "0.94.0"
