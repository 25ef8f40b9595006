"""The dissector finds and reads dictionaries as the library does, and gives every field a filter of its own."""
import os
import re
import struct

from support import DISSECTOR, FIELD_MAP, LUA, SOURCE, TestCase, main

TYPES = {"CHAR": "char", "INT": "int32", "FLOAT": "float", "DOUBLE": "double", "STRING": "string", "BUFFER": "bytes",
         "INT64": "int64", "DATETIME": "absolute_time", "EPOCH_NSEC": "absolute_time"}
RESERVED = {"md.encoding", "md.size", "md.field_count", "md.record"}


def filters_of(rows):
    """The documented rule: what is not a letter, a digit or "_" becomes "_", and the id is appended to names in use."""
    plain = {number: "md." + re.sub(rb"[^a-z0-9_]", b"_", name.encode("utf-8").lower())[:200].decode("ascii")
             for number, name, _ in rows}
    used = list(plain.values()) + list(RESERVED)
    return {number: text if used.count(text) == 1 else f"{text}.{number}" for number, text in plain.items()}


class Dictionary(TestCase):
    def registered(self, environment=None, status=0):
        """The dictionary that the dissector loads, as (id, label), and the filters with their types."""
        output, errors = self.run_program([LUA, SOURCE / "wireshark" / "tests" / "fake_wireshark.lua", DISSECTOR, "fields"],
                                          status, environment)
        if status:
            return errors
        rows = [line.split("\t") for line in output.splitlines()]
        names = [(int(row[1]), row[2]) for row in rows if row[0] == "id"]
        return names, {row[0]: row[1] for row in rows if row[0] != "id"}

    def shown(self, *arguments, environment=None):
        """The dictionary that mdmsg works with, as (id, name, type)."""
        output = self.mdmsg("dict", "show", *arguments, environment=environment)
        rows = [line.rsplit(None, 2) for line in output.splitlines()]
        return sorted((int(number), name, kind) for name, number, kind in rows)

    def check(self, contents, name="fields"):
        path = self.folder / name
        path.write_bytes(contents if isinstance(contents, bytes) else contents.encode("utf-8"))
        expected = self.shown("--dictionary", path)
        names, types = self.registered({"MD_MESSAGE_DICTIONARY": str(path)})
        self.assertEqual(names, [(number, name[:200]) for number, name, _ in expected])
        filters = filters_of(expected)
        for number, _, kind in expected:
            self.assertEqual(types[filters[number]], TYPES.get(kind, "bytes"), kind)
        self.assertEqual(len(set(filters.values())), len(expected))

    TEXTS = {
        "entries": "BID 22 DOUBLE\nASK 23 DOUBLE\nSIDE 42 CHAR\n",
        "no line end": "BID 22 DOUBLE\nASK 23 INT",
        "blanks of all kinds": "A\t1\vINT\fB\r\n2\n\nCHAR C 3 INT",
        "every type": "".join(f"F{i} {i + 1} {kind}\n" for i, kind in enumerate(
            "RAW CHAR INT SHORT FLOAT DOUBLE STRING VECTOR MSG_T DATE TIME FRACTION CHILD_MSG FOLDED_INT BUFFER "
            "OPTI_PRICE UINT LONG_INT ULONG_INT INT64 DATETIME EPOCH_NSEC".split())),
        "unknown types": "A 1 INT\nB 2 NOSUCHTYPE\nC 3 double\nD 4 DOUBLE\n",
        "an id that is no number": "A 1 INT\nB x INT\nC 3 INT\n",
        "an id too large": "A 1 INT\nB 65536 INT\nC 3 INT\n",
        "an id far too large": "A 1 INT\nB 99999999999999999999999 INT\nC 3 INT\n",
        "largest and smallest id": "A 65535 INT\nB 0 INT\n",
        "ids in other forms": "A +5 INT\nB 007 CHAR\nC -9 INT\nD 12abc INT E 13 INT\n",
        "a minus alone": "A 1 INT\nB - INT\n",
        "a repeated id": "A 10 INT\nB 10 CHAR\nC 11 INT\n",
        "a repeated name": "A 5 INT\nA 9 CHAR\n",
        "an incomplete entry": "A 1 INT\nB 2",
        "names that are mapped alike": "A-B 1 INT\na.b 2 CHAR\nA_B 3 DOUBLE\nA_B.3 4 INT\n",
        "names of the protocol's own filters": "ENCODING 1 INT\nSIZE 2 INT\nRECORD 3 DATETIME\nFIELD_COUNT 4 CHAR\nID 5 INT\n",
        "names that begin with a digit": "52W_HIGH 1 DOUBLE\n2 3 INT\n",
        "names of parts": "T 1 DATETIME\nT.DATE 2 INT\nT_NS 3 INT\nT 4 EPOCH_NSEC\n",
        "names beyond ASCII": "\uac00\uaca9 1 DOUBLE\n\u4ef7\u683c 2 DOUBLE\nBID\u20ac 3 INT\n",
        "long names": "A" * 150 + " 1 INT\n" + "B" * 250 + "C 2 INT\n" + "B" * 250 + "D 3 INT\n",
    }

    def test_text(self):
        for name, text in self.TEXTS.items():
            with self.subTest(name):
                self.check(text)

    @staticmethod
    def xml(entries, root="Any"):
        return f"<{root}><FieldDefinition>{entries}</FieldDefinition></{root}>"

    @staticmethod
    def entry(name, code, kind):
        return f"<Entry><Name>{name}</Name><Code>{code}</Code><Type>{kind}</Type></Entry>"

    def xml_cases(self):
        xml, entry = self.xml, self.entry
        a = entry("A", 1, "INT")
        return {
            "entries": xml(a + entry("B", 2, "DOUBLE")),
            "a declaration and comments": '<?xml version="1.0"?>\n<!-- x --><!DOCTYPE A>\n' + xml(a + "<!-- <Entry> -->") + "\n",
            "a byte order mark": "\ufeff" + xml(a),
            "other elements": xml("<Field/>" + a + "<Note>text &amp; more</Note>" + entry("C", 3, "CHAR")),
            "attributes": '<Any x="1" y=\'>\'><FieldDefinition z = "/>" >' + '<Entry Name="X"><Name id="3">A</Name>'
                          "<Code>1</Code><Type>INT</Type></Entry></FieldDefinition ></Any >",
            "children in any order": xml("<Entry><Type>INT</Type><Other>x</Other><Code>1</Code><Name>A</Name></Entry>"),
            "repeated children": xml("<Entry><Name>A</Name><Name>B</Name><Code>1</Code><Code>2</Code><Type>INT</Type></Entry>"),
            "missing and empty children": xml("<Entry><Code>1</Code><Type>INT</Type></Entry>" + entry("", 4, "INT") +
                                              "<Entry><Name/><Code>5</Code><Type>INT</Type></Entry>" + entry("B", 2, "INT")),
            "codes in other forms": xml(entry("A", "12abc", "INT") + entry("B", "70000", "INT") + entry("C", "\n 7", "INT") +
                                        entry("D", "-1", "INT") + entry("E", "0x10", "INT") + entry("F", "010", "CHAR") +
                                        entry("G", "99999999999999999999", "INT") + entry("H", "-99999999999999999999", "INT")),
            "unknown types": xml(a + entry("B", 2, "double") + entry("C", 3, "CHAR")),
            "entities and blanks": xml(entry("A &amp; B", 1, "INT") + entry("  C \n\t D ", 2, "INT") +
                                       entry("&lt;E&gt;&#65;&#x42;&unknown;&amp;lt; & F &G", 3, "INT")),
            "characters by number": '<?xml version="1.0"?>' + xml(entry("&#x20ac;&#8364;&#x10348;", 1, "INT")),
            "characters by number, with an encoding": "<?xml version='1.0' encoding = 'utf-8' ?>" +
                                                      xml(entry("&#x20ac;", 1, "INT")),
            "character data": xml("<Entry><Name><![CDATA[A<B]]></Name><Code>1</Code><Type>INT</Type></Entry>" +
                                  "<Entry><Name><!-- c -->X</Name><Code>2</Code><Type>INT</Type></Entry>" +
                                  "<Entry><Name>B<!-- c -->X</Name><Code>3</Code><Type>INT</Type></Entry>"),
            "the first definition alone": "<Any><FieldDefinition>" + a + "</FieldDefinition><FieldDefinition>" +
                                          entry("B", 2, "INT") + "</FieldDefinition></Any>",
            "a root of that name": "<FieldDefinition><FieldDefinition>" + a + "</FieldDefinition></FieldDefinition>",
            "text behind the root": xml(a) + " text < & more",
            "carriage returns": xml(entry("A\r\nB", 1, "INT")).replace("><", ">\r<"),
        }

    def test_xml(self):
        for name, text in self.xml_cases().items():
            with self.subTest(name):
                self.check(text)

    def test_files_that_cannot_be_loaded(self):
        a = self.entry("A", 1, "INT")
        cases = {
            "cut": "<Any><FieldDefinition>" + a,
            "unclosed": "<Any><FieldDefinition>" + a + "</Any>",
            "wrong end": "<Any></Anyx>",
            "an attribute twice": "<Any a='1' a='2'></Any>",
            "an attribute without a value": "<Any a></Any>",
            "a malformed character number": self.xml(self.entry("&#xzz;", 1, "INT")),
            "too deep": "<A>" * 101 + "</A>" * 101,
            "too many attributes": "<A " + " ".join(f"a{i}='1'" for i in range(101)) + "/>",
            "no field": "A 1 NOSUCHTYPE\n",
            "too many entries": "F 1 INT\n" * 65536,
        }
        for name, text in cases.items():
            with self.subTest(name):
                path = self.folder / "fields"
                path.write_text(text)
                self.mdmsg("dict", "show", "--dictionary", path, status=2)
                self.assertIn(str(path), self.registered({"MD_MESSAGE_DICTIONARY": str(path)}, status=1))
        missing = str(self.folder / "missing")
        self.assertIn(f"Unable to open file: {missing}", self.registered({"MD_MESSAGE_DICTIONARY": missing}, status=1))

    def test_search_path(self):
        """Text before XML, folders in their order, the default path where the variable is not set: as mdmsg finds it."""
        def write(path, text):
            path = self.folder / path
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)
        write("a/message/field_map.txt", "IN_A_MESSAGE 1 INT\n")
        write("b/field_map.txt", "IN_B 1 INT\n")
        write("c/FieldDefinition.xml", self.xml(self.entry("IN_C", 1, "INT")))
        write("d/field_map.txt", "\n")
        write("folder/field_map.txt/x", "")
        paths = {"a": "IN_A_MESSAGE", "c": "IN_C", "c:a": "IN_A_MESSAGE", "a:b": "IN_B", "nothing:c": "IN_C", "": "SYMBOL",
                 "a;b": "SYMBOL", "d": "SYMBOL", "d:b": "SYMBOL"}
        for path, first in paths.items():
            with self.subTest(path):
                environment = {"CONFIG_PATH": path}
                names, _ = self.registered(environment)
                self.assertEqual(names[0], (1, first))
                self.assertEqual(names, [row[:2] for row in self.shown(environment=environment)])
        self.mdmsg("dict", "show", environment={"CONFIG_PATH": "folder"}, status=2)
        self.assertIn("Unable to open file: folder/field_map.txt", self.registered({"CONFIG_PATH": "folder"}, status=1))
        # The named file comes first, and an empty name is none.
        named = {"CONFIG_PATH": "b", "MD_MESSAGE_DICTIONARY": str(self.folder / "c" / "FieldDefinition.xml")}
        self.assertEqual(self.registered(named)[0], [(1, "IN_C")])
        self.assertEqual(self.registered({"CONFIG_PATH": "b", "MD_MESSAGE_DICTIONARY": ""})[0], [(1, "IN_B")])

    def test_default_search_path(self):
        del self.environment["CONFIG_PATH"]
        self.assertEqual(self.registered()[0][0], (1, "SYMBOL"))
        for folder in ("cfg", "Config", ".", "etc"):
            with self.subTest(folder):
                (self.folder / folder).mkdir(exist_ok=True)
                (self.folder / folder / "field_map.txt").write_text(f"{folder} 1 INT\n")
                self.assertEqual(self.registered()[0], [(1, folder)])
                self.assertEqual(self.shown(), [(1, folder, "INT")])

    def test_the_built_in_dictionary_is_the_sample(self):
        source = DISSECTOR.read_text()
        built_in = source.split("local BUILT_IN_DICTIONARY = [[\n", 1)[1].split("]]", 1)[0]
        self.assertEqual(built_in, FIELD_MAP.read_text())

    def test_the_default_search_path_is_the_library_s(self):
        library = (SOURCE / "src" / "md_file_search.cpp").read_text()
        default = re.search(r'"CONFIG_PATH", "([^"]+)"', library).group(1)
        self.assertIn(f'local DEFAULT_SEARCH_PATH = "{default}"', DISSECTOR.read_text())

    def test_tshark(self):
        """The same in tshark: types, filters of odd names, the search for the dictionary, a file that cannot be loaded."""
        fields = self.folder / "fields.txt"
        fields.write_text("52W_HIGH 1 DOUBLE\nA-B 2 INT\nA.B 3 INT\nSIZE 4 INT\nT 5 EPOCH_NSEC\nPART 6 VECTOR\nD 7 DATETIME\n"
                          "OR 8 CHAR\n")
        message = b"\x06" + b"".join((struct.pack("<HBd", 1, 8, 1.5), struct.pack("<HBi", 2, 4, -2),
                                      struct.pack("<HBi", 3, 4, 3), struct.pack("<HBi", 4, 4, 4),
                                      struct.pack("<HBQ", 5, 8, 1717407000173980747), struct.pack("<HB2s", 6, 2, b"\xab\xcd"),
                                      struct.pack("<HB", 7, 8) + bytes.fromhex("40118b358c8fdaff"),
                                      struct.pack("<HBB", 8, 1, 0x42)))
        capture = self.udp_capture("odd.pcap", [message])
        environment = {"CONFIG_PATH": str(self.folder), "MD_MESSAGE_DICTIONARY": str(fields)}
        names = ["md.52w_high", "md.a_b.2", "md.a_b.3", "md.size.4", "md.t", "md.t.ns", "md.part", "md.d", "md.d.date", "md.d.time",
                 "md.d.offset", "md.or", "md.size"]
        condition = ("md.52w_high > 1 and md.a_b.2 == -2 and md.a_b.3 == 3 and md.size.4 == 4 and md.t == "
                     "\"2024-06-03 09:30:00.173980747\" and md.part == ab:cd and md.or == 'B' and md.d.offset < 0 and "
                     "md.d == \"2024-06-03 14:30:00\" and md.record.id == \"A-B\" and md.record.type == \"VECTOR\"")
        rows = self.fields(capture, *names, arguments=("-Y", condition), environment=environment)
        self.assertEqual(rows, [["1.5", "-2", "3", "4", "Jun  3, 2024 09:30:00.173980747 UTC", "1717407000173980747", "abcd",
                                 "Jun  3, 2024 14:30:00.000000000 UTC", "20240603", "93000000", "-300", "'B'",
                                 str(len(message))]])
        (self.folder / "field_map.txt").write_text("ONLY 1 DOUBLE\n")
        rows = self.fields(capture, "md.only", "md.field_count", environment={"CONFIG_PATH": str(self.folder)})
        self.assertEqual(rows, [["1.5", "1"]])
        _, errors = self.run_program([os.environ["TSHARK"], "-X", f"lua_script:{DISSECTOR}", "-r", capture],
                                     environment={"MD_MESSAGE_DICTIONARY": "missing.txt"})
        self.assertIn("Unable to open file: missing.txt (MD_MESSAGE_DICTIONARY)", errors)


if __name__ == "__main__":
    main()
