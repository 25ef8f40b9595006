#include "md/md_datetime.h"

#include <ostream>
#include <sstream>

namespace MD {

std::ostream& operator<<(std::ostream& out, const MD_DateTime& value) {
  if (out.width() != 0) {
    // The width is that of the whole text, not of its first part.
    std::ostringstream text;
    text.imbue(out.getloc());
    text.flags(out.flags());
    text << value;
    return out << text.str();
  }
  return out << value.date() << ' ' << value.time() << " (" << value.exch_gmt_offset() << ')';
}

}  // namespace MD
