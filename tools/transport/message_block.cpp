#include "transport/message_block.h"

namespace MD::tool {

void MessageBlock::begin(const std::string& input) {
  m_input = input;
  m_bytes.clear();
  m_items.clear();
  m_errors.clear();
  m_frames.clear();
}

void MessageBlock::add(const InputMessage& message, const Place& place) {
  const std::size_t offset = m_bytes.size();
  m_bytes.insert(m_bytes.end(), message.data, message.data + message.sizeBytes);
  m_items.push_back({message, offset, place, 0, 0});
  m_items.back().message.packet = nullptr;
  m_items.back().message.line = {};
}

void MessageBlock::add(const LineError& error, const Place& place) {
  m_errors.push_back(error);
  m_items.push_back({{}, m_bytes.size(), place, m_errors.size(), 0});
}

void MessageBlock::addAll(const InputMessage& message, FrameCursor& frames) {
  FrameCursor rest = frames;
  const FrameCursor all = rest.takeAll();
  if (all.sizeBytes() == 0) {
    return;
  }
  m_frames.push_back(all);
  InputMessage joined = message;
  joined.data = all.data();
  joined.sizeBytes = all.sizeBytes();
  add(joined, {});
  m_items.back().frames = m_frames.size();
  frames = rest;
}

void BlockSource::begin(const MessageBlock& block) {
  m_block = &block;
  m_next = 0;
  m_frames = {};
  m_reporter.setInput(block.input());
}

bool BlockSource::next(InputMessage& message) {
  if (m_next != 0 && nextFrame(message)) {
    return true;
  }
  if (m_next == m_block->m_items.size()) {
    return false;
  }
  const MessageBlock::Item& item = m_block->m_items[m_next++];
  m_reporter.setPlace(item.place);
  if (item.error != 0) {
    throw LineError(m_block->m_errors[item.error - 1]);
  }
  const std::uint8_t* const bytes = m_block->m_bytes.data() + item.offset;
  if (item.frames != 0) {
    m_frames = m_block->m_frames[item.frames - 1];
    m_frames.moveTo(bytes);
    return nextFrame(message);
  }
  message = item.message;
  message.data = bytes;
  return true;
}

/// The next one of those in the current item.
bool BlockSource::nextFrame(InputMessage& message) {
  if (m_frames.sizeBytes() == 0) {
    return false;
  }
  message = m_block->m_items[m_next - 1].message;
  m_frames.next(message);
  m_reporter.setPlace(m_frames.place());
  return true;
}

}  // namespace MD::tool
