# SPDX-License-Identifier: ISC
"""The attempt tests run in the private world that world_plugin.py makes."""
pytest_plugins = ['world_plugin']
