// Messages from JSON, one object a message.
#ifndef MDMSG_JSON_READER_H
#define MDMSG_JSON_READER_H

#include <memory>
#include <string_view>

#include "dictionary/field_names.h"
#include "md/md_message.h"

namespace MD::tool {

class JsonReader {
 public:
  /// @param names  outlives the reader
  explicit JsonReader(const FieldNames& names);
  ~JsonReader();

  /// Fills an empty message from one JSON object, its fields in their order.
  /// @throws LineError when `text` is anything else, or a value does not fit its field; the message is then half filled
  void read(std::string_view text, MD_Message& message);

 private:
  class Handler;
  std::unique_ptr<Handler> m_handler;
};

}  // namespace MD::tool

#endif
