#include "command_line/filter_command_line.h"

#include <memory>

#include <CLI/CLI.hpp>

namespace MD::tool {
namespace {

constexpr const char* kFilterHelp =
    "Messages are written with the same bytes, into the same kind of file: hex lines as\n"
    "lines, length-prefixed messages with the same framing, packets of a capture with\n"
    "their link headers, addresses and timestamps. pcapng becomes pcap with nanosecond\n"
    "timestamps. A packet is one message.\n"
    "\n"
    "Examples:\n"
    "  mdmsg filter --where 'SYMBOL in (AB, CD)' feed.pcap.gz > ab_cd.pcap\n"
    "  mdmsg filter --from-time 09:30 --to-time 09:35 --output open.pcap feed.pcap\n"
    "  mdmsg filter --framing u32be --where 'not exists(BID)' --limit 10 feed.bin > ten.bin";

struct FilterLine : CommonOptions {
  bool isOfAllPackets = false;
  SourceLine source;
  SelectionLine selection;
};

}  // namespace

Command addFilter(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("filter", "Write the messages that are selected, unchanged");
  const auto line = std::make_shared<FilterLine>();
  command->add_flag("--all-packets", line->isOfAllPackets,
                    "Captures only: select packets without a message, too, as messages without fields");
  line->source.add(*command);
  line->selection.add(*command, false);
  line->addOutput(*command);
  line->add(*command);
  command->footer(kFilterHelp);
  return {command, line, [line](const Session& session) {
            SourceOptions source = line->source.options();
            source.takesForeign = source.takesPackets = line->isOfAllPackets;
            filter(InputTask(session, *line, source, line->selection.options()).task(), source);
          }};
}

}  // namespace MD::tool
