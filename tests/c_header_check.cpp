// Compiled only: the C headers are self-contained, twice included, in C++, and keep C linkage there.
#include "md/md_message_c.h"
#include "md/md_message_c_ext.h"

extern "C" {
typedef bool (*GetString)(MD_MessageHandle, uint16_t, MD_String*);
typedef MD_DateTimeHandle (*NewDateTime)(int32_t, int32_t, int16_t);
MD_C_API bool MD_Message_getString(MD_MessageHandle, uint16_t, MD_String*);
}

extern const GetString md_c_header_get;
extern const NewDateTime md_c_header_new;
const GetString md_c_header_get = MD_Message_getString;
const NewDateTime md_c_header_new = MD_DateTime_new;
