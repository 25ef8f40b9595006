// Statistics as one page that needs nothing else. What is fixed of it is in statistics_page.html.
#include <algorithm>
#include <string_view>
#include <utility>

#include "base/quoted_text.h"
#include "messages/bar_chart.h"
#include "messages/statistics.h"
#include "messages/statistics_text.h"
#include "text/xml_text.h"

namespace MD::tool {
namespace {

/// Text of an input: what a terminal would obey is escaped as in the text report, then what a browser would.
std::string shown(std::string_view text) {
  std::string out;
  appendXmlText(printable(text), out);
  return out;
}

/// A time that may be broken after its date and before its fraction.
std::string brokenTime(const std::string& time) {
  std::string out;
  for (const char c : time) {
    out += c == '.' ? "<wbr/>." : std::string(1, c);
    out += c == 'T' ? "<wbr/>" : "";
  }
  return out;
}

class Page {
 public:
  Page(const Statistics& statistics, const FieldNames& names, const ReportOptions& options, std::string& out)
      : m_all(statistics), m_names(names), m_options(options), m_out(out) {}

  void write() {
    overview();
    chart("rate", "Rate over time", rateChart(m_all.times, m_options.zone));
    chart("sizes", "Message sizes", sizeChart(m_all.sizes));
    groups();
    sequence();
    fields();
    endpoints();
  }

 private:
  struct Head {
    std::string text;
    bool isNumber;
  };

  void section(const char* id, const std::string& title) {
    m_out += std::string("<section id=\"") + id + "\">\n<h2>" + title + "</h2>\n";
  }
  void endSection() { m_out += "</section>\n"; }

  void card(const char* name, const std::string& value) {
    m_out += std::string("<div><dt>") + name + "</dt><dd>" + value + "</dd></div>\n";
  }

  void table(const char* id, const std::string& caption, const std::vector<Head>& heads, bool isSortable = false) {
    m_isNumber.clear();
    m_out += std::string("<div class=\"scroll\"><table id=\"") + id + (isSortable ? "\" class=\"sortable\">" : "\">");
    m_out += "<caption>" + caption + "</caption>\n<thead><tr>";
    for (const Head& head : heads) {
      m_out += std::string("<th scope=\"col\"") + (head.isNumber ? " class=\"n\">" : ">") +
               (isSortable ? "<button>" + head.text + "</button>" : head.text) + "</th>";
      m_isNumber.push_back(head.isNumber);
    }
    m_out += "</tr></thead>\n<tbody>\n";
  }
  void endTable() { m_out += "</tbody></table></div>\n"; }

  /// @param cells  as markup
  void row(const std::vector<std::string>& cells, bool isBad = false) {
    m_out += isBad ? "<tr class=\"bad\">" : "<tr>";
    for (std::size_t i = 0; i != cells.size(); ++i) {
      m_out += (m_isNumber[i] ? "<td class=\"n\">" : "<td>") + cells[i] + "</td>";
    }
    m_out += "</tr>\n";
  }

  void overview() {
    section("overview", "Overview");
    m_out += "<dl class=\"cards\">\n";
    card("messages", std::to_string(m_all.messages));
    card("bytes", std::to_string(m_all.bytes));
    if (m_all.capture) {
      card("packets", std::to_string(m_all.capture->packets));
      card("UDP datagrams", std::to_string(m_all.capture->datagrams));
    }
    if (!m_all.times.isEmpty()) {
      times();
    }
    if (!m_all.sizes.isEmpty()) {
      card("smallest, bytes", std::to_string(m_all.sizes.smallest()));
      card("median, bytes", std::to_string(m_all.sizes.percentile(50)));
      card("99th percentile, bytes", std::to_string(m_all.sizes.percentile(99)));
      card("largest, bytes", std::to_string(m_all.sizes.largest()));
    }
    m_out += "</dl>\n<div class=\"tables\">\n";
    table("encodings", "Encodings", {{"encoding", false}, {"messages", true}, {"bytes", true}, {"share", true}});
    for (std::size_t i = 0; i != m_all.encodings.size(); ++i) {
      const EncodingCount& encoding = m_all.encodings[i];
      row({ENCODINGS::kAll[i].name, std::to_string(encoding.messages), std::to_string(encoding.bytes),
           percent(encoding.messages, m_all.messages)});
    }
    endTable();
    table("problems", "Problems", {{"problem", false}, {"messages", true}});
    const auto problem = [&](const char* name, std::uint64_t count) { row({name, std::to_string(count)}, count != 0); };
    problem("malformed", m_all.malformed);
    problem("truncated", m_all.truncated);
    problem("with unknown fields", m_all.withUnknown);
    problem("unrecognised", m_all.foreign);
    endTable();
    if (!m_all.unknownIds.empty()) {
      table("unknown-ids", "Unknown field ids", {{"id", true}, {"records", true}});
      for (const auto& [id, count] : m_all.unknownIds) {
        row({std::to_string(id), std::to_string(count)});
      }
      endTable();
    }
    m_out += "</div>\n";
    endSection();
  }

  void times() {
    const RateHistogram& times = m_all.times;
    const auto span = static_cast<std::int64_t>(static_cast<std::uint64_t>(times.lastNs()) -
                                                static_cast<std::uint64_t>(times.firstNs()));
    std::uint64_t total = 0;
    std::uint64_t most = 0;
    for (const std::uint64_t count : times.counts()) {
      total += count;
      most = std::max(most, count);
    }
    card("first", brokenTime(momentText(times.firstNs(), m_options.zone)));
    card("last", brokenTime(momentText(times.lastNs(), m_options.zone)));
    card("span", durationText(span));
    if (span > 0) {
      card("mean rate", rateText(total, span));
    }
    card("peak rate", rateText(most, times.widthNs()) + " in " + durationText(times.widthNs()));
  }

  void chart(const char* id, const char* title, const BarChart& chart) {
    section(id, title);
    m_out += "<svg viewBox=\"0 0 " + std::to_string(kChartWidth) + ' ' + std::to_string(kChartHeight) +
             "\" role=\"img\" aria-label=\"" + chart.title + "\">\n";
    appendChart(chart, m_out);
    m_out += "</svg>\n";
    if (!chart.xTitle.empty()) {
      m_out +=
          "<p class=\"note axes\">Horizontal axis: " + brokenTime(chart.xTitle) + ". Vertical axis: messages.</p>\n";
    }
    endSection();
  }

  void countCells(std::vector<std::string> first, const GroupCount& count) {
    const auto time = [&](const std::optional<std::int64_t>& ns) {
      return ns ? brokenTime(momentText(*ns, m_options.zone)) : std::string();
    };
    first.push_back(std::to_string(count.messages));
    first.push_back(std::to_string(count.bytes));
    first.push_back(time(count.firstNs));
    first.push_back(time(count.lastNs));
    row(first);
  }

  /// What the table above omits.
  void others(std::size_t shownRows, std::size_t all, const GroupCount& others) {
    if (shownRows != all) {
      m_out += "<p class=\"note\">and " + std::to_string(all - shownRows) + " more (--top)</p>\n";
    }
    if (others.messages != 0) {
      m_out += "<p class=\"note\">" + std::to_string(others.messages) + " messages of further values</p>\n";
    }
  }

  void groups() {
    if (!m_all.groups) {
      return;
    }
    const std::string by = shown(m_options.groupedBy);
    section("groups", "Messages by " + by);
    table("by", std::to_string(m_all.groups->size()) + " values; select a column to sort by it",
          {{by, false}, {"messages", true}, {"bytes", true}, {"first", false}, {"last", false}}, true);
    const auto rows = m_all.groups->top(m_options.top);
    for (const auto& [key, count] : rows) {
      countCells({shown(key)}, count);
    }
    endTable();
    others(rows.size(), m_all.groups->size(), m_all.groups->others());
    endSection();
  }

  void sequence() {
    if (!m_all.sequence) {
      return;
    }
    const SequenceCheck& check = *m_all.sequence;
    section("sequence", "Sequence numbers");
    m_out += "<dl class=\"cards\">\n";
    card("checked", std::to_string(check.numbers()));
    card("missing", std::to_string(check.missing()));
    card("gaps", std::to_string(check.gaps()));
    card("duplicate", std::to_string(check.duplicates()));
    card("late", std::to_string(check.late()));
    card("not checked", std::to_string(check.unchecked()));
    m_out += "</dl>\n";
    if (!check.events().empty()) {
      table("events", "The first " + std::to_string(check.events().size()),
            {{"where", false}, {"value", false}, {"what", false}});
      for (const auto& event : check.events()) {
        row({shown(event.place), shown(event.key), eventText(event)});
      }
      endTable();
    }
    endSection();
  }

  void fields() {
    section("presence", "Presence of fields");
    table("fields", "Messages that contain the field",
          {{"field", false}, {"id", true}, {"messages", true}, {"share", true}, {"", true}}, true);
    std::vector<std::pair<std::uint16_t, std::uint64_t>> rows;
    for (std::size_t id = 0; id != m_all.fields.size(); ++id) {
      if (m_all.fields[id] != 0) {
        rows.emplace_back(static_cast<std::uint16_t>(id), m_all.fields[id]);
      }
    }
    std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    for (const auto& [id, count] : rows) {
      const std::string share = percent(count, m_all.messages);
      row({shown(m_names.label(id)), std::to_string(id), std::to_string(count), share,
           "<meter value=\"" + ratio(count, m_all.messages, 4) + "\">" + share + "</meter>"});
    }
    endTable();
    endSection();
  }

  void endpoints() {
    if (m_all.endpoints.size() == 0) {
      return;
    }
    section("traffic", "Endpoints");
    table("endpoints", "Datagrams by source and destination; select a column to sort by it",
          {{"from", false}, {"to", false}, {"datagrams", true}, {"bytes", true}, {"first", false}, {"last", false}},
          true);
    const auto rows = m_all.endpoints.top(m_options.top);
    for (const auto& row : rows) {
      countCells({textOf(row.source), textOf(row.destination)}, row.count);
    }
    endTable();
    others(rows.size(), m_all.endpoints.size(), m_all.endpoints.others());
    endSection();
  }

  const Statistics& m_all;
  const FieldNames& m_names;
  const ReportOptions& m_options;
  std::string& m_out;
  std::vector<bool> m_isNumber;  // by column of the current table
};

}  // namespace

std::string pageOf(const Statistics& statistics, const FieldNames& names, const ReportOptions& options) {
  constexpr std::string_view kMarker = "<!--report-->\n";
  const std::string_view page = kStatisticsPage;
  const std::size_t marker = page.find(kMarker);
  std::string out(page.substr(0, marker));
  Page(statistics, names, options, out).write();
  return out.append(page.substr(marker + kMarker.size()));
}

}  // namespace MD::tool
