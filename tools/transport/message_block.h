// A number of messages with all that is known of them, to be worked on elsewhere.
#ifndef MDMSG_MESSAGE_BLOCK_H
#define MDMSG_MESSAGE_BLOCK_H

#include <cstddef>
#include <cstdint>

#include <optional>
#include <string>
#include <vector>

#include "base/diagnostics.h"
#include "transport/frame_cursor.h"
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
  /// Copies the messages that are in memory after `message`, which is of their source, and passes them.
  void addAll(const InputMessage& message, FrameCursor& frames);

 private:
  friend class BlockSource;

  static constexpr std::size_t kEnoughBytes = std::size_t{1} << 15;
  static constexpr std::size_t kEnoughItems = 4096;

  struct Item {
    InputMessage message;
    std::size_t offset = 0;  // of its bytes
    Place place;
    std::size_t error = 0;   // where it is none, one more than the index of what is wrong
    std::size_t frames = 0;  // where it is many, one more than the index of what steps over them
  };

  std::string m_input;
  std::vector<std::uint8_t> m_bytes;
  std::vector<Item> m_items;
  std::vector<LineError> m_errors;
  std::vector<FrameCursor> m_frames;
};

/// The messages of a block, as they came from the source that it was filled from.
class BlockSource final : public MessageSource {
 public:
  explicit BlockSource(Reporter& reporter) : m_reporter(reporter) {}

  /// @param block  outlives the reading
  void begin(const MessageBlock& block);

  bool next(InputMessage& message) override;
  FrameCursor* frames() noexcept override { return &m_frames; }

 private:
  bool nextFrame(InputMessage& message);

  Reporter& m_reporter;
  const MessageBlock* m_block = nullptr;
  std::size_t m_next = 0;
  FrameCursor m_frames;  // of the item before that one
};

}  // namespace MD::tool

#endif
