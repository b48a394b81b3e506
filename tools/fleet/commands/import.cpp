// dtfleet import: devices from a spreadsheet into a configuration, and from that into a database.
#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/csv.h"
#include "fleet/commands/help.h"
#include "fleet/store/shared_inventory.h"
#include "host/counted.h"
#include "host/failure.h"
#include "host/file.h"
#include "host/output.h"
#include "host/program.h"
#include "host/text.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <set>

namespace dtfleet {
namespace {

using dtctl::Exit;
using dtctl::Failure;

struct Options {
    std::string config;
    std::string file;
    std::string output;
    bool is_dry = false;
};

enum class Type { text, number, flag, list };

struct Field {
    const char *key;
    Type type;
};

// The keys of a device, which may be the columns of the file.
constexpr Field fields[] = {{"name", Type::text},       {"address", Type::text},
                            {"port", Type::number},     {"groups", Type::list},
                            {"identity", Type::number}, {"interval", Type::text},
                            {"selftest", Type::text},   {"keep", Type::text},
                            {"command", Type::number},  {"enabled", Type::flag}};

constexpr size_t largest_file = size_t{64} << 20;
constexpr size_t most_complaints = 100;

bool is_number(const std::string &text) {
    const bool is_hex = text.starts_with("0x");
    const char *digits = is_hex ? "0123456789abcdefABCDEF" : "0123456789";
    const size_t begin = is_hex ? 2 : 0;
    return text.size() > begin && text.find_first_not_of(digits, begin) == text.npos &&
           (is_hex || text == "0" || text.front() != '0');
}

// Names between semicolons.
std::vector<std::string> names_in(const std::string &text) {
    std::vector<std::string> names;
    for (size_t at = 0; at < text.size();) {
        const size_t end = std::min(text.find(';', at), text.size());
        const std::string_view name = std::string_view(text).substr(at, end - at);
        const size_t first = std::min(name.find_first_not_of(' '), name.size());
        const size_t last = name.find_last_not_of(' ') + 1;
        if (first < last) names.emplace_back(name.substr(first, last - first));
        at = end + 1;
    }
    return names;
}

// Makes the text of a configuration, and remembers from which line each of its lines comes.
class Converter {
public:
    Converter(const Options &options, std::string_view csv) : reader_(csv) {
        result_.file = options.output.empty() ? "the devices of " + options.file : options.output;
        result_.origin = options.file;
    }

    void read_devices() {
        const auto heading = reader_.next();
        if (!heading) return complain("the file is empty");
        read_heading(*heading);
        if (!complaints_.empty()) return;
        while (const auto row = reader_.next()) read_device(*row);
    }

    // Those of their groups that are not known yet.
    void add_groups(const std::vector<Group> &known) {
        for (const Group &group : known) groups_.erase(group.name);
        for (const std::string &name : groups_) put("[[group]]\nname = " + quoted(name));
    }

    const Overlay &result() const { return result_; }
    const std::set<std::string> &new_groups() const { return groups_; }
    const std::vector<Complaint> &complaints() const { return complaints_; }
    size_t devices() const { return devices_; }

private:
    void complain(const std::string &text) {
        if (complaints_.size() < most_complaints)
            complaints_.push_back({result_.origin, reader_.line(), dtctl::escape(text)});
    }

    void put(const std::string &text) {
        const auto count = static_cast<size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
        result_.text += text + '\n';
        result_.lines.insert(result_.lines.end(), count, reader_.line());
    }

    void read_heading(const std::vector<std::string> &names) {
        for (const std::string &name : names) {
            const auto *field = std::find_if(std::begin(fields), std::end(fields),
                                             [&](const Field &one) { return name == one.key; });
            if (field == std::end(fields))
                complain(fmt::format("there is no column '{}' for a device", name));
            else if (std::find(columns_.begin(), columns_.end(), field) != columns_.end())
                complain(fmt::format("the column '{}' is there twice", name));
            else
                columns_.push_back(field);
        }
    }

    void read_device(const std::vector<std::string> &row) {
        if (row.size() != columns_.size())
            return complain(fmt::format("{} fields instead of {}", row.size(), columns_.size()));
        ++devices_;
        put("[[device]]");
        for (size_t i = 0; i < row.size(); ++i)
            if (!row[i].empty()) read_field(*columns_[i], row[i]);
    }

    void read_field(const Field &field, const std::string &text) {
        if (!dtctl::is_utf8(text)) return complain(fmt::format("{}: not UTF-8", field.key));
        if (field.type == Type::text)
            put(fmt::format("{} = {}", field.key, quoted(text)));
        else if (field.type == Type::list)
            read_groups(field, text);
        else if (field.type == Type::number ? is_number(text) : text == "true" || text == "false")
            put(fmt::format("{} = {}", field.key, text));
        else
            complain(fmt::format("{}: must be {}, not '{}'", field.key,
                                 field.type == Type::number ? "a number" : "true or false", text));
    }

    void read_groups(const Field &field, const std::string &text) {
        std::string list;
        for (const std::string &name : names_in(text)) {
            groups_.insert(name);
            list += (list.empty() ? "" : ", ") + quoted(name);
        }
        put(fmt::format("{} = [{}]", field.key, list));
    }

    CsvReader reader_;
    std::vector<const Field *> columns_;
    Overlay result_;
    std::set<std::string> groups_;
    std::vector<Complaint> complaints_;
    size_t devices_ = 0;
};

// The configuration that the devices are to join; without any they are one by themselves.
std::string base_of(const Options &options, const Overlay &devices) {
    const std::string file = config_file(options.config);
    const bool is_meant = !options.config.empty() || std::getenv("DTFLEET_CONFIG");
    return is_meant || std::filesystem::exists(file) ? file : devices.file;
}

void import_csv(const Options &options) {
    if (options.is_dry) throw Failure(Exit::usage, "--dry-run is for files that end in .toml");
    const std::string csv = dtctl::read_whole_file(options.file, largest_file);
    Converter converter(options, csv);
    converter.read_devices();
    const std::string base = base_of(options, converter.result());
    if (!converter.complaints().empty())
        throw Failure(Exit::broken, text_of(converter.complaints()));
    const Overlay nothing{converter.result().file, "", "", {}};
    converter.add_groups(load_inventory(base, &nothing, Lists::anywhere).inventory.groups);
    (void)checked(load_inventory(base, &converter.result(), Lists::anywhere));
    const dtctl::Stream out = dtctl::open_output(options.output, options.file);
    dtctl::Output printer(out.get());
    printer.put(converter.result().text);
    printer.flush();
    std::string groups;
    for (const std::string &name : converter.new_groups())
        groups += (groups.empty() ? "; new groups: " : ", ") + dtctl::escape(name);
    dtctl::complain("dtfleet", dtctl::counted(converter.devices(), "device") + groups);
}

// ---- into the database --------------------------------------------------------------------------

// "2 new: a, b"
std::string names_text(const char *what, const std::vector<std::string> &names) {
    constexpr size_t most = 20;
    if (names.empty()) return "";
    std::string text = fmt::format("{} {}", names.size(), what);
    for (size_t i = 0; i < std::min(names.size(), most); ++i)
        text += (i == 0 ? ": " : ", ") + dtctl::escape(names[i]);
    if (names.size() > most) text += fmt::format(" and {} more", names.size() - most);
    return text + "\n";
}

std::string changes_text(const InventoryChanges &changes) {
    std::string text = names_text("new", changes.added) + names_text("changed", changes.changed) +
                       names_text("gone", changes.gone);
    for (const auto &[is_other, what] : {std::pair(changes.groups, "groups"),
                                         {changes.series, "meanings of series"},
                                         {changes.retention, "retention"}})
        if (is_other) text += fmt::format("other {}\n", what);
    return text.empty() ? "nothing changes\n" : text;
}

// What is stored can be read again, by this program at least.
void check_form(const Inventory &inventory) {
    const Loaded again = load_shared_text(shared_text(inventory));
    if (!again.complaints.empty() ||
        changes_between(inventory, joined(inventory, again.inventory)).any())
        throw Failure(Exit::broken,
                      "the inventory has no form in the database: " + text_of(again.complaints));
}

void import_inventory(const Options &options) {
    if (!options.output.empty()) throw Failure(Exit::usage, "--output is for CSV files");
    const Inventory settings = fleet_settings(config_file(options.config));
    const Inventory inventory = checked(load_shared(options.file));
    check_form(inventory);
    const auto preview = [&] {
        const SharedInventory stored = read_shared(settings.database);
        return changes_between(load_shared_text(stored.text).inventory, inventory);
    };
    const InventoryChanges changes =
        options.is_dry ? preview() : write_shared(settings.database, inventory);
    dtctl::Output out(stdout);
    out.put(changes_text(changes));
    out.flush();
}

void import(const Options &options) {
    options.file.ends_with(".toml") ? import_inventory(options) : import_csv(options);
}

constexpr const char *text =
    R"(A FILE that ends in .toml is a configuration with devices. They, its groups, its series and its
retention go into the database on a server that the configuration of this command names, in
one transaction and in place of what was there: its collectors follow within seconds. A
device that is not in FILE is no longer asked, and keeps its history. What changes is
printed. All else in FILE does not matter; where FILE has a mistake, nothing is changed.

Any other FILE is CSV, and becomes a configuration. The first line names the columns: name and address, and if wanted port, groups (with a
semicolon between them), identity, interval, selftest, keep, command and enabled. They mean
what they mean in the configuration; an empty field leaves one out.

The devices are checked together with the configuration, as if the output were a file that
it includes, instead of what that file holds now. Nothing is written when there is a
mistake anywhere; each is told with its line in FILE. Groups that the configuration does not
know are added.
)";

} // namespace

void add_import(dtctl::Command &program) {
    dtctl::Command command =
        program.command("import", "Take devices into the database, or make them from a CSV file");
    Options &options = command.runs(import);
    command.argument("FILE", options.file, "The configuration or CSV file");
    command.file("--output", options.output, "Of CSV: the file to write, not standard output");
    command.flag("--dry-run", options.is_dry, "Only print what would change in the database");
    add_config(command, options.config);
    add_footer(
        command,
        "dtfleet import devices.csv > devices.toml\n"
        "dtfleet import hall2.csv --output /etc/dtfleet/devices.d/hall2.toml && dtfleet reload\n"
        "dtfleet import inventory.toml --dry-run",
        text);
}

} // namespace dtfleet
