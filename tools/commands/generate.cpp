#include "commands/feed_commands.h"
#include "dictionary/dictionary.h"
#include "dictionary/field_names.h"

namespace MD::tool {
void generate(const FeedOptions& feedOptions, const SinkOptions& sinkOptions, Output& out, Reporter& reporter) {
  loadBuiltInDictionary();
  const FieldNames names;
  Feed feed(feedOptions);
  MessageSink sink(sinkOptions, names, out);
  while (feed.next()) {
    sink.append(feed.bytes().data(), static_cast<std::uint32_t>(feed.bytes().size()), feed.timeNs());
    out.lineDone();
  }
  const FeedCounts& counts = feed.counts();
  const auto damaged = [&](Damage kind) { return std::to_string(counts.damages[static_cast<std::size_t>(kind)]); };
  reporter.tell(counted(counts.messages, "message") + ", " + std::to_string(counts.trades) + " of them " +
                (counts.trades == 1 ? "a trade" : "trades"));
  if (const std::uint64_t all = counts.messages - counts.damages[0]; all != 0) {
    reporter.tell(std::to_string(all) + " corrupted: " + damaged(Damage::CutShort) + " truncated, " +
                  damaged(Damage::UnknownField) + " with an unknown field, " + damaged(Damage::RepeatedField) +
                  " with a repeated field, " + damaged(Damage::FirstByte) + " unrecognised");
  }
}

}  // namespace MD::tool
