// Messages of two files compared.
#include <string>

#include <gtest/gtest.h>

#include "support/dictionary.h"
#include "tools/run_support.h"

namespace {

using MD::test::Result;

class Diff : public MD::test::ToolRun {
 protected:
  Diff() { write("fields.txt", MD::test::kDictionary); }

  /// Writes JSON lines as messages.
  static void encode(const char* path, const char* encoding, const std::string& json) {
    const Result result = mdmsg(std::string("encode --dictionary fields.txt --encoding ") + encoding, json);
    EXPECT_EQ(result.err, "");
    write(path, result.out);
  }

  static Result diff(const std::string& options) { return mdmsg("diff --dictionary fields.txt " + options); }
};

constexpr const char* kOld =
    "{\"SYMBOL\":\"AB\",\"BID\":101.25,\"QTY\":5}\n"
    "{\"SYMBOL\":\"CD\",\"BID\":50}\n"
    "{\"SYMBOL\":\"AB\",\"BID\":101.5,\"ASK\":102}\n"
    "{\"SYMBOL\":\"EF\",\"BID\":1}\n";
constexpr const char* kNew =
    "{\"SYMBOL\":\"CD\",\"BID\":50}\n"
    "{\"SYMBOL\":\"AB\",\"ASK\":102,\"BID\":101.5}\n"
    "{\"ASK\":103,\"SYMBOL\":\"AB\",\"BID\":101.5}\n"
    "{\"SYMBOL\":\"GH\",\"BID\":2}\n";

TEST_F(Diff, TellsChangedAddedAndRemovedMessagesByKey) {
  encode("old.hex", "mInt", kOld);
  encode("new.hex", "MsgT", kNew);
  EXPECT_EQ(diff("--key SYMBOL old.hex new.hex"), (Result{"changed \"SYMBOL\":\"AB\" (old.hex:1 -> new.hex:2)\n"
                                                          "  BID: 101.25 -> 101.5\n"
                                                          "  ASK: absent -> 102\n"
                                                          "  QTY: 5 -> absent\n"
                                                          "changed \"SYMBOL\":\"AB\" (old.hex:3 -> new.hex:3)\n"
                                                          "  ASK: 102 -> 103\n"
                                                          "added \"SYMBOL\":\"GH\" (new.hex:4)\n"
                                                          "  BID: absent -> 2\n"
                                                          "removed \"SYMBOL\":\"EF\" (old.hex:4)\n"
                                                          "  BID: 1 -> absent\n",
                                                          "", 1}));
}

TEST_F(Diff, WritesOneJsonObjectPerDifference) {
  encode("old.hex", "IterMap", kOld);
  encode("new.hex", "mInt", kNew);
  EXPECT_EQ(diff("--format json --key SYMBOL old.hex new.hex"),
            (Result{"{\"change\":\"changed\",\"key\":{\"SYMBOL\":\"AB\"},\"places\":{\"before\":\"old.hex:1\","
                    "\"after\":\"new.hex:2\"},\"before\":{\"BID\":101.25,\"QTY\":5},\"after\":{\"BID\":101.5,"
                    "\"ASK\":102}}\n"
                    "{\"change\":\"changed\",\"key\":{\"SYMBOL\":\"AB\"},\"places\":{\"before\":\"old.hex:3\","
                    "\"after\":\"new.hex:3\"},\"before\":{\"ASK\":102},\"after\":{\"ASK\":103}}\n"
                    "{\"change\":\"added\",\"key\":{\"SYMBOL\":\"GH\"},\"places\":{\"after\":\"new.hex:4\"},"
                    "\"before\":{},\"after\":{\"BID\":2}}\n"
                    "{\"change\":\"removed\",\"key\":{\"SYMBOL\":\"EF\"},\"places\":{\"before\":\"old.hex:4\"},"
                    "\"before\":{\"BID\":1},\"after\":{}}\n",
                    "", 1}));
}

TEST_F(Diff, TheSameMessagesDoNotDifferWhateverTheirEncodingAndOrderOfFields) {
  const std::string all =
      R"({"CH":"B","QTY":-1,"SEQ":7,"VOLA":"NaN","BID":-0.0,"SYMBOL":"A","BLOB":{"hex":"00ff"},"RECV":5})";
  const std::string reversed =
      R"({"RECV":5,"BLOB":{"hex":"00ff"},"SYMBOL":"A","BID":-0.0,"VOLA":"NaN","SEQ":7,"QTY":-1,"CH":"B"})";
  for (const char* const encoding : {"mInt", "IterMap", "MsgT"}) {
    encode("old.hex", encoding, all + '\n');
    encode("new.hex", "IterMap", reversed + '\n');
    EXPECT_EQ(diff("--key SYMBOL old.hex new.hex"), (Result{"", "", 0})) << encoding;
    EXPECT_EQ(diff("old.hex new.hex"), (Result{"", "", 0})) << encoding;
  }
  encode("new.hex", "IterMap", R"({"SYMBOL":"A","BID":0.0})");
  EXPECT_EQ(diff("--fields BID old.hex new.hex").out, "changed (old.hex:1 -> new.hex:1)\n  BID: -0.0 -> 0\n");
}

TEST_F(Diff, KeysMayBeSeveralFieldsOrNone) {
  encode("old.hex", "mInt", "{\"SYMBOL\":\"A\",\"SEQ\":1,\"BID\":1}\n{\"SYMBOL\":\"A\",\"SEQ\":2,\"BID\":2}\n");
  encode("new.hex", "mInt", "{\"SYMBOL\":\"A\",\"SEQ\":2,\"BID\":2}\n{\"SEQ\":1,\"BID\":1}\n");
  EXPECT_EQ(diff("--key SYMBOL,20 old.hex new.hex").out,
            "added \"SEQ\":1 (new.hex:2)\n"
            "  BID: absent -> 1\n"
            "removed \"SYMBOL\":\"A\",\"SEQ\":1 (old.hex:1)\n"
            "  BID: 1 -> absent\n");
  EXPECT_EQ(diff("--fields SEQ old.hex new.hex").out,
            "changed (old.hex:1 -> new.hex:1)\n"
            "  SEQ: 1 -> 2\n"
            "changed (old.hex:2 -> new.hex:2)\n"
            "  SEQ: 2 -> 1\n");
}

TEST_F(Diff, SelectsFieldsAndMessages) {
  encode("old.hex", "mInt", kOld);
  encode("new.hex", "mInt", kNew);
  EXPECT_EQ(diff("--key SYMBOL --fields ASK --limit 3 old.hex new.hex").out,
            "changed \"SYMBOL\":\"AB\" (old.hex:1 -> new.hex:2)\n"
            "  ASK: absent -> 102\n"
            "changed \"SYMBOL\":\"AB\" (old.hex:3 -> new.hex:3)\n"
            "  ASK: 102 -> 103\n");
}

TEST_F(Diff, ComparesWhatIsThereOfValuesThatCannotBeRead) {
  write("old.hex", "06 160008000000000000002c\n06 160008000000000000\n");
  write("new.hex", "06 160008000000000000002c\n06 1600080000000000\n");
  EXPECT_EQ(
      diff("old.hex new.hex"),
      (Result{"changed (old.hex:2 -> new.hex:2)\n"
              "  BID: {\"unreadable\":\"000000000000\"} -> {\"unreadable\":\"0000000000\"}\n",
              "mdmsg: old.hex:2: note: field BID: the message is truncated within the value, of which it has 6 of 8 "
              "bytes\n"
              "mdmsg: new.hex:2: note: field BID: the message is truncated within the value, of which it has 5 of 8 "
              "bytes\n",
              1}));
}

TEST_F(Diff, RefusesWhatItCannotCompare) {
  encode("old.hex", "mInt", kOld);
  EXPECT_EQ(diff("--key NOPE old.hex old.hex"),
            (Result{"", "mdmsg: --key: field NOPE: not in the dictionary fields.txt\n", 2}));
  EXPECT_EQ(diff("- -"), (Result{"", "mdmsg: only one of the two inputs can be standard input\n", 2}));
  EXPECT_EQ(diff("old.hex").status, 2);
  EXPECT_EQ(diff("old.hex old.hex old.hex").status, 2);
  // Nothing is reported as removed when a file is missing.
  EXPECT_EQ(diff("old.hex none.hex"), (Result{"", "mdmsg: cannot open none.hex: No such file or directory\n", 2}));
  EXPECT_EQ(diff("none.hex old.hex"), (Result{"", "mdmsg: cannot open none.hex: No such file or directory\n", 2}));
}

}  // namespace
