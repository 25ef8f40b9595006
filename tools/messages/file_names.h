// Names of files that hold field values.
#ifndef MDMSG_FILE_NAMES_H
#define MDMSG_FILE_NAMES_H

#include <cstddef>

#include <string>
#include <string_view>
#include <vector>

#include "dictionary/field_names.h"
#include "messages/selection.h"
#include "transport/message_source.h"

namespace MD::tool {

/// Appends any bytes as a part of a file's name: ASCII letters, digits, '-', '_', '+', '=', '@', ',' and dots that are
/// neither first nor last stay as they are, all else as of appendPercentText().
void appendNamePart(std::string_view value, std::string& name);

/// "out/{VENUE}-{SYMBOL}.pcap": text, and fields or pseudo-fields in braces.
class FileTemplate {
 public:
  /// The longest name of a file, without its folder.
  static constexpr std::size_t kMostNameBytes = 255;

  /// @param fields  the names of the fields that it has, each once at least
  /// @throws UsageError when the text is no such template, when the text before the first value is the name of a device
  ///         on Windows with an extension, or when the dictionary lacks a field
  FileTemplate(const std::string& text, const std::vector<std::string>& fields, const FieldNames& names);

  /// Appends the path for a message, whose bytes may be anything. A field that is not there, or cannot be read, becomes
  /// kNoValue. Where the name would be that of a device on Windows, the first byte of the first value is not kept.
  /// @throws LineError when the name is too long
  void append(const InputMessage& message, std::string& path);

 private:
  struct Part {
    std::string text;  ///< before the value
    Column column;
  };

  std::size_t m_folderBytes = 0;  // before the name of the file
  std::vector<Part> m_parts;      // one at least
  std::string m_end;              // after the last value
  std::string m_value;
};

}  // namespace MD::tool

#endif
