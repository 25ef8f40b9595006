// What is left of messages and pools when memory runs out: each operation is run with its first allocation failing,
// then with its second, until none is left to fail; std::bad_alloc comes out, everything is as before, and the
// operation can be repeated.
#include <cstdint>

#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <ostream>
#include <set>
#include <sstream>
#include <streambuf>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "md/md_price_output.h"
#include "support/configuration.h"
#include "support/dictionary.h"
#include "support/emptied_pools.h"
#include "support/encodings.h"
#include "support/faults.h"
#include "support/fresh_process.h"
#include "support/messages.h"

namespace MD::test {
namespace {

enum class PoolKind { Shared, Own, Swapped };

constexpr std::uint16_t kFirstPadding = 1001;
constexpr std::uint16_t kPaddings = 64;
constexpr std::uint16_t kFirstNew = 2001;  // fields of the larger dictionary alone
constexpr std::uint16_t kPriceWhole = 501;

std::string dictionaryText(bool isLarger) {
  std::string text = kDictionary;
  for (int i = 0; i < kPaddings; ++i) {
    text += "PAD" + std::to_string(i) + " " + std::to_string(kFirstPadding + i) + " BUFFER\n";
  }
  text += "LAST_WHOLE 501 INT\nLAST_NUM 502 INT\nLAST_DENOM 503 INT\n";
  for (int i = 0; isLarger && i < 500; ++i) {
    text += "NEW" + std::to_string(i) + " " + std::to_string(kFirstNew + i) + " INT\n";
  }
  return text;
}

void reloadDictionary(bool isLarger) {
  static const std::string texts[] = {dictionaryText(false), dictionaryText(true)};
  loadDictionary(texts[isLarger ? 1 : 0]);
}

MD_Message::Allocator newPools() {
  return {std::make_shared<ReusableContainer<MsgData>>(), std::make_shared<ReusableContainer<Optimizer>>()};
}

/// A stream into memory of its own.
class FixedText : private std::streambuf, public std::ostream {
 public:
  FixedText() : std::ostream(static_cast<std::streambuf*>(this)) { restart(); }

  void restart() {
    setp(m_text, m_text + sizeof m_text);
    clear();
  }
  std::string_view text() const { return {pbase(), static_cast<std::size_t>(pptr() - pbase())}; }

 private:
  char m_text[65536];
};

/// Adds fields until no byte of the message's buffer is free. The encodings' records have heads of 3, 6 and 8 bytes.
void fillUp(MD_Message& message) {
  constexpr std::uint32_t kStepBytes = 1024;
  const std::uint32_t headBytes = message.getPB() == 6 ? 3 : message.getPB() == 1 ? 6 : 8;
  for (std::uint16_t id = kFirstPadding;; ++id) {
    const std::uint32_t free = (kStepBytes - message.getSizeImpl() % kStepBytes) % kStepBytes;
    if (free == 0) {
      return;
    }
    ASSERT_LT(id, kFirstPadding + kPaddings);
    ASSERT_GE(free, headBytes);
    const std::uint32_t most = std::min(free - headBytes, std::uint32_t{200});
    const std::uint32_t left = free - headBytes - most;
    const std::uint32_t length = left != 0 && left < headBytes ? most - headBytes : most;
    ASSERT_TRUE(message.add(id, bufferOf(std::string(length, 'p'))));
  }
}

/// Everything that an operation may touch.
struct World {
  World(std::uint8_t code, PoolKind kind) {
    reloadDictionary(false);
    const Bytes header = bytesOf(*MD_Message::createFromPB(code));
    const auto make = [&](const MD_Message::Allocator& allocator) {
      return MD_Message::createFromBytes(header.data(), static_cast<std::uint32_t>(header.size()), allocator);
    };
    if (kind == PoolKind::Shared) {
      emptiedPools = std::make_unique<EmptiedPools>();
    } else {
      pools = newPools();
    }
    message = make(pools);
    if (kind == PoolKind::Swapped) {
      partner = make(newPools());
      partner->add(id::kInt, 5);
      message->swap(*partner);
      message->eraseImpl(id::kInt);
      partner->add(id::kInt, 5);
    }
    message->add(id::kChar, 'a');
    message->add(id::kInt, 70000);
    message->add(id::kDouble, 1.25);
    message->add(id::kString, "a string that is longer than any short one");
    message->add(id::kBuffer, bufferOf("a buffer"));
    message->add(id::kDateTime, MD_DateTime(20240115, 1, 2));
    message->add(kPriceWhole, 12);
  }

  MD_Message::Allocator pools;
  std::unique_ptr<EmptiedPools> emptiedPools;
  std::unique_ptr<EmptiedMessageMemory> emptiedMemory;
  std::unique_ptr<MD_Message> partner;
  std::unique_ptr<MD_Message> message;
  std::unique_ptr<MD_Message> source;
  std::unique_ptr<MD_Message> made;
  Bytes bytes;
  Ids ids;
  std::set<std::uint16_t> idSet;
  MD_Variant variant{70000};
  MD_Variant value;
  std::string text = "nothing";
  bool result = false;
  FixedText out;
};

std::string describe(const MD_Message& message) {
  std::string text = hexOf(message) + " ids";
  for (const std::uint16_t id : idsOf(message)) {
    text += " " + std::to_string(id);
  }
  text += " count " + std::to_string(message.fieldCount());
  for (const ValueType& type : valueTypes()) {
    for (const std::uint16_t id : {type.field, type.otherField}) {
      std::string raw;
      text += type.get(message, id, 0, raw) ? "," + raw : message.existsImpl(id) ? ",unread" : ",absent";
    }
  }
  for (int id = kFirstPadding; id < kFirstPadding + kPaddings; ++id) {
    text += message.existsImpl(static_cast<std::uint16_t>(id)) ? "+" : "-";
  }
  return text;
}

std::string describe(const World& world) {
  std::string text;
  for (const auto* message : {&world.message, &world.partner, &world.source, &world.made}) {
    text += *message != nullptr ? describe(**message) : "none";
    text += "\n";
  }
  text += world.text + " " + std::to_string(world.variant.type()) + " " + std::to_string(world.result) + " ";
  return text + std::to_string(world.out.flags()) + world.out.fill() + std::to_string(world.out.width());
}

std::set<std::uint8_t> allCodes() {
  std::set<std::uint8_t> codes;
  for (const Encoding& encoding : ENCODINGS::kAll) {
    codes.insert(encoding.code);
  }
  return codes;
}

struct Operation {
  std::string name;
  std::function<void(World&)> prepare;
  std::function<void(World&)> run;
  std::set<std::uint8_t> codes = allCodes();  ///< the encodings in which it needs memory
  bool isBufferGrowth = false;                ///< all of it by functions of C
  bool needsFreshObjects = false;             ///< shows what a pool's objects held before
};

const std::set<std::uint8_t> kAll = allCodes();

void setBinary(MD_Message& message, const Bytes& bytes) {
  message.setBinaryImpl(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

/// Fields of all types: some of World's message that take their place, some that do not, and new ones.
void fillOtherwise(MD_Message& message) {
  message.add(id::kDouble, 9.75);
  message.add(id::kChar, 'z');
  message.add(id::kString, std::string(200, 's'));
  message.add(id::kInt, 3);
  message.add(id::kBuffer, bufferOf(std::string(250, 'b')));
  for (const ValueType& type : valueTypes()) {
    type.add(message, type.otherField, type.lastSample());
  }
}

template <class Print>
void printInto(World& world, Print print) {
  world.out.restart();
  world.out << std::hex;
  try {
    print(world.out);
  } catch (...) {
    world.out << std::dec;
    throw;
  }
  world.out << std::dec;
  world.text = world.out.text();
}

void PrintTo(const Operation& operation, std::ostream* out) { *out << operation.name; }

std::vector<Operation> operationsOfEachType() {
  std::vector<Operation> operations;
  for (const ValueType& type : valueTypes()) {
    const std::string name = type.name;
    const auto full = [](World& world) { fillUp(*world.message); };
    operations.push_back(
        {"Add" + name, full,
         [&type](World& world) { world.result = type.add(*world.message, type.otherField, type.lastSample()); }, kAll,
         true});
    operations.push_back(
        {"UpdateOfAbsent" + name, full,
         [&type](World& world) { world.result = type.update(*world.message, type.otherField, type.lastSample()); },
         kAll, true});
  }
  return operations;
}

std::vector<Operation> operationsOnFields() {
  const auto full = [](World& world) { fillUp(*world.message); };
  const auto manyIds = [](World& world) {
    for (int id = kFirstPadding; id < kFirstPadding + 50; ++id) {
      world.message->add(static_cast<std::uint16_t>(id), bufferOf("x"));
      world.ids.push_back(static_cast<std::uint16_t>(id));
    }
    world.idSet.insert(world.ids.begin(), world.ids.end());
  };
  const auto intoItself = [](bool isAdd) {
    return [isAdd](World& world) {
      MD_Message::String view;
      static_cast<void>(world.message->get(id::kString, view));
      world.result = isAdd ? world.message->add(id::kString2, view) : world.message->update(id::kString2, view);
    };
  };
  return {
      {"UpdateOfALongerString", full,
       [](World& world) {
         static const std::string text(254, 'y');
         world.result = world.message->update(id::kString, text);
       },
       kAll, true},
      {"UpdateOfALongerBuffer", full,
       [](World& world) {
         static const std::string bytes(255, 'y');
         world.result = world.message->update(id::kBuffer, bufferOf(bytes));
       },
       kAll, true},
      {"UpdateOfALongerInt",
       [](World& world) {
         world.message->update(id::kInt, 5);
         world.message->eraseImpl(id::kInt);
         world.message->add(id::kInt, 5);
         fillUp(*world.message);
       },
       [](World& world) { world.result = world.message->update(id::kInt, 70000); },
       {6},
       true},
      {"AddOfAViewIntoItself", full, intoItself(true), kAll, true},
      {"UpdateOfAnAbsentFieldByAViewIntoItself", full, intoItself(false), kAll, true},
      {"UpdateByAViewIntoItself",
       [](World& world) {
         world.message->add(id::kString2, "IBM");
         fillUp(*world.message);
       },
       intoItself(false)},
      {"AddOfAVariant",
       [](World& world) {
         fillUp(*world.message);
         world.value.set(std::string(254, 'v'));
       },
       [](World& world) { world.result = world.message->add(id::kString2, world.value); }, kAll, true},
      {"UpdateByAVariant",
       [](World& world) {
         fillUp(*world.message);
         world.value.set(std::string(254, 'v'));
       },
       [](World& world) { world.result = world.message->update(id::kString, world.value); }, kAll, true},
      {"GetOfAString", nullptr, [](World& world) { world.result = world.message->getString(id::kString, world.text); }},
      {"GetOfAStringVariant", nullptr,
       [](World& world) { world.result = world.message->get(id::kString, world.variant); }},
      {"GetOfABufferVariant", nullptr,
       [](World& world) { world.result = world.message->get(id::kBuffer, world.variant); }},
      {"GetOfADateTimeVariant", nullptr,
       [](World& world) { world.result = world.message->get(id::kDateTime, world.variant); }},
      {"EraseOfMany", manyIds, [](World& world) { world.result = world.message->eraseArrayImpl(world.ids); }},
      {"EraseOfASet", manyIds, [](World& world) { world.result = world.message->eraseSetImpl(world.idSet); }},
      {"AddOfAWrongType", nullptr, [](World& world) { world.result = !world.message->add(id::kEpochNS, 5); }},
      {"AddOfAnUnknownField", nullptr, [](World& world) { world.result = !world.message->add(id::kUnknown, 5); }},
      {"AddOfTooLongAString",
       nullptr,
       [](World& world) {
         static const std::string text(65535, 'x');
         world.result = !world.message->add(id::kString2, text);
       },
       {6}},
      {"UpdateOfAWrongType",
       nullptr,
       [](World& world) { world.result = !world.message->update(id::kDouble, 5); },
       {ENCODINGS::ITERMAP, ENCODINGS::MSGT}},
      {"GetOfAWrongType",
       nullptr,
       [](World& world) {
         std::int32_t value = 0;
         world.result = !world.message->get(id::kDouble, value);
       },
       {ENCODINGS::ITERMAP, ENCODINGS::MSGT}},
  };
}

void prefer(int code) { ConfigurationFolder::write("message/preferred.conf", std::to_string(code)); }

std::vector<Operation> operationsOnMessages() {
  const auto larger = [](World&) { reloadDictionary(true); };
  const auto source = [](std::uint8_t code) {
    return [code](World& world) {
      world.source = MD_Message::createFromPB(code);
      fillOtherwise(*world.source);
      fillUp(*world.message);
    };
  };
  const auto copy = [](World& world) {
    world.message->copyMsg(*world.source);
    world.result = true;
  };
  // So many records of another length that the copy lists those of the message first.
  const auto longerSource = [](World& world) {
    world.source = MD_Message::createFromPB(ENCODINGS::MSGT);
    for (std::uint16_t id = kFirstPadding; id != kFirstPadding + 20; ++id) {
      world.message->add(id, bufferOf("short"));
      world.source->add(id, bufferOf(std::string(100, 'l')));
    }
  };
  const auto received = [](World& world) {
    const auto message = world.message->clone();
    fillUp(*message);
    message->add(id::kString2, std::string(254, 'y'));
    world.bytes = bytesOf(*message);
  };
  const auto make = [](World& world, const MD_Message::Allocator& allocator) {
    world.made =
        MD_Message::createFromBytes(world.bytes.data(), static_cast<std::uint32_t>(world.bytes.size()), allocator);
  };
  return {
      {"CreateFromPB", nullptr, [](World& world) { world.made = MD_Message::createFromPB(world.message->getPB()); },
       kAll},
      {"CreateFromBytes", received, [=](World& world) { make(world, MD_Message::DEFAULT_ALLOCATOR); }},
      {"CreateFromBytesWithPools", received, [=](World& world) { make(world, world.pools); }},
      {"CreatePreferred",
       [](World& world) {
         prefer(world.message->getPB() == 6 ? 1 : 6);
         MD_Message::createPreferred(false);
         prefer(world.message->getPB());
       },
       [](World& world) { world.made = MD_Message::createPreferred(false); }},
      {"CreateEmpty", nullptr, [](World& world) { world.made = world.message->createEmpty(); }},
      {"Clone", nullptr, [](World& world) { world.made = world.message->clone(); }},
      {"MoveToNew", nullptr, [](World& world) { world.made = world.message->moveToNew(); }, kAll, false, true},
      {"ClearAfterAMove",
       [](World& world) { world.made = world.message->moveToNew(); },
       [](World& world) { world.message->clearImpl(); },
       {ENCODINGS::MINT, ENCODINGS::ITERMAP},
       true,
       true},
      {"SetBinary", received, [](World& world) { setBinary(*world.message, world.bytes); }, kAll, true},
      {"CopyFromMInt", source(6), copy},
      {"CopyFromIterMap", source(1), copy},
      {"CopyFromMsgT", source(ENCODINGS::MSGT), copy},
      {"CopyOntoManyShorterFields", longerSource, copy},
      {"FieldIds", nullptr,
       [](World& world) {
         Ids ids;
         world.message->get_field_ids(ids);
         world.result = ids.size() == 7;
       }},
      {"Iterate", nullptr,
       [](World& world) {
         int fields = 0;
         for (auto i = world.message->begin(); i != world.message->end(); i++) {
           fields += i.id() != 0 ? 1 : 0;
         }
         world.result = fields == 7;
       }},
      {"Print", nullptr, [](World& world) { printInto(world, [&](std::ostream& out) { out << *world.message; }); }},
      {"PrintPrices", nullptr,
       [](World& world) { printInto(world, [&](std::ostream& out) { out << PriceOutput(*world.message); }); }},
      {"AddAfterAReload", larger, [](World& world) { world.result = world.message->add(kFirstNew + 400, 5); }},
      {"UpdateAfterAReload", larger, [](World& world) { world.result = world.message->update(kFirstNew + 400, 5); }},
      {"ResizeAfterAReload", larger, [](World& world) { world.result = world.message->update(id::kString, "IBM"); }},
      {"EraseAfterAReload", larger, [](World& world) { world.result = world.message->eraseImpl(id::kChar); }},
      {"EraseOfManyAfterAReload", larger,
       [](World& world) {
         static const Ids ids = {id::kChar, id::kInt};
         world.result = world.message->eraseArrayImpl(ids);
       }},
      {"SetBinaryAfterAReload",
       [=](World& world) {
         received(world);
         reloadDictionary(true);
       },
       [](World& world) { setBinary(*world.message, world.bytes); }},
      {"CloneAfterAReload", larger, [](World& world) { world.made = world.message->clone(); }},
  };
}

std::vector<Operation> allOperations(bool withFreshObjects) {
  std::vector<Operation> operations = operationsOnFields();
  for (const auto& more : {operationsOfEachType(), operationsOnMessages()}) {
    std::copy_if(more.begin(), more.end(), std::back_inserter(operations),
                 [=](const Operation& operation) { return withFreshObjects || !operation.needsFreshObjects; });
  }
  return operations;
}

class MemoryFaults : public testing::TestWithParam<Operation> {
 protected:
  void SetUp() override {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
    GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  }

  static void failEach(std::uint8_t code, PoolKind kind, Failing failing) {
    const Operation& operation = GetParam();
    const long failures = failEveryAllocation(
        failing,
        [&] {
          auto world = std::make_unique<World>(code, kind);
          if (operation.prepare) {
            operation.prepare(*world);
          }
          world->emptiedMemory = std::make_unique<EmptiedMessageMemory>();
          return world;
        },
        operation.run);
    // An IterMap borrows from the shared pools whatever it is given; their buffers may be large enough already.
    const bool isWarm = kind != PoolKind::Shared && code == 1;
    if (!isWarm && (heap::kMallocFails || !operation.isBufferGrowth)) {
      EXPECT_GE(failures, 1) << "nothing failed";
    }
  }

  static void failEachOfEveryEncoding(PoolKind kind) {
    for (const std::uint8_t code : GetParam().codes) {
      for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
        SCOPED_TRACE("code " + std::to_string(code) + (failing == Failing::Once ? " once" : " from then on"));
        failEach(code, kind, failing);
      }
    }
  }

  ConfigurationFolder m_folder;
  SilencedErrors m_silence;
};

class MemoryFaultsOfSharedPools : public MemoryFaults {};

TEST_P(MemoryFaultsOfSharedPools, LeaveEverythingAsItWas) { failEachOfEveryEncoding(PoolKind::Shared); }

class MemoryFaultsOfOwnPools : public MemoryFaults {};

TEST_P(MemoryFaultsOfOwnPools, LeaveEverythingAsItWas) { failEachOfEveryEncoding(PoolKind::Own); }

TEST_P(MemoryFaultsOfOwnPools, LeaveEverythingAsItWasAfterASwap) { failEachOfEveryEncoding(PoolKind::Swapped); }

TEST_P(MemoryFaultsOfOwnPools, LeakNothing) {
  for (const std::uint8_t code : GetParam().codes) {
    SCOPED_TRACE("code " + std::to_string(code));
    expectNoLeak([&] { failEach(code, PoolKind::Own, Failing::FromThenOn); });
  }
}

INSTANTIATE_TEST_SUITE_P(Each, MemoryFaultsOfSharedPools, testing::ValuesIn(allOperations(true)),
                         [](const auto& row) { return row.param.name; });
INSTANTIATE_TEST_SUITE_P(Each, MemoryFaultsOfOwnPools, testing::ValuesIn(allOperations(false)),
                         [](const auto& row) { return row.param.name; });

std::unique_ptr<World> withBadFieldReceived(std::uint8_t code) {
  auto world = std::make_unique<World>(code, PoolKind::Own);
  const auto received = MD_Message::createFromPB(code);
  received->add(id::kChar, 'a');
  world->bytes = bytesOf(*received);
  const Bytes unknown = unknownRecord(code);
  world->bytes.insert(world->bytes.end(), unknown.begin(), unknown.end());
  return world;
}

void parseBadFields() {
  const SilencedErrors silence;
  for (const std::uint8_t code : kAll) {
    for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
      const long failures = failEveryAllocation(
          failing, [&] { return withBadFieldReceived(code); },
          [](World& world) { setBinary(*world.message, world.bytes); });
      EXPECT_GE(failures, 5) << "code " << int{code};
    }
  }
}

// Reports take memory too; where there is none they are lost. At most 101 are made in a process, so this takes one.
TEST(MemoryFaultsOfReportsDeathTest, LeaveTheMessageOfAParseOfBadFields) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  expectInFreshProcess(&parseBadFields);
}

// Variants ------------------------------------------------------------------------------------------------------------

struct Variants {
  MD_Variant source;
  MD_Variant target{70000};
  std::string text = "nothing";
};

std::string describe(const Variants& variants) {
  std::ostringstream text;
  for (const MD_Variant* variant : {&variants.source, &variants.target}) {
    text << variant->type() << " " << *variant << "\n";
  }
  return text.str() + variants.text;
}

struct VariantOperation {
  const char* name;
  void (*run)(Variants& variants);
};

void PrintTo(const VariantOperation& operation, std::ostream* out) { *out << operation.name; }

class VariantFaults : public testing::TestWithParam<VariantOperation> {};

TEST_P(VariantFaults, LeaveTheVariantAsItWas) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  static const std::string text(100, 'x');
  static const std::vector<MD_Variant> sources = {
      MD_Variant(text), MD_Variant(bufferOf(text)), MD_Variant(MD_DateTime(20240115, 1, 2)),
      MD_Variant::ofFoldedInts({{std::uint16_t{1}, 2}, {std::uint16_t{2}, 3}})};
  const SilencedErrors silence;
  long failures = 0;
  const auto failEach = [&](Failing failing) {
    for (const MD_Variant& source : sources) {
      failures += failEveryAllocation(
          failing,
          [&] {
            auto variants = std::make_unique<Variants>();
            variants->source = source;
            return variants;
          },
          GetParam().run);
    }
  };
  failEach(Failing::Once);
  expectNoLeak([&] { failEach(Failing::FromThenOn); });
  EXPECT_GE(failures, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Each, VariantFaults,
    testing::Values(
        VariantOperation{"Copy", [](Variants& variants) { MD_Variant(variants.source).swap(variants.target); }},
        VariantOperation{"Assign", [](Variants& variants) { variants.target = variants.source; }},
        VariantOperation{"AssignToItself",
                         [](Variants& variants) {
                           const MD_Variant& same = variants.source;
                           variants.source = same;
                         }},
        VariantOperation{"SetText", [](Variants& variants) { variants.target.set(std::string(50, 'y')); }},
        VariantOperation{
            "SetView", [](Variants& variants) { variants.target.set(MD_Message::String("a text that is long", 19)); }},
        VariantOperation{"SetEmptyView", [](Variants& variants) { variants.target.set(MD_Message::String()); }},
        VariantOperation{"SetBuffer", [](Variants& variants) { variants.target.set(bufferOf("bytes")); }},
        VariantOperation{"SetDateTime", [](Variants& variants) { variants.target.set(MD_DateTime(20240115, 3, 4)); }},
        VariantOperation{"Construct", [](Variants& variants) { variants.target = MD_Variant("a text that is long"); }},
        VariantOperation{"FoldedInts",
                         [](Variants& variants) {
                           variants.target = MD_Variant::ofFoldedInts({{std::uint16_t{7}, 8}});
                         }},
        VariantOperation{"GetText",
                         [](Variants& variants) {
                           if (variants.source.type() == DATATYPES::STRING) {
                             variants.text = variants.source.get<std::string>();
                           }
                         }}),
    [](const auto& row) { return row.param.name; });

// Threads -------------------------------------------------------------------------------------------------------------

// A thread's first messages set up what it keeps for the next.
TEST(MemoryFaultsOfThreads, LeaveAThreadUsable) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  reloadDictionary(false);
  const std::unique_ptr<MD_Message> original = MD_Message::createFromPB(6);
  original->add(id::kInt, 5);
  for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
    bool hasFailed = true;
    for (long failed = 0; hasFailed; ++failed) {
      SCOPED_TRACE(failed);
      ASSERT_LT(failed, 100);
      std::thread([&] {
        hasFailed = runFailing(failed, failing, [&] { original->clone(); }).hasFailed;
        const auto copy = original->clone();
        EXPECT_EQ(hexOf(*copy), hexOf(*original));
      }).join();
    }
  }
}

}  // namespace
}  // namespace MD::test
