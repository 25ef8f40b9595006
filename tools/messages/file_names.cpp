#include "messages/file_names.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "base/errors.h"
#include "base/quoted_text.h"
#include "messages/groups.h"
#include "text/percent_text.h"

namespace MD::tool {
namespace {

bool isPlain(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("-_+=@,").find(c) != std::string_view::npos;
}

}  // namespace

void appendNamePart(std::string_view value, std::string& name) {
  const auto isKept = [&](std::size_t i) {
    return isPlain(value[i]) || (value[i] == '.' && i != 0 && i + 1 != value.size());
  };
  appendPercentText(value, isKept, name);
}

FileTemplate::FileTemplate(const std::string& text, const std::vector<std::string>& fields, const FieldNames& names) {
  const auto refuse = [&](const std::string& why) { throw UsageError("--output " + inQuotes(text) + ": " + why); };
  const std::size_t first = text.find('{');
  const std::string folder = std::filesystem::path(text).parent_path().string();
  if (first != text.npos && first < folder.size()) {
    refuse("the values are part of the file's name, not of its folder");
  }
  std::set<std::string> used;
  std::size_t begin = 0;
  for (std::size_t open = first; open != text.npos; open = text.find('{', begin)) {
    const std::size_t close = text.find('}', open);
    if (close == text.npos) {
      refuse("a brace is not closed");
    }
    const std::string key = text.substr(open + 1, close - open - 1);
    if (std::find(fields.begin(), fields.end(), key) == fields.end()) {
      refuse(inQuotes(key) + " is not a field of --split-by");
    }
    used.insert(key);
    Part part{text.substr(begin, open - begin), {}};
    try {
      if (isPseudoName(key)) {
        part.column.pseudo = parsePseudoField(key);
      } else {
        part.column.field = names.match(key);
      }
    } catch (const LineError& error) {
      throw UsageError("--split-by: field " + printable(error.field()) + ": " + error.what());
    }
    m_parts.push_back(std::move(part));
    begin = close + 1;
  }
  m_end = text.substr(begin);
  for (const std::string& field : fields) {
    if (used.count(field) == 0) {
      refuse("it lacks {" + printable(field) + "}, a field of --split-by");
    }
  }
}

void FileTemplate::append(const InputMessage& message, std::string& path) {
  const std::size_t start = path.size();
  for (const Part& part : m_parts) {
    path += part.text;
    m_value.clear();
    bool isThere = false;
    if (part.column.pseudo) {
      isThere = hasPseudoField(message, *part.column.pseudo);
      appendPseudoField(message, *part.column.pseudo, TimeFormat(), m_value);
    } else {
      isThere = appendPeekedValue(message, part.column.field, m_value);
    }
    if (isThere) {
      appendNamePart(m_value, path);
    } else {
      path += kNoValue;
    }
  }
  path += m_end;
  const std::size_t slash = path.find_last_of('/');
  if (path.size() - (slash == path.npos || slash < start ? start : slash + 1) > kMostNameBytes) {
    throw LineError(ReportKind::NotHeld,
                    "the name of its file would be longer than " + std::to_string(kMostNameBytes) + " bytes");
  }
}

}  // namespace MD::tool
