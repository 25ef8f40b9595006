// A dictionary made from sample data, by the values seen.
#ifndef MDMSG_DERIVE_H
#define MDMSG_DERIVE_H

#include <cstdint>

#include "base/diagnostics.h"
#include "base/output.h"
#include "dictionary/definition_file.h"
#include "transport/inputs.h"

namespace MD::tool {

enum class SampleForm {
  Recognised,  ///< JSON lines if the first character that is not white space is '{', otherwise CSV
  Csv,
  Json,
};

struct DeriveOptions {
  SampleForm form = SampleForm::Recognised;
  DefinitionFormat format = DefinitionFormat::Text;
  std::uint16_t firstId = 1;
};

/// Writes a dictionary with a field for each column, or key, of the samples, in the order in which they appear. Each
/// gets the first of these types that takes all its values as `encode` reads them: INT, EPOCH_NSEC, INT64, DOUBLE,
/// FLOAT, DATETIME, BUFFER, CHAR, STRING. What cannot be a field or a value is reported.
void deriveDictionary(Inputs& inputs, const DeriveOptions& options, Output& out, Reporter& reporter);

}  // namespace MD::tool

#endif
