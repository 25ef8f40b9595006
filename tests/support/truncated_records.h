// Records that a message ends within, for the tests of the encodings.
#ifndef MD_TESTS_SUPPORT_TRUNCATED_RECORDS_H
#define MD_TESTS_SUPPORT_TRUNCATED_RECORDS_H

#include <cstddef>
#include <cstdint>

#include <string>

#include <gtest/gtest.h>

#include "md/md_message.h"
#include "support/captured_errors.h"
#include "support/messages.h"

namespace MD::test {

/// The last record of a message, and what the message says of it.
struct TruncatedRecord {
  const char* name;
  const char* bytes;
  std::uint16_t id;
  std::uint8_t type;
  std::size_t sizeBytes;
};

/// The record, all that the message holds, is listed, given to no read of any type, and can be erased.
/// @param getError  the line that each read reports
inline void expectListedButNotRead(MD_Message& message, const TruncatedRecord& record, const std::string& getError,
                                   CapturedErrors& errors) {
  EXPECT_EQ(idsOf(message), Ids{record.id});
  EXPECT_EQ(message.fieldCount(), 1u);
  EXPECT_EQ(errors.take(), "");
  for (const ValueType& type : valueTypes()) {
    std::string read;
    EXPECT_FALSE(type.get(message, record.id, 0, read));
    EXPECT_EQ(errors.take(), report(getError, record.id, record.type, record.sizeBytes));
  }
  std::uint8_t type = 0;
  std::uint32_t size = 0;
  const std::uint8_t* const data = message.fieldData(record.id, type, size);
  EXPECT_GT(data, message.getBinary());
  EXPECT_LE(data, message.getBinary() + message.getSizeImpl());
  EXPECT_EQ(type, record.type);
  EXPECT_EQ(size, record.sizeBytes);
  EXPECT_TRUE(message.eraseImpl(record.id));
  EXPECT_TRUE(message.emptyImpl());
}

}  // namespace MD::test

#endif
