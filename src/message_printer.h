// The formatted text of a message, for the stream operators and the dump of a stripped message.
#ifndef MD_SRC_MESSAGE_PRINTER_H
#define MD_SRC_MESSAGE_PRINTER_H

#include <cstdint>

#include <iosfwd>
#include <string_view>

#include "md/md_message.h"
#include "price_fields.h"

namespace MD {

class MessagePrinter {
 public:
  static constexpr std::int32_t kPlainMode = 0;
  static constexpr std::int32_t kPriceMode = 1;

  MessagePrinter(std::ostream& out, const MD_Message& message, std::int32_t mode)
      : m_out(out), m_message(message), m_mode(mode), m_prices(message) {}

  /// Prints one line for each field from `field` on.
  void print(MD_Message::const_iterator field);

  /// The fields of a message of received bytes: one whose value cannot be read comes as an empty variant.
  static MD_Message::const_iterator tolerantBegin(const MD_Message& message);

 private:
  void printLine(const MD_Message::const_iterator::Field& field);
  void printLabel(std::string_view label);

  std::ostream& m_out;
  const MD_Message& m_message;
  std::int32_t m_mode;
  detail::PriceFields m_prices;
};

namespace detail {

/// Reports the rest of a message after fields were dropped.
void reportRemainder(const MD_Message& message) noexcept;

}  // namespace detail
}  // namespace MD

#endif
