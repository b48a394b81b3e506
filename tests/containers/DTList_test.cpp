#include "support/platform.h"

#include <dt/containers.h>
#include <gmock/gmock.h>

#include <deque>
#include <random>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::vector<uintptr_t> released;

void release(uintptr_t value) { released.push_back(value); }

std::vector<uintptr_t> values(const DTList *list) {
    std::vector<uintptr_t> all;
    for (const DTListNode *node = list->head; node; node = node->next) all.push_back(node->value);
    EXPECT_EQ(all.size(), static_cast<size_t>(DTList_Length(list)));
    return all;
}

DTList *list_of(std::initializer_list<uintptr_t> wanted, DTListFree free_value = release) {
    DTList *list = DTList_New(0, free_value);
    for (const uintptr_t value : wanted) DTList_Append(list, value);
    return list;
}

int equal(uintptr_t value, uintptr_t key) { return value == key ? 0 : 1; }

} // namespace

TEST(List, InsertsBehindThePosition) {
    EXPECT_THAT(values(list_of({1, 2})), ElementsAre(1, 2));
    for (const auto &[position, expected] :
         std::vector<std::pair<int32_t, std::vector<uintptr_t>>>{{-1, {9, 1, 2}},
                                                                 {INT32_MIN, {9, 1, 2}},
                                                                 {0, {1, 9, 2}},
                                                                 {1, {1, 2, 9}},
                                                                 {7, {1, 2, 9}},
                                                                 {INT32_MAX, {1, 2, 9}}}) {
        DTList *list = list_of({1, 2});
        EXPECT_EQ(DTList_Insert(list, position, 9), 1);
        EXPECT_EQ(values(list), expected) << position;
        DTList *empty = list_of({});
        EXPECT_EQ(DTList_Insert(empty, position, 9), 1);
        EXPECT_THAT(values(empty), ElementsAre(9));
    }
}

TEST(List, PushDropsTheOldest) {
    DTList *list = DTList_New(3, release);
    for (const uintptr_t value : {1, 2, 3, 4}) EXPECT_EQ(DTList_Push(list, value), 1);
    EXPECT_THAT(values(list), ElementsAre(4, 3, 2));
    EXPECT_THAT(released, ElementsAre(1));
    DTList_Append(list, 0); // beyond the bound: the push drops one, and a 0 is not released
    DTList_Push(list, 5);
    EXPECT_THAT(values(list), ElementsAre(5, 4, 3, 2));
    EXPECT_THAT(released, ElementsAre(1));
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTList_Push(list, 6), 0);
    EXPECT_THAT(values(list), ElementsAre(5, 4, 3)); // the dropped one stays dropped
}

TEST(List, GetsByIndex) {
    DTList *list = list_of({1, 2});
    EXPECT_EQ(DTList_Get(list, -3), 1u);
    EXPECT_EQ(DTList_Get(list, 1), 2u);
    EXPECT_EQ(DTList_Get(list, 2), 0u);
    EXPECT_EQ(DTList_Get(list_of({}), -1), 0u);
}

TEST(List, SetReplacesOrExtends) {
    DTList *list = list_of({1, 2});
    EXPECT_EQ(DTList_Set(list, 1, 9), 2u);
    EXPECT_EQ(DTList_Set(list, -1, 8), 0u);
    EXPECT_EQ(DTList_Set(list, 4, 7), 0u);
    EXPECT_THAT(values(list), ElementsAre(1, 9, 0, 0, 7));
    platform.fail_allocations_from(2);
    EXPECT_EQ(DTList_Set(list, 8, 6), 0u);
    EXPECT_THAT(values(list), ElementsAre(1, 9, 0, 0, 7, 0)); // what was appended stays
}

TEST(List, RemovesAndHandsTheValueOver) {
    DTList *list = list_of({1, 2, 3, 4});
    EXPECT_EQ(DTList_Remove(list, 4), 0u);
    EXPECT_EQ(DTList_Remove(list, -1), 0u);
    EXPECT_EQ(DTList_Remove(list, 1), 2u);
    EXPECT_EQ(DTList_PopTail(list), 4u);
    EXPECT_EQ(DTList_Popup(list), 1u);
    EXPECT_THAT(values(list), ElementsAre(3));
    EXPECT_THAT(released, IsEmpty());
    EXPECT_EQ(DTList_Popup(list), 3u);
    EXPECT_EQ(DTList_PopTail(list), 0u);
    DTList_Release(list);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(List, ReadsTheCallbackAnewForEachNode) {
    static DTList *list;
    list = list_of({1, 0, 2, 3}, [](uintptr_t value) {
        released.push_back(value + 100);
        list->free_value = release;
    });
    DTList_RemoveAll(list);
    EXPECT_THAT(released, ElementsAre(101, 2, 3));
    EXPECT_THAT(values(list), IsEmpty());
    DTList_Append(list, 4);
    DTList_Release(list);
    EXPECT_EQ(released.back(), 4u);
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(List, FindsTheFirstMatch) {
    DTList *list = list_of({5, 6, 6});
    EXPECT_EQ(DTList_Find(list, equal, 6), 6u);
    EXPECT_EQ(DTList_FindPos(list, equal, 6), 1);
    EXPECT_EQ(DTList_Find(list, equal, 7), 0u);
    EXPECT_EQ(DTList_FindPos(list, equal, 7), -1);
    EXPECT_EQ(DTList_FindPos(list, nullptr, 6), -1);
}

TEST(StaticList, KeepsWhatItHasAndTakesNodesFromThePool) {
    DTList *list = DTList_New(1, nullptr);
    DTList_Push(list, 1);
    DTList_Push(list, 2);
    EXPECT_EQ(DTList_Remove(list, 0), 0u);
    EXPECT_EQ(DTList_PopTail(list), 0u);
    DTList_RemoveAll(list);
    DTList_Release(list);
    EXPECT_THAT(values(list), ElementsAre(2, 1));
    EXPECT_EQ(platform.blocks, 2u); // the list and one chunk
}

TEST(List, AnswersNullAndExhaustedMemory) {
    EXPECT_EQ(DTList_Length(nullptr), 0);
    EXPECT_EQ(DTList_Insert(nullptr, 0, 1) + DTList_Append(nullptr, 1) + DTList_Push(nullptr, 1),
              0);
    EXPECT_EQ(DTList_Get(nullptr, 0) + DTList_Set(nullptr, 0, 1) + DTList_Remove(nullptr, 0), 0u);
    EXPECT_EQ(DTList_PopTail(nullptr) + DTList_Popup(nullptr), 0u);
    EXPECT_EQ(DTList_Find(nullptr, equal, 1), 0u);
    EXPECT_EQ(DTList_FindPos(nullptr, equal, 1), -1);
    DTList_RemoveAll(nullptr);
    DTList_Release(nullptr);
    DTList *list = list_of({1});
    platform.fail_allocations_from(1);
    EXPECT_EQ(DTList_Append(list, 2), 0);
    EXPECT_EQ(DTList_New(0, release), nullptr);
    EXPECT_THAT(values(list), ElementsAre(1));
}

// Random operations, seeded, against a deque that says what each should have done.
TEST(List, BehavesLikeAModel) {
    std::mt19937 random(20141116);
    std::deque<uintptr_t> model;
    DTList *list = DTList_New(12, release);
    for (uintptr_t step = 1; step <= 4000; ++step) {
        const int32_t at = static_cast<int32_t>(random() % 16) - 1;
        const size_t index = at < 0 ? 0 : static_cast<size_t>(at);
        switch (random() % 4) {
        case 0:
            if (model.size() >= 12) model.pop_back();
            model.push_front(step);
            DTList_Push(list, step);
            break;
        case 1:
            model.insert(model.begin() + std::min<long>(at + 1, static_cast<long>(model.size())),
                         step);
            DTList_Insert(list, at, step);
            break;
        case 2:
            if (index < model.size()) {
                EXPECT_EQ(DTList_Set(list, static_cast<int32_t>(index), step), model[index]);
                model[index] = step;
            }
            break;
        default:
            const bool inside = at >= 0 && index < model.size();
            EXPECT_EQ(DTList_Remove(list, at), inside ? model[index] : 0);
            if (inside) model.erase(model.begin() + at);
        }
        ASSERT_THAT(values(list), testing::ElementsAreArray(model));
    }
}
