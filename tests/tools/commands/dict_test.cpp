// Dictionary files: read with locations, checked, converted, compared and shown.
#include <algorithm>

#include <gtest/gtest.h>

#include "dictionary/dictionary.h"
#include "tools/dictionary_support.h"
#include "tools/run_support.h"
#include "tools/tool_support.h"

namespace {

using namespace MD::tool;
using MD::test::contentsOf;
using MD::test::loadedRows;
using MD::test::Result;
using MD::test::xmlDefinitions;
using MD::test::xmlEntry;

class Dict : public MD::test::ToolRun {};

TEST_F(Dict, CheckTellsEveryFindingInText) {
  write("bad.txt",
        "QTY 300 INT\n"
        "ODD 301 NOSUCH\n"
        "low 302 double\n"
        "AGAIN 300 INT\n"
        "\n"
        "BID 22\n"
        "DOUBLE BID 23 DOUBLE\n"
        "LAST 65535 INT\n"
        "77 40 INT\n"
        "NEG -1 INT\n"
        "GLUED 50INT\n"
        "HIGH 65536 INT\n"
        "LOST 5 INT\n"
        "X 5 INT\n"
        "Y z INT\n"
        "\x80 41 INT\n"
        "TAIL 9\n");
  EXPECT_EQ(
      mdmsg("dict check bad.txt"),
      (Result{"bad.txt:2:1: field ODD: \"NOSUCH\" is not a type; the library skips the entry\n"
              "bad.txt:3:1: field low: \"double\" is not a type, DOUBLE is one; the library skips the entry\n"
              "bad.txt:4:1: field AGAIN: id 300 is that of QTY (line 1); the library keeps that one and skips this "
              "one\n"
              "bad.txt:6:1: note: field BID: the entry continues on line 7\n"
              "bad.txt:7:8: field BID: the name of id 23 is that of id 22 too (line 6); the name resolves to id 23\n"
              "bad.txt:8:1: note: field LAST: id 65535 ends every listing of a message's fields\n"
              "bad.txt:9:1: note: field 77: a name of digits alone is taken for an id\n"
              "bad.txt:10:1: note: field NEG: id 65535 ends every listing of a message's fields\n"
              "bad.txt:10:1: field NEG: id 65535 is that of LAST (line 8); the library keeps that one and skips "
              "this one\n"
              "bad.txt:10:5: field NEG: \"-1\" is not an id from 0 to 65535; the library reads it as 65535\n"
              "bad.txt:11:7: field GLUED: \"50INT\" is not an id from 0 to 65535; the library reads it as 50\n"
              "bad.txt:12:6: field HIGH: \"65536\" is not an id from 0 to 65535; the library stops reading here, 3 "
              "entries too early\n"
              "bad.txt:14:1: field X: id 5 is that of LOST (line 13)\n"
              "bad.txt:15:3: field Y: \"z\" is not an id from 0 to 65535\n"
              "bad.txt:16:1: note: field \\x80: the name is not plain text\n"
              "bad.txt:17:1: field TAIL: the file ends before its type\n"
              "bad.txt: text, 6 fields, 11 problems, 5 notes\n",
              "", 1}));
}

TEST_F(Dict, CheckTellsEveryFindingInXml) {
  write("bad.xml",
        "<?xml version=\"1.0\"?>\n"
        "<D>\n"
        " <FieldDefinition>\n"
        "  <Entry><Name>A b</Name><Code>70000</Code><Type>INT</Type></Entry>\n"
        "  <Entry><Name>B</Name><Code>12abc</Code><Type>double</Type></Entry>\n"
        "\t<Entry><Name>C</Name><Type>INT</Type></Entry>\n"
        "<Field/>\n"
        " <Entry><Name>C</Name><Code/><Type>INT</Type></Entry>\n"
        "<Entry><Name>D</Name><Name>E</Name><Code>4464</Code><Type>INT</Type></Entry>\n"
        "<Entry><Name>A b</Name><Code>7</Code><Type>INT</Type></Entry> </FieldDefinition>\n"
        " <FieldDefinition/>\n"
        "</D>\n");
  EXPECT_EQ(
      mdmsg("dict check bad.xml"),
      (Result{
          "bad.xml:4:32: field A b: \"70000\" is not an id from 0 to 65535; the library reads it as 4464\n"
          "bad.xml:5:3: field B: \"double\" is not a type, DOUBLE is one; the library skips the entry\n"
          "bad.xml:5:30: field B: \"12abc\" is not an id from 0 to 65535; the library reads it as 12\n"
          "bad.xml:6:2: an Entry without a Code; the library skips it\n"
          "bad.xml:7:1: the library does not read \"<Field>\" here, only <Entry>\n"
          "bad.xml:8:23: an Entry with an empty Code; the library skips it\n"
          "bad.xml:9:1: field D: id 4464 is that of A b (line 4); the library keeps that one and skips this "
          "one\n"
          "bad.xml:9:22: a second Name in one Entry; the library reads the first\n"
          "bad.xml:10:1: field A b: the name of id 7 is that of id 4464 too (line 4); the name resolves to id 4464\n"
          "bad.xml:11:2: a second <FieldDefinition>; the library reads the first\n"
          "bad.xml: XML, 2 fields, 10 problems, 0 notes\n",
          "", 1}));
}

TEST_F(Dict, CheckTellsWhyTheLibraryRefusesAFile) {
  std::string deep;
  for (int i = 0; i != 200; ++i) {
    deep += "<a>";
  }
  std::string many;
  for (int i = 0; i != 65536; ++i) {
    many += 'F' + std::to_string(i) + ' ' + std::to_string(i) + " INT\n";
  }
  const struct {
    const char* name;
    std::string text;
    const char* last;  // lines
  } cases[] = {
      {"Unclosed", "<D>\n <FieldDefinition>\n <Entry></Nope>\n",
       "f:3:9: Error reading end tag. The library refuses the file\n"
       "f: XML, 0 fields, 1 problem, 0 notes\n"},
      {"Deep", deep,
       "f:1:1: Failed to load field def file: f: elements nested deeper than 100\n"
       "f: XML, 0 fields, 1 problem, 0 notes\n"},
      {"NoFieldDefinition", "\n<FieldDefinition/>\n",
       "f:2:1: the outermost element contains no <FieldDefinition>; the library reads no entry\n"
       "f: XML, 0 fields, 1 problem, 0 notes\n"},
      {"Empty", "",
       "f:1:1: the library reads no entry\n"
       "f: text, 0 fields, 1 problem, 0 notes\n"},
      {"NoId", "Prose\n",
       "f:1:1: field Prose: the file ends before its id; the library skips it\n"
       "f: text, 0 fields, 1 problem, 0 notes\n"},
      {"ByteOrderMark",
       "\xef\xbb\xbf"
       "A 1 INT",
       "f:1:1: a byte-order mark; the library reads it as part of the first name\n"
       "f: text, 1 field, 1 problem, 0 notes\n"},
      {"TooMany", many,
       "f:65536:1: more than 65535 entries; the library refuses the file\n"
       "f:65536:1: note: field F65535: id 65535 ends every listing of a message's fields\n"
       "f: text, 0 fields, 1 problem, 1 note\n"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    write("f", row.text);
    const Result result = mdmsg("dict check f");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "");
    const std::string last = row.last;
    ASSERT_GE(result.out.size(), last.size());
    EXPECT_EQ(result.out.substr(result.out.size() - last.size()), last);
  }
}

TEST_F(Dict, CheckGoesOnBehindAFileThatCannotBeRead) {
  write("good.txt", "QTY 300 INT PRICE 1 OPTI_PRICE\n");
  write("folder/x", "");
  EXPECT_EQ(mdmsg("dict check good.txt"), (Result{"good.txt: text, 2 fields, 0 problems, 0 notes\n", "", 0}));
  EXPECT_EQ(mdmsg("dict check missing.txt folder good.txt"),
            (Result{"good.txt: text, 2 fields, 0 problems, 0 notes\n",
                    "mdmsg: cannot open dictionary missing.txt: No such file or directory\n"
                    "mdmsg: cannot read dictionary folder: it is a directory\n",
                    2}));
}

TEST_F(Dict, ConvertWritesColumnsAndElements) {
  write("f.txt", "QTY 300 INT\nA&<B> 1 OPTI_PRICE LONG_NAME_THAT_NEEDS_ROOM 65535 EPOCH_NSEC\n");
  const Result xml = mdmsg("dict convert f.txt");
  EXPECT_EQ(xml, (Result{"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                         "<Dictionary>\n"
                         "  <FieldDefinition>\n"
                         "    <Entry><Name>QTY</Name><Code>300</Code><Type>INT</Type></Entry>\n"
                         "    <Entry><Name>A&amp;&lt;B&gt;</Name><Code>1</Code><Type>OPTI_PRICE</Type></Entry>\n"
                         "    <Entry><Name>LONG_NAME_THAT_NEEDS_ROOM</Name><Code>65535</Code>"
                         "<Type>EPOCH_NSEC</Type></Entry>\n"
                         "  </FieldDefinition>\n"
                         "</Dictionary>\n",
                         "", 0}));
  write("f.xml", xml.out);
  EXPECT_EQ(mdmsg("dict convert f.xml"), (Result{"QTY                     300  INT\n"
                                                 "A&<B>                     1  OPTI_PRICE\n"
                                                 "LONG_NAME_THAT_NEEDS_ROOM 65535  EPOCH_NSEC\n",
                                                 "", 0}));
  EXPECT_EQ(mdmsg("dict convert --format xml f.xml").out, xml.out);
}

TEST_F(Dict, ConvertKeepsWhatTheLibraryMakesOfAFile) {
  write("f.txt",
        "QTY 300 INT\nQTY2 300 DOUBLE\nODD 5 NOSUCH\nA&#x42; 6 CHAR\n\xe2\x82\xac 7 STRING\n\"'> 8 TIME\nQTY 9 RAW\n");
  MD::test::loadDictionary(contentsOf("f.txt"));
  const auto expected = loadedRows();
  ASSERT_EQ(expected.size(), 5U);
  const Result xml = mdmsg("dict convert f.txt");
  EXPECT_EQ(xml.status, 0);
  write("f.xml", xml.out);
  MD::MD_FieldMap::reload_xml("f.xml");
  EXPECT_EQ(loadedRows(), expected);
  const Result text = mdmsg("dict convert f.xml");
  EXPECT_EQ(text.status, 0);
  MD::test::loadDictionary(text.out);
  EXPECT_EQ(loadedRows(), expected);
  write("again.txt", text.out);
  EXPECT_EQ(mdmsg("dict convert again.txt").out, xml.out);
}

TEST_F(Dict, ConvertTellsWhatIsNotCarried) {
  write("f.xml", "<!-- old --><D><FieldDefinition>\n" + xmlEntry("TWO WORDS", "1", "INT") + "<!-- note -->" +
                     xmlEntry("Q", "70000", "INT") + "</FieldDefinition></D>");
  EXPECT_EQ(mdmsg("dict convert f.xml"),
            (Result{"Q                      4464  INT\n",
                    "mdmsg: f.xml:3:41: note: field Q: \"70000\" is not an id from 0 to 65535; the library reads it as "
                    "4464\n"
                    "mdmsg: f.xml: note: 2 comments skipped\n"
                    "mdmsg: f.xml:2:1: field TWO WORDS: text cannot carry a name with a space; skipped\n",
                    1}));
  write("f.txt",
        "\x80 1 INT\nB\x01 2 INT\n\xef\xbb\xbf"
        "C 3 INT\nD 4 INT\nE x INT\nF 6 INT\n");
  EXPECT_EQ(
      mdmsg("dict convert f.txt"),
      (Result{std::string(kXmlStart) + "    <Entry><Name>D</Name><Code>4</Code><Type>INT</Type></Entry>\n" + kXmlEnd,
              "mdmsg: f.txt:5:3: note: field E: \"x\" is not an id from 0 to 65535; the library stops reading "
              "here, 1 entry too early\n"
              "mdmsg: f.txt:1:1: field \\x80: XML cannot carry a name that is not UTF-8; skipped\n"
              "mdmsg: f.txt:2:1: field B\\x01: XML cannot carry a name with a control character; skipped\n"
              "mdmsg: f.txt:3:1: field \xef\xbb\xbf"
              "C: XML cannot carry a name with a byte-order mark; skipped\n"
              "mdmsg: f.txt:6:1: field F: the library does not read it; skipped\n"
              "mdmsg: f.txt: 1 malformed entry skipped\n",
              1}));
  write("end.txt", "D 4 INT\nE 5");
  EXPECT_EQ(
      mdmsg("dict convert end.txt"),
      (Result{std::string(kXmlStart) + "    <Entry><Name>D</Name><Code>4</Code><Type>INT</Type></Entry>\n" + kXmlEnd,
              "mdmsg: end.txt:2:1: note: field E: the file ends before its type; the library skips it\n"
              "mdmsg: end.txt: 1 malformed entry skipped\n",
              1}));
  write("broken.xml", "<D>");
  EXPECT_EQ(mdmsg("dict convert broken.xml"),
            (Result{"", "mdmsg: cannot load the dictionary: Failed to load field def file: broken.xml\n", 2}));
  EXPECT_EQ(mdmsg("dict convert missing.txt"),
            (Result{"", "mdmsg: cannot open dictionary missing.txt: No such file or directory\n", 2}));
}

TEST_F(Dict, DiffTellsEachKindOfDifference) {
  write("old.txt", "A 1 INT B 2 INT C 3 INT D 4 INT E 5 INT F 6 INT SAME 9 DOUBLE");
  write("new.txt", "A 1 DOUBLE BB 2 INT CC 3 CHAR E 50 INT F 60 INT64 NEW 70 STRING SAME 9 DOUBLE");
  EXPECT_EQ(mdmsg("dict diff old.txt new.txt"), (Result{"retyped        1  A INT -> DOUBLE\n"
                                                        "renamed        2  B -> BB\n"
                                                        "renamed        3  C -> CC\n"
                                                        "retyped        3  CC INT -> CHAR\n"
                                                        "removed        4  D INT\n"
                                                        "renumbered     5  E -> 50\n"
                                                        "renumbered     6  F -> 60\n"
                                                        "retyped       60  F INT -> INT64\n"
                                                        "added         70  NEW STRING\n",
                                                        "", 1}));
  EXPECT_EQ(mdmsg("dict diff new.txt new.txt"), (Result{"", "", 0}));
}

TEST_F(Dict, DiffComparesWhatTheLibraryMakesOfTheFiles) {
  write("old.txt", "PX 1 OPTI_PRICE\nB 2 INT\n");
  write("new.xml", xmlDefinitions(xmlEntry("B", "2", "INT") + xmlEntry("PX", "1", "INT")));
  EXPECT_EQ(mdmsg("dict diff old.txt new.xml"), (Result{"", "", 0}));
  // A name that is there twice belongs to no one id.
  write("new.txt", "PX 1 INT\nB 7 INT\nB 8 INT\n");
  EXPECT_EQ(mdmsg("dict diff old.txt new.txt"), (Result{"removed        2  B INT\n"
                                                        "added          7  B INT\n"
                                                        "added          8  B INT\n",
                                                        "mdmsg: new.txt:3:1: note: field B: the name of id 8 is that "
                                                        "of id 7 too (line 2); the name resolves to id 8\n",
                                                        1}));
  EXPECT_EQ(mdmsg("dict diff old.txt missing.txt"),
            (Result{"", "mdmsg: cannot open dictionary missing.txt: No such file or directory\n", 2}));
}

TEST_F(Dict, ShowDescribesFields) {
  write("field_map.txt", MD::test::kDictionary);
  EXPECT_EQ(mdmsg("dict show BID 300 RAWLY"), (Result{"name   BID\n"
                                                      "id     22, on the wire 1600 in mInt and IterMap, 0016 in MsgT\n"
                                                      "type   DOUBLE, code 5\n"
                                                      "value  8 bytes\n"
                                                      "\n"
                                                      "name   QTY\n"
                                                      "id     300, on the wire 2c01 in mInt and IterMap, 012c in MsgT\n"
                                                      "type   INT, code 2\n"
                                                      "value  4 bytes; in mInt 1 from 0 to 127 and 2 to 32767\n"
                                                      "\n"
                                                      "name   RAWLY\n"
                                                      "id     201, on the wire c900 in mInt and IterMap, 00c9 in MsgT\n"
                                                      "type   RAW, code 0\n"
                                                      "value  not carried by messages\n",
                                                      "", 0}));
  EXPECT_EQ(mdmsg("dict show --dictionary field_map.txt NOPE 999 65558 CH").err,
            "mdmsg: field NOPE: not in the dictionary field_map.txt\n"
            "mdmsg: field 999: not in the dictionary field_map.txt\n"
            "mdmsg: field 65558: not in the dictionary field_map.txt\n");
  EXPECT_EQ(mdmsg("dict show NOPE").status, 1);
  const struct {
    const char* field;
    const char* value;
  } values[] = {{"CH", "1 byte"},
                {"VOLA", "4 bytes"},
                {"SYMBOL", "up to 65535 bytes, in mInt 254"},
                {"BLOB", "up to 65535 bytes, in mInt 255"},
                {"WHEN", "8 bytes"},
                {"RECV", "8 bytes"}};
  for (const auto& [field, value] : values) {
    const std::string out = mdmsg(std::string("dict show ") + field).out;
    EXPECT_NE(out.find(std::string("value  ") + value + '\n'), out.npos) << out;
  }
}

TEST_F(Dict, ShowListsFieldsThatSuitASearch) {
  write("fields.txt", MD::test::kDictionary);
  const auto show = [](const std::string& arguments) {
    return mdmsg("dict show --dictionary fields.txt " + arguments);
  };
  EXPECT_EQ(show("--search qty"), (Result{"QTY                     300  INT\n"
                                          "QTY2                    301  INT\n",
                                          "", 0}));
  EXPECT_EQ(show("--type DATETIME --search 2").out, "WHEN2                    81  DATETIME\n");
  const std::string all = show("").out;
  write("again.txt", all);
  EXPECT_EQ(mdmsg("dict diff fields.txt again.txt"), (Result{"", "", 0}));
  EXPECT_EQ(show("--search nope"), (Result{"", "mdmsg: dictionary: no field matches\n", 1}));
  EXPECT_EQ(show("--type REAL"), (Result{"", "mdmsg: unknown type \"REAL\"\n", 2}));
}

TEST_F(Dict, ShowPrintsTheFingerprint) {
  write("fields.txt", "BID 22 DOUBLE\n");
  EXPECT_EQ(mdmsg("dict show --fingerprint --dictionary fields.txt"), (Result{"0x971b738f62ef1d94\n", "", 0}));
  write("empty.txt", "");
  EXPECT_EQ(mdmsg("dict show --fingerprint --dictionary empty.txt"),
            (Result{"", "mdmsg: dictionary empty.txt contains no fields\n", 2}));
  // Whatever the order and the format.
  write("a.txt", "BID 22 DOUBLE  TICK 8 OPTI_PRICE\n");
  write("b.xml", xmlDefinitions(xmlEntry("TICK", "8", "INT") + xmlEntry("BID", "22", "DOUBLE")));
  EXPECT_EQ(mdmsg("dict show --fingerprint --dictionary a.txt").out,
            mdmsg("dict show --fingerprint --dictionary b.xml").out);
}

TEST_F(Dict, DeriveTakesTheFirstTypeThatSuitsAllCellsOfAColumn) {
  const struct {
    const char* name;
    const char* cells;  // with spaces between; "_" is an empty one
    const char* type;
  } cases[] = {
      {"Int", "0 -5 _ 2147483647", "INT"},
      {"Int64", "1 2147483648", "INT64"},
      {"Int64Smallest", "-9223372036854775808", "INT64"},
      {"TooLargeForInt64", "9223372036854775808", "STRING"},
      {"LeadingZero", "1 007", "STRING"},
      {"NegativeZero", "-0", "STRING"},
      {"EpochFirst", "946684800000000000 4102444799999999999", "EPOCH_NSEC"},
      {"BeforeTheEpochYears", "946684799999999999", "INT64"},
      {"BehindTheEpochYears", "4102444800000000000", "INT64"},
      {"EpochAndSmall", "946684800000000000 5", "INT64"},
      {"Moments", "2024-06-03T09:30:00Z 1717407000000000000", "EPOCH_NSEC"},
      {"Double", "1 2.5", "DOUBLE"},
      {"DoubleNames", "NaN -Infinity 1e5", "DOUBLE"},
      {"Char", "B S", "CHAR"},
      {"DigitAndLetter", "1 B", "CHAR"},
      {"CharAndLonger", "B SS", "STRING"},
      {"NumberAndText", "1.5 x1", "STRING"},
      {"HexIsText", "00ff", "STRING"},
      {"NoValue", "_ _", "STRING"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    std::istringstream cells(row.cells);
    std::string csv = "F,X\n";
    for (std::string cell; cells >> cell;) {
      csv += (cell == "_" ? "" : cell) + ",\n";
    }
    const Result result = mdmsg("dict derive", csv);
    EXPECT_EQ(result.out,
              std::string("F                         1  ") + row.type + "\nX                         2  STRING\n");
    EXPECT_EQ(result.status, 0);
  }
  EXPECT_EQ(mdmsg("dict derive", "W\n20240115 93000000 -300\n").out, "W                         1  DATETIME\n");
  EXPECT_EQ(mdmsg("dict derive", "W\n\n"),
            (Result{"W                         1  STRING\n",
                    "mdmsg: samples: note: field \"W\": no value seen; assumed to be a STRING\n", 0}));
}

TEST_F(Dict, DeriveTakesTheFirstTypeThatSuitsAllValuesOfAJsonKey) {
  const struct {
    const char* name;
    std::vector<const char*> values;
    const char* type;
  } cases[] = {
      {"Int", {"0", "-2147483648"}, "INT"},
      {"IntWide", {R"({"value":5,"bytes":4})", "7"}, "INT"},
      {"Int64", {"1", "-2147483649"}, "INT64"},
      {"Epoch", {"1717407000173980747"}, "EPOCH_NSEC"},
      {"Moment", {R"("2024-06-03T09:30:00Z")"}, "EPOCH_NSEC"},
      {"Double", {"1", "2.0"}, "DOUBLE"},
      {"DoubleNames", {R"("NaN")", "1"}, "DOUBLE"},
      {"DoubleBits", {R"({"bits":"7ff0000000000001"})"}, "DOUBLE"},
      {"FloatBits", {"0.5", R"({"bits":"7fc00001"})"}, "FLOAT"},
      {"BeyondInt64", {"18446744073709551615"}, "DOUBLE"},
      {"DateTime",
       {R"({"date":20240115,"time":0,"offset":0})", R"({"date":1,"time":0,"offset":0,"packed":1})"},
       "DATETIME"},
      {"Buffer", {R"({"hex":"ff"})", R"({"hex":""})"}, "BUFFER"},
      {"Char", {R"("B")", R"({"hex":"ff"})"}, "CHAR"},
      {"String", {R"("BB")", R"({"hex":"ff"})"}, "STRING"},
      {"EmptyString", {R"("")"}, "STRING"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    std::string json;
    for (const char* const value : row.values) {
      json += std::string("{\"F\":") + value + "}\n";
    }
    EXPECT_EQ(mdmsg("dict derive", json),
              (Result{std::string("F                         1  ") + row.type + '\n', "", 0}));
  }
}

// In time in proportion: looking through all keys for each of them took more than a minute here.
TEST_F(Dict, DeriveTakesALineOfAsManyKeysAsThereAreIds) {
  constexpr int kKeys = 65534;
  std::string json;
  for (int i = 1; i <= kKeys; ++i) {
    json += (i == 1 ? "{\"K" : ",\"K") + std::to_string(i) + "\":{\"hex\":\"00\"}";
  }
  const Result result = mdmsg("dict derive", json + "}\n");
  EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), kKeys);
  EXPECT_EQ(result.out.substr(result.out.rfind("K65534")), "K65534                65534  BUFFER\n");
  EXPECT_EQ(result.status, 0);
}

TEST_F(Dict, DeriveTakesValuesOfAnyDepth) {
  const std::string brackets(1'000'000, '[');
  const std::string closing(1'000'000, ']');
  EXPECT_EQ(mdmsg("dict derive --from json", "{\"QTY\":1,\"DEEP\":" + brackets + closing + "}\n" + brackets + '\n'),
            (Result{"QTY                       1  INT\n"
                    "DEEP                      2  STRING\n",
                    "mdmsg: standard input:1: note: field DEEP: no type accepts this value\n"
                    "mdmsg: standard input:2: a message is one JSON object\n"
                    "mdmsg: samples: note: field \"DEEP\": no value seen; assumed to be a STRING\n",
                    1}));
}

TEST_F(Dict, DeriveTellsWhatIsNoField) {
  EXPECT_EQ(mdmsg("dict derive",
                  "{\"A\":1}\n{\"A\":\"x\",\"B\":true,\"C\":[1],\"D\":{\"no\":1}}\n[1]\nx\n{\"A\":[],\"E\":2}\n"
                  "{\"A\":1}" +
                      std::string(1, '\0') + "{\"F\":1}\n"),
            (Result{"A                         1  INT\n"
                    "B                         2  STRING\n"
                    "C                         3  STRING\n"
                    "D                         4  STRING\n"
                    "E                         5  INT\n",
                    "mdmsg: standard input:2: note: field A: no type accepts this value and those before\n"
                    "mdmsg: standard input:2: note: field B: no type accepts this value\n"
                    "mdmsg: standard input:2: note: field C: no type accepts this value\n"
                    "mdmsg: standard input:2: note: field D: no type accepts this value\n"
                    "mdmsg: standard input:3: a message is one JSON object\n"
                    "mdmsg: standard input:4: a message is one JSON object\n"
                    "mdmsg: standard input:6: a message is one JSON object\n"
                    "mdmsg: samples: note: field \"B\": no value seen; assumed to be a STRING\n"
                    "mdmsg: samples: note: field \"C\": no value seen; assumed to be a STRING\n"
                    "mdmsg: samples: note: field \"D\": no value seen; assumed to be a STRING\n",
                    1}));
  EXPECT_EQ(mdmsg("dict derive --from csv --first-id 65534", "A B,60,C,D\n1,2,3,4\n1,2\n"),
            (Result{"C                     65534  INT\n",
                    "mdmsg: standard input:3: the number of cells is 2, that of the header 4\n"
                    "mdmsg: samples: field \"A B\": a name with a space cannot be in a dictionary in text; skipped\n"
                    "mdmsg: samples: field \"60\": a name of digits, which is taken for an id, cannot be in a "
                    "dictionary in text; skipped\n"
                    "mdmsg: samples: field \"D\": no id is left for it (the last one is 65534); skipped\n",
                    1}));
  EXPECT_EQ(mdmsg("dict derive --format xml", "A B\n1\n").out,
            std::string(kXmlStart) + "    <Entry><Name>A B</Name><Code>1</Code><Type>INT</Type></Entry>\n" + kXmlEnd);
  for (const std::string name : {" A", "A ", "A  B"}) {
    EXPECT_EQ(mdmsg("dict derive --format xml", name + "\n1\n"),
              (Result{std::string(kXmlStart) + kXmlEnd,
                      "mdmsg: samples: field \"" + name +
                          "\": a name with a space at an end, or two in a row, cannot be in a dictionary in XML; "
                          "skipped\n",
                      1}));
  }
  EXPECT_EQ(mdmsg("dict derive", "{\"A\":1,\"B\":2,\"A\":\"x\"}\n{\"A\":{\"date\":1,\"time\":2,\"offset\":3}}\n"),
            (Result{"A                         1  DATETIME\n", "mdmsg: standard input:1: a key is given twice\n", 1}));
  EXPECT_EQ(mdmsg("dict derive", "A,A\n1,2\n"),
            (Result{"A                         1  STRING\n",
                    "mdmsg: standard input:1: field A: is given twice\n"
                    "mdmsg: samples: note: field \"A\": no value seen; assumed to be a STRING\n",
                    1}));
  EXPECT_EQ(mdmsg("dict derive missing.csv"),
            (Result{"", "mdmsg: cannot open missing.csv: No such file or directory\n", 2}));
}

TEST_F(Dict, ADerivedDictionaryEncodesItsSample) {
  const std::string sample = contentsOf(QUOTES_SAMPLE);
  ASSERT_NE(sample, "");
  const Result derived = mdmsg("dict derive", sample);
  EXPECT_EQ(derived.status, 0);
  write("derived.txt", derived.out);
  for (const char* const encoding : {"mInt", "IterMap", "MsgT"}) {
    SCOPED_TRACE(encoding);
    const Result hex = mdmsg(std::string("encode --csv --dictionary derived.txt --encoding ") + encoding, sample);
    EXPECT_EQ(hex.err, "");
    EXPECT_EQ(hex.status, 0);
    const Result json = mdmsg("decode --format json --dictionary derived.txt", hex.out);
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(std::count(json.out.begin(), json.out.end(), '\n'), 30);
    write("again.txt", mdmsg("dict derive", json.out).out);
    const Result difference = mdmsg("dict diff derived.txt again.txt");
    EXPECT_EQ(difference.out, "");
  }
}

TEST_F(Dict, RefusesACommandLineThatItCannotUse) {
  const struct {
    const char* arguments;
    const char* error;
  } cases[] = {
      {"dict", "A subcommand is required"},
      {"dict frobnicate", "unknown command or option \"frobnicate\""},
      {"dict check", "FILE is required"},
      {"dict convert", "FILE is required"},
      {"dict convert --format yaml f", "--format: yaml not in {text,xml}"},
      {"dict diff one", "NEW is required"},
      {"dict show --search x BID", "--search excludes FIELD"},
      {"dict show --fingerprint BID", "--fingerprint excludes FIELD"},
      {"dict show --fingerprint --type INT", "--type excludes --fingerprint"},
      {"dict derive --first-id 65536", "--first-id: 65536 is more than 65535"},
      {"dict derive --from xml", "--from: xml not in {auto,csv,json}"},
  };
  for (const auto& [arguments, error] : cases) {
    SCOPED_TRACE(arguments);
    EXPECT_EQ(mdmsg(arguments), (Result{"", std::string("mdmsg: ") + error + "\nTry \"mdmsg --help\".\n", 2}));
  }
}

}  // namespace
