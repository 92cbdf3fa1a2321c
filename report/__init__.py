# SPDX-License-Identifier: ISC
"""Tells what happened in an attempt, and why, from what was written down of it."""
