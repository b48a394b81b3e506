#include "fleet/web/web.h"

#include "fleet/inventory/web_settings.h"
#include "fleet/web/page_text.h"

#include <fmt/format.h>

#include <functional>

namespace dtfleet {
namespace {

constexpr Time longest_turn = std::chrono::seconds(5);

struct PageFile {
    std::string_view path;
    const std::string_view &text;
    const char *type;
};

constexpr const char *script_type = "text/javascript; charset=utf-8";
constexpr const char *style_type = "text/css; charset=utf-8";

constexpr PageFile page_files[] = {
    {"/", page_index, "text/html; charset=utf-8"}, {"/style.css", page_style, style_type},
    {"/common.js", page_common, script_type},      {"/fleet.js", page_fleet, script_type},
    {"/device.js", page_device, script_type},      {"/chart.js", page_chart, script_type},
    {"/main.js", page_main, script_type},          {"/icon.svg", page_icon, "image/svg+xml"},
    {"/uplot.js", uplot_script, script_type},      {"/uplot.css", uplot_style, style_type},
};

std::optional<Answer> page_file(const Request &request) {
    for (const PageFile &file : page_files) {
        if (file.path != request.path) continue;
        const std::string tag = fmt::format("{:x}", std::hash<std::string_view>()(file.text));
        if (is_known(request, tag)) return Answer{304, "", file.type, tag};
        return Answer{200, std::string(file.text), file.type, tag};
    }
    return std::nullopt;
}

WebRules rules_of(const Inventory &inventory) {
    WebRules rules{inventory.limits.run, {}};
    for (const Group &group : inventory.groups)
        if (group.metrics) rules.metric_groups.push_back(group.name);
    return rules;
}

// The host of "HOST:PORT" counts as a name of ours.
std::vector<std::string> hosts_of(const Inventory &inventory) {
    std::vector<std::string> hosts = inventory.web_hosts;
    hosts.push_back(inventory.web_bind.substr(0, inventory.web_bind.rfind(':')));
    return hosts;
}

Answer healthy(const Snapshot &snapshot) {
    const bool turns = snapshot.turned != Time() && now() - snapshot.turned < longest_turn;
    return turns ? Answer{200, "healthy\n"} : Answer{503, "the loop does not turn\n"};
}

Answer ready(const Snapshot &snapshot) {
    Answer answer = healthy(snapshot);
    if (answer.status != 200) return answer;
    if (!snapshot.not_ready.empty()) return {503, snapshot.not_ready + "\n"};
    return {200, "ready\n"};
}

} // namespace

Web::Web(const Inventory &inventory, const std::string &file, const Board &board, OpenReader open,
         const WebBounds &bounds)
    : board_(board), token_(web_token(inventory, file)), guard_(hosts_of(inventory), token_),
      rules_(rules_of(inventory)), api_(std::move(open), fmt::format("{:x}", wall_microseconds())),
      server_(web_address(inventory), bounds,
              {[this](const Request &request) { return answer_at_once(request); },
               [this](const Request &request) { return answer_later(request); }}) {}

void Web::take_inventory(const Inventory &inventory) {
    const std::lock_guard lock(mutex_);
    guard_ = Guard(hosts_of(inventory), token_);
    rules_ = rules_of(inventory);
}

// Whether it is healthy anybody may ask: it tells nothing else, and those who watch over services
// need no token for it.
std::optional<Answer> Web::answer_at_once(const Request &request) const {
    if (request.path == "/-/healthy") return healthy(board_.get());
    {
        const std::lock_guard lock(mutex_);
        if (auto refused = guard_.refuse(request)) return refused;
    }
    if (request.path == "/-/ready") return ready(board_.get());
    return page_file(request);
}

Answer Web::answer_later(const Request &request) {
    WebRules rules;
    {
        const std::lock_guard lock(mutex_);
        rules = rules_;
    }
    return api_.answer(request, rules, board_.get());
}

} // namespace dtfleet
