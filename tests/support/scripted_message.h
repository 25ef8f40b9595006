// A message that records what is asked of it.
#ifndef MD_TESTS_SUPPORT_SCRIPTED_MESSAGE_H
#define MD_TESTS_SUPPORT_SCRIPTED_MESSAGE_H

#include <cstdint>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "md/md_message.h"
#include "support/messages.h"

namespace MD::test {

/// A message of a program's own class, all of whose fields answer alike: it shows what is asked of a message, and in
/// which order.
class ScriptedMessage : public MD_Message {
 public:
  explicit ScriptedMessage(std::vector<std::string>& calls) : m_calls(calls) {}

  Ids m_ids;
  std::uint8_t m_code = 0;  ///< of no encoding, or of one whose class this is not
  bool m_hasFields = false;
  bool m_isReadable = true;
  bool m_takesAdds = false;
  bool m_takesUpdates = false;

  std::uint8_t getPB() const override { return m_code; }
  const std::uint8_t* fieldData(std::uint16_t, std::uint8_t&, std::uint32_t&) const override { return nullptr; }
  std::unique_ptr<MD_Message> createEmpty() const override { return nullptr; }
  std::unique_ptr<MD_Message> clone() const override { return nullptr; }
  std::unique_ptr<MD_Message> moveToNew() override { return nullptr; }
  bool eraseArrayImpl(const std::vector<std::uint16_t>&) override { return called("eraseArray", 0, false); }
  bool eraseSetImpl(const std::set<std::uint16_t>&) override { return called("eraseSet", 0, false); }
  bool eraseImpl(std::uint16_t field) override { return called("erase", field, false); }
  void clearImpl() override { called("clear", 0, false); }
  bool emptyImpl() const override { return m_ids.empty(); }
  bool existsImpl(std::uint16_t field) const override { return called("exists", field, m_hasFields); }
  const std::uint8_t* getBinary() const override { return nullptr; }
  bool setBinaryImpl(const std::uint8_t*, std::uint32_t) override { return called("setBinary", 0, false); }
  std::uint32_t getSizeImpl() const override { return 0; }
  void getFieldIdsImpl(Ids& out) const override {
    called("ids", 0, true);
    out.insert(out.end(), m_ids.begin(), m_ids.end());
  }

 protected:
#define MD_SLOT(T, name, code) \
  bool getImpl(std::uint16_t field, T&) const override { return called("get " #name, field, m_isReadable); }
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT
#define MD_SLOT(T, name, code) \
  bool addImpl(std::uint16_t field, T) override { return called("add " #name, field, m_takesAdds); }
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT
#define MD_SLOT(T, name, code) \
  bool updateImpl(std::uint16_t field, T) override { return called("update " #name, field, m_takesUpdates); }
  MD_VALUE_TYPES(MD_SLOT)
#undef MD_SLOT

 private:
  bool called(const char* slot, std::uint16_t field, bool result) const {
    m_calls.push_back(slot + (field != 0 ? " " + std::to_string(field) : std::string()));
    return result;
  }

  std::vector<std::string>& m_calls;
};

}  // namespace MD::test

#endif
