#include <algorithm>
#include <new>
#include <string_view>
#include <thread>
#include <utility>

#include "nats/source.h"
#include "nats/stream.h"

namespace MD::tool {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kBatch = 500;
constexpr std::int64_t kMostUnacknowledged = 20'000;
/// While a reader continues the work of another one: only what that one got comes, and it comes at once.
constexpr std::int64_t kTakeoverAckWaitNs = 200'000'000;

natsStatus consumerInfo(jsCtx& context, const std::string& stream, const std::string& name,
                        NatsPointer<jsConsumerInfo>& info) {
  return js_GetConsumerInfo(NatsOut(info), &context, stream.c_str(), name.c_str(), nullptr, nullptr);
}

/// Whether a stream sent it, rather than someone who knows where it sends to.
bool isOfStream(const natsMsg& message) {
  const char* const reply = natsMsg_GetReply(&message);
  return reply != nullptr && std::string_view(reply).rfind("$JS.ACK.", 0) == 0;
}

}  // namespace

StreamSource::StreamSource(const Server& server, const SubscribeOptions& options, Output& out, Reporter& reporter)
    : NatsSource(options, out, reporter),
      m_server(server),
      m_stream(*options.stream),
      m_durable(options.durable ? *options.durable : options.group.value_or("")),
      m_kind(options.group     ? Kind::Shared
             : options.durable ? Kind::Durable
                               : Kind::Ordered),
      m_connection(server.connect()) {
  if (streamInfo(*m_connection, m_stream) == nullptr) {
    throw UsageError("unknown stream " + inQuotes(m_stream) + " at " + server.name());
  }
  try {
    attach();
  } catch (const UsageError&) {
    // The server sends at once, and the connection may break before it has answered everything.
    if (natsConnection_Status(m_connection.get()) == NATS_CONN_STATUS_CONNECTED) {
      throw;
    }
    resume("connection lost");
  }
}

/// Makes, or finds, what delivers the messages. @throws UsageError
void StreamSource::attach() {
  m_context = streamContext(*m_connection);
  if (m_kind == Kind::Ordered) {
    attachOrdered(*m_context);
    return;
  }
  attachNamed(*m_context);
  jsSubOptions options;
  jsSubOptions_Init(&options);
  options.Stream = m_stream.c_str();
  options.Consumer = m_durable.c_str();
  const natsStatus status = js_PullSubscribe(NatsOut(m_subscription), m_context.get(), m_options.subject.c_str(),
                                             nullptr, nullptr, &options, nullptr);
  if (status != NATS_OK) {
    throw UsageError("cannot read the stream " + inQuotes(m_stream) + ": " + reasonOf(status));
  }
}

void StreamSource::setStart(jsConsumerConfig& config) const {
  switch (m_options.start) {
    case NatsStart::All:
      config.DeliverPolicy = js_DeliverAll;
      break;
    case NatsStart::New:
      config.DeliverPolicy = js_DeliverNew;
      break;
    case NatsStart::LastPerSubject:
      config.DeliverPolicy = js_DeliverLastPerSubject;
      break;
    case NatsStart::Time:
      config.DeliverPolicy = js_DeliverByStartTime;
      config.OptStartTime = m_options.startTimeNs;
      break;
    case NatsStart::Sequence:
      config.DeliverPolicy = js_DeliverByStartSequence;
      config.OptStartSeq = m_options.startSequence;
      break;
  }
}

/// The server sends without being asked, and the client library fetches again what is lost on the way.
void StreamSource::attachOrdered(jsCtx& context) {
  jsSubOptions options;
  jsSubOptions_Init(&options);
  options.Stream = m_stream.c_str();
  options.Ordered = true;
  setStart(options.Config);
  if (m_last != 0) {
    options.Config.DeliverPolicy = js_DeliverByStartSequence;
    options.Config.OptStartSeq = m_last + 1;
  }
  natsStatus status =
      js_SubscribeSync(NatsOut(m_subscription), &context, m_options.subject.c_str(), nullptr, &options, nullptr);
  NatsPointer<jsConsumerInfo> info;
  if (status == NATS_OK) {
    // The server does not count headers and subjects in what it sends ahead; the library does.
    constexpr int kMostPendingBytes = 512 << 20;
    status = natsSubscription_SetPendingLimits(m_subscription.get(), -1, kMostPendingBytes);
  }
  if (status == NATS_OK) {
    status = natsSubscription_GetConsumerInfo(NatsOut(info), m_subscription.get(), nullptr, nullptr);
  }
  if (status != NATS_OK) {
    throw UsageError("cannot read the stream " + inQuotes(m_stream) + ": " + reasonOf(status));
  }
  // Of all that it will send, something may be on the way already.
  m_ahead = info->NumPending + info->Delivered.Consumer;
}

void StreamSource::attachNamed(jsCtx& context) {
  const jsAckPolicy policy = m_kind == Kind::Durable ? js_AckAll : js_AckExplicit;
  const auto refuse = [&](const std::string& why) {
    throw UsageError("cannot read the stream " + inQuotes(m_stream) + " as " + inQuotes(m_durable) + ": " + why);
  };
  NatsPointer<jsConsumerInfo> info;
  natsStatus status = consumerInfo(context, m_stream, m_durable, info);
  if (status == NATS_NOT_FOUND) {
    jsConsumerConfig config;
    jsConsumerConfig_Init(&config);
    setStart(config);
    config.Durable = m_durable.c_str();
    config.FilterSubject = m_options.subject.c_str();
    config.AckPolicy = policy;
    config.AckWait = std::chrono::nanoseconds(m_options.ackWait).count();
    config.MaxAckPending = kMostUnacknowledged;
    status = js_AddConsumer(NatsOut(info), &context, m_stream.c_str(), &config, nullptr, nullptr);
  }
  if (status != NATS_OK) {
    refuse(reasonOf(status));
  }
  const jsConsumerConfig& config = *info->Config;
  const std::string filter =
      config.FilterSubject != nullptr && *config.FilterSubject != '\0' ? config.FilterSubject : ">";
  if (config.DeliverSubject != nullptr && *config.DeliverSubject != '\0') {
    refuse("another program created the consumer of this name");
  }
  if (config.AckPolicy != policy) {
    refuse(m_kind == Kind::Durable ? "the position is shared by a group; --queue joins it"
                                   : "the position belongs to one reader, not to a group");
  }
  if (filter != m_options.subject) {
    refuse("its subject is " + printable(filter));
  }
  m_ahead = info->NumPending;
  if (m_kind == Kind::Durable && (info->NumAckPending != 0 || config.AckWait == kTakeoverAckWaitNs)) {
    continuePredecessor(context, *info);
  }
}

/// Lets what another reader got, and did not acknowledge, come first: the server would give new messages first, and
/// those again after the time for their acknowledgement.
void StreamSource::continuePredecessor(jsCtx& context, const jsConsumerInfo& info) {
  if (info.NumAckPending != 0 && m_last == 0) {
    m_reporter.tell("continuing with " + counted(static_cast<std::uint64_t>(info.NumAckPending), "message") +
                    " that an earlier reader received and did not acknowledge");
  }
  jsConsumerConfig config = *info.Config;
  config.AckWait = kTakeoverAckWaitNs;
  config.MaxAckPending = 1;
  NatsPointer<jsConsumerInfo> updated;
  const natsStatus status = js_UpdateConsumer(NatsOut(updated), &context, m_stream.c_str(), &config, nullptr, nullptr);
  if (status != NATS_OK) {
    throw UsageError("cannot continue " + inQuotes(m_durable) + ": " + reasonOf(status));
  }
  m_isTakeover = true;
  m_takeoverSize = static_cast<std::uint64_t>(info.NumAckPending);
  m_takeover.clear();
}

/// Whether all of that has come, and new messages may.
void StreamSource::endTakeover() {
  NatsPointer<jsConsumerInfo> info;
  if (consumerInfo(*m_context, m_stream, m_durable, info) != NATS_OK) {
    return;
  }
  m_takeoverSize = static_cast<std::uint64_t>(info->NumAckPending);
  if (m_takeoverSize != 0) {
    return;
  }
  jsConsumerConfig config = *info->Config;
  config.AckWait = std::chrono::nanoseconds(m_options.ackWait).count();
  config.MaxAckPending = kMostUnacknowledged;
  NatsPointer<jsConsumerInfo> updated;
  if (js_UpdateConsumer(NatsOut(updated), m_context.get(), m_stream.c_str(), &config, nullptr, nullptr) == NATS_OK) {
    m_isTakeover = false;
  }
}

natsMsg* StreamSource::take() {
  if (m_kind == Kind::Ordered) {
    return takeOrdered();
  }
  for (;;) {
    if (m_batch.empty() && !fetch()) {
      return nullptr;
    }
    NatsPointer<natsMsg> message = std::move(m_batch.front());
    m_batch.pop_front();
    NatsPointer<jsMsgMetaData> about;
    if (natsMsg_GetMetaData(NatsOut(about), message.get()) != NATS_OK) {
      continue;  // a status of the server's
    }
    m_ahead = about->NumPending;
    const bool isKnown = m_kind == Kind::Durable && about->Sequence.Stream <= m_last;
    // The acknowledgement of a message needs the subject that came with it, so that a part of it is kept.
    NatsPointer<natsMsg> receipt;
    if (natsMsg_Create(NatsOut(receipt), natsMsg_GetReply(message.get()), nullptr, nullptr, 0) != NATS_OK) {
      throw std::bad_alloc();
    }
    if (m_kind == Kind::Durable && !isKnown) {
      m_given.clear();
      m_last = about->Sequence.Stream;
    }
    m_given.push_back(std::move(receipt));
    if (!isKnown) {
      return message.release();
    }
  }
}

/// Acknowledges what was given: it has been written.
void StreamSource::acknowledge() {
  if (m_given.empty()) {
    return;
  }
  m_out.flush();
  for (const NatsPointer<natsMsg>& receipt : m_given) {
    // One that does not arrive makes the message come again.
    static_cast<void>(natsConnection_PublishString(m_connection.get(), natsMsg_GetSubject(receipt.get()), "+ACK"));
  }
  m_given.clear();
}

/// Fetches what is there, or waits up to 100 ms for one message. @return whether there is one
bool StreamSource::fetch() {
  acknowledge();
  if (m_isTakeover && m_takeover.empty()) {
    endTakeover();
  }
  jsFetchRequest request;
  jsFetchRequest_Init(&request);
  const std::uint64_t wanted = m_isTakeover
                                   ? m_takeoverSize - std::min<std::uint64_t>(m_takeoverSize, m_takeover.size())
                                   : std::min<std::uint64_t>(m_ahead, m_options.count - messages());
  request.Batch = static_cast<int>(std::clamp<std::uint64_t>(wanted, 1, kBatch));
  // The server gives what it has without a wait for more; when it has nothing, the next message comes at once.
  request.NoWait = !m_isTakeover && m_ahead != 0;
  // What it has comes soon, and a request that times out while it comes would be answered later.
  constexpr std::int64_t kMs = 1'000'000;
  request.Expires = m_isTakeover ? 500 * kMs : m_ahead != 0 ? 5000 * kMs : 100 * kMs;
  if (m_ahead == 0) {
    m_out.flush();
  }
  natsMsgList list{nullptr, 0};
  const natsStatus status = natsSubscription_FetchRequest(&list, m_subscription.get(), &request);
  if (status == NATS_OK) {
    for (int i = 0; i != list.Count; ++i) {
      NatsPointer<natsMsg> message(std::exchange(list.Msgs[i], nullptr));
      if (m_isTakeover) {
        keepForTakeover(std::move(message));
      } else {
        m_batch.push_back(std::move(message));
      }
    }
    natsMsgList_Destroy(&list);
    giveTakeover();
    if (m_batch.empty()) {
      look();
    }
  } else if (status == NATS_TIMEOUT || status == NATS_NOT_FOUND) {
    look();
  } else {
    resume(reasonOf(status));
  }
  return !m_batch.empty();
}

/// The server sends again in any order, and the acknowledgement of one message is that of all before it: so they wait
/// for each other.
void StreamSource::keepForTakeover(NatsPointer<natsMsg> message) {
  NatsPointer<jsMsgMetaData> about;
  if (natsMsg_GetMetaData(NatsOut(about), message.get()) == NATS_OK) {
    m_takeover.insert_or_assign(about->Sequence.Stream, std::move(message));
  }
}

/// Passes on what an earlier reader did not acknowledge, in the order of the stream, once all of it has come.
void StreamSource::giveTakeover() {
  if (m_takeover.size() < m_takeoverSize) {
    return;
  }
  for (auto& [sequence, message] : m_takeover) {
    m_batch.push_back(std::move(message));
  }
  m_takeover.clear();
}

/// The next message of an ordered reader.
natsMsg* StreamSource::takeOrdered() {
  if (m_ahead == 0 && m_options.endsWhenCaughtUp) {
    readPosition();
    m_isAtEnd = m_ahead == 0;
    if (m_isAtEnd) {
      return nullptr;
    }
  }
  natsMsg* message = nullptr;
  natsStatus status = natsSubscription_NextMsg(&message, m_subscription.get(), 0);
  if (status == NATS_TIMEOUT) {
    m_out.flush();
    readPosition();  // some of those ahead may have been deleted
    constexpr std::int64_t kWaitMs = 50;
    status = natsSubscription_NextMsg(&message, m_subscription.get(), kWaitMs);
  }
  if (status == NATS_OK && !isOfStream(*message)) {
    natsMsg_Destroy(message);
    return nullptr;
  }
  if (status == NATS_OK) {
    m_isPositionRead = false;
    m_ahead -= m_ahead != 0 ? 1 : 0;
  } else if (status != NATS_TIMEOUT) {
    resume(reasonOf(status));
  }
  return message;
}

/// Reads from the last message of an ordered reader where it was in the stream, and how many followed. The library
/// allocates for it, so that it is not done for each message.
void StreamSource::readPosition() {
  NatsPointer<jsMsgMetaData> about;
  if (!m_isPositionRead && natsMsg_GetMetaData(NatsOut(about), lastMessage()) == NATS_OK) {
    m_last = about->Sequence.Stream;
    m_ahead = about->NumPending;
  }
  m_isPositionRead = true;
}

/// Asks the server how much there is ahead.
void StreamSource::look() {
  m_ahead = 0;
  if (!m_isTakeover && !m_options.endsWhenCaughtUp) {
    return;
  }
  NatsPointer<jsConsumerInfo> info;
  if (consumerInfo(*m_context, m_stream, m_durable, info) != NATS_OK) {
    return;
  }
  if (m_isTakeover) {
    // Acknowledgements of the earlier reader may have arrived since.
    m_takeover.erase(m_takeover.begin(), m_takeover.upper_bound(info->AckFloor.Stream));
    m_takeoverSize = static_cast<std::uint64_t>(info->NumAckPending);
    giveTakeover();
  }
  m_ahead = info->NumPending;
  m_isAtEnd = info->NumPending == 0 && info->NumAckPending == 0 && !m_isTakeover;
}

/// Continues after the last message returned, by a new connection. Messages that were returned and not acknowledged
/// may arrive again; they are skipped.
void StreamSource::resume(const std::string& reason) {
  m_reporter.tell("the stream " + m_stream + " at " + m_server.name() + ": " + reason + "; connecting again");
  readPosition();
  m_batch.clear();
  m_given.clear();
  m_takeover.clear();
  for (const auto end = Clock::now() + m_server.retry(); Clock::now() < end && !m_end.isEnd(false);) {
    m_subscription.reset();
    m_context.reset();
    NatsPointer<natsConnection> connection = m_server.tryConnect();
    if (connection != nullptr && streamInfo(*connection, m_stream) != nullptr) {
      m_connection = std::move(connection);
      try {
        attach();
        m_end.restartIdle();
        return;
      } catch (const UsageError&) {
        // The server may not be ready yet.
      }
    }
    std::this_thread::sleep_for(milliseconds(100));
  }
  m_reporter.wholeInput("the stream " + m_stream + " at " + m_server.name() + " was not reached again");
  m_isLost = true;
}

std::optional<std::int64_t> StreamSource::storedNs(natsMsg& message) const {
  NatsPointer<jsMsgMetaData> about;
  static_cast<void>(natsMsg_GetMetaData(NatsOut(about), &message));
  return about != nullptr ? std::optional<std::int64_t>(about->Timestamp) : std::nullopt;
}

void StreamSource::finish() {
  if (m_isLost) {
    return;
  }
  acknowledge();
  if (m_kind == Kind::Ordered) {
    static_cast<void>(natsSubscription_Unsubscribe(m_subscription.get()));  // which ends what the server keeps for it
  }
  constexpr std::int64_t kLongestMs = 5000;
  static_cast<void>(natsConnection_FlushTimeout(m_connection.get(), kLongestMs));
}

}  // namespace MD::tool
