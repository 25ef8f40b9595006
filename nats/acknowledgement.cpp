#include "nats/acknowledgement.h"

#include <cstdint>

#include <algorithm>
#include <charconv>
#include <string_view>

#include <rapidjson/document.h>

#include "base/quoted_text.h"

namespace MD::tool {
namespace {

std::string stringOf(const rapidjson::Value& object, const char* name) {
  const auto member = object.FindMember(name);
  return member != object.MemberEnd() && member->value.IsString()
             ? std::string(member->value.GetString(), member->value.GetStringLength())
             : std::string();
}

/// Reads {"stream":"MD", "seq":7}, which nearly all answers are: an order of magnitude faster than a parser of any
/// JSON.
bool readUsual(std::string_view text, Acknowledgement& answer) {
  constexpr std::string_view kBeforeStream = R"({"stream":")";
  constexpr std::string_view kBeforeSequence = R"(", "seq":)";
  const std::size_t streamEnd = text.find('"', kBeforeStream.size());
  if (text.substr(0, kBeforeStream.size()) != kBeforeStream || streamEnd == text.npos ||
      text.substr(streamEnd, kBeforeSequence.size()) != kBeforeSequence) {
    return false;
  }
  const std::string_view stream = text.substr(kBeforeStream.size(), streamEnd - kBeforeStream.size());
  const std::string_view sequence = text.substr(streamEnd + kBeforeSequence.size());
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(sequence.data(), sequence.data() + sequence.size(), value);
  const auto isPlain = [](unsigned char c) { return c > 0x20 && c < 0x7f && c != '\\'; };
  if (error != std::errc() ||
      std::string_view(end, static_cast<std::size_t>(sequence.data() + sequence.size() - end)) != "}" ||
      sequence.front() == '0' || stream.empty() || !std::all_of(stream.begin(), stream.end(), isPlain)) {
    return false;
  }
  answer.kind = Acknowledgement::Kind::Stored;
  answer.stream = stream;
  return true;
}

}  // namespace

Acknowledgement parseAcknowledgement(const char* text, std::size_t sizeBytes) {
  Acknowledgement answer;
  if (readUsual({text, sizeBytes}, answer)) {
    return answer;
  }
  rapidjson::Document document;
  document.Parse<rapidjson::kParseIterativeFlag>(text, sizeBytes);
  if (document.HasParseError() || !document.IsObject()) {
    answer.reason = "an answer that is not an acknowledgement: " + inQuotes(std::string(text, sizeBytes));
    return answer;
  }
  answer.stream = stringOf(document, "stream");
  const auto error = document.FindMember("error");
  if (error != document.MemberEnd()) {
    if (!error->value.IsObject()) {
      answer.reason = "an error without a text";
      return answer;
    }
    answer.reason = printable(stringOf(error->value, "description"));
    constexpr int kTemporarilyUnavailable = 10008;
    const auto code = error->value.FindMember("err_code");
    if (code != error->value.MemberEnd() && code->value.IsInt() && code->value.GetInt() == kTemporarilyUnavailable) {
      answer.kind = Acknowledgement::Kind::NotNow;
    }
    return answer;
  }
  const auto sequence = document.FindMember("seq");
  if (answer.stream.empty() || sequence == document.MemberEnd() || !sequence->value.IsUint64()) {
    answer.reason = "an answer that is not an acknowledgement: " + inQuotes(std::string(text, sizeBytes));
    return answer;
  }
  const auto duplicate = document.FindMember("duplicate");
  const bool isDuplicate = duplicate != document.MemberEnd() && duplicate->value.IsTrue();
  answer.kind = isDuplicate ? Acknowledgement::Kind::Duplicate : Acknowledgement::Kind::Stored;
  return answer;
}

}  // namespace MD::tool
