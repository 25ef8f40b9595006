// Publishing, by core NATS and to a stream.
#ifndef MDMSG_NATS_PUBLISHER_H
#define MDMSG_NATS_PUBLISHER_H

#include <cstdint>

#include <chrono>
#include <deque>
#include <memory>
#include <set>
#include <string>

#include "base/diagnostics.h"
#include "nats/connection.h"
#include "nats/dictionary_exchange.h"
#include "nats/headers.h"

namespace MD::tool {

struct PublishCounts {
  std::uint64_t sent = 0;
  std::uint64_t acknowledged = 0;  ///< by the stream, or of core NATS by the server
  std::uint64_t duplicates = 0;    ///< of them: the stream held them before
  std::uint64_t lost = 0;
};

class Publisher {
 public:
  virtual ~Publisher() = default;

  /// @throws LineError when the server takes no message like this one
  /// @throws ServerLost when the connection is lost for too long
  virtual void publish(const std::string& subject, const InputMessage& message) = 0;

  /// Waits until all is acknowledged. @throws ServerLost
  virtual void finish() = 0;

  const PublishCounts& counts() const noexcept { return m_counts; }
  /// Nothing more can be published: what is not acknowledged is lost.
  void giveUp() noexcept { m_counts.lost = m_counts.sent - m_counts.acknowledged; }

 protected:
  PublishCounts m_counts;
};

/// At most once: the server confirms what has come so far a few times a second, and what was not confirmed when the
/// connection is lost counts as lost.
class CorePublisher final : public Publisher {
 public:
  CorePublisher(const Server& server, HeaderWriter& headers, Reporter& reporter);

  void publish(const std::string& subject, const InputMessage& message) override;
  void finish() override;

 private:
  using Clock = std::chrono::steady_clock;

  natsStatus send(const std::string& subject, const InputMessage& message, bool hasHeaders);
  bool confirm();
  void reconnect();

  const Server& m_server;
  HeaderWriter& m_headers;
  Reporter& m_reporter;
  DictionaryOffer m_offer;
  NatsPointer<natsConnection> m_connection;
  NatsPointer<natsSubscription> m_offered;
  std::uint64_t m_unconfirmed = 0;
  Clock::time_point m_lastHeaders;
  Clock::time_point m_lastConfirmed = Clock::now();
};

/// Each message is acknowledged by the stream. What is not acknowledged when the connection is lost is published again,
/// in its order, under the same message id, by which the stream recognises what it holds.
class StreamPublisher final : public Publisher {
 public:
  /// @throws UsageError when there is no such stream
  StreamPublisher(const Server& server, const std::string& stream, HeaderWriter& headers, Reporter& reporter,
                  NatsPointer<natsConnection> connection);

  void publish(const std::string& subject, const InputMessage& message) override;
  void finish() override;

 private:
  using Clock = std::chrono::steady_clock;

  /// What a message is made of, in few places of memory. It is put together when it is published.
  struct Pending {
    std::string subject;
    std::string payload;
    std::optional<std::int64_t> timeNs;
    Endpoint source;
    bool isDone = false;
  };

  void subscribe();
  natsStatus send(std::uint64_t number, const Pending& pending);
  void waitForAnswers();
  void takeAnswers();
  natsStatus takeArrived();
  void take(natsMsg& answer);
  void refuse(const std::string& reason);
  void recover(const std::string& reason);
  bool resend();

  const Server& m_server;
  std::string m_stream;
  HeaderWriter& m_headers;
  Reporter& m_reporter;
  DictionaryOffer m_offer;
  std::string m_inbox;  // where answers come to; the last number follows
  std::size_t m_inboxBytes = 0;
  std::string m_messageId;  // the last number follows the publisher's name
  NatsPointer<natsConnection> m_connection;
  NatsPointer<natsSubscription> m_answers;
  NatsPointer<natsSubscription> m_offered;
  std::deque<Pending> m_pending;
  std::size_t m_pendingBytes = 0;
  std::uint64_t m_first = 1;  // number of the first pending message
  bool m_isRefusedForNow = false;
  bool m_hasNoResponders = false;  // for a subject; of which message, the client library does not pass on
  Clock::time_point m_lastLook;
  Clock::time_point m_lastProgress = Clock::now();
  Clock::time_point m_firstRecovery;
  int m_recoveries = 0;             // since the last acknowledgement
  std::set<std::string> m_reasons;  // that have been reported
};

}  // namespace MD::tool

#endif
