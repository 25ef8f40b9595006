// Subjects with field values in them.
#ifndef MDMSG_NATS_SUBJECT_H
#define MDMSG_NATS_SUBJECT_H

#include <cstddef>
#include <cstdint>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dictionary/field_names.h"

namespace MD::tool {

/// Appends any bytes as one token of a subject. Printable ASCII characters stay as they are, but for '.', '*', '>' and
/// '%'; these and all other bytes become '%' and two upper-case hex digits. No bytes at all become "%". Different bytes
/// give different tokens.
void appendToken(std::string_view value, std::string& subject);

/// The bytes of which appendToken() makes this token; none when it makes it of no bytes.
std::optional<std::string> tokenValue(std::string_view token);

/// The number, below `partitions`, of the partition to which a value belongs: its 64-bit FNV-1a hash modulo
/// `partitions`.
std::uint64_t partitionOf(std::string_view value, std::uint64_t partitions) noexcept;

/// "md.{VENUE}.{SYMBOL}": text, fields in braces and partition numbers, {SYMBOL%8}.
class SubjectTemplate {
 public:
  /// The longest subject that is published. A server's line with the subject in it, and others, ends at 4,096 bytes.
  static constexpr std::size_t kMostBytes = 1024;

  /// @throws UsageError when the text is no template, or names a field that the dictionary does not have
  SubjectTemplate(const std::string& text, const FieldNames& names);

  /// Appends the subject of a message, whose bytes may be anything. A field that is not there, or cannot be read,
  /// becomes
  /// "%-", which no value becomes.
  /// @throws LineError when the subject is too long
  void append(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::string& subject);

  /// The subject that matches all of the template's: a wildcard in the place of each token with a field.
  const std::string& wildcard() const noexcept { return m_wildcard; }

 private:
  struct Part {
    std::string text;  ///< before the field
    Field field;
    std::uint64_t partitions = 0;  ///< 0: the value itself
  };

  void addField(const std::string& text, const std::string& key, const FieldNames& names);
  bool readValue(const std::uint8_t* bytes, std::uint32_t sizeBytes, const Field& field, std::string_view& value);

  std::vector<Part> m_parts;
  std::string m_end;  // after the last field
  std::string m_wildcard;
  std::string m_digits;
};

}  // namespace MD::tool

#endif
