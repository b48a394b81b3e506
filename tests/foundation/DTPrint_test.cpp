#include "support/story.h"

TEST(DefaultSink, SendsEachLineOnceItIsComplete) {
    platform.fail_only(1);
    DTPrint_ShowEx("lost", 0);
    DTPrint_Show("abc", 0);
    EXPECT_EQ(platform.console(), "");
    DTPrint_Show("\nde\nf", 0);
    DTPrint_ShowEx("ghi", 1);
    DTPrint_Puts("x", 0);
    DTPrint_Show("nothing", -1);
    DTPrint_Show(nullptr, 5);
    DTPrint_Show("y\0z\n", 4); // the console stops at the zero byte, the sink does not
    EXPECT_THAT(platform.prints, ElementsAre("abc\n", "de\n", "fg", "x\n", "y"));
}

TEST(DefaultSink, EmptiesAFullBufferBeforeTheNextCharacter) {
    const std::string full(999, 'a'), more(501, 'a');
    DTPrint_Show(full.c_str(), 0);
    EXPECT_EQ(platform.console(), "");
    DTPrint_Show("\n", 1); // a line break that no longer fits goes out as a line of its own
    DTPrint_ShowEx((full + more).c_str(), 0);
    EXPECT_THAT(platform.prints, ElementsAre(full, "\n", full, more));
}

TEST(PrintObject, SendsWholeTextsOrCollectsThemInItsBuffer) {
    char buffer[10];
    EXPECT_EQ(DTPrint_New(buffer, 1), nullptr); // holds no character
    EXPECT_EQ(DTPrint_New(nullptr, 10), nullptr);
    DTPrint *print = DTPrint_New(buffer, sizeof buffer);
    DTPrint_PrintCh(print, 0x100 + 'x', 9);
    EXPECT_EQ(platform.console(), "");
    DTPrint_PrintCh(print, 'y', 12);
    DTPrint_PrintCh(print, 'z', -1);
    DTPrint_Flush(print);
    DTPrint_Print(print, "ab", 5);
    DTPrint_Print(print, "123456789", 1);  // exactly fills the emptied buffer
    DTPrint_Print(print, "1234567890", 2); // never fits
    EXPECT_STREQ(buffer, "");
    DTPrint_Print(print, nullptr, 2);
    EXPECT_THAT(platform.prints, ElementsAre("xxxxxxxxx", "yyyyyyyyy", "yyy", "abababab", "ab",
                                             "123456789", "1234567890", "1234567890"));
    DTPrint_SetPrint(print, 0);
    DTPrint_PrintCh(print, 'a', 12); // a full buffer starts again
    DTPrint_Flush(print);
    EXPECT_EQ(print->length, 3);
    DTPrint_Print(print, "twelve chars", 1); // drops what was held
    EXPECT_STREQ(buffer, "");
    DTPrint_Print(print, "ab", 1);
    DTPrint_Release(print);
    EXPECT_EQ(std::string(buffer, 2), "ab");
    EXPECT_EQ(platform.prints.size(), 8u);
    EXPECT_EQ(platform.blocks, 0u);
}
