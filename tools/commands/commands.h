// What the program does with its inputs.
#ifndef MDMSG_COMMANDS_H
#define MDMSG_COMMANDS_H

#include <cstddef>
#include <cstdint>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/compression.h"
#include "base/diagnostics.h"
#include "base/output.h"
#include "base/output_file.h"
#include "messages/csv_writer.h"
#include "messages/message_sink.h"
#include "messages/selection.h"
#include "messages/statistics.h"
#include "text/time_text.h"
#include "transport/inputs.h"
#include "transport/message_source.h"

namespace MD::tool {

/// What is the same for all commands that read messages: what they read, where they write, what they say.
struct Task {
  MessageSource& messages;
  const SelectionOptions& selection;
  Output& out;
  Reporter& reporter;
  unsigned jobs = 1;  ///< how many threads work on messages
};

struct EncodeOptions {
  std::string encoding;
  bool isCsv = false;
  std::uint32_t longestLineBytes = kLongestMessage;
  char csvSeparator = ',';
  SinkOptions sink;
  unsigned jobs = 1;  ///< of JSON lines
};

/// JSON lines, or CSV, to messages.
/// @throws UsageError for an encoding that there is not
void encode(Inputs& inputs, const SelectionOptions& selection, const EncodeOptions& options, Output& out,
            Reporter& reporter);

/// How messages are shown. The texts escape what a terminal would obey.
enum class Format { Text, PriceText, Json, Csv, ArrowStream, ArrowFile };

struct DecodeOptions {
  Format format = Format::Text;
  bool isRawText = false;  ///< text only: the bytes of names and values as they are
  TimeFormat time;         ///< JSON and CSV only: of nanosecond timestamps
  CsvStyle csv;
  bool isTextBinary = false;  ///< of Arrow: CHAR and STRING columns are binary
};

/// Messages to formatted text, JSON Lines, CSV or Arrow.
void decode(const Task& task, const DecodeOptions& options);

struct ConvertOptions {
  std::string encoding;
  SinkOptions sink;
};

/// Messages to messages of another encoding.
/// @throws UsageError for an encoding that there is not
void convert(const Task& task, const ConvertOptions& options);

/// One file per value of some fields.
struct SplitOptions {
  std::vector<std::string> by;  ///< fields and pseudo-fields
  std::string path;             ///< with each of them in braces
  std::uint64_t mostFiles = 1000;
  Compression compression;
  /// Opens a file that is to be written. May throw UsageError.
  std::function<void(OutputFile& file, const std::string& path)> open;
  /// Sets what another thread calls if it is to end the process; empty for nothing.
  std::function<void(std::function<void()>)> setBeforeEnd;
};

struct FilterOptions {
  SourceOptions source;  ///< how the messages are read
  SplitOptions split;    ///< without fields: the task's output is the one file
};

/// Messages that are selected, as they came and into the same kind of file.
void filter(const Task& task, const FilterOptions& options);

struct MergeOptions {
  SourceOptions source;   ///< how the messages are read
  std::string timeField;  ///< an EPOCH_NSEC field with the time, in messages that contain it
};

/// Messages of several inputs in order of time, as they came; of equal times in order of the inputs. An input that is
/// not in order itself is reported.
/// @param inputs  each with a reporter of its own, and all with the output
void merge(const std::vector<Task>& inputs, const MergeOptions& options, Output& out);

struct DiffOptions {
  std::vector<std::string> keys;  ///< fields by which messages belong together; none: by their order alone
  bool isJson = false;
};

/// The messages of two inputs that differ, and in which fields. Differences count as bad data.
/// @throws UsageError for a key that there is not
void diff(const Task& before, const Task& after, const DiffOptions& options);

/// Annotated dumps of messages. One with problems counts as bad data.
void dump(const Task& task, bool isColored);

struct StatsOptions {
  ReportOptions report;
  std::string timeField;        ///< an EPOCH_NSEC field with the time, for inputs without times
  std::vector<std::string> by;  ///< fields by whose values messages are counted
  std::int64_t intervalNs = 0;  ///< of the time axis; 0 for one that follows the span
  std::string sequenceField;    ///< a field whose numbers grow by one, empty for none
  std::string sequencePer;      ///< and do so for each value of this field
  Output* svg = nullptr;        ///< where a picture goes, if one is wanted
  Output* html = nullptr;       ///< where a page goes, if one is wanted
};

/// Counts of all messages.
void stats(const Task& task, const StatsOptions& options);

}  // namespace MD::tool

#endif
