// The C interface when memory runs out: std::bad_alloc comes out of the function, to callers that can take it; handles,
// messages and what was passed for a result stay as they were.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <md/md_message_c.h>

#include "support/dictionary.h"
#include "support/emptied_pools.h"
#include "support/faults.h"
#include "support/messages.h"

namespace MD::test {
namespace {

struct DeletesMessage {
  void operator()(MD_MessageHandle message) const { MD_Message_delete(message); }
};
struct DeletesDateTime {
  void operator()(MD_DateTimeHandle dateTime) const { MD_DateTime_delete(dateTime); }
};
using Message = std::unique_ptr<MD_MessageCell, DeletesMessage>;
using DateTime = std::unique_ptr<MD_DateTimeCell, DeletesDateTime>;

const std::string kLongText(255, 'y');

MD_String longString() { return {kLongText.data(), 254}; }
MD_Buffer longBuffer() { return {bufferOf(kLongText).data, 255}; }

constexpr std::uint16_t kFirstPadding = 1001;

/// An `mInt` whose buffer has no byte left, and what functions take and give.
struct Handles {
  explicit Handles(bool arePoolsEmptied = true) {
    std::string dictionary = kDictionary;
    for (int i = 0; i < 5; ++i) {
      dictionary += "PAD" + std::to_string(i) + " " + std::to_string(kFirstPadding + i) + " BUFFER\n";
    }
    loadDictionary(dictionary);
    if (arePoolsEmptied) {
      emptiedPools = std::make_unique<EmptiedPools>();
    }
    const unsigned char empty[] = {6};
    message.reset(MD_Message_createFromBytes(empty, 1));
    const MD_String text = {"IBM", 3};
    MD_Message_addString(message.get(), id::kString, &text);
    // Until no byte of the buffer is free.
    for (std::uint16_t id = kFirstPadding; MD_Message_getSize(message.get()) % 1024 != 0; ++id) {
      const std::uint32_t free = 1024 - MD_Message_getSize(message.get()) % 1024;
      const MD_Buffer padding = {longBuffer().data, static_cast<std::uint16_t>(free - 3 > 240 ? 240 : free - 3)};
      EXPECT_TRUE(MD_Message_addBuffer(message.get(), id, &padding));
    }
  }

  std::unique_ptr<EmptiedPools> emptiedPools;
  Message message;
  Message made;
  DateTime dateTime{MD_DateTime_new(20240115, 1, 2)};
  DateTime madeDateTime;
  std::uint16_t ids[16] = {};
  std::size_t count = 77;
  bool result = false;
};

std::string describe(MD_MessageHandle message) {
  if (message == nullptr) {
    return "none";
  }
  std::uint16_t ids[32];
  std::size_t count = 0;
  std::string text = std::to_string(MD_Message_getSize(message)) + " bytes, ";
  text += std::to_string(MD_Message_fieldCount(message)) + " fields:";
  EXPECT_TRUE(MD_Message_getFieldIds(message, ids, &count));
  for (std::size_t i = 0; i < count; ++i) {
    text += " " + std::to_string(ids[i]);
    MD_String string{};
    MD_Buffer buffer{};
    std::int32_t number = 0;
    double price = 0;
    if (MD_Message_getString(message, ids[i], &string)) {
      text += " " + std::string(string.data, string.length);
    } else if (MD_Message_getBuffer(message, ids[i], &buffer)) {
      text += " " + std::to_string(buffer.length);
    } else if (MD_Message_getInt(message, ids[i], &number) || MD_Message_getDouble(message, ids[i], &price)) {
      text += " " + std::to_string(number) + " " + std::to_string(price);
    }
  }
  return text;
}

std::string describe(const Handles& handles) {
  std::string text = describe(handles.message.get()) + "\n" + describe(handles.made.get()) + "\n";
  for (const auto* dateTime : {&handles.dateTime, &handles.madeDateTime}) {
    std::int32_t date = 0;
    text += *dateTime != nullptr && MD_DateTime_date(dateTime->get(), &date) ? std::to_string(date) + " " : "none ";
  }
  return text + std::to_string(handles.ids[0]) + " " + std::to_string(handles.count) + " " +
         std::to_string(handles.result);
}

struct CallCase {
  const char* name;
  void (*call)(Handles& handles);
  bool isBufferGrowth = false;  ///< its only memory
};

void PrintTo(const CallCase& row, std::ostream* out) { *out << row.name; }

template <class Value, class Function>
void put(Handles& handles, Function function, std::uint16_t id, Value value) {
  handles.result = function(handles.message.get(), id, value);
}

#define MD_PUT_CASES(Name, id, value)                                                                               \
  CallCase{"Add" #Name, [](Handles& handles) { put(handles, &MD_Message_add##Name, id, value); }, true}, CallCase { \
    "Update" #Name, [](Handles& handles) { put(handles, &MD_Message_update##Name, id, value); }, true               \
  }

const MD_String kString = longString();
const MD_Buffer kBuffer = longBuffer();

const CallCase kCalls[] = {
    {"NewMInt", [](Handles& handles) { handles.made.reset(MD_mInt_new()); }},
    {"CreateFromBytes",
     [](Handles& handles) {
       static const Bytes bytes = fromHex("06 2C 01 01 05");
       handles.made.reset(MD_Message_createFromBytes(bytes.data(), static_cast<std::uint32_t>(bytes.size())));
     }},
    {"SetBinary",
     [](Handles& handles) {
       static Bytes bytes = fromHex("06 2C 01 01 05");
       bytes.resize(5 + 3 + 255);
       const std::uint8_t head[] = {id::kBuffer, 0, 255};
       std::memcpy(bytes.data() + 5, head, sizeof head);
       static const Bytes large = [] {
         Bytes all = bytes;
         for (int i = 0; i < 5; ++i) {
           all.insert(all.end(), bytes.begin() + 1, bytes.end());
         }
         return all;
       }();
       handles.result =
           MD_Message_setBinary(handles.message.get(), large.data(), static_cast<std::uint32_t>(large.size()));
     },
     true},
    MD_PUT_CASES(Char, id::kChar, 'a'),
    MD_PUT_CASES(Int, id::kInt, 70000),
    MD_PUT_CASES(Int64, id::kInt64, std::int64_t{5}),
    MD_PUT_CASES(Float, id::kFloat, 1.5f),
    MD_PUT_CASES(Double, id::kDouble, 1.25),
    MD_PUT_CASES(String, id::kString2, &kString),
    MD_PUT_CASES(Buffer, id::kBuffer2, &kBuffer),
    MD_PUT_CASES(DateTime, id::kDateTime, handles.dateTime.get()),
    MD_PUT_CASES(EpochNS, id::kEpochNS, std::uint64_t{5}),
    {"UpdateLongerString", [](Handles& handles) { put(handles, &MD_Message_updateString, id::kString, &kString); },
     true},
    {"EraseArray",
     [](Handles& handles) {
       static const std::uint16_t ids[] = {id::kString, kFirstPadding};
       handles.result = MD_Message_erase_array(handles.message.get(), ids, 2);
     }},
    {"GetFieldIds",
     [](Handles& handles) {
       handles.result = MD_Message_getFieldIds(handles.message.get(), handles.ids, &handles.count);
     }},
    {"NewDateTime", [](Handles& handles) { handles.madeDateTime.reset(MD_DateTime_new(20250101, 3, 4)); }},
    {"NewEmptyDateTime", [](Handles& handles) { handles.madeDateTime.reset(MD_DateTime_new_empty()); }},
};

#undef MD_PUT_CASES

class CInterfaceFaults : public testing::TestWithParam<CallCase> {};

TEST_P(CInterfaceFaults, LeaveHandlesAsTheyWere) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  const SilencedErrors silence;
  const auto failEach = [](Failing failing, bool arePoolsEmptied) {
    return failEveryAllocation(
        failing, [&] { return std::make_unique<Handles>(arePoolsEmptied); }, GetParam().call);
  };
  for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
    const long failures = failEach(failing, true);
    if (heap::kMallocFails || !GetParam().isBufferGrowth) {
      EXPECT_GE(failures, 1) << "nothing failed";
    }
  }
  expectNoLeak([&] { failEach(Failing::FromThenOn, false); });
}

INSTANTIATE_TEST_SUITE_P(Each, CInterfaceFaults, testing::ValuesIn(kCalls),
                         [](const auto& row) { return row.param.name; });

// The functions that need no memory do without any.
TEST(CInterfaceWithoutMemory, LeaveReadingAndErasingAlone) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  Handles handles;
  const FaultRun run = runFailing(0, Failing::FromThenOn, [&] {
    MD_MessageHandle message = handles.message.get();
    MD_String text{};
    bool isRight = MD_Message_getString(message, id::kString, &text) && text.length == 3;
    isRight = isRight && MD_Message_exists(message, id::kString) && MD_Message_erase(message, id::kString);
    MD_Message_clear(message);
    isRight = isRight && MD_Message_empty(message) && MD_Message_addInt(message, id::kInt, 5);
    isRight = isRight && !MD_Message_getDateTime(message, id::kDateTime, handles.dateTime.get());
    handles.result = isRight && MD_Message_getSize(message) == 5;
  });
  EXPECT_FALSE(run.hasThrown);
  EXPECT_FALSE(run.hasFailed);
  EXPECT_TRUE(handles.result);
}

}  // namespace
}  // namespace MD::test
