// Dictionaries of publishers: offered by them, and asked for by subscribers that have another one.
#ifndef MDMSG_NATS_DICTIONARY_EXCHANGE_H
#define MDMSG_NATS_DICTIONARY_EXCHANGE_H

#include <memory>
#include <set>
#include <string>

#include "base/diagnostics.h"
#include "nats/connection.h"

namespace MD::tool {

/// A publisher answers requests to "md-dictionary.FINGERPRINT" with its dictionary, in the text format, as long as it
/// runs.
class DictionaryOffer {
 public:
  DictionaryOffer();

  /// @return the subscription by which it answers, null when there is none
  NatsPointer<natsSubscription> answerOn(natsConnection& connection) const;

 private:
  std::string m_subject;
  std::shared_ptr<const std::string> m_text;
};

/// Reports publishers with another dictionary, each once.
class DictionaryWatch {
 public:
  explicit DictionaryWatch(Reporter& reporter);

  /// @param connection  by which the publisher's dictionary is asked for
  void look(natsMsg& message, natsConnection& connection);

 private:
  Reporter& m_reporter;
  std::string m_own;
  std::set<std::string> m_seen;
};

}  // namespace MD::tool

#endif
