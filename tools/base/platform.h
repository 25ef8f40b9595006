// What differs between operating systems; no other source of the program asks which one it is built for, but main.
#ifndef MDMSG_PLATFORM_H
#define MDMSG_PLATFORM_H

#include <cstddef>
#include <cstdint>

#include <string>
#include <string_view>
#include <vector>

namespace MD::tool {

/// Reads an IPv4 or IPv6 address into `out`, which has room for 16 bytes. @return 4, 16, or 0 when `text` is none
std::uint8_t parseIpAddress(const std::string& text, std::uint8_t* out);
std::string ipAddressText(const std::uint8_t* bytes, std::uint8_t sizeBytes);

/// How many datagrams the system dropped that came to this socket; 0 where that is not known.
std::uint64_t droppedDatagrams(std::intptr_t socket);

/// Keeps the numbers of standard streams that are closed from the files that are opened: what is meant for the stream
/// would go into the file.
void holdStandardStreams();
/// Whether standard output, standard error, is a terminal.
bool isOutputTerminal();
bool isErrorTerminal();
/// Whether standard input comes from the file `path`; whether standard output goes to it, which holds something.
/// Regular files only: a terminal, a pipe or /dev/null loses nothing. On Windows neither is known.
bool isStandardInput(const std::string& path);
bool isStandardOutput(const std::string& path);
/// Whether standard input is a regular file with something left to read, and standard output goes to it.
bool isStandardInputWritten();
/// Whether the file opened as `path` is the one that `other` leads to.
bool isSameFile(int descriptor, const std::string& path, const std::string& other);
/// Writes to standard error, past all streams, if that can be done without a wait. Usable from any thread.
void tryWriteError(std::string_view text);
/// The signals that ask the program to end, without those that are ignored.
std::vector<int> endingSignals();
/// The columns of the terminal that standard output, or else standard error, is; 80 when that is not known.
std::size_t terminalColumns();

/// The path of a program that is installed beside this one, or else in an absolute folder of the PATH; empty when there
/// is none.
std::string findCompanion(const std::string& name);
/// Runs a program in the place of this one, in the same process. @return only when it cannot be run: why not
std::string runInstead(const std::string& path, const std::vector<std::string>& arguments);

/// The folder where Wireshark looks for the user's plugins in Lua; empty when the environment does not lead to it.
std::string wiresharkPluginFolder();

/// To be called once before secondsEastOfUtc(), which does not look at the environment itself.
void readLocalTimeZone();
/// The offset of local time from UTC at a point in time.
int secondsEastOfUtc(std::int64_t unixSeconds);

}  // namespace MD::tool

#endif
