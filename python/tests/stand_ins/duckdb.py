"""What the examples use of DuckDB's Python package, over its C library: neither Debian nor npm has that package."""
import re
import sys

from duckdb_library import DuckDb


class _Relation:
    def __init__(self, name, source):
        self._name, self._source = name, source

    def write_parquet(self, path):
        database = DuckDb()
        database.load(self._name, self._source)
        database.query(f"COPY {self._name} TO '{path}' (FORMAT parquet)")
        database.close()


def sql(query):
    """FROM NAME: of a variable of the caller."""
    name = re.fullmatch(r"FROM (\w+)", query)[1]
    return _Relation(name, sys._getframe(1).f_globals[name])
