// The encodings as parameters of tests.
#ifndef MD_TESTS_SUPPORT_ENCODINGS_H
#define MD_TESTS_SUPPORT_ENCODINGS_H

#include <cstdint>

#include <memory>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include "md/md_datatypes.h"
#include "md/md_message.h"
#include "support/messages.h"

namespace MD::ENCODINGS {

inline void PrintTo(const Encoding& encoding, std::ostream* out) { *out << encoding.name; }

}  // namespace MD::ENCODINGS

namespace MD::test {

using ENCODINGS::Encoding;

/// INSTANTIATE_TEST_SUITE_P(Encodings, Suite, eachEncoding(), nameOfEncoding);
inline auto eachEncoding() { return testing::ValuesIn(ENCODINGS::kAll); }
inline std::string nameOfEncoding(const testing::TestParamInfo<Encoding>& info) { return info.param.name; }

inline std::unique_ptr<MD_Message> emptyOf(const Encoding& encoding) { return MD_Message::createFromPB(encoding.code); }

/// What the factory makes of bytes that are gone afterwards.
inline std::unique_ptr<MD_Message> received(const Bytes& bytes) {
  const HeapBlock block(bytes);
  return MD_Message::createFromBytes(block.data(), block.size());
}

/// A record without a value, of the id 999 that is in no row of kDictionary.
inline Bytes unknownRecord(std::uint8_t code) {
  return fromHex(code == ENCODINGS::MSGT ? "03 E7 00 00 00 00 00 00" : code == ENCODINGS::MINT ? "E7 03 00" : "E7 03");
}

}  // namespace MD::test

#endif
