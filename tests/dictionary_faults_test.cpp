// The dictionary when memory runs out: std::bad_alloc comes out of a load, every lookup answers "unknown", and the
// load can be repeated.
#include "md/md_fieldmap.h"

#include <cstdint>

#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/configuration.h"
#include "support/dictionary.h"
#include "support/faults.h"
#include "support/fresh_process.h"
#include "support/xml_leaks.h"

#if !defined(_WIN32)
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace MD::test {
namespace {

constexpr const char* kNames[] = {"BID", "A_FIELD_WITH_A_NAME_THAT_NO_SHORT_STRING_HOLDS", "LAST"};
constexpr const char* kText =
    "BID 22 DOUBLE\n"
    "A_FIELD_WITH_A_NAME_THAT_NO_SHORT_STRING_HOLDS 7 STRING\n"
    "SKIPPED 9 A_TYPE_WITH_A_NAME_THAT_NO_SHORT_STRING_HOLDS\n"
    "LAST 40000 INT\n";

std::string xmlText() {
  return xmlDefinitions(xmlEntry(kNames[0], "22", "DOUBLE") + xmlEntry(kNames[1], "7", "STRING") +
                        xmlEntry("SKIPPED", "9", "NONE") + xmlEntry(kNames[2], "40000", "INT"));
}

/// What every lookup finds.
std::string lookUps() {
  const MD_FieldMap& map = MD_FieldMap::instance();
  std::string text;
  for (std::uint32_t id = 0; id <= 65535; ++id) {
    const auto row = map.findById(static_cast<std::uint16_t>(id));
    if (row != map.end()) {
      text += row->name + " " + std::to_string(row->id) + " " + std::to_string(row->type) + " #" +
              std::to_string(row->compact) + "\n";
    }
    const FIELDS::packed_rec packed = map.packed(static_cast<std::uint16_t>(id));
    if (packed.isKnown()) {
      text += "packed " + std::to_string(packed.slot) + " " + std::to_string(packed.type) + "\n";
    }
    const auto byCompact = map.findByCompact(static_cast<std::uint16_t>(id));
    text += byCompact != map.end() ? "compact " + byCompact->name + "\n" : "";
  }
  for (const char* name : kNames) {
    const auto row = map.findByName(name);
    text += row != map.end() ? "name " + row->name + "\n" : "";
  }
  return text;
}

struct Dictionary {
  Dictionary() { loadDictionary("BEFORE 1 INT\n"); }
  std::istringstream text{kText};
};

std::string describe(const Dictionary&) { return lookUps(); }

struct LoadCase {
  const char* name;
  void (*load)(Dictionary& dictionary);
  bool isXml;
};

void PrintTo(const LoadCase& row, std::ostream* out) { *out << row.name; }

class DictionaryFaults : public testing::TestWithParam<LoadCase> {
 protected:
  void SetUp() override {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
    GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
    ConfigurationFolder::write("fields.txt", kText);
    ConfigurationFolder::write("field_map.txt", kText);
    ConfigurationFolder::write("fields.xml", xmlText());
  }

  ConfigurationFolder m_folder;
  XmlLeaks m_leaks{GetParam().isXml};
};

TEST_P(DictionaryFaults, LeaveNothingKnownAndALoadThatCanBeRepeated) {
  const std::string unknown;
  const auto failEach = [&](Failing failing) {
    return failEveryAllocation(
        failing, [] { return std::make_unique<Dictionary>(); }, GetParam().load, &unknown);
  };
  EXPECT_GE(failEach(Failing::Once), 10);  // rows, indexes, names and the entries read
  const std::string loaded = lookUps();
  for (const char* line : {"BID 22 5 #0\npacked 1 5\n", "7 6 #1\npacked 2 6\n", "LAST 40000 2 #2\npacked 3 2\n",
                           "name BID\n", "name LAST\n", "compact LAST\n"}) {
    EXPECT_NE(loaded.find(line), std::string::npos) << line << "in\n" << loaded;
  }
  if (GetParam().isXml) {
    failEach(Failing::FromThenOn);
  } else {
    expectNoLeak([&] { failEach(Failing::FromThenOn); });
  }
}

INSTANTIATE_TEST_SUITE_P(
    Each, DictionaryFaults,
    testing::Values(LoadCase{"TextFile", [](Dictionary&) { MD_FieldMap::reload_text("fields.txt"); }, false},
                    LoadCase{"Stream",
                             [](Dictionary& dictionary) {
                               dictionary.text.clear();
                               dictionary.text.seekg(0);
                               MD_FieldMap::reload_text(dictionary.text, "fields");
                             },
                             false},
                    LoadCase{"XmlFile", [](Dictionary&) { MD_FieldMap::reload_xml("fields.xml"); }, true},
                    LoadCase{"File", [](Dictionary&) { MD_FieldMap::reload("fields.xml"); }, true},
                    LoadCase{"DefaultFile", [](Dictionary&) { MD_FieldMap::reload(""); }, false}),
    [](const auto& row) { return row.param.name; });

#if !defined(_WIN32)

/// Runs `body` in a copy of this process. @return what it returned
template <class Body>
int inCopyOfTheProcess(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(body());
  }
  int status = -1;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

enum Result { kUntouched = 10, kThrown = 11, kWrong = 12 };

bool isLoaded() {
  const std::string found = lookUps();
  return found.find("LAST 40000 2 #2\npacked 3 2\n") != std::string::npos &&
         found.find("name LAST") != std::string::npos;
}

/// The first use of the dictionary with an allocation failing, then a load without.
template <class Use>
int firstUse(long failing, Use use) {
  const FaultRun fault = runFailing(failing, Failing::Once, use);
  if (fault.hasThrown) {
    // Without the dictionary itself, the next use is the first again.
    if (!lookUps().empty() && !isLoaded()) {
      return kWrong;
    }
    MD_FieldMap::reload("");
  }
  if (!isLoaded()) {
    return kWrong;
  }
  return !fault.hasFailed ? kUntouched : kThrown;
}

template <class Use>
void failEachOfTheFirstUse(Use use) {
  const ConfigurationFolder folder;
  ConfigurationFolder::write("field_map.txt", kText);
  for (long failing = 0; failing < 500; ++failing) {
    const int result = inCopyOfTheProcess([&] { return firstUse(failing, use); });
    if (result == kUntouched) {
      EXPECT_GE(failing, 10);  // as above
      return;
    }
    ASSERT_EQ(result, kThrown) << "allocation " << failing;
  }
  FAIL() << "it never succeeds";
}

// The dictionary's first use is that of the process, so each is made in one of its own.
TEST(DictionaryFaultsOfTheFirstUseDeathTest, LeaveAnEmptyDictionary) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  expectInFreshProcess([] { failEachOfTheFirstUse([] { MD_FieldMap::instance(); }); });
  expectInFreshProcess([] { failEachOfTheFirstUse([] { MD_Message::createFromPB(6); }); });
}

TEST(DictionaryFaultsOfTheFirstUseDeathTest, AreTheResultOfLoadFile) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  expectInFreshProcess([] {
    const ConfigurationFolder folder;
    ConfigurationFolder::write("fields.xml", xmlText());
    int swallowed = 0;
    int thrown = 0;
    for (long failing = 0; failing < 1000; ++failing) {
      const int result = inCopyOfTheProcess([&] {
        int loaded = 0;
        const FaultRun fault =
            runFailing(failing, Failing::Once, [&] { loaded = MD_FieldMap::load_file("fields.xml"); });
        if (loaded == 0 && !fault.hasThrown) {
          return !isLoaded() ? int{kWrong} : fault.hasFailed ? 0 : int{kUntouched};
        }
        return fault.hasThrown ? 1 : loaded == -2 && lookUps().empty() ? 2 : int{kWrong};
      });
      if (result == kUntouched) {
        break;
      }
      ASSERT_TRUE(result >= 0 && result <= 2) << "allocation " << failing << " " << result;
      thrown += result == 1 ? 1 : 0;
      swallowed += result == 2 ? 1 : 0;
    }
    EXPECT_EQ(thrown, 2) << "those of the lock and of the dictionary itself";
    EXPECT_GE(swallowed, 20);
  });
}

#endif

}  // namespace
}  // namespace MD::test
