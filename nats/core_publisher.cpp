#include <algorithm>
#include <limits>
#include <thread>
#include <utility>

#include "nats/publisher.h"

namespace MD::tool {
namespace {

using std::chrono::milliseconds;

constexpr std::uint64_t kMostUnconfirmed = 100'000;
constexpr milliseconds kBetweenConfirmations{250};
/// Headers cost more than all the rest. Messages without a time of their own have them once in this time.
constexpr milliseconds kBetweenHeaders{1};

}  // namespace

CorePublisher::CorePublisher(const Server& server, HeaderWriter& headers, Reporter& reporter)
    : m_server(server), m_headers(headers), m_reporter(reporter), m_connection(server.connect()) {
  m_offered = m_offer.answerOn(*m_connection);
}

void CorePublisher::publish(const std::string& subject, const InputMessage& message) {
  const Clock::time_point now = Clock::now();
  const bool hasHeaders = message.timeNs || now - m_lastHeaders >= kBetweenHeaders;
  if (hasHeaders) {
    m_lastHeaders = now;
  }
  const natsStatus status = send(subject, message, hasHeaders);
  if (status == NATS_MAX_PAYLOAD) {
    throw LineError(std::to_string(message.sizeBytes) + " bytes exceed the limit of the server");
  }
  if (status == NATS_INVALID_SUBJECT || status == NATS_INVALID_ARG || status == NATS_NO_MEMORY) {
    throw LineError(reasonOf(status));
  }
  ++m_counts.sent;
  ++m_unconfirmed;
  // Of a write that failed, the message may have arrived: sent again it could arrive twice.
  const bool isDue = m_unconfirmed >= kMostUnconfirmed || now - m_lastConfirmed >= kBetweenConfirmations;
  if (status != NATS_OK || (isDue && !confirm())) {
    reconnect();
  }
}

natsStatus CorePublisher::send(const std::string& subject, const InputMessage& message, bool hasHeaders) {
  if (message.sizeBytes > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    return NATS_MAX_PAYLOAD;
  }
  const auto sizeBytes = static_cast<int>(message.sizeBytes);
  if (!hasHeaders) {
    return natsConnection_Publish(m_connection.get(), subject.c_str(), message.data, sizeBytes);
  }
  NatsPointer<natsMsg> whole;
  const void* const data = message.data;
  natsStatus status =
      natsMsg_Create(NatsOut(whole), subject.c_str(), nullptr, static_cast<const char*>(data), sizeBytes);
  if (status == NATS_OK) {
    status = m_headers.write(message.timeNs, message.source, whole.get());
  }
  return status == NATS_OK ? natsConnection_PublishMsg(m_connection.get(), whole.get()) : status;
}

/// Asks the server for a sign that it has read everything. @return whether it came
bool CorePublisher::confirm() {
  constexpr std::int64_t kLongestMs = 10000;
  if (natsConnection_FlushTimeout(m_connection.get(), kLongestMs) != NATS_OK) {
    return false;
  }
  m_counts.acknowledged += std::exchange(m_unconfirmed, 0);
  m_lastConfirmed = Clock::now();
  return true;
}

void CorePublisher::reconnect() {
  m_counts.lost += std::exchange(m_unconfirmed, 0);
  m_reporter.tell("the connection to " + m_server.name() + " is lost");
  m_offered.reset();
  m_connection.reset();
  for (const auto end = Clock::now() + m_server.retry(); Clock::now() < end;) {
    if ((m_connection = m_server.tryConnect()) != nullptr) {
      m_offered = m_offer.answerOn(*m_connection);
      m_lastConfirmed = Clock::now();
      m_reporter.tell("connected again");
      return;
    }
    std::this_thread::sleep_for(milliseconds(100));
  }
  throw ServerLost("no connection to " + m_server.name() + " within " + std::to_string(m_server.retry().count()) +
                   " ms");
}

void CorePublisher::finish() {
  if (m_unconfirmed != 0 && !confirm()) {
    m_counts.lost += std::exchange(m_unconfirmed, 0);
  }
}

}  // namespace MD::tool
