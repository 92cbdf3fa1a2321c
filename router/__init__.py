# SPDX-License-Identifier: ISC
"""The virtual router: a whole device with simulated radios, for demonstrations and radio tests."""
