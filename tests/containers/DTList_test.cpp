#include "support/story.h"

#include <algorithm>
#include <random>

namespace {

using Values = std::vector<uintptr_t>;

Values released;
DTList *list; // that a callback changes

void release(uintptr_t value) { released.push_back(value); }

Values values() {
    Values all;
    for (const DTListNode *node = list->head; node; node = node->next) all.push_back(node->value);
    EXPECT_EQ(all.size(), static_cast<size_t>(DTList_Length(list)));
    return all;
}

int equal(uintptr_t value, uintptr_t key) { return value == key ? 0 : 1; }

} // namespace

// A value goes before its node, which has left the list already.
TEST(List, ReleasesValuesThroughACallbackThatMayUseTheList) {
    static Values left; // blocks at each release, the list's own included
    list = DTList_New(0, [](uintptr_t value) {
        EXPECT_EQ(value + DTList_Popup(list), 10u);
        left.push_back(platform.blocks);
        released.push_back(value + 100);
        list->free_value = [](uintptr_t rest) {
            left.push_back(platform.blocks);
            release(rest);
        };
    });
    for (const uintptr_t value : {1, 9, 0, 2, 3}) DTList_Append(list, value);
    DTList_Release(list);
    EXPECT_THAT(released, ElementsAre(101, 2, 3));
    EXPECT_THAT(left, ElementsAre(5, 3, 2));
    EXPECT_EQ(platform.blocks, 0u);
}

TEST(List, IsSearchedAsFarAsItWentAtTheStart) {
    list = DTList_New(0, release);
    const DTListCompare append = [](uintptr_t value, uintptr_t) {
        DTList_Append(list, value + 1);
        return DTList_Length(list) < 10 ? 1 : 0;
    };
    for (const uintptr_t value : {1, 2}) DTList_Append(list, value);
    EXPECT_EQ(DTList_Find(list, append, 0), 0u);
    EXPECT_EQ(DTList_FindPos(list, append, 0), -1);
    EXPECT_EQ(DTList_Find(list, nullptr, 0), 0u);
    EXPECT_EQ(DTList_FindPos(list, nullptr, 0), -1);
    EXPECT_THAT(values(), ElementsAre(1, 2, 2, 3, 2, 3, 3, 4));
}

TEST(StaticList, KeepsWhatItHasAndTakesNodesFromThePool) {
    list = DTList_New(1, nullptr);
    for (const uintptr_t value : {1, 2}) DTList_Push(list, value);
    EXPECT_EQ(DTList_Remove(list, 0), 0u);
    DTList_RemoveAll(list);
    DTList_Release(list);
    EXPECT_THAT(values(), ElementsAre(2, 1));
    EXPECT_EQ(platform.blocks, 2u); // the list and one chunk
}

// Random operations, seeded and now and then without memory, against an array that says what each
// should have done.
TEST(List, BehavesLikeAModel) {
    std::mt19937 random(20141116);
    Values model, dropped;
    list = DTList_New(12, release);
    for (uintptr_t step = 1; step <= 4000; ++step) {
        const int32_t length = DTList_Length(list), at = static_cast<int32_t>(random() % 16) - 1;
        const bool inside = at >= 0 && at < length;
        const uintptr_t held = inside ? *(model.begin() + at) : 0;
        EXPECT_EQ(DTList_Get(list, at), at < 0 && length != 0 ? model.front() : held);
        const auto found = std::find(model.begin(), model.end(), held);
        EXPECT_EQ(DTList_Find(list, equal, held), held);
        EXPECT_EQ(DTList_FindPos(list, equal, held),
                  found == model.end() ? -1 : found - model.begin());
        const unsigned memory = random() % 4; // for so many nodes
        platform.fail_allocations_from(memory + 1);
        switch (random() % 5) {
        case 0:
            EXPECT_EQ(DTList_Push(list, step), memory != 0);
            if (length >= 12 && model.back() != 0) dropped.push_back(model.back());
            if (length >= 12) model.pop_back(); // and stays dropped
            if (memory != 0) model.insert(model.begin(), step);
            break;
        case 1:
            EXPECT_EQ(DTList_Insert(list, at, step), memory != 0);
            if (memory != 0) model.insert(model.begin() + std::min(at + 1, length), step);
            break;
        case 2:
            EXPECT_EQ(DTList_Set(list, at, step), held);
            // What there is memory for is appended, and stays.
            if (at >= length)
                model.resize(static_cast<size_t>(
                    std::min<int32_t>(at + 1, length + static_cast<int32_t>(memory))));
            if (at >= 0 && at < static_cast<int32_t>(model.size())) *(model.begin() + at) = step;
            break;
        default:
            EXPECT_EQ(DTList_Remove(list, at), held);
            if (inside) model.erase(model.begin() + at);
        }
        ASSERT_EQ(values(), model);
        ASSERT_EQ(released, dropped);
    }
}
