# Doxygen shows code in a heading as its own markup.
/^#/s/`//g
