#include "messages/pseudo_fields.h"

#include <algorithm>

#include "base/encodings.h"
#include "base/errors.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr struct {
  const char* name;
  PseudoField field;
} kNames[] = {
    {"@time", PseudoField::Time},        {"@source", PseudoField::Source}, {"@destination", PseudoField::Destination},
    {"@packet", PseudoField::Packet},    {"@file", PseudoField::File},     {"@size", PseudoField::Size},
    {"@encoding", PseudoField::Encoding}};

}  // namespace

PseudoField parsePseudoField(std::string_view name) {
  const auto* const found =
      std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& row) { return row.name == name; });
  if (found == std::end(kNames)) {
    std::string list;
    for (const auto& row : kNames) {
      list += (list.empty() ? "" : ", ") + std::string(row.name);
    }
    throw LineError("it is not one of " + list, std::string(name));
  }
  return found->field;
}

const char* pseudoName(PseudoField field) noexcept {
  return std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& row) { return row.field == field; })->name;
}

bool hasPseudoField(const InputMessage& input, PseudoField field) noexcept {
  switch (field) {
    case PseudoField::Time:
      return input.timeNs && *input.timeNs >= 0;
    case PseudoField::Source:
    case PseudoField::Destination:
      return input.hasEndpoints;
    case PseudoField::Encoding:
      return hasEncodingCode(input);
    case PseudoField::File:
      return input.file != nullptr;
    case PseudoField::Packet:
    case PseudoField::Size:
      break;
  }
  return true;
}

std::uint64_t pseudoNumber(const InputMessage& input, PseudoField field) noexcept {
  return field == PseudoField::Packet ? input.number : input.sizeBytes;
}

bool isPseudoNumber(PseudoField field, const TimeFormat& format) noexcept {
  return field == PseudoField::Packet || field == PseudoField::Size ||
         (field == PseudoField::Time && format.isNumber());
}

void appendPseudoField(const InputMessage& input, PseudoField field, const TimeFormat& format, std::string& out) {
  if (!hasPseudoField(input, field)) {
    return;
  }
  switch (field) {
    case PseudoField::Time:
      format.append(static_cast<std::uint64_t>(*input.timeNs), out);
      return;
    case PseudoField::Source:
      out += textOf(input.source);
      return;
    case PseudoField::Destination:
      out += textOf(input.destination);
      return;
    case PseudoField::File:
      out += *input.file;
      return;
    case PseudoField::Encoding:
      out += encodingName(input.data[0]);
      return;
    case PseudoField::Packet:
    case PseudoField::Size:
      appendWhole(pseudoNumber(input, field), out);
  }
}

}  // namespace MD::tool
