#include "md/md_datetime.h"

#include <ostream>

#include "stream_state.h"

namespace MD {

std::ostream& operator<<(std::ostream& out, const MD_DateTime& value) {
  const detail::StreamState state(out);
  return out << value.date() << ' ' << value.time() << " (" << value.exch_gmt_offset() << ')';
}

}  // namespace MD
