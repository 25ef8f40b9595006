"""DuckDB by its C library, which DUCKDB_LIBRARY names: scripts/install-deps npm installs it."""
import ctypes
import os

LIBRARY = os.environ.get("DUCKDB_LIBRARY", "")


def is_there():
    return os.path.exists(LIBRARY)


class _Result(ctypes.Structure):
    _fields_ = [("counts", ctypes.c_uint64 * 3), ("parts", ctypes.c_void_p * 3)]


pointer_of = ctypes.pythonapi.PyCapsule_GetPointer
pointer_of.restype = ctypes.c_void_p
pointer_of.argtypes = [ctypes.py_object, ctypes.c_char_p]


class DuckDb:
    """A database in memory."""

    def __init__(self):
        self._library = ctypes.CDLL(LIBRARY)
        for name, result in (("result_error", ctypes.c_char_p), ("value_varchar", ctypes.c_void_p),
                             ("column_count", ctypes.c_uint64), ("row_count", ctypes.c_uint64)):
            getattr(self._library, f"duckdb_{name}").restype = result
        self._database, self._connection = ctypes.c_void_p(), ctypes.c_void_p()
        assert self._library.duckdb_open(None, ctypes.byref(self._database)) == 0
        assert self._library.duckdb_connect(self._database, ctypes.byref(self._connection)) == 0

    def close(self):
        self._library.duckdb_disconnect(ctypes.byref(self._connection))
        self._library.duckdb_close(ctypes.byref(self._database))

    def load(self, name, source):
        """Makes a table of an object with __arrow_c_stream__."""
        capsule = source.__arrow_c_stream__()
        stream = ctypes.c_void_p(pointer_of(capsule, b"arrow_array_stream"))
        assert self._library.duckdb_arrow_scan(self._connection, b"once", stream) == 0
        self.query(f"CREATE TABLE {name} AS FROM once")
        self.query("DROP VIEW once")

    def query(self, sql):
        """The rows of a result, values as text."""
        result = _Result()
        try:
            if self._library.duckdb_query(self._connection, sql.encode(), ctypes.byref(result)) != 0:
                raise ValueError(self._library.duckdb_result_error(ctypes.byref(result)).decode())
            columns = self._library.duckdb_column_count(ctypes.byref(result))
            rows = self._library.duckdb_row_count(ctypes.byref(result))
            return [tuple(self._value(result, column, row) for column in range(columns)) for row in range(rows)]
        finally:
            self._library.duckdb_destroy_result(ctypes.byref(result))

    def _value(self, result, column, row):
        value = self._library.duckdb_value_varchar(ctypes.byref(result), ctypes.c_uint64(column), ctypes.c_uint64(row))
        if value is None:
            return None
        text = ctypes.string_at(value).decode()
        self._library.duckdb_free(ctypes.c_void_p(value))
        return text
