#include "price_fields.h"

#include <stdexcept>
#include <vector>

#include "md/md_fieldmap.h"
#include "md/md_frac_double.h"

namespace MD::detail {
namespace {

/// Printing stops before a field with this id.
constexpr std::uint16_t kEndOfPrintOut = 65535;

constexpr std::string_view kWhole = "_WHOLE";
constexpr std::string_view kNum = "_NUM";
constexpr std::string_view kDenom = "_DENOM";

bool endsWith(std::string_view name, std::string_view suffix) noexcept {
  return name.size() >= suffix.size() && name.substr(name.size() - suffix.size()) == suffix;
}

std::string withSuffix(std::string_view stem, std::string_view suffix) { return std::string(stem).append(suffix); }

}  // namespace

std::optional<ShownPrice> PriceFields::price(std::string_view name, const MD_Variant& value) const {
  if (!endsWith(name, kWhole) || value.type() != DATATYPES::INT) {
    return std::nullopt;
  }
  const std::string_view stem = name.substr(0, name.size() - kWhole.size());
  std::int32_t num = 0;
  std::int32_t denom = 100;
  readInt(withSuffix(stem, kNum), num);
  readInt(withSuffix(stem, kDenom), denom);
  const double price = denom > 0 ? double{1} * num / denom + value.get<std::int32_t>() : 0.0;
  return ShownPrice{stem, frac_double_to_string(price)};
}

bool PriceFields::isShownInPrice(std::string_view name, std::uint16_t id) {
  for (const std::string_view suffix : {kNum, kDenom}) {
    if (endsWith(name, suffix)) {
      const MD_FieldMap& map = MD_FieldMap::instance();
      // If two fields share a name, the price uses the one to which the name resolves.
      if (map.packed(id).type != DATATYPES::INT || map.nameToId(std::string(name)) != id) {
        return false;
      }
      if (!m_shownStems) {
        m_shownStems = shownStems();
      }
      return m_shownStems->count(name.substr(0, name.size() - suffix.size())) != 0;
    }
  }
  return false;
}

/// The stems of the prices that this message shows. Several rows of the dictionary may have a whole part's name.
std::set<std::string_view> PriceFields::shownStems() const {
  const MD_FieldMap& map = MD_FieldMap::instance();
  std::vector<std::uint16_t> ids;
  m_message.getFieldIdsImpl(ids);
  std::set<std::string_view> stems;
  for (const std::uint16_t id : ids) {
    if (id == kEndOfPrintOut) {
      break;
    }
    std::int32_t ignored = 0;
    const auto row = map.findById(id);
    if (row != map.end() && row->type == DATATYPES::INT && endsWith(row->name, kWhole) && m_message.get(id, ignored)) {
      stems.insert(std::string_view(row->name).substr(0, row->name.size() - kWhole.size()));
    }
  }
  return stems;
}

/// Reads an `INT` field by name. @return false, `out` unchanged, when dictionary or message do not have it
bool PriceFields::readInt(const std::string& name, std::int32_t& out) const {
  const MD_FieldMap& map = MD_FieldMap::instance();
  try {
    return map.nameToType(name) == DATATYPES::INT && m_message.get(map.nameToId(name), out);
  } catch (const std::domain_error&) {
    return false;
  }
}

}  // namespace MD::detail
