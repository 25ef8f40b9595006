"""Random messages against mdmsg, random operations against a dict, random bytes against nothing at all."""
import json
import math
import os
import subprocess

from hypothesis import given, settings, strategies as st

import md_message
from md_message import DateTime, Message

MDMSG = os.environ["MDMSG"]
ENCODINGS = ["mInt", "IterMap", "MsgT"]
# Runs of each property; a longer search is a matter of the environment.
EXAMPLES = int(os.environ.get("MD_PYTHON_EXAMPLES", "200"))

text = st.text(st.characters(blacklist_categories=("Cs",), blacklist_characters="\0"), max_size=60)
values_of = {
    "CHAR": st.characters(min_codepoint=1, max_codepoint=127),
    "INT": st.integers(-(2**31), 2**31 - 1),
    "INT64": st.integers(-(2**63), 2**63 - 1),
    "FLOAT": st.floats(width=32, allow_nan=False),
    "DOUBLE": st.floats(allow_nan=False),
    "STRING": text,
    "BUFFER": st.binary(max_size=60),
    "DATETIME": st.builds(DateTime, st.dates().filter(lambda day: 1900 <= day.year < 2156).map(
        lambda day: day.year * 10000 + day.month * 100 + day.day), st.integers(0, 2**28 - 1),
        st.integers(-(2**15), 2**15 - 1)),
    "EPOCH_NSEC": st.integers(0, 2**64 - 1),
}
fields = [field for field in md_message.dictionary().values() if field.type in values_of]
field_and_value = st.sampled_from(fields).flatmap(lambda field: st.tuples(st.just(field.name), values_of[field.type]))
some_fields = st.lists(field_and_value, max_size=12, unique_by=lambda pair: pair[0]).map(dict)


def as_json(value):
    """A value as mdmsg writes it."""
    if isinstance(value, DateTime):
        return value._asdict()
    if isinstance(value, bytes):
        return {"hex": value.hex()}
    if isinstance(value, float) and math.isinf(value):
        return "Infinity" if value > 0 else "-Infinity"
    return value


def same(ours, theirs):
    if isinstance(ours, float) and isinstance(theirs, (int, float)):
        return ours == theirs and math.copysign(1, ours) == math.copysign(1, theirs)
    return ours == theirs


@settings(max_examples=6)
@given(st.lists(st.tuples(st.sampled_from(ENCODINGS), some_fields), min_size=40, max_size=40))
def test_messages_are_those_of_mdmsg(samples):
    messages = [Message(encoding, values) for encoding, values in samples]
    lines = "".join(bytes(message).hex() + "\n" for message in messages)
    run = subprocess.run([MDMSG, "decode", "--format", "json"], input=lines, capture_output=True, text=True, check=True)
    decoded = run.stdout.splitlines()
    assert len(decoded) == len(messages)
    for (_, values), message, line in zip(samples, messages, decoded):
        assert message.to_json() == line
        theirs = json.loads(line)
        assert list(theirs) == list(values) == list(message)
        for name, value in values.items():
            ours = message[name]
            assert same(ours, value) and type(ours) is type(value)
            found = theirs[name]
            if isinstance(found, float) and isinstance(ours, float):
                # The shortest text of a FLOAT is that of 32 bits.
                found = Message(**{name: found})[name]
            assert same(as_json(ours), found)
    encoded = subprocess.run([MDMSG, "encode", "--encoding", "MsgT"], input=run.stdout, capture_output=True, text=True,
                             check=True)
    assert encoded.stdout.split() == [bytes(message.convert("MsgT")).hex() for message in messages]


operation = st.one_of(
    st.tuples(st.just("set"), field_and_value),
    st.tuples(st.just("delete"), st.sampled_from(fields).map(lambda field: field.name)),
    st.tuples(st.just("update"), some_fields),
    st.tuples(st.just("pop"), st.sampled_from(fields).map(lambda field: field.name)),
    st.tuples(st.just("setdefault"), field_and_value),
    st.tuples(st.sampled_from(["clear", "copy", "pickle", "parse"]), st.none()),
)


@settings(max_examples=EXAMPLES)
@given(st.sampled_from(ENCODINGS), st.lists(operation, max_size=25))
def test_random_operations_do_what_a_dict_does(encoding, operations):
    message, model = Message(encoding), {}
    for name, argument in operations:
        if name == "set":
            message[argument[0]] = argument[1]
            model[argument[0]] = argument[1]
        elif name == "delete":
            if argument in model:
                del message[argument], model[argument]
            else:
                try:
                    del message[argument]
                except KeyError:
                    continue
                raise AssertionError("an absent field was deleted")
        elif name == "update":
            message.update(argument)
            model.update(argument)
        elif name == "pop":
            assert message.pop(argument, None) == model.pop(argument, None)
        elif name == "setdefault":
            assert message.setdefault(*argument) == model.setdefault(*argument)
        elif name == "clear":
            message.clear()
            model.clear()
        elif name == "copy":
            message = message.copy()
        elif name == "pickle":
            message = message.convert("MsgT").convert(encoding)
        else:
            message = Message.from_bytes(bytes(message))
        assert message.to_dict() == model and len(message) == len(model) and set(message) == set(model)
        assert all(message[key] == value and key in message for key, value in model.items())
        assert message == Message("MsgT", model)


@settings(max_examples=EXAMPLES)
@given(st.sampled_from([b"\x01", b"\x06", b"\x46", b""]), st.binary(max_size=80), st.data())
def test_any_bytes_are_read_or_refused(first, rest, data):
    """Every operation on a message of any bytes gives a value or one of the exceptions that are documented."""
    received = first + rest
    if data.draw(st.booleans()):
        valid = bytes(Message(data.draw(st.sampled_from(ENCODINGS)), data.draw(some_fields)))
        cut = data.draw(st.integers(0, len(valid)))
        received = valid[:cut] + data.draw(st.binary(max_size=3)) + valid[cut + data.draw(st.integers(0, 3)):]
    md_message.set_report_handler(lambda report: None)
    try:
        try:
            message = Message.from_bytes(received)
        except ValueError:
            assert received[:1] not in (b"\x01", b"\x06", b"\x46")
            return
        problems = message.problems()
        assert len(list(message)) == len(message)
        for name in message:
            if name in problems:
                try:
                    message[name]
                except ValueError:
                    continue
                raise AssertionError(f"{name} was read")
            value = message[name]
            assert md_message.peek(received, name) == value or value != value
        json.loads(message.to_json())
        assert str(message) is not None and repr(message).startswith("Message(")
        if not problems:
            again = Message(message.encoding)
            try:
                again.update(message)
            except ValueError:
                return  # such as a date that the calendar does not have
            assert len(again) == len(message)
        for name in list(message):
            del message[name]
        assert len(message) == 0
    finally:
        md_message.set_report_handler(None)
