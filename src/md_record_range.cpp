#include "md/md_record_range.h"

#include <algorithm>

#include "received_bytes.h"

namespace MD {
namespace {

template <class T>
bool readFrom(const std::uint8_t* data, std::uint32_t sizeBytes, std::uint32_t position, T& out) noexcept {
  const MD_FieldMap* const dictionary = position != 0 ? detail::dictionaryOrNull() : nullptr;
  if (dictionary == nullptr) {
    return false;
  }
  return detail::withLayout(data, sizeBytes, [&](auto layout) {
    using Layout = typename decltype(layout)::Layout;
    const detail::ByteView bytes(data, sizeBytes);
    return detail::readRecord<Layout>(bytes, detail::headAt<Layout>(bytes, position, *dictionary), *dictionary, out);
  });
}

}  // namespace

#define MD_READ(T, name, code) \
  bool RecordView::read(T& out) const noexcept { return readFrom(m_bytes, m_sizeBytes, m_position, out); }
MD_VALUE_TYPES(MD_READ)
#undef MD_READ

std::uint8_t RecordRange::encoding() const noexcept {
  return detail::withLayout(m_bytes, m_sizeBytes,
                            [](auto layout) -> std::uint8_t { return decltype(layout)::Layout::kHeader[0]; });
}

bool RecordRange::nextRecord(const std::uint8_t* bytes, std::uint32_t sizeBytes, std::uint32_t& position,
                             RecordView& record) noexcept {
  record = {};
  record.m_bytes = bytes;
  record.m_sizeBytes = sizeBytes;
  const MD_FieldMap* const dictionary = detail::dictionaryOrNull();
  return dictionary != nullptr && detail::withLayout(bytes, sizeBytes, [&](auto layout) {
           using Layout = typename decltype(layout)::Layout;
           const detail::ByteView view(bytes, sizeBytes);
           detail::RecordWalk<Layout> walk(view, *dictionary, position != 0 ? position : detail::kHeaderBytes<Layout>);
           for (detail::WalkedRecord met; walk.next(met);) {
             position = static_cast<std::uint32_t>(met.end);
             if (met.kind == detail::WalkedRecord::Kind::Field) {
               const std::uint64_t start = std::min(met.head.valuePosition(), met.end);
               record.id = met.id;
               record.type = met.head.type;
               record.data = view.at(start);
               record.sizeBytes = static_cast<std::uint32_t>(met.end - start);
               record.isTruncated = met.isTruncated();
               record.m_position = static_cast<std::uint32_t>(met.head.position);
               return true;
             }
           }
           return false;
         });
}

}  // namespace MD
