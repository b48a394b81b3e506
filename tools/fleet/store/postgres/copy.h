// Rows in the form that COPY takes, column by column.
#pragma once

#include "fleet/store/postgres/binary.h"
#include "fleet/store/record.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace dtfleet::postgres {

class Rows {
public:
    explicit Rows(uint16_t columns) : columns_(columns) {}

    bool is_empty() const { return data_.empty(); }
    const std::string &data() const { return data_; }

    // Begins a row; as many columns follow.
    Rows &row() {
        put_16(data_, columns_);
        return *this;
    }
    Rows &null() {
        put_32(data_, null_length);
        return *this;
    }
    Rows &truth(bool value) {
        put_32(data_, 1);
        data_ += static_cast<char>(value);
        return *this;
    }
    Rows &int2(int64_t value) {
        put_32(data_, 2);
        put_16(data_, static_cast<uint16_t>(value));
        return *this;
    }
    Rows &int4(int64_t value) {
        put_32(data_, 4);
        put_32(data_, static_cast<uint32_t>(value));
        return *this;
    }
    Rows &int8(int64_t value) {
        put_32(data_, 8);
        put_64(data_, static_cast<uint64_t>(value));
        return *this;
    }
    Rows &bytes(std::string_view value) { // of a text, too
        put_sized(data_, value);
        return *this;
    }
    Rows &uuid(const RunId &id) {
        return bytes({reinterpret_cast<const char *>(id.data()), id.size()});
    }

    // Columns that have been written already.
    Rows &raw(const std::string &columns) {
        data_ += columns;
        return *this;
    }

    // `write` puts the elements of an array, each as a column is put.
    template <typename Write> Rows &array(Type element, size_t count, bool has_nulls, Write write) {
        const size_t at = data_.size();
        put_32(data_, 0);
        put_array_head(data_, count, element, has_nulls);
        for (size_t i = 0; i < count; ++i) write(i);
        std::string length;
        put_32(length, static_cast<uint32_t>(data_.size() - at - 4));
        data_.replace(at, 4, length);
        return *this;
    }

private:
    uint16_t columns_;
    std::string data_;
};

} // namespace dtfleet::postgres
