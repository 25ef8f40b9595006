#include "messages/condition.h"

#include <algorithm>
#include <limits>
#include <type_traits>

#include "base/encodings.h"
#include "base/errors.h"
#include "base/quoted_text.h"
#include "text/hex_reader.h"
#include "text/regular_expression.h"
#include "text/value_text.h"
#include "transport/packet.h"

namespace MD::tool {
namespace {

/// Orders as the date and the time do; the offset plays no part.
std::uint64_t sortKey(MD_DateTime value) {
  return static_cast<std::uint64_t>(value.date()) << 32 | static_cast<std::uint32_t>(value.time());
}

/// As an EPOCH_NSEC field has it, or as people write it.
std::uint64_t parseNs(const std::string& text, const TimeZone& zone) {
  if (const auto time = parseTime(text, zone)) {
    return *time;
  }
  return parseEpochNs(text).get();
}

template <class T>
bool compares(Comparison comparison, const T& there, const std::vector<T>& values) {
  switch (comparison) {
    case Comparison::Equal:
      return there == values[0];
    case Comparison::NotEqual:
      return there != values[0];
    case Comparison::Less:
      return there < values[0];
    case Comparison::LessOrEqual:
      return there <= values[0];
    case Comparison::Greater:
      return there > values[0];
    case Comparison::GreaterOrEqual:
      return there >= values[0];
    case Comparison::In:
      return std::binary_search(values.begin(), values.end(), there);
    case Comparison::Contains:
    case Comparison::Matches:
    case Comparison::Exists:
      break;
  }
  return false;
}

/// For the binary search of In.
template <class T>
void sortValues(std::vector<T>& values) {
  if constexpr (std::is_floating_point_v<T>) {
    values.erase(std::remove_if(values.begin(), values.end(), [](T value) { return value != value; }), values.end());
  }
  std::sort(values.begin(), values.end());
}

/// An address with or without a port.
struct EndpointPattern {
  IpAddress address;
  std::optional<std::uint16_t> port;

  bool matches(const Endpoint& endpoint) const {
    return endpoint.address == address && (!port || endpoint.port == *port);
  }
};

EndpointPattern parsePattern(const std::string& text) {
  if (const auto endpoint = parseEndpoint(text)) {
    return {endpoint->address, endpoint->port};
  }
  if (const auto address = parseAddress(text)) {
    return {*address, std::nullopt};
  }
  throw LineError(inQuotes(text) + " is not an address, nor an address and a port");
}

}  // namespace

/// One comparison, its values in the type of the field.
class Condition::Test {
 public:
  /// @throws LineError when the field or a value cannot be used
  Test(const ExpressionTest& test, const FieldNames& names, const TimeZone& zone) : m_comparison(test.comparison) {
    if (isPseudoName(test.field.text)) {
      m_pseudo = parsePseudoField(test.field.text);
      m_kind = kindOf(*m_pseudo);
    } else {
      m_field = names.match(test.field.text);
      m_kind = kindOf(m_field.type);
    }
    const bool isSearch = m_comparison == Comparison::Contains || m_comparison == Comparison::Matches;
    if (isSearch && m_kind != Kind::Text && m_kind != Kind::Endpoint) {
      throw LineError(std::string(operatorText(m_comparison)) + " requires text, not " +
                      (m_pseudo ? "a number" : typeName(m_field.type)));
    }
    for (const ExpressionWord& value : test.values) {
      parse(value.text, zone, isSearch);
    }
    if (m_comparison == Comparison::In) {
      sortValues(m_wholes);
      sortValues(m_unsigneds);
      sortValues(m_reals);
      std::sort(m_texts.begin(), m_texts.end());
    }
    m_views.assign(m_texts.begin(), m_texts.end());
  }

  bool isOfField() const noexcept { return !m_pseudo; }

  bool holds(const Candidate& candidate) const {
    if (m_pseudo) {
      return candidate.input() != nullptr && hasPseudoField(*candidate.input(), *m_pseudo) &&
             (m_comparison == Comparison::Exists || holdsPseudo(*candidate.input()));
    }
    const auto test = [&](auto value, auto convert, const auto& values) {
      return candidate.get(m_field.id, value) &&
             (m_comparison == Comparison::Exists ||
              compares(m_comparison, typename std::decay_t<decltype(values)>::value_type(convert(value)), values));
    };
    const auto asIs = [](auto value) { return value; };
    switch (m_kind) {
      case Kind::Char:
        return test(
            char{}, [](char value) { return static_cast<std::uint8_t>(value); }, m_wholes);
      case Kind::Int:
        return test(std::int32_t{}, asIs, m_wholes);
      case Kind::Int64:
        return test(std::int64_t{}, asIs, m_wholes);
      case Kind::Float:
        return test(float{}, asIs, m_reals);
      case Kind::Double:
        return test(double{}, asIs, m_reals);
      case Kind::Text: {
        MD_Message::String value;
        return candidate.get(m_field.id, value) && holdsText(value);
      }
      case Kind::Bytes: {
        MD_Message::Buffer value;
        if (!candidate.get(m_field.id, value)) {
          return false;
        }
        const std::string there(value.data, value.data + value.length);
        return holdsText(there);
      }
      case Kind::DateTime:
        return test(
            MD_DateTime(), [](MD_DateTime value) { return sortKey(value); }, m_unsigneds);
      case Kind::Time:
        return test(
            MD_EpochNS(), [](MD_EpochNS value) { return value.get(); }, m_unsigneds);
      case Kind::Unsigned:
      case Kind::Endpoint:
        break;
    }
    return false;
  }

 private:
  enum class Kind : std::uint8_t { Char, Int, Int64, Float, Double, Text, Bytes, DateTime, Time, Unsigned, Endpoint };

  static Kind kindOf(PseudoField field) noexcept {
    switch (field) {
      case PseudoField::Time:
        return Kind::Time;
      case PseudoField::Source:
      case PseudoField::Destination:
        return Kind::Endpoint;
      case PseudoField::Packet:
      case PseudoField::Size:
        return Kind::Unsigned;
      case PseudoField::File:
      case PseudoField::Encoding:
        break;
    }
    return Kind::Text;
  }

  static Kind kindOf(std::uint8_t type) noexcept {
    switch (type) {
      case DATATYPES::CHAR:
        return Kind::Char;
      case DATATYPES::INT:
        return Kind::Int;
      case DATATYPES::INT64:
        return Kind::Int64;
      case DATATYPES::FLOAT:
        return Kind::Float;
      case DATATYPES::DOUBLE:
        return Kind::Double;
      case DATATYPES::STRING:
        return Kind::Text;
      case DATATYPES::BUFFER:
        return Kind::Bytes;
      case DATATYPES::DATETIME:
        return Kind::DateTime;
      default:
        return Kind::Time;
    }
  }

  void parse(const std::string& text, const TimeZone& zone, bool isSearch) {
    if (m_comparison == Comparison::Matches) {
      m_pattern.emplace(text);
      return;
    }
    if (isSearch) {
      m_texts.push_back(text);
      return;
    }
    switch (m_kind) {
      case Kind::Char:
        if (text.size() != 1) {
          throw LineError(inQuotes(text) + " is " + std::to_string(text.size()) + " bytes, a CHAR is one");
        }
        m_wholes.push_back(static_cast<std::uint8_t>(text[0]));
        return;
      case Kind::Int:
      case Kind::Int64:
        m_wholes.push_back(parseWhole<std::int64_t>(text, typeName(m_field.type)));
        return;
      case Kind::Float:
        m_reals.push_back(parseRealOrName<float>(text));
        return;
      case Kind::Double:
        m_reals.push_back(parseRealOrName<double>(text));
        return;
      case Kind::Text:
        if (m_pseudo == PseudoField::Encoding && encodingCode(text) == 0) {
          throw LineError("unknown encoding " + inQuotes(text) + " (" + encodingList() + ")");
        }
        m_texts.push_back(text);
        return;
      case Kind::Bytes: {
        std::vector<std::uint8_t> bytes;
        parseHex(text, Blanks::Refused, bytes);
        m_texts.emplace_back(bytes.begin(), bytes.end());
        return;
      }
      case Kind::DateTime:
        m_unsigneds.push_back(sortKey(parseDateTime(text)));
        return;
      case Kind::Time:
        m_unsigneds.push_back(parseNs(text, zone));
        return;
      case Kind::Unsigned:
        m_unsigneds.push_back(parseWhole<std::uint64_t>(text, pseudoName(*m_pseudo)));
        return;
      case Kind::Endpoint:
        if (m_comparison != Comparison::Equal && m_comparison != Comparison::NotEqual &&
            m_comparison != Comparison::In) {
          throw LineError("addresses are compared by =, !=, in, ~ and =~");
        }
        m_endpoints.push_back(parsePattern(text));
    }
  }

  bool holdsText(std::string_view there) const {
    switch (m_comparison) {
      case Comparison::Exists:
        return true;
      case Comparison::Contains:
        return there.find(m_views[0]) != there.npos;
      case Comparison::Matches:
        return m_pattern->isIn(there);
      default:
        return compares(m_comparison, there, m_views);
    }
  }

  bool holdsPseudo(const InputMessage& input) const {
    switch (*m_pseudo) {
      case PseudoField::Time:
        return compares(m_comparison, static_cast<std::uint64_t>(*input.timeNs), m_unsigneds);
      case PseudoField::Source:
        return holdsEndpoint(input.source);
      case PseudoField::Destination:
        return holdsEndpoint(input.destination);
      case PseudoField::Packet:
      case PseudoField::Size:
        return compares(m_comparison, pseudoNumber(input, *m_pseudo), m_unsigneds);
      case PseudoField::File:
        return holdsText(*input.file);
      case PseudoField::Encoding:
        break;
    }
    return holdsText(encodingName(input.data[0]));
  }

  bool holdsEndpoint(const Endpoint& endpoint) const {
    if (m_endpoints.empty()) {
      return holdsText(textOf(endpoint));
    }
    const bool isAmong = std::any_of(m_endpoints.begin(), m_endpoints.end(),
                                     [&](const EndpointPattern& pattern) { return pattern.matches(endpoint); });
    return isAmong == (m_comparison != Comparison::NotEqual);
  }

  Comparison m_comparison;
  Kind m_kind = Kind::Text;
  Field m_field;
  std::optional<PseudoField> m_pseudo;
  // The values, in the one that goes with the kind; sorted for In.
  std::vector<std::int64_t> m_wholes;
  std::vector<std::uint64_t> m_unsigneds;
  std::vector<double> m_reals;
  std::vector<std::string> m_texts;
  std::vector<std::string_view> m_views;  // of m_texts
  std::vector<EndpointPattern> m_endpoints;
  std::optional<RegularExpression> m_pattern;
};

Condition::Condition(std::string_view text, const FieldNames& names, const TimeZone& zone)
    : m_expression([&] {
        try {
          return Expression(text);
        } catch (const ExpressionError& error) {
          throw UsageError("--where " + inQuotes(text) + ": column " + std::to_string(error.column()) + ": " +
                           error.what());
        }
      }()) {
  m_tests.reserve(m_expression.tests().size());
  for (const ExpressionTest& test : m_expression.tests()) {
    try {
      m_tests.emplace_back(test, names, zone);
    } catch (const LineError& error) {
      const std::size_t column =
          test.values.empty() || !error.field().empty() ? test.field.column : test.values[0].column;
      throw UsageError("--where " + inQuotes(text) + ": column " + std::to_string(column) + ": " +
                       (error.field().empty() ? std::string() : "field " + printable(error.field()) + ": ") +
                       error.what());
    }
    m_fieldCount += std::size_t{m_tests.back().isOfField()};
  }
}

Condition::Condition(Condition&&) noexcept = default;
Condition::~Condition() = default;

bool Condition::holds(const Candidate& candidate) const {
  return m_expression.holds([&](std::size_t test) { return m_tests[test].holds(candidate); });
}

}  // namespace MD::tool
