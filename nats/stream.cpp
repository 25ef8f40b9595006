#include "nats/stream.h"

#include <new>

#include "base/quoted_text.h"

namespace MD::tool {

NatsPointer<jsCtx> streamContext(natsConnection& connection) {
  NatsPointer<jsCtx> context;
  if (natsConnection_JetStream(NatsOut(context), &connection, nullptr) != NATS_OK) {
    throw std::bad_alloc();
  }
  return context;
}

std::string streamReason(natsStatus status, jsErrCode code) {
  if (status == NATS_NO_RESPONDERS || code == JSNotEnabledErr || code == JSNotEnabledForAccountErr) {
    return "the server has no JetStream";
  }
  return reasonOf(status);
}

NatsPointer<jsStreamInfo> streamInfo(natsConnection& connection, const std::string& name) {
  const NatsPointer<jsCtx> context = streamContext(connection);
  NatsPointer<jsStreamInfo> info;
  static_cast<void>(js_GetStreamInfo(NatsOut(info), context.get(), name.c_str(), nullptr, nullptr));
  return info;
}

void prepareStream(natsConnection& connection, const PublishOptions& options, const std::string& subjects) {
  const std::string& name = *options.stream;
  const NatsPointer<jsCtx> context = streamContext(connection);
  NatsPointer<jsStreamInfo> info;
  jsErrCode code{};
  natsStatus status = js_GetStreamInfo(NatsOut(info), context.get(), name.c_str(), nullptr, &code);
  if (status == NATS_NOT_FOUND && options.createsStream) {
    jsStreamConfig config;
    jsStreamConfig_Init(&config);
    const char* subject = subjects.c_str();
    config.Name = name.c_str();
    config.Subjects = &subject;
    config.SubjectsLen = 1;
    const NatsStreamLimits& limits = options.limits;
    config.MaxMsgs = limits.messages.value_or(-1);
    config.MaxBytes = limits.bytes.value_or(-1);
    config.MaxAge = limits.age ? limits.age->count() : 0;
    config.MaxMsgsPerSubject = limits.perSubject.value_or(-1);
    config.Discard = limits.refusesNew ? js_DiscardNew : js_DiscardOld;
    config.DiscardNewPerSubject = limits.refusesNew && limits.perSubject;
    config.Storage = limits.isInMemory ? js_MemoryStorage : js_FileStorage;
    config.Duplicates = limits.duplicateWindow.count();
    status = js_AddStream(NatsOut(info), context.get(), &config, nullptr, &code);
    if (status != NATS_OK) {
      throw UsageError("cannot create the stream " + inQuotes(name) + ": " + streamReason(status, code));
    }
  }
  if (status == NATS_NOT_FOUND) {
    throw UsageError("unknown stream " + inQuotes(name) + "; --create-stream creates it");
  }
  if (status != NATS_OK) {
    throw UsageError("cannot use the stream " + inQuotes(name) + ": " + streamReason(status, code));
  }
  // Later on the stream would not recognise what is published again.
  const std::chrono::nanoseconds window(info->Config->Duplicates);
  if (options.server.retry >= window) {
    throw UsageError("--retry must be shorter than the " +
                     std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(window).count()) +
                     " ms for which the stream " + inQuotes(name) + " remembers message ids");
  }
}

}  // namespace MD::tool
