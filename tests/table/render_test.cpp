#include "support/platform.h"

#include <dt/table.h>
#include <gmock/gmock.h>

#include <inttypes.h>

using testing::ElementsAre;

namespace {

DTTableColumn *column(const DTTable *table, int32_t col) {
    return reinterpret_cast<DTTableColumn *>(DTList_Get(table->columns, col));
}

void set(DTTable *table, int32_t row, int32_t col, int32_t value) {
    DTTable_Set(table, row, col, &value);
}

DTTable *two_columns() {
    DTTable *table = DTTable_New();
    DTTable_SetTitle(table, 0, "id", DTTABLE_INT32, "%d", 'R');
    DTTable_SetTitle(table, 1, "name", DTTABLE_TEXT, "%s", 'L');
    return table;
}

DTTable *example() {
    DTTable *table = two_columns();
    set(table, 0, 0, 7);
    DTTable_Set(table, 0, 1, "ab");
    set(table, 1, 0, 12);
    DTTable_Set(table, 1, 1, "xyz");
    return table;
}

std::string text_of(const DTBuf *buf) {
    return {reinterpret_cast<const char *>(buf->data), buf->length};
}

std::string on_console(DTTable *table) {
    platform.take_console();
    EXPECT_EQ(DTTable_Show(table), 0);
    return platform.take_console();
}

std::string in_buf(DTTable *table) {
    DTBuf *buf = DTBuf_New(1, 16, 0);
    DTTable_ShowToBuf(table, buf);
    const std::string text = text_of(buf);
    DTBuf_Release(buf);
    return text;
}

std::string in_buffer(DTTable *table, int32_t size) {
    char area[600];
    memset(area, '#', sizeof area);
    const int32_t length = DTTable_ShowToBuffer(table, area, size);
    EXPECT_TRUE(length == 0 || area[length] == '#'); // no terminator
    return {area, static_cast<size_t>(length)};
}

void expect_text(DTTable *table, const std::string &body, const std::string &footer) {
    EXPECT_EQ(on_console(table), body + footer);
    EXPECT_EQ(in_buf(table), body + footer);
    EXPECT_EQ(in_buffer(table, 600), body);
}

const std::string example_body = " id  name \n"
                                 " --  ---- \n"
                                 "   7ab    \n"
                                 "  12xyz   \n";
const std::string example_footer = "----------\n"
                                   "total count = 2\n"
                                   "----------\n";

} // namespace

TEST(TableText, IsTheSameEverywhereButForTheFooter) {
    DTTable *table = example();
    expect_text(table, example_body, example_footer);
    EXPECT_STREQ(column(table, 0)->sum_text, "19");
    EXPECT_EQ(column(table, 0)->width, 4);
    EXPECT_EQ(column(table, 1)->width, 6);
    DTTable_ShowToBuf(table, nullptr);
    DTTable_ShowToBuf(table, reinterpret_cast<DTBuf *>(uintptr_t{100}));
    EXPECT_EQ(platform.take_console(),
              example_body + example_footer + example_body + example_footer);
    DTTable_Release(table);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(TableText, CaptionIsCentredAndNeverCut) {
    DTTable *table = example();
    const std::string stars = "**********\n";
    DTTable_SetCaption(table, "Stats");
    expect_text(table, stars + "  Stats\n" + stars + example_body, example_footer);
    for (const auto &[caption, line] : {std::pair{"123456", "  123456\n"},
                                        {"123456789", "123456789\n"},
                                        {"1234567890", "1234567890\n"},
                                        {"wider than the table", "wider than the table\n"}}) {
        DTTable_SetCaption(table, caption);
        expect_text(table, stars + line + stars + example_body, example_footer);
    }
    DTTable_Release(table);
}

TEST(TableText, ReachesTheConsoleLineByLine) {
    DTTable *table = example();
    DTTable_SetCaption(table, "Stats");
    DTTable_Show(table);
    EXPECT_THAT(platform.prints, ElementsAre("**********\n  Stats\n**********\n", " id  name \n",
                                             " --  ---- \n", "   7ab    \n", "  12xyz   \n",
                                             "----------\n", "total count = 2\n", "----------\n"));
    // A text that does not fit behind what the 400 bytes hold waits for the next piece.
    DTTable_Clear(table);
    DTTable_SetCaption(table, "");
    const std::string wide(97, 'w');
    for (int32_t col = 0; col < 5; ++col)
        DTTable_SetTitle(table, col, wide.c_str(), DTTABLE_TEXT, "%s", 'L');
    platform.prints.clear();
    DTTable_Show(table);
    EXPECT_EQ(platform.prints[0], " " + wide + "  " + wide + "  " + wide + "  " + wide + "  ");
    EXPECT_EQ(platform.prints[1], wide + " \n");
    EXPECT_EQ(platform.prints[2].size(), 399u);
    DTTable_Release(table);
}

TEST(TableText, AlignsOddAndEvenTextsAndLeavesGapsBlank) {
    DTTable *table = two_columns();
    DTTable_SetTitle(table, 0, "odd", DTTABLE_INT32, "%d", 'r');
    DTTable_SetTitle(table, 1, "even", DTTABLE_TEXT, "%s", 'l');
    DTTable_SetTitle(table, 2, "t", DTTABLE_TEXT, "%s", 'C');
    DTTable_SetTitle(table, 3, "", DTTABLE_TEXT, "%s", 0);
    set(table, 1, 0, 1);
    DTTable_Set(table, 1, 1, "ab");
    DTTable_Set(table, 1, 2, "abcd");
    DTTable_Set(table, 1, 3, "x");
    DTTable_Set(table, 3, 2, "ab");
    DTTable_Set(table, 3, 3, "");
    set(table, 4, 0, 22);
    DTTable_Set(table, 4, 2, "abc");
    expect_text(table,
                " odd  even   t      \n"
                " ---  ----  ----  - \n"
                "\n"
                "    1ab     abcd  x \n"
                "\n"
                "             ab     \n"
                "   22       abc     \n",
                "--------------------\n"
                "total count = 5\n"
                "--------------------\n");
    DTTable_ClearLines(table);
    expect_text(table, " odd  even  t   \n ---  ----  -   \n\n\n\n\n\n",
                "----------------\ntotal count = 5\n----------------\n");
    DTTable_Release(table);
}

TEST(TableText, WithoutColumnsItIsEmptyLinesAndWithAMissingOneNothing) {
    DTTable *table = DTTable_New();
    expect_text(table, "\n\n", "\ntotal count = 0\n\n");
    DTTable_SetTitle(table, 2, "c", DTTABLE_INT32, "%d", 'L');
    DTTable_SetTitle(table, 0, "a", DTTABLE_INT32, "%d", 'L');
    set(table, 0, 2, 1234);
    DTTable_SetCaption(table, "caption");
    expect_text(table, "", "");
    EXPECT_STREQ(column(table, 2)->sum_text, "1234");
    EXPECT_EQ(column(table, 2)->width, 6);
    DTTable_Release(table);

    char area[10];
    EXPECT_EQ(DTTable_Show(nullptr), 0);
    EXPECT_EQ(DTTable_ShowToBuffer(nullptr, area, sizeof area), 0);
    DTTable_ShowToBuf(nullptr, nullptr);
    DTTable_Sum(nullptr);
    EXPECT_EQ(platform.take_console(), "");
}

TEST(TableTotals, AddInTheColumnsOwnTypeAndWidenIt) {
    DTTable *table = DTTable_New();
    DTTable_SetTitle(table, 0, "d", DTTABLE_DOUBLE, "%.17g", 'R');
    DTTable_SetTitle(table, 1, "f", DTTABLE_FLOAT, "%.2f", 'R');
    DTTable_SetTitle(table, 2, "i", DTTABLE_INT32, "%d", 'R');
    DTTable_SetTitle(table, 3, "l", DTTABLE_INT64, "%" PRId64, 'R');
    DTTable_SetTitle(table, 4, "x", DTTABLE_INT32, "%d", 'R');
    const double doubles[] = {16777216.0, 1.0, 0.0};
    const float floats[] = {16777216.0f, 1.0f, 1.0f}; // single precision drops each 1
    const int32_t ints[] = {INT32_MAX, 1, 0};
    const int64_t longs[] = {INT64_MIN, -1, 0};
    for (int32_t row = 0; row < 3; ++row) {
        DTTable_Set(table, row, 0, doubles + row);
        DTTable_Set(table, row, 1, floats + row);
        DTTable_Set(table, row, 2, ints + row);
        DTTable_Set(table, row, 3, longs + row);
        if (row < 2) set(table, row, 4, 99);
    }
    DTTable_Sum(table);
    DTTable_Sum(table); // starts from zero each time
    EXPECT_STREQ(column(table, 0)->sum_text, "16777217");
    EXPECT_STREQ(column(table, 1)->sum_text, "16777216.00");
    EXPECT_STREQ(column(table, 2)->sum_text, "-2147483648");
    EXPECT_STREQ(column(table, 3)->sum_text, "9223372036854775807");
    EXPECT_STREQ(column(table, 4)->sum_text, "198");
    EXPECT_EQ(column(table, 1)->sum.f32, 16777216.0f);
    EXPECT_EQ(column(table, 3)->sum.i64, INT64_MAX);
    EXPECT_EQ(column(table, 4)->width, 5); // two cells of two characters, a total of three
    const float one_and_a_half = 1.5f, two_and_a_quarter = 2.25f;
    DTTable_ClearLines(table);
    DTTable_Set(table, 0, 1, &one_and_a_half);
    DTTable_Set(table, 1, 1, &two_and_a_quarter);
    DTTable_Sum(table);
    EXPECT_STREQ(column(table, 1)->sum_text, "3.75");
    EXPECT_EQ(column(table, 1)->width, 6);
    EXPECT_EQ(column(table, 4)->width, 3); // shrinks again
    DTTable_Release(table);
}

TEST(TableBuffer, KeepsTheBeginningOfATableThatIsLarger) {
    DTTable *table = example();
    ASSERT_EQ(example_body.size(), 44u);
    EXPECT_EQ(in_buffer(table, 45), example_body);
    for (int32_t size = 2; size < 45; ++size)
        EXPECT_EQ(in_buffer(table, size), example_body.substr(0, static_cast<size_t>(size) - 1));
    EXPECT_EQ(in_buffer(table, 1), "");
    EXPECT_EQ(in_buffer(table, -1), "");
    EXPECT_EQ(platform.take_console(), "");
    EXPECT_EQ(in_buffer(table, 0), "");
    EXPECT_EQ(platform.take_console(), example_body + example_footer);
    DTTable_Release(table);
}

TEST(TableBuffer, ByteBufferGrowsOnceOrGetsNothing) {
    DTTable *table = example();
    DTBuf *buf = DTBuf_New(1, 16, 4);
    DTBuf_Append(buf, "before:", 0);
    platform.fail_allocations_from(1);
    DTTable_ShowToBuf(table, buf);
    EXPECT_EQ(text_of(buf), "before:");
    platform.allocations_work();
    const unsigned before = platform.allocations;
    DTTable_ShowToBuf(table, buf);
    EXPECT_EQ(platform.allocations, before + 1);
    EXPECT_EQ(text_of(buf), "before:" + example_body + example_footer);
    EXPECT_EQ(buf->capacity, 92u); // 7 + 82, rounded to 4
    DTBuf_Release(buf);

    DTBuf *full = DTBuf_New(1, 82, 0);
    platform.fail_allocations_from(1);
    DTTable_ShowToBuf(table, full);
    EXPECT_EQ(text_of(full), example_body + example_footer);
    platform.allocations_work();
    full->length = UINT32_MAX - 71; // 82 more would wrap
    DTTable_ShowToBuf(table, full);
    EXPECT_EQ(full->length, UINT32_MAX - 71);
    DTBuf_Release(full);

    DTBuf *words = DTBuf_New(4, 100, 0);
    DTTable_ShowToBuf(table, words);
    EXPECT_EQ(DTBuf_Length(words), 0u);
    DTBuf_Release(words);
    DTTable_Release(table);
}
