// Lists of 10, 100 and 1000 values: append and take the first, bounded push, get the last.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <dt/containers.h>

namespace {

using namespace bench;

void keep(uintptr_t) {}

class DtList {
public:
    DtList(size_t length, int32_t max_length)
        : length_(static_cast<int32_t>(length)), list_(DTList_New(max_length, keep)) {
        for (size_t i = 0; i < length; ++i) DTList_Append(list_, i + 1);
    }
    DtList(const DtList &) = delete;
    ~DtList() { DTList_Release(list_); }

    std::string text() const {
        std::string all;
        for (int32_t i = 0; i < DTList_Length(list_); ++i)
            all += std::to_string(DTList_Get(list_, i)) + " ";
        return all;
    }

protected:
    int32_t length_;
    DTList *list_;
};

struct DtAppend : DtList {
    explicit DtAppend(size_t length) : DtList(length, 0) {}
    void operator()() {
        DTList_Append(list_, 7);
        use(DTList_Popup(list_));
    }
    std::string kept() {
        for (int i = 0; i < 5; ++i) (*this)();
        return text();
    }
};

struct DtPush : DtList {
    explicit DtPush(size_t length) : DtList(length, static_cast<int32_t>(length)) {}
    void operator()() { DTList_Push(list_, 7); }
    std::string kept() {
        for (int i = 0; i < 5; ++i) (*this)();
        return text();
    }
};

struct DtGet : DtList {
    explicit DtGet(size_t length) : DtList(length, 0) {}
    void operator()() { use(DTList_Get(list_, length_ - 1)); }
    std::string kept() { return std::to_string(DTList_Get(list_, length_ - 1)); }
};

// A walk along as many nodes.
class LimitGet {
public:
    explicit LimitGet(size_t length) : length_(static_cast<int32_t>(length)) {
        Node **link = &head_;
        for (size_t i = 0; i < length; ++i, link = &(*link)->next) *link = new Node{nullptr, i + 1};
    }
    LimitGet(const LimitGet &) = delete;
    ~LimitGet() {
        while (Node *node = head_) {
            head_ = node->next;
            delete node;
        }
    }

    void operator()() { use(get(length_ - 1)); }
    std::string kept() { return std::to_string(get(length_ - 1)); }

private:
    struct Node {
        Node *next;
        uintptr_t value;
    };

    [[gnu::noinline]] uintptr_t get(int32_t index) const {
        const Node *node = head_;
        for (; index > 0; --index) node = node->next;
        return node->value;
    }

    int32_t length_;
    Node *head_ = nullptr;
};

const Family list([] {
    for (const size_t length : list_lengths) {
        contend<DtAppend>(with_size("list append", length, "values"), libdt, length);
        contend<DtPush>(with_size("list push", length, "values"), libdt, length);
        contend<DtGet>(with_size("list get", length, "values"), libdt, length);
        contend<LimitGet>(with_size("list get", length, "values"), limit, length);
    }
});

} // namespace
