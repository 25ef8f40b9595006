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
result = pytest.main(["-q", "-rs", "-p", "no:cacheprovider", *sys.argv[1:]])
if result == pytest.ExitCode.NO_TESTS_COLLECTED:
    sys.exit(print("skipped: a module that the file needs is missing"))
sys.exit(result)
