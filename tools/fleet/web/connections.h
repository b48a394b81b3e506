// The open connections of the page, and which of them must go: a request must be whole, and its
// answer taken, in time; when there are too many, the oldest that waits for its request goes first.
#pragma once

#include "fleet/engine/time.h"

#include <cstddef>
#include <list>
#include <optional>

namespace dtfleet {

struct WebBounds {
    size_t connections = 256;
    Time request = std::chrono::seconds(5); // from the connection, or the last answer's end
    Time answer = std::chrono::seconds(30);
    size_t readings = 64; // answers that wait for the database
};

class Connections {
public:
    explicit Connections(const WebBounds &bounds) : bounds_(bounds) {}

    struct Entry {
        int fd;
        Time since;             // of its present part
        std::list<Entry> *list; // that it is in
    };
    using Place = std::list<Entry>::iterator;

    // The descriptor stays the caller's, and must be open until remove().
    Place add(int fd, Time now);
    void remove(Place place) { place->list->erase(place); }

    void begin_answer(Place place, Time now) { move(place, answering_, now); }
    void end_answer(Place place, Time now) { move(place, asking_, now); }

    // Ends what is late. Ended connections are still to be removed, once their owner has noticed.
    void end_late(Time now);

    // When end_late() has something to do at the earliest.
    std::optional<Time> next() const;

private:
    void move(Place place, std::list<Entry> &to, Time now);
    void end(Place place);

    WebBounds bounds_;
    std::list<Entry> asking_; // each the oldest first
    std::list<Entry> answering_;
    std::list<Entry> ended_;
};

} // namespace dtfleet
