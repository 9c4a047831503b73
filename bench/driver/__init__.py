# SPDX-License-Identifier: MIT
"""What bench/run.py consists of."""
