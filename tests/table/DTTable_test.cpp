#include "support/story.h"

#include <inttypes.h>
#include <stdarg.h>

namespace {

using Size = std::pair<int32_t, int32_t>;

struct Table : testing::Test {
    ~Table() override {
        DTTable_Release(table);
        EXPECT_EQ(platform.blocks, 0u);
    }

    DTTableColumn *column(int32_t col) {
        return reinterpret_cast<DTTableColumn *>(DTList_Get(table->columns, col));
    }
    Size size() { return {DTTable_GetColNum(table), DTTable_GetRowNum(table)}; }
    void set(int32_t row, int32_t col, int32_t value) { DTTable_Set(table, row, col, &value); }
    void set(int32_t row, int32_t col, const char *text) { DTTable_Set(table, row, col, text); }

    std::string in_buffer(int32_t size = 600) {
        char area[600];
        memset(area, '#', sizeof area);
        const int32_t length = DTTable_ShowToBuffer(table, area, size);
        EXPECT_TRUE(length == 0 || area[length] == '#'); // no terminator
        return {area, static_cast<size_t>(length)};
    }
    // How much a buffer holds with a rendering behind what it held.
    uint32_t length_with_table(DTBuf *buf) {
        DTTable_ShowToBuf(table, buf);
        return DTBuf_Length(buf);
    }
    // The text that the one cell of a table gets: each of the three lines is two blanks longer.
    std::string shown(int32_t type, const char *format, const void *value) {
        DTTable_SetTitle(table, 0, "", type, format, 'L');
        DTTable_Set(table, 0, 0, value);
        const std::string text = in_buffer();
        return text.substr(text.size() / 3 * 2, text.size() / 3 - 3);
    }
    template <typename T>
    std::string total(int32_t type, const char *format, const std::vector<T> &values) {
        DTTable_SetTitle(table, 0, "", type, format, 'R');
        for (size_t i = 0; i < 2; ++i) DTTable_Set(table, static_cast<int32_t>(i), 0, &values[i]);
        DTTable_Sum(table);
        return column(0)->sum_text;
    }

    DTTable *table = DTTable_New();
};

} // namespace

// What platforms report of a text that was cut differs.
extern "C" int TMB_snprintf(char *buffer, size_t size, const char *format, ...) {
    platform.format = format;
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(buffer, size, format, args);
    va_end(args);
    return length < static_cast<int>(size) ? length : -1;
}

TEST_F(Table, GrowsByPositionAndIsEmptiedOnRequest) {
    EXPECT_EQ(size(), Size(0, 0));
    for (const int32_t col : {2, 0, -1})
        DTTable_SetTitle(table, col, col == 0 ? "first" : "t", DTTABLE_INT32, "%d", 'R');
    EXPECT_STREQ(column(0)->title, "first");
    set(0, 0, 7);
    set(4, 2, 7);
    for (const int32_t col : {-1, 1, 3}) set(9, col, 8); // no such columns
    for (const int32_t row : {4, 9}) DTTable_Set(table, row, 2, nullptr);
    set(-1, 2, 8);
    EXPECT_EQ(size(), Size(3, 5));
    EXPECT_EQ(*static_cast<int32_t *>(DTTable_Get(table, 4, 2)), 7);
    for (const auto &[row, col] : {Size(4, 1), {3, 2}, {0, -1}, {-1, 0}, {5, 2}})
        EXPECT_EQ(DTTable_Get(table, row, col), nullptr) << row << ',' << col;
    DTTable_ClearLines(table);
    EXPECT_EQ(size(), Size(3, 5));
    EXPECT_EQ(DTTable_Get(table, 4, 2), nullptr);
    set(4, 2, 7);
    DTTable_Clear(table);
    EXPECT_EQ(size(), Size(0, 0));
}

// In one walk: there may be as many rows as positions to give back.
TEST_F(Table, StaysAsItWasUntilThereIsMemoryForAllThatIsNeeded) {
    DTTable_SetTitle(table, 2, "t", DTTABLE_INT32, "%d", 'L');
    set(200000, 2, 7);
    platform.fail_allocations_from(200000);
    set(INT32_MAX, 2, 8);
    EXPECT_EQ(size(), Size(3, 200001));
    EXPECT_EQ(*static_cast<int32_t *>(DTTable_Get(table, 200000, 2)), 7);
}

// Texts that were never made are empty and values that were never set 0, whatever is in fresh
// memory.
TEST_F(Table, RedefinedColumnReadsItsCellsWithTheNewType) {
    DTTable_SetTitle(table, 0, "a", DTTABLE_INT32, "%d", 'R');
    DTTable_SetTitle(table, 1, "b", DTTABLE_TEXT, "<%s>", 'L');
    set(0, 0, 7);
    set(0, 1, "x");
    DTTable_Set(table, 0, 1, DTTable_Get(table, 0, 1)); // its own text
    EXPECT_STREQ(static_cast<char *>(DTTable_Get(table, 0, 1)), "<<x>>");
    DTTableColumn *first = column(0);
    DTTable_SetTitle(table, 0, first->title, DTTABLE_TEXT, "%s", 'L');
    DTTable_SetTitle(table, 1, "b", DTTABLE_DOUBLE, "%.1f", 'l');
    EXPECT_STREQ(static_cast<char *>(DTTable_Get(table, 0, 0)), "");
    DTTable_SetTitle(table, 0, nullptr, DTTABLE_INT64, "%" PRId64, 'r');
    EXPECT_EQ(in_buffer(), "     b  \n -  --- \n  70.0  \n");
    DTTable_SetTitle(table, 0, "a", DTTABLE_TEXT, "%s", 'L');
    EXPECT_STREQ(first->sum_text, "7"); // until the next sum
    EXPECT_EQ(first->sum.i64, 0);
    DTTable_Sum(table);
    EXPECT_STREQ(first->sum_text, "");
}

TEST_F(Table, TakesFormatsThatSuitTheTypeAndRefusesOthers) {
    const std::pair<int32_t, std::vector<const char *>> refused[] = {
        {DTTABLE_DOUBLE, {"%d", "%Lf", "%hf", "%.*f", "%.1000f"}},
        {DTTABLE_INT32, {"%d%d", "%d %%%d", "%*d", "%s", "%lld", "%f", "%lc", "%1000d", "%l"}},
        {DTTABLE_INT32, {"100%", "% %"}},
        {DTTABLE_INT64, {"%d", "%c", "%lc", "%p"}},
        {DTTABLE_TEXT, {"%n", "%s%n", "%1$s", "%ls", "%m", nullptr, "twenty characters .."}},
        {DTTABLE_TEXT + 1, {"%s"}},
        {DTTABLE_DOUBLE - 1, {"plain"}},
    };
    DTTable_SetTitle(table, 0, "kept", DTTABLE_TEXT, "%s", 'L');
    for (const auto &[type, formats] : refused) {
        for (const char *format : formats) {
            for (const int32_t col : {0, 1}) DTTable_SetTitle(table, col, "new", type, format, 'R');
            EXPECT_EQ(in_buffer(), " kept \n ---- \n") << type << format;
        }
    }
    const DTTableValue seven = {.i64 = 7}, large = {.i64 = -5000000000}, half = {.f64 = 0.5};
    const std::string longer(150, 'x');
    EXPECT_EQ(shown(DTTABLE_DOUBLE, "%+-8.2lf%%|", &half), "+0.50   %|");
    EXPECT_EQ(shown(DTTABLE_FLOAT, "%012.1A", "\0\0\x80\x3f"), "0X00001.0P+0");
    EXPECT_EQ(shown(DTTABLE_INT32, "%%%hx%%", &seven), "%7%");
    EXPECT_EQ(shown(DTTABLE_INT32, "a%cb", "\0\0\0"), "a"); // ends at a zero character
    EXPECT_EQ(shown(DTTABLE_INT32, "%0200d", &seven), std::string(99, '0'));
    EXPECT_EQ(shown(DTTABLE_INT64, "%'jd", &large), "-5000000000");
    EXPECT_EQ(shown(DTTABLE_TEXT, "<%.999s>", nullptr), "<(null)>");
    EXPECT_EQ(shown(DTTABLE_TEXT, "%p", nullptr), "(nil)");
    EXPECT_EQ(shown(DTTABLE_TEXT, "%c", reinterpret_cast<void *>(uintptr_t{'x'})), "x");
    EXPECT_EQ(shown(DTTABLE_TEXT, "nineteen characters", "x"), "nineteen characters");
    EXPECT_EQ(shown(DTTABLE_TEXT, "%s", longer.c_str()), longer.substr(0, 99));
}

// A buffer gets the beginning without the footer, a byte buffer all of it, and grows once for it.
TEST_F(Table, IsRenderedLineByLineOrIntoBuffers) {
    EXPECT_EQ(console_of(DTTable_Show, table), "\n\n\ntotal count = 0\n\n");
    DTTable_SetTitle(table, 0, "odd", DTTABLE_INT32, "%d", 'R');
    DTTable_SetTitle(table, 1, "even", DTTABLE_TEXT, "%s", 'L');
    DTTable_SetTitle(table, 2, "t", DTTABLE_TEXT, "%s", 'C');
    set(1, 0, 7);
    set(1, 1, "ab");
    set(1, 2, "abcd");
    set(3, 2, "abc");
    const std::string stars = "*****************\n";
    for (const std::string line :
         {"", "        c\n", "  twelve chars\n", "as wide as tables\n", "wider than the table\n"}) {
        const std::string caption = line.substr(0, line.size() - !line.empty());
        DTTable_SetCaption(table, caption.c_str() + strspn(caption.c_str(), " "));
        const std::string text = (line.empty() ? "" : stars + line + stars) + " odd  even   t   \n"
                                                                              " ---  ----  ---- \n"
                                                                              "\n"
                                                                              "    7ab     abcd \n"
                                                                              "\n"
                                                                              "            abc  \n";
        const std::string whole = text + "-----------------\ntotal count = 4\n-----------------\n";
        for (size_t size = text.size() + 1; size > 0; --size)
            ASSERT_EQ(in_buffer(static_cast<int32_t>(size)), text.substr(0, size - 1));
        EXPECT_EQ(in_buffer(0) + in_buffer(-1), "");
        DTTable_Show(table);
        DTTable_ShowToBuf(table, reinterpret_cast<DTBuf *>(uintptr_t{100}));
        EXPECT_EQ(platform.prints.size(), line.empty() ? 27u : 30u); // the caption at once
        EXPECT_EQ(platform.take_console(), whole + whole + whole);
        DTBuf *buf = DTBuf_New(1, 10, 1);
        DTBuf_Append(buf, "before:", 0);
        const unsigned before = platform.allocations;
        EXPECT_EQ(length_with_table(buf), buf->capacity);
        EXPECT_EQ(platform.allocations, before + 1);
        EXPECT_EQ(text_of(buf), "before:" + whole);
        DTBuf_Release(buf);
    }
}

TEST_F(Table, IsNotRenderedWithAMissingColumnOrWithoutRoom) {
    for (const int32_t col : {2, 0}) DTTable_SetTitle(table, col, "c", DTTABLE_INT32, "%d", 'L');
    set(0, 2, 1234);
    DTBuf *bytes = DTBuf_New(1, 7, 1), *words = DTBuf_New(4, 100, 0);
    EXPECT_EQ(console_of(DTTable_Show, table) + in_buffer(), "");
    EXPECT_EQ(length_with_table(bytes), 0u);
    EXPECT_STREQ(column(2)->sum_text, "1234");
    DTTable_SetTitle(table, 1, "c", DTTABLE_INT32, "%d", 'L');
    EXPECT_EQ(length_with_table(words), 0u);
    bytes->length = UINT32_MAX - 60; // the table would wrap it
    EXPECT_EQ(length_with_table(bytes), UINT32_MAX - 60);
    platform.fail_only(1);
    bytes->length = 7;
    EXPECT_EQ(length_with_table(bytes), 7u);
    DTBuf_Release(bytes);
    DTBuf_Release(words);
    const std::string longer(150, 'c');
    DTTable_SetCaption(table, longer.c_str());
    DTTable_SetTitle(table, 1, longer.c_str(), DTTABLE_INT32, "%d", 'L');
    EXPECT_EQ(std::string(table->caption) + column(1)->title, std::string(198, 'c'));
}

TEST_F(Table, TotalsAddInTheColumnsOwnTypeAndWidenIt) {
    EXPECT_EQ(total<double>(DTTABLE_DOUBLE, "%.17g", {16777216, 1}), "16777217");
    EXPECT_EQ(total<float>(DTTABLE_FLOAT, "%.1f", {16777216, 1}), "16777216.0"); // drops the 1
    EXPECT_EQ(total<int32_t>(DTTABLE_INT32, "%d", {INT32_MAX, 1}), "-2147483648");
    EXPECT_EQ(total<int64_t>(DTTABLE_INT64, "%" PRId64, {INT64_MIN, -1}), "9223372036854775807");
    EXPECT_EQ(total<int32_t>(DTTABLE_INT32, "%d", {99, 99}), "198");
    EXPECT_EQ(column(0)->width, 5); // two cells of two characters, a total of three
    DTTable_ClearLines(table);
    DTTable_Sum(table);
    EXPECT_EQ(column(0)->width, 3);
}
