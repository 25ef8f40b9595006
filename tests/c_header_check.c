/* Compiled only: the C headers are self-contained, twice included, in strict C99. */
#include "md/md_message_c.h"
#include "md/md_message_c_ext.h"

typedef bool (*GetString)(MD_MessageHandle, uint16_t, MD_String*);
typedef MD_DateTimeHandle (*NewDateTime)(int32_t, int32_t, int16_t);

extern const GetString md_c_header_get;
extern const NewDateTime md_c_header_new;
const GetString md_c_header_get = MD_Message_getString;
const NewDateTime md_c_header_new = MD_DateTime_new;
