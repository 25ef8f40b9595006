#include "messages/file_names.h"

#include <algorithm>
#include <cctype>
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

/// End what is compared with the names of devices: an extension, or a stream of the file.
constexpr const char* kBaseEnds = ".:";

/// The length of a path without its last part. Not by std::filesystem::path, which converts the text on Windows.
std::size_t folderBytes(const std::string& path) {
#ifdef _WIN32
  const bool hasDrive = path.size() > 1 && path[1] == ':' && std::isalpha(static_cast<unsigned char>(path[0])) != 0;
  return std::max<std::size_t>(hasDrive ? 2 : 0, path.find_last_of("/\\") + 1);
#else
  return path.find_last_of('/') + 1;
#endif
}

/// Whether a file name is that of a device on Windows, in any folder and with any extension.
bool isDeviceName(std::string_view name) {
  std::string base(name.substr(0, name.find_first_of(kBaseEnds)));
  base.erase(base.find_last_not_of(' ') + 1);
  for (char& c : base) {
    c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  }
  const std::string start = base.substr(0, 3);
  if (start == "COM" || start == "LPT") {
    const std::string number = base.substr(3);
    // Superscript digits in UTF-8 count as digits.
    return (number.size() == 1 && number[0] >= '0' && number[0] <= '9') || number == "\xc2\xb9" ||
           number == "\xc2\xb2" || number == "\xc2\xb3";
  }
  constexpr std::string_view kDevices[] = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"};
  return std::find(std::begin(kDevices), std::end(kDevices), base) != std::end(kDevices);
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
  m_folderBytes = folderBytes(text);
  if (first < m_folderBytes) {
    refuse("the values are part of the file's name, not of its folder");
  }
  const std::string start = text.substr(m_folderBytes, first - m_folderBytes);
  if (first != text.npos && start.find_first_of(kBaseEnds) != start.npos && isDeviceName(start)) {
    refuse("its files would have the name of a device on Windows");
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
  const std::size_t nameStart = start + m_folderBytes;
  const std::size_t valueStart = start + m_parts.front().text.size();
  if (valueStart < path.find_first_of(kBaseEnds, nameStart) && isDeviceName(std::string_view(path).substr(nameStart))) {
    m_value.clear();
    appendPercentText(
        {&path[valueStart], 1}, [](std::size_t) { return false; }, m_value);
    path.replace(valueStart, 1, m_value);
  }
  if (path.size() - nameStart > kMostNameBytes) {
    throw LineError(ReportKind::NotHeld,
                    "the name of its file would be longer than " + std::to_string(kMostNameBytes) + " bytes");
  }
}

}  // namespace MD::tool
