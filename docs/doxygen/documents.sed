# Doxygen shows code in a heading as its own markup.
/^#/s/`//g
# A page that another one names is a link.
s,`\(docs/[a-z_]*\.md\)`,[\1](\1),g
s,`\([A-Z]*\.md\)`,[\1](\1),g
# Sections have names of their own in the pages.
s|\(](\(\.\./\)*[A-Za-z_/]*\.md\)#[^)]*)|\1)|g
s|\[\([^]]*\)\](#[^)]*)|\1|g
