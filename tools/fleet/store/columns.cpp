#include "fleet/store/columns.h"

#include "fleet/store/number.h"

#include <algorithm>

namespace dtfleet {
namespace {

constexpr size_t most_columns = 10'000;

} // namespace

Columns::Columns(Microseconds from, Microseconds to, size_t count, dt::decode::Kind type,
                 bool is_signed)
    : from_(from), type_(type), is_signed_(is_signed),
      columns_(std::clamp<size_t>(count, 1, most_columns)) {
    const auto all = static_cast<uint64_t>(to) - static_cast<uint64_t>(from);
    width_ = static_cast<Microseconds>((all - 1) / columns_.size() + 1);
}

void Columns::add(Microseconds time, const Sum &sum) {
    Column &column = columns_[static_cast<size_t>((time - from_) / width_)];
    if (column.point.count == 0)
        column = {{time, sum.n, sum.min, sum.max, sum.last}, time};
    else
        join(column, time, sum);
}

void Columns::join(Column &column, Microseconds time, const Sum &sum) const {
    Point &point = column.point;
    point.count += sum.n;
    if (is_less(sum.min, point.min, type_, is_signed_)) point.min = sum.min;
    if (is_less(point.max, sum.max, type_, is_signed_)) point.max = sum.max;
    point.time = std::min(point.time, time);
    if (time < column.last) return;
    point.last = sum.last;
    column.last = time;
}

std::vector<Point> Columns::points() const {
    std::vector<Point> points;
    for (const Column &column : columns_)
        if (column.point.count != 0) points.push_back(column.point);
    return points;
}

} // namespace dtfleet
