// Columns when memory runs out, what they allocate, and that every buffer is freed once.
#include <cerrno>
#include <cstdint>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_arrow.h"
#include "md/md_message.h"
#include "md/md_mint.h"
#include "support/arrow_text.h"
#include "support/dictionary.h"
#include "support/faults.h"
#include "support/messages.h"

namespace MD::test {
namespace {

ColumnOptions smallBatches() {
  ColumnOptions options;
  options.batchRows = 2000;  // more than there is room for at first
  options.dictionaryFields = {id::kString2};
  return options;
}

const Ids kFields = {id::kChar,    id::kInt,    id::kDouble,   id::kString,
                     id::kString2, id::kBuffer, id::kDateTime, id::kEpochNS};

/// The bytes of row `number`: long strings, so that no room for them is left over.
Bytes rowBytes(int number) {
  mInt message;
  EXPECT_TRUE(message.add(id::kChar, 'x'));
  EXPECT_TRUE(number % 3 == 0 || message.add(id::kInt, number));
  EXPECT_TRUE(message.add(id::kDouble, 0.5 * number));
  EXPECT_TRUE(message.addString(id::kString, std::to_string(number) + std::string(100, 's')));
  EXPECT_TRUE(message.addString(id::kString2, "venue " + std::to_string(number % 300)));
  EXPECT_TRUE(message.add(id::kBuffer, bufferOf("buffer")));
  EXPECT_TRUE(message.add(id::kDateTime, MD_DateTime(20240115, number, 0)));
  EXPECT_TRUE(message.add(id::kEpochNS, MD_EpochNS(static_cast<std::uint64_t>(number))));
  return bytesOf(message);
}

struct Operation {
  const char* name;
  int rowsBefore;
  void (*run)(ColumnBuilder& columns, const Bytes& row, ArrowArrayStream& stream);
};

void appendOne(ColumnBuilder& columns, const Bytes& row, ArrowArrayStream&) {
  static_cast<void>(columns.append(row.data(), static_cast<std::uint32_t>(row.size())));
}
void exportAll(ColumnBuilder& columns, const Bytes&, ArrowArrayStream& stream) { columns.exportStream(&stream); }

const Operation kOperations[] = {
    {"AppendOfTheFirstRow", 0, appendOne},     {"AppendThatGrowsTheColumns", 1024, appendOne},
    {"AppendOfANewValue", 64, appendOne},      {"AppendThatCompletesABatch", 2000, appendOne},
    {"AppendToAFullBuilder", 4000, appendOne}, {"ExportOfAPart", 10, exportAll},
    {"ExportOfAFullBatch", 2000, exportAll},   {"ExportOfBatches", 4100, exportAll},
};

class ColumnFaults : public testing::TestWithParam<Operation> {
 protected:
  void SetUp() override {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
    GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
    loadDictionary(kDictionary);
  }
};

std::unique_ptr<ColumnBuilder> builderWith(int rows) {
  auto columns = std::make_unique<ColumnBuilder>(kFields, smallBatches());
  for (int i = 0; i != rows; ++i) {
    const Bytes row = rowBytes(i);
    EXPECT_TRUE(columns->append(row.data(), static_cast<std::uint32_t>(row.size())));
  }
  return columns;
}

/// What is in the stream, if it is one, and else what is in the builder.
std::string contents(ColumnBuilder& columns, Released<ArrowArrayStream>& stream) {
  if (stream->release == nullptr) {
    columns.exportStream(&stream);
  }
  return streamText(*stream);
}

TEST_P(ColumnFaults, LeaveEverythingAsItWas) {
  const Operation& operation = GetParam();
  const Bytes row = rowBytes(operation.rowsBefore);
  std::string before;
  std::string after;
  {
    Released<ArrowArrayStream> stream;
    before = contents(*builderWith(operation.rowsBefore), stream);
  }
  {
    Released<ArrowArrayStream> stream;
    const auto columns = builderWith(operation.rowsBefore);
    operation.run(*columns, row, *stream);
    after = contents(*columns, stream);
  }
  long failed = 0;
  for (bool isToRepeat : {false, true}) {
    for (const Failing failing : {Failing::Once, Failing::FromThenOn}) {
      for (failed = 0;; ++failed) {
        ASSERT_LT(failed, 1000);
        Released<ArrowArrayStream> stream;
        const auto columns = builderWith(operation.rowsBefore);
        const std::size_t rows = columns->rows();
        const FaultRun fault = runFailing(failed, failing, [&] { operation.run(*columns, row, *stream); });
        if (fault.hasThrown) {
          ASSERT_EQ(columns->rows(), rows);
          ASSERT_EQ(stream->release, nullptr);
          if (isToRepeat) {
            operation.run(*columns, row, *stream);
          }
        }
        ASSERT_TRUE(contents(*columns, stream) == (fault.hasThrown && !isToRepeat ? before : after)) << failed;
        if (!fault.hasFailed) {
          break;
        }
      }
    }
  }
  EXPECT_GE(failed, heap::kMallocFails ? 1 : 0);
}

TEST_P(ColumnFaults, LeakNothing) {
  const Operation& operation = GetParam();
  const Bytes row = rowBytes(operation.rowsBefore);
  expectNoLeak([&] {
    for (long failed = 0; failed < 30; ++failed) {
      Released<ArrowArrayStream> stream;
      const auto columns = builderWith(operation.rowsBefore);
      runFailing(failed, Failing::FromThenOn, [&] { operation.run(*columns, row, *stream); });
    }
  });
}

INSTANTIATE_TEST_SUITE_P(Each, ColumnFaults, testing::ValuesIn(kOperations),
                         [](const auto& row) { return row.param.name; });

class ColumnMemory : public testing::Test {
 protected:
  ColumnMemory() { loadDictionary(kDictionary); }
};

TEST_F(ColumnMemory, ConstructorFailsWithoutALeak) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  expectNoLeak([] {
    for (long failed = 0;; ++failed) {
      if (!runFailing(failed, Failing::Once, [] { const ColumnBuilder columns(kFields, smallBatches()); }).hasFailed) {
        EXPECT_GE(failed, 5);
        break;
      }
    }
  });
}

TEST_F(ColumnMemory, StreamSaysWhenThereIsNoneForItsSchema) {
#if !defined(MD_ALLOCATIONS_CAN_FAIL)
  GTEST_SKIP() << "allocations fail with the GNU C library and under sanitizers";
#endif
  expectNoLeak([] {
    const auto columns = builderWith(1);
    Released<ArrowArrayStream> stream;
    columns->exportStream(&stream);
    for (long failed = 0;; ++failed) {
      Released<ArrowSchema> schema;
      int code = 0;
      const FaultRun fault = runFailing(failed, Failing::Once, [&] { code = stream->get_schema(&stream, &schema); });
      EXPECT_FALSE(fault.hasThrown);
      EXPECT_EQ(code, fault.hasFailed ? ENOMEM : 0);
      EXPECT_EQ(schema->release == nullptr, fault.hasFailed);
      if (!fault.hasFailed) {
        EXPECT_GE(failed, 5);
        break;
      }
      EXPECT_STREQ(stream->get_last_error(&stream), "out of memory");
    }
  });
}

TEST_F(ColumnMemory, IsFreedOnceWhereverTheConsumerStops) {
#if !defined(MD_ALLOCATIONS_ARE_COUNTED)
  GTEST_SKIP() << "allocations are counted with the GNU C library and under sanitizers";
#endif
  for (int batches = 0; batches <= 4; ++batches) {
    SCOPED_TRACE(batches);
    expectNoLeak([batches] {
      const auto columns = builderWith(5000);
      Released<ArrowArrayStream> stream;
      columns->exportStream(&stream);
      for (int i = 0; i != batches; ++i) {
        Released<ArrowArray> batch;
        EXPECT_EQ(stream->get_next(&stream, &batch), 0);
        if (i == 1) {  // a consumer that keeps a column longer than its batch
          Released<ArrowArray> column;
          *column = *batch->children[4];
          batch->children[4]->release = nullptr;
          batch.release();
          EXPECT_EQ(batch->release, nullptr);
          EXPECT_EQ(column->dictionary->length, 300);
        }
      }
    });
  }
  expectNoLeak([] { builderWith(5000); });  // nobody takes anything
}

TEST_F(ColumnMemory, NothingIsAllocatedPerRow) {
#if !defined(MD_ALLOCATIONS_ARE_COUNTED)
  GTEST_SKIP() << "allocations are counted with the GNU C library and under sanitizers";
#endif
  const auto columns = builderWith(1300);  // and room for 2000, with all values in the dictionary
  std::vector<Bytes> rows;
  for (int i = 0; i != 20; ++i) {
    rows.push_back(rowBytes(i));
  }
  long most = 0;
  int allocating = 0;
  for (int i = 0; i != 600; ++i) {
    const Bytes& row = rows[static_cast<std::size_t>(i) % rows.size()];
    const long count = allocationsOf([&] { columns->append(row.data(), static_cast<std::uint32_t>(row.size())); });
    most = std::max(most, count);
    allocating += count != 0 ? 1 : 0;
  }
  EXPECT_EQ(columns->rows(), 1900U);
  // Text grows by doubling: once for each of the columns that hold some, at most.
  EXPECT_LE(allocating, 3);
  EXPECT_LE(most, 1);
}

}  // namespace
}  // namespace MD::test
