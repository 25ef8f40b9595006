// Fields read and written through a message's own class, where the plain cases are inlined into the caller: each
// operation does what the reference model does, whatever the bytes, the field and the value.
#include "md/md_record_message.h"

#include <cstddef>
#include <cstdint>

#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"
#include "support/captured_errors.h"
#include "support/dictionary.h"
#include "support/fresh_buffer.h"
#include "support/messages.h"
#include "support/reference_comparison.h"
#include "support/reference_model.h"

namespace MD::test {
namespace {

/// Values of a type, and of strings and buffers such as the compact encoding cannot hold.
template <class T>
std::vector<T> valuesOf() {
  static const std::string tooLong(300, 'y');
  const std::vector<T> samples = samplesOf<T>();
  std::vector<T> values = {samples[0], samples[1], samples.back()};
  if constexpr (std::is_same_v<T, MD_Message::String>) {
    values.push_back(std::string_view(tooLong));
  } else if constexpr (std::is_same_v<T, MD_Message::Buffer>) {
    values.push_back(bufferOf(tooLong));
  }
  return values;
}

template <class Encoding>
class OwnClass : public testing::Test {
 protected:
  static constexpr std::uint16_t kOtherType = id::kShort;  ///< the type of no value

  OwnClass() { loadDictionary(kDictionary); }

  static ReferenceMessage modelOf(const Bytes& bytes) {
    ReferenceMessage model(static_cast<ReferenceMessage::Encoding>(Encoding().getPB()));
    model.setBinary(bytes);
    model.takeErrors();
    return model;
  }

  /// Reads a field into a variable that holds `value`.
  template <class T>
  static void expectRead(const Encoding& message, ReferenceMessage& model, std::uint16_t id, const T& value) {
    CapturedErrors errors;
    T read = value;
    const bool result = message.get(id, read);
    const std::optional<std::string> expected = model.get(id, detail::kTypeCode<T>);
    EXPECT_EQ(result, expected.has_value()) << "get of " << id;
    EXPECT_EQ(rawOf(read), expected.value_or(rawOf(value))) << "get of " << id;
    EXPECT_EQ(errors.take(), model.takeErrors());
  }

  template <class T>
  static void expectWritten(Encoding& message, ReferenceMessage& model, std::uint16_t id, const T& value,
                            bool isUpdate) {
    CapturedErrors errors;
    const ModelValue modelValue{detail::kTypeCode<T>, rawOf(value)};
    const bool result = isUpdate ? message.update(id, value) : message.add(id, value);
    EXPECT_EQ(result, isUpdate ? model.update(id, modelValue) : model.add(id, modelValue));
    EXPECT_EQ(errors.take(), model.takeErrors());
    EXPECT_EQ(differenceOf(message, model), "") << (isUpdate ? "update of " : "add of ") << id;
    expectRead(message, model, id, value);
  }

  /// Every operation with every value on messages of the same bytes.
  template <class T>
  static void expectOperations(const Bytes& bytes, const std::vector<std::uint16_t>& ids) {
    for (const T& value : valuesOf<T>()) {
      for (const std::uint16_t id : ids) {
        for (const bool isUpdate : {false, true}) {
          CapturedErrors errors;
          const auto message = parse<Encoding>(bytes);
          ReferenceMessage model = modelOf(bytes);
          errors.take();
          expectRead(*message, model, id, value);
          expectWritten(*message, model, id, value, isUpdate);
        }
      }
    }
  }

  /// The bytes of a message of two fields and one after them.
  template <class T>
  static Bytes threeFields() {
    Encoding message;
    EXPECT_TRUE(message.add(fieldOf<T>(true), samplesOf<T>()[0]));
    EXPECT_TRUE(message.add(fieldOf<T>(), samplesOf<T>()[0]));
    EXPECT_TRUE(message.add(id::kOptiPrice, 5));
    return bytesOf(message);
  }

  /// Adds a field that is absent: its record follows what is there.
  template <class T>
  static void expectAppended(Encoding& message, std::uint16_t id, const T& value, bool isUpdate) {
    Encoding alone;
    ASSERT_TRUE(alone.add(id, value));
    const Bytes record = bytesOf(alone);
    Bytes expected = bytesOf(message);
    expected.insert(expected.end(), record.begin() + Encoding().getSizeImpl(), record.end());
    ASSERT_TRUE(isUpdate ? message.update(id, value) : message.add(id, value));
    EXPECT_TRUE(bytesOf(message) == expected) << "holds " << hexOf(message);
    EXPECT_FALSE(message.add(id, value));
    T read{};
    EXPECT_TRUE(message.get(id, read));
    EXPECT_EQ(rawOf(read), rawOf(value));
  }

  /// Loads more fields than any table has been made for, last of all one of each type with the id `first` and its code.
  static void loadMoreFields(unsigned first) {
    static unsigned fillers = 0;
    fillers += 10;
    std::string dictionary = kDictionary;
    for (unsigned i = 0; i < fillers; ++i) {
      dictionary += "F" + std::to_string(i) + " " + std::to_string(42000 + i) + " INT\n";
    }
    for (const ValueType& type : valueTypes()) {
      dictionary += "NEW_" + type.definedAs + " " + std::to_string(first + type.code) + " " + type.definedAs + "\n";
    }
    loadDictionary(dictionary);
  }

  template <class Use>
  static void forEachType(Use use) {
    forEachValueType([&](auto value, const char* name) {
      SCOPED_TRACE(name);
      use(value);
    });
  }
};

using Encodings = testing::Types<mInt, IterMap, MsgT>;
TYPED_TEST_SUITE(OwnClass, Encodings, );

TYPED_TEST(OwnClass, WorksOnFieldsThatAreThereAndFieldsThatAreNot) {
  this->forEachType([&](auto value) {
    using T = decltype(value);
    const std::uint16_t otherType = std::is_same_v<T, std::int32_t> ? id::kDouble : id::kInt;
    const std::vector<std::uint16_t> ids = {fieldOf<T>(), fieldOf<T>(true), otherType, TestFixture::kOtherType,
                                            id::kUnknown, id::kBeyond,      id::kRaw};
    for (const T& stored : samplesOf<T>()) {
      TypeParam message;
      EXPECT_TRUE(
          message.add(otherType, std::conditional_t<std::is_same_v<T, std::int32_t>, double, std::int32_t>(70000)));
      this->template expectOperations<T>(bytesOf(message), ids);
      EXPECT_TRUE(message.add(fieldOf<T>(), stored));
      this->template expectOperations<T>(bytesOf(message), ids);
    }
  });
}

TYPED_TEST(OwnClass, WorksOnMessagesThatAreCutOff) {
  this->forEachType([&](auto value) {
    using T = decltype(value);
    const Bytes whole = this->template threeFields<T>();
    for (std::size_t size = 0; size < whole.size(); ++size) {
      SCOPED_TRACE(std::to_string(size) + " bytes");
      const Bytes bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
      this->template expectOperations<T>(bytes, {fieldOf<T>(), fieldOf<T>(true), id::kOptiPrice});
    }
  });
}

TYPED_TEST(OwnClass, WorksOnChangedBytes) {
  this->forEachType([&](auto value) {
    using T = decltype(value);
    const Bytes whole = this->template threeFields<T>();
    for (std::size_t position = TypeParam().getSizeImpl(); position < whole.size(); ++position) {
      for (const unsigned change : {0x01U, 0x04U, 0x80U}) {
        SCOPED_TRACE("byte " + std::to_string(position) + " changed by " + std::to_string(change));
        Bytes bytes = whole;
        bytes[position] = static_cast<std::uint8_t>(bytes[position] ^ change);
        this->template expectOperations<T>(bytes, {fieldOf<T>(), fieldOf<T>(true), id::kOptiPrice});
      }
    }
  });
}

TYPED_TEST(OwnClass, GrowsAFullBuffer) {
  constexpr std::uint32_t kStepBytes = 1024;
  std::string dictionary = kDictionary;
  for (int id = 1001; id <= 1008; ++id) {
    dictionary += "F" + std::to_string(id) + " " + std::to_string(id) + " BUFFER\n";
  }
  loadDictionary(dictionary);
  for (std::uint32_t left = 0; left <= 16; ++left) {
    SCOPED_TRACE(std::to_string(left) + " bytes left");
    TypeParam padded;
    const std::uint32_t headBytes = padded.getPB() == 6 ? 3 : padded.getPB() == 1 ? 6 : 8;
    for (std::uint16_t id = 1001; padded.getSizeImpl() != kStepBytes - left; ++id) {
      const std::uint32_t free = kStepBytes - left - padded.getSizeImpl() - headBytes;
      ASSERT_TRUE(padded.add(id, bufferOf(std::string(free > 240 ? 220 : free, 'x'))));
    }
    const Bytes before = bytesOf(padded);
    this->forEachType([&](auto value) {
      using T = decltype(value);
      for (const T& sample : {samplesOf<T>()[0], samplesOf<T>().back()}) {
        for (const bool isUpdate : {false, true}) {
          const FreshNextBuffer fresh;
          const auto message = parse<TypeParam>(before);
          this->expectAppended(*message, fieldOf<T>(), sample, isUpdate);
        }
      }
    });
  }
}

// A table that was made for fewer fields has no place for the new ones.
TYPED_TEST(OwnClass, WorksAfterAReloadThatBringsMoreFields) {
  constexpr std::uint16_t kNew = 41000;
  this->forEachType([&](auto value) {
    using T = decltype(value);
    for (const bool isUpdate : {false, true}) {
      TypeParam message;
      ASSERT_TRUE(message.add(id::kOptiPrice, 5));
      this->loadMoreFields(kNew);
      const auto id = static_cast<std::uint16_t>(kNew + detail::kTypeCode<T>);
      T read = samplesOf<T>()[1];
      EXPECT_FALSE(message.get(id, read));
      EXPECT_EQ(rawOf(read), rawOf(samplesOf<T>()[1]));
      this->expectAppended(message, id, samplesOf<T>()[0], isUpdate);
      std::int32_t price = 7;
      EXPECT_TRUE(message.get(id::kOptiPrice, price));
      EXPECT_EQ(price, 5);
    }
  });
}

}  // namespace
}  // namespace MD::test
