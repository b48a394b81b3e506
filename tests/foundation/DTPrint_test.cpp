#include "support/platform.h"

#include <dt/foundation.h>
#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

TEST(DefaultSink, SendsEachLineOnceItIsComplete) {
    DTPrint_Show("abc", 0);
    EXPECT_THAT(platform.prints, IsEmpty());
    DTPrint_Show("\nde\nf", 0);
    EXPECT_THAT(platform.prints, ElementsAre("abc\n", "de\n"));
    DTPrint_ShowEx("g", 0);
    DTPrint_ShowEx("", 0);
    DTPrint_Puts("x", 0);
    EXPECT_THAT(platform.prints, ElementsAre("abc\n", "de\n", "fg", "x\n"));
}

TEST(DefaultSink, TakesAsManyCharactersAsItIsTold) {
    DTPrint_Show("abcdef", 3);
    DTPrint_Show("nothing", -1);
    DTPrint_Show(nullptr, 5);
    DTPrint_Show("y\0z\n", 4); // the console stops at the zero byte, the sink does not
    DTPrint_Show("next\n", 0);
    EXPECT_THAT(platform.prints, ElementsAre("abcy", "next\n"));
}

TEST(DefaultSink, EmptiesAFullBufferBeforeTheNextCharacter) {
    const std::string text(999, 'a');
    DTPrint_Show(text.c_str(), 0);
    EXPECT_THAT(platform.prints, IsEmpty());
    DTPrint_Show("\n", 1); // a line break that no longer fits goes out as a line of its own
    EXPECT_THAT(platform.prints, ElementsAre(text, "\n"));
    DTPrint_Show(std::string(1500, 'b').c_str(), 0);
    EXPECT_EQ(platform.prints.back(), std::string(999, 'b'));
    DTPrint_ShowEx("", 0);
    EXPECT_EQ(platform.prints.back(), std::string(501, 'b'));
}

TEST(DefaultSink, PrintsNothingWithoutMemoryAndTriesAgain) {
    platform.fail_allocations_from(1);
    DTPrint_Puts("lost", 0);
    DTPrint_ShowEx("lost", 0);
    platform.allocations_work();
    DTPrint_Puts("seen", 0);
    EXPECT_THAT(platform.prints, ElementsAre("seen\n"));
}

class PrintObject : public testing::Test {
protected:
    void open(int32_t capacity) { print = DTPrint_New(buffer, capacity); }
    std::string held() const { return std::string(buffer, static_cast<size_t>(print->length)); }

    char buffer[16];
    DTPrint *print = nullptr;
};

TEST_F(PrintObject, RepeatsACharacterAcrossFullBuffers) {
    open(10);
    DTPrint_PrintCh(print, 0x100 + 'x', 9);
    EXPECT_THAT(platform.prints, IsEmpty());
    DTPrint_PrintCh(print, 'y', 12);
    EXPECT_THAT(platform.prints, ElementsAre("xxxxxxxxx", "yyyyyyyyy"));
    DTPrint_PrintCh(print, 'z', -1);
    DTPrint_Release(print);
    EXPECT_EQ(platform.prints.back(), "yyy");
    EXPECT_EQ(platform.blocks, 0u);
}

TEST_F(PrintObject, WithOutputOffAFullBufferStartsAgain) {
    open(10);
    DTPrint_SetPrint(print, 0);
    DTPrint_PrintCh(print, 'a', 12);
    DTPrint_Flush(print);
    EXPECT_EQ(held(), "aaa");
    DTPrint_Print(print, "twelve chars", 1); // never fits, and drops what was held
    EXPECT_EQ(held(), "");
    DTPrint_Print(print, "ab", 1);
    DTPrint_Release(print);
    EXPECT_EQ(std::string(buffer, 2), "ab");
    EXPECT_THAT(platform.prints, IsEmpty());
}

TEST_F(PrintObject, NeverSplitsAText) {
    open(6);
    DTPrint_Print(print, "ab", 3);
    EXPECT_THAT(platform.prints, ElementsAre("abab"));
    EXPECT_EQ(held(), "ab");
    DTPrint_Print(print, "12345", 1); // exactly fills the emptied buffer
    EXPECT_EQ(held(), "12345");
    DTPrint_Print(print, "123456", 2); // never fits
    EXPECT_THAT(platform.prints, ElementsAre("abab", "ab", "12345", "123456", "123456"));
    DTPrint_Print(print, "", 2);
    DTPrint_Print(print, nullptr, 2);
    EXPECT_EQ(held(), "");
    DTPrint_Release(print);
}

TEST_F(PrintObject, RefusesWhatCannotHoldACharacter) {
    EXPECT_EQ(DTPrint_New(buffer, 1), nullptr);
    EXPECT_EQ(DTPrint_New(nullptr, 10), nullptr);
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTPrint_New(buffer, 10), nullptr);
    DTPrint_PrintCh(nullptr, 'x', 1);
    DTPrint_Print(nullptr, "x", 1);
    DTPrint_SetPrint(nullptr, 1);
    DTPrint_Flush(nullptr);
    DTPrint_Release(nullptr);
}
