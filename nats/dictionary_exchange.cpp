#include "nats/dictionary_exchange.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/quoted_text.h"
#include "dictionary/compatibility.h"
#include "dictionary/definition_file.h"
#include "md/md_fieldmap.h"
#include "nats/headers.h"
#include "text/value_text.h"

namespace MD::tool {
namespace {

constexpr const char* kSubjectStart = "md-dictionary.";

using SharedText = std::shared_ptr<const std::string>;

void answer(natsConnection* connection, natsSubscription*, natsMsg* request, void* text) {
  const NatsPointer<natsMsg> owner(request);
  if (natsMsg_GetReply(request) != nullptr) {
    static_cast<void>(natsConnection_PublishString(connection, natsMsg_GetReply(request),
                                                   (*static_cast<const SharedText*>(text))->c_str()));
  }
}

void release(void* text) { delete static_cast<SharedText*>(text); }

/// The fields of a dictionary file's text, as far as their types are known.
DictionaryRows rowsIn(std::string_view text) {
  DictionaryRows rows;
  for (const Definition& entry : readTextDefinitions(text).entries) {
    const auto type = typeCode(entry.typeName);
    if (entry.isRead && type) {
      rows[entry.id] = {entry.name, *type};
    }
  }
  return rows;
}

}  // namespace

DictionaryOffer::DictionaryOffer() : m_subject(kSubjectStart + ownFingerprint()) {
  std::string text;
  for (const auto& [id, row] : currentRows()) {
    if (whyNoTextName(row.name) == nullptr) {
      Definition entry;
      entry.name = row.name;
      entry.id = id;
      entry.typeName = typeName(row.type);
      appendTextDefinition(entry, text);
    }
  }
  m_text = std::make_shared<const std::string>(std::move(text));
}

NatsPointer<natsSubscription> DictionaryOffer::answerOn(natsConnection& connection) const {
  NatsPointer<natsSubscription> subscription;
  if (static_cast<std::int64_t>(m_text->size()) >= natsConnection_GetMaxPayload(&connection)) {
    return subscription;
  }
  auto text = std::make_unique<SharedText>(m_text);
  if (natsConnection_Subscribe(NatsOut(subscription), &connection, m_subject.c_str(), &answer, text.get()) == NATS_OK) {
    // The library's thread may still be answering when the subscription is gone, so it has the text to itself. Where
    // the connection is lost at once, nobody knows when that thread is done with it.
    static_cast<void>(natsSubscription_SetOnCompleteCB(subscription.get(), &release, text.release()));
  }
  return subscription;
}

DictionaryWatch::DictionaryWatch(Reporter& reporter) : m_reporter(reporter), m_own(ownFingerprint()) {}

void DictionaryWatch::look(natsMsg& message, natsConnection& connection) {
  const char* fingerprint = nullptr;
  if (natsMsgHeader_Get(&message, kDictionaryHeader, &fingerprint) != NATS_OK || fingerprint == nullptr ||
      m_own == fingerprint) {
    return;
  }
  const char* publisher = nullptr;
  static_cast<void>(natsMsgHeader_Get(&message, kPublisherHeader, &publisher));
  const std::string name = publisher != nullptr ? publisher : "";
  // A publisher can invent any number of them.
  constexpr std::size_t kMostSeen = 1000;
  if (m_seen.size() >= kMostSeen || !m_seen.insert(name + ' ' + fingerprint).second) {
    return;
  }
  std::string report = "publisher " + inQuotes(name) + " has another dictionary, " + printable(fingerprint);
  NatsPointer<natsMsg> reply;
  constexpr std::int64_t kLongestMs = 1000;
  const std::string_view digits(fingerprint);
  const bool isFingerprint =
      digits.size() == 16 && digits.find_first_not_of("0123456789abcdef") == std::string_view::npos;
  if (!isFingerprint ||
      natsConnection_Request(NatsOut(reply), &connection, (kSubjectStart + std::string(digits)).c_str(), "", 0,
                             kLongestMs) != NATS_OK) {
    m_reporter.tell(report + "; the publisher does not answer, so the fields that differ are not known");
    return;
  }
  const DictionaryRows theirs =
      rowsIn({natsMsg_GetData(reply.get()), static_cast<std::size_t>(natsMsg_GetDataLength(reply.get()))});
  const auto differing = incompatibilities(theirs, currentRows(), Compatibility::Backward, std::nullopt);
  constexpr std::size_t kMostShown = 20;
  m_reporter.tell(report + (differing.empty() ? ", with which its messages are read in the same way" : ":"));
  for (std::size_t i = 0; i != std::min(differing.size(), kMostShown); ++i) {
    m_reporter.tell(std::string("  ") + differing[i].kind + ' ' + std::to_string(differing[i].id) + ' ' +
                    differing[i].change + ": " + differing[i].reason);
  }
  if (differing.size() > kMostShown) {
    m_reporter.tell("  and " + std::to_string(differing.size() - kMostShown) + " more");
  }
}

}  // namespace MD::tool
