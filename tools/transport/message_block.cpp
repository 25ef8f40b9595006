#include "transport/message_block.h"

namespace MD::tool {

void MessageBlock::begin(const std::string& input) {
  m_input = input;
  m_bytes.clear();
  m_items.clear();
  m_errors.clear();
}

void MessageBlock::add(const InputMessage& message, const Place& place) {
  const std::size_t offset = m_bytes.size();
  m_bytes.insert(m_bytes.end(), message.data, message.data + message.sizeBytes);
  m_items.push_back({message, offset, place, 0});
  m_items.back().message.packet = nullptr;
  m_items.back().message.line = {};
}

void MessageBlock::add(const LineError& error, const Place& place) {
  m_errors.push_back(error);
  m_items.push_back({{}, m_bytes.size(), place, m_errors.size()});
}

void BlockSource::begin(const MessageBlock& block) {
  m_block = &block;
  m_next = 0;
  m_reporter.setInput(block.input());
}

bool BlockSource::next(InputMessage& message) {
  if (m_next == m_block->m_items.size()) {
    return false;
  }
  const MessageBlock::Item& item = m_block->m_items[m_next++];
  m_reporter.setPlace(item.place);
  if (item.error != 0) {
    throw LineError(m_block->m_errors[item.error - 1]);
  }
  message = item.message;
  message.data = m_block->m_bytes.data() + item.offset;
  return true;
}

}  // namespace MD::tool
