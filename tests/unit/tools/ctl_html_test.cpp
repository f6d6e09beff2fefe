// SPDX-License-Identifier: MIT
// What strangers say stays text in a page.
#include "mdnsproxyctl/html.h"

#include <gmock/gmock.h>

#include "mdnsproxyctl/text.h"
#include "support/seed.h"
#include "unit/tools/markup_reader.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(HtmlText, EscapesWhatIsMarkup) {
  EXPECT_EQ(html_text("<script>alert('x')</script>").markup, "&lt;script&gt;alert(&#39;x&#39;)&lt;/script&gt;");
  EXPECT_EQ(html_text("12\" & more").markup, "12&quot; &amp; more");
  EXPECT_EQ(html_text("&lt;").markup, "&amp;lt;") << "no name looks like an escape";
  EXPECT_EQ(html_text("]]>--><!--").markup, "]]&gt;--&gt;&lt;!--");
}

TEST(HtmlText, ShowsWhatCannotBeSeen) {
  EXPECT_EQ(html_text("a\nb\x1b").markup, "a\\010b\\027");
  EXPECT_EQ(html_text("\u202e\u200f").markup, "\\226\\128\\174\\226\\128\\143");
  EXPECT_EQ(html_text("\xff").markup, "\\255");
  EXPECT_EQ(html_text(std::string("a\0b", 3)).markup, "a\\000b");
  EXPECT_EQ(html_text("\ufffe\uffff").markup, "\\239\\191\\190\\239\\191\\191")
      << "no characters, and not allowed in XML";
}

TEST(HtmlText, LeavesEveryScriptAsItIs) {
  for (const char* text : {"", "Drücker im Büro ☕", "プリンタ", "مطبعة", "a.b $(reboot)"}) {
    EXPECT_EQ(html_text(text).markup, text);
  }
}

TEST(HtmlName, StandsApart) {
  EXPECT_EQ(html_name("مطبعة").markup, "<bdi>مطبعة</bdi>");
  EXPECT_EQ(html_name("</bdi>").markup, "<bdi>&lt;/bdi&gt;</bdi>");
}

TEST(HtmlShown, EscapesWithoutShowingAgain) { EXPECT_EQ(html_shown("a\\010<b>").markup, "a\\010&lt;b&gt;"); }

TEST(HtmlElement, IsClosedByItsTag) {
  EXPECT_EQ(html_element("p", html_text("a")).markup, "<p>a</p>");
  EXPECT_EQ(html_element("td class=\"bad\"", html_markup("<i></i>")).markup, "<td class=\"bad\"><i></i></td>");
}

TEST(HtmlName, IsWellFormedWhateverTheBytes) {
  std::mt19937_64 random(support::chosen_seed());
  constexpr std::string_view kFavourites = "<>&\"'/=!-[]\\ \n\x1b\xe2\x80\xae\xef\xbf\xbf";
  for (int round = 0; round < 2000; ++round) {
    std::string name(random() % 64, ' ');
    for (char& c : name) {
      c = random() % 2 == 0 ? kFavourites[random() % kFavourites.size()] : static_cast<char>(random());
    }
    const MarkupReading reading = read_markup(html_name(name).markup);
    ASSERT_THAT(reading.fault, IsEmpty());
    ASSERT_THAT(reading.isolated, ElementsAre(shown(name)));
  }
}

TEST(MarkupReader, FindsFaults) {
  EXPECT_THAT(read_markup("<p>a</p>").fault, IsEmpty());
  EXPECT_THAT(read_markup("<p>a").fault, HasSubstr("is not closed"));
  EXPECT_THAT(read_markup("<p><b></p></b>").fault, HasSubstr("closes something else"));
  EXPECT_THAT(read_markup("<p class=a></p>").fault, HasSubstr("is no tag"));
  EXPECT_THAT(read_markup("a & b").fault, HasSubstr("an unknown escape"));
  EXPECT_THAT(read_markup("a < b").fault, HasSubstr("a tag without an end"));
  EXPECT_THAT(read_markup("a\tb").fault, HasSubstr("a control character"));
}
