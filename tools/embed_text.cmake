# Writes INPUT, a text file, into OUTPUT, a C++ source, as the string constant MD::tool::kBuiltInDictionary.
file(READ "${INPUT}" text)
file(CONFIGURE OUTPUT "${OUTPUT}" @ONLY CONTENT [[
#include "dictionary/dictionary.h"

namespace MD::tool {

const char* const kBuiltInDictionary = R"dictionary(@text@)dictionary";

}  // namespace MD::tool
]])
