// Messages that arrive, from core NATS and from a stream.
#ifndef MDMSG_NATS_SOURCE_H
#define MDMSG_NATS_SOURCE_H

#include <cstdint>

#include <deque>
#include <map>
#include <string>

#include "base/diagnostics.h"
#include "base/output.h"
#include "nats/connection.h"
#include "nats/dictionary_exchange.h"
#include "nats/end_signals.h"
#include "transport/message_source.h"

namespace MD::tool {

/// What both kinds share: when they end, and what they make of a message.
class NatsSource : public MessageSource {
 public:
  bool next(InputMessage& message) final;

  /// Completes the work on what was read: it has been written. @throws OutputError
  virtual void finish() = 0;

  std::uint64_t messages() const noexcept { return m_messages; }
  bool hasEndedEarly() const noexcept { return m_messages < m_options.count; }

 protected:
  NatsSource(const SubscribeOptions& options, Output& out, Reporter& reporter);

  /// The next message, waiting at most 100 ms for it. @return null when there is none yet
  virtual natsMsg* take() = 0;
  /// Whether all messages of the stream have been read, and the run ends there.
  virtual bool isAtEnd() const { return false; }
  /// The connection by which something can be asked.
  virtual natsConnection& connection() = 0;
  /// The message before the one that is to be taken, or null.
  natsMsg* lastMessage() const noexcept { return m_message.get(); }
  /// The time at which a stream stored the message.
  virtual std::optional<std::int64_t> storedNs(natsMsg&) const { return std::nullopt; }

  const SubscribeOptions& m_options;
  Output& m_out;
  Reporter& m_reporter;
  EndSignals m_end;
  bool m_isLost = false;  ///< the server; what ends the source

 private:
  DictionaryWatch m_dictionaries;
  NatsPointer<natsMsg> m_message;
  std::uint64_t m_messages = 0;
};

/// At most once. What comes faster than it is read is dropped, and counted.
class CoreSource final : public NatsSource {
 public:
  /// @throws UsageError when there is no connection
  CoreSource(const Server& server, const SubscribeOptions& options, Output& out, Reporter& reporter);

  void finish() override;

 protected:
  natsMsg* take() override;
  natsConnection& connection() override { return *m_connection; }

 private:
  const Server& m_server;
  NatsPointer<natsConnection> m_connection;
  NatsPointer<natsSubscription> m_subscription;
};

/// From a stream, in its order. After a lost connection it continues after the last message that it returned.
///
/// Without a durable name each message comes once. With one the server keeps the position: a message counts as handled
/// when the next one is asked for and what was written has been written out. What a reader before this one has not
/// handled comes again, first. Readers that share a position by a group get some of the messages each, in no order.
class StreamSource final : public NatsSource {
 public:
  /// @throws UsageError when there is no connection, no such stream, or the durable name belongs to another kind of
  /// consumer
  StreamSource(const Server& server, const SubscribeOptions& options, Output& out, Reporter& reporter);

  void finish() override;

 protected:
  natsMsg* take() override;
  bool isAtEnd() const override { return m_isAtEnd && m_options.endsWhenCaughtUp; }
  natsConnection& connection() override { return *m_connection; }
  std::optional<std::int64_t> storedNs(natsMsg& message) const override;

 private:
  enum class Kind { Ordered, Durable, Shared };

  void attach();
  void attachOrdered(jsCtx& context);
  void attachNamed(jsCtx& context);
  void continuePredecessor(jsCtx& context, const jsConsumerInfo& info);
  void endTakeover();
  void setStart(jsConsumerConfig& config) const;
  bool fetch();
  natsMsg* takeOrdered();
  void readPosition();
  void keepForTakeover(NatsPointer<natsMsg> message);
  void giveTakeover();
  void look();
  void resume(const std::string& reason);
  void acknowledge();

  const Server& m_server;
  std::string m_stream;
  std::string m_durable;  // of Durable and Shared
  Kind m_kind;
  NatsPointer<natsConnection> m_connection;
  NatsPointer<jsCtx> m_context;
  NatsPointer<natsSubscription> m_subscription;
  std::deque<NatsPointer<natsMsg>> m_batch;   // fetched, not given yet
  std::vector<NatsPointer<natsMsg>> m_given;  // and not acknowledged yet; of Durable the last alone
  std::uint64_t m_last = 0;      // sequence in the stream of the last message given; of Ordered as of readPosition()
  std::uint64_t m_ahead = 0;     // messages that the server has for this reader, as far as known
  bool m_isPositionRead = true;  // of Ordered, the last message's
  bool m_isTakeover = false;     // messages of a reader before this one are to come
  std::uint64_t m_takeoverSize = 0;                          // how many
  std::map<std::uint64_t, NatsPointer<natsMsg>> m_takeover;  // those that have come, by their sequence in the stream
  bool m_isAtEnd = false;
};

}  // namespace MD::tool

#endif
