#include <cstring>

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>
#include <thread>
#include <utility>

#include "base/quoted_text.h"
#include "nats/acknowledgement.h"
#include "nats/publisher.h"
#include "nats/stream.h"

namespace MD::tool {
namespace {

using std::chrono::milliseconds;

/// How many messages, and bytes of them, may wait for their acknowledgement.
constexpr std::size_t kMostPending = 4096;
constexpr std::size_t kMostPendingBytes = std::size_t{16} << 20;
/// When no acknowledgement comes for so long, the connection counts as lost.
constexpr milliseconds kLongestSilence{5000};
constexpr milliseconds kBetweenAttempts{100};
constexpr std::chrono::microseconds kBetweenLooks{500};

void appendDigits(std::uint64_t number, std::string& text) {
  char digits[20];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

}  // namespace

StreamPublisher::StreamPublisher(const Server& server, const std::string& stream, HeaderWriter& headers,
                                 Reporter& reporter, NatsPointer<natsConnection> connection)
    : m_server(server),
      m_stream(stream),
      m_headers(headers),
      m_reporter(reporter),
      m_connection(std::move(connection)) {
  NatsPointer<natsInbox> inbox;
  if (natsInbox_Create(NatsOut(inbox)) != NATS_OK) {
    throw std::bad_alloc();
  }
  m_inbox = std::string(inbox.get()) + '.';
  m_inboxBytes = m_inbox.size();
  m_messageId = m_headers.publisher() + '-';
  subscribe();
}

void StreamPublisher::subscribe() {
  natsConnection_SubscribeSync(NatsOut(m_answers), m_connection.get(), (m_inbox.substr(0, m_inboxBytes) + '*').c_str());
  if (m_answers != nullptr) {
    natsSubscription_SetPendingLimits(m_answers.get(), -1, -1);
  }
  m_offered = m_offer.answerOn(*m_connection);
}

void StreamPublisher::publish(const std::string& subject, const InputMessage& message) {
  if (static_cast<std::int64_t>(message.sizeBytes) > natsConnection_GetMaxPayload(m_connection.get())) {
    throw LineError(std::to_string(message.sizeBytes) + " bytes exceed the limit of the server");
  }
  Pending pending;
  pending.subject = subject;
  const void* const data = message.data;
  pending.payload.assign(static_cast<const char*>(data), message.sizeBytes);
  pending.timeNs = message.timeNs;
  pending.source = message.source;
  m_pending.push_back(std::move(pending));
  m_pendingBytes += message.sizeBytes;
  ++m_counts.sent;
  if (m_pending.size() == 1) {
    m_lastProgress = Clock::now();
  }
  const natsStatus status = send(m_first + m_pending.size() - 1, m_pending.back());
  if (status != NATS_OK) {
    recover(reasonOf(status));
  }
  if (Clock::now() - m_lastLook >= kBetweenLooks) {
    takeAnswers();
  }
  while (m_pending.size() >= kMostPending || m_pendingBytes >= kMostPendingBytes) {
    waitForAnswers();
  }
}

natsStatus StreamPublisher::send(std::uint64_t number, const Pending& pending) {
  m_inbox.resize(m_inboxBytes);
  appendDigits(number, m_inbox);
  m_messageId.resize(m_headers.publisher().size() + 1);
  appendDigits(number, m_messageId);
  NatsPointer<natsMsg> message;
  natsStatus status = natsMsg_Create(NatsOut(message), pending.subject.c_str(), m_inbox.c_str(), pending.payload.data(),
                                     static_cast<int>(pending.payload.size()));
  if (status == NATS_OK) {
    status = m_headers.write(pending.timeNs, pending.source, message.get());
  }
  if (status == NATS_OK) {
    status = natsMsgHeader_Set(message.get(), kMessageIdHeader, m_messageId.c_str());
  }
  if (status != NATS_OK) {
    throw std::bad_alloc();
  }
  return natsConnection_PublishMsg(m_connection.get(), message.get());
}

void StreamPublisher::finish() {
  while (!m_pending.empty()) {
    waitForAnswers();
  }
}

/// A thread that waits for the next answer is woken by each of them, and contends for it with the thread that reads the
/// connection. So this one sleeps while many come.
void StreamPublisher::waitForAnswers() {
  std::this_thread::sleep_for(kBetweenLooks);
  takeAnswers();
}

void StreamPublisher::takeAnswers() {
  m_lastLook = Clock::now();
  natsStatus status = takeArrived();
  if (m_isRefusedForNow) {
    // Acknowledgements of the other messages take longer than refusals.
    std::this_thread::sleep_for(kBetweenAttempts);
    status = takeArrived();
  }
  m_reporter.refreshProgress();
  const bool hasNoResponders = std::exchange(m_hasNoResponders, false);
  if (std::exchange(m_isRefusedForNow, false)) {
    if (hasNoResponders && m_recoveries != 0 && Clock::now() - m_firstRecovery > kLongestSilence &&
        streamInfo(*m_connection, m_stream) != nullptr) {
      throw ServerLost("the stream " + m_stream + " does not take the subject " + inQuotes(m_pending.front().subject));
    }
    recover("the stream is not ready");
  } else if (status != NATS_TIMEOUT) {
    recover(reasonOf(status));
  } else if (!m_pending.empty() && Clock::now() - m_lastProgress > kLongestSilence) {
    recover("no acknowledgement within " + std::to_string(kLongestSilence.count()) + " ms");
  }
}

/// Takes all answers that are there. @return why there is no other; NATS_TIMEOUT as long as there is a connection
natsStatus StreamPublisher::takeArrived() {
  for (;;) {
    NatsPointer<natsMsg> answer;
    const natsStatus status = natsSubscription_NextMsg(NatsOut(answer), m_answers.get(), 0);
    if (status == NATS_OK) {
      take(*answer);
    } else if (status == NATS_NO_RESPONDERS) {
      m_isRefusedForNow = m_hasNoResponders = true;
    } else {
      return status;
    }
  }
}

void StreamPublisher::take(natsMsg& answer) {
  const std::string_view subject = natsMsg_GetSubject(&answer);
  const std::string_view digits = subject.substr(subject.rfind('.') + 1);
  std::uint64_t number = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (result.ec != std::errc() || result.ptr != digits.data() + digits.size() || number < m_first ||
      number - m_first >= m_pending.size() || m_pending[number - m_first].isDone) {
    return;  // of a message that was published again, and acknowledged before
  }
  if (natsMsg_IsNoResponders(&answer)) {  // where the client library does not make it a status
    m_isRefusedForNow = m_hasNoResponders = true;
    return;
  }
  const Acknowledgement told =
      parseAcknowledgement(natsMsg_GetData(&answer), static_cast<std::size_t>(natsMsg_GetDataLength(&answer)));
  switch (told.kind) {
    case Acknowledgement::Kind::NotNow:
      m_isRefusedForNow = true;
      return;
    case Acknowledgement::Kind::Refused:
      refuse(told.reason);
      break;
    case Acknowledgement::Kind::Duplicate:
    case Acknowledgement::Kind::Stored:
      if (told.stream != m_stream) {
        refuse("the subject belongs to the stream " + printable(told.stream));
        break;
      }
      ++m_counts.acknowledged;
      m_counts.duplicates += told.kind == Acknowledgement::Kind::Duplicate ? 1 : 0;
  }
  m_lastProgress = Clock::now();
  m_recoveries = 0;
  m_pending[number - m_first].isDone = true;
  for (; !m_pending.empty() && m_pending.front().isDone; ++m_first) {
    m_pendingBytes -= m_pending.front().payload.size();
    m_pending.pop_front();
  }
}

void StreamPublisher::refuse(const std::string& reason) {
  ++m_counts.lost;
  constexpr std::size_t kMostReasons = 100;
  if (m_reasons.size() < kMostReasons && m_reasons.insert(reason).second) {
    m_reporter.wholeInput("the stream " + m_stream + " refuses a message: " + reason);
  }
}

/// Connects anew, waits for the stream and publishes all that is not acknowledged. @throws ServerLost, also when no
/// message was acknowledged since the first of several attempts for as long as the server may be away
void StreamPublisher::recover(const std::string& reason) {
  m_reporter.tell(m_server.name() + ": " + reason + "; " + counted(m_pending.size(), "message") +
                  " not acknowledged, to be published again");
  const bool isRepeated = m_recoveries != 0;
  if (isRepeated) {
    // A server that can be reached but acknowledges nothing is asked less and less often.
    std::this_thread::sleep_for(kBetweenAttempts * std::min(m_recoveries, 20));
  } else {
    m_firstRecovery = Clock::now();
  }
  m_recoveries += m_pending.empty() ? 0 : 1;
  for (const auto end = m_firstRecovery + m_server.retry(); Clock::now() < end;) {
    // Its threads end before what they use is destroyed: the client library fails to protect a message in arrival.
    if (m_connection != nullptr) {
      natsConnection_Close(m_connection.get());
    }
    m_offered.reset();
    m_answers.reset();
    m_connection = m_server.tryConnect();
    if (m_connection != nullptr && streamInfo(*m_connection, m_stream) != nullptr && resend()) {
      m_reporter.tell(m_server.name() + ": connected again");
      m_lastProgress = Clock::now();
      return;
    }
    std::this_thread::sleep_for(kBetweenAttempts);
  }
  throw ServerLost("the stream " + m_stream + " at " + m_server.name() +
                   (isRepeated ? " acknowledged no message within " : " was not reached within ") +
                   std::to_string(m_server.retry().count()) + " ms");
}

bool StreamPublisher::resend() {
  subscribe();
  if (m_answers == nullptr) {
    return false;
  }
  for (std::size_t i = 0; i != m_pending.size(); ++i) {
    if (!m_pending[i].isDone && send(m_first + i, m_pending[i]) != NATS_OK) {
      return false;
    }
  }
  return true;
}

}  // namespace MD::tool
