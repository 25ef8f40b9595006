#include "library.h"

#include "md/md_itermap.h"
#include "md/md_mint.h"
#include "md/md_msgt.h"

namespace bench {
namespace {

const bool kAreRegistered =
    registerSubject<Library<MD::mInt>>("mInt") && registerSubject<Library<MD::IterMap>>("IterMap") &&
    registerSubject<Library<MD::MsgT>>("MsgT") && registerSubject<FactoryMade<6>>("mInt from the factory") &&
    (whyNoLargeDictionary() != nullptr || (registerSubject<Library<MD::mInt, LargeIds>>("mInt") &&
                                           registerSubject<Library<MD::IterMap, LargeIds>>("IterMap") &&
                                           registerSubject<Library<MD::MsgT, LargeIds>>("MsgT")));

}  // namespace
}  // namespace bench
