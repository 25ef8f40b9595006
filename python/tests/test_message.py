"""Message: a mutable mapping that is its serialised bytes."""
import collections.abc
import copy
import gc
import math
import pickle
import subprocess
import sys
import textwrap
import threading

import pytest

import md_message
from md_message import DateTime, Message

ENCODINGS = ["mInt", "IterMap", "MsgT"]

# A field of each type that messages carry, two values, and what a value of a wrong type, out of range and too long gives.
TYPES = {
    "CHAR": ("SIDE", "B", "S"),
    "INT": ("BID_QTY", -2147483648, 2147483647),
    "INT64": ("SEQ", -9223372036854775808, 9223372036854775807),
    "FLOAT": ("DELTA", 0.25, -1.5),
    "DOUBLE": ("BID", 184.15, float("inf")),
    "STRING": ("SYMBOL", "NEB/USD", "na\u00efve \u20ac \U0001f4c8"),
    "BUFFER": ("RAW_PAYLOAD", b"\x00\xff\x01", b""),
    "DATETIME": ("EXCH_TIME", DateTime(20240603, 93000000, -300), DateTime(19000101, 0, 0)),
    "EPOCH_NSEC": ("RECV_TIME", 0, 18446744073709551615),
}

WRONG = {
    "CHAR": [(1, TypeError), ("", ValueError), ("BS", ValueError), ("\u20ac", ValueError), (b"B", TypeError)],
    "INT": [("1", TypeError), (1.0, TypeError), (True, TypeError), (2147483648, OverflowError),
            (-2147483649, OverflowError)],
    "INT64": [(None, TypeError), (1.5, TypeError), (False, TypeError), (1 << 63, OverflowError),
              (1 << 200, OverflowError)],
    "FLOAT": [("1", TypeError), (True, TypeError), (1e39, OverflowError), (-3.5e38, OverflowError),
              (10**400, OverflowError)],
    "DOUBLE": [("1", TypeError), (True, TypeError), (10**400, OverflowError), (None, TypeError)],
    "STRING": [(b"x", TypeError), (1, TypeError), ("\ud800", ValueError), ("x" * 65536, ValueError)],
    "BUFFER": [("x", TypeError), (1, TypeError), (b"x" * 65536, ValueError)],
    "DATETIME": [(20240603, TypeError), ((20240603, 1), TypeError), ((20240603, 1, "0"), TypeError),
                 ((2024, 0, 0), ValueError), ((20240603, 1 << 28, 0), ValueError),
                 ((20240603, 0, 32768), OverflowError)],
    "EPOCH_NSEC": [(-1, OverflowError), (1 << 64, OverflowError), (1.0, TypeError), ("1", TypeError),
                   (True, TypeError)],
}


@pytest.fixture(params=ENCODINGS)
def encoding(request):
    return request.param


@pytest.mark.parametrize("kind", TYPES)
def test_every_operation_on_every_type(encoding, kind):
    name, first, second = TYPES[kind]
    field = md_message.dictionary()[name]
    assert field.type == kind
    message = Message(encoding)
    assert name not in message and message.get(name) is None and message.get(name, 7) == 7
    with pytest.raises(KeyError, match=name):
        message[name]
    with pytest.raises(KeyError, match=name):
        del message[name]
    message[name] = first
    assert message[name] == message[field.id] == message.get(name) == first
    assert type(message[name]) is type(first)
    assert name in message and field.id in message and len(message) == 1 and list(message) == [name]
    message[field.id] = second
    assert message.to_dict() == dict(message) == {name: second}
    assert list(message.items()) == [(name, second)] and list(message.values()) == [second]
    assert name in message.keys() and (name, second) in message.items() and second in message.values()
    assert message.setdefault(name, first) == second
    assert md_message.peek(bytes(message), name) == md_message.peek(message, field.id) == second
    assert Message.from_bytes(bytes(message)) == message == copy.copy(message) == copy.deepcopy(message)
    assert message.pop(name) == second and len(message) == 0
    assert message.pop(name, 5) == 5
    with pytest.raises(KeyError):
        message.pop(name)
    assert message.setdefault(name, first) == first
    assert message.popitem() == (name, first)
    with pytest.raises(KeyError):
        message.popitem()
    message.update({name: first})
    message.update([(name, second)])
    del message[name]
    assert not message.to_dict()


@pytest.mark.parametrize("kind", WRONG)
def test_values_that_do_not_fit_name_the_field_and_change_nothing(encoding, kind):
    name, first, _ = TYPES[kind]
    message = Message(encoding, {name: first})
    before = bytes(message)
    for value, error in WRONG[kind]:
        with pytest.raises(error) as raised:
            message[name] = value
        assert name in str(raised.value) or isinstance(raised.value, UnicodeError)
        assert bytes(message) == before


def test_lengths_at_the_limit_of_each_encoding():
    for encoding, longest in {"mInt": 254, "IterMap": 65534, "MsgT": 65535}.items():
        message = Message(encoding, SYMBOL="x" * longest)
        assert Message.from_bytes(bytes(message))["SYMBOL"] == "x" * longest
        with pytest.raises(ValueError, match=f"SYMBOL: {longest + 1} bytes are too long for a STRING of {encoding}"
                           if longest < 65535 else "SYMBOL"):
            message["SYMBOL"] = "x" * (longest + 1)


def test_float_limits(encoding):
    largest = 3.4028234663852886e38
    message = Message(encoding, DELTA=largest)
    assert message["DELTA"] == largest
    message["DELTA"] = 3.4028235e38  # rounds to it
    assert message["DELTA"] == largest
    message["DELTA"] = math.nan
    assert math.isnan(message["DELTA"])
    message["DELTA"] = 1
    assert message["DELTA"] == 1.0


def test_unusual_objects_convert_as_numbers_do():
    class Number:
        def __index__(self):
            return 7

        def __float__(self):
            raise ZeroDivisionError

    message = Message(SEQ=Number())
    assert message["SEQ"] == 7
    with pytest.raises(ZeroDivisionError):
        message["BID"] = Number()
    assert "BID" not in message


def test_wrong_keys():
    message = Message()
    for key in (1.5, None, b"BID", ("BID",), True):
        with pytest.raises(TypeError):
            message[key]
    for key in ("NOPE", "", 65535, -1, 1 << 70, 7777):
        assert key not in message
        with pytest.raises(KeyError):
            message[key]
        with pytest.raises(KeyError):
            message[key] = 1
    with pytest.raises(TypeError, match="LAST_FRACTION: values of type FRACTION are not carried by messages"):
        message["LAST_FRACTION"] = 1


def test_construction():
    fields = {"SYMBOL": "A", "BID": 1.5}
    assert Message("MsgT", fields, ASK=2).to_dict() == {"SYMBOL": "A", "BID": 1.5, "ASK": 2.0}
    assert Message("mInt", fields.items()) == Message("IterMap", Message("MsgT", fields)) == Message(**fields)
    assert Message("mInt", None) == Message()
    for arguments, error in (("XML",), ValueError), ((6,), TypeError), (("mInt", 5), TypeError), (
            ("mInt", [(1, 2, 3)]), ValueError), (("mInt", {}, {}), TypeError), (("mInt", {"NOPE": 1}), KeyError):
        with pytest.raises(error):
            Message(*arguments)


def test_known_bytes():
    message = Message(SYMBOL="NEB/USD", BID=184.15)
    assert bytes(message).hex() == "060100084e45422f55534400160008cdcccccccc046740"
    assert message.to_json() == '{"SYMBOL":"NEB/USD","BID":184.15}'
    assert str(message) == "SYMBOL                 = NEB/USD\nBID                    = 184.15\n"
    assert repr(message) == "Message('mInt', {'SYMBOL': 'NEB/USD', 'BID': 184.15})"
    assert eval(repr(message)) == message


def test_it_is_a_mutable_mapping_without_a_dict():
    message = Message(BID=1)
    assert isinstance(message, collections.abc.MutableMapping)
    with pytest.raises(AttributeError):
        message.anything = 1
    with pytest.raises(TypeError):
        hash(message)
    assert not hasattr(message, "__dict__")
    assert message != {"BID": 1} and (message == 1) is False
    with pytest.raises(TypeError):
        message < message  # pylint: disable=pointless-statement
    with pytest.raises(TypeError):
        class Derived(Message):  # pylint: disable=unused-variable
            pass
    match message:
        case {"BID": bid}:
            assert bid == 1


def test_order_is_that_of_the_wire(encoding):
    message = Message(encoding, BID=1, SYMBOL="A", ASK=2)
    assert list(message) == ["BID", "SYMBOL", "ASK"]
    message["SYMBOL"] = "longer"  # moves to the end
    assert list(message) == ["BID", "ASK", "SYMBOL"]


def test_conversion():
    message = Message("MsgT", {name: value for name, value, _ in TYPES.values()})
    for encoding in ENCODINGS:
        converted = message.convert(encoding)
        assert converted.encoding == encoding and converted == message and list(converted) == list(message)
    message["SYMBOL"] = "x" * 255
    with pytest.raises(ValueError, match="SYMBOL"):
        message.convert("mInt")
    with pytest.raises(ValueError):
        message.convert("XML")


def test_bytes_that_are_not_utf8_come_back():
    received = bytes.fromhex("0601000441ff42002a000180")  # SYMBOL "A\xffB", SIDE 0x80
    message = Message.from_bytes(received)
    assert message["SYMBOL"] == "A\udcffB" and message["SIDE"] == "\udc80"
    assert bytes(Message("mInt", message)) == received
    assert Message(SYMBOL="A\udcffB", SIDE="\udc80") == message


def test_received_bytes_of_any_kind():
    for data in (b"", b"\x00", b"hello"):
        with pytest.raises(ValueError):
            Message.from_bytes(data)
    with pytest.raises(TypeError):
        Message.from_bytes("06")
    data = bytes(Message(BID=1, SYMBOL="A"))
    assert Message.from_bytes(bytearray(data)) == Message.from_bytes(memoryview(data)) == Message.from_bytes(data)
    with pytest.raises(BufferError):
        Message.from_bytes(memoryview(data)[::2])


def test_fields_that_cannot_be_read(encoding, capfd):
    data = bytes(Message(encoding, SYMBOL="A", BID=1.5))[:-3]
    message = Message.from_bytes(data)
    assert message.problems() == {"BID": "truncated: 5 of 8 bytes"}
    assert "BID" in message and len(message) == 2 and message["SYMBOL"] == "A"
    with pytest.raises(ValueError, match="BID: truncated: 5 of 8 bytes"):
        message["BID"]
    with pytest.raises(ValueError, match="BID"):
        message.to_dict()
    with pytest.raises(ValueError, match="BID"):
        list(message.values())
    with pytest.raises(ValueError, match="BID"):
        message.convert(encoding)
    assert "<truncated: 5 of 8 bytes>" in repr(message) and "<truncated: 5 of 8 bytes>" in str(message)
    assert md_message.peek(data, "BID") is None
    assert '"unreadable"' in message.to_json()
    del message["BID"]
    message["BID"] = 2
    assert message.to_dict() == {"SYMBOL": "A", "BID": 2.0} and not message.problems()
    assert capfd.readouterr() == ("", "")


def test_repeated_fields_count_once():
    data = bytes(Message(BID=1, SYMBOL="A")) + bytes(Message(BID=2))[1:]
    message = Message.from_bytes(data)
    assert len(message) == 2 and list(message.items()) == [("SYMBOL", "A"), ("BID", 2.0)]
    assert message.to_dict() == {"SYMBOL": "A", "BID": 2.0}


def test_views_keep_the_message_from_changing(encoding):
    message = Message(encoding, BID=1.5, SYMBOL="A")
    data = bytes(message)
    view = memoryview(message)
    assert view.readonly and view == data and view.format == "B"
    with pytest.raises(TypeError):
        view[0] = 1
    changes = [
        lambda: message.__setitem__("BID", 2),
        lambda: message.__setitem__("ASK", 2),
        lambda: message.__delitem__("BID"),
        lambda: message.update(BID=2),
        lambda: message.pop("BID"),
        message.popitem,
        message.clear,
        lambda: message.setdefault("ASK", 2),
        lambda: message.__setitem__("RAW_PAYLOAD", message),
    ]
    part = view[1:]
    view.release()
    for change in changes:
        with pytest.raises(BufferError):
            change()
        assert bytes(message) == data
    assert message.pop("ASK", None) is None
    assert message.setdefault("BID", 2) == 1.5
    part.release()
    message["BID"] = 2
    assert message["BID"] == 2.0


def test_a_view_keeps_the_message_alive():
    view = memoryview(Message(SYMBOL="NEB/USD"))
    gc.collect()
    assert bytes(view).hex() == "060100084e45422f55534400"


def test_changes_during_iteration(encoding):
    message = Message(encoding, BID=1, ASK=2, SYMBOL="A")
    for name in message:
        if name != "SYMBOL":
            message[name] = 7  # in place
    assert message.to_dict() == {"BID": 7.0, "ASK": 7.0, "SYMBOL": "A"}
    for change in (lambda: message.pop("ASK"), lambda: message.__setitem__("LAST", 1), message.clear):
        iterator = iter(message)
        change()
        with pytest.raises(RuntimeError, match="changed during iteration"):
            next(iterator)
    iterator = iter(message)
    assert list(iterator) == [] and list(iterator) == []


def test_objects_that_change_the_message_while_they_are_converted():
    message = Message(BID=1, ASK=2)

    class Malicious:
        def __float__(self):
            message.clear()
            return 3.0

    message["BID"] = Malicious()
    assert message.to_dict() == {"BID": 3.0}


def test_pickling(encoding):
    message = Message(encoding, {name: value for name, value, _ in TYPES.values()})
    for protocol in range(pickle.HIGHEST_PROTOCOL + 1):
        again = pickle.loads(pickle.dumps(message, protocol))
        assert bytes(again) == bytes(message) and again.encoding == encoding
        assert again.time_ns is None and again.place is None


def test_reports_go_to_the_handler():
    texts = []
    assert md_message.set_report_handler(texts.append) is None
    try:
        message = Message.from_bytes(bytes.fromhex("06ffff0141") + bytes(Message(BID=1))[1:])
        assert message.to_dict() == {"BID": 1.0}
        assert len(texts) > 0 and "Bad Field" in texts[0]
    finally:
        assert md_message.set_report_handler(None) == texts.append
    with pytest.raises(TypeError):
        md_message.set_report_handler(1)


def test_a_handler_cannot_replace_the_dictionary_during_a_parse(capfd):
    errors = []

    def handler(_):
        try:
            md_message.load_dictionary(md_message.dictionary().source)
        except RuntimeError as error:
            errors.append(str(error))
            raise

    md_message.set_report_handler(handler)
    try:
        Message.from_bytes(bytes.fromhex("06ffff0141"))
    except SystemError:
        pass
    finally:
        md_message.set_report_handler(None)
    assert errors and "while messages are being parsed" in errors[0]


def test_threads_share_the_module_and_not_messages():
    failures = []

    def work(number):
        for round_ in range(300):
            message = Message(ENCODINGS[round_ % 3], BID=number, SYMBOL="x" * (round_ % 50))
            if Message.from_bytes(bytes(message)).to_dict() != {"BID": number, "SYMBOL": "x" * (round_ % 50)}:
                failures.append(number)

    threads = [threading.Thread(target=work, args=(number,)) for number in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not failures


def test_sub_interpreters_are_refused():
    script = textwrap.dedent("""
        import md_message, sys
        import _xxsubinterpreters as interpreters
        other = interpreters.create()
        try:
            interpreters.run_string(other, "import md_message")
        except interpreters.RunFailedError as error:
            print(error)
        print(md_message.Message(BID=1)["BID"])
    """)
    run = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, check=True)
    assert "md_message works in the main interpreter only" in run.stdout and run.stdout.endswith("\n1.0\n")


def test_importing_it_again_gives_the_same_types():
    script = textwrap.dedent("""
        import sys, md_message
        first = md_message.Message(BID=1)
        for name in [name for name in sys.modules if name.startswith("md_message")]:
            del sys.modules[name]
        import md_message as again
        assert again is not md_message and again.Message(BID=1) == first and again.DateTime is not md_message.DateTime
    """)
    subprocess.run([sys.executable, "-c", script], check=True)


def test_everything_is_documented():
    for name in md_message.__all__:
        member = getattr(md_message, name)
        assert member.__doc__, name
        if isinstance(member, type):
            for key, attribute in vars(member).items():
                if not key.startswith("_"):
                    assert attribute.__doc__, f"{name}.{key}"
