"""A file system whose readers wait until the test lets them continue."""

import functools
import os
import time

import fsspec
from fsspec.implementations.local import LocalFileSystem


class GatedFileSystem(LocalFileSystem):
    """Local files.  While the folder `gate` exists, seeking to an offset other than 0 waits.

    A waiting reader creates a file in that folder, named by its process number.
    """

    protocol = "gated"

    def __init__(self, gate: str, **options: object) -> None:
        super().__init__(**options)
        self.gate = gate

    @classmethod
    def _strip_protocol(cls, path):
        return super()._strip_protocol(str(path).removeprefix("gated://"))

    def _open(self, path, mode="rb", block_size=None, **options):
        file = super()._open(path, mode, block_size, **options)
        file.seek = functools.partial(self._seek, file.f)
        return file

    def _seek(self, file, offset, *whence):
        end_of_wait = time.monotonic() + 60
        while offset and os.path.isdir(self.gate):
            if time.monotonic() > end_of_wait:
                raise TimeoutError("the gate stays shut")
            try:
                open(os.path.join(self.gate, str(os.getpid())), "x").close()
            except (FileExistsError, FileNotFoundError):
                pass
            time.sleep(0.01)
        return file.seek(offset, *whence)


fsspec.register_implementation("gated", GatedFileSystem, clobber=True)
