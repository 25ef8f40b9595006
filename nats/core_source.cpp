#include <chrono>
#include <utility>

#include "nats/headers.h"
#include "nats/source.h"

namespace MD::tool {

NatsSource::NatsSource(const SubscribeOptions& options, Output& out, Reporter& reporter)
    : m_options(options),
      m_out(out),
      m_reporter(reporter),
      m_end(options.timeout, options.idle),
      m_dictionaries(reporter) {}

bool NatsSource::next(InputMessage& message) {
  constexpr std::uint64_t kMessagesPerLook = 1024;
  if (m_messages == m_options.count || (m_messages % kMessagesPerLook == 0 && m_end.isEnd(false))) {
    return false;
  }
  bool isWaiting = false;
  NatsPointer<natsMsg> next;
  while ((next = NatsPointer<natsMsg>(take())) == nullptr) {
    if (m_isLost || isAtEnd() || m_end.isEnd(true)) {
      return false;
    }
    isWaiting = true;
  }
  m_message = std::move(next);
  if (isWaiting) {
    m_end.restartIdle();
  }
  m_reporter.setPlace({Place::Kind::Datagram, ++m_messages, 0});
  m_dictionaries.look(*m_message, connection());
  message = {};
  const void* const data = natsMsg_GetData(m_message.get());
  message.data = static_cast<const std::uint8_t*>(data);
  message.sizeBytes = static_cast<std::size_t>(natsMsg_GetDataLength(m_message.get()));
  if (m_options.form == SubscribeOptions::Form::Bytes && m_options.sink.form == OutputForm::Capture) {
    message.timeNs = capturedNs(m_message.get());
    if (!message.timeNs) {
      message.timeNs = storedNs(*m_message);
    }
    if (!message.timeNs) {
      const auto now = std::chrono::system_clock::now().time_since_epoch();
      message.timeNs = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
    }
  }
  return true;
}

CoreSource::CoreSource(const Server& server, const SubscribeOptions& options, Output& out, Reporter& reporter)
    : NatsSource(options, out, reporter), m_server(server), m_connection(server.connect()) {
  const char* const subject = options.subject.c_str();
  const natsStatus status = options.group
                                ? natsConnection_QueueSubscribeSync(NatsOut(m_subscription), m_connection.get(),
                                                                    subject, options.group->c_str())
                                : natsConnection_SubscribeSync(NatsOut(m_subscription), m_connection.get(), subject);
  if (status != NATS_OK) {
    throw UsageError("cannot subscribe to " + inQuotes(options.subject) + ": " + reasonOf(status));
  }
  natsSubscription_SetPendingLimits(m_subscription.get(), options.pendingMessages, -1);
  // What is published from here on arrives.
  constexpr std::int64_t kLongestMs = 5000;
  if (const natsStatus flushed = natsConnection_FlushTimeout(m_connection.get(), kLongestMs); flushed != NATS_OK) {
    throw UsageError("cannot subscribe to " + inQuotes(options.subject) + ": " + reasonOf(flushed));
  }
}

natsMsg* CoreSource::take() {
  natsMsg* message = nullptr;
  natsStatus status = natsSubscription_NextMsg(&message, m_subscription.get(), 0);
  if (status == NATS_TIMEOUT) {
    m_out.flush();
    constexpr std::int64_t kWaitMs = 50;
    status = natsSubscription_NextMsg(&message, m_subscription.get(), kWaitMs);
  }
  if (status == NATS_OK) {
    return message;
  }
  if (status != NATS_TIMEOUT && status != NATS_SLOW_CONSUMER) {
    m_reporter.wholeInput("the connection to " + m_server.name() + " is lost: " + reasonOf(status));
    m_isLost = true;
  }
  return nullptr;
}

void CoreSource::finish() {
  std::int64_t dropped = 0;
  if (natsSubscription_GetDropped(m_subscription.get(), &dropped) == NATS_OK && dropped > 0) {
    m_reporter.wholeInput(counted(static_cast<std::uint64_t>(dropped), "message") +
                          " dropped: they arrived faster than they were written; --pending sets a larger limit");
  }
  NatsPointer<natsStatistics> statistics;
  std::uint64_t reconnects = 0;
  static_cast<void>(natsStatistics_Create(NatsOut(statistics)));
  if (natsConnection_GetStats(m_connection.get(), statistics.get()) == NATS_OK) {
    natsStatistics_GetCounts(statistics.get(), nullptr, nullptr, nullptr, nullptr, &reconnects);
  }
  if (reconnects != 0) {
    m_reporter.wholeInput("the connection to " + m_server.name() + " was lost " + counted(reconnects, "time") +
                          ", and messages published meanwhile are missing");
  }
}

}  // namespace MD::tool
