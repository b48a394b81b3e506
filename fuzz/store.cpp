// The record store: bytes drive its operations, a model tells what it must hold after each.
#include "input.h"

#include "support/ring.h"

namespace {

constexpr uint32_t largest_block = 32 * 1024; // beyond this a run only gets slow

class Run {
public:
    explicit Run(Input input) : input_(input) {
        empty_model(input_.number() % 8 * 1024u);
        store_ = DTInfo_New(limit_);
    }
    ~Run() { DTInfo_Release(store_); }

    bool goes_on() const { return input_.left() != 0 && store_->memory->size < largest_block; }

    void step() {
        ++steps_;
        const uint8_t operation = input_.number();
        if (operation < 208)
            append(operation % 4);
        else if (operation < 224)
            read_from_anywhere();
        else if (operation < 240)
            DTInfo_Ignore(store_, ignore_ = operation % 2);
        else
            resize();
        check();
    }

private:
    std::string letters(char first, size_t count) const {
        const char letter[] = {first, static_cast<char>(first + 1), static_cast<char>(first + 2)};
        return std::string(count, letter[steps_ % 3]);
    }

    // Short keys and values as a rule. No byte of a stored length is one that stands for free.
    void append(int way) {
        const uint32_t length = input_.number<uint16_t>();
        const std::string key = letters('a', length % 64 ? length % 16 : 248 + length / 8192);
        const std::string value = letters('A', (length % 32 ? length / 64 : length) & 0xFEFE);
        const bool fits = limit_ == 0 || key.size() + value.size() + 3 <= limit_;
        const bool stored = !ignore_ && key.size() <= 254 && fits;
        assert(appends(way, key, value) == stored);
        if (stored) model_.append(key, value);
    }

    bool appends(int way, const std::string &key, const std::string &value) {
        const uint8_t key_len = static_cast<uint8_t>(key.size());
        const uint16_t size = static_cast<uint16_t>(value.size()), part = size / 3;
        switch (way) {
        case 0:
            return DTInfo_Append(store_, key.data(), key_len, value.data(), size) > 0;
        case 1: // 1 as well when it drops
            return DTInfo_Append2Message(store_, key.data(), key_len, value.data(), part,
                                         value.data() + part, size - part) == 1 &&
                   !ignore_;
        case 2:
            return DTInfo_Write(store_, key.c_str(), value.c_str()) > 0;
        default:
            return prepare(key, value);
        }
    }

    bool prepare(const std::string &key, const std::string &value) {
        const uint32_t size = static_cast<uint32_t>(value.size());
        if (!DTInfo_PackPre(store_, key.c_str(), 0, size)) return false;
        if (size != 0) memcpy(DTMem_Get(store_->memory, store_->free_addr), value.data(), size);
        store_->free_addr += size;
        store_->free_size -= size;
        return true;
    }

    // A walk that stood anywhere when records were erased stays inside the block and ends.
    void read_from_anywhere() {
        const size_t most = store_->memory->size;
        assert(walk(store_, "", input_.number<uint16_t>(), most).size() < most);
    }

    void resize() {
        const uint32_t limit = input_.number() % 9 * 1024u;
        if (limit == limit_)
            DTInfo_Clear(store_);
        else
            assert(DTInfo_ReSize(store_, limit == 0 ? 0 : limit - 7) == 1);
        empty_model(limit);
    }

    void empty_model(uint32_t limit) {
        limit_ = limit;
        model_ = LapModel(limit != 0 ? limit : SIZE_MAX);
    }

    void check() {
        assert(!fault_of(store_));
        assert(limit_ == 0 || store_->memory->size <= limit_);
        const Records all = model_.records();
        assert(walk(store_, "", DTINFO_FIRST, SIZE_MAX) == all);
        assert(store_->free_addr == model_.at);
        const std::string filter(1 + steps_ % 2, 'a');
        Records selected;
        for (const auto &record : all)
            if (record.first.starts_with(filter)) selected.push_back(record);
        assert(walk(store_, filter, DTINFO_FIRST, SIZE_MAX) == selected);
    }

    Input input_;
    DTInfo *store_;
    LapModel model_{0};
    uint32_t limit_;
    uint32_t ignore_ = 0;
    uint32_t steps_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    DTInfo_SetTrace(0);
    for (Run run({data, std::min<size_t>(size, 300)}); run.goes_on();) run.step();
    return 0;
}
