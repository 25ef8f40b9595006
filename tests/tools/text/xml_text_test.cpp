// Text in XML and HTML.
#include "text/xml_text.h"

#include <string>

#include <gtest/gtest.h>

namespace {

TEST(XmlText, ReplacesWhatHasAMeaning) {
  std::string out = "<a>";
  MD::tool::appendXmlText("A & \"B\" <c> 'd' &amp; \xff", out);
  EXPECT_EQ(out, "<a>A &amp; &quot;B&quot; &lt;c&gt; &#39;d&#39; &amp;amp; \xff");
}

}  // namespace
