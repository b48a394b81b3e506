// Files of settings, and a request for one of them.
#include "printed.h"

#include "dtctl/config/exchange.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Input input(data, size);
    const bool as_toml = input.number() % 2 != 0, echo = input.left() % 2 != 0;
    const std::string request = input.text().text(), file = input.rest().string();
    dtctl::Settings settings;
    const Outcome read = outcome_of(
        [&](FILE *) { settings = as_toml ? dtctl::parse_toml(file) : dtctl::parse_ini(file); });
    assert(read.code == dtctl::Exit::success || read.error.starts_with("line "));
    check_text(read.error, "");
    const auto answer = dtctl::answer_config(request, request.size(), settings, echo);
    check_text(answer.log, "");
    assert(!answer.datagram || answer.datagram->size() <= dtctl::max_config_answer);
    assert(settings.size() <= file.size());
    return 0;
}
