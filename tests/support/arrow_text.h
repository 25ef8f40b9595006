// Reads Arrow structures by the rules of the Arrow C data interface, and shows them as text.
#ifndef MD_TESTS_SUPPORT_ARROW_TEXT_H
#define MD_TESTS_SUPPORT_ARROW_TEXT_H

#include <cstdint>
#include <cstring>

#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "md/md_arrow.h"

namespace MD::test {

/// A structure that is released at the end.
template <class Structure>
class Released {
 public:
  Released() = default;
  ~Released() { release(); }
  Released(const Released&) = delete;
  Released& operator=(const Released&) = delete;

  void release() {
    if (m_structure.release != nullptr) {
      m_structure.release(&m_structure);
    }
  }
  Structure* operator&() { return &m_structure; }
  Structure* operator->() { return &m_structure; }
  Structure& operator*() { return m_structure; }

 private:
  Structure m_structure{};
};

inline std::string typeText(const ArrowSchema& schema) {
  std::string text = std::string(schema.name) + ":" + schema.format + ((schema.flags & ARROW_FLAG_NULLABLE) ? "?" : "");
  for (std::int64_t i = 0; i != schema.n_children; ++i) {
    text += (i == 0 ? "(" : " ") + typeText(*schema.children[i]);
  }
  text += schema.n_children != 0 ? ")" : "";
  return schema.dictionary != nullptr ? text + "[" + typeText(*schema.dictionary) + "]" : text;
}

template <class T>
T arrowValue(const ArrowArray& array, std::int64_t buffer, std::int64_t index) {
  T value;
  std::memcpy(&value, static_cast<const char*>(array.buffers[buffer]) + static_cast<std::size_t>(index) * sizeof value,
              sizeof value);
  return value;
}

inline bool isNull(const ArrowArray& array, std::int64_t row) {
  if (array.buffers[0] == nullptr) {
    if (array.null_count != 0) {
      throw std::runtime_error("an array with nulls and no bitmap");
    }
    return false;
  }
  return (static_cast<const std::uint8_t*>(array.buffers[0])[row / 8] >> (row % 8) & 1) == 0;
}

/// The bytes of a value, as rawOf() has those of a message; of a date-time its parts as text.
inline std::string arrowRaw(const ArrowSchema& schema, const ArrowArray& array, std::int64_t row) {
  const std::string_view format = schema.format;
  const auto bytesOf = [](const auto& value) {
    std::string raw(sizeof value, '\0');
    std::memcpy(raw.data(), &value, sizeof value);
    return raw;
  };
  if (schema.dictionary != nullptr) {
    const auto number = arrowValue<std::int32_t>(array, 1, row);
    if (number < 0 || number >= array.dictionary->length) {
      throw std::runtime_error("a number beyond the dictionary");
    }
    return arrowRaw(*schema.dictionary, *array.dictionary, number);
  }
  if (format == "i" || format == "f") {
    return bytesOf(arrowValue<std::int32_t>(array, 1, row));
  }
  if (format == "s") {
    return bytesOf(arrowValue<std::int16_t>(array, 1, row));
  }
  if (format == "l" || format == "g" || format == "tsn:UTC") {
    return bytesOf(arrowValue<std::int64_t>(array, 1, row));
  }
  if (format == "u" || format == "z") {
    const auto begin = arrowValue<std::int32_t>(array, 1, row);
    const auto end = arrowValue<std::int32_t>(array, 1, row + 1);
    if (begin < 0 || end < begin) {
      throw std::runtime_error("offsets that go back");
    }
    return {static_cast<const char*>(array.buffers[2]) + begin, static_cast<std::size_t>(end - begin)};
  }
  if (format != "+s") {
    throw std::runtime_error("unexpected format " + std::string(format));
  }
  return std::to_string(arrowValue<std::int32_t>(*array.children[0], 1, row)) + " " +
         std::to_string(arrowValue<std::int32_t>(*array.children[1], 1, row)) + " " +
         std::to_string(arrowValue<std::int16_t>(*array.children[2], 1, row));
}

/// A value for people: a number, text in quotes, null.
inline std::string arrowText(const ArrowSchema& schema, const ArrowArray& array, std::int64_t row) {
  if (isNull(array, row)) {
    return "null";
  }
  const std::string raw = arrowRaw(schema, array, row);
  const std::string_view format = schema.dictionary != nullptr ? schema.dictionary->format : schema.format;
  const auto number = [&raw](auto value) {
    std::memcpy(&value, raw.data(), sizeof value);
    std::ostringstream text;
    text << value;
    return text.str();
  };
  return format == "i"    ? number(std::int32_t{})
         : format == "f"  ? number(float{})
         : format == "g"  ? number(double{})
         : format == "u"  ? "'" + raw + "'"
         : format == "z"  ? "x'" + raw + "'"
         : format == "+s" ? "(" + raw + ")"
                          : number(std::int64_t{});
}

/// One line per row: the values of its columns.
inline std::string batchText(const ArrowSchema& schema, const ArrowArray& batch) {
  std::string text;
  for (std::int64_t row = 0; row != batch.length; ++row) {
    for (std::int64_t column = 0; column != batch.n_children; ++column) {
      text += (column == 0 ? "" : " ") + arrowText(*schema.children[column], *batch.children[column], row);
    }
    text += '\n';
  }
  return text;
}

/// All batches of a stream, a line of dashes between two.
inline std::string streamText(ArrowArrayStream& stream) {
  Released<ArrowSchema> schema;
  if (stream.get_schema(&stream, &schema) != 0) {
    throw std::runtime_error(stream.get_last_error(&stream));
  }
  std::string text;
  for (bool isFirst = true;; isFirst = false) {
    Released<ArrowArray> batch;
    if (stream.get_next(&stream, &batch) != 0) {
      throw std::runtime_error(stream.get_last_error(&stream));
    }
    if (batch->release == nullptr) {
      return text;
    }
    text += (isFirst ? "" : "---\n") + batchText(*schema, *batch);
  }
}

}  // namespace MD::test

#endif
