"""Measures qrx and renders docs/results/; scripts/report is the command."""

import pathlib
import sys

# temp_dir is shared with the tests of qrx.
sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "tests" / "tool"))
