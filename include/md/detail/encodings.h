/// @file
/// The classes of all encodings, for code that is made from MD_ENCODINGS. For the library's own headers and sources.
#ifndef MD_DETAIL_ENCODINGS_H
#define MD_DETAIL_ENCODINGS_H

#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"

#endif
