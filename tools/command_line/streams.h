// The standard streams of a run.
#ifndef MDMSG_STREAMS_H
#define MDMSG_STREAMS_H

#include <iosfwd>

namespace MD::tool {

struct Streams {
  std::istream& in;
  std::ostream& out;
  std::ostream& err;  ///< not std::cerr itself, which the library writes to
  bool isOutTerminal = false;
  bool isErrTerminal = false;
};

}  // namespace MD::tool

#endif
