// Prices that a message keeps in `INT` fields named stem_WHOLE, stem_NUM and stem_DENOM.
#ifndef MD_SRC_PRICE_FIELDS_H
#define MD_SRC_PRICE_FIELDS_H

#include <cstdint>

#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "md/md_message.h"

namespace MD::detail {

/// A price as it is shown.
struct ShownPrice {
  std::string_view stem;
  std::string value;  ///< a decimal number
};

/// The prices of one message, which outlives this.
class PriceFields {
 public:
  explicit PriceFields(const MD_Message& message) : m_message(message) {}

  /// The price whose whole part is the field of this name and value; nothing for any other field.
  std::optional<ShownPrice> price(std::string_view name, const MD_Variant& value) const;

  /// Whether the field is the numerator or denominator of a price that this message shows.
  bool isShownInPrice(std::string_view name, std::uint16_t id);

 private:
  std::set<std::string_view> shownStems() const;
  bool readInt(const std::string& name, std::int32_t& out) const;

  const MD_Message& m_message;
  std::optional<std::set<std::string_view>> m_shownStems;  // once they were asked for
};

}  // namespace MD::detail

#endif
