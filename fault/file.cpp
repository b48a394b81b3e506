// The pass that gathers all fault data, and the fault log file that it writes.
#include "fault/DTFault.h"

#include "base/descriptor.h"
#include "base/nodes.h"
#include "foundation/DTPrint.h"
#include "foundation/DTString.h"

#include <stdio.h>
#include <string.h>

namespace {

uint32_t bRunning;

struct Bytes {
    const void *data;
    uint32_t length;
};

Bytes name_of(const DTFault *fault) {
    return {fault->name, static_cast<uint32_t>(strnlen(fault->name, sizeof fault->name))};
}

// Gathers the file's many short parts: a call for each would cost more than writing them.
class Output {
public:
    explicit Output(FILE *file) : file_(file) {}
    ~Output() { flush(); }
    Output(const Output &) = delete;

    void put(const void *bytes, uint32_t count) {
        if (count > sizeof buffer_ - used_) flush();
        if (count > sizeof buffer_) {
            fwrite(bytes, 1, count, file_);
            return;
        }
        memcpy(buffer_ + used_, bytes, count);
        used_ += count;
    }

    void put_length(uint32_t length) {
        const uint8_t bytes[] = {static_cast<uint8_t>(length), static_cast<uint8_t>(length >> 8)};
        put(bytes, sizeof bytes);
    }

    // An entry is its length and then its parts, of which the last, the data, gives way when the
    // length would not fit 16 bits.
    template <size_t N> void put_entry(Bytes (&&parts)[N]) {
        uint32_t left = UINT16_MAX;
        for (Bytes &part : parts) {
            if (part.length > left) part.length = left;
            left -= part.length;
        }
        put_length(UINT16_MAX - left);
        for (const Bytes &part : parts) put(part.data, part.length);
    }

private:
    void flush() {
        fwrite(buffer_, 1, used_, file_);
        used_ = 0;
    }

    FILE *file_;
    uint32_t used_ = 0;
    uint8_t buffer_[512] = {};
};

// A walk over the records of a store, which may be null.
template <typename Visit> void each_record(DTInfo *store, Visit visit) {
    uint32_t pos = DTINFO_FIRST;
    const uint8_t *key, *data;
    uint8_t key_len;
    uint16_t length;
    while (DTInfo_Get(store, nullptr, 0, &pos, &key, &key_len, &data, &length))
        visit(Bytes{key, key_len}, Bytes{data, length});
}

// The faults at the first count positions of the registry, in their order. By position: a start
// callback may change the list.
template <typename Visit> void each_fault(int32_t count, Visit visit) {
    for (int32_t i = 0; i < count; ++i)
        if (const uintptr_t value = DTList_Get(g_DTFault_List, i))
            visit(reinterpret_cast<DTFault *>(value));
}

void run_callback(const DTFault *fault) {
    if (!fault->callback) return;
    DTPrint_Show(DTString_SFormat("start callback [%s]\n", fault->name), 0);
    fault->callback();
    DTPrint_Show(DTString_SFormat("end callback [%s]\n", fault->name), 0);
}

void DTFault_SaveLog(const DTFault *fault, const DTLogger *logger, const char *word, Output *out) {
    if (!logger) return;
    const Bytes section = {word, static_cast<uint32_t>(strlen(word))};
    const Bytes name = name_of(fault);
    each_record(logger->info, [=](Bytes, Bytes data) {
        out->put_entry({section, {" ", 1}, name, {" ", 1}, data});
    });
}

// Faults by the index in their records' keys; null where there is none.
struct Registry {
    Registry() {
        int32_t count = 0;
        for (const uintptr_t value : dt::nodes(g_DTFault_List)) {
            if (count == DTFAULT_MAX) break;
            faults[count++] = reinterpret_cast<const DTFault *>(value);
        }
    }

    const DTFault *faults[DTFAULT_MAX] = {};
};

void save_values(Output *out) {
    const Registry registry;
    each_record(g_DTFault_Info, [&](Bytes key, Bytes data) {
        const uint8_t *bytes = static_cast<const uint8_t *>(key.data);
        const DTFault *fault = key.length == 2 ? registry.faults[bytes[1]] : nullptr;
        if (!fault) return;
        const Bytes name = name_of(fault);
        const uint8_t named = static_cast<uint8_t>(name.length + 1);
        out->put_entry({{&named, 1}, {bytes, 1}, name, data});
    });
}

void save(FILE *file, int32_t count) {
    Output out(file);
    each_fault(count, [&](const DTFault *fault) {
        DTFault_SaveLog(fault, fault->init_logger, "log", &out);
        DTFault_SaveLog(fault, fault->run_logger, "run", &out);
    });
    out.put_length(0); // ends the logs
    save_values(&out);
}

// The file, or null. Under a standard stream's number it would take what is printed meanwhile.
FILE *open_file() {
    FILE *file = fopen("/fcm.log", "wb");
    if (!file || dt::is_apart(fileno(file))) return file;
    const int copy = dt::copy_apart(fileno(file));
    fclose(file);
    FILE *moved = copy >= 0 ? fdopen(copy, "wb") : nullptr;
    if (!moved) close(copy);
    return moved;
}

void pass() {
    // What a callback registers has its turn in the next pass.
    const int32_t count = DTList_Length(g_DTFault_List);
    each_fault(count, run_callback);
    FILE *file = open_file();
    if (!file) return;
    save(file, count);
    fclose(file);
    DTInfo_Release(g_DTFault_Info);
    g_DTFault_Info = nullptr;
}

} // namespace

void DTFault_Start(void) {
    if (!g_DTFault_List || bRunning) return;
    bRunning = 1;
    pass();
    bRunning = 0;
}
