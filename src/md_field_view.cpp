#include "md/md_field_view.h"

#include <algorithm>
#include <locale>
#include <optional>
#include <ostream>
#include <sstream>
#include <utility>
#include <vector>

#include "field_list.h"
#include "md/md_datatypes.h"
#include "md/md_escape.h"
#include "md/md_fieldmap.h"
#include "md/md_message.h"
#include "md/md_price_output.h"
#include "md_typemap.h"
#include "price_fields.h"
#include "report.h"
#include "value_dispatch.h"

namespace MD {
namespace {

std::string typeName(std::uint8_t code) {
  if (const detail::FieldType* const type = detail::findType(code)) {
    return std::string(type->name);
  }
  return "type " + std::to_string(code);
}

/// Writes a value as its variant prints, characters of untrusted parties in their escaped form.
class ValueText {
 public:
  ValueText() { m_stream.imbue(std::locale::classic()); }

  void append(const FieldView& field, std::string& out) {
    if (const auto text = field.get<StringView16>()) {
      return appendEscaped(*text, out);
    }
    if (const auto character = field.get<char>()) {
      return appendEscaped({&*character, 1}, out);
    }
    m_stream.str({});
    m_stream << field.value();
    if (field.type() == DATATYPES::BUFFER) {
      appendEscaped(m_stream.str(), out);
    } else {
      out += m_stream.str();
    }
  }

 private:
  std::ostringstream m_stream;
};

void appendLabel(std::string_view label, std::string& out) {
  constexpr std::size_t kColumns = 22;
  const std::size_t start = out.size();
  appendEscaped(label, out);
  out.append(kColumns - std::min(kColumns, out.size() - start), ' ');
  out += " = ";
}

/// @param prices  those of the message, where they are shown as decimal numbers; null: each field by itself
std::string textOf(const MD_Message& message, detail::PriceFields* prices) {
  const detail::SilentReports silence;
  ValueText values;
  std::string out;
  for (const FieldView& field : message.fields()) {
    const std::string_view name = field.name();
    const auto price = prices != nullptr ? prices->price(name, field.value()) : std::nullopt;
    if (!price && prices != nullptr && prices->isShownInPrice(name, field.id())) {
      continue;
    }
    if (name.empty()) {
      appendLabel(std::to_string(field.id()), out);
    } else {
      appendLabel(price ? price->stem : name, out);
    }
    if (price) {
      out += price->value;
    } else if (field.isReadable()) {
      values.append(field, out);
    } else {
      out += '<' + field.reason() + '>';
    }
    if (field.recordCount() > 1) {
      out += " <the last of " + std::to_string(field.recordCount()) + " records>";
    }
    out += '\n';
  }
  return out;
}

}  // namespace

FieldView::FieldView(const MD_Message& message, std::uint16_t id, std::uint32_t recordCount)
    : m_message(&message), m_id(id), m_recordCount(recordCount) {
  const FIELDS::packed_rec field = MD_FieldMap::instance().packed(id);
  m_type = field.type;
  const bool isReadable = detail::withValueType(field.type, [&](auto value) { return message.get(id, value); });
  if (isReadable) {
    return;
  }
  const std::uint8_t* const value = message.fieldData(id, m_storedType, m_storedBytes);
  const std::uint8_t* const end = message.data() + message.size();
  m_presentBytes =
      value != nullptr
          ? static_cast<std::uint32_t>(std::min<std::size_t>(static_cast<std::size_t>(end - value), m_storedBytes))
          : 0;
  if (!field.isKnown()) {
    m_problem = Problem::UnknownId;
  } else if (!detail::isValueType(field.type)) {
    m_problem = Problem::TypeOfNoMessage;
  } else if (m_presentBytes < m_storedBytes) {
    m_problem = Problem::Truncated;
  } else if (value == nullptr || value == end) {
    m_problem = Problem::TruncatedHead;
  } else if (m_storedType != m_type) {
    m_problem = Problem::OtherType;
  } else {
    m_problem = Problem::Length;
  }
}

std::string_view FieldView::name() const {
  const MD_FieldMap& map = MD_FieldMap::instance();
  const auto row = map.findById(m_id);
  return row != map.end() ? std::string_view(row->name) : std::string_view();
}

std::string FieldView::reason() const {
  const auto bytes = [](std::uint32_t count) { return std::to_string(count) + (count == 1 ? " byte" : " bytes"); };
  switch (m_problem) {
    case Problem::None:
      break;
    case Problem::UnknownId:
      return "not in the dictionary";
    case Problem::TypeOfNoMessage:
      return "messages do not carry values of type " + typeName(m_type);
    case Problem::Truncated:
      return "truncated: " + std::to_string(m_presentBytes) + " of " + bytes(m_storedBytes);
    case Problem::TruncatedHead:
      return "truncated: the message ends before the value";
    case Problem::OtherType:
      return "stored as " + typeName(m_storedType) + ", not as " + typeName(m_type);
    case Problem::Length:
      return "invalid length for type " + typeName(m_type) + ": " + bytes(m_storedBytes);
  }
  return {};
}

MD_Variant FieldView::value() const {
  MD_Variant variant;
  if (isReadable()) {
    detail::withValueType(m_type, [&](auto value) {
      if (!m_message->get(m_id, value)) {
        return false;
      }
      variant.set(value);
      return true;
    });
  }
  return variant;
}

std::vector<FieldView> MD_Message::fields() const {
  std::vector<std::uint16_t> ids;
  std::vector<std::uint32_t> recordCounts;
  detail::listFields(*this, ids, recordCounts);
  const detail::SilentReports silence;
  std::vector<FieldView> fields;
  fields.reserve(ids.size());
  for (std::size_t i = 0; i != ids.size(); ++i) {
    fields.push_back(FieldView(*this, ids[i], recordCounts[i]));
  }
  return fields;
}

std::string to_string(const MD_Message& message) { return textOf(message, nullptr); }

std::string to_string(const PriceOutput& price) {
  detail::PriceFields prices(price.m_message);
  return textOf(price.m_message, &prices);
}

std::ostream& print(std::ostream& out, const MD_Message& message) {
  const std::string text = to_string(message);
  out.width(0);
  return out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

}  // namespace MD
