// GQueue of GBytes, and GSList.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <glib.h>

namespace {

using namespace bench;

// Each element holds a record: its key, then its value.
class Queue {
public:
    Queue() {
        Source source(walked_value);
        for (size_t i = 0; i < walked_records; ++i) {
            source.next();
            std::string record(source.key(), source.key() + Source::key_size);
            record.append(source.value(), source.value() + source.size());
            g_queue_push_tail(&queue_, g_bytes_new(record.data(), record.size()));
        }
    }
    Queue(const Queue &) = delete;
    ~Queue() {
        g_queue_clear_full(&queue_,
                           [](void *bytes) { g_bytes_unref(static_cast<GBytes *>(bytes)); });
    }

    Walked walk(const char *filter) const {
        Walked walked;
        for (const GList *node = queue_.head; node; node = node->next) {
            gsize size;
            const void *data = g_bytes_get_data(static_cast<GBytes *>(node->data), &size);
            const uint8_t *record = static_cast<const uint8_t *>(data);
            if (!filter || memcmp(record, filter, Source::key_size) == 0)
                walked.add(record + Source::key_size, size - Source::key_size);
        }
        return walked;
    }

private:
    GQueue queue_ = G_QUEUE_INIT;
};

class List {
public:
    explicit List(size_t length) {
        for (size_t i = 0; i < length; ++i) list_ = g_slist_append(list_, pointer(i + 1));
    }
    List(const List &) = delete;
    ~List() { g_slist_free(list_); }

    std::string text() const {
        std::string all;
        for (const GSList *node = list_; node; node = node->next)
            all += std::to_string(reinterpret_cast<uintptr_t>(node->data)) + " ";
        return all;
    }

protected:
    static void *pointer(uintptr_t value) { return reinterpret_cast<void *>(value); }

    GSList *list_ = nullptr;
};

struct Append : List {
    using List::List;
    void operator()() {
        list_ = g_slist_append(list_, pointer(7));
        list_ = g_slist_delete_link(list_, list_);
    }
    std::string kept() {
        for (int i = 0; i < 5; ++i) (*this)();
        return text();
    }
};

struct Push : List {
    using List::List;
    void operator()() {
        list_ = g_slist_delete_link(list_, g_slist_last(list_));
        list_ = g_slist_prepend(list_, pointer(7));
    }
    std::string kept() {
        for (int i = 0; i < 5; ++i) (*this)();
        return text();
    }
};

const Family glib([] {
    contend<Walk<Queue>>("store walk", "GQueue", nullptr);
    contend<Walk<Queue>>("store walk by key", "GQueue", "ka");
    for (const size_t length : list_lengths) {
        contend<Append>(with_size("list append", length, "values"), "GSList", length);
        contend<Push>(with_size("list push", length, "values"), "GSList", length);
    }
});

} // namespace
