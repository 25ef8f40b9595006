#include "md/md_arrow.h"

#include "column_table.h"

namespace MD {

std::string to_string(const ColumnFailure& failure) {
  if (failure.message == 0) {
    return {};
  }
  return "message " + std::to_string(failure.message) + ": " + failure.reason;
}

ColumnBuilder::ColumnBuilder(const std::vector<std::uint16_t>& fields, const ColumnOptions& options)
    : m_table(std::make_unique<detail::ColumnTable>(fields, options)) {}

ColumnBuilder::~ColumnBuilder() = default;
ColumnBuilder::ColumnBuilder(ColumnBuilder&& other) noexcept = default;
ColumnBuilder& ColumnBuilder::operator=(ColumnBuilder&& other) noexcept = default;

bool ColumnBuilder::append(const MD_Message& message) { return m_table->append(message); }
bool ColumnBuilder::append(const std::uint8_t* bytes, std::uint32_t sizeBytes) {
  return m_table->append(bytes, sizeBytes);
}

std::size_t ColumnBuilder::rows() const noexcept { return m_table->rows(); }
std::size_t ColumnBuilder::completeBatches() const noexcept { return m_table->completeBatches(); }
ColumnFailure ColumnBuilder::failure() const { return m_table->failure(); }

void ColumnBuilder::exportSchema(ArrowSchema* out) const { m_table->exportSchema(out); }
bool ColumnBuilder::exportBatch(ArrowArray* out) { return m_table->exportBatch(out); }
void ColumnBuilder::exportStream(ArrowArrayStream* out) { m_table->exportStream(out); }

}  // namespace MD
