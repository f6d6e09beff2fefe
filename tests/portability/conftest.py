# SPDX-License-Identifier: MIT
"""What these tests share with those of the packages: the source tree and a way to run programs."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "packaging"))
