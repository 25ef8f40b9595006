// Which changes of a dictionary break which level of compatibility, for which encoding.
#include <string>

#include <gtest/gtest.h>

#include "tools/run_support.h"

namespace {

using MD::test::Result;

class CompatibilityTest : public MD::test::ToolRun {
 protected:
  Result diff(const std::string& options) { return mdmsg("dict diff " + options + " old.txt new.txt"); }

  /// What breaks each level: "backward forward full wire", a minus for a level that holds.
  std::string broken(const char* before, const char* after, const std::string& encoding) {
    write("old.txt", before);
    write("new.txt", after);
    std::string text;
    for (const char* const level : {"backward", "forward", "full", "wire"}) {
      const Result result = diff("--encoding " + encoding + " --compatibility " + level);
      EXPECT_EQ(result.status, result.out.empty() ? 0 : 1);
      EXPECT_EQ(result.err, "");
      text += (text.empty() ? "" : " ") + (result.out.empty() ? "-" : result.out.substr(0, result.out.find(' ')));
    }
    return text;
  }
};

TEST_F(CompatibilityTest, EachChangeBreaksItsLevels) {
  const struct {
    const char* name;
    const char* before;
    const char* after;
    const char* iterMap;
    const char* others;
  } cases[] = {
      {"Same", "A 1 INT", "A 1 OPTI_PRICE", "- - - -", "- - - -"},
      {"Added", "A 1 INT", "A 1 INT B 2 STRING", "- added added added", "- - - -"},
      {"Removed", "A 1 INT B 2 STRING", "A 1 INT", "removed - removed removed", "- - - -"},
      {"Retyped", "A 1 INT", "A 1 FLOAT", "retyped retyped retyped retyped", "retyped retyped retyped retyped"},
      {"Renamed", "A 1 INT", "B 1 INT", "renamed renamed renamed -", "renamed renamed renamed -"},
      {"Reused", "A 1 INT", "B 1 CHAR", "reused reused reused retyped", "reused reused reused retyped"},
      {"Moved", "A 1 INT", "A 2 INT", "renumbered renumbered renumbered removed", "renumbered renumbered renumbered -"},
      {"AddedOfATypeNotCarried", "A 1 INT", "A 1 INT B 2 DATE", "- - - -", "- - - -"},
      {"RenamedOfATypeNotCarried", "A 1 DATE X 9 INT", "B 1 TIME X 9 INT", "- - - -", "- - - -"},
      {"RetypedToOneNotCarried", "A 1 INT", "A 1 DATE", "retyped retyped retyped retyped",
       "retyped retyped retyped retyped"},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(broken(row.before, row.after, "IterMap"), row.iterMap);
    EXPECT_EQ(broken(row.before, row.after, "mInt"), row.others);
    EXPECT_EQ(broken(row.before, row.after, "MsgT"), row.others);
  }
}

TEST_F(CompatibilityTest, NamesEachFieldOnceWithItsReason) {
  write("old.txt", "A 1 INT B 2 INT C 3 INT D 4 INT E 5 CHAR F 6 INT G 7 INT");
  write("new.txt", "A 1 DOUBLE BB 2 INT CC 3 CHAR E 50 CHAR G 6 INT F 7 INT NEW 70 STRING");
  EXPECT_EQ(diff("--compatibility full"),
            (Result{"retyped        1  A INT -> DOUBLE: the id is used with another type\n"
                    "renamed        2  B -> BB: the id is used for another name\n"
                    "reused         3  C INT -> CC CHAR: the id is used for another name and type\n"
                    "removed        4  D INT: IterMap readers with the new dictionary misread what follows the field\n"
                    "renumbered     5  E -> 50: the name moved to another id\n"
                    "renamed        6  F -> G: the id is used for another name; the name moved to id 7\n"
                    "renamed        7  G -> F: the id is used for another name; the name moved to id 6\n"
                    "added         70  NEW STRING: IterMap readers with the old dictionary misread what follows the "
                    "field\n",
                    "", 1}));
  EXPECT_EQ(diff("--compatibility wire --encoding MsgT"),
            (Result{"retyped        1  A INT -> DOUBLE: the id is used with another type\n"
                    "retyped        3  CC INT -> CHAR: the id is used with another type\n",
                    "", 1}));
}

TEST_F(CompatibilityTest, RefusesOtherLevels) {
  write("old.txt", "A 1 INT");
  write("new.txt", "A 1 INT");
  EXPECT_EQ(diff("--compatibility sideways").status, 2);
  EXPECT_EQ(diff("--encoding mInt").status, 2);
  EXPECT_EQ(diff("--compatibility full --encoding XML").status, 2);
  EXPECT_EQ(diff("--compatibility full"), (Result{"", "", 0}));
}

}  // namespace
