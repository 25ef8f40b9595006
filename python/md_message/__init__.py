"""Market-data messages that are their serialised bytes.

    >>> from md_message import Message
    >>> quote = Message(SYMBOL="NEB/USD", BID=184.15)
    >>> quote["ASK"] = 184.2
    >>> bytes(quote).hex()
    '060100084e45422f55534400160008cdcccccccc0467401700086666666666066740'
"""
from __future__ import annotations

import collections.abc as _abc
import datetime as _datetime
import os as _os
import typing as _typing

from . import _md_message
from ._md_message import Message, Receiver, peek, set_report_handler

if _typing.TYPE_CHECKING:
    import numpy as _numpy

__all__ = [
    "DateTime",
    "Dictionary",
    "FieldInfo",
    "Message",
    "Receiver",
    "as_datetime",
    "as_datetime64",
    "dictionary",
    "load_dictionary",
    "peek",
    "set_report_handler",
]


class DateTime(_typing.NamedTuple):
    """The value of a DATETIME field: the decimal number yyyymmdd, the time of day and the UTC offset of the exchange,
    both in the unit of whoever wrote the message."""

    date: int
    time: int
    offset: int = 0


class FieldInfo(_typing.NamedTuple):
    """What a dictionary declares of a field."""

    id: int
    name: str
    type: str


class Dictionary(_typing.Mapping[str, FieldInfo]):
    """The fields of a dictionary by name, as they were when the object was made."""

    __slots__ = ("_by_id", "_by_name", "_fingerprint", "_source")

    def __init__(self) -> None:
        """Reads the current dictionary of the process; dictionary() does the same."""
        rows, self._source, self._fingerprint = _md_message._dictionary_rows()
        self._by_id = {field: FieldInfo(field, name, kind) for field, name, kind, _ in rows}
        self._by_name = {name: self._by_id[field] for field, name, _, is_found in rows if is_found}

    def __getitem__(self, name: str) -> FieldInfo:
        """Returns the field of a name. Of two fields with one name it is the one with the higher id."""
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
        """A hash of all ids, types and names: dictionaries with the same one understand each other's messages."""
        return self._fingerprint

    @property
    def source(self) -> str:
        """The file that the fields were loaded from; empty where there was none."""
        return self._source

    def diff(self, other: Dictionary) -> dict[int, tuple[FieldInfo | None, FieldInfo | None]]:
        """Returns the fields that differ, by id: here and there, None where one of the two does not have the field."""
        pairs = {
            field: (self._by_id.get(field), other._by_id.get(field))
            for field in sorted(self._by_id.keys() | other._by_id.keys())
        }
        return {field: pair for field, pair in pairs.items() if pair[0] != pair[1]}


def dictionary() -> Dictionary:
    """Returns the current dictionary of the process.

    The first use of the module loads it from the configuration search path or, when there is none, takes a built-in one.
    """
    return Dictionary()


def load_dictionary(path: str | _os.PathLike[str]) -> Dictionary:
    """Makes a text or XML file the dictionary of the process, and returns its fields.

    Messages are parsed again with the new dictionary at their next use. When the file is refused (ValueError), the
    dictionary is empty until another one is loaded. RuntimeError while another thread reads messages.
    """
    with open(path, "rb"):
        pass  # an OSError for a file that cannot be read
    _md_message._load_dictionary(path)
    return Dictionary()


def as_datetime(nanoseconds: int) -> _datetime.datetime:
    """Returns the value of an EPOCH_NSEC field as a datetime in UTC, cut to whole microseconds."""
    epoch = _datetime.datetime(1970, 1, 1, tzinfo=_datetime.timezone.utc)
    return epoch + _datetime.timedelta(microseconds=nanoseconds // 1000)


def as_datetime64(nanoseconds: int) -> _numpy.datetime64:
    """Returns the value of an EPOCH_NSEC field as a numpy.datetime64 in nanoseconds. Needs numpy."""
    try:
        import numpy
    except ImportError as error:
        raise ImportError("as_datetime64() needs numpy, which is not installed") from error
    return numpy.datetime64(nanoseconds, "ns")


_abc.MutableMapping.register(Message)
_md_message._use_date_time(DateTime)
