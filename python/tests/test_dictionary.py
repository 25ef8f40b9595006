"""The dictionary of the process, and what becomes of messages when it is replaced."""
import pathlib
import os

import pytest

import md_message
from md_message import FieldInfo, Message

DEFAULT = pathlib.Path(os.environ["MD_SOURCE_DIR"]) / "etc" / "field_map.txt"


@pytest.fixture(autouse=True)
def default_dictionary():
    md_message.load_dictionary(DEFAULT)
    yield
    md_message.load_dictionary(DEFAULT)


def test_look_up_both_ways():
    fields = md_message.dictionary()
    assert fields["BID"] == fields.by_id(22) == FieldInfo(22, "BID", "DOUBLE")
    assert len(fields) == 70 == len(list(fields)) and list(fields)[:2] == ["SYMBOL", "EXCHANGE"]
    assert "BID" in fields and "NOPE" not in fields and fields.get("NOPE") is None
    with pytest.raises(KeyError):
        fields["NOPE"]
    with pytest.raises(KeyError):
        fields.by_id(21)
    assert fields.source == str(DEFAULT) and "70 fields" in repr(fields)
    assert fields.fingerprint == md_message.dictionary().fingerprint


def test_load_text_and_xml(tmp_path):
    text = tmp_path / "fields.txt"
    text.write_text("PRICE 1 DOUBLE\nNAME 2 STRING\n")
    xml = tmp_path / "fields.xml"
    xml.write_text("<Dictionary><FieldDefinition>"
                   "<Entry><Name>PRICE</Name><Code>1</Code><Type>DOUBLE</Type></Entry>"
                   "<Entry><Name>NAME</Name><Code>2</Code><Type>STRING</Type></Entry>"
                   "</FieldDefinition></Dictionary>")
    fields = md_message.load_dictionary(text)
    assert dict(fields) == {"PRICE": (1, "PRICE", "DOUBLE"), "NAME": (2, "NAME", "STRING")}
    assert md_message.dictionary().source == str(text)
    other = md_message.load_dictionary(os.fsencode(xml))
    assert fields.fingerprint == other.fingerprint and not fields.diff(other)


def test_diff(tmp_path):
    before = tmp_path / "before.txt"
    before.write_text("A 1 DOUBLE\nB 2 STRING\nC 3 INT\n")
    after = tmp_path / "after.txt"
    after.write_text("A 1 DOUBLE\nB 2 BUFFER\nD 4 INT\n")
    assert md_message.load_dictionary(before).diff(md_message.load_dictionary(after)) == {
        2: ((2, "B", "STRING"), (2, "B", "BUFFER")),
        3: ((3, "C", "INT"), None),
        4: (None, (4, "D", "INT")),
    }


def test_names_that_do_not_lead_back(tmp_path):
    file = tmp_path / "fields.txt"
    file.write_bytes(b"A 1 INT\nA 2 INT\n77 3 INT\n\xff 4 INT\n")
    fields = md_message.load_dictionary(file)
    assert list(fields) == ["A", "77", "\udcff"] and fields["A"].id == 2 and fields.by_id(1).name == "A"
    message = Message("mInt", {1: 10, "A": 20, "77": 30, "\udcff": 40})
    assert message.to_dict() == {1: 10, "A": 20, "77": 30, "\udcff": 40}
    assert list(message) == [1, "A", "77", "\udcff"] and message[3] == 30
    assert Message("MsgT", message) == message


def test_files_that_cannot_be_used(tmp_path):
    with pytest.raises(FileNotFoundError):
        md_message.load_dictionary(tmp_path / "none")
    assert md_message.dictionary()["BID"].id == 22  # nothing was touched
    with pytest.raises(TypeError):
        md_message.load_dictionary(5.0)
    empty = tmp_path / "empty.txt"
    empty.write_text("")
    with pytest.raises(ValueError):
        md_message.load_dictionary(empty)
    broken = tmp_path / "broken.xml"
    broken.write_text("<Fields>")
    with pytest.raises(ValueError, match="broken.xml"):
        md_message.load_dictionary(broken)
    assert len(md_message.dictionary()) == 0
    with pytest.raises(KeyError):
        Message(BID=1)


def test_messages_follow_the_dictionary(tmp_path):
    file = tmp_path / "fields.txt"
    file.write_text("OFFER 23 DOUBLE\nNAME 1 STRING\n")
    message = Message("MsgT", SYMBOL="A", BID=1.5, ASK=2.5)
    held = Message("MsgT", SYMBOL="A", ASK=2.5)
    view = memoryview(held)
    keys = iter(message)
    md_message.load_dictionary(file)
    md_message.set_report_handler(lambda text: None)
    try:
        assert message.to_dict() == {"NAME": "A", "OFFER": 2.5}
        with pytest.raises(RuntimeError):
            next(keys)
        with pytest.raises(KeyError):
            message["BID"]
        with pytest.raises(BufferError):
            len(held)
        view.release()
        assert held["OFFER"] == 2.5
    finally:
        md_message.set_report_handler(None)


def test_times():
    assert md_message.as_datetime(1717407000123456789).isoformat() == "2024-06-03T09:30:00.123456+00:00"
    numpy = pytest.importorskip("numpy")
    assert md_message.as_datetime64(1717407000123456789) == numpy.datetime64("2024-06-03T09:30:00.123456789")
