// A circular buffer of strings that are used again.
#include "bench/bench.h"
#include "bench/inputs.h"

#include <boost/circular_buffer.hpp>

namespace {

using namespace bench;

class CircularBuffer {
public:
    explicit CircularBuffer(size_t value_size)
        : source_(value_size), records_(ring_size / (3 + Source::key_size + value_size)) {
        while (!records_.full()) records_.push_back(std::string());
        for (size_t i = 0; i < 2 * records_.size(); ++i) (*this)();
    }

    void operator()() {
        source_.next();
        std::string &oldest = records_.front();
        oldest.assign(source_.key(), Source::key_size);
        oldest.append(reinterpret_cast<const char *>(source_.value()), source_.size());
        records_.rotate(records_.begin() + 1);
    }

    std::string kept() {
        source_.restart();
        for (size_t i = 0; i < checked; ++i) (*this)();
        return newest(std::vector<std::string>(records_.begin(), records_.end()));
    }

private:
    Source source_;
    boost::circular_buffer<std::string> records_;
};

const Family boost_family([] {
    for (const size_t size : value_sizes)
        contend<CircularBuffer>(with_size("store append", size), "circular_buffer", size);
});

} // namespace
