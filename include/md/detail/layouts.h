/// @file
/// The layout of received bytes by their first byte. For the headers of the library only.
#ifndef MD_DETAIL_LAYOUTS_H
#define MD_DETAIL_LAYOUTS_H

#include <cstdint>

#include "md/md_api.h"
#include "md/md_datatypes.h"
#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"

namespace MD::detail {

/// Identifies a layout without an object of it.
template <class L>
struct LayoutTag {
  using Layout = L;
};

/// Calls `use` with the layout of the encoding that the first byte selects.
/// @return the result of `use`; a null result for an unknown encoding byte, and for null or no bytes
template <class Use>
MD_ALWAYS_INLINE inline auto withLayout(const std::uint8_t* bytes, std::uint64_t sizeBytes, Use use)
    -> decltype(use(LayoutTag<MIntLayout>())) {
  if (bytes != nullptr && sizeBytes != 0) {
    switch (bytes[0]) {
      case ENCODINGS::ITERMAP:
        return use(LayoutTag<IterMapLayout>());
      case ENCODINGS::MINT:
        return use(LayoutTag<MIntLayout>());
      case ENCODINGS::MSGT:
        return use(LayoutTag<MsgTLayout>());
      default:
        break;
    }
  }
  return decltype(use(LayoutTag<MIntLayout>()))();
}

}  // namespace MD::detail

#endif
