#include "base/diagnostics.h"

#include <iostream>

#include "base/end_watch.h"
#include "md/md_assert.h"

namespace MD::tool {
namespace {

/// Takes everything and keeps nothing.
class NullBuffer : public std::streambuf {
 protected:
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
  std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
};

std::streambuf* nullBuffer() {
  static NullBuffer buffer;
  return &buffer;
}

void goOn(const char*, const char*, unsigned) {}

/// What stands behind the input's name.
std::string textOf(const Place& place) {
  const auto withOffset = [&](const char* what) {
    return std::string(": ") + what + ' ' + std::to_string(place.number) + " (byte " + std::to_string(place.offset) +
           ')';
  };
  switch (place.kind) {
    case Place::Kind::Line:
      return ':' + std::to_string(place.number);
    case Place::Kind::Message:
      return withOffset("message");
    case Place::Kind::Packet:
      return withOffset("packet");
    case Place::Kind::Datagram:
      return ": datagram " + std::to_string(place.number);
    case Place::Kind::Whole:
      break;
  }
  return {};
}

}  // namespace

std::string Reporter::place() const { return m_input + textOf(m_place); }

void Reporter::error(const LineError& error) { reportLine("", error.field(), error.what()); }

void Reporter::note(std::string_view field, std::string_view text) { reportLine("note: ", field, text); }

void Reporter::reportLine(std::string_view kind, std::string_view field, std::string_view text) {
  std::string report = place() + ": ";
  report += kind;
  if (!field.empty()) {
    report.append("field ").append(printable(field)).append(": ");
  }
  report += text;
  write(std::move(report));
  raise(kBadData);
}

void Reporter::wholeInput(std::string_view text) {
  write(m_input + ": " + std::string(text));
  raise(kBadData);
}

void Reporter::hint(std::string_view place, std::string_view text) {
  write(std::string(place) + ": note: " + std::string(text));
}

void Reporter::unusable(std::string_view text) {
  write(std::string(text));
  raise(kBadUsage);
}

void Reporter::write(std::string text) {
  m_out.flush();
  if (m_progress != nullptr) {
    m_progress->clear();
  }
  text.insert(0, "mdmsg: ") += '\n';
  const BlockingWrite blocking;
  m_err.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
}

QuietLibrary::QuietLibrary()
    : m_cerr(std::cerr.rdbuf(nullBuffer())), m_assertionHandler(set_assertion_handler(&goOn)) {}

QuietLibrary::~QuietLibrary() {
  set_assertion_handler(m_assertionHandler);
  std::cerr.rdbuf(m_cerr);
}

}  // namespace MD::tool
