"""Market-data messages that are always in serialised form.

    >>> from md_message import Message
    >>> quote = Message(SYMBOL="NEB/USD", BID=184.15)
    >>> quote["ASK"] = 184.2
    >>> bytes(quote).hex()
    '060100084e45422f55534400160008cdcccccccc0467401700086666666666066740'
"""
from __future__ import annotations

import builtins as _builtins
import collections.abc as _abc
import datetime as _datetime
import importlib as _importlib
import os as _os
import typing as _typing

from . import _md_message
from ._md_message import Message, Reader, Receiver, peek, set_report_handler

__all__ = [
    "Column",
    "Columns",
    "DateTime",
    "Dictionary",
    "FieldInfo",
    "Message",
    "Reader",
    "Receiver",
    "as_datetime",
    "as_datetime64",
    "dictionary",
    "load_dictionary",
    "open",
    "peek",
    "read_batches",
    "read_columns",
    "set_report_handler",
]


class DateTime(_typing.NamedTuple):
    """The value of a DATETIME field: the decimal number yyyymmdd, the time of day and the UTC offset of the exchange.

    The message does not contain the units. Use hhmmssmmm (local time) and minutes east of UTC.
    """

    date: int
    time: int
    offset: int = 0


class FieldInfo(_typing.NamedTuple):
    """The entry of a field in a dictionary."""

    id: int
    name: str
    type: str


class Dictionary(_typing.Mapping[str, FieldInfo]):
    """The fields of a dictionary by name, as they were when the object was created."""

    __slots__ = ("_by_id", "_by_name", "_fingerprint", "_source")

    def __init__(self) -> None:
        """Reads the current dictionary of the process; dictionary() does the same."""
        rows, self._source, self._fingerprint = _md_message._dictionary_rows()
        self._by_id = {field: FieldInfo(field, name, kind) for field, name, kind, _ in rows}
        self._by_name = {name: self._by_id[field] for field, name, _, is_found in rows if is_found}

    def __getitem__(self, name: str) -> FieldInfo:
        """Returns the field of a name. If two fields share a name, it is the one with the higher id."""
        return self._by_name[name]

    def __iter__(self) -> _abc.Iterator[str]:
        """Iterates over the names, in the order of the ids."""
        return iter(self._by_name)

    def __len__(self) -> int:
        """Returns the number of names."""
        return len(self._by_name)

    def __repr__(self) -> str:
        """Returns the source and the number of fields."""
        return f"<Dictionary {self._source!r}, {len(self._by_id)} fields>"

    def by_id(self, id: int) -> FieldInfo:
        """Returns the field of an id."""
        return self._by_id[id]

    @property
    def fingerprint(self) -> int:
        """A hash of all ids, types and names: programs with the same hash understand each other's messages."""
        return self._fingerprint

    @property
    def source(self) -> str:
        """The file that the fields were loaded from; empty if there is none."""
        return self._source

    def diff(self, other: Dictionary) -> dict[int, tuple[FieldInfo | None, FieldInfo | None]]:
        """Returns the fields that differ, by id: the entry here and the other entry, None if a dictionary lacks the field."""
        pairs = {
            field: (self._by_id.get(field), other._by_id.get(field))
            for field in sorted(self._by_id.keys() | other._by_id.keys())
        }
        return {field: pair for field, pair in pairs.items() if pair[0] != pair[1]}


def dictionary() -> Dictionary:
    """Returns the current dictionary of the process.

    The first use of the module loads it from the configuration search path; if there is no file, it uses a built-in one.
    """
    return Dictionary()


def load_dictionary(path: str | _os.PathLike[str]) -> Dictionary:
    """Makes a text or XML file the dictionary of the process, and returns its fields.

    Messages are parsed again with the new dictionary at their next use. If the file is refused (ValueError), the
    dictionary is empty until another one is loaded. Raises RuntimeError while another thread reads messages.
    """
    with _builtins.open(path, "rb"):
        pass  # an OSError for a file that cannot be read
    _md_message._load_dictionary(path)
    return Dictionary()


def _imported(module: str, who: str) -> _typing.Any:
    """Imports an optional module."""
    try:
        return _importlib.import_module(module)
    except ImportError as error:
        raise ImportError(f"{who} requires {module}, which is not installed") from error


def as_datetime(nanoseconds: int) -> _datetime.datetime:
    """Returns the value of an EPOCH_NSEC field as a datetime in UTC, rounded down to microseconds."""
    epoch = _datetime.datetime(1970, 1, 1, tzinfo=_datetime.timezone.utc)
    return epoch + _datetime.timedelta(microseconds=nanoseconds // 1000)


def as_datetime64(nanoseconds: int) -> _typing.Any:
    """Returns the value of an EPOCH_NSEC field as a numpy.datetime64 in nanoseconds. Requires numpy."""
    numpy = _imported("numpy", "as_datetime64()")
    return numpy.datetime64(nanoseconds, "ns")


_Path = str | bytes | _os.PathLike[str]
_Key = str | int


def open(
    path: _Path | _abc.Sequence[_Path],
    *,
    dictionary: str | _os.PathLike[str] | None = None,
    where: str | _abc.Sequence[str] | None = None,
    fields: _abc.Sequence[_Key] | None = None,
    limit: int | None = None,
    framing: str | None = None,
    errors: str | _abc.Callable[[str], object] = "skip",
) -> Reader:
    """Returns an iterator over the messages of one or more files: captures and hex lines, compressed or not.

    dictionary: a file that becomes the dictionary of the process.
    where: conditions of `mdmsg --where`, such as "BID > 300", which all must hold.
    fields: the fields that are kept in the messages.
    limit: the maximum number of messages.
    framing: the length prefix of a stream of messages, "u16le", "u16be", "u32le" or "u32be"; "raw" for one message.
    errors: the handling of malformed messages: "skip" counts them, "raise" raises ValueError, after which the iteration
        can continue, and a callable receives a text with the location and the reason.

    Each message has a place and, if read from a capture, the time of its packet. The attribute counts of the iterator is a
    dict with the numbers of messages and packets read. Files are read with the interpreter lock released.
    """
    if dictionary is not None:
        load_dictionary(dictionary)
    source = [_os.fsdecode(path)] if isinstance(path, (str, bytes, _os.PathLike)) else [_os.fsdecode(one) for one in path]
    return Reader(source, where, fields, limit, framing, errors)


class Column(_md_message._Column):
    """One field of all rows: a sequence of values, None for rows without a value.

    A slice is a list. INT, INT64, FLOAT, DOUBLE and EPOCH_NSEC columns support the buffer protocol, with zeros for nulls.
    """

    __slots__ = ()

    def __repr__(self) -> str:
        return f"<Column of {self.type}: {len(self)} rows, {self.null_count} of them null>"

    def to_numpy(self) -> _typing.Any:
        """Returns the values as a numpy array. Requires numpy.

        Nulls are NaN in FLOAT and DOUBLE columns and NaT in EPOCH_NSEC columns (datetime64[ns]). An INT or INT64 column
        with nulls is a masked array. Other types return an array of objects. Without nulls no value is copied.
        """
        numpy = _imported("numpy", "to_numpy()")
        if self.type not in ("INT", "INT64", "FLOAT", "DOUBLE", "EPOCH_NSEC"):
            values = numpy.empty(len(self), dtype=object)
            encoded = self._encoded()
            if encoded is None:
                values[:] = self.to_list()
            else:
                # A null has the index -1, which is the last element.
                values[:] = numpy.array([*encoded[0], None], dtype=object)[numpy.frombuffer(encoded[1], dtype=numpy.int32)]
            return values
        values = numpy.asarray(memoryview(self))  # type: ignore[arg-type]
        if self.type == "EPOCH_NSEC":
            values = values.view("datetime64[ns]")
        if self.null_count:
            is_null = self._is_null()
            if self.type in ("INT", "INT64"):
                return numpy.ma.masked_array(values, is_null)
            values = values.copy()
            values[is_null] = numpy.datetime64("NaT") if self.type == "EPOCH_NSEC" else numpy.nan
        return values

    def to_pandas(self) -> _typing.Any:
        """Returns the values as a pandas Series: nullable integers, floats, datetime64[ns, UTC], objects or, for a
        dictionary-encoded column, a categorical."""
        pandas = _imported("pandas", "to_pandas()")
        encoded = self._encoded()
        if encoded is not None:
            numpy = _imported("numpy", "to_pandas()")
            rows = numpy.frombuffer(encoded[1], dtype=numpy.int32)
            return pandas.Series(pandas.Categorical.from_codes(rows, encoded[0]))
        if self.type in ("INT", "INT64") and self.null_count:
            numpy = _imported("numpy", "to_pandas()")
            values = numpy.asarray(memoryview(self)).copy()  # type: ignore[arg-type]
            return pandas.Series(pandas.arrays.IntegerArray(values, self._is_null()))
        series = pandas.Series(self.to_numpy())
        return series.dt.tz_localize("UTC") if self.type == "EPOCH_NSEC" else series

    def _is_null(self) -> _typing.Any:
        numpy = _imported("numpy", "to_numpy()")
        validity = numpy.frombuffer(self.validity, dtype=numpy.uint8)
        return numpy.unpackbits(validity, count=len(self), bitorder="little") == 0


class Columns(_typing.Mapping[_Key, Column]):
    """Columns of messages by field, one row per message.

    polars, DuckDB, pyarrow and pandas import them through the Arrow PyCapsule interface, without a copy.
    """

    __slots__ = ("_columns", "_counts", "_table")

    def __init__(self, table: _md_message._Table, counts: dict[str, int]) -> None:
        """Called by read_columns() and read_batches()."""
        self._table = table
        self._columns: dict[_Key, Column] = {
            key: table.column(Column, number) for number, key in enumerate(table.keys)
        }
        self._counts = counts

    def __getitem__(self, field: _Key) -> Column:
        """Returns the column of a field."""
        return self._columns[field]

    def __iter__(self) -> _abc.Iterator[_Key]:
        """Iterates over the fields."""
        return iter(self._columns)

    def __len__(self) -> int:
        """Returns the number of columns."""
        return len(self._columns)

    def __repr__(self) -> str:
        """Returns the fields and the number of rows."""
        return f"<Columns {', '.join(map(str, self))}: {self.rows} rows>"

    @property
    def rows(self) -> int:
        """The number of rows."""
        return self._table.rows

    @property
    def counts(self) -> dict[str, int]:
        """The numbers of messages read up to these rows, parsed and malformed, and for captures of packets by kind."""
        return self._counts

    def batches(self) -> _abc.Iterator[Columns]:
        """Iterates over the batches of the rows."""
        return (Columns(table, self.counts) for table in self._table.batches())

    def to_numpy(self) -> dict[_Key, _typing.Any]:
        """Returns the columns as numpy arrays; see Column.to_numpy(). Requires numpy."""
        return {field: column.to_numpy() for field, column in self._columns.items()}

    def to_pandas(self) -> _typing.Any:
        """Returns a pandas DataFrame; see Column.to_pandas(). Requires pandas."""
        pandas = _imported("pandas", "to_pandas()")
        return pandas.DataFrame({field: column.to_pandas() for field, column in self._columns.items()})

    def __arrow_c_stream__(self, requested_schema: object = None) -> object:
        """Returns a capsule with an ArrowArrayStream of the batches. The requested schema is ignored."""
        return self._table.stream()

    def __arrow_c_schema__(self) -> object:
        """Returns a capsule with the ArrowSchema of the batches."""
        return self._table.schema()


_Source = _Path | bytearray | memoryview


def _scan(
    source: _Source | _abc.Sequence[_Source],
    fields: _abc.Sequence[_Key],
    where: str | _abc.Sequence[str] | None,
    limit: int | None,
    framing: str | None,
    batch_rows: int,
    binary: _abc.Sequence[_Key],
    dictionary_encoded: _abc.Sequence[_Key],
) -> _md_message._Scan:
    return _md_message._Scan(source, where, fields, limit, framing, binary, dictionary_encoded, batch_rows)


def read_columns(
    source: _Source | _abc.Sequence[_Source],
    fields: _abc.Sequence[_Key],
    *,
    where: str | _abc.Sequence[str] | None = None,
    limit: int | None = None,
    framing: str | None = None,
    batch_rows: int = 65536,
    binary: _abc.Sequence[_Key] = (),
    dictionary_encoded: _abc.Sequence[_Key] = (),
) -> Columns:
    """Reads fields of all messages as columns, with the interpreter lock released.

    source: a path, bytes in any object with the buffer protocol, or a sequence of these.
    where, limit, framing: as in open().
    batch_rows: the number of rows per batch.
    binary: CHAR and STRING fields that may hold any bytes; they are binary columns in Arrow. Text of other fields that is
        not valid UTF-8 raises a ValueError that names the message and the field.
    dictionary_encoded: STRING fields with few values, such as symbols and venues. Each batch holds every value once, and
        an index in each row: a dictionary-encoded column in Arrow, a categorical in pandas.

    A field that is absent or cannot be read is null. Malformed messages are counted.
    """
    scan = _scan(source, fields, where, limit, framing, batch_rows, binary, dictionary_encoded)
    table = scan.read()
    return Columns(table, scan.counts)


def read_batches(
    source: _Source | _abc.Sequence[_Source],
    fields: _abc.Sequence[_Key],
    *,
    where: str | _abc.Sequence[str] | None = None,
    limit: int | None = None,
    framing: str | None = None,
    batch_rows: int = 65536,
    binary: _abc.Sequence[_Key] = (),
    dictionary_encoded: _abc.Sequence[_Key] = (),
) -> _abc.Iterator[Columns]:
    """Iterates over batches of columns, for inputs larger than memory. The arguments are those of read_columns()."""
    scan = _scan(source, fields, where, limit, framing, batch_rows, binary, dictionary_encoded)
    return (Columns(table, scan.counts) for table in scan)


_abc.MutableMapping.register(Message)
_md_message._use_date_time(DateTime)
