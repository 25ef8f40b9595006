// Columns as DuckDB reads them through the Arrow C stream interface. DUCKDB_LIBRARY names its shared library, which
// scripts/install-deps npm installs; without it the tests are skipped.
#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>

#include <string>

#include <gtest/gtest.h>

#include "md/md_arrow.h"
#include "md/md_mint.h"
#include "support/arrow_text.h"
#include "support/dictionary.h"
#include "support/messages.h"

namespace MD::test {
namespace {

/// What the tests use of DuckDB's C interface.
class DuckDb {
 public:
  DuckDb() {
    m_library = dlopen(DUCKDB_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (m_library != nullptr) {
      EXPECT_EQ(call<int(const char*, void**)>("duckdb_open")(nullptr, &m_database), 0);
      EXPECT_EQ(call<int(void*, void**)>("duckdb_connect")(m_database, &m_connection), 0);
    }
  }
  ~DuckDb() {
    if (m_library != nullptr) {
      call<void(void**)>("duckdb_disconnect")(&m_connection);
      call<void(void**)>("duckdb_close")(&m_database);
    }
  }
  DuckDb(const DuckDb&) = delete;
  DuckDb& operator=(const DuckDb&) = delete;

  bool isThere() const { return m_library != nullptr; }

  /// Makes a view of a stream, which can be read once.
  void scan(const char* name, ArrowArrayStream& stream) {
    EXPECT_EQ(call<int(void*, const char*, void*)>("duckdb_arrow_scan")(m_connection, name, &stream), 0);
  }

  /// The rows of a result: values as text, separated by spaces, each row with a line end; or the error.
  std::string query(const char* sql) {
    Result result{};
    std::string text;
    if (call<int(void*, const char*, Result*)>("duckdb_query")(m_connection, sql, &result) != 0) {
      text = call<const char*(Result*)>("duckdb_result_error")(&result);
    } else {
      const auto columns = call<std::uint64_t(Result*)>("duckdb_column_count")(&result);
      const auto rows = call<std::uint64_t(Result*)>("duckdb_row_count")(&result);
      for (std::uint64_t row = 0; row != rows; ++row) {
        for (std::uint64_t column = 0; column != columns; ++column) {
          char* const value =
              call<char*(Result*, std::uint64_t, std::uint64_t)>("duckdb_value_varchar")(&result, column, row);
          text += (column == 0 ? "" : " ") + std::string(value != nullptr ? value : "null");
          call<void(void*)>("duckdb_free")(value);
        }
        text += '\n';
      }
    }
    call<void(Result*)>("duckdb_destroy_result")(&result);
    return text;
  }

 private:
  struct Result {
    std::uint64_t counts[3];
    void* parts[3];
  };

  template <class Function>
  Function* call(const char* name) {
    void* const function = dlsym(m_library, name);
    EXPECT_NE(function, nullptr) << name;
    return reinterpret_cast<Function*>(function);
  }

  void* m_library = nullptr;
  void* m_database = nullptr;
  void* m_connection = nullptr;
};

TEST(DuckDbReads, ColumnsOfEachTypeInBatches) {
  DuckDb duckdb;
  if (!duckdb.isThere()) {
    GTEST_SKIP() << DUCKDB_LIBRARY << " is not installed; scripts/install-deps npm installs it";
  }
  loadDictionary(kDictionary);
  ColumnOptions options;
  options.batchRows = 1000;
  options.dictionaryFields = {id::kString2};
  ColumnBuilder columns({id::kChar, id::kInt, id::kInt64, id::kFloat, id::kDouble, id::kString, id::kString2,
                         id::kBuffer, id::kDateTime, id::kEpochNS},
                        options);
  for (int i = 0; i != 4500; ++i) {
    MD::mInt message;
    ASSERT_TRUE(message.add(id::kChar, i % 2 == 0 ? 'B' : 'S'));
    ASSERT_TRUE(i % 3 == 0 || message.add(id::kInt, i));
    ASSERT_TRUE(message.add(id::kInt64, std::int64_t{i} << 40));
    ASSERT_TRUE(message.add(id::kFloat, 0.5F * static_cast<float>(i)));
    ASSERT_TRUE(i % 5 == 0 || message.add(id::kDouble, 0.25 * i));
    ASSERT_TRUE(i % 7 == 0 || message.addString(id::kString, "J\xc3\xa4ger " + std::to_string(i)));
    ASSERT_TRUE(i % 11 == 0 || message.addString(id::kString2, "venue " + std::to_string(i % 4)));
    ASSERT_TRUE(message.add(id::kBuffer, bufferOf(i % 2 == 0 ? std::string_view("ab") : std::string_view())));
    ASSERT_TRUE(i % 13 == 0 || message.add(id::kDateTime, MD_DateTime(20240115, i, -300)));
    ASSERT_TRUE(message.add(id::kEpochNS, MD_EpochNS(1705310000123456789 + static_cast<std::uint64_t>(i))));
    const HeapBlock bytes(bytesOf(message));
    ASSERT_TRUE(columns.append(bytes.data(), bytes.size()));
  }
  ArrowArrayStream stream;
  columns.exportStream(&stream);
  duckdb.scan("quotes", stream);
  EXPECT_EQ(duckdb.query("CREATE TABLE t AS SELECT * FROM quotes"), "4500\n");

  EXPECT_EQ(duckdb.query("SELECT column_name, column_type FROM (DESCRIBE t)"),
            "CH VARCHAR\nQTY INTEGER\nSEQ BIGINT\nVOLA FLOAT\nBID DOUBLE\nSYMBOL VARCHAR\nVENUE VARCHAR\nBLOB BLOB\n"
            "WHEN STRUCT(date INTEGER, \"time\" INTEGER, \"offset\" SMALLINT)\nRECV TIMESTAMP WITH TIME ZONE\n");
  EXPECT_EQ(duckdb.query("SELECT count(*), count(CH), count(QTY), count(BID), count(SYMBOL), count(VENUE), "
                         "count(\"WHEN\"), count(RECV) FROM t"),
            "4500 4500 3000 3600 3857 4090 4153 4500\n");
  EXPECT_EQ(duckdb.query("SELECT sum(QTY), sum(SEQ // 1099511627776), sum(VOLA), sum(BID), sum(octet_length(BLOB)), "
                         "sum((\"WHEN\").time) FROM t"),
            "6750000 10122750 5061375.0 2025000.0 4500 9342347\n");
  EXPECT_EQ(duckdb.query("SELECT VENUE, count(*) FROM t WHERE VENUE IS NOT NULL GROUP BY VENUE ORDER BY VENUE"),
            "venue 0 1022\nvenue 1 1023\nvenue 2 1023\nvenue 3 1022\n");
  EXPECT_EQ(duckdb.query("SELECT CH, QTY, BID, SYMBOL, VENUE, BLOB, (\"WHEN\").date, (\"WHEN\").offset FROM t "
                         "WHERE QTY IN (1, 4499) ORDER BY QTY"),
            "S 1 0.25 J\xc3\xa4ger 1 venue 1  20240115 -300\n"
            "S 4499 1124.75 J\xc3\xa4ger 4499 null  20240115 -300\n");
  stream.release == nullptr ? void() : stream.release(&stream);
}

}  // namespace
}  // namespace MD::test
