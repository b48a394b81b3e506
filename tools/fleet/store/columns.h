// The columns of a chart, as values come to them.
#pragma once

#include "fleet/store/state.h"
#include "fleet/store/store.h"

#include <vector>

namespace dtfleet {

class Columns {
public:
    // Of a time that is not empty, for a series of that type and sign.
    Columns(Microseconds from, Microseconds to, size_t count, dt::decode::Kind type,
            bool is_signed);

    Microseconds width() const { return width_; }

    // Values of one time, which lies within. Of several at a time the later one is the last.
    void add(Microseconds time, const Sum &sum);

    // Those that have values, in the order of time.
    std::vector<Point> points() const;

private:
    struct Column {
        Point point;
        Microseconds last = 0; // when
    };
    void join(Column &column, Microseconds time, const Sum &sum) const;

    Microseconds from_;
    Microseconds width_;
    dt::decode::Kind type_;
    bool is_signed_;
    std::vector<Column> columns_;
};

} // namespace dtfleet
