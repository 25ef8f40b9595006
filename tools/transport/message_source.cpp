#include "transport/message_source.h"

namespace MD::tool {

Framing parseFraming(const std::string& text) {
  constexpr struct {
    const char* name;
    Framing framing;
  } kFramings[] = {{"u16le", {2, false}}, {"u16be", {2, true}}, {"u32le", {4, false}}, {"u32be", {4, true}}};
  for (const auto& [name, framing] : kFramings) {
    if (text == name) {
      return framing;
    }
  }
  throw UsageError("unknown framing " + inQuotes(text) + " (u16le, u16be, u32le, u32be)");
}

CaptureCounts operator+(CaptureCounts sum, const CaptureCounts& counts) noexcept {
  sum.packets += counts.packets;
  sum.datagrams += counts.datagrams;
  sum.foreign += counts.foreign;
  sum.notSelected += counts.notSelected;
  sum.fragments += counts.fragments;
  sum.cutShort += counts.cutShort;
  sum.malformed += counts.malformed;
  sum.tcp += counts.tcp;
  sum.otherTransport += counts.otherTransport;
  sum.notIp += counts.notIp;
  return sum;
}

}  // namespace MD::tool
