// Messages from JSON, one object a message.
#ifndef MDMSG_JSON_READER_H
#define MDMSG_JSON_READER_H

#include <string_view>

#include "dictionary/field_names.h"
#include "md/md_message.h"

namespace MD::tool {

/// Fills an empty message from one JSON object, its fields in their order.
/// @throws LineError when `text` is anything else, or a value does not fit its field; the message is then half filled
void readJson(std::string_view text, const FieldNames& names, MD_Message& message);

}  // namespace MD::tool

#endif
