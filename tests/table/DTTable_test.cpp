#include "support/formatter.h"
#include "support/platform.h"

#include <dt/table.h>
#include <gmock/gmock.h>

#include <inttypes.h>
#include <map>

namespace {

DTTableColumn *column(const DTTable *table, int32_t col) {
    return reinterpret_cast<DTTableColumn *>(DTList_Get(table->columns, col));
}

template <typename T> T number(const DTTable *table, int32_t row, int32_t col) {
    T value = {};
    const void *at = DTTable_Get(table, row, col);
    if (at) memcpy(&value, at, sizeof value);
    return value;
}

std::string text(const DTTable *table, int32_t row, int32_t col) {
    const void *at = DTTable_Get(table, row, col);
    return at ? static_cast<const char *>(at) : "nothing there";
}

// The text that the one cell of a table gets.
std::string shown(int32_t type, const char *format, const void *value) {
    DTTable *table = DTTable_New();
    DTTable_SetTitle(table, 0, "", type, format, 'L');
    DTTable_Set(table, 0, 0, value);
    DTTable_Sum(table);
    const DTList *row = reinterpret_cast<DTList *>(DTList_Get(table->rows, 0));
    const DTTableCell *cell = reinterpret_cast<DTTableCell *>(DTList_Get(row, 0));
    const std::string result = cell ? cell->text : "refused";
    EXPECT_TRUE(!cell || cell->text_len == static_cast<int32_t>(result.size()));
    DTTable_Release(table);
    return result;
}

constexpr int32_t seven = 7;
constexpr int64_t large = -5000000000;
constexpr double half = 0.5;

} // namespace

TEST(Table, GrowsByPositionAndGivesEverythingBack) {
    DTTable *table = DTTable_New();
    EXPECT_EQ(DTTable_GetColNum(table), 0);
    EXPECT_EQ(DTTable_GetRowNum(table), 0);
    DTTable_SetCaption(table, std::string(150, 'c').c_str());
    EXPECT_EQ(table->caption, std::string(99, 'c'));
    DTTable_SetCaption(table, table->caption + 90);
    DTTable_SetTitle(table, 2, std::string(150, 't').c_str(), DTTABLE_INT32, "%d", 'R');
    EXPECT_EQ(DTTable_GetColNum(table), 3);
    EXPECT_EQ(column(table, 2)->title, std::string(99, 't'));
    EXPECT_EQ(column(table, 2)->title_len, 99);
    DTTable_Set(table, 4, 2, &seven);
    DTTable_Set(table, 9, 1, &seven); // no such columns
    DTTable_Set(table, 9, 3, &seven);
    EXPECT_EQ(DTTable_GetRowNum(table), 5);
    EXPECT_EQ(number<int32_t>(table, 4, 2), 7);
    EXPECT_EQ(DTTable_Get(table, 3, 2), nullptr);
    EXPECT_EQ(DTTable_Get(table, 4, 1), nullptr);
    DTTable_ClearLines(table);
    EXPECT_EQ(DTTable_GetRowNum(table), 5);
    EXPECT_EQ(DTTable_Get(table, 4, 2), nullptr);
    DTTable_Set(table, 4, 2, &seven);
    DTTable_Clear(table);
    EXPECT_EQ(DTTable_GetColNum(table) + DTTable_GetRowNum(table), 0);
    EXPECT_STREQ(table->caption, "ccccccccc");
    DTTable_SetCaption(table, nullptr);
    EXPECT_STREQ(table->caption, "");
    DTTable_Release(table);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(Table, StoresNothingBelowPositionZeroOrWithoutATable) {
    DTTable *table = DTTable_New();
    DTTable_SetTitle(table, 0, "a", DTTABLE_INT32, "%d", 'R');
    DTTable_Set(table, 0, 0, &seven);
    DTTable_SetTitle(table, -1, "b", DTTABLE_TEXT, "%s", 'L');
    const int32_t eight = 8;
    DTTable_Set(table, -1, 0, &eight);
    DTTable_Set(table, 0, -1, &eight);
    DTTable_Set(table, 0, 0, nullptr);
    EXPECT_EQ(column(table, 0)->type, DTTABLE_INT32);
    EXPECT_EQ(number<int32_t>(table, 0, 0), 7);
    EXPECT_EQ(DTTable_Get(table, -1, 0), nullptr);
    EXPECT_EQ(DTTable_Get(table, 0, -1), nullptr);
    DTTable_Set(table, 1, 0, nullptr);
    EXPECT_EQ(DTTable_GetRowNum(table), 1);
    DTTable_Release(table);

    DTTable_SetCaption(nullptr, "");
    DTTable_SetTitle(nullptr, 0, "", 0, "", 'L');
    DTTable_Set(nullptr, 0, 0, &seven);
    EXPECT_EQ(DTTable_Get(nullptr, 0, 0), nullptr);
    EXPECT_EQ(DTTable_GetColNum(nullptr) + DTTable_GetRowNum(nullptr), 0);
    DTTable_ClearLines(nullptr);
    DTTable_Clear(nullptr);
    DTTable_Release(nullptr);
    EXPECT_EQ(platform.blocks, 0u);
}

// Texts that were never made are empty and values that were never set 0, whatever is in fresh
// memory.
TEST(Table, RedefinedColumnReadsItsCellsWithTheNewType) {
    DTTable *table = DTTable_New();
    DTTable_SetTitle(table, 0, "a", DTTABLE_INT32, "%d", 'R');
    DTTable_SetTitle(table, 1, "b", DTTABLE_TEXT, "<%s>", 'L');
    DTTable_Set(table, 0, 0, &seven);
    DTTable_Set(table, 0, 1, "x");
    DTTable_Set(table, 0, 1, DTTable_Get(table, 0, 1)); // its own text
    EXPECT_EQ(text(table, 0, 1), "<<x>>");

    DTTableColumn *first = column(table, 0);
    DTTable_SetTitle(table, 0, first->title, DTTABLE_TEXT, "%s", 'L');
    DTTable_SetTitle(table, 1, "b", DTTABLE_DOUBLE, "%.1f", 'L');
    EXPECT_EQ(DTTable_GetColNum(table), 2);
    EXPECT_EQ(column(table, 0), first);
    EXPECT_STREQ(first->title, "a");
    EXPECT_EQ(text(table, 0, 0), "");
    EXPECT_EQ(number<double>(table, 0, 1), 0.0);
    DTTable_SetTitle(table, 0, first->title, DTTABLE_INT64, "%" PRId64, 'L');
    DTTable_Sum(table);
    EXPECT_EQ(number<int64_t>(table, 0, 0), 7);
    EXPECT_STREQ(first->sum_text, "7");
    DTTable_SetTitle(table, 0, first->title, DTTABLE_INT64, first->format, 'R');
    EXPECT_STREQ(first->sum_text, ""); // the total of what it was
    EXPECT_STREQ(first->format, "%" PRId64);
    DTTable_SetTitle(table, 0, nullptr, DTTABLE_TEXT, "%s", 'R');
    EXPECT_STREQ(first->title, "");
    EXPECT_EQ(first->title_len, 0);
    DTTable_Release(table);
}

TEST(Table, FormatsThatSuitTheTypeAreTaken) {
    EXPECT_EQ(shown(DTTABLE_DOUBLE, "%+-8.2lf%%|", &half), "+0.50   %|");
    EXPECT_EQ(shown(DTTABLE_FLOAT, "%012.1A", "\0\0\x80\x3f"), "0X00001.0P+0");
    EXPECT_EQ(shown(DTTABLE_INT32, "%%%" PRIx32 "%%", &seven), "%7%");
    EXPECT_EQ(shown(DTTABLE_INT32, "%hhu|", &seven), "7|");
    EXPECT_EQ(shown(DTTABLE_INT64, "%" PRId64, &large), "-5000000000");
    EXPECT_EQ(shown(DTTABLE_INT64, "%lld", &large), "-5000000000");
    EXPECT_EQ(shown(DTTABLE_INT64, "%'jd", &large), "-5000000000");
    EXPECT_EQ(shown(DTTABLE_TEXT, "[%6.3s]", "pump"), "[   pum]");
    EXPECT_EQ(shown(DTTABLE_TEXT, "%.999s", "pump"), "pump");
    EXPECT_EQ(shown(DTTABLE_TEXT, "<%s>", nullptr), "<(null)>");
    EXPECT_EQ(shown(DTTABLE_TEXT, "%c", reinterpret_cast<void *>(uintptr_t{'x'})), "x");
    EXPECT_EQ(shown(DTTABLE_TEXT, "%lu", nullptr), "0");
    EXPECT_EQ(shown(DTTABLE_TEXT, "nineteen characters", "x"), "nineteen characters");
    EXPECT_EQ(shown(DTTABLE_DOUBLE, "", &half), "");
}

TEST(Table, OtherFormatsAndTypesAreRefused) {
    const std::map<int32_t, std::vector<const char *>> refused = {
        {DTTABLE_DOUBLE, {"%d", "%Lf", "%hf", "%.*f", "%.1000f"}},
        {DTTABLE_FLOAT, {"%s"}},
        {DTTABLE_INT32,
         {"%d%d", "%d %%%d", "%*d", "%s", "%lld", "%f", "%lc", "%1000d", "100%", "%l", "% %"}},
        {DTTABLE_INT64, {"%d", "%c", "%p"}},
        {DTTABLE_TEXT,
         {"%n", "%s%n", "%hhn", "%1$s", "%ls", "%m", "%f", nullptr, "twenty characters .."}},
        {DTTABLE_TEXT + 1, {"%s"}},
        {DTTABLE_DOUBLE - 1, {"%f"}},
    };
    DTTable *table = DTTable_New();
    DTTable_SetTitle(table, 0, "kept", DTTABLE_TEXT, "%s", 'L');
    for (const auto &[type, formats] : refused) {
        for (const char *format : formats) {
            DTTable_SetTitle(table, 0, "other", type, format, 'R');
            DTTable_SetTitle(table, 1, "new", type, format, 'R');
            EXPECT_STREQ(column(table, 0)->title, "kept") << type << format;
            EXPECT_EQ(DTTable_GetColNum(table), 1) << type << format;
        }
    }
    DTTable_Release(table);
}

TEST(Table, KeepsWhatFitsWhateverTheFormatterReports) {
    const std::string longer(150, 'x');
    for (const CutLength reported : {CutLength::Whole, CutLength::Kept, CutLength::Failure}) {
        reported_of_cut_text = reported;
        EXPECT_EQ(shown(DTTABLE_TEXT, "%s", longer.c_str()), longer.substr(0, 99));
        EXPECT_EQ(shown(DTTABLE_INT32, "%0200d", &seven), std::string(99, '0'));
    }
    EXPECT_EQ(shown(DTTABLE_INT32, "a%cb", "\0\0\0"), "a"); // ends at a zero character
}

// An operation that cannot have its memory leaves the table as it was, and works later on.
TEST(Table, SurvivesTheFailureOfAnyAllocation) {
    outstanding(0); // the console's sink is there from now on
    const unsigned blocks = platform.blocks;
    const uint32_t bytes = outstanding(0);
    DTTable *table = nullptr;
    unsigned refused = 0;
    const auto attempt = [&](auto operation, auto succeeded) {
        const int32_t rows = DTTable_GetRowNum(table);
        const int32_t cols = DTTable_GetColNum(table);
        const unsigned before = platform.blocks;
        operation();
        if (succeeded()) return;
        ++refused;
        EXPECT_EQ(DTTable_GetRowNum(table), rows);
        EXPECT_EQ(DTTable_GetColNum(table), cols);
        EXPECT_EQ(platform.blocks, before);
        platform.allocations_work();
        operation();
        EXPECT_TRUE(succeeded());
    };
    const auto define = [&](int32_t col, int32_t type, const char *format) {
        attempt([&] { DTTable_SetTitle(table, col, "t", type, format, 'L'); },
                [&] { return col < DTTable_GetColNum(table) && column(table, col); });
    };
    const auto set = [&](int32_t row, int32_t col, const void *value) {
        attempt([&] { DTTable_Set(table, row, col, value); },
                [&] { return DTTable_Get(table, row, col) != nullptr; });
    };
    unsigned nth = 0;
    do {
        DTBuf *buf = DTBuf_New(1, 1, 0);
        char area[100];
        int32_t length = 0;
        refused = 0;
        platform.fail_allocations_from(++nth);
        attempt([&] { table = DTTable_New(); }, [&] { return table != nullptr; });
        define(2, DTTABLE_TEXT, "%s");
        set(2, 2, "x");
        define(0, DTTABLE_INT32, "%d");
        define(1, DTTABLE_INT32, "%d");
        set(2, 0, &seven); // in an empty place of the row
        set(0, 0, &seven); // in an empty row position
        set(0, 2, "y");    // behind the row's end
        attempt([&] { length = DTTable_ShowToBuffer(table, area, sizeof area); },
                [&] { return length == 4 * 11 + 1; });
        attempt([&] { DTTable_Show(table); }, [&] { return !platform.take_console().empty(); });
        attempt([&] { DTTable_ShowToBuf(table, buf); }, [&] { return DTBuf_Length(buf) != 0; });
        DTBuf_Release(buf);
        DTTable_Release(table);
        table = nullptr;
        EXPECT_EQ(platform.blocks, blocks) << nth;
        EXPECT_EQ(outstanding(0), bytes) << nth;
    } while (refused != 0 && nth < 100);
    EXPECT_EQ(refused, 0u);
    EXPECT_GT(nth, 20u);
}
