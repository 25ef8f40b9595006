#include <string>

#include "base/encodings.h"
#include "commands/commands.h"
#include "commands/taken_messages.h"
#include "dictionary/dictionary.h"
#include "dictionary/field_names.h"
#include "messages/dump.h"

namespace MD::tool {
namespace {

/// "# feed.pcap: packet 3 (byte 1084), 2024-06-03T09:30:00.173980747Z, 10.0.0.1:5 to 239.1.1.1:30001: mInt, 39 bytes"
void appendDumpTitle(const InputMessage& input, const Reporter& reporter, std::string& out) {
  out += "# " + pathText(reporter.place());
  if (input.timeNs && *input.timeNs >= 0) {
    out += ", ";
    appendIsoTime(static_cast<std::uint64_t>(*input.timeNs), TimeZone(), out);
    out += ", " + textOf(input.source) + " to " + textOf(input.destination);
  }
  const char* const encoding = input.sizeBytes != 0 ? encodingName(input.data[0]) : nullptr;
  out += std::string(": ") + (encoding != nullptr ? encoding : "unknown encoding") + ", " +
         std::to_string(input.sizeBytes) + (input.sizeBytes == 1 ? " byte\n" : " bytes\n");
}

}  // namespace

void dump(const Task& task, bool isColored) {
  const FieldNames names;
  Selection selection(task.selection, names);
  bool isFirst = true;
  bool hasUnknown = false;
  MessageReader reader(task);
  while (const InputMessage* const input = reader.nextTaken(selection)) {
    attempt(task, [&] {
      std::string& out = task.out.text();
      out += isFirst ? "" : "\n";
      appendDumpTitle(*input, task.reporter, out);
      isFirst = false;
      const DumpResult result = writeDump(input->data, input->sizeBytes, MD_FieldMap::instance(), isColored, task.out);
      if (result.flaws != 0) {
        task.reporter.flawed();
      }
      hasUnknown = hasUnknown || result.hasUnknown;
    });
  }
  if (hasUnknown) {
    task.reporter.tell("unknown fields are those that are not in the " + dictionaryText());
  }
}

}  // namespace MD::tool
