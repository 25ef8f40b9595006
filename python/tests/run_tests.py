"""Runs a file of tests by pytest; without pytest or hypothesis they show as skipped.

    run_tests.py FILE
"""
import sys

try:
    import hypothesis
    import pytest
except ImportError as error:
    sys.exit(print(f"skipped: no module {error.name}"))

hypothesis.settings.register_profile("repeatable", derandomize=True, deadline=None, database=None)
hypothesis.settings.load_profile("repeatable")
sys.exit(pytest.main(["-q", "-rs", "-p", "no:cacheprovider", *sys.argv[1:]]))
