// The additions to the C interface when memory runs out: no exception comes out, the function gives its null result,
// and handles, messages and what was passed for a result are as they were.
#include <cstdint>
#include <cstring>

#include <memory>
#include <new>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <md/md_message_c_ext.h>

#include "support/configuration.h"
#include "support/dictionary.h"
#include "support/emptied_pools.h"
#include "support/faults.h"
#include "support/xml_leaks.h"

namespace MD::test {
namespace {

struct DeletesMessage {
  void operator()(MD_MessageHandle message) const { MD_Message_delete(message); }
};
struct DeletesDateTime {
  void operator()(MD_DateTimeHandle dateTime) const { MD_DateTime_delete(dateTime); }
};
struct DeletesReceiver {
  void operator()(MD_ReceiverHandle receiver) const { MD_Receiver_delete(receiver); }
};
using Message = std::unique_ptr<MD_MessageCell, DeletesMessage>;
using Receiver = std::unique_ptr<MD_ReceiverCell, DeletesReceiver>;
using DateTime = std::unique_ptr<MD_DateTimeCell, DeletesDateTime>;

constexpr const char* kLongName = "A_FIELD_WITH_A_NAME_THAT_NO_SHORT_STRING_HOLDS";
enum : std::uint16_t { kLong = 500, kWhole = 501, kNum = 502, kDenom = 503 };

/// What functions take and give.
struct Handles {
  explicit Handles(bool arePoolsEmptied = true) {
    loadDictionary(kDictionary + std::string(kLongName) +
                   " 500 STRING\n"
                   "THE_PRICE_OF_A_LONG_NAME_WHOLE 501 INT\n"
                   "THE_PRICE_OF_A_LONG_NAME_NUM 502 INT\n"
                   "THE_PRICE_OF_A_LONG_NAME_DENOM 503 INT\n");
    if (arePoolsEmptied) {
      emptiedPools = std::make_unique<EmptiedPools>();
    }
    message.reset(MD_mInt_new());
    target.reset(MD_Message_createFromPB(MD_ENCODING_MSGT));
    const std::string characters(250, 'y');
    const MD_String value = {characters.data(), 250};
    EXPECT_TRUE(MD_Message_addString(message.get(), kLong, &value));
    EXPECT_TRUE(MD_Message_addInt(message.get(), kWhole, 12) && MD_Message_addInt(message.get(), kNum, 5));
    EXPECT_TRUE(MD_Message_addInt(message.get(), kDenom, 8));
    EXPECT_TRUE(MD_Message_addDateTime(message.get(), id::kDateTime, DateTime(MD_DateTime_new(20250101, 3, 4)).get()));
    // What the target lacks for a copy is room.
    const std::string block(1000, 'z');
    const MD_String filling = {block.data(), 1000};
    EXPECT_TRUE(MD_Message_addString(target.get(), id::kString, &filling));
  }

  std::unique_ptr<EmptiedPools> emptiedPools;
  Message message;
  Message target;
  Message made;
  Receiver receiver{MD_Receiver_new()};
  Receiver madeReceiver;
  char text[1024] = "";
  std::size_t count = 77;
  std::uint16_t ids[16] = {};
  std::uint16_t id = 0;
  std::uint8_t type = 0;
};

std::string describe(MD_MessageHandle message) {
  if (message == nullptr) {
    return "none\n";
  }
  std::string text =
      std::to_string(MD_Message_getPB(message)) + " " + std::to_string(MD_Message_fieldCount(message)) + " fields: ";
  const std::uint8_t* const bytes = MD_Message_getBinary(message);
  return text.append(bytes, bytes + MD_Message_getSize(message)) + "\n";
}

std::string describe(const Handles& handles) {
  return describe(handles.message.get()) + describe(handles.target.get()) + describe(handles.made.get()) +
         (handles.madeReceiver != nullptr ? "a receiver " : "") + handles.text + " " + std::to_string(handles.count) +
         " " + std::to_string(handles.ids[0]) + " " + std::to_string(handles.id) + " " + std::to_string(handles.type);
}

/// `call` returns whether the result differed from the function's null result.
struct CallCase {
  const char* name;
  bool (*call)(Handles& handles);
  bool isBufferGrowth = false;  ///< allocates nothing but the bytes of a message
};

void PrintTo(const CallCase& row, std::ostream* out) { *out << row.name; }

bool makes(Handles& handles, MD_MessageHandle made) {
  handles.made.reset(made);
  return made != nullptr;
}

const CallCase kCalls[] = {
    {"CreateFromPB1", [](Handles& handles) { return makes(handles, MD_Message_createFromPB(MD_ENCODING_ITERMAP)); }},
    {"CreateFromPB6", [](Handles& handles) { return makes(handles, MD_Message_createFromPB(MD_ENCODING_MINT)); }},
    {"CreateFromPB70", [](Handles& handles) { return makes(handles, MD_Message_createFromPB(MD_ENCODING_MSGT)); }},
    {"CreatePreferred", [](Handles& handles) { return makes(handles, MD_Message_createPreferred(false)); }},
    {"CreateEmpty", [](Handles& handles) { return makes(handles, MD_Message_createEmpty(handles.message.get())); }},
    {"Clone", [](Handles& handles) { return makes(handles, MD_Message_clone(handles.message.get())); }},
    {"CopyMsg", [](Handles& handles) { return MD_Message_copyMsg(handles.target.get(), handles.message.get()); }},
    {"CopyFieldIds",
     [](Handles& handles) { return MD_Message_copyFieldIds(handles.message.get(), handles.ids, 16, &handles.count); }},
    {"WriteFields",
     [](Handles& handles) {
       static const std::string characters(250, 'y');
       MD_FieldSlot slot{kLong, MD_TYPE_STRING, 0, {}};
       slot.value.s = {characters.data(), 250};
       return MD_Message_writeFields(handles.target.get(), &slot, 1, MD_WRITE_ADD) == 1;
     },
     true},
    {"NewReceiver",
     [](Handles& handles) {
       handles.madeReceiver.reset(MD_Receiver_new());
       return handles.madeReceiver != nullptr;
     }},
    {"Parse",
     [](Handles& handles) {
       static const std::vector<std::uint8_t> bytes = [] {
         std::vector<std::uint8_t> all{MD_ENCODING_MINT};  // longer than the buffer of a new message
         for (int i = 0; i != 5; ++i) {
           all.insert(all.end(), {kLong & 0xFF, kLong >> 8, 250});
           all.insert(all.end(), 250, 'y');
         }
         return all;
       }();
       return MD_Receiver_parse(handles.receiver.get(), bytes.data(), static_cast<std::uint32_t>(bytes.size())) !=
              nullptr;
     },
     true},
    {"ToText",
     [](Handles& handles) {
       return MD_Message_toText(handles.message.get(), handles.text, sizeof handles.text, &handles.count);
     }},
    {"ToPriceText",
     [](Handles& handles) {
       return MD_Message_toPriceText(handles.message.get(), handles.text, sizeof handles.text, &handles.count);
     }},
    {"CheckFields",
     [](Handles&) {
       const MD_ExpectedField field = {kLongName, kLong, MD_TYPE_STRING};
       return MD_FieldMap_checkFields(&field, 1, nullptr, 0);
     }},
    {"NameToId", [](Handles& handles) { return MD_FieldMap_nameToId(kLongName, &handles.id); }},
    {"NameToType", [](Handles& handles) { return MD_FieldMap_nameToType(kLongName, &handles.type); }},
};

class CInterfaceExtFaults : public testing::TestWithParam<CallCase> {};

TEST_P(CInterfaceExtFaults, GiveTheNullResultAndLeaveHandlesAsTheyWere) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  const SilencedErrors silence;
  // Where the driver looks for an exception there is a null result; an exception would end the test program.
  const auto call = [](Handles& handles) {
    const bool isDone = [&]() noexcept { return GetParam().call(handles); }();
    if (!isDone) {
      throw std::bad_alloc();
    }
  };
  const auto failEach = [&](Failing failing, bool arePoolsEmptied) {
    return failEveryAllocation(
        failing, [=] { return std::make_unique<Handles>(arePoolsEmptied); }, call);
  };
  for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
    const long failed = failEach(failing, true);
    if (heap::kMallocFails || !GetParam().isBufferGrowth) {
      EXPECT_GE(failed, 1) << "nothing failed";
    }
  }
  expectNoLeak([&] { failEach(Failing::FromThenOn, false); });
}

INSTANTIATE_TEST_SUITE_P(Each, CInterfaceExtFaults, testing::ValuesIn(kCalls),
                         [](const auto& row) { return row.param.name; });

/// A way to load two fields.
struct LoadCase {
  const char* name;
  bool (*load)(const std::string& path, char* error, std::size_t capacity);
  bool isXml = false;
};

void PrintTo(const LoadCase& row, std::ostream* out) { *out << row.name; }

const std::string kNewText = std::string("NEW 1 INT\n") + kLongName + " 2 STRING\n";
std::string entryOf(const std::string& name, int code, const std::string& type) {
  return "<Entry><Name>" + name + "</Name><Code>" + std::to_string(code) + "</Code><Type>" + type + "</Type></Entry>";
}
const std::string kNewXml =
    "<D><FieldDefinition>" + entryOf("NEW", 1, "INT") + entryOf(kLongName, 2, "STRING") + "</FieldDefinition></D>";

const LoadCase kLoads[] = {
    {"TextInMemory",
     [](const std::string&, char* error, std::size_t capacity) {
       return MD_FieldMap_reload_text_memory(kNewText.data(), kNewText.size(), error, capacity);
     }},
    {"Text", [](const std::string& path, char* error,
                std::size_t capacity) { return MD_FieldMap_reload_text(path.c_str(), error, capacity); }},
    {"ReportOfTextInMemory",
     [](const std::string&, char* error, std::size_t capacity) {
       return MD_FieldMap_loadText(kNewText.data(), kNewText.size(), error, capacity);
     }},
    {"ReportOfText", [](const std::string& path, char* error,
                        std::size_t capacity) { return MD_FieldMap_loadTextFile(path.c_str(), error, capacity); }},
    {"XmlInMemory",
     [](const std::string&, char* error, std::size_t capacity) {
       return MD_FieldMap_reload_xml_memory(kNewXml.data(), kNewXml.size(), error, capacity);
     },
     true},
    {"Xml",
     [](const std::string& path, char* error, std::size_t capacity) {
       return MD_FieldMap_reload_xml(path.c_str(), error, capacity);
     },
     true},
    {"XmlOrWhatIsFound",
     [](const std::string& path, char* error, std::size_t capacity) {
       return MD_FieldMap_reload(path.c_str(), error, capacity);
     },
     true},
};

class CInterfaceExtLoadFaults : public testing::TestWithParam<LoadCase> {
 protected:
  void SetUp() override {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
    GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
    ConfigurationFolder::write("new", GetParam().isXml ? kNewXml : kNewText);
  }

  /// Lets each allocation of a load fail in turn. The dictionary is then empty.
  /// @return how many failed
  static long failEachOfALoad(Failing failing) {
    for (long failed = 0; failed < 1000; ++failed) {
      loadDictionary("BEFORE 1 INT\n");
      const std::string path = "new";
      char error[32] = "untouched";
      bool isLoaded = false;
      const FaultRun run =
          runFailing(failed, failing, [&]() noexcept { isLoaded = GetParam().load(path, error, sizeof error); });
      const char* const name = MD_FieldMap_idToName(1);
      if (isLoaded) {
        EXPECT_EQ(MD_FieldMap_size(), 2u);
        EXPECT_STREQ(name, "NEW");
        EXPECT_STREQ(error, "");
      } else {
        EXPECT_STREQ(error, "out of memory");
        EXPECT_EQ(MD_FieldMap_size(), 0u);
        EXPECT_EQ(name, nullptr);
      }
      if (!run.hasFailed) {
        EXPECT_TRUE(isLoaded);
        return failed;
      }
    }
    ADD_FAILURE() << "it never succeeds";
    return 0;
  }

  ConfigurationFolder m_folder;
  XmlLeaks m_leaks{GetParam().isXml};
};

INSTANTIATE_TEST_SUITE_P(Each, CInterfaceExtLoadFaults, testing::ValuesIn(kLoads),
                         [](const auto& row) { return row.param.name; });

TEST_P(CInterfaceExtLoadFaults, AreToldInTheErrorText) {
  for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
    EXPECT_GE(failEachOfALoad(failing), 5);
  }
  if (!GetParam().isXml) {
    expectNoLeak([] { failEachOfALoad(Failing::FromThenOn); });
  }
}

// A check that cannot be made for want of memory is no difference to the dictionary.
TEST(CInterfaceExtCheckFaults, AreToldInTheErrorText) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  const MD_ExpectedField fields[] = {{kLongName, 3, MD_TYPE_STRING}, {"B", 2, 99}};
  const std::string differences =
      " does not match the fields of this program: " + std::string(kLongName) +
      ": expected id 3 STRING, found id 1 INT; B: expected id 2 of type code 99, found no field of this name";
  const struct {
    std::string dictionary;
    std::string error;
  } cases[] = {
      {std::string(kLongName) + " 1 INT\n", "the dictionary test dictionary" + differences},
      {"", "no field \"" + std::string(kLongName) + "\": the dictionary test dictionary has no fields"},
  };
  for (const auto& row : cases) {
    loadDictionary(row.dictionary);
    for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
      long toldOf = 0;
      bool hasFailed = true;
      for (long failed = 0; hasFailed && failed < 1000; ++failed) {
        char error[300] = "untouched";
        bool isMatch = true;
        const FaultRun run = runFailing(
            failed, failing, [&]() noexcept { isMatch = MD_FieldMap_checkFields(fields, 2, error, sizeof error); });
        hasFailed = run.hasFailed;
        EXPECT_FALSE(isMatch);
        // An exception is thrown without memory of the heap where there is none.
        if (hasFailed && error != row.error) {
          EXPECT_STREQ(error, "out of memory") << failed;
          ++toldOf;
        } else {
          EXPECT_EQ(error, row.error) << failed;
        }
      }
      EXPECT_FALSE(hasFailed);
      EXPECT_GE(toldOf, 3);
    }
  }
}

// The functions that are documented to need no memory.
TEST(CInterfaceExtWithoutMemory, ReadAndLookUp) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  const Handles handles;
  const DateTime dateTime(MD_DateTime_new_empty());
  bool isRight = false;
  const FaultRun run = runFailing(0, Failing::FromThenOn, [&] {
    MD_MessageHandle message = handles.message.get();
    const std::uint8_t* data = nullptr;
    std::uint32_t size = 0;
    std::uint8_t type = 0;
    std::uint16_t ids[64];
    std::size_t count = 0;
    isRight = MD_Message_getPB(message) == MD_ENCODING_MINT && MD_Message_getBinary(message) != nullptr;
    isRight = isRight && MD_Message_fieldData(message, kWhole, &data, &size, &type) && *data == 12;
    isRight = isRight && MD_Message_readDateTime(message, id::kDateTime, dateTime.get());
    isRight = isRight && std::strcmp(MD_FieldMap_idToName(kLong), kLongName) == 0;
    isRight = isRight && MD_FieldMap_idToType(kLong, &type) && type == MD_TYPE_STRING;
    isRight = isRight && MD_FieldMap_copyIds(ids, 64, &count) && count == MD_FieldMap_size();
    isRight = isRight && MD_set_assertion_handler(nullptr) == nullptr && MD_set_report_handler(nullptr) == nullptr &&
              *MD_version() != '\0';
  });
  EXPECT_FALSE(run.hasThrown);
  EXPECT_FALSE(run.hasFailed);
  EXPECT_TRUE(isRight);
}

// What an assertion handler throws does not come out either.
TEST(CInterfaceExtAssertions, AreNotThrownOutOfTheInterface) {
  loadDictionary(kDictionary);
  const unsigned char cutOff[] = {6, 10, 0, 1, 'x', 44, 1, 4, 5};
  const Message source(MD_Message_createFromBytes(cutOff, sizeof cutOff));
  const Message target(MD_mInt_new());
  const MD_AssertionHandler before =
      MD_set_assertion_handler([](const char*, const char*, unsigned) { throw std::bad_alloc(); });
  char text[32] = "untouched";
  std::size_t length = 77;
  const bool isCopied = MD_Message_copyMsg(target.get(), source.get());
  const bool isPrinted = MD_Message_toText(source.get(), text, sizeof text, &length);
  MD_set_assertion_handler(before);
  EXPECT_FALSE(isCopied);
  EXPECT_FALSE(isPrinted);
  EXPECT_EQ(MD_Message_fieldCount(target.get()), 1u);
  EXPECT_TRUE(MD_Message_exists(target.get(), id::kChar));
  EXPECT_STREQ(text, "");
  EXPECT_EQ(length, 77u);
}

}  // namespace
}  // namespace MD::test
