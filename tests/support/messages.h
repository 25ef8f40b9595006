// Bytes, fields and sample values of messages, for tests.
#ifndef MD_TESTS_SUPPORT_MESSAGES_H
#define MD_TESTS_SUPPORT_MESSAGES_H

#include <cstdint>
#include <cstring>

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "md/md_message.h"
#include "support/dictionary.h"

namespace MD::test {

using Bytes = std::vector<std::uint8_t>;
using Ids = std::vector<std::uint16_t>;

/// "06 2C 01" and back.
inline Bytes fromHex(std::string_view text) {
  Bytes bytes;
  const auto digit = [](char c) { return c <= '9' ? c - '0' : (c & ~0x20) - 'A' + 10; };
  for (std::size_t i = 0; i + 1 < text.size(); ++i) {
    if (text[i] != ' ' && text[i] != '\n') {
      bytes.push_back(static_cast<std::uint8_t>(digit(text[i]) * 16 + digit(text[i + 1])));
      ++i;
    }
  }
  return bytes;
}

inline std::string toHex(const Bytes& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += text.empty() ? "" : " ";
    text += "0123456789ABCDEF"[byte >> 4];
    text += "0123456789ABCDEF"[byte & 15];
  }
  return text;
}

inline Bytes bytesOf(const MD_Message& message) {
  const std::uint8_t* first = message.getBinary();
  return first == nullptr ? Bytes() : Bytes(first, first + message.getSizeImpl());
}

inline std::string hexOf(const MD_Message& message) { return toHex(bytesOf(message)); }

inline Ids idsOf(const MD_Message& message) {
  Ids ids;
  message.get_field_ids(ids);
  return ids;
}

/// A copy of bytes in a heap block of exactly their size, so that reading one byte too many is caught.
class HeapBlock {
 public:
  explicit HeapBlock(const Bytes& bytes) : HeapBlock(bytes.data(), bytes.size()) {}
  HeapBlock(const std::uint8_t* first, std::size_t count) : m_size(count), m_bytes(new std::uint8_t[count]) {
    if (count != 0) {
      std::memcpy(m_bytes.get(), first, count);
    }
  }

  const std::uint8_t* data() const { return m_bytes.get(); }
  std::uint32_t size() const { return static_cast<std::uint32_t>(m_size); }

 private:
  std::size_t m_size;
  std::unique_ptr<std::uint8_t[]> m_bytes;
};

/// A message of an encoding id, made from bytes that are gone afterwards.
inline std::unique_ptr<MD_Message> parse(std::uint8_t code, const Bytes& bytes) {
  auto message = MD_Message::createFromPB(code);
  const HeapBlock block(bytes);
  message->setBinaryImpl(block.data(), block.size());
  return message;
}

/// The same with a class.
template <class Encoding>
std::unique_ptr<Encoding> parse(const Bytes& bytes) {
  auto message = std::make_unique<Encoding>();
  const HeapBlock block(bytes);
  message->setBinaryImpl(block.data(), block.size());
  return message;
}

/// Calls `use` with a value-initialised object of each value type and the type's name.
template <class Use>
void forEachValueType(Use use) {
#define MD_USE(T, name, code) use(T{}, #name);
  MD_VALUE_TYPES(MD_USE)
#undef MD_USE
}

/// The value's bytes; two values are the same when these are, not-a-numbers included.
template <class T>
std::string rawOf(const T& value) {
  if constexpr (std::is_same_v<T, MD_Message::String> || std::is_same_v<T, MD_Message::Buffer>) {
    return value.length == 0 ? std::string() : std::string(value.data, value.data + value.length);
  } else {
    std::string raw(sizeof value, '\0');
    std::memcpy(raw.data(), &value, sizeof value);
    return raw;
  }
}

/// One of the two fields of kDictionary that have the type of `T`.
template <class T>
std::uint16_t fieldOf(bool second = false) {
  if constexpr (std::is_same_v<T, char>) {
    return second ? id::kChar2 : id::kChar;
  } else if constexpr (std::is_same_v<T, std::int32_t>) {
    return second ? id::kInt2 : id::kInt;
  } else if constexpr (std::is_same_v<T, std::int64_t>) {
    return second ? id::kInt64b : id::kInt64;
  } else if constexpr (std::is_same_v<T, float>) {
    return second ? id::kFloat2 : id::kFloat;
  } else if constexpr (std::is_same_v<T, double>) {
    return second ? id::kDouble2 : id::kDouble;
  } else if constexpr (std::is_same_v<T, MD_Message::String>) {
    return second ? id::kString2 : id::kString;
  } else if constexpr (std::is_same_v<T, MD_Message::Buffer>) {
    return second ? id::kBuffer2 : id::kBuffer;
  } else if constexpr (std::is_same_v<T, MD_DateTime>) {
    return second ? id::kDateTime2 : id::kDateTime;
  } else {
    static_assert(std::is_same_v<T, MD_EpochNS>);
    return second ? id::kEpochNS2 : id::kEpochNS;
  }
}

inline MD_Message::Buffer bufferOf(std::string_view bytes) {
  static_assert(sizeof(char) == sizeof(std::uint8_t));
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), static_cast<std::uint16_t>(bytes.size())};
}

/// Values of each type, its limits among them. Every encoding can hold every one.
template <class T>
std::vector<T> samplesOf() {
  static const std::string longest(254, 'x');
  static const std::string longestBytes(255, '\xA5');
  using Limits = std::numeric_limits<T>;
  if constexpr (std::is_same_v<T, char>) {
    return {'A', '\0', '\xFF', '\x80'};
  } else if constexpr (std::is_integral_v<T>) {
    return {0,     1,     -1,     127,    128,   -128,  255,           256,
            32767, 32768, -32768, -32769, 65535, 65536, Limits::max(), Limits::min()};
  } else if constexpr (std::is_floating_point_v<T>) {
    return {T{0},
            -T{0},
            T{1.5},
            T{-0.375},
            Limits::max(),
            Limits::lowest(),
            Limits::denorm_min(),
            Limits::infinity(),
            -Limits::infinity(),
            Limits::quiet_NaN()};
  } else if constexpr (std::is_same_v<T, MD_Message::String>) {
    return {std::string_view("IBM"), std::string_view(""), std::string_view("a\0b", 3), std::string_view(longest)};
  } else if constexpr (std::is_same_v<T, MD_Message::Buffer>) {
    return {bufferOf({"\x01\x00\xFF", 3}), bufferOf(""), bufferOf(longestBytes)};
  } else if constexpr (std::is_same_v<T, MD_DateTime>) {
    return {MD_DateTime(20240115, 93000000, -300), MD_DateTime(), MD_DateTime(21551231, (1 << 28) - 1, -1)};
  } else {
    static_assert(std::is_same_v<T, MD_EpochNS>);
    return {MD_EpochNS(1705310000123456789), MD_EpochNS(), MD_EpochNS(std::numeric_limits<std::uint64_t>::max())};
  }
}

/// What tests do with a value type, so that they loop over types (and pairs of types) instead of being compiled for
/// each.
struct ValueType {
  const char* name;
  std::string definedAs;  ///< its name in dictionary files
  std::uint8_t code;
  std::uint16_t field;  ///< in kDictionary, as is the next
  std::uint16_t otherField;
  std::size_t sampleCount;
  std::string (*raw)(std::size_t sample);
  bool (*add)(MD_Message& message, std::uint16_t id, std::size_t sample);
  bool (*update)(MD_Message& message, std::uint16_t id, std::size_t sample);
  /// Reads into a variable that holds `sample`; `raw` is what it holds afterwards.
  bool (*get)(const MD_Message& message, std::uint16_t id, std::size_t sample, std::string& raw);

  std::size_t lastSample() const { return sampleCount - 1; }
};

template <class T>
ValueType valueTypeOf(const char* name, const std::string& constant, std::uint8_t code) {
  static const std::vector<T> samples = samplesOf<T>();
  return {
      name,
      constant.substr(constant.rfind(':') + 1),
      code,
      fieldOf<T>(),
      fieldOf<T>(true),
      samples.size(),
      [](std::size_t sample) { return rawOf(samples.at(sample)); },
      [](MD_Message& message, std::uint16_t id, std::size_t sample) { return message.add(id, samples.at(sample)); },
      [](MD_Message& message, std::uint16_t id, std::size_t sample) { return message.update(id, samples.at(sample)); },
      [](const MD_Message& message, std::uint16_t id, std::size_t sample, std::string& raw) {
        T value = samples.at(sample);
        const bool result = message.get(id, value);
        raw = rawOf(value);
        return result;
      }};
}

inline const std::vector<ValueType>& valueTypes() {
  static const std::vector<ValueType> types = {
#define MD_USE(T, name, code) valueTypeOf<T>(#name, #code, code),
      MD_VALUE_TYPES(MD_USE)
#undef MD_USE
  };
  return types;
}

}  // namespace MD::test

#endif
