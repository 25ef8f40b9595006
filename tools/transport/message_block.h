// A number of messages with all that is known of them, to be worked on elsewhere.
#ifndef MDMSG_MESSAGE_BLOCK_H
#define MDMSG_MESSAGE_BLOCK_H

#include <cstddef>
#include <cstdint>

#include <optional>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "transport/message_source.h"

namespace MD::tool {

/// Messages of one input, and the places where there was none.
class MessageBlock {
 public:
  bool isEmpty() const noexcept { return m_items.empty(); }
  bool isFull() const noexcept { return m_bytes.size() >= kEnoughBytes || m_items.size() >= kEnoughItems; }
  /// The input that all of it is from.
  const std::string& input() const noexcept { return m_input; }

  /// Empties the block for messages of another input, or of the same.
  void begin(const std::string& input);
  /// Copies a message.
  void add(const InputMessage& message, const Place& place);
  void add(const LineError& error, const Place& place);

 private:
  friend class BlockSource;

  static constexpr std::size_t kEnoughBytes = std::size_t{1} << 17;
  static constexpr std::size_t kEnoughItems = 4096;

  struct Item {
    InputMessage message;
    std::size_t offset = 0;  // of its bytes
    Place place;
    std::size_t error = 0;  // where it is none, one more than the index of what is wrong
  };

  std::string m_input;
  std::vector<std::uint8_t> m_bytes;
  std::vector<Item> m_items;
  std::vector<LineError> m_errors;
};

/// The messages of a block, as they came from the source that it was filled from.
class BlockSource final : public MessageSource {
 public:
  explicit BlockSource(Reporter& reporter) : m_reporter(reporter) {}

  /// @param block  outlives the reading
  void begin(const MessageBlock& block);

  bool next(InputMessage& message) override;

 private:
  Reporter& m_reporter;
  const MessageBlock* m_block = nullptr;
  std::size_t m_next = 0;
};

}  // namespace MD::tool

#endif
