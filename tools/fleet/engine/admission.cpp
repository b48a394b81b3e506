#include "fleet/engine/admission.h"

#include <algorithm>

namespace dtfleet {
namespace {

uint32_t subnet_of(in_addr_t ip) { return ntohl(ip) >> 8; }

// Of the places for those that wait, so many for devices that failed.
size_t share_of_backed_off(size_t places) { return std::max<size_t>(1, places / 4); }

} // namespace

void Window::answered(Time now, Time delay) {
    delays_.push_back(delay);
    if (delays_.size() < sample) return;
    const auto middle = delays_.begin() + sample / 2;
    std::nth_element(delays_.begin(), middle, delays_.end());
    judge(now, *middle);
    typical_ = *middle;
    delays_.clear();
}

void Window::judge(Time now, Time median) {
    constexpr Time noise = std::chrono::milliseconds(5); // what a busy machine does to good answers
    constexpr size_t least = 4;
    const int64_t second = std::chrono::duration_cast<Seconds>(now).count();
    while (second_ < second) {
        second_ = std::max(second_ + 1, second - static_cast<int64_t>(minute) + 1);
        best_of_second_[static_cast<size_t>(second_) % minute] = Time(0);
    }
    Time best = median;
    for (const Time of_second : best_of_second_)
        if (of_second != Time(0)) best = std::min(best, of_second);
    Time &own = best_of_second_[static_cast<size_t>(second) % minute];
    own = own == Time(0) ? median : std::min(own, median);
    if (median > 2 * best + noise) size_ = std::max(least, size_ - size_ / 4);
}

void Window::went_well() {
    constexpr unsigned share = 10;
    if (++good_ % share == 0) size_ = std::min(most_, size_ + 1);
}

void Admission::set_limits(const Limits &limits) {
    limits_ = limits;
    window_.set_most(limits.waiting);
    for (const auto &[number, subnet] : subnets_) {
        offer(number, 0);
        offer(number, 1);
    }
}

void Admission::add(size_t device, in_addr_t ip, Rank rank) {
    const uint32_t subnet = subnet_of(ip);
    const bool backed_off = rank == Rank::backed_off;
    places_[device] = {subnet, backed_off, State::queued};
    auto &queue = subnets_[subnet].queues[backed_off];
    queue.insert(rank == Rank::first ? queue.begin() : queue.end(), device);
    ++queued_;
    offer(subnet, backed_off);
}

// A subnet stands in a ring while it has both somebody in that queue and room.
void Admission::offer(uint32_t number, size_t kind) {
    Subnet &subnet = subnets_[number];
    if (subnet.in_ring[kind] || subnet.queues[kind].empty() || !has_room(subnet, kind)) return;
    subnet.in_ring[kind] = true;
    rings_[kind].push_back(number);
}

bool Admission::has_room(const Subnet &subnet, size_t kind) const {
    const size_t share = share_of_backed_off(limits_.waiting_per_subnet);
    return subnet.connected < limits_.per_subnet && subnet.waiting < limits_.waiting_per_subnet &&
           (kind == 0 || subnet.waiting_backed_off < share);
}

bool Admission::take(size_t &device) {
    if (waiting_ >= window_.size() || connected_ >= limits_.open) return false;
    // One that failed is always asked: under a load without end nobody would see it well again.
    if (waiting_backed_off_ == 0 && take_from(1, device)) return true;
    if (take_from(0, device)) return true;
    return waiting_backed_off_ < share_of_backed_off(window_.size()) && take_from(1, device);
}

// In turns from each subnet, so that a large one does not keep the others waiting.
bool Admission::take_from(size_t kind, size_t &device) {
    auto &ring = rings_[kind];
    while (!ring.empty()) {
        const uint32_t number = ring.front();
        Subnet &subnet = subnets_[number];
        ring.pop_front();
        subnet.in_ring[kind] = false;
        if (!has_room(subnet, kind) || subnet.queues[kind].empty()) continue;
        device = subnet.queues[kind].front();
        subnet.queues[kind].pop_front();
        ++subnet.waiting;
        ++waiting_;
        waiting_backed_off_ += kind;
        subnet.waiting_backed_off += kind;
        --queued_;
        places_[device].state = State::waiting;
        offer(number, kind);
        return true;
    }
    return false;
}

void Admission::connect(size_t device) {
    Place &place = places_.at(device);
    place.state = State::connected;
    ++connected_;
    ++subnets_[place.subnet].connected;
    stop_waiting(place);
}

void Admission::stop_waiting(const Place &place) {
    --waiting_;
    waiting_backed_off_ -= place.backed_off;
    Subnet &subnet = subnets_[place.subnet];
    --subnet.waiting;
    subnet.waiting_backed_off -= place.backed_off;
    offer(place.subnet, 0);
    offer(place.subnet, 1);
}

void Admission::end(size_t device) {
    const auto found = places_.find(device);
    if (found == places_.end()) return;
    const Place place = found->second;
    places_.erase(found);
    if (place.state == State::waiting) return stop_waiting(place);
    --connected_;
    --subnets_[place.subnet].connected;
    offer(place.subnet, 0);
    offer(place.subnet, 1);
}

} // namespace dtfleet
