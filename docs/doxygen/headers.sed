# What Doxygen reads in place of the headers' text, line by line, so that the pages show what users have to do with.
#
# The template between MD_Message and the encodings is theirs alone.
s/ final : public RecordMessage<[A-Za-z]*>/ final : public MD_Message/
s/^ *friend class .*;$//
# What is declared for each value type is shown once, for T.
/^#define MD_GET(/,/^MD_API std::string MD_Variant::get</s/.*//
/^#define MD_PEEK(/,/^#undef MD_PEEK/s/.*//
/^#define MD_TYPE_CODE(/,/^#undef MD_TYPE_CODE/s/.*//
s/^ *#define MD_[A-Z_]*(T, name, code) *\\\{0,1\}//
s/^ *MD_VALUE_TYPES(MD_[A-Z_]*)$//
s/^#undef MD_[A-Z_]*$//
# The C headers' comments are C99's.
1s,^/\* [a-z_]*\.h: \(.\),/** @file\n * \u\1,
s,^/\* \([^-]\),/** \1,
