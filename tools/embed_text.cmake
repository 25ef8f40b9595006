# Writes INPUT, a text file, into OUTPUT, a C++ source, as the string constant MD::tool::NAME, which HEADER declares.
file(READ "${INPUT}" text)
file(CONFIGURE OUTPUT "${OUTPUT}" @ONLY CONTENT [[
#include "@HEADER@"

namespace MD::tool {

const char* const @NAME@ = R"embedded(@text@)embedded";

}  // namespace MD::tool
]])
