#include "support/platform.h"

#include <dt/containers.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <random>

using testing::ElementsAre;

namespace {

using Values = std::vector<uintptr_t>;

Values released;

void release(uintptr_t value) { released.push_back(value); }

Values values(const DTList *list) {
    Values all;
    for (const DTListNode *node = list->head; node; node = node->next) all.push_back(node->value);
    EXPECT_EQ(all.size(), static_cast<size_t>(DTList_Length(list)));
    return all;
}

int equal(uintptr_t value, uintptr_t key) { return value == key ? 0 : 1; }

} // namespace

TEST(List, ReadsTheCallbackAnewForEachNode) {
    static DTList *list;
    list = DTList_New(0, [](uintptr_t value) {
        EXPECT_EQ(value + DTList_Popup(list), 10u);
        released.push_back(value + 100);
        list->free_value = release;
    });
    for (const uintptr_t value : {1, 9, 0, 2, 3}) DTList_Append(list, value);
    DTList_Release(list);
    EXPECT_THAT(released, ElementsAre(101, 2, 3));
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(StaticList, KeepsWhatItHasAndTakesNodesFromThePool) {
    DTList *list = DTList_New(1, nullptr);
    for (const uintptr_t value : {1, 2}) DTList_Push(list, value);
    EXPECT_EQ(DTList_Remove(list, 0), 0u);
    DTList_RemoveAll(list);
    DTList_Release(list);
    EXPECT_THAT(values(list), ElementsAre(2, 1));
    EXPECT_EQ(platform.blocks, 2u); // the list and one chunk
}

TEST(List, KeepsWhatItHasWithoutMemory) {
    DTList *list = DTList_New(2, release);
    for (const uintptr_t value : {1, 2}) DTList_Append(list, value);
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTList_Append(list, 3) + DTList_Push(list, 3), 0); // the dropped one stays dropped
    platform.fail_allocations_from(2);
    EXPECT_EQ(DTList_Set(list, 8, 6), 0u);
    EXPECT_THAT(values(list), ElementsAre(1, 0)); // what was appended stays
}

// Random operations, seeded, against an array that says what each should have done.
TEST(List, BehavesLikeAModel) {
    std::mt19937 random(20141116);
    Values model, dropped;
    DTList *list = DTList_New(12, release);
    for (uintptr_t step = 1; step <= 4000; ++step) {
        const int32_t length = DTList_Length(list), at = static_cast<int32_t>(random() % 16) - 1;
        const bool inside = at >= 0 && at < length;
        const uintptr_t held = inside ? *(model.begin() + at) : 0;
        EXPECT_EQ(DTList_Get(list, at), at < 0 && length != 0 ? model.front() : held);
        const auto found = std::find(model.begin(), model.end(), held);
        EXPECT_EQ(DTList_Find(list, equal, held), held);
        EXPECT_EQ(DTList_FindPos(list, equal, held),
                  found == model.end() ? -1 : found - model.begin());
        switch (random() % 5) {
        case 0:
            DTList_Push(list, step);
            if (length >= 12 && model.back() != 0) dropped.push_back(model.back());
            if (length >= 12) model.pop_back();
            model.insert(model.begin(), step);
            break;
        case 1:
            DTList_Insert(list, at, step);
            model.insert(model.begin() + std::min(at + 1, length), step);
            break;
        case 2:
            EXPECT_EQ(DTList_Set(list, at, step), held);
            if (at >= length) model.resize(static_cast<size_t>(at) + 1);
            if (at >= 0) *(model.begin() + at) = step;
            break;
        default:
            EXPECT_EQ(DTList_Remove(list, at), held);
            if (inside) model.erase(model.begin() + at);
        }
        ASSERT_EQ(values(list), model);
        ASSERT_EQ(released, dropped);
    }
}
