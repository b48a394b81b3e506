#include "fleet/web/connections.h"

#include <sys/socket.h>

#include <algorithm>

namespace dtfleet {

Connections::Place Connections::add(int fd, Time now) {
    const Place place = asking_.insert(asking_.end(), Entry{fd, now, &asking_});
    if (asking_.size() + answering_.size() > bounds_.connections)
        end(asking_.size() > 1 ? asking_.begin() : answering_.begin());
    return place;
}

void Connections::move(Place place, std::list<Entry> &to, Time now) {
    if (place->list == &ended_) return;
    to.splice(to.end(), *place->list, place);
    place->list = &to;
    place->since = now;
}

// Its owner reads the end of the stream, and closes.
void Connections::end(Place place) {
    (void)::shutdown(place->fd, SHUT_RDWR);
    move(place, ended_, place->since);
}

void Connections::end_late(Time now) {
    while (!asking_.empty() && now - asking_.front().since >= bounds_.request) end(asking_.begin());
    while (!answering_.empty() && now - answering_.front().since >= bounds_.answer)
        end(answering_.begin());
}

std::optional<Time> Connections::next() const {
    std::optional<Time> next;
    if (!asking_.empty()) next = asking_.front().since + bounds_.request;
    if (!answering_.empty()) {
        const Time late = answering_.front().since + bounds_.answer;
        next = std::min(next.value_or(late), late);
    }
    return next;
}

} // namespace dtfleet
