#include "commands/dictionary_commands.h"

#include <cstdint>

#include <algorithm>
#include <charconv>
#include <map>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "base/hex.h"
#include "base/utf8.h"
#include "dictionary/dictionary.h"
#include "dictionary/field_names.h"
#include "md/md_datatypes.h"
#include "md/md_escape.h"
#include "md/md_fieldmap.h"
#include "text/similar_words.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

/// Loads a file as the library by itself does, which does not look over a byte-order mark before text.
/// @return why it refuses, empty when it does not
std::string refusalOf(const std::string& contents, const std::string& path) {
  const std::string_view text = withoutByteOrderMark(contents);
  try {
    loadDefinitions(isXml(text) ? text : contents, path);
    return {};
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

DefinitionFile checkedDefinitions(const std::string& contents, const std::string& path, const std::string& refusal) {
  const std::string_view text = withoutByteOrderMark(contents);
  DefinitionFile file;
  file.isXml = isXml(text);
  if (file.isXml && !refusal.empty() && refusal != "Failed to load field def file: " + path) {
    // Parsing it here would do what the library refuses it for.
    file.addProblem(FindingKind::File, {}, refusal);
    return file;
  }
  file = readDefinitions(text);
  if (!file.isXml && text.size() != contents.size()) {
    file.addProblem(FindingKind::File, {}, "a byte-order mark; the library reads it as part of the first name");
    std::rotate(file.findings.begin(), file.findings.end() - 1, file.findings.end());
  }
  if (file.findings.empty() && MD_FieldMap::instance().size() == 0) {
    file.addProblem(FindingKind::File, {}, "the library reads no entry");
  }
  return file;
}

bool checkDictionary(const std::string& path, Output& out) {
  const std::string contents = definitionsIn(path);
  const std::string refusal = refusalOf(contents, path);
  const DefinitionFile file = checkedDefinitions(contents, path, refusal);
  const std::size_t fields = refusal.empty() ? MD_FieldMap::instance().size() : 0;
  for (const Finding& finding : file.findings) {
    out.text() +=
        filePlaceText(path, finding.place) + ": " + (finding.isProblem ? "" : "note: ") + harmless(finding.text) + '\n';
  }
  if (const std::string unlisted = file.unlisted(); !unlisted.empty()) {
    out.text() += pathText(path) + ": " + unlisted + '\n';
  }
  out.text() += pathText(path) + ": " + (file.isXml ? "XML" : "text") + ", " + counted(fields, "field") + ", " +
                counted(file.problems, "problem") + ", " + counted(file.notes, "note") + '\n';
  out.lineDone();
  return file.problems == 0;
}

/// Why a format cannot carry an entry; null when it can.
const char* whyNotCarried(const Definition& entry, DefinitionFormat format) {
  if (format == DefinitionFormat::Text) {
    const char* const reason = whyNoTextName(entry.name);
    return reason == nullptr && whyNoTextName(entry.typeName) != nullptr ? "a type with a space" : reason;
  }
  const char* const reason = whyNoXmlName(entry.name);
  return reason == nullptr && whyNoXmlName(entry.typeName) != nullptr ? "a type that is not plain text" : reason;
}

DictionaryRows rowsOf(const std::string& path, Reporter& reporter) {
  loadDictionary(path, reporter);
  return currentRows();
}

class DifferenceWriter {
 public:
  explicit DifferenceWriter(Output& out) : m_out(out) {}

  /// @param reason  empty for none
  void write(const char* kind, std::uint16_t id, const std::string& what, const std::string& reason = {}) {
    constexpr std::size_t kKindWidth = 11;
    constexpr std::size_t kIdWidth = 5;
    const std::string idText = std::to_string(id);
    std::string& text = m_out.text();
    text.append(kind).append(kKindWidth - std::string_view(kind).size() + kIdWidth - idText.size(), ' ');
    text.append(idText).append("  ").append(printable(what));
    text.append(reason.empty() ? "" : ": ").append(reason) += '\n';
    m_out.lineDone();
    m_hasWritten = true;
  }

  bool hasWritten() const noexcept { return m_hasWritten; }

 private:
  Output& m_out;
  bool m_hasWritten = false;
};

std::string retyped(const DictionaryRow& before, const DictionaryRow& after) {
  return after.name + ' ' + typeName(before.type) + " -> " + typeName(after.type);
}

const char* valueText(std::uint8_t type) {
  switch (type) {
    case DATATYPES::CHAR:
      return "1 byte";
    case DATATYPES::INT:
      return "4 bytes; in mInt 1 from 0 to 127 and 2 to 32767";
    case DATATYPES::FLOAT:
      return "4 bytes";
    case DATATYPES::STRING:
      return "up to 65535 bytes, in mInt 254";
    case DATATYPES::BUFFER:
      return "up to 65535 bytes, in mInt 255";
    default:
      return isCarried(type) ? "8 bytes" : "not carried by messages";
  }
}

void describe(const FIELDS::field_rec& row, std::string& out) {
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(row.id >> 8), static_cast<std::uint8_t>(row.id)};
  const std::uint8_t swapped[] = {bytes[1], bytes[0]};
  out += "name   " + printable(row.name) + "\nid     " + std::to_string(row.id) + ", on the wire ";
  appendHex(swapped, 2, out);
  out += " in mInt and IterMap, ";
  appendHex(bytes, 2, out);
  out += std::string(" in MsgT\ntype   ") + typeName(row.type) + ", code " + std::to_string(row.type) + "\nvalue  " +
         valueText(row.type) + '\n';
}

}  // namespace

ExitStatus checkDictionaries(const std::vector<std::string>& paths, Output& out, Reporter& reporter) {
  ExitStatus status = kDone;
  for (const std::string& path : paths) {
    try {
      if (!checkDictionary(path, out)) {
        status = kBadData;
      }
    } catch (const UsageError& error) {
      reporter.unusable(error.what());
    }
  }
  return status;
}

void convertDictionary(const std::string& path, std::optional<DefinitionFormat> format, Output& out,
                       Reporter& reporter) {
  const DefinitionFile file = loadDictionaryFile(path, reporter);
  const DefinitionFormat to = format.value_or(file.isXml ? DefinitionFormat::Text : DefinitionFormat::Xml);
  const bool isToXml = to == DefinitionFormat::Xml;
  if (file.comments != 0) {
    reporter.hint(pathText(path), counted(file.comments, "comment") + " skipped");
  }
  out.text() += isToXml ? kXmlStart : "";
  reporter.setInput(path);
  for (const Definition& entry : file.entries) {
    const auto leaveOut = [&](const std::string& reason) {
      reporter.entry(filePlaceText(path, entry.place), "field " + printable(entry.name) + ": " + reason + "; skipped");
    };
    if (!entry.isRead) {
      leaveOut("the library does not read it");
    } else if (const char* const reason = whyNotCarried(entry, to)) {
      leaveOut(std::string(isToXml ? "XML" : "text") + " cannot carry " + reason);
    } else {
      isToXml ? appendXmlDefinition(entry, out.text()) : appendTextDefinition(entry, out.text());
      out.lineDone();
    }
  }
  if (file.malformed != 0) {
    reporter.entry(pathText(path), counted(file.malformed, "malformed entry", "malformed entries") + " skipped");
  }
  out.text() += isToXml ? kXmlEnd : "";
  out.lineDone();
}

ExitStatus diffDictionaries(const std::string& oldPath, const std::string& newPath, Output& out, Reporter& reporter) {
  const DictionaryRows before = rowsOf(oldPath, reporter);
  const DictionaryRows after = rowsOf(newPath, reporter);
  const auto idsBefore = idsByName(before);
  const auto idsAfter = idsByName(after);
  // The id that a field whose id is gone has in the other dictionary, when that id is new there.
  const auto movedTo = [](const std::string& name, const auto& ids, const DictionaryRows& others) {
    const auto found = ids.find(name);
    return found != ids.end() && others.count(found->second) == 0 ? std::optional(found->second) : std::nullopt;
  };
  DifferenceWriter writer(out);
  DictionaryRows all = before;
  all.insert(after.begin(), after.end());
  for (const auto& [id, row] : all) {
    const auto was = before.find(id);
    const auto is = after.find(id);
    if (is == after.end()) {
      const auto target = idsBefore.count(row.name) != 0 ? movedTo(row.name, idsAfter, before) : std::nullopt;
      if (!target) {
        writer.write("removed", id, row.name + ' ' + typeName(row.type));
        continue;
      }
      writer.write("renumbered", id, row.name + " -> " + std::to_string(*target));
      if (const DictionaryRow& moved = after.at(*target); moved.type != row.type) {
        writer.write("retyped", *target, retyped(row, moved));
      }
    } else if (was == before.end()) {
      if (idsAfter.count(row.name) == 0 || !movedTo(row.name, idsBefore, after)) {
        writer.write("added", id, row.name + ' ' + typeName(row.type));
      }
    } else {
      if (was->second.name != is->second.name) {
        writer.write("renamed", id, was->second.name + " -> " + is->second.name);
      }
      if (was->second.type != is->second.type) {
        writer.write("retyped", id, retyped(was->second, is->second));
      }
    }
  }
  return writer.hasWritten() ? kBadData : kDone;
}

ExitStatus checkCompatibility(const std::string& oldPath, const std::string& newPath, Compatibility level,
                              std::optional<std::uint8_t> encoding, Output& out, Reporter& reporter) {
  const DictionaryRows before = rowsOf(oldPath, reporter);
  const DictionaryRows after = rowsOf(newPath, reporter);
  DifferenceWriter writer(out);
  for (const Incompatibility& found : incompatibilities(before, after, level, encoding)) {
    writer.write(found.kind, found.id, found.change, found.reason);
  }
  return writer.hasWritten() ? kBadData : kDone;
}

void showFields(const std::vector<std::string>& keys, Output& out, Reporter& reporter) {
  const FieldNames names;
  bool isFirst = true;
  for (const std::string& key : keys) {
    try {
      const FIELDS::field_rec& row = names.matchEntry(key);
      out.text() += isFirst ? "" : "\n";
      isFirst = false;
      describe(row, out.text());
      out.lineDone();
    } catch (const LineError& error) {
      reporter.setInput("field " + key);
      reporter.wholeInput(error.what());
    }
  }
}

void showFingerprint(Output& out) {
  out.text() += hexNumber(MD_FieldMap::instance().fingerprint()) + '\n';
  out.lineDone();
}

ExitStatus listFields(const FieldSearch& search, Output& out, Reporter& reporter) {
  std::optional<std::uint8_t> type;
  if (search.type) {
    type = typeCode(*search.type);
    if (!type) {
      throw UsageError("unknown type " + inQuotes(*search.type));
    }
  }
  const std::string wanted = inLowerCase(search.text);
  bool isFound = false;
  for (const FIELDS::field_rec& row : MD_FieldMap::instance()) {
    if ((type && row.type != *type) || inLowerCase(row.name).find(wanted) == std::string::npos) {
      continue;
    }
    isFound = true;
    Definition entry;
    entry.name = escaped(row.name);
    entry.id = row.id;
    entry.typeName = typeName(row.type);
    appendTextDefinition(entry, out.text());
    out.lineDone();
  }
  if (!isFound) {
    reporter.setInput("dictionary");
    reporter.wholeInput("no field matches");
  }
  return isFound ? kDone : kBadData;
}

}  // namespace MD::tool
