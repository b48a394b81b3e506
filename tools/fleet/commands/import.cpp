// dtfleet import: devices from a spreadsheet.
#include "fleet/commands/commands.h"
#include "fleet/commands/config.h"
#include "fleet/commands/csv.h"
#include "fleet/commands/help.h"
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

std::string quoted(const std::string &text) {
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\')
            out.append(1, '\\').append(1, c);
        else if (byte < 0x20 || byte == 0x7F)
            out += fmt::format("\\u{:04x}", byte);
        else
            out += c;
    }
    return out + '"';
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

void import(const Options &options) {
    const std::string csv = dtctl::read_whole_file(options.file, largest_file);
    Converter converter(options, csv);
    converter.read_devices();
    const std::string base = base_of(options, converter.result());
    if (!converter.complaints().empty())
        throw Failure(Exit::broken, text_of(converter.complaints()));
    const Overlay nothing{converter.result().file, "", "", {}};
    converter.add_groups(load_inventory(base, &nothing).inventory.groups);
    (void)checked(load_inventory(base, &converter.result()));
    const dtctl::Stream out = dtctl::open_output(options.output, options.file);
    dtctl::Output printer(out.get());
    printer.put(converter.result().text);
    printer.flush();
    std::string groups;
    for (const std::string &name : converter.new_groups())
        groups += (groups.empty() ? "; new groups: " : ", ") + dtctl::escape(name);
    dtctl::complain("dtfleet", dtctl::counted(converter.devices(), "device") + groups);
}

constexpr const char *text =
    R"(The first line names the columns: name and address, and if wanted port, groups (with a
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
        program.command("import", "Make a configuration of devices from a CSV file");
    Options &options = command.runs(import);
    command.argument("FILE", options.file, "The CSV file");
    command.file("--output", options.output, "The file to write, instead of standard output");
    add_config(command, options.config);
    add_footer(
        command,
        "dtfleet import devices.csv > devices.toml\n"
        "dtfleet import hall2.csv --output /etc/dtfleet/devices.d/hall2.toml && dtfleet reload",
        text);
}

} // namespace dtfleet
