// Names that options had in the version before this one.
#ifndef MDMSG_OLD_NAMES_H
#define MDMSG_OLD_NAMES_H

namespace CLI {
class App;
}

namespace MD::tool {

/// Lets the old names work as the new ones do, hidden from help, manual page and completions.
/// @param app  with all its commands
void addOldNames(CLI::App& app);

}  // namespace MD::tool

#endif
