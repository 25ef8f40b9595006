#include "command_line/filter_command_line.h"

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

namespace MD::tool {
namespace {

constexpr const char* kFilterHelp =
    "Messages are written with the same bytes, into the same kind of file: hex lines as\n"
    "lines, length-prefixed messages with the same framing, packets of a capture with\n"
    "their link headers, addresses and timestamps. pcapng becomes pcap with nanosecond\n"
    "timestamps. A packet is one message.\n"
    "--split-by writes one file per value. In names, letters, digits, - _ + = @ , and dots\n"
    "that are neither first nor last stay; other bytes become % and two hex digits, an empty\n"
    "value becomes %, and a missing field %-. NUL and other device names of Windows become\n"
    "%4EUL.\n"
    "\n"
    "Examples:\n"
    "  mdmsg filter --where 'SYMBOL in (AB, CD)' feed.pcap.gz > ab_cd.pcap\n"
    "  mdmsg filter --from-time 09:30 --to-time 09:35 --output open.pcap.zst feed.pcap\n"
    "  mdmsg filter --split-by SYMBOL --output 'symbols/{SYMBOL}.pcap' feed.pcap";

constexpr const char* kMergeHelp =
    "Packets are merged by capture time, into pcap with the link type of all inputs;\n"
    "packets without a message are kept. With --time-field, the field is the time of a\n"
    "message that has it; hex lines and length-prefixed messages require the option. A message\n"
    "without a time follows the one before it in its input. Messages of equal times are in\n"
    "the order of the inputs. Each input must be in order of time itself, so memory use does\n"
    "not grow with the inputs. Exit status: 1 if a message is earlier than the one before it.\n"
    "\n"
    "Examples:\n"
    "  mdmsg merge --output day.pcap line_a.pcap line_b.pcap.zst\n"
    "  mdmsg merge --time-field RECV_TIME monday.hex tuesday.hex > both.hex\n"
    "  mdmsg merge --port 30001 --compress zstd:19 a.pcap b.pcap > both.pcap.zst";

struct FilterLine : CommonOptions {
  bool isOfAllPackets = false;
  std::uint64_t mostFiles = SplitOptions().mostFiles;
  SourceLine source;
  SelectionLine selection;

  /// @throws UsageError for options that do not go together
  FilterOptions options(const Session& session) const {
    FilterOptions options;
    options.source = source.options();
    options.source.takesForeign = options.source.takesPackets = isOfAllPackets;
    if (!splitBy.empty()) {
      options.split.by = splitBy;
      options.split.path = *outputFile;
      options.split.mostFiles = mostFiles;
      options.split.compression = compression();
      options.split.open = [&session, this](OutputFile& file, const std::string& path) {
        Files::open(file, path, *this);
        session.files.isSplitting = true;
      };
      options.split.setBeforeEnd = [&session](std::function<void()> write) {
        session.files.setBeforeLeaving(std::move(write));
      };
    }
    return options;
  }
};

struct MergeLine : CommonOptions {
  std::string timeField;
  SourceLine source;
};

}  // namespace

Command addFilter(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("filter", "Write the selected messages unchanged");
  const auto line = std::make_shared<FilterLine>();
  command->add_flag("--all-packets", line->isOfAllPackets,
                    "Captures only: select packets without a message, too, as messages without fields");
  line->source.add(*command);
  line->selection.add(*command, false);
  line->addLargeOutput(*command);
  CLI::Option* const split =
      named(command
                ->add_option("--split-by", line->splitBy,
                             "Write one file per value of these fields, or of @source, @destination, @encoding, @file, "
                             "@packet, @size and @time, separated by commas; --output names the files, with each field "
                             "in braces: 'out/{SYMBOL}.pcap'")
                ->delimiter(',')
                ->allow_extra_args(false)
                ->needs("--output"),
            "FIELDS");
  named(command->add_option("--max-files", line->mostFiles, "Stop if --split-by needs more than N files, default 1000")
            ->needs(split)
            ->check(&complaintAboutNumber),
        "N");
  line->add(*command);
  command->footer(kFilterHelp);
  return {command, line, [line](const Session& session) {
            const FilterOptions options = line->options(session);
            if (!line->splitBy.empty()) {
              session.watch.begin();
            }
            filter(InputTask(session, *line, options.source, line->selection.options()).task(), options);
            session.files.isSplitting = false;
          }};
}

Command addMerge(CLI::App& app) {
  CLI::App* const command = app.add_subcommand("merge", "Merge captures, or other inputs, in order of time");
  const auto line = std::make_shared<MergeLine>();
  named(command->add_option("--time-field", line->timeField, "EPOCH_NSEC field to use as message timestamp")
            ->check(&complaintAboutEmpty),
        "FIELD");
  line->source.add(*command);
  line->addLargeOutput(*command);
  line->add(*command);
  command->footer(kMergeHelp);
  return {command, line, [line](const Session& session) {
            if (std::count(line->files.begin(), line->files.end(), "-") > 1) {
              throw UsageError("only one of the inputs can be standard input");
            }
            MergeOptions options;
            options.timeField = line->timeField;
            options.source = line->source.optionsWithForeign();
            options.source.takesPackets = true;
            std::deque<Reporter> reporters;
            std::deque<InputTask> inputs;
            std::vector<Task> tasks;
            for (const std::string& file : line->files.empty() ? std::vector<std::string>{"-"} : line->files) {
              Reporter& reporter = reporters.emplace_back(session.streams.err, session.out);
              reporter.setMostReports(line->mostReports);
              CommonOptions own = *line;
              own.files = {file};
              const Session part{session.streams, session.files, session.watch, session.out, reporter};
              tasks.push_back(inputs.emplace_back(part, own, options.source, SelectionOptions()).task());
            }
            merge(tasks, options, session.out);
            for (Reporter& reporter : reporters) {
              reporter.finish();
              session.reporter.raise(reporter.status());
            }
          }};
}

}  // namespace MD::tool
