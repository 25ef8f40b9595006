// What differs between operating systems; no other source of the program asks which one it is built for, but main.
#ifndef MDMSG_PLATFORM_H
#define MDMSG_PLATFORM_H

#include <cstddef>
#include <cstdint>

#include <string>

namespace MD::tool {

/// Reads an IPv4 or IPv6 address into `out`, which has room for 16 bytes. @return 4, 16, or 0 when `text` is none
std::uint8_t parseIpAddress(const std::string& text, std::uint8_t* out);
std::string ipAddressText(const std::uint8_t* bytes, std::uint8_t sizeBytes);

/// Keeps the numbers of standard streams that are closed from the files that are opened: what is meant for the stream
/// would go into the file.
void holdStandardStreams();
/// Whether standard output, standard error, is a terminal.
bool isOutputTerminal();
bool isErrorTerminal();
/// Whether standard input comes from the file `path`. On Windows that is not known.
bool isStandardInput(const std::string& path);
/// The columns of the terminal that standard output, or else standard error, is; 80 when that is not known.
std::size_t terminalColumns();

/// Whether the system knows the time zone `name`, such as "Europe/Vienna". On Windows none is known by name.
bool isTimeZoneName(const std::string& name);
/// Makes secondsEastOfUtc() answer for that zone; for the machine's own when `name` is empty.
void setTimeZone(const std::string& name);
/// How far local time is ahead of UTC at a moment.
int secondsEastOfUtc(std::int64_t unixSeconds);

}  // namespace MD::tool

#endif
