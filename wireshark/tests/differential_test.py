"""tshark -T json and mdmsg dump agree on every record: its place, id, type, length and value, and what is wrong."""
import json
import random
import re
import struct
import unittest

from support import ITERMAP, MINT, MSGT, TestCase, main, DISSECTOR, FIELD_MAP

TYPES = {"RAW": 0, "CHAR": 1, "INT": 2, "SHORT": 3, "FLOAT": 4, "DOUBLE": 5, "STRING": 6, "VECTOR": 7, "MSG_T": 8,
         "DATE": 9, "TIME": 10, "FRACTION": 11, "CHILD_MSG": 12, "FOLDED_INT": 13, "BUFFER": 14, "UINT": 16,
         "LONG_INT": 17, "ULONG_INT": 18, "INT64": 19, "DATETIME": 20, "EPOCH_NSEC": 22}
TYPE_NAMES = {code: name for name, code in TYPES.items()}
WIDTHS = {1: 1, 2: 4, 4: 4, 5: 8, 19: 8, 20: 8, 22: 8}
ITERMAP_WIDTHS = [0, 1, 4, 2, 4, 8, 0, 0, 0, 4, 4, 12, 0, 0, 0, 4, 4, 4, 4, 8, 8, 0, 8, 0]

FIELDS = {}
for line in FIELD_MAP.read_text().splitlines():
    if line.split():
        name, number, type_name = line.split()
        FIELDS[int(number)] = (name, TYPES.get(type_name, 2))


def problem_texts():
    """The texts of the dissector's list of problems, as patterns, by name. Those about the capture are not dump's."""
    source = DISSECTOR.read_text()
    block = source[source.index("local PROBLEMS = {"):]
    block = block[:block.index("-- These are about the capture")]
    texts = {}
    for name, quoted in re.findall(r"\{ \"(\w+)\", \"\w+\", \"\w+\",\s+(\"[^\"]*\"|'[^']*') \}", block):
        pattern = re.escape(quoted[1:-1]).replace("%d", r"\d+").replace("%s", r"[\w? ]+")
        texts[name] = re.compile(pattern)
    return texts


PROBLEMS = problem_texts()
FLAW = re.compile("(?:^|  )! (" + "|".join(pattern.pattern for pattern in PROBLEMS.values()) + ")$")
# Offset, bytes, part, field, type and the rest of a row.
ROW = re.compile(r"([0-9a-f]{6})  (.{0,25})(.{0,6}) ?(.{0,22}) ?(.{0,10}) ?(.*)")


class Record:
    """What one of the two programs shows of a record. Numbers are ints; what is not there is None."""

    def __init__(self):
        self.offset = self.id = self.type = self.length = self.text = None
        self.value = b""
        self.problems = []

    def key(self):
        return self.offset, self.id, self.type, self.length, self.value, sorted(self.problems)

    def __repr__(self):
        return f"{self.key()} {self.text!r}"


class Message:
    def __init__(self):
        self.size = 0
        self.field_count = None
        self.problems = []
        self.records = []


def read_dump(output):
    """The messages of mdmsg dump."""
    messages = []
    for row in output.splitlines():
        if row.startswith("# "):
            messages.append(Message())
            messages[-1].size = int(re.search(r"(\d+) bytes?$", row).group(1))
            part = None
            continue
        if not row:
            continue
        offset, digits, new_part, _, type_name, rest = (column.strip() for column in ROW.fullmatch(row).groups())
        data = bytes.fromhex(digits)
        if new_part:
            part = new_part
            flaw = FLAW.search(rest)
            assert flaw or "!" not in rest or rest.startswith('"'), row
            text = rest[:flaw.start()] if flaw else rest
            problem = [flaw.group(1)] if flaw else []
        message = messages[-1]
        if part in ("code", "mark", "rest"):
            if new_part:
                message.problems += problem
            continue
        if new_part:
            if part == "id":
                message.records.append(Record())
                shown = message.records[-1]
                shown.offset = int(offset, 16)
                shown.id = int(text) if text else None
                shown.type = TYPES[type_name] if type_name else None
            elif part == "type" and text:
                shown.type = int(text)
            elif part == "length" and text:
                shown.length = int(text)
            elif part == "value":
                shown.text = text
            shown.problems += problem
        if part == "value":
            shown.value += data
    return messages


def is_object(value):
    return isinstance(value, list) and bool(value) and isinstance(value[0], tuple)


def experts_in(pairs):
    """The problems at an item and below."""
    found = []
    for name, value in pairs:
        if name == "_ws.expert":
            kinds = dict(value)
            if any(kind.startswith("md.problem.") for kind in kinds):
                found.append(kinds["_ws.expert.message"])
        elif is_object(value):
            found += experts_in(value)
    return found


def items_of(pairs):
    """The items of a layer or of an item, as (name, shown, bytes, place, children)."""
    items, raw = [], None
    for name, value in pairs:
        if name.endswith("_raw"):
            raw = value
        elif name.endswith("_tree") and items and items[-1][0] == name[:-5]:
            items[-1][4].extend(value)
        elif not name.startswith("_ws."):
            data, place = (bytes.fromhex(raw[0]), raw[1]) if raw else (b"", None)
            is_tree = is_object(value)
            items.append((name, "" if is_tree else value, data, place, list(value) if is_tree else []))
            raw = None
    return items


HEADER = {"md.size", "md.encoding", "md.field_count", "md.header.mark", "md.stream.length", "md.record.bytes"}
PARTS = {"md.record.id", "md.record.type", "md.record.length"}


def read_record(item, start):
    name, shown, data, place, children = item
    found = Record()
    found.offset = None if place is None else place - start
    found.problems = experts_in(children)
    below = {child[0]: child for child in items_of(children)}
    if "md.record.id" in below:
        found.offset, found.id = below["md.record.id"][3] - start, int(below["md.record.id"][1])
    if "md.record.type" in below:
        found.type = int(below["md.record.type"][1])
    if "md.record.length" in below:
        found.length = int(below["md.record.length"][1])
    values = [child for child in below.values()
              if child[0].startswith(("md.record.value.", "md.record.bytes", "md.record.datetime"))]
    parts = {child[0].rsplit(".", 1)[1]: child for child in below.values()
             if child[0].rsplit(".", 1)[-1] in ("date", "time", "offset", "ns")}
    if name != "md.record":
        found.value, found.text = data, shown
    elif values:
        _, found.text, found.value, _, inner = values[0]
        parts = {child[0].rsplit(".", 1)[1]: child for child in items_of(inner)} or parts
        if values[0][0] == "md.record.bytes":
            found.text = ""
    if "date" in parts:
        found.text = "{} {} ({})".format(*(parts[part][1] for part in ("date", "time", "offset")))
    elif "ns" in parts:
        found.text = parts["ns"][1] + " " + found.text
    return found


def read_layer(packet):
    """The message of a packet as tshark shows it."""
    layers = packet["md"]
    start = packet["md_raw"][1]
    message = Message()
    items = items_of(layers)
    header = {item[0]: item[1] for item in items}
    message.size = int(header["md.size"])
    message.field_count = int(header["md.field_count"]) if "md.field_count" in header else None
    for item in items:
        if item[0] in HEADER:
            message.problems += experts_in(item[4])
        else:
            message.records.append(read_record(item, start))
    message.problems += [text for name, value in layers if name == "_ws.expert" for text in experts_in([(name, value)])]
    return message


MONTHS = ["Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"]


def unescaped(shown):
    """The byte that 'x' of tshark stands for."""
    body = shown[1:-1]
    if body[0] != "\\":
        return ord(body)
    simple = {"a": 7, "b": 8, "t": 9, "n": 10, "v": 11, "f": 12, "r": 13, "\\": 92, "'": 39, '"': 34}
    return simple[body[1]] if body[1] in simple else int(body[1:], 8)


def expected_text(type_code, text, data):
    """What tshark shows for a value that dump shows as `text`, which stands for the bytes `data`."""
    if type_code == TYPES["CHAR"]:
        return None  # compared as a byte
    if type_code == TYPES["FLOAT"]:
        return f"{struct.unpack('<f', struct.pack('<f', float(text)))[0]:.6g}"
    if type_code == TYPES["DOUBLE"]:
        return f"{float(text):.15g}"
    if type_code == TYPES["STRING"]:
        return text[1:-1]
    if type_code == TYPES["BUFFER"]:
        return data.hex(":")
    if type_code == TYPES["EPOCH_NSEC"]:
        ns, year, month, day, rest = re.fullmatch(r"(\d+) \((\d+)-(\d+)-(\d+)T([\d:.]+)Z\)", text).groups()
        return f"{ns} {MONTHS[int(month) - 1]} {int(day):2}, {year} {rest} UTC"
    return text


class Differential(TestCase):
    def compare(self, dumped, shown):
        """Both as lists of messages. Returns how often each problem occurred, by its name."""
        counts = dict.fromkeys(PROBLEMS, 0)
        self.assertEqual(len(dumped), len(shown))
        for number, (by_dump, by_tshark) in enumerate(zip(dumped, shown), 1):
            where = f"message {number}"
            self.assertEqual(by_dump.size, by_tshark.size, where)
            self.assertEqual(sorted(by_dump.problems), sorted(by_tshark.problems), where)
            self.assertEqual(len(by_dump.records), len(by_tshark.records), where)
            for a, b in zip(by_dump.records, by_tshark.records):
                self.compare_records(a, b, f"{where}: {a} and {b}")
            for text in by_dump.problems + [text for found in by_dump.records for text in found.problems]:
                for name, pattern in PROBLEMS.items():
                    counts[name] += pattern.fullmatch(text) is not None
        return counts

    def compare_field_counts(self, capture, shown):
        """The number of fields that tshark shows is that of the message which the library makes of the bytes."""
        decoded = self.mdmsg("decode", "--format", "json", "--dictionary", FIELD_MAP, capture, status=1)
        expected = [len(json.loads(line)) for line in decoded.splitlines()]
        counts = [message.field_count for message in shown if message.field_count is not None]
        self.assertEqual(len(expected), len(counts))
        for number, (a, b) in enumerate(zip(expected, counts)):
            self.assertEqual(a, b, f"line {number}: {decoded.splitlines()[number]}")

    def compare_records(self, a, b, where):
        self.assertEqual((a.offset, a.id, a.type, sorted(a.problems)), (b.offset, b.id, b.type, sorted(b.problems)), where)
        if a.length is not None:
            self.assertEqual(a.length, b.length, where)
        elif b.length is not None:  # IterMap has no length: it is the type's
            self.assertEqual(b.length, ITERMAP_WIDTHS[a.type], where)
        data = a.value
        if not a.text:  # nothing was read; fields that messages do not carry are shown as bytes
            self.assertEqual(data, b.value, where)
            self.assertIn(b.text, (None, "", data.hex(":")) if self.is_not_carried(a.type) else (None, ""), where)
            return
        # Bytes that are not read as part of the value are not shown as such.
        if a.type == TYPES["STRING"]:
            data = data[:-1]
        elif a.type != TYPES["BUFFER"]:
            width = WIDTHS[a.type]
            data = data[:width]
        self.assertEqual(data, b.value, where)
        if a.type == TYPES["CHAR"]:
            self.assertEqual(data[0], unescaped(b.text), where)
        elif a.type == TYPES["STRING"] and (b"\\" in data or not data.isascii() or not data.decode("ascii").isprintable()
                                            or len(data) > 200):
            return  # both mark what cannot be shown, each in its way; the bytes were compared
        elif a.type in (TYPES["FLOAT"], TYPES["DOUBLE"]) and a.text == "NaN":
            self.assertIn(b.text, ("nan", "-nan"), where)
        else:
            self.assertEqual(expected_text(a.type, a.text, data), b.text, where)

    @staticmethod
    def is_not_carried(type_code):
        return type_code is not None and type_code not in (*WIDTHS, TYPES["STRING"], TYPES["BUFFER"])

    def messages_of(self, capture):
        dumped = read_dump(self.mdmsg("dump", "--dictionary", FIELD_MAP, capture, status=1))
        packets = self.dissected(capture, environment={"MD_MESSAGE_DICTIONARY": str(FIELD_MAP)})
        return dumped, [read_layer(packet) for packet in packets]

    def test_generated_messages(self):
        """Each encoding apart, one in ten messages corrupted, 1,500 messages each."""
        for encoding in ("mInt", "IterMap", "MsgT"):
            capture = self.generate(f"{encoding}.pcap", "--count", 1500, "--damaged", 10, "--encodings", encoding)
            dumped, shown = self.messages_of(capture)
            counts = self.compare(dumped, shown)
            self.compare_field_counts(capture, shown)
            unknown = "unknown_id_and_length" if encoding == "IterMap" else "unknown_id"
            for name in ("truncated_value", unknown, "repeated_field", "unknown_encoding"):
                self.assertGreater(counts[name], 0, name)

    def test_random_messages(self):
        """6,000 messages: bytes without a form, and records that are nearly right. Every problem occurs."""
        capture = self.udp_capture("random.pcap", random_messages(6000, seed=20))
        dumped, shown = self.messages_of(capture)
        counts = self.compare(dumped, shown)
        for name, count in counts.items():
            if name != "too_long":  # no datagram holds such a value
                self.assertGreater(count, 0, name)
        self.compare_field_counts(capture, shown)
        readable = sum(bool(found.text) for message in dumped for found in message.records)
        self.assertGreater(readable, 6000)


def random_messages(count, seed):
    generator = random.Random(seed)
    return [random_message(generator) for _ in range(count)]


def random_message(generator):
    code = generator.choice((MINT, ITERMAP, MSGT))
    kind = generator.random()
    if kind < 0.1:
        return bytes([generator.randrange(256)]) + generator.randbytes(generator.randrange(60))
    if kind < 0.3:
        return bytes([code]) + generator.randbytes(generator.randrange(60))
    header = bytes([code])
    if code == MSGT:
        header += b"QR1" if generator.random() < 0.95 else generator.randbytes(3)
    message = header + b"".join(random_record(generator, code) for _ in range(generator.randrange(8)))
    if generator.random() < 0.3:
        message = message[:generator.randrange(1, len(message) + 1)]
    if generator.random() < 0.1:
        message += generator.randbytes(1)
    return message


def random_value(generator, type_code):
    if type_code in (TYPES["STRING"], TYPES["BUFFER"]):
        kind = generator.random()
        if kind < 0.1:
            return b""
        if kind < 0.7:
            text = bytes(generator.choices(b"ABCDEFGHIJ/ 0123456789.", k=generator.randrange(12)))
        elif kind < 0.8:
            text = generator.choice(("ed959ceab880", "c3a9", "c280e280ae", "efbfbf", "f09f9880")).encode("ascii")
            text = bytes.fromhex(text.decode("ascii"))
        else:
            text = generator.randbytes(generator.randrange(20))
        return text + (b"\0" if generator.random() < 0.9 else b"")
    width = WIDTHS.get(type_code) or ITERMAP_WIDTHS[type_code if type_code < 24 else 0]
    if type_code == TYPES["DOUBLE"] and generator.random() < 0.5:
        return struct.pack("<d", generator.choice((0.0, -0.0, 1e5, 1e-7, 123456789.125, 184.15, -2.5, 5e-324, 1.7e308,
                                                   float("inf"), float("-inf"), float("nan"), 2.0**70, 1e22)))
    if type_code == TYPES["FLOAT"] and generator.random() < 0.5:
        return struct.pack("<f", generator.choice((0.25, 1e-45, 3e38, -1.5, float("inf"), float("nan"), 16777216.0)))
    if type_code == TYPES["DATETIME"] and generator.random() < 0.5:
        return bytes.fromhex("40118b358c8fdaff")
    if type_code == TYPES["EPOCH_NSEC"] and generator.random() < 0.5:
        return generator.choice((b"\xff" * 8, b"\0" * 8, bytes.fromhex("4bac23449174d517")))
    return generator.randbytes(width)


def random_record(generator, code):
    if generator.random() < 0.9:
        field = generator.choice(list(FIELDS))
        type_code = FIELDS[field][1]
    else:
        field = generator.randrange(65536)
        type_code = FIELDS[field][1] if field in FIELDS else generator.choice(list(TYPE_NAMES))
    value = random_value(generator, type_code)
    if code == MSGT and type_code in (2, 4, 5, 19):
        value = value[::-1]
    if generator.random() < 0.1:
        value = value[:generator.randrange(len(value) + 1)]
    if generator.random() < 0.05:
        value += generator.randbytes(generator.randrange(1, 5))
    length = len(value)
    if generator.random() < 0.02:
        length = generator.randrange(256)
    if code == MINT:
        if type_code == TYPES["INT"] and generator.random() < 0.5:
            value = value[:generator.choice((1, 2))]
            length = len(value)
        return struct.pack("<HB", field, length) + value
    if code == MSGT:
        wire_type = type_code if generator.random() < 0.85 else generator.choice((*TYPE_NAMES, 15, 21, 99))
        if generator.random() < 0.03:
            length = generator.randrange(1 << 32)
        return struct.pack(">HBBI", field, 0 if generator.random() < 0.95 else 1, wire_type, length) + value
    if field not in FIELDS:
        return struct.pack("<H", field)
    if type_code == TYPES["STRING"]:
        return struct.pack("<HH", field, length) + value
    if type_code == TYPES["BUFFER"]:
        return struct.pack("<HI", field, length) + value
    return struct.pack("<H", field) + value


if __name__ == "__main__":
    main()
