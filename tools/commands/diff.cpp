#include "base/errors.h"
#include "base/quoted_text.h"
#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "dictionary/field_names.h"
#include "messages/message_diff.h"

namespace MD::tool {
namespace {

std::vector<Field> fieldsOf(const std::vector<std::string>& keys, const FieldNames& names) {
  std::vector<Field> fields;
  fields.reserve(keys.size());
  for (const std::string& key : keys) {
    fields.push_back(names.match("--key", key));
  }
  return fields;
}

}  // namespace

void diff(const Task& before, const Task& after, const DiffOptions& options) {
  const FieldNames names;
  const std::vector<Field> keys = fieldsOf(options.keys, names);
  MessageDiff differences(names, options.isJson, after.out);
  const auto forEach = [&](const Task& task, auto use) {
    Selection selection(task.selection, names);
    selection.refusePseudoFields("requires decode --format json or csv");
    MessageComparison comparison(names, keys, selection, task.reporter);
    TakenMessages messages(task, selection);
    while (const MD_Message* const message = messages.next()) {
      use(comparison.read(*message));
    }
    // Without one of the two there is nothing to compare.
    return task.reporter.status() != kBadUsage;
  };
  if (forEach(before, [&](ComparedMessage message) { differences.addBefore(std::move(message)); }) &&
      forEach(after, [&](const ComparedMessage& message) { differences.addAfter(message); })) {
    differences.finish();
  }
  if (differences.hasDifferences()) {
    after.reporter.flawed();
  }
}

}  // namespace MD::tool
