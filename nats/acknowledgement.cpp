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
    answer.reason =
        error->value.IsObject() ? printable(stringOf(error->value, "description")) : "an error without a text";
    constexpr int kTemporarilyUnavailable = 10008;
    const auto code = error->value.IsObject() ? error->value.FindMember("err_code") : error->value.MemberEnd();
    const bool hasCode = error->value.IsObject() && code != error->value.MemberEnd() && code->value.IsInt();
    if (hasCode && code->value.GetInt() == kTemporarilyUnavailable) {
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
