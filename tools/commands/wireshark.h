// The dissector for Wireshark that the program carries.
#ifndef MDMSG_WIRESHARK_H
#define MDMSG_WIRESHARK_H

#include <string>

namespace MD::tool {

/// The text of wireshark/md_message.lua.
extern const char* const kDissector;

/// Where to install it: the file's path in `folder`, or, when that is empty, in the folder where Wireshark looks for
/// the user's plugins. The folder is created when it does not exist.
/// @throws UsageError when there is no such folder, and it cannot be created
std::string dissectorPath(const std::string& folder);

}  // namespace MD::tool

#endif
