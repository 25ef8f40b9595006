#include "nats/acknowledgement.h"

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

}  // namespace

Acknowledgement parseAcknowledgement(const char* text, std::size_t sizeBytes) {
  Acknowledgement answer;
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
